#pragma once

#include "SharedFile.h"
#include "TraceChannel.h"
#include "TraceRecord.h"

#include <cstdint>
#include <string>

namespace ZelTracer {

// The traced side of the channel: writes one full record per VISA call the way the VISA library
// does. Used by the traffic generator, the tests and the benchmarks, and by integrations that want
// their own calls to show up in the tool.
//
// Policy choices that the header leaves to each producer:
// - a record that does not fit into the free slots is dropped whole and counted; unread slots are
//   never overwritten, so a tool that has fallen behind loses the newest records, not torn ones;
// - the message filter matches when it occurs in the command text as a case-insensitive substring;
// - a text longer than twelve slots can carry is cut to 959 characters so that the last slot still
//   holds the terminator;
// - the log file gets every record that passes the filters, also when the ring had no room.
class TraceProducer : public TraceChannel
{
public:
    enum class Outcome
    {
        Written,
        Dropped,
        Filtered,
        Inactive,
        NoSegment
    };

    explicit TraceProducer(int const& key = s_VisaSharedMemoryKey, unsigned long size = s_VisaSharedMemorySize,
                           std::string const& semaphoreName = s_SharedMemoryMutexName,
                           std::string const& fileSemaphoreName = s_SharedFileMutexName);

    Outcome write(FullEntry const& entry);

    std::uint64_t getWritten() const { return written; }
    std::uint64_t getDropped() const { return dropped; }
    SharedFile& getFile() { return file; }

    // Slots a text of this many characters occupies.
    static std::uint32_t slotsFor(std::size_t textLength);
    static constexpr std::size_t s_MaxTextLength = s_MaxSlotsPerRecord * s_SlotTextSize - 1;

private:
    static bool passesFilter(SharedMemoryHeader const& h, FullEntry const& entry, std::size_t textLength);
    void writeSlots(std::uint32_t writeIndex, FullEntry const& entry, std::size_t textLength, std::uint32_t slots);
    void writeToFile(SharedMemoryHeader const& h, FullEntry const& entry);

    SharedFile file;
    std::uint64_t written = 0;
    std::uint64_t dropped = 0;
};

} // namespace ZelTracer
