#include "RealLibrary.h"

#include "DynamicLinker.h"
#include "LibraryConfig.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace zelvisa {

namespace {

void* const s_TracedFunctions[] = {
#define ZELVISA_ADDRESS(name) reinterpret_cast<void*>(&::name),
    ZELVISA_FUNCTIONS(ZELVISA_ADDRESS)
#undef ZELVISA_ADDRESS
};

// Set while this thread chooses: a library whose initialisation calls VISA must not choose again.
thread_local bool s_choosing = false;

const char* const s_UsualNames[] = {"libivivisa.so.7", "libvisa.so", "libvisa.so.0", "libktvisa32.so", "librsvisa.so"};
const char* const s_UsualPlaces[]
    = {"/usr/local/vxipnp/linux/lib64", "/opt/keysight/iolibs", "/usr/lib64", "/usr/local/lib"};

} // namespace

void say(const char* format, ...)
{
    const int saved = errno;
    char line[1024] = "zelvisa: ";
    va_list args;
    va_start(args, format);
    const int n = std::vsnprintf(line + 9, sizeof line - 10, format, args);
    va_end(args);
    std::size_t length = 9 + (n < 0 ? 0 : std::min<std::size_t>(static_cast<std::size_t>(n), sizeof line - 11));
    line[length++] = '\n';
    (void)!::write(STDERR_FILENO, line, length);
    errno = saved;
}

RealLibrary& RealLibrary::instance()
{
    // Never destroyed: threads may still call VISA while the process runs its exit handlers.
    static RealLibrary* library = new RealLibrary;
    return *library;
}

void* RealLibrary::tracedFunction(Fn f)
{
    return s_TracedFunctions[static_cast<std::size_t>(f)];
}

int RealLibrary::missingStatus() const
{
    return handle ? VI_ERROR_NSUP_OPER : VI_ERROR_SYSTEM_ERROR;
}

void* RealLibrary::tracedFor(Fn f, void* found)
{
    void* traced = tracedFunction(f);
    if (found == traced)
        return nullptr;
    if (!chosen.load(std::memory_order_acquire))
        choose(found);
    if (functions[static_cast<std::size_t>(f)] == found)
        return traced;
    if (!toldUntraced.exchange(true)) {
        Dl_info info {};
        const bool named = dladdr(found, &info) && info.dli_fname;
        say("%s is another VISA library than the one this process traces (%s): its calls are not traced",
            named ? info.dli_fname : "a library", handle ? file.c_str() : "none");
    }
    return nullptr;
}

bool RealLibrary::load(const char* name, bool quiet)
{
    void* h = realDlopen(name, RTLD_NOW | RTLD_LOCAL);
    if (!h) {
        const char* why = dlerror();
        problem = why ? why : "cannot be loaded";
        return false;
    }
    if (realDlsym(h, "viOpen") == tracedFunction(Fn::viOpen)) {
        if (!quiet)
            problem = std::string(name) + " is this tracing library, not a VISA library";
        dlclose(h);
        return false;
    }
    if (!realDlsym(h, "viOpenDefaultRM")) {
        problem = std::string(name) + " has no viOpenDefaultRM: not a VISA library";
        dlclose(h);
        return false;
    }
    handle = h;
    file = name;
    for (std::size_t i = 0; i < s_FunctionCount; ++i)
        functions[i] = realDlsym(h, s_FunctionNames[i]);
    return true;
}

bool RealLibrary::adopt(void* function)
{
    Dl_info info {};
    if (!function || function == tracedFunction(Fn::viOpenDefaultRM) || !dladdr(function, &info) || !info.dli_fname
        || !*info.dli_fname)
        return false;
    // Loaded already: this takes one more reference, so it stays when the program closes its own.
    return load(info.dli_fname, true);
}

bool RealLibrary::loadFromConfiguration()
{
    std::string files[2];
    if (const char* config = std::getenv("XDG_CONFIG_HOME"); config && *config == '/')
        files[0] = std::string(config) + "/zelvisa.conf";
    else if (const char* home = std::getenv("HOME"); home && *home == '/')
        files[0] = std::string(home) + "/.config/zelvisa.conf";
    files[1] = "/etc/zelvisa.conf";
    for (const std::string& name : files) {
        std::ifstream in(name, std::ios::binary);
        if (name.empty() || !in)
            continue;
        std::string text;
        text.resize(s_MaxConfigSize + 1);
        in.read(&text[0], static_cast<std::streamsize>(text.size()));
        const LibraryConfig config = parseLibraryConfig(text.data(), static_cast<std::size_t>(in.gcount()));
        if (!config.problem.empty())
            say("%s: %s", name.c_str(), config.problem.c_str());
        if (config.library.empty())
            continue;
        if (load(config.library.c_str(), false))
            return true;
        say("%s names %s, which cannot be used: %s", name.c_str(), config.library.c_str(), problem.c_str());
    }
    return false;
}

bool RealLibrary::loadByUsualName()
{
    for (const char* name : s_UsualNames) {
        if (load(name, true))
            return true;
    }
    for (const char* place : s_UsualPlaces) {
        for (const char* name : s_UsualNames) {
            if (load((std::string(place) + "/" + name).c_str(), true))
                return true;
        }
    }
    return false;
}

void RealLibrary::choose(void* candidate)
{
    if (s_choosing)
        return;
    // Loading is not the program's business: errno stays as the program would see it.
    const int savedErrno = errno;
    std::lock_guard<std::mutex> guard(mutex);
    if (chosen.load(std::memory_order_relaxed)) {
        errno = savedErrno;
        return;
    }
    s_choosing = true;
    const char* named = std::getenv("ZELVISA_LIBRARY");
    if (named && *named) {
        if (!load(named, false))
            say("cannot load ZELVISA_LIBRARY=%s (%s): every VISA call returns VI_ERROR_SYSTEM_ERROR", named,
                problem.c_str());
    } else if (!adopt(candidate) && !adopt(realDlsym(RTLD_NEXT, "viOpenDefaultRM")) && !loadFromConfiguration()
               && !loadByUsualName()) {
        say("no VISA library found (set ZELVISA_LIBRARY, or 'library = PATH' in ~/.config/zelvisa.conf): "
            "every VISA call returns VI_ERROR_SYSTEM_ERROR");
    }
    s_choosing = false;
    chosen.store(true, std::memory_order_release);
    errno = savedErrno;
}

} // namespace zelvisa
