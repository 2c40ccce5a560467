#pragma once

#include "LockPatience.h"

#include <QString>

#include <sys/types.h>

namespace ZelTracer {

// The lock of the shared ring: the System V semaphore that Qt keeps beside a named block (its key
// file "qipc_systemsem_..." in the temporary folder), taken by every copy of the tool around its
// batches, by older builds through QSharedMemory::lock(). That one waits without limit, and the
// semaphore is open to every local user, who can set it to 0 and leave: every copy of the tool would
// hang for good. Here every wait is bounded (semtimedop, whose timeout runs on the monotonic clock),
// and a semaphore that stays at 0 for as long as the segment lock takes to break itself is repaired
// with one post, as that lock is. The operations use SEM_UNDO as Qt does, so that a copy killed while
// holding it gives it back.
class RingSemaphore
{
public:
    explicit RingSemaphore(QString const& ringKey);
    RingSemaphore(RingSemaphore const&) = delete;
    RingSemaphore& operator=(RingSemaphore const&) = delete;

    bool acquireWithin(LockBounds const& bounds);
    void release();
    // Qt makes the semaphore for its owner only; the trace segment is open to every local user, and so
    // must be the ring's lock, or a second user's tool cannot join.
    void openToAllUsers() const;

    // Removes the semaphore and its key file, as Qt does when the block goes: for the last copy of the
    // tool to leave. A copy that starts meanwhile makes them again.
    void remove();

    // The key file Qt names after the ring's key, in the temporary folder; ftok of it gives the key.
    static QByteArray keyFileName(QString const& ringKey);

private:
    bool open();
    bool operate(short change, short flags, std::int64_t timeoutNanoseconds);

    QByteArray file;
    key_t key = -1;
    int id = -1;
    LockPatience patience;
};

} // namespace ZelTracer
