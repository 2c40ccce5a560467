// libzelvisa's own parsing and texts: zelvisa.conf, and the command text of a record built from
// arbitrary data, shares and arguments, which must end with ")" within the record's 959 characters.
#include "CommandText.h"
#include "LibraryConfig.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    zelvisa::parseLibraryConfig(reinterpret_cast<const char*>(data), size);

    zelvisa::CommandText text;
    text.begin("viFuzz");
    std::size_t at = 0;
    // Each step: a byte choosing the argument, then what it takes.
    while (at < size) {
        const std::uint8_t op = data[at++];
        std::size_t length = 0;
        if (at < size) {
            const std::size_t wanted = data[at++] * 8u;
            length = std::min(wanted, size - at);
        }
        switch (op % 5) {
        case 0:
            text.arg().bytes(data + at, length, op * 4u);
            break;
        case 1: {
            const std::string s(reinterpret_cast<const char*>(data + at), length);
            text.arg().text(s.c_str());
            break;
        }
        case 2:
            text.arg().number(length * 0x9E3779B97F4A7C15ull);
            break;
        case 3:
            text.arg().signedNumber(-static_cast<std::int64_t>(length) * 0x10000001);
            break;
        default:
            text.arg().hex(length, op % 20);
        }
        at += length;
    }
    const char* end = text.end();
    const std::size_t n = std::strlen(end);
    if (n > 959 || end[n - 1] != ')')
        std::abort();
    return 0;
}
