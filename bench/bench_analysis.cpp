// Costs of the analysis views on a full table: the display stage with find and statistics live,
// and the pieces on their own. Run: build/bench/zel-bench-analysis
// Every case works on a private segment, semaphores and shared ring, never on a running tool's.

#include "CallStatistics.h"
#include "DetailsPane.h"
#include "FindBar.h"
#include "LiveRows.h"
#include "LiveTraceModel.h"
#include "RowSearch.h"
#include "StatisticsPane.h"
#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QApplication>
#include <QCheckBox>
#include <QLineEdit>
#include <QMainWindow>
#include <QTableView>

#include <benchmark/benchmark.h>

#include <array>
#include <memory>

using namespace ZelTracer;

namespace {

constexpr std::array<const char*, 8> s_Commands = {
    "viWrite(0x00000001, \"MEAS:VOLT:DC?\\n\", 14, 14)",
    "viRead(0x00000001, \"+1.234567E+00\\n\", 1024, 14)",
    "viSetAttribute(0x00000002, attribute=VI_ATTR_TMO_VALUE, value=2000)",
    "viWrite(0x00000003, \"*IDN?\\n\", 6, 6)",
    "viRead(0x00000003, \"Zelbrook,DMM-4,1234,1.0\\n\", 1024, 24)",
    "viWrite(0x00000003, \":SOURce:LIST:VOLTage 1.0,2.0,3.0,4.0,5.0,6.0,7.0,8.0\\n\", 52, 52)",
    "viOpen(0x00000001, \"TCPIP0::192.168.0.12::inst0::INSTR\", 0, 2000, 0x00000003)",
    "viClear(0x00000003)",
};
constexpr std::array<const char*, 4> s_Addresses = {"TCPIP0::192.168.1.10::inst0::INSTR", "GPIB0::22::INSTR",
                                                    "USB0::0x0957::0x1796::MY12345678::INSTR", "ASRL1::INSTR"};

// Record n of an endless stream: four processes, two threads each, one call in sixteen failing.
// Two calls overlap each time (call, call, return, return), so that no record pairs with the one
// before it and every record is a row of its own: the most rows a full ring can make.
FullEntry streamRecord(std::uint64_t n)
{
    const std::uint64_t call = n / 4 * 2 + n % 2;
    FullEntry e = makeEntry(call, 1000 + static_cast<std::uint32_t>(call % 4), static_cast<std::uint32_t>(n / 2 % 2),
                            s_Commands[call % s_Commands.size()]);
    std::strncpy(e.address, s_Addresses[call % s_Addresses.size()], sizeof e.address - 1);
    e.threadId = static_cast<std::uint32_t>(call % 8);
    e.status = (e.kind == 1 && call % 16 == 0) ? -1073807339 : 0;
    e.duration = 1e-5 * static_cast<double>(call % 97 + 1);
    return e;
}

// The model on private names, fed through a second handle on the shared ring that plays another
// running copy of the tool; shown in a window with the analysis panes as the tool has them.
struct Pipeline
{
    explicit Pipeline(bool analysis)
        : segment(29)
        , control(segment.key, s_VisaSharedMemorySize, segment.semaphore)
        , ringName(QString::fromStdString(TestNames::sharedRingName("analysis")))
        , model(nullptr, control, ringName)
        , rows(model)
    {
        control.setTracingActive(true);
        model.start();
        peer = std::make_unique<RingBufferSharedMem<FullEntry>>(ringName, LiveTraceModel::s_DefaultSharedRingSize);
        view = new QTableView;
        window.setCentralWidget(view);
        view->setModel(&model);
        model.selectionModel = view->selectionModel();
        model.tableView = view;
        window.resize(1200, 800);
        if (analysis) {
            find = new gui::FindBar(rows, view);
            auto* details = new gui::DetailsPane(rows, view, &window);
            statistics = new gui::StatisticsPane(rows, &window);
            window.addDockWidget(Qt::BottomDockWidgetArea, details);
            window.addDockWidget(Qt::BottomDockWidgetArea, statistics);
            find->activate();
            find->findChild<QLineEdit*>()->setText(QStringLiteral("meas:volt"));
        }
        window.show();
        // Fills the local and display rings to their capacity.
        push(peer->numberOfElements());
        model.updateInternalData();
        model.updateDisplayData();
        view->setCurrentIndex(model.index(model.rowCount() / 2, LiveTraceModel::CommandColumn));
    }
    ~Pipeline() { model.tableView = nullptr; }

    void push(std::uint64_t count)
    {
        peer->lockWithin();
        for (std::uint64_t i = 0; i < count; ++i)
            peer->push_back(streamRecord(next++));
        peer->unlock();
    }

    PrivateSegment segment;
    TraceChannelControl control;
    QString ringName;
    LiveTraceModel model;
    LiveRows rows;
    std::unique_ptr<RingBufferSharedMem<FullEntry>> peer;
    QMainWindow window;
    QTableView* view = nullptr;
    gui::FindBar* find = nullptr;
    gui::StatisticsPane* statistics = nullptr;
    std::uint64_t next = 1;
};

// One display pass over full rings after n new records, with or without the analysis views; the
// views' work runs in the slots of the stage's signal, so it is inside the timed call.
void BM_DisplayStage(benchmark::State& state)
{
    Pipeline p(state.range(0) != 0);
    const auto arriving = static_cast<std::uint64_t>(state.range(1));
    for (auto _ : state) {
        state.PauseTiming();
        p.push(arriving);
        p.model.updateInternalData();
        state.ResumeTiming();
        p.model.updateDisplayData();
    }
    state.counters["rows"] = p.model.rowCount();
    if (p.find)
        state.SetLabel(p.find->statusText().toStdString());
}
BENCHMARK(BM_DisplayStage)
    ->ArgNames({"analysis", "arriving"})
    ->ArgsProduct({{0, 1}, {1, 40, 2000, 8510}})
    ->Unit(benchmark::kMillisecond);

// Counting the matches of a full table, as the find bar does after every display stage.
void BM_FindCount(benchmark::State& state)
{
    Pipeline p(false);
    RowSearch search;
    search.setPattern(state.range(0) ? QStringLiteral("meas:volt|\\*idn") : QStringLiteral("meas:volt"),
                      state.range(0) != 0);
    int count = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(count = search.countMatches(p.model));
    state.counters["matches"] = count;
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * p.model.rowCount());
}
BENCHMARK(BM_FindCount)->ArgName("regex")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// The statistics brought up to date after n new records (n = 0: counted afresh from a full ring).
void BM_StatisticsUpdate(benchmark::State& state)
{
    Pipeline p(false);
    const auto arriving = static_cast<std::uint64_t>(state.range(0));
    CallStatistics stats;
    stats.update(p.model.getLocalRing());
    for (auto _ : state) {
        state.PauseTiming();
        p.push(arriving);
        p.model.updateInternalData();
        if (arriving == 0)
            stats.clear();
        state.ResumeTiming();
        stats.update(p.model.getLocalRing());
    }
    state.counters["calls"] = static_cast<double>(stats.callCount());
}
BENCHMARK(BM_StatisticsUpdate)
    ->ArgName("arriving")
    ->Arg(0)
    ->Arg(40)
    ->Arg(2000)
    ->Arg(8510)
    ->Unit(benchmark::kMillisecond);

} // namespace
