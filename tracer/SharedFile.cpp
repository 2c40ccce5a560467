#include "SharedFile.h"
#include "SharedMemory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace ZelTracer {

namespace {

constexpr std::size_t s_HeaderLineLength = sizeof s_LogHeaderLine - 1;

// Walks the path one name at a time, refusing a symbolic link at every step: O_NOFOLLOW alone
// guards the last name only.
int openWithoutLinks(std::string const& name, int flags, std::string& why)
{
    if (name.empty() || name[0] != '/') {
        why = "is not an absolute path";
        return -1;
    }
    int directory = open("/", O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0) {
        why = std::strerror(errno);
        return -1;
    }
    std::size_t start = 1;
    for (;;) {
        const std::size_t slash = name.find('/', start);
        const std::string part = name.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
        if (slash == std::string::npos) {
            // O_NONBLOCK: a FIFO must not hang the writer until somebody reads it.
            const int fd = part.empty()
                ? -1
                : openat(directory, part.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, 0666);
            if (part.empty())
                why = "names a folder";
            else if (fd < 0)
                why = errno == ELOOP ? "is a symbolic link"
                                     : "cannot be opened (" + std::string(std::strerror(errno)) + ")";
            close(directory);
            return fd;
        }
        if (!part.empty() && part != ".") {
            const int next = openat(directory, part.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            close(directory);
            if (next < 0) {
                why = errno == ENOTDIR ? "has a symbolic link or a file among its folders"
                                       : "cannot be reached (" + std::string(std::strerror(errno)) + ")";
                return -1;
            }
            directory = next;
        }
        start = slash + 1;
    }
}

// Control characters other than TAB would split a record over several lines (an instrument's reply
// holds line breaks): they are written escaped, so that one record is always one line. TAB and the
// double quote pass through as the format has them.
char* appendEscaped(char* out, char const* text, std::size_t length)
{
    static const char hex[] = "0123456789ABCDEF";
    for (std::size_t i = 0; i < length; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if ((c >= 0x20 && c != 0x7F) || c == '\t') {
            *out++ = static_cast<char>(c);
        } else if (c == '\n' || c == '\r') {
            *out++ = '\\';
            *out++ = c == '\n' ? 'n' : 'r';
        } else {
            *out++ = '\\';
            *out++ = 'x';
            *out++ = hex[c >> 4];
            *out++ = hex[c & 15];
        }
    }
    return out;
}

template<class T> char* appendFormatted(char* out, char const* end, char const* format, T value)
{
    const int n = std::snprintf(out, static_cast<std::size_t>(end - out), format, value);
    return out + (n > 0 ? std::min<std::ptrdiff_t>(n, end - out - 1) : 0);
}

// Doubles as the stream wrote them with the scientific format and five digits: 1.23457e-03.
constexpr char s_DoubleFormat[] = "%.5e";

void formatLocalTime(std::time_t seconds, char (&text)[32])
{
    std::tm local {};
    text[0] = '\0';
    if (localtime_r(&seconds, &local))
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
}

} // namespace

int openLogFile(std::string const& name, bool create, std::string* problem)
{
    std::string why;
    const int fd = openWithoutLinks(name, create ? O_WRONLY | O_APPEND | O_CREAT : O_RDWR | O_APPEND, why);
    struct stat info
    {
    };
    if (fd >= 0 && (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)))
        why = "is not a regular file";
    char first[s_HeaderLineLength];
    if (why.empty() && !create
        && (pread(fd, first, sizeof first, 0) != static_cast<ssize_t>(sizeof first)
            || std::memcmp(first, s_LogHeaderLine, sizeof first) != 0))
        why = "does not begin with the tool's header line \"# Logging to file activated\"";
    if (why.empty())
        return fd;
    if (fd >= 0)
        close(fd);
    if (problem)
        *problem = "The log file " + name + " " + why + ".";
    return -1;
}

double SharedFile::statvfsFreeMiB(std::string const& fileName)
{
    const std::size_t slash = fileName.find_last_of("\\/");
    const std::string directory = slash == std::string::npos ? fileName : fileName.substr(0, slash);
    struct statvfs info;
    if (statvfs(directory.c_str(), &info) != 0)
        return 0.0;
    return static_cast<double>(info.f_bsize * info.f_bavail) * (1.0 / 1024) * (1.0 / 1024);
}

std::string SharedFile::appendProblem(std::string const& name, FreeSpaceQuery const& query)
{
    std::string why;
    const int fd = openLogFile(name, false, &why);
    if (fd < 0)
        return why;
    close(fd);
    if (s_RequiredFreeMiB > query(name))
        return "Less than 500 MB are free on the disk of the log file " + name
            + ": the traced programs write nothing more into it.";
    return std::string();
}

