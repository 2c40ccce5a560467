#include "TraceProducer.h"

#include "SequenceMark.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstring>
#include <thread>

namespace ZelTracer {

namespace {

// Header fields read without the lock may change under the reader (the tool rewrites the header at
// any time); each is read once, as a whole word, and at worst one record meets the old filter.
template<class T> T relaxedLoad(T const* field)
{
    return __atomic_load_n(field, __ATOMIC_RELAXED);
}

// Copies a NUL-terminated text field that another process may rewrite meanwhile; the copy is always
// terminated.
template<std::size_t N> std::size_t copyField(char const (&field)[N], char (&copy)[N])
{
    std::size_t n = 0;
    for (; n + 1 < N; ++n) {
        copy[n] = relaxedLoad(&field[n]);
        if (copy[n] == '\0')
            return n;
    }
    copy[n] = '\0';
    return n;
}

bool containsIgnoringCase(char const* text, std::size_t textLength, char const* pattern, std::size_t patternLength)
{
    if (patternLength > textLength)
        return false;
    auto equal = [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
    };
    return std::search(text, text + textLength, pattern, pattern + patternLength, equal) != text + textLength;
}

// Read on every call, also with tracing off: the coarse clock costs a few nanoseconds, and its
// resolution of a few milliseconds is plenty for a look every 200 ms.
std::int64_t coarseMonotonicNanoseconds()
{
    timespec now {};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

// Another thread of this process may be writing its line, or waiting for the file lock itself, for up
// to the same bound. Polled rather than std::timed_mutex: its timed lock is invisible to
// ThreadSanitizer, which then reports every line as a race.
bool lockWithin(std::unique_lock<std::mutex>& guard, std::int64_t nanoseconds)
{
    if (guard.try_lock())
        return true;
    const std::int64_t end = monotonicNanoseconds() + nanoseconds;
    while (monotonicNanoseconds() < end) {
        std::this_thread::sleep_for(std::chrono::microseconds(20));
        if (guard.try_lock())
            return true;
    }
    return false;
}

} // namespace

TraceProducer::TraceProducer(int const& key, unsigned long size, std::string const& semaphoreName,
                             std::string const& fileSemaphoreName)
    : TraceChannel(key, size, semaphoreName, s_ProducerLockBounds)
    , fileSemaphoreName(fileSemaphoreName)
    , file(std::make_unique<SharedFile>(fileSemaphoreName))
    , freeSpaceQuery(SharedFile::statvfsFreeMiB)
    , timeSource(coarseMonotonicNanoseconds)
{
    nextCheck.store(timeSource() + s_CheckNanoseconds, std::memory_order_relaxed);
}

TraceProducer::~TraceProducer() = default;

void TraceProducer::setClock(Clock now)
{
    timeSource = now;
    nextCheck.store(timeSource() + s_CheckNanoseconds, std::memory_order_relaxed);
}

void TraceProducer::setFreeSpaceQuery(SharedFile::FreeSpaceQuery query)
{
    freeSpaceQuery = std::move(query);
    file->setFreeSpaceQuery(freeSpaceQuery);
}

// One thread at a time, and none waits for it: the others go on with what they have. The segment
// takes the old one's place and a re-opened lock leaves the old one usable for those holding it, so
// nothing is pulled from under another thread.
void TraceProducer::followReplacements()
{
    std::unique_lock<std::mutex> guard(checkMutex, std::try_to_lock);
    if (!guard.owns_lock())
        return;
    const std::int64_t now = timeSource();
    if (now < nextCheck.load(std::memory_order_relaxed))
        return;
    nextCheck.store(now + s_CheckNanoseconds, std::memory_order_relaxed);
    reopenLockIfReplaced();
    reattachIfReplaced();
}

std::uint32_t TraceProducer::slotsFor(std::size_t textLength)
{
    return static_cast<std::uint32_t>(std::min(textLength, s_MaxTextLength) / s_SlotTextSize + 1);
}

bool TraceProducer::tracingRequested()
{
    if (timeSource() >= nextCheck.load(std::memory_order_relaxed))
        followReplacements();
    SharedMemoryHeader const* h = sharedHeader();
    return h && relaxedLoad(&h->tracingActive) != 0;
}

bool TraceProducer::passesFilter(SharedMemoryHeader const* h, FullEntry const& entry, std::size_t textLength) const
{
    const std::uint32_t pidFilter = relaxedLoad(&h->pidFilter);
    if (pidFilter != 0 && pidFilter != entry.pid)
        return false;
    if (relaxedLoad(&h->messageFilter[0]) == '\0')
        return true;
    char pattern[sizeof h->messageFilter];
    const std::size_t patternLength = copyField(h->messageFilter, pattern);
    return patternLength == 0 || containsIgnoringCase(entry.text, textLength, pattern, patternLength);
}

TraceProducer::Outcome TraceProducer::write(FullEntry const& entry)
{
    if (timeSource() >= nextCheck.load(std::memory_order_relaxed))
        followReplacements();
    SharedMemoryHeader* h = sharedHeader();
    if (!h || slotCount == 0 || !memory.hasLock())
        return Outcome::NoSegment;
    if (relaxedLoad(&h->tracingActive) == 0)
        return Outcome::Inactive;
    // Filtering takes microseconds for long texts; done inside the lock it made holders so slow
    // that waiters broke the lock while they were still writing.
    const std::size_t textLength = strnlen(entry.text, sizeof entry.text);
    if (!passesFilter(h, entry, textLength))
        return Outcome::Filtered;

    const std::uint32_t slots = slotsFor(textLength);
    char logName[sizeof h->fileName];
    logName[0] = '\0';
    sem_t* const held = memory.acquireWithin(s_ProducerLockBounds);
    if (!held) {
        // Dropped, but numbered, so that the tool counts it as lost. The log line is still written:
        // the name is taken from the header as a tool writes it, one word at a time.
        sequence.fetch_add(1, std::memory_order_relaxed);
        dropped.fetch_add(1, std::memory_order_relaxed);
        if (relaxedLoad(&h->tracingToFile) != 0)
            copyField(h->fileName, logName);
        if (logName[0] != '\0')
            writeToFile(logName, entry);
        return Outcome::Dropped;
    }
    const std::uint32_t readIndex = h->readIndex;
    const std::uint32_t writeIndex = h->writeIndex;
    const std::uint64_t number = sequence.fetch_add(1, std::memory_order_relaxed) + 1;
    // Indices outside the ring come from a broken writer; nothing is written until a tool resets them.
    const bool fits = readIndex < slotCount && writeIndex < slotCount
        && usedSlots(readIndex, writeIndex, slotCount) + slots < slotCount;
    if (fits) {
        writeSlots(writeIndex, entry, std::min(textLength, s_MaxTextLength), slots,
                   SequenceMark::mark(entry.pid, number));
        h->writeIndex = (writeIndex + slots) % slotCount;
    }
    if (h->tracingToFile != 0)
        copyField(h->fileName, logName);
    SharedMemory::release(held);

    (fits ? written : dropped).fetch_add(1, std::memory_order_relaxed);
    if (logName[0] != '\0')
        writeToFile(logName, entry);
    return fits ? Outcome::Written : Outcome::Dropped;
}

void TraceProducer::writeSlots(std::uint32_t writeIndex, FullEntry const& entry, std::size_t textLength,
                               std::uint32_t slots, std::uint64_t reserved)
{
    for (std::uint32_t j = 0; j < slots; ++j) {
        SlotEntry* slot = reinterpret_cast<SlotEntry*>(sharedSlots() + ((writeIndex + j) % slotCount) * s_SlotSize);
        std::memcpy(slot, &entry, offsetof(SlotEntry, continued));
        slot->reserved = reserved;
        slot->continued = j + 1 < slots ? 1 : 0;
        const std::size_t offset = j * s_SlotTextSize;
        const std::size_t chunk = std::min(s_SlotTextSize, textLength - offset);
        std::memcpy(slot->text, entry.text + offset, chunk);
        std::memset(slot->text + chunk, 0, s_SlotTextSize - chunk);
    }
}

void TraceProducer::writeToFile(char const* name, FullEntry const& entry)
{
    std::unique_lock<std::mutex> guard(fileMutex, std::defer_lock);
    bool done = lockWithin(guard, s_ProducerLockBounds.waitNanoseconds);
    if (done) {
        if (file->getFileName() != name)
            file->openFile(name);
        else
            checkFile(name, timeSource());
        done = file->writeWithin(entry, s_ProducerLockBounds);
        if (file->isDiskFull() && diskFullSeen == 0)
            diskFullSeen = timeSource();
    }
    if (!done)
        fileDropped.fetch_add(1, std::memory_order_relaxed);
}

// Every s_CheckNanoseconds: a log that could not be opened is tried again (the tool may have
// started it since), one replaced on disk (a new log of the same name) is opened again, and a writer
// stopped by a full disk is replaced by a new one after s_DiskRetryNanoseconds.
void TraceProducer::checkFile(char const* name, std::int64_t now)
{
    if (now < fileCheckAfter)
        return;
    fileCheckAfter = now + s_CheckNanoseconds;
    if (file->isDiskFull()) {
        if (now - diskFullSeen < s_DiskRetryNanoseconds)
            return;
        diskFullSeen = 0;
        file = std::make_unique<SharedFile>(fileSemaphoreName);
        file->setFreeSpaceQuery(freeSpaceQuery);
        file->openFile(name);
    } else if (!file->isOpen() || file->isReplaced()) {
        file->openFile(name);
    }
}

} // namespace ZelTracer
