#include "TraceChannel.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstring>

namespace ZelTracer {

TraceChannel::TraceChannel(int const& key, unsigned long size, std::string const& semaphoreName)
    : memory(key, semaphoreName)
    , slotCount(slotCountFor(size))
    , segmentKey(key)
    , segmentSize(size)
{
    if (memory.create(size, SharedMemory::ReadWrite)) {
        segmentId = currentSegmentId();
        if (!memory.hasExisted())
            initSharedMemroy();
    }
}

int TraceChannel::currentSegmentId() const
{
    return shmget(segmentKey, 0, 0);
}

bool TraceChannel::reattachIfReplaced()
{
    if (memory.getAddress() && segmentId != -1) {
        shmid_ds state {};
        const bool intact = shmctl(segmentId, IPC_STAT, &state) == 0 && !(state.shm_perm.mode & SHM_DEST)
            && currentSegmentId() == segmentId;
        if (intact)
            return false;
    }
    // Nothing attached yet (the key was taken by a segment of the wrong size, say) is retried too.
    SharedMemoryHeader old;
    TraceChannel::readSharedMemoryHeader(old); // zeros when nothing was attached
    memory.detach();
    segmentId = -1;
    if (!memory.create(segmentSize, SharedMemory::ReadWrite))
        return false;
    segmentId = currentSegmentId();
    if (!memory.hasExisted())
        initSharedMemroy();
    carryRecordFilters(old);
    return true;
}

// The record filters the user set keep holding for the producers, which read them from the new
// segment; a new segment that already has filters of its own (another copy of the tool set them)
// keeps those.
void TraceChannel::carryRecordFilters(SharedMemoryHeader const& old)
{
    if ((old.pidFilter == 0 && old.messageFilter[0] == 0) || !memory.lock())
        return;
    SharedMemoryHeader* h = sharedHeader();
    if (h->pidFilter == 0 && h->messageFilter[0] == 0) {
        h->pidFilter = old.pidFilter;
        std::memcpy(h->messageFilter, old.messageFilter, sizeof h->messageFilter);
    }
    memory.unlock();
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
