#include "SharedMemory.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <iostream>

namespace ZelTracer {

namespace {

// Waits until the semaphore is posted or the monotonic clock reaches `deadline` (nanoseconds).
bool waitUntil(sem_t* semaphore, std::int64_t deadline)
{
    const timespec until {static_cast<time_t>(deadline / 1000000000), static_cast<long>(deadline % 1000000000)};
    for (;;) {
        if (sem_clockwait(semaphore, CLOCK_MONOTONIC, &until) == 0)
            return true;
        if (errno == ETIMEDOUT)
            return false;
        if (errno != EINTR) {
            // Not a wait that can succeed; still spend the time so that callers never spin.
            const std::int64_t remaining = deadline - monotonicNanoseconds();
            if (remaining > 0) {
                const timespec pause {static_cast<time_t>(remaining / 1000000000), remaining % 1000000000};
                nanosleep(&pause, nullptr);
            }
            return false;
        }
    }
}

// A lock broken while its holder was only slow counts one holder too many once that holder posts,
// and would let two writers in at every later acquisition. While this process holds the lock, any
// count above zero is such an excess post: taking it back restores one holder at a time from the
// next acquisition on.
void drainExcess(sem_t* semaphore)
{
    int value = 0;
    while (sem_getvalue(semaphore, &value) == 0 && value > 0 && sem_trywait(semaphore) == 0) { }
}

void breakLock(sem_t* semaphore)
{
    std::cerr << "ERROR in "
              << "lock"
              << ": "
              << "I made " << SharedMemory::s_LockAttempts
              << " attempts to acquire the lock for the Shared Memory. Now I am breaking it!" << std::endl;
    sem_post(semaphore);
}

} // namespace

std::int64_t monotonicNanoseconds()
{
    timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

std::string semaphoreFilePath(std::string const& name)
{
    std::size_t start = 0;
    while (start < name.size() && name[start] == '/')
        ++start;
    return "/dev/shm/sem." + name.substr(start);
}

std::string semaphoreFileProblem(std::string const& name, FileIdentity* identity)
{
    const std::string path = semaphoreFilePath(name);
    struct stat info
    {
    };
    if (lstat(path.c_str(), &info) != 0) {
        if (errno == ENOENT)
            return std::string();
        return "The lock file " + path + " cannot be inspected (" + std::strerror(errno) + ").";
    }
    if (!S_ISREG(info.st_mode))
        return "The lock file " + path + " is not a regular file. Tracing stays off until it is removed.";
    if (info.st_size != static_cast<off_t>(sizeof(sem_t))) {
        return "The lock file " + path + " is not a valid semaphore (" + std::to_string(info.st_size)
            + " bytes instead of " + std::to_string(sizeof(sem_t)) + "). Tracing stays off until it is removed.";
    }
    if (identity)
        *identity = {info.st_dev, info.st_ino};
    return std::string();
}

sem_t* openSharedSemaphore(std::string const& name, std::string* problem, FileIdentity* identity)
{
    std::string why = semaphoreFileProblem(name);
    sem_t* semaphore = nullptr;
    if (why.empty()) {
        sem_t* opened = sem_open(name.c_str(), O_CREAT, 0666, 1);
        if (opened == SEM_FAILED) {
            why = "The lock " + name + " cannot be opened (" + std::strerror(errno) + ").";
        } else {
            // Created under this process's umask; the tools and traced programs of every local user
            // must be able to open it, as they can the segment. Only the owner can do this, and a
            // file of another user with a narrower mode already failed to open above.
            chmod(semaphoreFilePath(name).c_str(), 0666);
            // The file may have been swapped or cut between the check and the mapping.
            why = semaphoreFileProblem(name, identity);
            if (why.empty())
                semaphore = opened;
            else
                sem_close(opened);
        }
    }
    if (problem)
        *problem = why;
    return semaphore;
}

bool acquireWithin(sem_t* semaphore, LockPatience& patience, LockBounds const& bounds, bool segmentLock)
{
    if (!semaphore)
        return false;
    bool taken = sem_trywait(semaphore) == 0;
    if (!taken && bounds.spinNanoseconds > 0) {
        const std::int64_t end = monotonicNanoseconds() + bounds.spinNanoseconds;
        while (!taken && monotonicNanoseconds() < end)
            taken = sem_trywait(semaphore) == 0;
    }
    std::int64_t waited = 0;
    if (!taken) {
        const std::int64_t start = monotonicNanoseconds();
        waited = patience.allowedWait(start, bounds);
        taken = waited > 0 && waitUntil(semaphore, start + waited);
    }
    if (!taken && patience.failed(monotonicNanoseconds(), waited, bounds)) {
        if (segmentLock)
            breakLock(semaphore);
        else
            sem_post(semaphore);
        taken = sem_trywait(semaphore) == 0;
    }
    if (!taken)
        return false;
    patience.succeeded();
    drainExcess(semaphore);
    return true;
}

SharedMemory::SharedMemory(int const& key, std::string const& semaphoreName)
    : key(key)
    , semaphoreName(semaphoreName)
{
    // Without a usable semaphore every locked operation quietly does nothing rather than working on
    // an unguarded segment.
    semaphore = openSharedSemaphore(semaphoreName, &problem, &semaphoreFile);
}

SharedMemory::~SharedMemory()
{
    detach();
    if (sem_t* s = semaphore.load())
        sem_close(s);
    for (Retired const& r : retired) {
        if (r.semaphore)
            sem_close(r.semaphore);
    }
}

bool SharedMemory::reopenLockIfReplaced()
{
    sem_t* current = semaphore.load(std::memory_order_acquire);
    struct stat info
    {
    };
    const std::string path = semaphoreFilePath(semaphoreName);
    if (current && lstat(path.c_str(), &info) == 0 && FileIdentity {info.st_dev, info.st_ino} == semaphoreFile)
        return false;
    FileIdentity identity;
    std::string why;
    sem_t* fresh = openSharedSemaphore(semaphoreName, &why, &identity);
    if (!fresh) {
        // Still without a usable lock; a working one, although no longer shared, is kept meanwhile.
        if (!current)
            problem = why;
        return false;
    }
    // glibc hands out the mapping it already has when the name leads back to the same file.
    if (fresh == current || (current && !retire(current))) {
        sem_close(fresh);
        return false;
    }
    semaphoreFile = identity;
    problem.clear();
    semaphore.store(fresh, std::memory_order_release);
    return true;
}

// A thread that took the old semaphore just before the swap releases it within its bounds; ten
// seconds later nobody uses it. Replaced faster than that, the current one is kept for now.
bool SharedMemory::retire(sem_t* old)
{
    constexpr std::int64_t closeAfter = 10000000000;
    const std::int64_t now = monotonicNanoseconds();
    for (Retired& r : retired) {
        if (r.semaphore && now - r.since < closeAfter)
            continue;
        if (r.semaphore)
            sem_close(r.semaphore);
        r = {old, now};
        return true;
    }
    return false;
}

bool SharedMemory::create(unsigned long requestedSize, AccessMode mode)
{
    existed = false;
    const int signedSize = static_cast<int>(requestedSize);
    shmid = shmget(key, signedSize, IPC_CREAT | IPC_EXCL | 0666);
    if (shmid == -1) {
        existed = true;
        shmid = shmget(key, signedSize, IPC_CREAT | 0666);
        if (shmid == -1) {
            shmid = 0;
            return false;
        }
    }
    size = requestedSize;
    return attach(mode);
}

bool SharedMemory::attach(AccessMode mode)
{
    // Attached again (the segment was replaced): the new segment takes the place of the old one in
    // one step, so that other threads of a traced program never find the address unmapped.
    // Only a segment of exactly the old size may take that place: a larger one would be mapped over
    // whatever lies behind it.
    void* const old = address.load(std::memory_order_acquire);
    shmid_ds state {};
    if (old && (shmctl(shmid, IPC_STAT, &state) != 0 || state.shm_segsz != size))
        return false;
    void* result = shmat(shmid, old, (mode == ReadOnly ? SHM_RDONLY : 0) | (old ? SHM_REMAP : 0));
    if (result == reinterpret_cast<void*>(-1)) {
        if (!old)
            address = nullptr;
        return false;
    }
    address.store(result, std::memory_order_release);
    return true;
}

bool SharedMemory::detach()
{
    if (shmdt(address.load()) != 0)
        return false;
    address = nullptr;
    size = 0;
    return true;
}

bool SharedMemory::lock()
{
    sem_t* const s = semaphore.load(std::memory_order_acquire);
    if (!s)
        return false;
    for (;;) {
        // Each attempt sleeps on the semaphore itself, so a waiter wakes the moment the holder posts.
        for (int attempts = 0; attempts < s_LockAttempts; ++attempts) {
            if (waitUntil(s, monotonicNanoseconds() + s_AttemptNanoseconds)) {
                drainExcess(s);
                return true;
            }
        }
        breakLock(s);
    }
}

sem_t* SharedMemory::acquireWithin(LockBounds const& bounds)
{
    sem_t* const s = semaphore.load(std::memory_order_acquire);
    return ZelTracer::acquireWithin(s, patience, bounds, true) ? s : nullptr;
}

bool SharedMemory::unlock()
{
    sem_t* const s = semaphore.load(std::memory_order_acquire);
    return s && sem_post(s) == 0;
}

} // namespace ZelTracer
