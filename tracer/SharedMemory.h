#pragma once

#include "LockPatience.h"
#include "TraceRecord.h"

#include <semaphore.h>
#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

namespace ZelTracer {

// Which file a semaphore was opened from, to notice when its name leads to another one.
struct FileIdentity
{
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(FileIdentity const& other) const { return device == other.device && inode == other.inode; }
};

// Opens (creating if needed) a named semaphore shared by every user of the machine. The file behind
// it is checked first: glibc maps it blindly, and an empty or truncated file (any local user can
// leave one) would make the first sem_* call die of SIGBUS. Returns null and explains why in
// `problem` when the file is not a usable semaphore or sem_open fails.
sem_t* openSharedSemaphore(std::string const& name, std::string* problem = nullptr, FileIdentity* identity = nullptr);
// Why the semaphore file of this name cannot be used, or an empty text when it can (or does not
// exist yet, so that sem_open will create it).
std::string semaphoreFileProblem(std::string const& name, FileIdentity* identity = nullptr);
// The file that backs a named semaphore on Linux.
std::string semaphoreFilePath(std::string const& name);
// Acquires the semaphore within the bounds; after failures that went on for as long as the
// self-breaking lock waits, breaks it (one post; for the segment lock with its line on stderr) and
// tries once more.
bool acquireWithin(sem_t* semaphore, LockPatience& patience, LockBounds const& bounds, bool segmentLock);

// One System V segment plus the named semaphore that serialises every access to it among all
// traced processes and all copies of the tool. The segment and the semaphore outlive this object:
// it never removes the one nor unlinks the other.
class SharedMemory
{
public:
    enum AccessMode
    {
        ReadOnly = 0,
        ReadWrite = 1
    };

    explicit SharedMemory(int const& key, std::string const& semaphoreName = s_SharedMemoryMutexName);
    ~SharedMemory();
    SharedMemory(SharedMemory const&) = delete;
    SharedMemory& operator=(SharedMemory const&) = delete;

    bool create(unsigned long size, AccessMode mode);
    bool attach(AccessMode mode);
    bool detach();

    // Self-breaking: a holder that died must not stop tracing for good, so a waiter that cannot get
    // the lock within about a second assumes the holder is dead and posts once. If the holder was
    // merely slow, two processes may be inside at once; that risk is accepted to never hang.
    bool lock();
    bool unlock();

    // The bounded variant for traced programs and the tool's GUI thread: another process that keeps
    // the lock (alive or dead) costs a caller at most the bounds, and a holder that died is still
    // broken in the end, once acquisitions have failed for as long as lock() waits. Returns the
    // semaphore it took, to be released with release(), or null: a thread that holds the lock while
    // another re-opens the semaphore (reopenLockIfReplaced) still releases the one it took.
    sem_t* acquireWithin(LockBounds const& bounds);
    bool lockWithin(LockBounds const& bounds) { return acquireWithin(bounds) != nullptr; }
    static void release(sem_t* held) { sem_post(held); }

    // Anyone may remove the semaphore's file while processes use it; the processes started later
    // then make a new one, and old and new would no longer exclude each other. This notices that the
    // name leads to another file (or none) and opens the semaphore of the name again, creating it when
    // nobody has. A semaphore that could not be opened before is tried again. True when it re-opened.
    bool reopenLockIfReplaced();

    // False when the semaphore could not be opened or its file is not a valid semaphore; every
    // locked operation then does nothing. `lockProblem()` says why, for the user.
    bool hasLock() const { return semaphore.load(std::memory_order_acquire) != nullptr; }
    std::string const& lockProblem() const { return problem; }

    void* getAddress() const { return address.load(std::memory_order_acquire); }
    unsigned long getSize() const { return size; }
    bool hasExisted() const { return existed; }

    static constexpr int s_LockAttempts = 101;
    static constexpr long s_AttemptNanoseconds = 10000000;

private:
    bool retire(sem_t* old);

    int key;
    std::uint64_t size = 0;
    // Atomic: a traced program's threads read it while one of them attaches a segment again.
    std::atomic<void*> address {nullptr};
    int shmid = 0;
    bool existed = false;
    // Null when there is no usable semaphore: the segment then counts as having no lock.
    std::atomic<sem_t*> semaphore {nullptr};
    std::string problem;
    std::string semaphoreName;
    FileIdentity semaphoreFile;
    LockPatience patience;
    // Semaphores replaced by reopenLockIfReplaced(); another thread may still be releasing one, so
    // each is closed only long after it was replaced.
    struct Retired
    {
        sem_t* semaphore = nullptr;
        std::int64_t since = 0;
    };
    std::array<Retired, 4> retired {};
};

} // namespace ZelTracer
