// Costs of the capture path and of the view, on full rings. Run: build/bench/zel-bench
// Every case works on a private segment, semaphores and shared ring, never on a running tool's.

#include "LiveTraceModel.h"
#include "ModelFilters.h"
#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include "RowHeaderView.h"

#include <QApplication>
#include <QHeaderView>
#include <QScrollBar>
#include <QTableView>

#include <benchmark/benchmark.h>

#include <array>
#include <memory>
#include <vector>

using namespace ZelTracer;

namespace {

constexpr std::array<const char*, 8> s_Commands = {
    "viWrite(0x00000001, \"MEAS:VOLT:DC?\\n\", 14, 14)",
    "viRead(0x00000001, \"+1.234567E+00\\n\", 1024, 14)",
    "viSetAttribute(0x00000002, attribute=VI_ATTR_TMO_VALUE, value=2000)",
    "viWrite(0x00000003, \"*IDN?\\n\", 6, 6)",
    "viRead(0x00000003, \"Zelbrook,DMM-4,1234,1.0\\n\", 1024, 24)",
    "viGetAttribute(0x00000002, attribute=VI_ATTR_INTF_TYPE)",
    "viOpen(0x00000001, \"TCPIP0::192.168.0.12::inst0::INSTR\", 0, 2000, 0x00000003)",
    "viClear(0x00000003)",
};

// Record n of an endless, realistic stream: four processes, two threads each, every call followed
// by its return, one call in sixteen failing.
FullEntry streamRecord(std::uint64_t n)
{
    const std::uint64_t call = n / 2;
    FullEntry e = makeEntry(call, 1000 + static_cast<std::uint32_t>(call % 4), static_cast<std::uint32_t>(n % 2),
                            s_Commands[call % s_Commands.size()]);
    e.threadId = static_cast<std::uint32_t>(call % 8);
    e.status = (e.kind == 1 && call % 16 == 0) ? -1073807339 : 0;
    return e;
}

// The tool's pipeline on private names, with a second handle on the shared ring that plays the
// part of another running copy of the tool.
struct Pipeline
{
    Pipeline()
        : segment(30)
        , control(segment.key, s_VisaSharedMemorySize, segment.semaphore)
        , producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore)
        , ringName(QString::fromStdString(TestNames::sharedRingName("bench")))
        , model(nullptr, control, ringName)
    {
        control.setTracingActive(true);
        model.start();
        peer = std::make_unique<RingBufferSharedMem<FullEntry>>(ringName, LiveTraceModel::s_DefaultSharedRingSize);
    }

    // As many records as the segment has room for, which is fewer than the rings hold.
    std::uint64_t fillSegment()
    {
        const std::uint64_t first = next;
        while (producer.write(streamRecord(next)) == TraceProducer::Outcome::Written)
            ++next;
        return next - first;
    }

    void pushShared(std::uint64_t count)
    {
        peer->lockWithin();
        for (std::uint64_t i = 0; i < count; ++i)
            peer->push_back(streamRecord(next++));
        peer->unlock();
    }

    // The shared stage feeds the ring at most once per tick; pretend the last feed was long ago.
    void expireSharedTick()
    {
        peer->lockWithin();
        peer->readHeader();
        peer->lastUpdate = 0;
        peer->writeHeader();
        peer->unlock();
    }

    // Fills the local and display rings to their capacity.
    void fillModel()
    {
        const std::uint32_t capacity = peer->numberOfElements();
        pushShared(capacity);
        model.updateInternalData();
        model.updateDisplayData();
    }

    PrivateSegment segment;
    TraceChannelControl control;
    TraceProducer producer;
    QString ringName;
    LiveTraceModel model;
    std::unique_ptr<RingBufferSharedMem<FullEntry>> peer;
    std::uint64_t next = 1;
};

void BM_SnapshotTick(benchmark::State& state)
{
    Pipeline p;
    std::int64_t records = 0;
    for (auto _ : state) {
        state.PauseTiming();
        p.fillSegment();
        state.ResumeTiming();
        p.control.copySharedMemory(true);
        const BufferEntryIterator end = p.control.end();
        for (BufferEntryIterator it = p.control.begin(); it != end; ++it) {
            benchmark::DoNotOptimize((*it)->id);
            ++records;
        }
    }
    state.SetItemsProcessed(records);
}
BENCHMARK(BM_SnapshotTick)->Unit(benchmark::kMillisecond);

// What the segment lock is held for: the snapshot of a ring holding this many slots (-1: full).
// Without a reset, so the same fill is copied every time.
void BM_SnapshotHold(benchmark::State& state)
{
    Pipeline p;
    if (state.range(0) < 0) {
        p.fillSegment();
    } else {
        for (std::int64_t i = 0; i < state.range(0); ++i)
            p.producer.write(streamRecord(p.next++));
    }
    for (auto _ : state)
        p.control.copySharedMemory(false);
    state.counters["slots"] = static_cast<double>(p.control.countCopy());
}
BENCHMARK(BM_SnapshotHold)->Arg(0)->Arg(100)->Arg(-1)->Unit(benchmark::kMicrosecond);

void BM_SharedStageTick(benchmark::State& state)
{
    Pipeline p;
    std::int64_t records = 0;
    for (auto _ : state) {
        state.PauseTiming();
        records += static_cast<std::int64_t>(p.fillSegment());
        p.expireSharedTick();
        state.ResumeTiming();
        p.model.updateSharedData();
    }
    state.SetItemsProcessed(records);
}
BENCHMARK(BM_SharedStageTick)->Unit(benchmark::kMillisecond);

