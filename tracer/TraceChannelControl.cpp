#include "TraceChannelControl.h"

#include "ZelVersion.h"

#include "SharedFile.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace ZelTracer {

std::mutex TraceChannelControl::s_MemoryCopyMutex;

// ---- BufferEntryIterator ----

BufferEntryIterator::BufferEntryIterator(std::uint64_t begin, std::uint64_t end, std::uint64_t count,
                                         std::uint64_t current, TraceChannelControl const* control)
    : begin(begin)
    , end(end)
    , count(count)
    , current(current)
    , control(control)
{
    processCurrent();
}

BufferEntryIterator::BufferEntryIterator(BufferEntryIterator const& other) = default;
BufferEntryIterator& BufferEntryIterator::operator=(BufferEntryIterator const& other) = default;
BufferEntryIterator::~BufferEntryIterator() = default;

BufferEntryIterator& BufferEntryIterator::operator++()
{
    incCurrent();
    processCurrent();
    return *this;
}

void BufferEntryIterator::incIndex(std::uint64_t& i) const
{
    if (i != end)
        i = (i + 1) % count;
}

void BufferEntryIterator::processCurrent()
{
    valid = false;
    if (current == end || count == 0)
        return;

    // Every record is copied into our own full-size entry, also one that fits in one slot: a full
    // record read straight out of a 288-byte slot would run past the slot, and for the last slots
    // past the end of the snapshot.
    SlotEntry const* slot = control->copySlot(current);
    std::memcpy(&entry, slot, s_EntryHeadSize);
    entry.continued = 0;
    std::size_t k = 0;
    for (;;) {
        std::strncpy(entry.text + k, slot->text, s_SlotTextSize);
        if (slot->continued == 0 || k >= (s_MaxSlotsPerRecord - 1) * s_SlotTextSize)
            break;
        k += s_SlotTextSize;
        incCurrent();
        // A chain that runs into the write index was never completed: the slot there is stale, and
        // the walk ends here without a record.
        if (current == end)
            return;
        slot = control->copySlot(current);
    }
    // An 80-character last chunk carries no terminator of its own; what follows is cleared so that a
    // record never carries bytes of the one walked before it.
    std::memset(entry.text + k + s_SlotTextSize, 0, sizeof entry.text - k - s_SlotTextSize);
    valid = true;
}

// ---- TraceChannelControl ----

TraceChannelControl::TraceChannelControl(int const& key, unsigned long size, std::string const& semaphoreName)
    : TraceChannel(key, size, semaphoreName)
    , slotCount(slotCountFor(size))
    , copySize(size)
{
    {
        std::lock_guard<std::mutex> guard(s_MemoryCopyMutex);
        copy.reset(new char[size]());
    }
    tracingActive();
}

TraceChannelControl::~TraceChannelControl()
{
    std::lock_guard<std::mutex> guard(s_MemoryCopyMutex);
    copy.reset();
}

void TraceChannelControl::readSharedMemoryHeader(SharedMemoryHeader& h)
{
    TraceChannel::readSharedMemoryHeader(h);
    tracingActiveCache = h.tracingActive != 0;
    tracingToFileCache = h.tracingToFile != 0;
    fileName = hasTerminator(h.fileName) ? std::string(h.fileName) : std::string();
}

bool TraceChannelControl::tracingActive()
{
    SharedMemoryHeader h;
    readSharedMemoryHeader(h);
    return tracingActiveCache;
}

// Header changes rewrite the whole header from a copy taken under the same lock, so concurrent
// updaters never interleave partial fields.
template<class Change> bool TraceChannelControl::changeHeader(Change change)
{
    if (!memory.getAddress() || !lockSegment())
        return false;
    SharedMemoryHeader h;
    std::memcpy(&h, memory.getAddress(), sizeof h);
    change(h);
    std::memcpy(memory.getAddress(), &h, sizeof h);
    memory.unlock();
    return true;
}

