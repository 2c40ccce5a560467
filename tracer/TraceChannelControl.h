#pragma once

#include "TraceChannel.h"
#include "TraceRecord.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace ZelTracer {

class TraceChannelControl;

// Walks the records of a snapshot one full record at a time, reassembling records that span
// several slots. It holds no lock: nobody may take a new snapshot while it is in use.
class BufferEntryIterator
{
public:
    BufferEntryIterator(std::uint64_t begin, std::uint64_t end, std::uint64_t count, std::uint64_t current,
                        TraceChannelControl const* control);
    BufferEntryIterator(BufferEntryIterator const& other);
    BufferEntryIterator& operator=(BufferEntryIterator const& other);
    virtual ~BufferEntryIterator();

    // Always a complete record with its text terminated within 1024 bytes, or null at the end.
    FullEntry const* operator*() const { return valid ? &entry : nullptr; }
    BufferEntryIterator& operator++();
    bool operator==(BufferEntryIterator const& other) const { return current == other.current; }
    bool operator!=(BufferEntryIterator const& other) const { return current != other.current; }

private:
    void incIndex(std::uint64_t& i) const;
    void incCurrent() { incIndex(current); }
    void processCurrent();

    std::uint64_t begin;
    std::uint64_t end;
    std::uint64_t count;
    std::uint64_t current;
    TraceChannelControl const* control;
    bool valid = false;
    FullEntry entry;
};

// The tool's side of the channel: switches tracing and its filters in the header, snapshots the
// whole segment into a private copy (emptying the shared ring) and lets the model walk that copy.
class TraceChannelControl : public TraceChannel
{
public:
    TraceChannelControl(int const& key = s_VisaSharedMemoryKey, unsigned long size = s_VisaSharedMemorySize,
                        std::string const& semaphoreName = s_SharedMemoryMutexName);
    ~TraceChannelControl() override;

    void readSharedMemoryHeader(SharedMemoryHeader& h) override;
    bool tracingActive();
    bool isTracingToFile() const { return tracingToFileCache; }
    std::string const& getFileName() const { return fileName; }

    void setTracingActive(bool on);
    void setPidFilter(unsigned int pid);
    void setMessageFilter(std::string filter);
    bool settracingToFileActive(bool active, std::string const& filename);
    bool settracingToFileActive(bool active);
    void writeFileHeader() const;

    bool clear();
    void clearShrMemoryWithoutLocking();
    void copySharedMemory(bool clearShared);
    unsigned long countCopy() const;
    // A raw slot of the snapshot, typed as a slot so that nobody reads a full record out of it.
    SlotEntry const* getLine(unsigned long n) const;
    BufferEntryIterator begin();
    BufferEntryIterator end();
    BufferEntryIterator find(unsigned long id, unsigned int pid, unsigned int kind, long const& timestamp);

    static std::mutex s_MemoryCopyMutex;

private:
    friend class BufferEntryIterator;

    struct Indices
    {
        std::uint64_t read = 0;
        std::uint64_t write = 0;
    };
    Indices copyIndices() const;
    void copyUsedPart();
    SlotEntry const* copySlot(std::uint64_t i) const;

    template<class Change> bool changeHeader(Change change);

    std::string fileName;
    std::unique_ptr<char[]> copy;
    bool tracingActiveCache = false;
    bool tracingToFileCache = false;
    std::uint32_t slotCount;
    unsigned long copySize;
};

} // namespace ZelTracer
