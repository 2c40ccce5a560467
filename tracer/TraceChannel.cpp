#include "TraceChannel.h"

#include <cstring>

namespace ZelTracer {

TraceChannel::TraceChannel(int const& key, unsigned long size, std::string const& semaphoreName)
    : memory(key, semaphoreName)
    , slotCount(slotCountFor(size))
{
    if (memory.create(size, SharedMemory::ReadWrite) && !memory.hasExisted())
        initSharedMemroy();
}

TraceChannel::~TraceChannel() = default;

bool TraceChannel::initSharedMemroy()
{
    if (!memory.getAddress() || !memory.lock())
        return false;
    std::memset(memory.getAddress(), 0, memory.getSize());
    memory.unlock();
    return true;
}

void TraceChannel::readSharedMemoryHeader(SharedMemoryHeader& h)
{
    if (memory.getAddress() && memory.lock()) {
        std::memcpy(&h, memory.getAddress(), sizeof h);
        memory.unlock();
    } else {
        std::memset(&h, 0, sizeof h);
    }
}

unsigned long TraceChannel::freeEntries()
{
    SharedMemoryHeader h;
    readSharedMemoryHeader(h);
    // Indices beyond the ring (a broken writer) count as an empty ring rather than a negative room.
    if (h.readIndex >= slotCount || h.writeIndex >= slotCount)
        return slotCount;
    return slotCount - usedSlots(h.readIndex, h.writeIndex, slotCount);
}

void TraceChannel::getFilter(std::string& message, unsigned int& pid)
{
    SharedMemoryHeader h;
    readSharedMemoryHeader(h);
    message = hasTerminator(h.messageFilter) ? std::string(h.messageFilter) : std::string();
    pid = h.pidFilter;
}

} // namespace ZelTracer