void TraceChannelControl::setTracingActive(bool on)
{
    tracingActive();
    if (tracingActiveCache == on)
        return;
    tracingActiveCache = on;
    changeHeader([on](SharedMemoryHeader& h) { h.tracingActive = on ? 1 : 0; });
}

void TraceChannelControl::setPidFilter(unsigned int pid)
{
    changeHeader([pid](SharedMemoryHeader& h) { h.pidFilter = pid; });
}

void TraceChannelControl::setMessageFilter(std::string filter)
{
    if (filter.size() >= sizeof(SharedMemoryHeader::messageFilter))
        return;
    changeHeader([&filter](SharedMemoryHeader& h) { std::memcpy(h.messageFilter, filter.c_str(), filter.size() + 1); });
}

bool TraceChannelControl::settracingToFileActive(bool active, std::string const& filename)
{
    if (filename.size() >= sizeof(SharedMemoryHeader::fileName))
        return false;
    const bool effective = active && !filename.empty();
    if (effective == tracingToFileCache && filename == fileName)
        return true;
    tracingToFileCache = effective;
    fileName = filename;
    if (effective)
        writeFileHeader();
    return changeHeader([effective, &filename](SharedMemoryHeader& h) {
        h.tracingToFile = effective ? 1 : 0;
        std::memcpy(h.fileName, filename.c_str(), filename.size() + 1);
    });
}

bool TraceChannelControl::settracingToFileActive(bool active)
{
    // Copied first: the cached name is reassigned inside.
    const std::string name = fileName;
    return settracingToFileActive(active, name);
}

// Opened as the producers open it (a regular file, no symbolic link on the way), but created when
// missing: the producers append only to a log the tool started.
void TraceChannelControl::writeFileHeader() const
{
    static const std::string lineEnd = "\n";
    const int fd = openLogFile(fileName, true);
    if (fd < 0)
        return;
    const std::string block = s_LogHeaderLine + std::string("# VISA version: ") + s_VersionString + lineEnd
        + "# Bitness:      " + std::to_string(64) + lineEnd + "# OS:           Linux" + lineEnd;
    [[maybe_unused]] const ssize_t written = ::write(fd, block.data(), block.size());
    close(fd);
}

bool TraceChannelControl::clear()
{
    if (!lockSegment())
        return false;
    clearShrMemoryWithoutLocking();
    memory.unlock();
    std::lock_guard<std::mutex> guard(s_MemoryCopyMutex);
    if (copy)
        std::memset(copy.get(), 0, std::min<unsigned long>(copySize, s_HeaderSize));
    return true;
}

void TraceChannelControl::clearShrMemoryWithoutLocking()
{
    if (SharedMemoryHeader* h = sharedHeader()) {
        h->readIndex = 0;
        h->writeIndex = 0;
    }
}

void TraceChannelControl::copySharedMemory(bool clearShared)
{
    std::lock_guard<std::mutex> guard(s_MemoryCopyMutex);
    if (copy && memory.getAddress() && lockSegment()) {
        copyUsedPart();
        // The ring is reset while the lock is still held: the hold is a header and the used slots,
        // so the reset adds nothing to it, and a record a producer writes right after the copy is
        // no longer lost between the copy and the reset (hundreds a minute under load).
        if (clearShared)
            clearShrMemoryWithoutLocking();
        memory.unlock();
        return;
    }
    // A lock that another process keeps beyond one tick skips this snapshot. The ring is not emptied
    // then: nothing was copied, and every record in it would be lost. The copy still holds the last
    // snapshot, whose records were taken already: it reads as empty instead.
    if (copy && copySize >= s_HeaderSize) {
        SharedMemoryHeader* h = reinterpret_cast<SharedMemoryHeader*>(copy.get());
        h->readIndex = h->writeIndex = 0;
    }
}

