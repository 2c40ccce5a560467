// zel-traffic: writes realistic VISA call traffic into the trace segment, the way traced processes
// do, for the demo, the tests and the benchmarks.

#include "TraceChannelControl.h"
#include "TraceProducer.h"

#include <getopt.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace ZelTracer;

namespace {

std::atomic<bool> s_stop {false};

void requestStop(int)
{
    s_stop = true;
}

struct Options
{
    double rate = 100; // records per second and thread; 0 = as fast as possible
    std::uint64_t count = 0; // records per thread; 0 = no limit
    double duration = 0; // seconds; 0 = no limit
    int processes = 1;
    int threads = 1;
    std::uint32_t seed = 1;
    int key = s_VisaSharedMemoryKey;
    std::string semaphore = s_SharedMemoryMutexName;
    std::string fileSemaphore = s_SharedFileMutexName;
    bool enable = false;
    bool quiet = false;
};

void printHelp()
{
    std::printf("Usage: zel-traffic [options]\n"
                "Writes simulated VISA calls (a call record, then its return record) into the trace segment.\n\n"
                "  --rate N             records per second and thread (default 100; 0 = as fast as possible)\n"
                "  --count N            records per thread, then stop (default: no limit)\n"
                "  --duration S         stop after S seconds (default: no limit; SIGINT/SIGTERM also stop it)\n"
                "  --processes N        number of traced processes to simulate (default 1)\n"
                "  --threads N          threads per process (default 1)\n"
                "  --seed N             random seed, for repeatable traffic (default 1)\n"
                "  --key N              System V key of the trace segment (default 894129)\n"
                "  --semaphore NAME     segment semaphore (default \"/ZelTracerSharedMemoryMutex;\")\n"
                "  --file-semaphore NAME  log-file semaphore (default \"/ZelTracerSharedFileMutex;\")\n"
                "  --enable             switch tracing on in the segment header first\n"
                "  --quiet              print only the closing summary\n"
                "  --help               this text\n\n"
                "Records are only written while tracing is on (the tool switches it on, or --enable).\n"
                "At exit it prints: written N dropped M\n");
}

bool parse(int argc, char** argv, Options& o)
{
    enum
    {
        Rate = 1,
        Count,
        Duration,
        Processes,
        Threads,
        Seed,
        Key,
        Semaphore,
        FileSemaphore,
        Enable,
        Quiet,
        Help
    };
    static const option longOptions[] = {
        {"rate", required_argument, nullptr, Rate},
        {"count", required_argument, nullptr, Count},
        {"duration", required_argument, nullptr, Duration},
        {"processes", required_argument, nullptr, Processes},
        {"threads", required_argument, nullptr, Threads},
        {"seed", required_argument, nullptr, Seed},
        {"key", required_argument, nullptr, Key},
        {"semaphore", required_argument, nullptr, Semaphore},
        {"file-semaphore", required_argument, nullptr, FileSemaphore},
        {"enable", no_argument, nullptr, Enable},
        {"quiet", no_argument, nullptr, Quiet},
        {"help", no_argument, nullptr, Help},
        {nullptr, 0, nullptr, 0},
    };
    int c;
    while ((c = getopt_long(argc, argv, "", longOptions, nullptr)) != -1) {
        switch (c) {
        case Rate:
            o.rate = std::strtod(optarg, nullptr);
            break;
        case Count:
            o.count = std::strtoull(optarg, nullptr, 10);
            break;
        case Duration:
            o.duration = std::strtod(optarg, nullptr);
            break;
        case Processes:
            o.processes = std::atoi(optarg);
            break;
        case Threads:
            o.threads = std::atoi(optarg);
            break;
        case Seed:
            o.seed = static_cast<std::uint32_t>(std::strtoul(optarg, nullptr, 10));
            break;
        case Key:
            o.key = static_cast<int>(std::strtol(optarg, nullptr, 0));
            break;
        case Semaphore:
            o.semaphore = optarg;
            break;
        case FileSemaphore:
            o.fileSemaphore = optarg;
            break;
        case Enable:
            o.enable = true;
            break;
        case Quiet:
            o.quiet = true;
            break;
        case Help:
            printHelp();
            std::exit(0);
        default:
            return false;
        }
    }
    return optind == argc && o.processes >= 1 && o.processes <= 64 && o.threads >= 1 && o.threads <= 64 && o.rate >= 0;
}

const char* const s_Addresses[] = {
    "TCPIP0::192.168.1.20::inst0::INSTR",
    "USB0::0x0957::0x1796::MY12345678::INSTR",
    "GPIB0::22::INSTR",
    "ASRL1::INSTR",
    "TCPIP0::10.0.0.5::5025::SOCKET",
    "TCPIP0::scope-lab3.local::hislip0::INSTR",
};

const char* const s_Queries[][2] = {
    {"*IDN?\\n", "Zelbrook,DMM6500,04411234,1.7.5b\\n"},
    {":MEASure:VOLTage:DC?\\n", "+1.234567E+00\\n"},
    {"SYSTem:ERRor?\\n", "+0,\\\"No error\\\"\\n"},
    {":FETCh:ARRay? 1\\n", "-0.0012,0.0031,0.0025\\n"},
    {"*OPC?\\n", "1\\n"},
};

const char* const s_Writes[]
    = {"*RST\\n", "*CLS\\n", ":SENSe:VOLTage:RANGe 10\\n", ":TRIGger:SOURce BUS\\n", "OUTPut ON\\n"};

// In the form the view reduces to name and value: "attribute=NAME, value=VALUE".
const char* const s_Attributes[] = {"attribute=VI_ATTR_TMO_VALUE, value=5000", "attribute=VI_ATTR_TERMCHAR_EN, value=1",
                                    "attribute=VI_ATTR_TERMCHAR, value=10", "attribute=VI_ATTR_SEND_END_EN, value=1"};

constexpr std::int32_t s_Success = 0;
constexpr std::int32_t s_SuccessTermChar = 0x3FFF0005;
constexpr std::int32_t s_ErrorTimeout = static_cast<std::int32_t>(0xBFFF0015u);
constexpr std::int32_t s_ErrorNotFound = static_cast<std::int32_t>(0xBFFF0011u);

// One simulated thread of a traced process: opens instruments, talks SCPI to them, closes them.
class Simulator
{
public:
    Simulator(Options const& options, TraceProducer& producer, std::atomic<std::uint64_t>& nextId, std::uint32_t seed)
        : options(options)
        , producer(producer)
        , nextId(nextId)
        , random(seed)
        , started(std::chrono::steady_clock::now())
    {
        std::memset(&entry, 0, sizeof entry);
        entry.pid = static_cast<std::uint32_t>(getpid());
        entry.threadId = static_cast<std::uint32_t>(syscall(SYS_gettid));
    }

