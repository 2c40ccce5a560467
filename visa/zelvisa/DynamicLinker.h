#pragma once

// The C library's own dlopen and dlsym. This library exports functions of those names (the hooks
// of zel-run), so everything here that loads or looks up must call these, never dlopen or dlsym by
// name, or it would call its own hooks.
namespace zelvisa {

void* realDlopen(const char* file, int mode);
void* realDlsym(void* handle, const char* name);

} // namespace zelvisa

extern "C" {
// Read by the hooks' assembly, which jumps to them so that the C library sees the program's own
// return address (dlopen searches the caller's RUNPATH and expands $ORIGIN from it; dlsym's
// RTLD_NEXT is relative to the caller).
extern void* zelvisa_real_dlopen __attribute__((visibility("hidden")));
extern void* zelvisa_real_dlsym __attribute__((visibility("hidden")));
void zelvisa_find_real_linker() __attribute__((visibility("hidden")));
}
