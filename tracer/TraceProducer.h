#pragma once

#include "SharedFile.h"
#include "TraceChannel.h"
#include "TraceRecord.h"

#include <atomic>
#include <cstdint>
#include <memory>
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
// - no call waits longer than a few ms for a lock (s_ProducerLockBounds): a record that cannot get
//   the segment lock in time is dropped and counted, and a lock whose holder died is broken once
//   acquisitions have failed for as long as the self-breaking lock waits;
// - the log file gets every record that passes the filters, also when the ring had no room. Its
//   line is written after the segment lock is released, within the same bounds for the file lock;
//   a line that cannot be written is dropped and counted. Only a log the tool started is appended
//   to (SharedFile::openFile), and one replaced on disk is opened again;
// - a full disk stops the log writer for good, as it must; five seconds later the producer opens a
//   new writer, which looks at the free space again;
// - a segment or a lock file that someone removed is noticed within s_CheckNanoseconds, and the
//   producer attaches or opens the current one, so that its records reach the tool again.
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
    ~TraceProducer() override;

    Outcome write(FullEntry const& entry);

    // True while the header asks for records; one unlocked read, for callers that skip building a
    // record when nobody listens (and now and then the look for a replaced segment or lock).
    bool tracingRequested();

    std::uint64_t getWritten() const { return written.load(std::memory_order_relaxed); }
    std::uint64_t getDropped() const { return dropped.load(std::memory_order_relaxed); }
    std::uint64_t getFileDropped() const { return fileDropped.load(std::memory_order_relaxed); }
    std::uint64_t getSequence() const { return sequence.load(std::memory_order_relaxed); }
    bool hasSegment() const { return sharedHeader() != nullptr; }
    bool hasLock() const { return memory.hasLock(); }
    std::string const& lockProblem() const { return memory.lockProblem(); }
    // Not thread-safe: for set-up before the first write only.
    SharedFile& getFile() { return *file; }
    // Kept for every log writer this producer opens. Not thread-safe, as getFile().
    void setFreeSpaceQuery(SharedFile::FreeSpaceQuery query);
    // Tests move time on instead of waiting for it; monotonic nanoseconds.
    using Clock = std::int64_t (*)();
    void setClock(Clock now);
    // A forked child is a new process: its sequence starts again.
    void restartSequence() { sequence.store(0, std::memory_order_relaxed); }

    // Slots a text of this many characters occupies.
    static std::uint32_t slotsFor(std::size_t textLength);
    static constexpr std::size_t s_MaxTextLength = s_MaxSlotsPerRecord * s_SlotTextSize - 1;

    static constexpr std::int64_t s_CheckNanoseconds = 200000000;
    static constexpr std::int64_t s_DiskRetryNanoseconds = 5000000000;

private:
    bool passesFilter(SharedMemoryHeader const* h, FullEntry const& entry, std::size_t textLength) const;
    void writeSlots(std::uint32_t writeIndex, FullEntry const& entry, std::size_t textLength, std::uint32_t slots,
                    std::uint64_t reserved);
    void writeToFile(char const* name, FullEntry const& entry);
    void checkFile(char const* name, std::int64_t now);
    void followReplacements();

    std::string fileSemaphoreName;
    std::unique_ptr<SharedFile> file;
    std::mutex fileMutex; // guards `file`, its name and its counters, and the two fields below
    std::int64_t fileCheckAfter = 0;
    std::int64_t diskFullSeen = 0; // when the writer stopped for a full disk, 0 if it did not
    SharedFile::FreeSpaceQuery freeSpaceQuery;
    Clock timeSource;
    std::mutex checkMutex; // one thread at a time looks for replacements
    std::atomic<std::int64_t> nextCheck {0};
    std::atomic<std::uint64_t> sequence {0};
    std::atomic<std::uint64_t> written {0};
    std::atomic<std::uint64_t> dropped {0};
    std::atomic<std::uint64_t> fileDropped {0};
};

} // namespace ZelTracer
