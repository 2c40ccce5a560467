#pragma once

#include "TraceRecord.h"

#include <semaphore.h>

#include <cstdint>
#include <fstream>
#include <functional>
#include <string>

namespace ZelTracer {

// Appends trace records to the shared log file. Several processes write the same file, so every
// line is written under a named semaphore with a seek to the end and a flush. Once less than
// 500 MB remain free, the writer stops for the rest of its process's life.
class SharedFile
{
public:
    // Free space in MiB of the file system that holds the given file name.
    using FreeSpaceQuery = std::function<double(std::string const& fileName)>;

    explicit SharedFile(std::string const& semaphoreName = s_SharedFileMutexName);
    ~SharedFile();
    SharedFile(SharedFile const&) = delete;
    SharedFile& operator=(SharedFile const&) = delete;

    void openFile(std::string const& name);
    void closeFile();
    // Waits without limit, and the lock is never broken: a writer that finds it taken trusts the
    // holder to finish its line.
    bool lock();
    // The bounded variant for traced programs, which must never hang behind a writer that died
    // holding the lock: false when the lock was not free within `milliseconds`.
    bool tryLockFor(long milliseconds);
    bool unlock();
    double getFreeDiskSpace();
    static std::string timestamp2string(long seconds);
    void write(FullEntry const& entry);
    // As write(), but gives up after waiting `milliseconds` for the lock; false when the line was
    // not written for that reason.
    bool tryWriteFor(FullEntry const& entry, long milliseconds);

    std::string const& getFileName() const { return fileName; }
    bool isDiskFull() const { return diskFull; }
    bool hasLock() const { return semaphore != nullptr; }
    std::string const& lockProblem() const { return problem; }
    // Tests replace the statvfs query so that the disk-full path can be reached without a full disk.
    void setFreeSpaceQuery(FreeSpaceQuery query) { freeSpaceQuery = std::move(query); }

    static constexpr double s_RequiredFreeMiB = 500.0;
    static constexpr std::uint32_t s_WritesPerDiskCheck = 10000;

private:
    void writeLocked(FullEntry const& entry);

    std::string fileName;
    sem_t* semaphore = nullptr;
    std::ofstream stream;
    std::uint32_t writeCounter = s_WritesPerDiskCheck + 1; // the very first write checks the disk
    bool diskFull = false;
    FreeSpaceQuery freeSpaceQuery;
    std::string problem;
};

} // namespace ZelTracer
