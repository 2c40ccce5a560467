// zel-run: runs a program with every call it makes into a VISA library shown in the ZelVisa Trace
// Tool, with no change to the program. It preloads libzelvisa, whose VISA functions record each
// call and pass it on to the real library, and whose dlopen and dlsym hand the traced functions to a
// program that loads its VISA library itself (PyVISA's @ivi backend does).

#include "ZelVersion.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

const char* const s_Usage = "Usage: zel-run [--visa LIBRARY] [--] PROGRAM [ARGUMENT...]\n"
                            "Runs PROGRAM with every VISA call it makes recorded for the ZelVisa Trace Tool.\n"
                            "\n"
                            "  --visa LIBRARY  the real VISA library: a program that loads a VISA library by one of\n"
                            "                  the usual names (libvisa.so, libivivisa.so.7, ...) gets this one, and\n"
                            "                  PyVISA loads it unless PYVISA_LIBRARY says otherwise\n"
                            "  --help          show this text\n"
                            "  --version       show the version\n"
                            "\n"
                            "Without --visa the calls go to the library the program uses itself. The exit status\n"
                            "is the program's; 127 when it cannot be started, 2 for a wrong command line.\n";

bool exists(std::string const& file)
{
    return access(file.c_str(), R_OK) == 0;
}

// libzelvisa as installed beside this program, else as built beside it.
std::string tracingLibrary()
{
    char self[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n > 0) {
        self[n] = '\0';
        const std::string here(self, static_cast<std::size_t>(std::strrchr(self, '/') - self));
        const std::string installed = here + "/" ZEL_RUN_LIBDIR_FROM_BINDIR "/libzelvisa.so.1";
        if (exists(installed))
            return installed;
    }
    return exists(ZEL_RUN_BUILT_LIBRARY) ? ZEL_RUN_BUILT_LIBRARY : std::string();
}

int fail(int status, std::string const& message)
{
    std::fprintf(stderr, "zel-run: %s\n", message.c_str());
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    std::string visa;
    int first = 1;
    for (; first < argc && argv[first][0] == '-'; ++first) {
        const std::string option = argv[first];
        if (option == "--") {
            ++first;
            break;
        }
        if (option == "--help") {
            std::fputs(s_Usage, stdout);
            return 0;
        }
        if (option == "--version") {
            std::printf("zel-run %s\n", ZelTracer::s_VersionString);
            return 0;
        }
        if (option == "--visa" && first + 1 < argc && argv[first + 1][0]) {
            visa = argv[++first];
            continue;
        }
        std::fputs(s_Usage, stderr);
        return fail(2, option == "--visa" ? "--visa needs a library" : "unknown option " + option);
    }
    if (first >= argc) {
        std::fputs(s_Usage, stderr);
        return fail(2, "no program to run");
    }

    const std::string library = tracingLibrary();
    if (library.empty())
        return fail(127, "libzelvisa.so.1 is not installed beside zel-run");
    if (library.find_first_of(" :") != std::string::npos)
        return fail(127, library + ": LD_PRELOAD cannot carry a path with a space or a colon");
    // A preloaded library that cannot be loaded stops every program it is preloaded into: better
    // say why here than start the program.
    if (!dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL))
        return fail(127, std::string("cannot load ") + dlerror());
    if (!visa.empty()) {
        // A path is made absolute, since the program may change its directory; a bare name is left to
        // the library search, as dlopen does.
        if (visa.find('/') != std::string::npos) {
            char absolute[PATH_MAX];
            if (!realpath(visa.c_str(), absolute))
                return fail(127, visa + ": " + std::strerror(errno));
            visa = absolute;
        }
        setenv("ZELVISA_LIBRARY", visa.c_str(), 1);
        setenv("PYVISA_LIBRARY", visa.c_str(), 0);
    }
    // After what is preloaded already: a sanitizer's runtime must stay first.
    const char* preloaded = std::getenv("LD_PRELOAD");
    std::string preload = preloaded ? preloaded : "";
    if (preload.find(library) == std::string::npos)
        preload += (preload.empty() ? "" : ":") + library;
    setenv("LD_PRELOAD", preload.c_str(), 1);

    execvp(argv[first], argv + first);
    const int error = errno;
    return fail(error == EACCES ? 126 : 127, std::string("cannot run ") + argv[first] + ": " + std::strerror(error));
}