SharedFile::SharedFile(std::string const& semaphoreName)
    : freeSpaceQuery(statvfsFreeMiB)
{
    // Without the semaphore nothing is written: lines of several processes would interleave.
    semaphore = openSharedSemaphore(semaphoreName, &semaphoreProblem);
}

SharedFile::~SharedFile()
{
    closeFile();
    if (semaphore)
        sem_close(semaphore);
}

// The log is opened only as the tool started it, never created: anyone can write the name into the
// shared header, and a traced program must not become a writer into files of that one's choice.
void SharedFile::openFile(std::string const& name)
{
    if (name.empty())
        return;
    closeFile();
    problem.clear();
    descriptor = openLogFile(name, false, &problem);
    fileName = name;
}

void SharedFile::closeFile()
{
    if (descriptor >= 0)
        close(descriptor);
    descriptor = -1;
}

bool SharedFile::isReplaced() const
{
    struct stat open
    {
    }, named {};
    return descriptor >= 0
        && (fstat(descriptor, &open) != 0 || lstat(fileName.c_str(), &named) != 0 || open.st_ino != named.st_ino
            || open.st_dev != named.st_dev);
}

bool SharedFile::lock()
{
    return semaphore && sem_wait(semaphore) == 0;
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
    char text[32];
    formatLocalTime(seconds, text);
    return text;
}

void SharedFile::write(FullEntry const& entry)
{
    if (diskFull || !lock())
        return;
    writeLocked(entry);
    unlock();
}

bool SharedFile::writeWithin(FullEntry const& entry, LockBounds const& bounds)
{
    if (diskFull || descriptor < 0 || !acquireWithin(semaphore, patience, bounds, false))
        return false;
    const bool written = writeLocked(entry);
    unlock();
    return written;
}

bool SharedFile::append(char const* text, std::size_t length)
{
    while (length > 0) {
        const ssize_t n = ::write(descriptor, text, length);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            // Most likely a full disk: the next line checks the free space at once.
            writeCounter = s_WritesPerDiskCheck;
            return false;
        }
        text += n;
        length -= static_cast<std::size_t>(n);
    }
    return true;
}

// One line is formatted into one buffer and written in one call: no allocation per record, and an
// append of a whole line, even by writers that do not share this lock.
bool SharedFile::writeLocked(FullEntry const& entry)
{
    if (descriptor < 0)
        return false;
    if (++writeCounter > s_WritesPerDiskCheck) {
        diskFull = s_RequiredFreeMiB > getFreeDiskSpace();
        if (diskFull) {
            // 500.0 goes through the scientific format and reads 5.00000e+02, as intended.
            static const char message[] = "# Not enough disk space left. At least 5.00000e+02MB are required.\n"
                                          "# To resume logging close all applications using the Zel VISA, free "
                                          "disk space and restart.\n";
            append(message, sizeof message - 1);
        }
        writeCounter = 0;
    }
    if (diskFull)
        return false;
    // Escaped, a byte takes at most four characters.
    char line[64 * 11 + 4 * (sizeof entry.address + sizeof entry.text)];
    char const* const end = line + sizeof line;
    char* out = appendFormatted(line, end, "%" PRIu64 "\t", entry.id);
    if (entry.timestamp != lastSecond) {
        formatLocalTime(entry.timestamp, lastSecondText);
        lastSecond = entry.timestamp;
    }
    out = appendFormatted(out, end, "%s\t", lastSecondText);
    out = appendFormatted(out, end, s_DoubleFormat, entry.elapsedTime);
    out = appendFormatted(out, end, "\t%" PRIu32, entry.pid);
    out = appendFormatted(out, end, "\t%" PRIu32, entry.threadId);
    out = appendFormatted(out, end, "\t%" PRIu32 "\t", entry.session);
    out = appendEscaped(out, entry.address, strnlen(entry.address, sizeof entry.address));
    *out++ = '\t';
    out = appendFormatted(out, end, s_DoubleFormat, entry.duration);
    out = appendFormatted(out, end, "\t%" PRIu32, entry.kind);
    out = appendFormatted(out, end, "\t%" PRId32 "\t\"", entry.status);
    if (hasTerminator(entry.text))
        out = appendEscaped(out, entry.text, strnlen(entry.text, sizeof entry.text));
    *out++ = '"';
    *out++ = '\n';
    return append(line, static_cast<std::size_t>(out - line));
}

} // namespace ZelTracer
