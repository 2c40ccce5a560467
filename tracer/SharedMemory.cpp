#include "SharedMemory.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <iostream>

namespace ZelTracer {

namespace {

using Clock = std::chrono::steady_clock;

// Waits until the semaphore is posted or `nanoseconds` of monotonic time have passed. sem_timedwait
// takes a wall-clock deadline, so a clock stepped forward ends a wait early: the remainder is waited
// again, which keeps the attempts of a lock at their full length and the break at about a second. A
// clock stepped back stretches the one wait in progress; a post still ends it at once.
bool waitNanoseconds(sem_t* semaphore, long nanoseconds)
{
    const Clock::time_point end = Clock::now() + std::chrono::nanoseconds(nanoseconds);
    for (;;) {
        const long remaining
            = static_cast<long>(std::chrono::duration_cast<std::chrono::nanoseconds>(end - Clock::now()).count());
        if (remaining <= 0)
            return sem_trywait(semaphore) == 0;
        timespec deadline {};
        clock_gettime(CLOCK_REALTIME, &deadline);
        deadline.tv_sec += remaining / 1000000000L;
        deadline.tv_nsec += remaining % 1000000000L;
        if (deadline.tv_nsec >= 1000000000L) {
            deadline.tv_sec += 1;
            deadline.tv_nsec -= 1000000000L;
        }
        if (sem_timedwait(semaphore, &deadline) == 0)
            return true;
        if (errno != ETIMEDOUT && errno != EINTR) {
            // Not a wait that can succeed; still spend the attempt's time so callers never spin.
            const timespec pause {remaining / 1000000000L, remaining % 1000000000L};
            nanosleep(&pause, nullptr);
            return false;
        }
    }
}

} // namespace

std::string semaphoreFilePath(std::string const& name)
{
    std::size_t start = 0;
    while (start < name.size() && name[start] == '/')
        ++start;
    return "/dev/shm/sem." + name.substr(start);
}

std::string semaphoreFileProblem(std::string const& name)
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
    return std::string();
}

sem_t* openSharedSemaphore(std::string const& name, std::string* problem)
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
            why = semaphoreFileProblem(name);
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

bool waitSemaphoreFor(sem_t* semaphore, long milliseconds)
{
    return semaphore && waitNanoseconds(semaphore, milliseconds * 1000000L);
}

SharedMemory::SharedMemory(int const& key, std::string const& semaphoreName)
    : key(key)
{
    // Without a usable semaphore every locked operation quietly does nothing rather than working on
    // an unguarded segment.
    semaphore = openSharedSemaphore(semaphoreName, &problem);
}

SharedMemory::~SharedMemory()
{
    detach();
    if (semaphore)
        sem_close(semaphore);
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
    void* result = shmat(shmid, nullptr, mode == ReadOnly ? SHM_RDONLY : 0);
    if (result == reinterpret_cast<void*>(-1)) {
        address = nullptr;
        return false;
    }
    address = result;
    return true;
}

bool SharedMemory::detach()
{
    if (shmdt(address) != 0)
        return false;
    address = nullptr;
    size = 0;
    return true;
}

bool SharedMemory::lock(long spinNanoseconds)
{
    if (!semaphore)
        return false;
    if (spinNanoseconds > 0) {
        const Clock::time_point end = Clock::now() + std::chrono::nanoseconds(spinNanoseconds);
        do {
            if (sem_trywait(semaphore) == 0) {
                drainExcess();
                return true;
            }
        } while (Clock::now() < end);
    }
    for (;;) {
        // Each attempt sleeps on the semaphore itself, so a waiter wakes the moment the holder posts.
        for (int attempts = 0; attempts < s_LockAttempts; ++attempts) {
            if (waitNanoseconds(semaphore, s_AttemptNanoseconds)) {
                drainExcess();
                return true;
            }
        }
        std::cerr << "ERROR in "
                  << "lock"
                  << ": "
                  << "I made " << s_LockAttempts
                  << " attempts to acquire the lock for the Shared Memory. Now I am breaking it!" << std::endl;
        sem_post(semaphore);
    }
}

// A lock broken while its holder was only slow counts one holder too many once that holder posts,
// and would let two writers in at every later acquisition. While this process holds the lock, any
// count above zero is such an excess post: taking it back restores one holder at a time from the
// next acquisition on.
void SharedMemory::drainExcess()
{
    int value = 0;
    while (sem_getvalue(semaphore, &value) == 0 && value > 0 && sem_trywait(semaphore) == 0) { }
}

bool SharedMemory::unlock()
{
    return semaphore && sem_post(semaphore) == 0;
}

} // namespace ZelTracer
