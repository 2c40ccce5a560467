// The process-wide handle behind the C functions of zeltrace.h: one TraceProducer on the segment
// named by the environment, shared by every thread of the process.

#include "zeltrace.h"

#include "TraceProducer.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>

using namespace ZelTracer;

namespace {

struct Settings
{
    int key = s_VisaSharedMemoryKey;
    std::string semaphore = s_SharedMemoryMutexName;
    std::string fileSemaphore = s_SharedFileMutexName;
};

Settings settingsFromEnvironment()
{
    Settings s;
    if (const char* key = std::getenv("ZELTRACE_KEY")) {
        char* end = nullptr;
        const long value = std::strtol(key, &end, 0);
        if (end != key && *end == '\0')
            s.key = static_cast<int>(value);
    }
    if (const char* name = std::getenv("ZELTRACE_SEMAPHORE"); name && *name)
        s.semaphore = name;
    if (const char* name = std::getenv("ZELTRACE_FILE_SEMAPHORE"); name && *name)
        s.fileSemaphore = name;
    return s;
}

double monotonicSeconds()
{
    timespec now {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

struct Handle
{
    explicit Handle(Settings const& s)
        : producer(s.key, s_VisaSharedMemorySize, s.semaphore, s.fileSemaphore)
        , pid(static_cast<std::uint32_t>(getpid()))
        , started(monotonicSeconds())
    {
        if (!producer.hasLock())
            problem = producer.lockProblem();
        else if (!producer.hasSegment())
            problem = producer.segmentProblem();
    }

    TraceProducer producer;
    std::atomic<std::uint32_t> pid;
    std::atomic<std::uint64_t> nextId {1};
    double started;
    std::string problem;
};

std::mutex s_setupMutex;
Settings* s_settings = nullptr; // set by zeltrace_configure before the handle exists
std::atomic<Handle*> s_handle {nullptr};
// Bumped in a forked child, whose threads have new ids.
std::atomic<std::uint32_t> s_forkGeneration {0};

void afterForkInChild()
{
    s_forkGeneration.fetch_add(1, std::memory_order_relaxed);
    if (Handle* h = s_handle.load(std::memory_order_acquire)) {
        h->pid.store(static_cast<std::uint32_t>(getpid()), std::memory_order_relaxed);
        h->producer.restartSequence();
    }
}

// Never destroyed: threads of the process may still trace while static destructors run at exit.
Handle& handle()
{
    Handle* h = s_handle.load(std::memory_order_acquire);
    if (h)
        return *h;
    std::lock_guard<std::mutex> guard(s_setupMutex);
    h = s_handle.load(std::memory_order_relaxed);
    if (!h) {
        h = new Handle(s_settings ? *s_settings : settingsFromEnvironment());
        pthread_atfork(nullptr, nullptr, afterForkInChild);
        s_handle.store(h, std::memory_order_release);
    }
    return *h;
}

std::uint32_t threadId()
{
    thread_local std::uint32_t id = 0;
    thread_local std::uint32_t generation = ~0u;
    const std::uint32_t current = s_forkGeneration.load(std::memory_order_relaxed);
    if (generation != current) {
        id = static_cast<std::uint32_t>(syscall(SYS_gettid));
        generation = current;
    }
    return id;
}

void copyText(char* to, std::size_t capacity, char const* from)
{
    const std::size_t n = from ? strnlen(from, capacity - 1) : 0;
    std::memcpy(to, from ? from : "", n);
    to[n] = '\0';
}

} // namespace

extern "C" {

__attribute__((visibility("default"))) int zeltrace_configure(int key, const char* semaphore,
                                                              const char* file_semaphore)
{
    std::lock_guard<std::mutex> guard(s_setupMutex);
    if (s_handle.load(std::memory_order_relaxed))
        return -1;
    static Settings settings;
    settings = settingsFromEnvironment();
    settings.key = key;
    if (semaphore)
        settings.semaphore = semaphore;
    if (file_semaphore)
        settings.fileSemaphore = file_semaphore;
    s_settings = &settings;
    return 0;
}

__attribute__((visibility("default"))) int zeltrace_enabled(void)
{
    return handle().producer.tracingRequested() ? 1 : 0;
}

__attribute__((visibility("default"))) uint64_t zeltrace_next_id(void)
{
    return handle().nextId.fetch_add(1, std::memory_order_relaxed);
}

__attribute__((visibility("default"))) int zeltrace_record(uint64_t id, uint32_t kind, uint32_t session,
                                                           const char* address, int32_t status, double duration,
                                                           const char* text)
{
    Handle& h = handle();
    if (!h.producer.tracingRequested())
        return h.problem.empty() ? ZELTRACE_INACTIVE : ZELTRACE_NO_SEGMENT;
    FullEntry entry;
    entry.id = id;
    entry.reserved = 0;
    entry.pid = h.pid.load(std::memory_order_relaxed);
    entry.threadId = threadId();
    entry.duration = duration;
    entry.status = status;
    entry.kind = kind;
    entry.session = session;
    std::memset(entry.address, 0, sizeof entry.address);
    copyText(entry.address, sizeof entry.address, address);
    timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    entry.timestamp = now.tv_sec;
    entry.timestampFraction = static_cast<double>(now.tv_nsec) * 1e-9;
    entry.elapsedTime = monotonicSeconds() - h.started;
    entry.continued = 0;
    copyText(entry.text, sizeof entry.text, text);
    switch (h.producer.write(entry)) {
    case TraceProducer::Outcome::Written:
        return ZELTRACE_WRITTEN;
    case TraceProducer::Outcome::Dropped:
        return ZELTRACE_DROPPED;
    case TraceProducer::Outcome::Filtered:
        return ZELTRACE_FILTERED;
    case TraceProducer::Outcome::Inactive:
        return ZELTRACE_INACTIVE;
    case TraceProducer::Outcome::NoSegment:
        break;
    }
    return ZELTRACE_NO_SEGMENT;
}

__attribute__((visibility("default"))) int zeltrace_get_counters(zeltrace_counters* out)
{
    if (!out)
        return -1;
    TraceProducer const& p = handle().producer;
    out->written = p.getWritten();
    out->dropped = p.getDropped();
    out->file_dropped = p.getFileDropped();
    out->sequence = p.getSequence();
    return 0;
}

__attribute__((visibility("default"))) const char* zeltrace_problem(void)
{
    return handle().problem.c_str();
}

} // extern "C"
