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

protected:
    SharedMemoryHeader* sharedHeader() const { return static_cast<SharedMemoryHeader*>(memory.getAddress()); }
    char* sharedSlots() const { return static_cast<char*>(memory.getAddress()) + s_HeaderSize; }

    SharedMemory memory;
    std::uint32_t slotCount;
};

} // namespace ZelTracer
