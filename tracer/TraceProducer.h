#pragma once

#include "SharedFile.h"
#include "TraceChannel.h"
#include "TraceRecord.h"

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

namespace ZelTracer {

// The traced side of the channel: writes one full record per VISA call the way the VISA library
// does. One object may be shared by any number of threads. Used by libzeltrace (and through it by
// the PyVISA backend), the traffic generator, the tests and the benchmarks.
//
// Policy choices that the header leaves to each producer:
// - tracing off costs one unlocked read of the header flag; the record filters are evaluated
//   before the segment lock, which is held only to copy the slots and advance the write index;
// - a record that does not fit into the free slots is dropped whole and counted; unread slots are
//   never overwritten, so a tool that has fallen behind loses the newest records, not torn ones;
// - every record that passes the filters takes the next number of this producer's sequence, stored
//   with its check in `reserved` (SequenceMark), so that the tool can count what never arrived;
// - the message filter matches when it occurs in the command text as a case-insensitive substring;
// - a text longer than twelve slots can carry is cut to 959 characters so that the last slot still
//   holds the terminator;
// - the log file gets every record that passes the filters, also when the ring had no room. Its
//   line is written after the segment lock is released, and the wait for the file lock is bounded:
//   past the bound the line is dropped and counted, so a writer that died holding that lock cannot
//   hang the traced program.
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

    // True while the header asks for records; one unlocked read, for callers that skip building a
    // record when nobody listens.
    bool tracingRequested() const;

    std::uint64_t getWritten() const { return written.load(std::memory_order_relaxed); }
    std::uint64_t getDropped() const { return dropped.load(std::memory_order_relaxed); }
    std::uint64_t getFileDropped() const { return fileDropped.load(std::memory_order_relaxed); }
    std::uint64_t getSequence() const { return sequence.load(std::memory_order_relaxed); }
    bool hasSegment() const { return sharedHeader() != nullptr; }
    bool hasLock() const { return memory.hasLock(); }
    std::string const& lockProblem() const { return memory.lockProblem(); }
    // Not thread-safe: for set-up before the first write only.
    SharedFile& getFile() { return file; }
    // A forked child is a new process: its sequence starts again.
    void restartSequence() { sequence.store(0, std::memory_order_relaxed); }

    // Slots a text of this many characters occupies.
    static std::uint32_t slotsFor(std::size_t textLength);
    static constexpr std::size_t s_MaxTextLength = s_MaxSlotsPerRecord * s_SlotTextSize - 1;

    // How long a producer polls the segment lock before it sleeps on it.
    static constexpr long s_SpinNanoseconds = 5000;
    // How long a producer waits for the log file's lock before it drops the line, and how long it
    // then only tries without waiting, so that a lock that stays taken costs one wait per second.
    static constexpr long s_FileLockWaitMilliseconds = 100;
    static constexpr long s_FileLockRetryMilliseconds = 1000;

private:
    bool passesFilter(SharedMemoryHeader const* h, FullEntry const& entry, std::size_t textLength) const;
    void writeSlots(std::uint32_t writeIndex, FullEntry const& entry, std::size_t textLength, std::uint32_t slots,
                    std::uint64_t reserved);
    void writeToFile(char const* name, FullEntry const& entry);

    SharedFile file;
    std::mutex fileMutex; // guards `file`: its stream, its name and its counters
    std::atomic<std::int64_t> fileWaitAfter {0}; // steady-clock ns before which the file lock is only tried
    std::atomic<std::uint64_t> sequence {0};
    std::atomic<std::uint64_t> written {0};
    std::atomic<std::uint64_t> dropped {0};
    std::atomic<std::uint64_t> fileDropped {0};
};

} // namespace ZelTracer
