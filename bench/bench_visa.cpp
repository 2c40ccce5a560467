// What libzelvisa adds to a VISA call: a program calls viWrite, viRead, viIn8 and viOut8 through it,
// passed on to a library that answers at once (tests/visa/visa_stub.c), with tracing off and on;
// beside them the same calls made to that library directly, and the two records alone, as
// zeltrace_record writes them, so that the cost beyond the records (forwarding, argument texts) is
// their difference. Run: build/bench/zel-bench-visa. Private segment and lock names.

#include "visa.h"
#include "zeltrace.h"

#include "TraceTestSupport.h"

#include <benchmark/benchmark.h>

#include <dlfcn.h>

#include <cstdlib>

using namespace ZelTracer;

namespace {

// The segment the library writes to, the tool's handle on it, and the stub's own functions.
struct Setup
{
    Setup()
        : segment(57)
        , control(segment.key, s_VisaSharedMemorySize, segment.semaphore)
        , stub(dlopen(ZEL_STUB, RTLD_NOW | RTLD_LOCAL))
    {
        zeltrace_configure(segment.key, segment.semaphore.c_str(), segment.fileSemaphore.c_str());
        setenv("ZELVISA_LIBRARY", ZEL_STUB, 1);
        // dlsym on the stub would give libzelvisa's functions: this process is linked with it.
        auto own = reinterpret_cast<void* (*)(const char*)>(dlsym(stub, "visaStubOwn"));
        stubWrite = reinterpret_cast<decltype(&viWrite)>(own("viWrite"));
        stubIn8 = reinterpret_cast<decltype(&viIn8)>(own("viIn8"));
        ViSession rm = 0;
        viOpenDefaultRM(&rm);
        viOpen(rm, "TCPIP0::192.168.1.20::5025::SOCKET", VI_NO_LOCK, 0, &session);
    }
    void tracing(bool on)
    {
        control.setTracingActive(on);
        control.clear();
    }
    PrivateSegment segment;
    TraceChannelControl control;
    void* stub;
    decltype(&viWrite) stubWrite = nullptr;
    decltype(&viIn8) stubIn8 = nullptr;
    ViSession session = 0;
};

Setup& setup()
{
    static Setup s;
    return s;
}

const ViByte s_Data[] = "SOUR:LIST:VOLT 1.000,2.000,3.000,4.000,5.000,6.000,7.000,8.00\n"; // 64 bytes

// As the tool empties the segment, so that it never fills: every 512 calls (2048 slots).
void drain(Setup& s, std::uint64_t n)
{
    if (n % 512 == 0)
        s.control.clear();
}

void BM_StubWriteDirect(benchmark::State& state)
{
    Setup& s = setup();
    ViUInt32 count = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(s.stubWrite(s.session, s_Data, 64, &count));
}
BENCHMARK(BM_StubWriteDirect);

void BM_WriteTracingOff(benchmark::State& state)
{
    Setup& s = setup();
    s.tracing(false);
    ViUInt32 count = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(viWrite(s.session, s_Data, 64, &count));
}
BENCHMARK(BM_WriteTracingOff);

void BM_WriteTracingOn(benchmark::State& state)
{
    Setup& s = setup();
    s.tracing(true);
    ViUInt32 count = 0;
    std::uint64_t n = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(viWrite(s.session, s_Data, 64, &count));
        drain(s, ++n);
    }
    zeltrace_counters c;
    zeltrace_get_counters(&c);
    state.counters["dropped"] = static_cast<double>(c.dropped);
}
BENCHMARK(BM_WriteTracingOn);

// The two records of that viWrite, with its texts, written directly.
void BM_WriteRecordsAlone(benchmark::State& state)
{
    Setup& s = setup();
    s.tracing(true);
    const char* call = "viWrite(2, \"SOUR:LIST:VOLT 1.000,2.000,3.000,4.000,5.000,6.000,7.000,8.00\\n\", 64)";
    const char* back = "viWrite(2, \"SOUR:LIST:VOLT 1.000,2.000,3.000,4.000,5.000,6.000,7.000,8.00\\n\", 64, 64)";
    const char* address = "TCPIP0::192.168.1.20::5025::SOCKET";
    std::uint64_t n = 0;
    for (auto _ : state) {
        const std::uint64_t id = zeltrace_next_id();
        zeltrace_record(id, ZELTRACE_CALL, 2, address, 0, 0.0, call);
        zeltrace_record(id, ZELTRACE_RETURN, 2, address, 0, 1e-6, back);
        drain(s, ++n);
    }
}
BENCHMARK(BM_WriteRecordsAlone);

void BM_ReadTracingOn(benchmark::State& state)
{
    Setup& s = setup();
    s.tracing(true);
    ViByte answer[64];
    ViUInt32 count = 0;
    std::uint64_t n = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(viRead(s.session, answer, sizeof answer, &count));
        drain(s, ++n);
    }
}
BENCHMARK(BM_ReadTracingOn);

void BM_StubIn8Direct(benchmark::State& state)
{
    Setup& s = setup();
    ViUInt8 value = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(s.stubIn8(s.session, VI_A16_SPACE, 0x10, &value));
}
BENCHMARK(BM_StubIn8Direct);

void BM_In8TracingOff(benchmark::State& state)
{
    Setup& s = setup();
    s.tracing(false);
    ViUInt8 value = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(viIn8(s.session, VI_A16_SPACE, 0x10, &value));
}
BENCHMARK(BM_In8TracingOff);

void BM_In8TracingOn(benchmark::State& state)
{
    Setup& s = setup();
    s.tracing(true);
    ViUInt8 value = 0;
    std::uint64_t n = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(viIn8(s.session, VI_A16_SPACE, 0x10, &value));
        drain(s, ++n);
    }
}
BENCHMARK(BM_In8TracingOn);

void BM_Out8TracingOn(benchmark::State& state)
{
    Setup& s = setup();
    s.tracing(true);
    std::uint64_t n = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(viOut8(s.session, VI_A16_SPACE, 0x10, 0x5A));
        drain(s, ++n);
    }
}
BENCHMARK(BM_Out8TracingOn);

// The records of a register access alone: the part of viIn8's cost that is not libzelvisa's.
void BM_In8RecordsAlone(benchmark::State& state)
{
    Setup& s = setup();
    s.tracing(true);
    const char* address = "TCPIP0::192.168.1.20::5025::SOCKET";
    std::uint64_t n = 0;
    for (auto _ : state) {
        const std::uint64_t id = zeltrace_next_id();
        zeltrace_record(id, ZELTRACE_CALL, 2, address, 0, 0.0, "viIn8(2, 1, 0x10)");
        zeltrace_record(id, ZELTRACE_RETURN, 2, address, 0, 1e-7, "viIn8(2, 1, 0x10, 0x11)");
        drain(s, ++n);
    }
}
BENCHMARK(BM_In8RecordsAlone);

} // namespace

BENCHMARK_MAIN();
