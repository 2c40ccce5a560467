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
    TraceChannel(int const& key, unsigned long size, std::string const& semaphoreName = s_SharedMemoryMutexName);
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
    // Call it from the thread that uses the channel: the old address is gone afterwards.
    bool reattachIfReplaced();

    // False when the segment's semaphore is missing or is no valid semaphore: nothing is locked,
    // read or written then. lockProblem() says why, for the user.
    bool hasLock() const { return memory.hasLock(); }
    std::string const& lockProblem() const { return memory.lockProblem(); }

protected:
    SharedMemoryHeader* sharedHeader() const { return static_cast<SharedMemoryHeader*>(memory.getAddress()); }
    char* sharedSlots() const { return static_cast<char*>(memory.getAddress()) + s_HeaderSize; }

    SharedMemory memory;
    std::uint32_t slotCount;

private:
    int currentSegmentId() const;
    void carryRecordFilters(SharedMemoryHeader const& old);

    int segmentKey;
    unsigned long segmentSize;
    int segmentId = -1; // the kernel's id of the attached segment, -1 when none
};

} // namespace ZelTracer
