#include "DynamicLinker.h"

#include <dlfcn.h>

#include <initializer_list>

extern "C" {

void* zelvisa_real_dlopen = nullptr;
void* zelvisa_real_dlsym = nullptr;

namespace {

void* nothingFound(const void*, const char*)
{
    return nullptr;
}

// The next definition after this library's: the C library's, or that of another preloaded library
// that hooks the same function. Both versions glibc has given dlopen and dlsym on x86-64 are asked
// for, newest first; dlvsym is not hooked, so asking cannot come back here.
void* nextDefinition(const char* name)
{
    for (const char* version : {"GLIBC_2.34", "GLIBC_2.2.5"}) {
        if (void* f = dlvsym(RTLD_NEXT, name, version))
            return f;
    }
    return nullptr;
}

} // namespace

void zelvisa_find_real_linker()
{
    // Plain stores of the same values if threads race here: every thread finds the same definitions.
    if (__atomic_load_n(&zelvisa_real_dlsym, __ATOMIC_ACQUIRE))
        return;
    void* open = nextDefinition("dlopen");
    void* lookUp = nextDefinition("dlsym");
    // Without the C library's functions a lookup finds nothing rather than jumping to address 0.
    __atomic_store_n(&zelvisa_real_dlopen, open ? open : reinterpret_cast<void*>(&nothingFound), __ATOMIC_RELEASE);
    __atomic_store_n(&zelvisa_real_dlsym, lookUp ? lookUp : reinterpret_cast<void*>(&nothingFound), __ATOMIC_RELEASE);
}

} // extern "C"

namespace zelvisa {

void* realDlopen(const char* file, int mode)
{
    zelvisa_find_real_linker();
    return reinterpret_cast<void* (*)(const char*, int)>(zelvisa_real_dlopen)(file, mode);
}

void* realDlsym(void* handle, const char* name)
{
    zelvisa_find_real_linker();
    return reinterpret_cast<void* (*)(void*, const char*)>(zelvisa_real_dlsym)(handle, name);
}

} // namespace zelvisa
