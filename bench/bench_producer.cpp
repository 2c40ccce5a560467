// What tracing costs a traced program, through libzeltrace's C interface as programs call it.
// Run: build/bench/zel-bench-producer. Private segment and lock names, never a running tool's.

#include "zeltrace.h"

#include "TraceTestSupport.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using namespace ZelTracer;

namespace {

// The segment the library writes to, and the tool's handle on it.
struct Setup
{
    Setup()
        : segment(50)
        , control(segment.key, s_VisaSharedMemorySize, segment.semaphore)
    {
        zeltrace_configure(segment.key, segment.semaphore.c_str(), segment.fileSemaphore.c_str());
    }
    PrivateSegment segment;
    TraceChannelControl control;
};

Setup& setup()
{
    static Setup s;
    return s;
}

constexpr const char* s_Address = "TCPIP0::192.168.1.20::inst0::INSTR";
constexpr const char* s_Command = "viWrite(2, \"MEAS:VOLT:DC?\\n\", 14, 14)"; // one slot

void BM_RecordOneSlot(benchmark::State& state)
{
    Setup& s = setup();
    s.control.setTracingActive(true);
    s.control.clear();
    std::uint64_t n = 0;
    for (auto _ : state) {
        ++n;
        benchmark::DoNotOptimize(zeltrace_record(n, n & 1, 2, s_Address, 0, 1e-4, s_Command));
        if (n % 4096 == 0)
            s.control.clear(); // as the tool does, so that the ring never fills
    }
    zeltrace_counters c;
    zeltrace_get_counters(&c);
    state.counters["dropped"] = static_cast<double>(c.dropped);
}
BENCHMARK(BM_RecordOneSlot);

void BM_RecordTracingOff(benchmark::State& state)
{
    Setup& s = setup();
    s.control.setTracingActive(false);
    std::uint64_t n = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(zeltrace_record(++n, 0, 2, s_Address, 0, 0.0, s_Command));
}
BENCHMARK(BM_RecordTracingOff);

// 10,000 records per second from one thread while a tool drains the segment every 50 ms: the
// latency of each call, and the share of the time the program spent in calls of 1 ms or more.
void BM_RecordWhileToolDrains(benchmark::State& state)
{
    Setup& s = setup();
    s.control.setTracingActive(true);
    s.control.clear();
    constexpr int rate = 10000;
    const auto period = std::chrono::nanoseconds(1000000000 / rate);
    for (auto _ : state) {
        std::atomic<bool> stop {false};
        std::thread tool([&] {
            while (!stop) {
                s.control.copySharedMemory(true);
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
        });
        std::vector<double> latencies;
        latencies.reserve(rate * 3);
        const auto start = std::chrono::steady_clock::now();
        auto due = start;
        for (std::uint64_t n = 1; n <= rate * 3; ++n) {
            std::this_thread::sleep_until(due);
            due += period;
            const auto before = std::chrono::steady_clock::now();
            zeltrace_record(n, n & 1, 2, s_Address, 0, 1e-4, s_Command);
            latencies.push_back(
                std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - before).count());
        }
        const double wall = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
        stop = true;
        tool.join();

        double sum = 0;
        double stalled = 0;
        for (double l : latencies) {
            sum += l;
            stalled += l >= 1e6 ? l : 0;
        }
        std::sort(latencies.begin(), latencies.end());
        auto quantile = [&](double q) { return latencies[static_cast<std::size_t>(q * (latencies.size() - 1))]; };
        state.counters["mean_ns"] = sum / latencies.size();
        state.counters["p99_ns"] = quantile(0.99);
        state.counters["p99.9_ns"] = quantile(0.999);
        state.counters["max_ns"] = latencies.back();
        state.counters["stalled_%"] = 100.0 * stalled / wall;
        state.counters["in_calls_%"] = 100.0 * sum / wall;
    }
}
BENCHMARK(BM_RecordWhileToolDrains)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
