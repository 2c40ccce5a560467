// What captures cost: exporting a view of 50,000 completed calls (100,000 records, as many as a
// capture window holds) in each format, and reading such a table back. Run:
// build/bench/zel-bench-captures    (private segment and semaphore; never a running tool's)

#include "CaptureExport.h"
#include "CaptureReader.h"
#include "TraceTestSupport.h"

#include <QBuffer>
#include <QCoreApplication>

#include <benchmark/benchmark.h>

namespace {

LiveTraceModel* s_Model = nullptr;

void fill(LiveTraceModel& model)
{
    std::vector<ZelTracer::FullEntry> records;
    for (std::uint64_t id = 1; records.size() < capture::CaptureReader::s_MaxRecords; ++id) {
        const std::string text = "viWrite(0x1, \"MEAS:VOLT? CH" + std::to_string(id % 4) + "\\n\", 17, 17)";
        ZelTracer::FullEntry e = makeEntry(id, 1000 + id % 3, 0, text);
        e.timestamp = 1700000000 + static_cast<std::int64_t>(id / 500); // 500 calls a second
        records.push_back(e);
        e.kind = 1;
        records.push_back(e);
    }
    model.setCollapseSameCommands(false);
    model.loadRecords(records);
}

LiveTraceModel& fullModel()
{
    return *s_Model;
}

QByteArray exportAll(capture::Format format)
{
    LiveTraceModel& model = fullModel();
    QBuffer out;
    out.open(QIODevice::WriteOnly);
    capture::writeView(model, out, format);
    return out.data();
}

void BM_CaptureExport(benchmark::State& state)
{
    const auto format = static_cast<capture::Format>(state.range(0));
    std::size_t bytes = 0;
    for (auto _ : state)
        bytes = static_cast<std::size_t>(exportAll(format).size());
    state.counters["rows"] = fullModel().rowCount();
    state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_CaptureExport)
    ->ArgName("csv0_text1_timeline2")
    ->Arg(int(capture::Format::Csv))
    ->Arg(int(capture::Format::Timeline))
    ->Arg(int(capture::Format::ViewText))
    ->Unit(benchmark::kMillisecond);

void BM_CaptureRead(benchmark::State& state)
{
    QByteArray bytes = exportAll(static_cast<capture::Format>(state.range(0)));
    std::size_t records = 0;
    for (auto _ : state) {
        QBuffer in(&bytes);
        in.open(QIODevice::ReadOnly);
        capture::Capture capture;
        QString error;
        capture::CaptureReader::read(in, QStringLiteral("bench"), QDate(2023, 11, 14), capture, error);
        records = capture.records.size();
    }
    state.counters["records"] = static_cast<double>(records);
}
BENCHMARK(BM_CaptureRead)
    ->ArgName("csv0_text1")
    ->Arg(int(capture::Format::Csv))
    ->Arg(int(capture::Format::ViewText))
    ->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    PrivateSegment segment(33);
    ZelTracer::TraceChannelControl control(segment.key, ZelTracer::s_VisaSharedMemorySize, segment.semaphore);
    LiveTraceModel model(nullptr, control);
    fill(model);
    s_Model = &model;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
