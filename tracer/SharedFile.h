#pragma once

#include "LockPatience.h"
#include "TraceRecord.h"

#include <semaphore.h>

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>

namespace ZelTracer {

// The first line of every log the tool starts. Producers append only to a file that begins with it.
inline constexpr char s_LogHeaderLine[] = "# Logging to file activated\n";

// Opens the log file `name` for the tool's header (`create`: made if missing) or for a producer's
// lines (never made, and only when its first line is the tool's header line). Only a regular file on
// an absolute path without a symbolic link anywhere on it is opened, so that whoever can write the
// shared header cannot make a traced program write into a file of its choice. Returns a descriptor
// opened for appending, or -1 with the reason in `problem`.
int openLogFile(std::string const& name, bool create, std::string* problem = nullptr);

// Appends trace records to the shared log file. Several processes write the same file, so every
// line is written under a named semaphore, in one write to the end of the file. Once less than
// 500 MB remain free, the writer stops for the rest of its life.
class SharedFile
{
public:
    // Free space in MiB of the file system that holds the given file name.
    using FreeSpaceQuery = std::function<double(std::string const& fileName)>;

    explicit SharedFile(std::string const& semaphoreName = s_SharedFileMutexName);
    ~SharedFile();
    SharedFile(SharedFile const&) = delete;
    SharedFile& operator=(SharedFile const&) = delete;

    // Opens only a log the tool started (openLogFile); any other name leaves the writer closed, and
    // every line is then lost and counted by the producer. openProblem() says why.
    void openFile(std::string const& name);
    void closeFile();
    // Waits without limit, and the lock is never broken: a writer that finds it taken trusts the
    // holder to finish its line.
    bool lock();
    bool unlock();
    double getFreeDiskSpace();
    static std::string timestamp2string(long seconds);
    void write(FullEntry const& entry);
    // As write(), but for traced programs, which must never hang behind a writer that died holding
    // the lock: waits within the bounds, and breaks a lock that stays taken for as long as the segment
    // lock would. False when the line was not written, for any reason.
    bool writeWithin(FullEntry const& entry, LockBounds const& bounds);

    std::string const& getFileName() const { return fileName; }
    bool isOpen() const { return descriptor >= 0; }
    std::string const& openProblem() const { return problem; }
    // The name now leads to another file than the one open (it was removed, or a new log started
    // under the same name).
    bool isReplaced() const;
    bool isDiskFull() const { return diskFull; }
    bool hasLock() const { return semaphore != nullptr; }
    std::string const& lockProblem() const { return semaphoreProblem; }
    // Tests replace the statvfs query so that the disk-full path can be reached without a full disk.
    void setFreeSpaceQuery(FreeSpaceQuery query) { freeSpaceQuery = std::move(query); }

    // Free MiB below which nothing is logged; also what the tool warns about.
    static constexpr double s_RequiredFreeMiB = 500.0;
    static constexpr std::uint32_t s_WritesPerDiskCheck = 10000;
    // Why a producer would not append to this log now (see openLogFile, and the disk), or empty.
    static std::string appendProblem(std::string const& name, FreeSpaceQuery const& query = statvfsFreeMiB);
    static double statvfsFreeMiB(std::string const& fileName);

private:
    bool writeLocked(FullEntry const& entry);
    bool append(char const* text, std::size_t length);

    std::string fileName;
    sem_t* semaphore = nullptr;
    int descriptor = -1;
    std::uint32_t writeCounter = s_WritesPerDiskCheck + 1; // the very first write checks the disk
    bool diskFull = false;
    FreeSpaceQuery freeSpaceQuery;
    LockPatience patience;
    std::string problem;
    std::string semaphoreProblem;
    // The last timestamp formatted, since many lines share a second.
    std::time_t lastSecond = -1;
    char lastSecondText[32] = {};
};

} // namespace ZelTracer
