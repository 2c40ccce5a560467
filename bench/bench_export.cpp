// What "Copy view" and "Save view" cost on a full table, the export text being built on the GUI
// thread that also drains the segment. Run: build/bench/zel-bench-export
// Private segment, semaphores, shared ring and settings; never a running tool's.

#include "AppTestSupport.h"
#include "TraceApplication.h"
#include "TraceProducer.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>

using namespace ZelTracer;

namespace {

TraceApplication* s_App = nullptr;

PrivateSegment& segment()
{
    static PrivateSegment s(31);
    return s;
}

// Fills the view to its capacity with completed calls whose commands have the given length.
void fill(std::size_t textLength)
{
    static TraceProducer producer(segment().key, s_VisaSharedMemorySize, segment().semaphore, segment().fileSemaphore);
    LiveTraceModel& model = s_App->getModel();
    s_App->clearbuffer();
    model.setCollapseSameCommands(false);
    const std::uint32_t rows = model.getDisplayRing().numberOfElements() - 1;
    for (std::uint64_t n = 0; model.rowCount() < static_cast<int>(rows);) {
        for (int batch = 0; batch < 200; ++batch, ++n) {
            std::string text = "viWrite(0x1, \"" + std::to_string(n) + "\")";
            text.resize(textLength, 'x');
            producer.write(makeEntry(n, 1000 + n % 4, 1, text));
        }
        model.updateSharedData();
        model.updateInternalData();
        model.updateDisplayData();
    }
}

void BM_ExportFullView(benchmark::State& state)
{
    fill(static_cast<std::size_t>(state.range(0)));
    std::size_t bytes = 0;
    for (auto _ : state)
        bytes = static_cast<std::size_t>(s_App->getBuffer().size());
    state.counters["rows"] = s_App->getModel().rowCount();
    state.counters["chars"] = static_cast<double>(bytes);
}
BENCHMARK(BM_ExportFullView)->ArgName("text")->Arg(40)->Arg(959)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QTemporaryDir config;
    qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
    TraceApplication app(argc, argv, privateEndpoints(segment(), "benchexport"));
    s_App = &app;
    app.starttrace();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    app.getModel().detachSharedRingBuffer();
    return 0;
}
