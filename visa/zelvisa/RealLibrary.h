#pragma once

#include "FunctionList.h"

#include <atomic>
#include <mutex>
#include <string>

namespace zelvisa {

// The vendor's VISA library behind this one. It is chosen once per process, at the first call or
// the first lookup of a VISA function by the program, in this order:
//   1. the file ZELVISA_LIBRARY names (zel-run --visa sets it);
//   2. the VISA library the program itself uses: the one it looked a VISA function up in, or the one
//      it was linked with (found after this library when it is preloaded), so that tracing never
//      sends a program's calls to another library than its own;
//   3. the file named in $XDG_CONFIG_HOME/zelvisa.conf (~/.config/zelvisa.conf), then /etc/zelvisa.conf;
//   4. the usual names on the library path, then the usual places.
// Once loaded it is never unloaded, so the function pointers taken from it stay valid.
class RealLibrary
{
public:
    static RealLibrary& instance();

    // The real function, or nullptr when there is no library or it lacks this function.
    void* function(Fn f)
    {
        if (!chosen.load(std::memory_order_acquire))
            choose(nullptr);
        return functions[static_cast<std::size_t>(f)];
    }
    // What a call returns when function() gives nullptr: VI_ERROR_SYSTEM_ERROR without a library,
    // VI_ERROR_NSUP_OPER for a function the library does not have.
    int missingStatus() const;
    // For the dlsym hook: the traced function to hand a program that found `found` under the name of
    // `f`, or nullptr to hand it what it found (a function of this library, or of another library
    // than the one this process traces).
    void* tracedFor(Fn f, void* found);

    static void* tracedFunction(Fn f);

private:
    RealLibrary() = default;
    void choose(void* candidate);
    bool load(const char* file, bool quiet);
    bool adopt(void* function);
    bool loadFromConfiguration();
    bool loadByUsualName();

    std::atomic<bool> chosen {false};
    std::mutex mutex;
    void* handle = nullptr;
    std::string file;
    std::string problem; // why the last load failed, for the message
    void* functions[s_FunctionCount] = {};
    std::atomic<bool> toldUntraced {false};
};

// One line on standard error, prefixed "zelvisa: ", without touching errno.
void say(const char* format, ...) __attribute__((format(printf, 1, 2)));

} // namespace zelvisa
