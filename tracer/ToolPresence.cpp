#include "ToolPresence.h"

#include "TraceRecord.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cstdint>

namespace ZelTracer {

int ToolPresence::keyFor(std::string const& ringName)
{
    // FNV-1a of the name; never IPC_PRIVATE (0) nor the trace segment's key.
    std::uint32_t hash = 2166136261u;
    for (const char c : "ZelTracePresence:" + ringName) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 16777619u;
    }
    auto key = static_cast<int>(hash & 0x7FFFFFFF);
    if (key == 0 || key == s_VisaSharedMemoryKey)
        key = 1;
    return key;
}

ToolPresence::ToolPresence(std::string const& ringName)
{
    // Open to every local user, as the trace segment and the ring are: every user's tools take part.
    shmId = shmget(keyFor(ringName), 1, IPC_CREAT | 0666);
    if (shmId == -1)
        return;
    void* attached = shmat(shmId, nullptr, SHM_RDONLY);
    if (attached != reinterpret_cast<void*>(-1))
        address = attached;
}

// The last copy to leave removes the segment, so that nothing of the tool stays behind. One that
// starts in between attaches a segment marked for removal, which lives on while it is attached; a copy
// after it then makes a new one: both are counted apart until the first goes, a race of microseconds
// at the moment a tool quits.
ToolPresence::~ToolPresence()
{
    if (!address)
        return;
    shmdt(address);
    shmid_ds state {};
    if (shmctl(shmId, IPC_STAT, &state) == 0 && state.shm_nattch == 0)
        shmctl(shmId, IPC_RMID, nullptr);
}

unsigned ToolPresence::othersAttached() const
{
    shmid_ds state {};
    if (!address || shmctl(shmId, IPC_STAT, &state) != 0 || state.shm_nattch == 0)
        return 0;
    return static_cast<unsigned>(std::min<shmatt_t>(state.shm_nattch - 1, 0xFFFFFFFFu));
}

} // namespace ZelTracer