// Nothing reads the free slots of a snapshot, so under the lock only the header and the used slots
// are copied (two pieces when the used range wraps): an empty ring costs a header, a full one what
// it holds. Indices outside the ring copy nothing more; the walk treats such a copy as empty.
void TraceChannelControl::copyUsedPart()
{
    char* target = copy.get();
    char const* source = static_cast<char const*>(memory.getAddress());
    const std::uint64_t limit = std::min<std::uint64_t>(copySize, memory.getSize());
    if (limit < s_HeaderSize) {
        std::memcpy(target, source, limit);
        return;
    }
    std::memcpy(target, source, s_HeaderSize);
    SharedMemoryHeader const* h = reinterpret_cast<SharedMemoryHeader const*>(target);
    const std::uint64_t read = h->readIndex;
    const std::uint64_t write = h->writeIndex;
    const std::uint64_t slotsInLimit = (limit - s_HeaderSize) / s_SlotSize;
    if (read >= slotCount || write >= slotCount || read == write)
        return;
    auto copySlots = [&](std::uint64_t from, std::uint64_t to) {
        to = std::min(to, slotsInLimit);
        if (from < to) {
            const std::uint64_t offset = s_HeaderSize + from * s_SlotSize;
            std::memcpy(target + offset, source + offset, (to - from) * s_SlotSize);
        }
    };
    if (read < write) {
        copySlots(read, write);
    } else {
        copySlots(read, slotCount);
        copySlots(0, write);
    }
}

TraceChannelControl::Indices TraceChannelControl::copyIndices() const
{
    if (!copy || copySize < s_HeaderSize || slotCount == 0)
        return {};
    SharedMemoryHeader const* h = reinterpret_cast<SharedMemoryHeader const*>(copy.get());
    // Indices outside the ring can only come from a broken or hostile writer; such a ring is
    // treated as empty instead of being walked (which could go round it forever or out of bounds).
    if (h->readIndex >= slotCount || h->writeIndex >= slotCount)
        return {};
    return {h->readIndex, h->writeIndex};
}

SlotEntry const* TraceChannelControl::copySlot(std::uint64_t i) const
{
    return reinterpret_cast<SlotEntry const*>(copy.get() + s_HeaderSize + i * s_SlotSize);
}

unsigned long TraceChannelControl::countCopy() const
{
    std::lock_guard<std::mutex> guard(s_MemoryCopyMutex);
    const Indices ix = copyIndices();
    return usedSlots(ix.read, ix.write, slotCount);
}

SlotEntry const* TraceChannelControl::getLine(unsigned long n) const
{
    std::lock_guard<std::mutex> guard(s_MemoryCopyMutex);
    if (!copy || slotCount == 0 || copySize < s_HeaderSize)
        return nullptr;
    return copySlot((copyIndices().read + n) % slotCount);
}

BufferEntryIterator TraceChannelControl::begin()
{
    std::lock_guard<std::mutex> guard(s_MemoryCopyMutex);
    const Indices ix = copyIndices();
    return BufferEntryIterator(ix.read, ix.write, slotCount, ix.read, this);
}

BufferEntryIterator TraceChannelControl::end()
{
    std::lock_guard<std::mutex> guard(s_MemoryCopyMutex);
    const Indices ix = copyIndices();
    return BufferEntryIterator(ix.read, ix.write, slotCount, ix.write, this);
}

BufferEntryIterator TraceChannelControl::find(unsigned long id, unsigned int pid, unsigned int kind,
                                              long const& timestamp)
{
    // A searched kind 2 is looked up as 1, so a slot of kind 2 is never found by its kind.
    const unsigned int wantedKind = kind == 2 ? 1 : kind;
    std::unique_lock<std::mutex> guard(s_MemoryCopyMutex);
    const Indices ix = copyIndices();
    for (std::uint64_t i = ix.read; i != ix.write; i = (i + 1) % slotCount) {
        SlotEntry const* slot = copySlot(i);
        if (slot->pid == pid && slot->id == id && slot->kind == wantedKind && slot->timestamp == timestamp) {
            guard.unlock();
            return BufferEntryIterator(ix.read, ix.write, slotCount, i, this);
        }
    }
    guard.unlock();
    return end();
}

} // namespace ZelTracer
