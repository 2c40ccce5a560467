#include "SharedMemory.h"

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <ctime>
#include <iostream>

namespace ZelTracer {

SharedMemory::SharedMemory(int const& key, std::string const& semaphoreName)
    : key(key)
{
    // A failing sem_open leaves no lock at all; every locked operation then quietly does nothing
    // rather than working on an unguarded segment.
    sem_t* sem = sem_open(semaphoreName.c_str(), O_CREAT, 0666, 1);
    semaphore = sem == SEM_FAILED ? nullptr : sem;
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

bool SharedMemory::lock()
{
    if (!semaphore)
        return false;
    for (;;) {
        for (int attempts = 0; attempts < s_LockAttempts; ++attempts) {
            if (sem_trywait(semaphore) == 0)
                return true;
            const timespec pause {0, 10000000};
            nanosleep(&pause, nullptr);
        }
        std::cerr << "ERROR in "
                  << "lock"
                  << ": "
                  << "I made " << s_LockAttempts
                  << " attempts to acquire the lock for the Shared Memory. Now I am breaking it!" << std::endl;
        sem_post(semaphore);
    }
}

bool SharedMemory::unlock()
{
    return semaphore && sem_post(semaphore) == 0;
}

} // namespace ZelTracer