    void run()
    {
        call(1, "", s_Success, "viOpenDefaultRM(1)");
        while (!finished()) {
            const char* address = pick(s_Addresses);
            const std::uint32_t session = 2 + static_cast<std::uint32_t>(random() % 200);
            if (chance(5)) {
                call(1, address, s_ErrorNotFound, "viOpen(1, \"%s\", 0, 2000, 0)", address);
                continue;
            }
            call(1, address, s_Success, "viOpen(1, \"%s\", 0, 2000, %u)", address, session);
            call(session, address, s_Success, "viSetAttribute(%u, %s)", session, pick(s_Attributes));
            const int exchanges = 1 + static_cast<int>(random() % 6);
            for (int i = 0; i < exchanges && !finished(); ++i)
                exchange(session, address);
            call(session, address, s_Success, "viGetAttribute(%u, attribute=VI_ATTR_INTF_TYPE, value=6)", session);
            call(session, address, s_Success, "viClose(%u)", session);
        }
    }

    std::uint64_t records() const { return produced; }

private:
    template<std::size_t N> const char* pick(const char* const (&list)[N]) { return list[random() % N]; }
    bool chance(int percent) { return static_cast<int>(random() % 100) < percent; }

    void exchange(std::uint32_t session, const char* address)
    {
        if (chance(10)) {
            // A long list download that spans several slots of the segment.
            std::string list = ":SOURce:LIST:VOLTage ";
            const int points = 40 + static_cast<int>(random() % 120);
            char value[16];
            for (int p = 0; p < points; ++p) {
                std::snprintf(value, sizeof value, "%s%.3f", p ? "," : "", (random() % 10000) / 1000.0);
                list += value;
            }
            call(session, address, s_Success, "viWrite(%u, \"%s\\n\", %zu, %zu)", session, list.c_str(),
                 list.size() + 1, list.size() + 1);
            return;
        }
        if (chance(30)) {
            const char* command = pick(s_Writes);
            call(session, address, s_Success, "viWrite(%u, \"%s\", %zu, %zu)", session, command,
                 std::strlen(command) - 1, std::strlen(command) - 1);
            return;
        }
        const auto& query = s_Queries[random() % (sizeof s_Queries / sizeof s_Queries[0])];
        call(session, address, s_Success, "viWrite(%u, \"%s\", %zu, %zu)", session, query[0], std::strlen(query[0]) - 1,
             std::strlen(query[0]) - 1);
        if (chance(4))
            call(session, address, s_ErrorTimeout, "viRead(%u, \"\", 1024, 0)", session);
        else
            call(session, address, s_SuccessTermChar, "viRead(%u, \"%s\", 1024, %zu)", session, query[1],
                 std::strlen(query[1]) - 1);
    }