void BM_InternalStageTick(benchmark::State& state)
{
    Pipeline p;
    const std::uint32_t capacity = p.peer->numberOfElements();
    for (auto _ : state) {
        state.PauseTiming();
        p.pushShared(capacity);
        state.ResumeTiming();
        p.model.updateInternalData();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * capacity);
    state.counters["records"] = capacity;
}
BENCHMARK(BM_InternalStageTick)->Unit(benchmark::kMillisecond);

// One display pass over full rings after one new record: the rebuild of every row, the row
// announcement to the views and the signal. Arguments: collapsing on or off, number of
// exclude-command rules that match nothing (so that every rule is tried on every record).
void BM_DisplayStageTick(benchmark::State& state)
{
    Pipeline p;
    p.model.setCollapseSameCommands(state.range(0) != 0);
    ModelFilters filters;
    for (int i = 0; i < state.range(1); ++i) {
        SingleFilter rule;
        rule.type = SingleFilter::ExcludeCommand;
        rule.text = QStringLiteral("viNoSuchCall%1(").arg(i);
        filters.add(rule);
    }
    p.model.setFilter(filters);
    p.fillModel();
    for (auto _ : state) {
        state.PauseTiming();
        p.pushShared(1);
        p.model.updateInternalData();
        state.ResumeTiming();
        p.model.updateDisplayData();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * p.model.rowCount());
    state.counters["rows"] = p.model.rowCount();
}
BENCHMARK(BM_DisplayStageTick)
    ->ArgNames({"collapse", "rules"})
    ->Args({1, 0})
    ->Args({0, 0})
    ->Args({1, 5})
    ->Args({1, 20})
    ->Unit(benchmark::kMillisecond);

// One record against n rules of one kind that do not match it, the costliest case for a hide
// or a highlight (every rule is tried). Arguments: rule type 0..14, number of rules.
void BM_IsFiltered(benchmark::State& state)
{
    const auto type = static_cast<std::int32_t>(state.range(0));
    ModelFilters filters;
    for (int i = 0; i < state.range(1); ++i) {
        SingleFilter rule;
        rule.type = type;
        rule.value = 900000 + static_cast<std::uint32_t>(i);
        rule.text = SingleFilter::isTextType(type) ? QStringLiteral("ASRL%1::INSTR").arg(i) : QString();
        if (type % SingleFilter::FieldCount == SingleFilter::CommandField)
            rule.text = QStringLiteral("viNoSuchCall%1(").arg(i);
        filters.add(rule);
    }
    std::vector<FullEntry> records;
    for (std::uint64_t n = 0; n < 64; ++n)
        records.push_back(streamRecord(n));
    QColor colour;
    for (auto _ : state) {
        for (const FullEntry& e : records) {
            if (type <= SingleFilter::HighlightCommand)
                benchmark::DoNotOptimize(filters.isHighlighted(e, &colour));
            else
                benchmark::DoNotOptimize(filters.isFiltered(e));
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * records.size()));
}
BENCHMARK(BM_IsFiltered)->ArgNames({"type", "rules"})->ArgsProduct({benchmark::CreateDenseRange(0, 14, 1), {1, 20}});

// What the view asks for when it paints one screen of 40 rows: every role it reads, for every
// column, on a full model with two highlight rules.
void BM_DataScreenful(benchmark::State& state)
{
    Pipeline p;
    ModelFilters filters;
    SingleFilter highlight;
    highlight.type = SingleFilter::HighlightCommand;
    highlight.text = QStringLiteral("viNoSuchCall(");
    filters.add(highlight);
    highlight.type = SingleFilter::HighlightAddress;
    highlight.text = QStringLiteral("ASRL9::INSTR");
    filters.add(highlight);
    p.model.setFilter(filters);
    p.fillModel();
    const int first = p.model.rowCount() / 2;
    const int roles[] = {Qt::DisplayRole, Qt::BackgroundRole,    Qt::ForegroundRole,
                         Qt::FontRole,    Qt::TextAlignmentRole, Qt::DecorationRole};
    for (auto _ : state) {
        for (int row = first; row < first + 40; ++row) {
            benchmark::DoNotOptimize(p.model.headerData(row, Qt::Vertical, Qt::DecorationRole));
            for (int column = 0; column < LiveTraceModel::ColumnCount; ++column)
                for (int role : roles)
                    benchmark::DoNotOptimize(p.model.data(p.model.index(row, column), role));
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * 40 * LiveTraceModel::ColumnCount);
}
BENCHMARK(BM_DataScreenful)->Unit(benchmark::kMicrosecond);

// One display stage of a full table in a 1280x1000 window with "Scroll to bottom" and a repaint:
// new rows announced, the view scrolled to the end and painted. Argument: the table's own row
// header (1) or Qt's default one (0), which measures up to 200 labels whenever rows are inserted.
void BM_ViewUpdate(benchmark::State& state)
{
    Pipeline p;
    QTableView view;
    if (state.range(0) != 0)
        view.setVerticalHeader(new gui::RowHeaderView(&view));
    view.setModel(&p.model);
    view.horizontalHeader()->setStretchLastSection(true);
    p.model.tableView = &view;
    view.resize(1280, 1000);
    view.show();
    p.fillModel();
    for (auto _ : state) {
        state.PauseTiming();
        p.pushShared(40);
        p.model.updateInternalData();
        state.ResumeTiming();
        p.model.updateDisplayData();
        view.scrollToBottom();
        view.viewport()->repaint();
        view.verticalHeader()->viewport()->repaint();
    }
    p.model.tableView = nullptr;
    state.counters["rows"] = p.model.rowCount();
}
BENCHMARK(BM_ViewUpdate)->ArgName("ownHeader")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

} // namespace
