// What the dlopen and dlsym hooks of hooks.S decide. Both run in every dlopen and dlsym of a
// program started by zel-run, so they return at once for everything that is not about VISA.

#include "DynamicLinker.h"
#include "FunctionList.h"
#include "RealLibrary.h"

#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace {

// File names under which VISA libraries are installed: the IVI shared component's, the common
// vendor-neutral one, and those of vendors that install under a name of their own.
bool isVisaLibraryName(const char* file)
{
    const char* slash = std::strrchr(file, '/');
    const char* name = slash ? slash + 1 : file;
    for (const char* known : {"libvisa.so", "libivivisa.so", "libktvisa32.so", "librsvisa.so"}) {
        const std::size_t n = std::strlen(known);
        if (std::strncmp(name, known, n) == 0 && (name[n] == '\0' || name[n] == '.'))
            return true;
    }
    return false;
}

} // namespace

extern "C" {

__attribute__((visibility("hidden"))) const char* zelvisa_dlopen_name(const char* file)
{
    zelvisa_find_real_linker();
    if (!file || !isVisaLibraryName(file))
        return file;
    // zel-run --visa names the library every VISA library name stands for in this process.
    const char* chosen = std::getenv("ZELVISA_LIBRARY");
    return chosen && *chosen ? chosen : file;
}

__attribute__((visibility("hidden"))) void* zelvisa_dlsym_traced(void* handle, const char* name)
{
    zelvisa_find_real_linker();
    if (!name || name[0] != 'v' || name[1] != 'i' || handle == RTLD_DEFAULT || handle == RTLD_NEXT)
        return nullptr;
    const int index = zelvisa::indexOf(name);
    if (index < 0)
        return nullptr;
    void* found = zelvisa::realDlsym(handle, name);
    return found ? zelvisa::RealLibrary::instance().tracedFor(static_cast<zelvisa::Fn>(index), found) : nullptr;
}

} // extern "C"
