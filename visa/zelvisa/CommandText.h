#pragma once

#include <cstddef>
#include <cstdint>

namespace zelvisa {

// The command text of one record, built in place: a record carries at most 959 characters, so a
// fixed buffer on the caller's stack holds it and nothing is allocated per call. The form follows
// the PyVISA backend's, so that a C program and a PyVISA script look alike in the tool:
// `viWrite(2, "*IDN?\n", 6, 6)`, quoted data with the same escapes, cut data ending in `..."`.
class CommandText
{
public:
    static constexpr std::size_t s_Capacity = 960;
    // Room a quoted argument leaves for what may follow it: a few numbers and the closing ")".
    static constexpr std::size_t s_Reserve = 64;

    // Starts the text again with "function(".
    void begin(const char* function);
    // Starts the next argument: ", " after the first one.
    CommandText& arg();

    CommandText& number(std::uint64_t value);
    CommandText& signedNumber(std::int64_t value);
    // "0x" and upper-case digits, at least `digits` of them.
    CommandText& hex(std::uint64_t value, std::size_t digits = 1);
    CommandText& literal(const char* text);
    // A NUL-terminated text, quoted, or NULL.
    CommandText& text(const char* value);
    // `length` bytes, quoted and escaped; when they do not fit into `share` characters or into what
    // is left, they are cut and the quote ends in `..."`.
    CommandText& bytes(const void* data, std::size_t length, std::size_t share = s_Capacity);

    // Closes the argument list; the text stays valid until the next begin().
    const char* end();
    const char* c_str() const { return buffer; }
    std::size_t size() const { return length; }

private:
    void put(char c);
    void put(const char* s, std::size_t n);

    char buffer[s_Capacity];
    std::size_t length = 0;
    bool first = true;
};

} // namespace zelvisa
