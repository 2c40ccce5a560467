#pragma once

#include <cstdint>
#include <optional>

namespace ZelTracer {

// Our producers number every record a process means to deliver and keep the number in the record's
// `reserved` word, so that the tool can count per process what never arrived. The segment does not
// interpret `reserved`: other VISA libraries write anything there. So the number carries a check of
// itself and the pid, and a word that fails it is no number at all:
//
//   bits 63..40  check: 24 bits of a hash of the pid and the number
//   bits 39..0   the number, counting from 1, wrapping after 2^40
//
// A word written by anyone else passes the check once in 16.7 million; the counter also refuses jumps
// that no producer could make (LossCounter).
namespace SequenceMark {

inline constexpr unsigned s_NumberBits = 40;
inline constexpr std::uint64_t s_NumberMask = (std::uint64_t {1} << s_NumberBits) - 1;

constexpr std::uint64_t check(std::uint32_t pid, std::uint64_t number)
{
    // splitmix64's finaliser over the number and the pid, keyed so that a zero word never passes.
    std::uint64_t x = number ^ (std::uint64_t {pid} << s_NumberBits) ^ 0x5A454C5452414345ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    x ^= x >> 31;
    return x >> s_NumberBits;
}

constexpr std::uint64_t mark(std::uint32_t pid, std::uint64_t number)
{
    const std::uint64_t n = number & s_NumberMask;
    return (check(pid, n) << s_NumberBits) | n;
}

// The number a marked word carries, or nothing for a word our producers did not write.
constexpr std::optional<std::uint64_t> number(std::uint32_t pid, std::uint64_t reserved)
{
    const std::uint64_t n = reserved & s_NumberMask;
    if ((reserved >> s_NumberBits) != check(pid, n))
        return std::nullopt;
    return n;
}

static_assert(number(42, mark(42, 7)) == std::optional<std::uint64_t>(7));
static_assert(!number(43, mark(42, 7)));
static_assert(!number(0, 0));

} // namespace SequenceMark

} // namespace ZelTracer