    // A call record, then its return record with the call's status, stamped when it returns and with
    // the time between the two as its duration, as a traced program measures it. The call takes its
    // simulated time for real (a 2 s timeout returns 2 s later) as far as the rate leaves room: at
    // higher rates every call is shorter alike, and as fast as possible (rate 0) it takes no time.
    template<class... Args>
    void call(std::uint32_t session, const char* address, std::int32_t status, const char* format, Args... args)
    {
        if (finished())
            return;
        std::snprintf(entry.text, sizeof entry.text, format, args...);
        std::snprintf(entry.address, sizeof entry.address, "%s", address);
        entry.id = nextId++;
        entry.session = session;
        const double simulated = status == s_ErrorTimeout ? 2.0 : 20e-6 * (1 + random() % 500);
        const double scale = options.rate > 0 ? std::min(1.0, (1.0 / options.rate) / s_MeanCallSeconds) : 0.0;
        const auto called = std::chrono::system_clock::now();
        emit(0, 0.0, s_Success, called);
        const auto wait = std::chrono::duration<double>(simulated * scale);
        // Shorter waits than the scheduler keeps are not worth a sleep.
        if (wait > std::chrono::microseconds(200))
            std::this_thread::sleep_for(wait);
        const auto returned = std::chrono::system_clock::now();
        if (!finished())
            emit(1, std::chrono::duration<double>(returned - called).count(), status, returned);
        // Between calls, not inside one: the wait for the rate is no part of a call's duration.
        pace();
    }

    void emit(std::uint32_t kind, double duration, std::int32_t status, std::chrono::system_clock::time_point when)
    {
        const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(when.time_since_epoch()).count();
        entry.kind = kind;
        entry.duration = duration;
        entry.status = status;
        entry.timestamp = micros / 1000000;
        entry.timestampFraction = static_cast<double>(micros % 1000000) / 1e6;
        entry.elapsedTime = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        producer.write(entry);
        ++produced;
    }

    void pace()
    {
        if (options.rate <= 0)
            return;
        const auto due = started + std::chrono::duration<double>(produced / options.rate);
        std::this_thread::sleep_until(std::chrono::time_point_cast<std::chrono::steady_clock::duration>(due));
    }

    bool finished() const
    {
        if (s_stop)
            return true;
        if (options.count && produced >= options.count)
            return true;
        return options.duration > 0
            && std::chrono::steady_clock::now() - started >= std::chrono::duration<double>(options.duration);
    }

    Options const& options;
    TraceProducer& producer;
    std::atomic<std::uint64_t>& nextId;
    std::mt19937 random;
    std::chrono::steady_clock::time_point started;
    // The mean simulated time of a call (mostly a few ms, 2 s now and then): calls at a rate of one
    // per this much or slower take their simulated time; faster ones a part of it.
    static constexpr double s_MeanCallSeconds = 0.05;
    FullEntry entry;
    std::uint64_t produced = 0;
};

struct Totals
{
    std::uint64_t written = 0;
    std::uint64_t dropped = 0;
};

Totals runProcess(Options const& options, int processIndex)
{
    std::atomic<std::uint64_t> nextId {1};
    // One producer per process, shared by its threads, as a traced program has: the process's
    // records then form one numbered sequence.
    TraceProducer producer(options.key, s_VisaSharedMemorySize, options.semaphore, options.fileSemaphore);
    std::vector<std::thread> threads;
    for (int t = 0; t < options.threads; ++t) {
        threads.emplace_back(
            [&, t] { Simulator(options, producer, nextId, options.seed * 7919u + processIndex * 131u + t).run(); });
    }
    for (std::thread& thread : threads)
        thread.join();
    Totals totals;
    totals.written = producer.getWritten();
    totals.dropped = producer.getDropped();
    if (!options.quiet)
        std::printf("pid %d: written %" PRIu64 " dropped %" PRIu64 "\n", getpid(), totals.written, totals.dropped);
    return totals;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    if (!parse(argc, argv, options)) {
        std::fprintf(stderr, "zel-traffic: invalid arguments (see --help)\n");
        return 2;
    }
    struct sigaction action
    {
    };
    action.sa_handler = requestStop;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);

    if (options.enable)
        TraceChannelControl(options.key, s_VisaSharedMemorySize, options.semaphore).setTracingActive(true);

    Totals totals;
    if (options.processes == 1) {
        totals = runProcess(options, 0);
    } else {
        // Every simulated process reports its totals to this one through a pipe.
        int fds[2];
        if (pipe(fds) != 0)
            return 1;
        std::vector<pid_t> children;
        for (int p = 0; p < options.processes; ++p) {
            const pid_t child = fork();
            if (child == 0) {
                close(fds[0]);
                const Totals mine = runProcess(options, p);
                const ssize_t ignored = ::write(fds[1], &mine, sizeof mine);
                (void)ignored;
                _exit(0);
            }
            if (child > 0)
                children.push_back(child);
        }
        close(fds[1]);
        for (std::size_t done = 0; done < children.size();) {
            int status;
            const pid_t child = waitpid(-1, &status, 0);
            if (child > 0) {
                ++done;
            } else if (errno == EINTR && s_stop) {
                for (pid_t c : children)
                    kill(c, SIGTERM);
            } else if (errno != EINTR) {
                break;
            }
        }
        Totals part;
        while (read(fds[0], &part, sizeof part) == static_cast<ssize_t>(sizeof part)) {
            totals.written += part.written;
            totals.dropped += part.dropped;
        }
    }
    std::printf("written %" PRIu64 " dropped %" PRIu64 "\n", totals.written, totals.dropped);
    return 0;
}
