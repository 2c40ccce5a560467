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

std::int64_t steadyNanoseconds()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Another thread of this process may be writing its line, or waiting for the file lock itself, for up
// to the same bound. Polled rather than std::timed_mutex: its timed lock is invisible to
// ThreadSanitizer, which then reports every line as a race.
bool lockWithin(std::unique_lock<std::mutex>& guard, long milliseconds)
{
    if (guard.try_lock())
        return true;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::microseconds(20));
        if (guard.try_lock())
            return true;
    }
    return false;
}

} // namespace

TraceProducer::TraceProducer(int const& key, unsigned long size, std::string const& semaphoreName,
                             std::string const& fileSemaphoreName)
    : TraceChannel(key, size, semaphoreName)
    , file(fileSemaphoreName)
{ }

std::uint32_t TraceProducer::slotsFor(std::size_t textLength)
{
    return static_cast<std::uint32_t>(std::min(textLength, s_MaxTextLength) / s_SlotTextSize + 1);
}

bool TraceProducer::tracingRequested() const
{
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
    if (!memory.lock(s_SpinNanoseconds))
        return Outcome::NoSegment;
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
    memory.unlock();

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
    // After a wait that ran out, the lock is only tried for a while: a lock left taken by a writer
    // that died would otherwise cost every later call the whole wait.
    const bool waitAllowed = steadyNanoseconds() >= fileWaitAfter.load(std::memory_order_relaxed);
    const long wait = waitAllowed ? s_FileLockWaitMilliseconds : 0;
    std::unique_lock<std::mutex> guard(fileMutex, std::defer_lock);
    bool done = lockWithin(guard, wait);
    if (done) {
        if (file.getFileName() != name)
            file.openFile(name);
        done = file.tryWriteFor(entry, wait);
    }
    if (!done) {
        fileDropped.fetch_add(1, std::memory_order_relaxed);
        if (waitAllowed)
            fileWaitAfter.store(steadyNanoseconds() + s_FileLockRetryMilliseconds * 1000000L,
                                std::memory_order_relaxed);
    }
}

} // namespace ZelTracer
