#pragma once

#include "SharedMemory.h"
#include "TraceRecord.h"

#include <cstdint>
#include <string>

namespace ZelTracer {

// What both ends of the trace channel share: the attached segment (zeroed by whoever creates it),
// the header, the record filter in force and the number of free slots.
class TraceChannel
{
public:
    // `bounds` limit every wait for the segment lock: the tool's GUI thread and a traced program must
    // never hang behind another process that keeps it.
    TraceChannel(int const& key, unsigned long size, std::string const& semaphoreName = s_SharedMemoryMutexName,
                 LockBounds const& bounds = s_ToolLockBounds);
    virtual ~TraceChannel();
    TraceChannel(TraceChannel const&) = delete;
    TraceChannel& operator=(TraceChannel const&) = delete;

    bool initSharedMemroy();
    // A missing segment or lock reads as all zero: tracing off, no filters.
    virtual void readSharedMemoryHeader(SharedMemoryHeader& h);
    unsigned long freeEntries();
    void getFilter(std::string& message, unsigned int& pid);

    // Anyone may remove the segment (ipcrm) or replace it under the same key while this channel
    // runs; producers then write into a new one that nobody reads. This notices it (the attached
    // segment marked for removal, gone, or a different segment under the key) and attaches the
    // current one, creating and zeroing it when nobody has yet, and carries the record filters over.
    // Returns true when it re-attached.
    // The new segment takes the old one's address, so other threads may go on using the channel.
    bool reattachIfReplaced();
    // The segment lock's file was removed or replaced: see SharedMemory::reopenLockIfReplaced().
    bool reopenLockIfReplaced() { return memory.reopenLockIfReplaced(); }

    // False when the segment's semaphore is missing or is no valid semaphore: nothing is locked,
    // read or written then. lockProblem() says why, for the user.
    bool hasLock() const { return memory.hasLock(); }
    std::string const& lockProblem() const { return memory.lockProblem(); }
    // Why no segment, or not the current one, is attached (another one of the wrong size or closed to
    // this user holds the key), for the user; empty while the current one is.
    std::string segmentProblem() const;

protected:
    bool lockSegment() { return memory.lockWithin(lockBounds); }
    SharedMemoryHeader* sharedHeader() const { return static_cast<SharedMemoryHeader*>(memory.getAddress()); }
    char* sharedSlots() const { return static_cast<char*>(memory.getAddress()) + s_HeaderSize; }

    SharedMemory memory;
    std::uint32_t slotCount;
    LockBounds lockBounds;

private:
    int currentSegmentId() const;
    bool isCurrent() const;
    void carryRecordFilters(SharedMemoryHeader const& old);

    int segmentKey;
    unsigned long segmentSize;
    int segmentId = -1; // the kernel's id of the attached segment, -1 when none
};

} // namespace ZelTracer
