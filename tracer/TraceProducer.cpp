#include "TraceProducer.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace ZelTracer {

namespace {

bool containsIgnoringCase(char const* text, std::size_t textLength, char const* pattern)
{
    const std::size_t patternLength = std::strlen(pattern);
    if (patternLength > textLength)
        return false;
    auto equal = [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
    };
    return std::search(text, text + textLength, pattern, pattern + patternLength, equal) != text + textLength
        || patternLength == 0;
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

bool TraceProducer::passesFilter(SharedMemoryHeader const& h, FullEntry const& entry, std::size_t textLength)
{
    if (h.pidFilter != 0 && h.pidFilter != entry.pid)
        return false;
    if (!hasTerminator(h.messageFilter) || h.messageFilter[0] == '\0')
        return true;
    return containsIgnoringCase(entry.text, textLength, h.messageFilter);
}

TraceProducer::Outcome TraceProducer::write(FullEntry const& entry)
{
    if (!memory.getAddress() || slotCount == 0 || !memory.lock())
        return Outcome::NoSegment;

    // One header read per call, inside the same hold that writes the slots.
    SharedMemoryHeader h;
    std::memcpy(&h, memory.getAddress(), sizeof h);
    if (h.tracingActive == 0) {
        memory.unlock();
        return Outcome::Inactive;
    }
    const std::size_t textLength = strnlen(entry.text, sizeof entry.text);
    if (!passesFilter(h, entry, textLength)) {
        memory.unlock();
        return Outcome::Filtered;
    }

    const std::uint32_t slots = slotsFor(textLength);
    // Indices outside the ring come from a broken writer; nothing is written until a tool resets them.
    const bool indicesValid = h.readIndex < slotCount && h.writeIndex < slotCount;
    const bool fits = indicesValid && usedSlots(h.readIndex, h.writeIndex, slotCount) + slots < slotCount;
    if (fits) {
        writeSlots(h.writeIndex, entry, std::min(textLength, s_MaxTextLength), slots);
        sharedHeader()->writeIndex = (h.writeIndex + slots) % slotCount;
    }
    memory.unlock();

    fits ? ++written : ++dropped;
    if (h.tracingToFile != 0)
        writeToFile(h, entry);
    return fits ? Outcome::Written : Outcome::Dropped;
}

void TraceProducer::writeSlots(std::uint32_t writeIndex, FullEntry const& entry, std::size_t textLength,
                               std::uint32_t slots)
{
    for (std::uint32_t j = 0; j < slots; ++j) {
        SlotEntry* slot = reinterpret_cast<SlotEntry*>(sharedSlots() + ((writeIndex + j) % slotCount) * s_SlotSize);
        std::memcpy(slot, &entry, offsetof(SlotEntry, continued));
        slot->continued = j + 1 < slots ? 1 : 0;
        const std::size_t offset = j * s_SlotTextSize;
        const std::size_t chunk = std::min(s_SlotTextSize, textLength - offset);
        std::memcpy(slot->text, entry.text + offset, chunk);
        std::memset(slot->text + chunk, 0, s_SlotTextSize - chunk);
    }
}

void TraceProducer::writeToFile(SharedMemoryHeader const& h, FullEntry const& entry)
{
    if (!hasTerminator(h.fileName) || h.fileName[0] == '\0')
        return;
    if (file.getFileName() != h.fileName)
        file.openFile(h.fileName);
    file.write(entry);
}

} // namespace ZelTracer
