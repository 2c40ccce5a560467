#pragma once

#include "LockPatience.h"
#include "RingBuffer.h"
#include "RingSemaphore.h"
#include "TraceRecord.h"

#include <QSharedMemory>
#include <QString>

#include <cstdint>

namespace ZelTracer {

template<class T> class RingBufferSharedMem;

// The ring of full records that all running copies of the tool share, in a named Qt shared
// memory block. Block layout (every copy of the tool must agree):
//   offset  width  field
//        0      4  attachCount  (copies of the tool attached)
//        4      4  begin
//        8      4  end
//       12      4  padding
//       16      8  lastUpdate   (ms since the epoch of the last copy from the trace segment)
//       24  n*1232 the slots
// Apart from construction and destruction no member takes the block's lock: callers hold
// lockWithin() around each batch of operations. The block is opened by its native key, so that Qt
// never takes the lock itself (its waits have no limit); the lock is the semaphore Qt would use, so
// that copies of the tool that lock through Qt still exclude this one.
template<> class RingBufferSharedMem<FullEntry> : public RingBuffer<FullEntry>
{
public:
    RingBufferSharedMem(QString const& key, int size);
    ~RingBufferSharedMem() override;
    RingBufferSharedMem(RingBufferSharedMem const&) = delete;
    RingBufferSharedMem& operator=(RingBufferSharedMem const&) = delete;

    void clear() override;
    void push_back(FullEntry const& value) override;
    void pop_back() override;
    std::uint32_t numberOfElements() const override { return capacity; }
    FullEntry& operator()(unsigned int i) override;
    FullEntry const& operator()(unsigned int i) const override;

    QSharedMemory& block() { return memory; }
    // Waits at most the bounds (one tick of the tool's timer); false when the lock was not had, and
    // the batch is then skipped.
    bool lockWithin(LockBounds const& bounds = s_ToolLockBounds) { return semaphore.acquireWithin(bounds); }
    void unlock() { semaphore.release(); }
    void readHeader();
    void writeHeader() const;
    // How many processes are attached to the block of that name now, as the kernel counts them
    // (0 when there is no such block). Copies of the tool killed outright are not among them.
    static std::uint32_t attachedProcesses(QString const& key);

    static constexpr int s_HeaderSize = 24;
    // No copy of this version creates a larger block; a larger one found under the name is used
    // only up to this size, so that nobody can make every copy of the tool allocate gigabytes.
    static constexpr qint64 s_MaxBlockSize = 64 * 1024 * 1024;

    std::int64_t lastUpdate = 0;
    std::uint32_t capacity = 0;
    std::uint32_t attachCount = 1;

private:
    struct BlockHeader
    {
        std::uint32_t attachCount;
        std::uint32_t begin;
        std::uint32_t end;
        std::uint32_t padding;
        std::int64_t lastUpdate;
    };
    static_assert(sizeof(BlockHeader) == s_HeaderSize);

    BlockHeader* header() const { return static_cast<BlockHeader*>(const_cast<void*>(memory.constData())); }
    FullEntry* slotArray() const;
    // How many processes the kernel has attached to the block, or 0 when it cannot tell.
    std::uint32_t attachedProcesses() const;
    void openToAllUsers() const;
    void loadHeader(bool repairCount);

    QSharedMemory memory;
    RingSemaphore semaphore;
    int shmId = -1; // the kernel's id of the block, for its count of attached processes
    // Returned for element access on a ring without slots, so that no access touches the block.
    FullEntry spare {};
};

} // namespace ZelTracer
