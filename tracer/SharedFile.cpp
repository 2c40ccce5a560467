#include "SharedFile.h"
#include "SharedMemory.h"

#include <fcntl.h>
#include <sys/statvfs.h>

#include <cstring>
#include <ctime>

namespace ZelTracer {

namespace {

double statvfsFreeMiB(std::string const& fileName)
{
    const std::size_t slash = fileName.find_last_of("\\/");
    const std::string directory = slash == std::string::npos ? fileName : fileName.substr(0, slash);
    struct statvfs info;
    if (statvfs(directory.c_str(), &info) != 0)
        return 0.0;
    return static_cast<double>(info.f_bsize * info.f_bavail) * (1.0 / 1024) * (1.0 / 1024);
}

} // namespace

SharedFile::SharedFile(std::string const& semaphoreName)
    : freeSpaceQuery(statvfsFreeMiB)
{
    // Without the semaphore nothing is written: lines of several processes would interleave.
    semaphore = openSharedSemaphore(semaphoreName, &problem);
}

SharedFile::~SharedFile()
{
    closeFile();
    if (semaphore)
        sem_close(semaphore);
}

void SharedFile::openFile(std::string const& name)
{
    if (name.empty())
        return;
    closeFile();
    stream.clear();
    stream.open(name, std::ios::out | std::ios::app);
    if (!stream.is_open())
        stream.setstate(std::ios::failbit);
    stream.setf(std::ios::scientific, std::ios::floatfield);
    stream.precision(5);
    fileName = name;
}

void SharedFile::closeFile()
{
    if (stream.is_open())
        stream.close();
}

bool SharedFile::lock()
{
    return semaphore && sem_wait(semaphore) == 0;
}

bool SharedFile::tryLockFor(long milliseconds)
{
    return waitSemaphoreFor(semaphore, milliseconds);
}

bool SharedFile::unlock()
{
    return semaphore && sem_post(semaphore) == 0;
}

double SharedFile::getFreeDiskSpace()
{
    return freeSpaceQuery(fileName);
}

std::string SharedFile::timestamp2string(long seconds)
{
    const std::time_t t = seconds;
    std::tm local {};
    char buffer[60] = {};
    if (localtime_r(&t, &local))
        std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S", &local);
    return buffer;
}

void SharedFile::write(FullEntry const& entry)
{
    if (diskFull || !lock())
        return;
    writeLocked(entry);
    unlock();
}

bool SharedFile::tryWriteFor(FullEntry const& entry, long milliseconds)
{
    if (diskFull)
        return true;
    if (!tryLockFor(milliseconds))
        return false;
    writeLocked(entry);
    unlock();
    return true;
}

void SharedFile::writeLocked(FullEntry const& entry)
{
    try {
        if (++writeCounter > s_WritesPerDiskCheck) {
            diskFull = s_RequiredFreeMiB > getFreeDiskSpace();
            if (diskFull) {
                // 500.0 goes through the scientific stream format and reads 5.00000e+02, as intended.
                stream.seekp(0, std::ios::end);
                stream << "# Not enough disk space left. At least " << s_RequiredFreeMiB << "MB are required.\n"
                       << "# To resume logging close all applications using the Zel VISA, free disk space and restart."
                       << '\n';
                stream.flush();
            }
            writeCounter = 0;
        }
        if (!diskFull) {
            stream.seekp(0, std::ios::end);
            stream << entry.id << '\t' << timestamp2string(entry.timestamp) << '\t' << entry.elapsedTime << '\t'
                   << entry.pid << '\t' << entry.threadId << '\t' << entry.session << '\t';
            stream.write(entry.address, static_cast<std::streamsize>(strnlen(entry.address, sizeof entry.address)));
            stream << '\t' << entry.duration << '\t' << entry.kind << '\t' << entry.status << '\t' << '"';
            if (hasTerminator(entry.text))
                stream << entry.text;
            stream << '"' << '\n';
            stream.flush();
        }
    } catch (...) {
        // A log line is never worth taking the traced process down.
    }
}

} // namespace ZelTracer
