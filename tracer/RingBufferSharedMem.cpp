#include "RingBufferSharedMem.h"

#include <QFile>

#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <new>

namespace ZelTracer {

namespace {

int shmIdOf(QSharedMemory const& memory)
{
    const key_t key = ftok(QFile::encodeName(memory.nativeKey()).constData(), 'Q');
    return key == -1 ? -1 : shmget(key, 0, 0);
}

// Qt's own name for the block's System V key file.
QString nativeKeyOf(QString const& key)
{
    return QSharedMemory(key).nativeKey();
}

} // namespace

RingBufferSharedMem<FullEntry>::RingBufferSharedMem(QString const& key, int size)
    : semaphore(key)
{
    memory.setNativeKey(nativeKeyOf(key));
    const bool attached = memory.attach(QSharedMemory::ReadWrite);
    if (!attached && (!memory.create(size, QSharedMemory::ReadWrite) || !memory.data()))
        throw std::bad_alloc();
    shmId = shmIdOf(memory);
    // The capacity comes from the block's real size, never from anything written into it, and
    // never from more of the block than this version would create: the local rings are sized
    // after it.
    const qint64 usable = std::min<qint64>(memory.size(), s_MaxBlockSize);
    capacity = usable > s_HeaderSize ? static_cast<std::uint32_t>((usable - s_HeaderSize) / sizeof(FullEntry)) : 0;
    if (!attached)
        openToAllUsers();
    // Without the lock within one tick the count stays as it is: the kernel's count repairs it.
    if (memory.size() < s_HeaderSize || !lockWithin())
        return;
    if (attached) {
        loadHeader(false);
        // The kernel's count includes this copy already; the header's is only the fallback.
        const std::uint32_t processes = attachedProcesses();
        attachCount = processes != 0 ? processes : attachCount + 1;
    }
    writeHeader();
    unlock();
}

RingBufferSharedMem<FullEntry>::~RingBufferSharedMem()
{
    if (memory.isAttached()) {
        if (lockWithin()) {
            readHeader();
            if (attachCount > 0)
                --attachCount;
            writeHeader();
            unlock();
        }
        memory.detach();
    }
    // Qt removes the block when the last copy detaches; its lock goes with it, as it did when Qt kept
    // the lock, so that nothing stays behind.
    shmid_ds state {};
    if (shmId != -1 && shmctl(shmId, IPC_STAT, &state) != 0)
        semaphore.remove();
}

std::uint32_t RingBufferSharedMem<FullEntry>::attachedProcesses(QString const& key)
{
    QSharedMemory probe(key); // names the block without attaching it
    shmid_ds state {};
    const int id = shmIdOf(probe);
    if (id == -1 || shmctl(id, IPC_STAT, &state) != 0)
        return 0;
    return static_cast<std::uint32_t>(std::min<shmatt_t>(state.shm_nattch, UINT32_MAX));
}

std::uint32_t RingBufferSharedMem<FullEntry>::attachedProcesses() const
{
    shmid_ds state {};
    if (shmId == -1 || shmctl(shmId, IPC_STAT, &state) != 0)
        return 0;
    return static_cast<std::uint32_t>(std::min<shmatt_t>(state.shm_nattch, UINT32_MAX));
}

// Qt creates the block and its semaphore for the owner only; the trace segment is open to every
// local user, and so must be the ring, or a second user's tool cannot join (and cannot start).
void RingBufferSharedMem<FullEntry>::openToAllUsers() const
{
    shmid_ds state {};
    if (shmId != -1 && shmctl(shmId, IPC_STAT, &state) == 0) {
        state.shm_perm.mode = (state.shm_perm.mode & ~0777u) | 0666;
        shmctl(shmId, IPC_SET, &state);
    }
    semaphore.openToAllUsers();
}

FullEntry* RingBufferSharedMem<FullEntry>::slotArray() const
{
    return reinterpret_cast<FullEntry*>(static_cast<char*>(const_cast<void*>(memory.constData())) + s_HeaderSize);
}

void RingBufferSharedMem<FullEntry>::readHeader()
{
    loadHeader(true);
}

// The count is repaired whenever a reader looks at the header, but not for each record pushed:
// that asks the kernel once per record for nothing, since a push writes the count back unchanged.
void RingBufferSharedMem<FullEntry>::loadHeader(bool repairCount)
{
    if (memory.size() < s_HeaderSize)
        return;
    BlockHeader const* h = header();
    attachCount = h->attachCount;
    // A copy of the tool killed outright never counted itself out, and a broken one may write any
    // count. The kernel knows how many processes are attached, and every copy of the tool is
    // attached exactly once, so its count is taken: the last live copy then knows it is the last.
    if (const std::uint32_t processes = repairCount ? attachedProcesses() : 0; processes != 0)
        attachCount = processes;
    // Anything before the epoch is nonsense written by a broken peer; it reads as long ago, which
    // keeps the age arithmetic of the readers free of overflow.
    lastUpdate = std::max<std::int64_t>(h->lastUpdate, 0);
    begin = h->begin;
    end = h->end;
    // Another, possibly broken, copy of the tool may have written indices outside the ring; such a
    // ring is treated as empty rather than walked out of bounds.
    if (begin >= capacity || end >= capacity)
        begin = end = 0;
}

void RingBufferSharedMem<FullEntry>::writeHeader() const
{
    if (memory.size() < s_HeaderSize)
        return;
    BlockHeader* h = header();
    h->attachCount = attachCount;
    h->begin = begin;
    h->end = end;
    h->lastUpdate = lastUpdate;
}

void RingBufferSharedMem<FullEntry>::clear()
{
    RingBuffer::clear();
    writeHeader();
}

void RingBufferSharedMem<FullEntry>::push_back(FullEntry const& value)
{
    loadHeader(false);
    if (capacity == 0)
        return;
    std::memcpy(&slotArray()[end], &value, sizeof value);
    advanceEnd();
    writeHeader();
}

void RingBufferSharedMem<FullEntry>::pop_back()
{
    loadHeader(false);
    if (capacity == 0)
        return;
    RingBuffer::pop_back();
    writeHeader();
}

FullEntry& RingBufferSharedMem<FullEntry>::operator()(unsigned int i)
{
    return capacity == 0 ? spare : slotArray()[i % capacity];
}

FullEntry const& RingBufferSharedMem<FullEntry>::operator()(unsigned int i) const
{
    return capacity == 0 ? spare : slotArray()[i % capacity];
}

} // namespace ZelTracer
