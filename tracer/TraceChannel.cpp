#include "TraceChannel.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace ZelTracer {

TraceChannel::TraceChannel(int const& key, unsigned long size, std::string const& semaphoreName,
                           LockBounds const& bounds)
    : memory(key, semaphoreName)
    , slotCount(slotCountFor(size))
    , lockBounds(bounds)
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

// The attached segment is still the one under the key, and not marked for removal.
bool TraceChannel::isCurrent() const
{
    shmid_ds state {};
    return memory.getAddress() && segmentId != -1 && shmctl(segmentId, IPC_STAT, &state) == 0
        && !(state.shm_perm.mode & SHM_DEST) && currentSegmentId() == segmentId;
}

bool TraceChannel::reattachIfReplaced()
{
    if (isCurrent())
        return false;
    // Nothing attached yet (the key was taken by a segment of the wrong size, say) is retried too. The
    // old segment stays where it is until a new one takes its place, and that happens under the lock:
    // no thread of this process is then writing slots, which would end up half in each.
    SharedMemoryHeader old {};
    void* const address = memory.getAddress();
    const bool locked = address && memory.hasLock() && lockSegment();
    if (address && memory.hasLock() && !locked)
        return false; // the next look tries again
    if (address)
        std::memcpy(&old, address, sizeof old);
    segmentId = -1;
    const bool attached = memory.create(segmentSize, SharedMemory::ReadWrite);
    if (locked)
        memory.unlock();
    if (!attached)
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
    if ((old.pidFilter == 0 && old.messageFilter[0] == 0) || !lockSegment())
        return;
    SharedMemoryHeader* h = sharedHeader();
    if (h->pidFilter == 0 && h->messageFilter[0] == 0) {
        h->pidFilter = old.pidFilter;
        std::memcpy(h->messageFilter, old.messageFilter, sizeof h->messageFilter);
    }
    memory.unlock();
}

TraceChannel::~TraceChannel() = default;

// A segment the kernel has just created is zero already; when the lock cannot be had within the
// bounds, it is left as the kernel made it rather than waited for.
bool TraceChannel::initSharedMemroy()
{
    if (!memory.getAddress() || !lockSegment())
        return false;
    std::memset(memory.getAddress(), 0, memory.getSize());
    memory.unlock();
    return true;
}

// A lock that another process keeps beyond the bounds does not make the header read as zero (as a
// missing segment or lock does): tracing would look switched off, and the tool would stop itself. The
// header is then read without the lock; its fields are words that writers rewrite whole.
void TraceChannel::readSharedMemoryHeader(SharedMemoryHeader& h)
{
    void* const address = memory.getAddress();
    if (!address || !memory.hasLock()) {
        std::memset(&h, 0, sizeof h);
        return;
    }
    const bool locked = lockSegment();
    std::memcpy(&h, address, sizeof h);
    if (locked)
        memory.unlock();
}

// Empty too while nothing stands in the way: a removed segment not yet followed, or one that can be.
std::string TraceChannel::segmentProblem() const
{
    if (isCurrent())
        return std::string();
    const std::string name = "The trace segment " + std::to_string(segmentKey);
    const std::string removal
        = ": no calls can be traced until it is removed (ipcrm -M " + std::to_string(segmentKey) + ").";
    const int id = shmget(segmentKey, 0, 0);
    shmid_ds state {};
    if (id == -1 && errno == ENOENT)
        return std::string();
    if ((id == -1 || shmctl(id, IPC_STAT, &state) != 0) && errno == EACCES)
        return name + " belongs to another user and is closed to this one" + removal;
    if (id == -1)
        return name + " cannot be used (" + std::strerror(errno) + ").";
    if (state.shm_segsz != segmentSize)
        return name + " has " + std::to_string(state.shm_segsz) + " bytes instead of " + std::to_string(segmentSize)
            + removal;
    if (shmget(segmentKey, 0, 0600) != -1)
        return std::string();
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(state.shm_perm.mode & 0777));
    return name + " cannot be attached (mode " + mode + ", owner " + std::to_string(state.shm_perm.uid) + ")" + removal;
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
