#include "RingBufferSharedMem.h"

#include <cstring>
#include <new>

namespace ZelTracer {

RingBufferSharedMem<FullEntry>::RingBufferSharedMem(QString const& key, int size)
    : memory(key)
{
    const bool attached = memory.attach(QSharedMemory::ReadWrite);
    if (!attached && (!memory.create(size, QSharedMemory::ReadWrite) || !memory.data()))
        throw std::bad_alloc();
    // The capacity comes from the block's real size, never from anything written into it.
    capacity = memory.size() > s_HeaderSize
        ? static_cast<std::uint32_t>((memory.size() - s_HeaderSize) / sizeof(FullEntry))
        : 0;
    if (memory.size() < s_HeaderSize || !memory.lock())
        return;
    if (attached) {
        readHeader();
        ++attachCount;
    }
    writeHeader();
    memory.unlock();
}

RingBufferSharedMem<FullEntry>::~RingBufferSharedMem()
{
    if (memory.isAttached() && memory.lock()) {
        readHeader();
        --attachCount;
        writeHeader();
        memory.unlock();
        memory.detach();
    }
}

FullEntry* RingBufferSharedMem<FullEntry>::slotArray() const
{
    return reinterpret_cast<FullEntry*>(static_cast<char*>(const_cast<void*>(memory.constData())) + s_HeaderSize);
}

void RingBufferSharedMem<FullEntry>::readHeader()
{
    if (memory.size() < s_HeaderSize)
        return;
    BlockHeader const* h = header();
    attachCount = h->attachCount;
    lastUpdate = h->lastUpdate;
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
    readHeader();
    if (capacity == 0)
        return;
    std::memcpy(&slotArray()[end], &value, sizeof value);
    advanceEnd();
    writeHeader();
}

void RingBufferSharedMem<FullEntry>::pop_back()
{
    readHeader();
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
