#include "RingSemaphore.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>

#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace ZelTracer {

// Named after the key's letters and its SHA-1.
QByteArray RingSemaphore::keyFileName(QString const& ringKey)
{
    QString name = QStringLiteral("qipc_systemsem_");
    for (QChar ch : ringKey) {
        if ((ch >= QLatin1Char('a') && ch <= QLatin1Char('z')) || (ch >= QLatin1Char('A') && ch <= QLatin1Char('Z')))
            name += ch;
    }
    name += QLatin1String(QCryptographicHash::hash(ringKey.toUtf8(), QCryptographicHash::Sha1).toHex());
    return QFile::encodeName(QDir::tempPath() + QLatin1Char('/') + name);
}

RingSemaphore::RingSemaphore(QString const& ringKey)
    : file(keyFileName(ringKey))
{
    // As Qt makes it; a file that is there already (whoever made it) only lends its inode to ftok.
    const int fd = ::open(file.constData(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC | O_NOFOLLOW, 0640);
    if (fd >= 0)
        close(fd);
    key = ftok(file.constData(), 'Q');
    open();
}

bool RingSemaphore::open()
{
    if (key == -1)
        return false;
    id = semget(key, 1, 0666 | IPC_CREAT | IPC_EXCL);
    if (id != -1) {
        semctl(id, 0, SETVAL, 1);
        return true;
    }
    id = semget(key, 1, 0);
    return id != -1;
}

// One semop, waiting at most the timeout (none: IPC_NOWAIT). A semaphore removed meanwhile (the copy
// of the tool that created it left) is made again for an acquisition, as Qt does.
bool RingSemaphore::operate(short change, short flags, std::int64_t timeoutNanoseconds)
{
    const std::int64_t deadline = monotonicNanoseconds() + timeoutNanoseconds;
    for (int reopened = 0; (id != -1 || (change < 0 && open())) && reopened < 2;) {
        sembuf operation {0, change, static_cast<short>(flags | (timeoutNanoseconds > 0 ? 0 : IPC_NOWAIT))};
        const std::int64_t remaining = std::max<std::int64_t>(deadline - monotonicNanoseconds(), 0);
        const timespec timeout {static_cast<time_t>(remaining / 1000000000), static_cast<long>(remaining % 1000000000)};
        if (semtimedop(id, &operation, 1, timeoutNanoseconds > 0 ? &timeout : nullptr) == 0)
            return true;
        if (errno == EIDRM || errno == EINVAL) {
            id = -1;
            ++reopened;
        } else if (errno != EINTR || remaining == 0) {
            return false;
        }
    }
    return false;
}

bool RingSemaphore::acquireWithin(LockBounds const& bounds)
{
    const std::int64_t wait = patience.allowedWait(monotonicNanoseconds(), bounds);
    bool taken = operate(-1, SEM_UNDO, wait);
    if (!taken && patience.failed(monotonicNanoseconds(), wait, bounds)) {
        // Held at 0 for as long as the segment lock breaks itself: whoever holds it is dead or hostile.
        operate(1, 0, 0);
        taken = operate(-1, SEM_UNDO, 0);
    }
    if (!taken)
        return false;
    patience.succeeded();
    // More than one post (a repair while the holder was only slow, or a hostile SETVAL): while this
    // copy holds the lock any count above 0 is an excess, taken back so that one copy at a time gets in.
    const int excess = semctl(id, 0, GETVAL);
    if (excess > 0)
        operate(static_cast<short>(-std::min(excess, 32767)), 0, 0);
    return true;
}

void RingSemaphore::release()
{
    operate(1, SEM_UNDO, 0);
}

void RingSemaphore::remove()
{
    if (id != -1 && semctl(id, 0, IPC_RMID) == 0)
        ::unlink(file.constData());
    id = -1;
}

void RingSemaphore::openToAllUsers() const
{
    semid_ds state {};
    if (id != -1 && semctl(id, 0, IPC_STAT, &state) == 0) {
        state.sem_perm.mode = (state.sem_perm.mode & ~0777u) | 0666;
        semctl(id, 0, IPC_SET, &state);
    }
}

} // namespace ZelTracer
