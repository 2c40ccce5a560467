#pragma once

#include <semaphore.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <string>

// Private names for the shared objects a test opens, so that tests never touch a user's real
// tool and can run in parallel: everything is derived from the test process's pid and a tag.
namespace TestNames {

// System V key: 0x5A000000 plus the pid in the low 20 bits and the tag in the bits above them.
inline int segmentKey(int tag = 0)
{
    return 0x5A000000 | ((tag & 0x1F) << 20) | (static_cast<int>(getpid()) & 0xFFFFF);
}

inline std::string semaphoreName(const char* tag)
{
    return "/zeltest_" + std::to_string(getpid()) + "_" + tag;
}

inline std::string sharedRingName(const char* tag)
{
    return "zeltest_ring_" + std::to_string(getpid()) + "_" + tag;
}

inline void removeSegment(int key)
{
    const int id = shmget(key, 0, 0);
    if (id != -1)
        shmctl(id, IPC_RMID, nullptr);
}

inline void unlinkSemaphore(const std::string& name)
{
    sem_unlink(name.c_str());
}

} // namespace TestNames
