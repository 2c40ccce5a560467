#pragma once

#include "TraceRecord.h"

#include <semaphore.h>

#include <cstdint>
#include <string>

namespace ZelTracer {

// Opens (creating if needed) a named semaphore shared by every user of the machine. The file behind
// it is checked first: glibc maps it blindly, and an empty or truncated file (any local user can
// leave one) would make the first sem_* call die of SIGBUS. Returns null and explains why in
// `problem` when the file is not a usable semaphore or sem_open fails.
sem_t* openSharedSemaphore(std::string const& name, std::string* problem = nullptr);
// Why the semaphore file of this name cannot be used, or an empty text when it can (or does not
// exist yet, so that sem_open will create it).
std::string semaphoreFileProblem(std::string const& name);
// The file that backs a named semaphore on Linux.
std::string semaphoreFilePath(std::string const& name);
// Waits at most `milliseconds` for the semaphore; false on timeout or error.
bool waitSemaphoreFor(sem_t* semaphore, long milliseconds);

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
    // `spinNanoseconds` lets a producer poll briefly before it sleeps: holds are a few microseconds.
    bool lock(long spinNanoseconds = 0);
    bool unlock();

    // False when the semaphore could not be opened or its file is not a valid semaphore; every
    // locked operation then does nothing. `lockProblem()` says why, for the user.
    bool hasLock() const { return semaphore != nullptr; }
    std::string const& lockProblem() const { return problem; }

    void* getAddress() const { return address; }
    unsigned long getSize() const { return size; }
    bool hasExisted() const { return existed; }

    static constexpr int s_LockAttempts = 101;
    static constexpr long s_AttemptNanoseconds = 10000000;

private:
    void drainExcess();

    int key;
    std::uint64_t size = 0;
    void* address = nullptr;
    int shmid = 0;
    bool existed = false;
    sem_t* semaphore = nullptr; // null when there is no usable semaphore: the segment then counts as having no lock
    std::string problem;
};

} // namespace ZelTracer
