#pragma once

#include "TraceRecord.h"

#include <semaphore.h>

#include <cstdint>
#include <string>

namespace ZelTracer {

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

    void* getAddress() const { return address; }
    unsigned long getSize() const { return size; }
    bool hasExisted() const { return existed; }

    static constexpr int s_LockAttempts = 101;

private:
    int key;
    std::uint64_t size = 0;
    void* address = nullptr;
    int shmid = 0;
    bool existed = false;
    sem_t* semaphore = nullptr; // null when sem_open failed: the segment then counts as having no lock
};

} // namespace ZelTracer
