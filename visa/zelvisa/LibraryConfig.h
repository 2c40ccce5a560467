#pragma once

#include <cstddef>
#include <string>

namespace zelvisa {

// zelvisa.conf: which real VISA library the forwarding library passes calls on to, for programs
// that load it in place of their vendor's library. One setting per line, `library = /path/libvisa.so`;
// blank lines and lines starting with '#' are ignored.
struct LibraryConfig
{
    std::string library; // empty when the file names none
    std::string problem; // the first line that is not understood, for a message
};

// Reads a file's text; a text longer than s_MaxConfigSize is refused whole.
LibraryConfig parseLibraryConfig(const char* text, std::size_t size);

constexpr std::size_t s_MaxConfigSize = 64 * 1024;

} // namespace zelvisa
