#pragma once

#include <cstddef>
#include <cstdint>

// The two binary formats shared with independently built processes (the VISA library in every
// traced process, and other copies of this tool). Every offset and size is part of the contract;
// the static_asserts below pin them for x86-64.
namespace ZelTracer {

inline constexpr int s_VisaSharedMemoryKey = 894129; // 0xDA4B1
inline constexpr unsigned long s_VisaSharedMemorySize = 0x200000; // 2 MiB
inline constexpr char s_SharedMemoryMutexName[] = "/ZelTracerSharedMemoryMutex;"; // the ';' belongs to the name
inline constexpr char s_SharedFileMutexName[] = "/ZelTracerSharedFileMutex;";

// One trace record; N is the capacity of the command text.
//   offset  width  field
//        0      8  id
//        8      8  reserved (the live model's sequence number in its local copies)
//       16      4  pid
//       20      4  threadId
//       24      8  duration (seconds)
//       32      4  status (ViStatus, signed)
//       36      4  kind (0 call, 1 return)
//       40      4  session
//       44    132  address, NUL-terminated
//      176      8  timestamp (time_t seconds)
//      184      8  timestampFraction
//      192      8  elapsedTime
//      200      1  continued (shared slot only: text goes on in the next slot)
//      201      N  text, NUL-terminated when shorter than N
//    201+N      7  padding to a multiple of 8
template<std::size_t N> struct TBufferEntry
{
    std::uint64_t id;
    std::uint64_t reserved;
    std::uint32_t pid;
    std::uint32_t threadId;
    double duration;
    std::int32_t status;
    std::uint32_t kind;
    std::uint32_t session;
    char address[132];
    std::int64_t timestamp;
    double timestampFraction;
    double elapsedTime;
    std::uint8_t continued;
    char text[N];
};

inline constexpr std::size_t s_FullTextSize = 1024;
inline constexpr std::size_t s_SlotTextSize = 80;
using FullEntry = TBufferEntry<s_FullTextSize>;
using SlotEntry = TBufferEntry<s_SlotTextSize>;

// The fixed fields, the flag and the first seven text bytes: what a continuation-aware reader
// takes over from the first slot of a long record.
inline constexpr std::size_t s_EntryHeadSize = 208;
// A reader reassembles at most this many slots into one full record (960 text characters).
inline constexpr unsigned s_MaxSlotsPerRecord = 12;

static_assert(offsetof(FullEntry, id) == 0);
static_assert(offsetof(FullEntry, reserved) == 8);
static_assert(offsetof(FullEntry, pid) == 16);
static_assert(offsetof(FullEntry, threadId) == 20);
static_assert(offsetof(FullEntry, duration) == 24);
static_assert(offsetof(FullEntry, status) == 32);
static_assert(offsetof(FullEntry, kind) == 36);
static_assert(offsetof(FullEntry, session) == 40);
static_assert(offsetof(FullEntry, address) == 44);
static_assert(offsetof(FullEntry, timestamp) == 176);
static_assert(offsetof(FullEntry, timestampFraction) == 184);
static_assert(offsetof(FullEntry, elapsedTime) == 192);
static_assert(offsetof(FullEntry, continued) == 200);
static_assert(offsetof(FullEntry, text) == 201);
static_assert(offsetof(SlotEntry, text) == 201);
static_assert(sizeof(FullEntry) == 1232);
static_assert(sizeof(SlotEntry) == 288);

// The control header at the start of the trace segment.
//   offset  width  field
//        0      4  tracingActive
//        4      4  tracingToFile
//        8      4  readIndex  (oldest unread slot)
//       12      4  writeIndex (next slot to write)
//       16      4  pidFilter  (0 = every process)
//       20    256  fileName, NUL-terminated
//      276    256  messageFilter, NUL-terminated
//      532      4  reserved
struct SharedMemoryHeader
{
    std::uint32_t tracingActive;
    std::uint32_t tracingToFile;
    std::uint32_t readIndex;
    std::uint32_t writeIndex;
    std::uint32_t pidFilter;
    char fileName[256];
    char messageFilter[256];
    std::uint32_t reserved;
};

static_assert(offsetof(SharedMemoryHeader, tracingActive) == 0);
static_assert(offsetof(SharedMemoryHeader, tracingToFile) == 4);
static_assert(offsetof(SharedMemoryHeader, readIndex) == 8);
static_assert(offsetof(SharedMemoryHeader, writeIndex) == 12);
static_assert(offsetof(SharedMemoryHeader, pidFilter) == 16);
static_assert(offsetof(SharedMemoryHeader, fileName) == 20);
static_assert(offsetof(SharedMemoryHeader, messageFilter) == 276);
static_assert(offsetof(SharedMemoryHeader, reserved) == 532);
static_assert(sizeof(SharedMemoryHeader) == 536);

inline constexpr std::size_t s_HeaderSize = sizeof(SharedMemoryHeader);
inline constexpr std::size_t s_SlotSize = sizeof(SlotEntry);

// The slot count is always computed from the segment size, never stored.
constexpr std::uint32_t slotCountFor(unsigned long segmentSize)
{
    return segmentSize < s_HeaderSize ? 0 : static_cast<std::uint32_t>((segmentSize - s_HeaderSize) / s_SlotSize);
}

static_assert(slotCountFor(s_VisaSharedMemorySize) == 7279);
static_assert(s_HeaderSize + 7279 * s_SlotSize == 2096888);

// Slots in use between the read and the write index; one slot always stays free.
constexpr std::uint64_t usedSlots(std::uint64_t readIndex, std::uint64_t writeIndex, std::uint64_t slotCount)
{
    return writeIndex >= readIndex ? writeIndex - readIndex : writeIndex + slotCount - readIndex;
}

static_assert(usedSlots(7000, 10, 7279) == 289);

// True when a fixed-size text field carries its terminator, i.e. may be read as a C string.
template<std::size_t N> bool hasTerminator(const char (&field)[N])
{
    for (char c : field) {
        if (c == '\0')
            return true;
    }
    return false;
}

} // namespace ZelTracer
