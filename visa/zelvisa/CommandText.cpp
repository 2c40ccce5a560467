#include "CommandText.h"

#include <algorithm>
#include <cstring>

namespace zelvisa {

namespace {

struct Plain
{
    constexpr Plain()
    {
        for (int b = 32; b < 127; ++b)
            table[b] = b != '"' && b != '\\';
    }
    bool table[256] = {};
};
constexpr Plain s_Plain;

// Printable bytes stand for themselves inside quotes; the rest is escaped.
bool standsForItself(unsigned char byte)
{
    return s_Plain.table[byte];
}

// Characters one byte takes inside quotes, and writes them to `out` (which has room for four).
std::size_t escape(unsigned char byte, char* out)
{
    static const char digits[] = "0123456789abcdef";
    switch (byte) {
    case '\n':
        out[1] = 'n';
        break;
    case '\r':
        out[1] = 'r';
        break;
    case '\t':
        out[1] = 't';
        break;
    case '\\':
    case '"':
        out[1] = static_cast<char>(byte);
        break;
    default:
        if (byte >= 32 && byte < 127) {
            out[0] = static_cast<char>(byte);
            return 1;
        }
        out[0] = '\\';
        out[1] = 'x';
        out[2] = digits[byte >> 4];
        out[3] = digits[byte & 15];
        return 4;
    }
    out[0] = '\\';
    return 2;
}

} // namespace

void CommandText::begin(const char* function)
{
    length = 0;
    first = true;
    literal(function);
    put('(');
}

CommandText& CommandText::arg()
{
    if (!first)
        put(", ", 2);
    first = false;
    return *this;
}

void CommandText::put(char c)
{
    // The last two places are kept for the closing ")" and the terminator.
    if (length + 2 < s_Capacity)
        buffer[length++] = c;
}

void CommandText::put(const char* s, std::size_t n)
{
    const std::size_t room = s_Capacity - 2 - std::min(length, s_Capacity - 2);
    n = std::min(n, room);
    std::memcpy(buffer + length, s, n);
    length += n;
}

CommandText& CommandText::number(std::uint64_t value)
{
    char digits[20];
    std::size_t n = 0;
    do {
        digits[sizeof digits - ++n] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value);
    put(digits + sizeof digits - n, n);
    return *this;
}

CommandText& CommandText::signedNumber(std::int64_t value)
{
    if (value < 0) {
        put('-');
        return number(0 - static_cast<std::uint64_t>(value));
    }
    return number(static_cast<std::uint64_t>(value));
}

CommandText& CommandText::hex(std::uint64_t value, std::size_t digits)
{
    static const char hexDigits[] = "0123456789ABCDEF";
    char text[18];
    std::size_t n = 0;
    do {
        text[sizeof text - ++n] = hexDigits[value & 15];
        value >>= 4;
    } while (value || n < std::min<std::size_t>(digits, 16));
    text[sizeof text - ++n] = 'x';
    text[sizeof text - ++n] = '0';
    put(text + sizeof text - n, n);
    return *this;
}

CommandText& CommandText::literal(const char* text)
{
    put(text, std::strlen(text));
    return *this;
}

CommandText& CommandText::text(const char* value)
{
    if (!value)
        return literal("NULL");
    return bytes(value, strnlen(value, s_Capacity));
}

CommandText& CommandText::bytes(const void* data, std::size_t size, std::size_t share)
{
    static const char cut[] = "...\"";
    // What the quoted bytes may use, not counting the quotes and the mark of a cut.
    const std::size_t used = length + 2 + sizeof cut + s_Reserve;
    const std::size_t limit = std::min(share, used < s_Capacity ? s_Capacity - used : 0);
    const auto* p = static_cast<const unsigned char*>(data);
    if (!p)
        return literal("NULL");
    put('"');
    std::size_t written = 0;
    std::size_t i = 0;
    while (i < size) {
        // A run of bytes that stand for themselves goes in at once.
        std::size_t run = 0;
        while (i + run < size && written + run < limit && standsForItself(p[i + run]))
            ++run;
        put(reinterpret_cast<const char*>(p + i), run);
        written += run;
        i += run;
        if (i == size || written == limit)
            break;
        if (standsForItself(p[i]))
            continue;
        char escaped[4];
        const std::size_t n = escape(p[i], escaped);
        if (written + n > limit)
            break;
        put(escaped, n);
        written += n;
        ++i;
    }
    if (i < size)
        put(cut, sizeof cut - 1);
    else
        put('"');
    return *this;
}

const char* CommandText::end()
{
    buffer[length++] = ')';
    buffer[length] = '\0';
    return buffer;
}

} // namespace zelvisa
