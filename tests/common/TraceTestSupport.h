#pragma once

#include "SharedMemory.h"
#include "TestNames.h"
#include "TraceChannelControl.h"
#include "TraceRecord.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

// A private segment and semaphore pair for one test, removed again when the test ends.
struct PrivateSegment
{
    explicit PrivateSegment(int tag)
        : key(TestNames::segmentKey(tag))
        , semaphore(TestNames::semaphoreName(("seg" + std::to_string(tag)).c_str()))
        , fileSemaphore(TestNames::semaphoreName(("file" + std::to_string(tag)).c_str()))
    {
        remove();
    }
    ~PrivateSegment() { remove(); }
    void remove() const
    {
        TestNames::removeSegment(key);
        TestNames::unlinkSemaphore(semaphore);
        TestNames::unlinkSemaphore(fileSemaphore);
    }

    int key;
    std::string semaphore;
    std::string fileSemaphore;
};

// Raw access to a segment, for writing what a broken or hostile producer would write.
class RawSegment
{
public:
    RawSegment(PrivateSegment const& segment, unsigned long size = ZelTracer::s_VisaSharedMemorySize)
        : memory(segment.key, segment.semaphore)
    {
        memory.create(size, ZelTracer::SharedMemory::ReadWrite);
    }
    ZelTracer::SharedMemoryHeader& header()
    {
        return *static_cast<ZelTracer::SharedMemoryHeader*>(memory.getAddress());
    }
    ZelTracer::SlotEntry& slot(std::uint32_t i)
    {
        return *reinterpret_cast<ZelTracer::SlotEntry*>(static_cast<char*>(memory.getAddress())
                                                        + ZelTracer::s_HeaderSize + i * ZelTracer::s_SlotSize);
    }
    ZelTracer::SharedMemory memory;
};

// A private segment as the tool sees it through its channel control, with raw access beside it.
struct ControlledSegment
{
    explicit ControlledSegment(int tag)
        : segment(tag)
        , control(segment.key, ZelTracer::s_VisaSharedMemorySize, segment.semaphore)
        , raw(segment)
    { }
    ZelTracer::SlotEntry& slot(std::uint32_t i) { return raw.slot(i); }
    ZelTracer::SharedMemoryHeader& header() { return raw.header(); }

    PrivateSegment segment;
    ZelTracer::TraceChannelControl control;
    RawSegment raw;
};

// Runs the body in a forked child and returns whether it exited with status 0, i.e. the body
// returned true. The child leaves through _exit so that no test state is torn down twice.
template<class Body> bool passesInChild(Body body)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(body() ? 0 : 1);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// A process that dies holding a lock: the child runs `take`, which takes the lock and must keep
// it (leak the object), and is killed once it has. Returns whether the child got the lock.
template<class Take> bool killedHolding(Take take)
{
    int ready[2];
    if (pipe(ready) != 0)
        return false;
    const pid_t child = fork();
    if (child == 0) {
        const char ok = take() ? 1 : 0;
        (void)!::write(ready[1], &ok, 1);
        pause();
        _exit(0);
    }
    char ok = 0;
    const bool reported = ::read(ready[0], &ok, 1) == 1;
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(ready[0]);
    close(ready[1]);
    return reported && ok == 1;
}

// What this process writes to its standard error, from any thread, while `body` runs.
template<class Body> std::string stderrOf(Body body)
{
    FILE* file = std::tmpfile();
    std::fflush(stderr);
    const int saved = dup(STDERR_FILENO);
    dup2(fileno(file), STDERR_FILENO);
    body();
    std::fflush(stderr);
    dup2(saved, STDERR_FILENO);
    close(saved);
    std::string text;
    std::rewind(file);
    for (int c; (c = std::fgetc(file)) != EOF;)
        text += static_cast<char>(c);
    std::fclose(file);
    return text;
}

inline std::string fileText(std::string const& name)
{
    std::ifstream in(name, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

inline ZelTracer::FullEntry makeEntry(std::uint64_t id, std::uint32_t pid, std::uint32_t kind, const std::string& text)
{
    ZelTracer::FullEntry e;
    std::memset(&e, 0, sizeof e);
    e.id = id;
    e.pid = pid;
    e.threadId = pid + 1;
    e.kind = kind;
    e.session = 7;
    e.timestamp = 1700000000 + static_cast<std::int64_t>(id);
    e.timestampFraction = 0.25;
    e.elapsedTime = 1.5;
    e.duration = 0.001234567;
    e.status = -1073807339; // VI_ERROR_TMO
    std::strncpy(e.address, "GPIB0::22::INSTR", sizeof e.address - 1);
    std::strncpy(e.text, text.c_str(), sizeof e.text - 1);
    return e;
}

// A call (kind 0) or return (kind 1) of one thread, successful unless a status is given.
inline ZelTracer::FullEntry makeCall(std::uint32_t pid, std::uint32_t thread, std::uint64_t id, std::uint32_t kind,
                                     std::string const& text, std::int32_t status = 0)
{
    ZelTracer::FullEntry e = makeEntry(id, pid, kind, text);
    e.threadId = thread;
    e.status = status;
    return e;
}

// Walks the snapshot that the control holds and returns the full records it yields.
inline std::vector<ZelTracer::FullEntry> walk(ZelTracer::TraceChannelControl& control)
{
    std::vector<ZelTracer::FullEntry> records;
    const ZelTracer::BufferEntryIterator end = control.end();
    for (ZelTracer::BufferEntryIterator it = control.begin(); it != end && records.size() < 100000; ++it)
        records.push_back(**it);
    return records;
}

// Drains a segment as the tool does: the snapshot empties the ring while it still holds the lock,
// so tests can check that producers never lose or tear a record while the ring has room.
struct LosslessReader
{
    explicit LosslessReader(PrivateSegment const& segment)
        : control(segment.key, ZelTracer::s_VisaSharedMemorySize, segment.semaphore)
    { }
    std::vector<ZelTracer::FullEntry> drain()
    {
        control.copySharedMemory(true);
        return walk(control);
    }
    ZelTracer::TraceChannelControl control;
};
