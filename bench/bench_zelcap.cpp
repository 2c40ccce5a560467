// Capture files: the writer alone, and a recorded capture opened, jumped in, searched, counted and
// scrolled as the capture window does it. Run:
//   build/bench/zel-bench-zelcap                                  (writer, 1,000,000 rows in a temp folder)
//   ZELCAP_FILE=night.zelcap build/bench/zel-bench-zelcap         (also the cases on that capture)
// The capture is made by zel-traffic through zel-record on private names (README, Captures).

#include "CallStatistics.h"
#include "CaptureTableModel.h"
#include "RowSearch.h"
#include "TraceTestSupport.h"
#include "ZelcapWriter.h"

#include <QApplication>
#include <QTemporaryDir>
#include <QTest>

#include <benchmark/benchmark.h>

namespace {

QString captureFile()
{
    return qEnvironmentVariable("ZELCAP_FILE");
}

bool settled(capture::CaptureTableModel& model)
{
    return QTest::qWaitFor([&model] { return !model.isBusy(); }, 600000);
}

void BM_ZelcapWriter(benchmark::State& state)
{
    QTemporaryDir dir;
    std::vector<ZelTracer::FullEntry> calls;
    for (std::uint64_t id = 1; id <= 1000; ++id) {
        const std::string text = "viWrite(0x1, \"MEAS:VOLT? CH" + std::to_string(id % 4) + "\\n\", 17, 17)";
        calls.push_back(makeEntry(id, 1000 + id % 3, 1, text));
    }
    ZelTracer::FullEntry call = calls.front();
    call.kind = 0;
    std::int64_t rows = 0;
    for (auto _ : state) {
        capture::ZelcapWriter writer;
        QString error;
        writer.create(dir.filePath(QStringLiteral("w.zelcap")), error);
        for (int n = 0; n < state.range(0); ++n) {
            LiveTraceModel::Row row {};
            row.entry = &calls[static_cast<std::size_t>(n) % calls.size()];
            row.displayKind = LiveTraceModel::CompletedKind;
            writer.write(row, &call);
        }
        writer.finish();
        rows += state.range(0);
    }
    state.counters["rows_per_s"] = benchmark::Counter(static_cast<double>(rows), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_ZelcapWriter)->Arg(1000000)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

// Open, then what the first screen shows: 40 rows of 10 columns with their headers.
void BM_OpenToFirstScreen(benchmark::State& state)
{
    for (auto _ : state) {
        capture::CaptureTableModel model;
        QString error;
        if (!model.open(captureFile(), error))
            state.SkipWithError(qPrintable(error));
        for (int row = 0; row < 40; ++row) {
            for (int column = 0; column < LiveTraceModel::ColumnCount; ++column)
                benchmark::DoNotOptimize(model.data(model.index(row, column)));
            benchmark::DoNotOptimize(model.headerData(row, Qt::Vertical));
        }
        state.counters["rows"] = model.rowCount();
    }
}

void BM_FirstFailedCall(benchmark::State& state)
{
    capture::CaptureTableModel model;
    QString error;
    model.open(captureFile(), error);
    for (auto _ : state) {
        int found = -1;
        model.find(nullptr, -1, true, nullptr, [&found](int row) { found = row; });
        state.counters["row"] = found;
    }
}

// The count of a text the find bar shows, over every row, and a find that has to go through all of
// them (no row matches).
void BM_FindText(benchmark::State& state)
{
    capture::CaptureTableModel model;
    QString error;
    model.open(captureFile(), error);
    RowSearch search;
    search.setPattern(state.range(0) ? QStringLiteral("no such text") : QStringLiteral("meas:volt"), false);
    QObject context;
    for (auto _ : state) {
        int answer = -2;
        if (state.range(0))
            model.find(&search, 0, true, &context, [&answer](int row) { answer = row; });
        else
            model.countMatches(search, &context, [&answer](int count) { answer = count; });
        (void)QTest::qWaitFor([&answer] { return answer != -2; }, 600000);
        state.counters["answer"] = answer;
    }
}

void BM_Statistics(benchmark::State& state)
{
    for (auto _ : state) {
        capture::CaptureTableModel model;
        QString error;
        model.open(captureFile(), error);
        CallStatistics stats;
        bool done = false;
        QObject context;
        model.updateStatistics(stats, &context, [&done] { done = true; });
        (void)QTest::qWaitFor([&done] { return done; }, 600000);
        state.counters["calls"] = static_cast<double>(stats.callCount());
    }
}

// One step of the scroll bar from the top to the bottom in 50 steps: a screenful of cells at a new
// place each time.
void BM_ScrollStep(benchmark::State& state)
{
    capture::CaptureTableModel model;
    QString error;
    model.open(captureFile(), error);
    int step = 0;
    for (auto _ : state) {
        const int top = static_cast<int>(static_cast<qint64>(model.rowCount() - 40) * (step++ % 50) / 49);
        for (int row = top; row < top + 40; ++row) {
            for (int column = 0; column < LiveTraceModel::ColumnCount; ++column) {
                benchmark::DoNotOptimize(model.data(model.index(row, column)));
                benchmark::DoNotOptimize(model.data(model.index(row, column), Qt::BackgroundRole));
            }
            benchmark::DoNotOptimize(model.headerData(row, Qt::Vertical, Qt::DecorationRole));
        }
    }
}

// Collapsing worked out over every row, as the View menu asks for it.
void BM_CollapseAll(benchmark::State& state)
{
    capture::CaptureTableModel model;
    QString error;
    model.open(captureFile(), error);
    for (auto _ : state) {
        model.setCollapseSameCommands(true);
        settled(model);
        state.counters["rows"] = model.rowCount();
        model.setCollapseSameCommands(false);
    }
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    if (!captureFile().isEmpty()) {
        benchmark::RegisterBenchmark("BM_OpenToFirstScreen", BM_OpenToFirstScreen)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("BM_FirstFailedCall", BM_FirstFailedCall)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("BM_FindText", BM_FindText)
            ->ArgName("count0_findnone1")
            ->Arg(0)
            ->Arg(1)
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
        benchmark::RegisterBenchmark("BM_Statistics", BM_Statistics)
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
        benchmark::RegisterBenchmark("BM_ScrollStep", BM_ScrollStep)->Iterations(50)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("BM_CollapseAll", BM_CollapseAll)
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
