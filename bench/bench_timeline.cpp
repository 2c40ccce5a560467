// Costs of the timeline: taking a full table's rows, laying them out and painting them, and a frame
// of zoom or pan. Run: build/bench/zel-bench-timeline
// The model is loaded with records as a capture window's is, and never opens a shared object.

#include "FindBar.h"
#include "LiveRows.h"
#include "LiveTraceModel.h"
#include "TimelineDock.h"
#include "TimelineView.h"
#include "TraceTestSupport.h"

#include <QApplication>
#include <QImage>
#include <QMainWindow>
#include <QTableView>
#include <QWheelEvent>

#include <benchmark/benchmark.h>

#include <memory>

using namespace ZelTracer;

namespace {

constexpr std::int64_t s_Epoch = 1700000000;

// Records of calls in eight lanes (four processes, two threads each), a call starting every 60 µs
// and lasting 8 µs to 0.8 ms, one in sixteen failing. Two calls of other lanes overlap each time
// (call, call, return, return), so that no record pairs with the one before it and every record is
// a row of its own: the most rows a table of them can have, two rows a bar.
std::vector<FullEntry> records(std::size_t count)
{
    std::vector<FullEntry> list;
    list.reserve(count);
    for (std::size_t n = 0; n < count; ++n) {
        const std::uint64_t call = n / 4 * 2 + n % 2;
        const bool back = n % 4 >= 2;
        const double start = static_cast<double>(call) * 60e-6;
        const double duration = static_cast<double>(call % 97 + 1) * 8e-6;
        const double time = back ? start + duration : start;
        FullEntry e
            = makeEntry(call, 2000 + static_cast<std::uint32_t>(call % 4), back ? 1 : 0, "viRead(7, \"1.5\\n\")");
        e.threadId = static_cast<std::uint32_t>(call % 8);
        e.timestamp = s_Epoch + static_cast<std::int64_t>(time);
        e.timestampFraction = time - static_cast<double>(static_cast<std::int64_t>(time));
        e.duration = back ? duration : 0;
        e.status = back && call % 16 == 0 ? -1073807339 : 0;
        list.push_back(e);
    }
    return list;
}

// A window with the table and the timeline, as the tool shows them, 1200 × 300 pixels of timeline.
struct Window
{
    explicit Window(std::size_t count)
        : segment(31)
        , control(segment.key, s_VisaSharedMemorySize, segment.semaphore)
        , model(nullptr, control, QString::fromStdString(TestNames::sharedRingName("timeline")))
    {
        model.loadRecords(records(count));
        table = new QTableView;
        window.setCentralWidget(table);
        table->setModel(&model);
        finder = new gui::FindBar(rows, table);
        dock = new gui::TimelineDock(model, *table, *finder, &window);
        window.addDockWidget(Qt::BottomDockWidgetArea, dock);
        window.resize(1200, 700);
        window.show();
        dock->resize(1200, 340);
        dock->refresh();
        view().showAll();
        frame = QImage(view().viewport()->size(), QImage::Format_ARGB32_Premultiplied);
        paint();
    }
    gui::TimelineView& view() { return dock->timelineView(); }
    // What a repaint of the timeline costs, drawn into an image the size of its viewport.
    void paint() { view().viewport()->render(&frame); }

    PrivateSegment segment;
    TraceChannelControl control;
    LiveTraceModel model;
    LiveRows rows {model};
    QMainWindow window;
    QTableView* table = nullptr;
    gui::FindBar* finder = nullptr;
    gui::TimelineDock* dock = nullptr;
    QImage frame;
};

void counters(benchmark::State& state, Window& w)
{
    state.counters["rows"] = w.model.rowCount();
    state.counters["bars"] = static_cast<double>(w.view().layout().bars().size());
    state.counters["lanes"] = w.dock->source().laneCount();
    state.counters["px"] = w.view().viewport()->width();
}

// The timeline after a display stage that changed every row: the rows taken, laid out, painted.
void BM_TimelineRepaint(benchmark::State& state)
{
    Window w(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        w.dock->source().rebuild();
        w.view().sourceChanged();
        w.paint();
    }
    counters(state, w);
}
BENCHMARK(BM_TimelineRepaint)->ArgName("records")->Arg(8510)->Arg(100000)->Unit(benchmark::kMillisecond);

// Taking the rows alone: pairing, lanes, collapsed runs, order.
void BM_TimelineRebuild(benchmark::State& state)
{
    Window w(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(w.dock->source().rebuild());
    counters(state, w);
}
BENCHMARK(BM_TimelineRebuild)->ArgName("records")->Arg(8510)->Arg(100000)->Unit(benchmark::kMillisecond);

// Painting alone, nothing changed.
void BM_TimelinePaint(benchmark::State& state)
{
    Window w(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
        w.paint();
    counters(state, w);
}
BENCHMARK(BM_TimelinePaint)->ArgName("records")->Arg(8510)->Arg(100000)->Unit(benchmark::kMillisecond);

// One frame of a wheel turn (in and out by turns, so the view stays where it is) or of a drag, at
// the whole extent (zoom 0) or 1000 times closer: the event, the layout at the new view, the paint.
void BM_TimelineFrame(benchmark::State& state)
{
    Window w(static_cast<std::size_t>(state.range(0)));
    gui::TimelineView& view = w.view();
    const QPointF middle(view.layout().sizes().labelWidth + view.timeView().width() / 2.0, 60);
    auto wheel = [&view, middle](int delta) {
        QWheelEvent event(middle, view.viewport()->mapToGlobal(middle.toPoint()), QPoint(), QPoint(0, delta),
                          Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(view.viewport(), &event);
    };
    for (int i = 0; i < state.range(1) * 31; ++i) // 1.25^31: about a thousand
        wheel(120);
    const bool drag = state.range(2) != 0;
    const QPoint from = middle.toPoint();
    if (drag) {
        QMouseEvent press(QEvent::MouseButtonPress, from, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(view.viewport(), &press);
    }
    int turn = 0;
    for (auto _ : state) {
        const int sign = ++turn % 2 ? 1 : -1;
        if (drag) {
            QMouseEvent move(QEvent::MouseMove, from + QPoint(sign > 0 ? 40 : 0, 0), Qt::NoButton, Qt::LeftButton,
                             Qt::NoModifier);
            QCoreApplication::sendEvent(view.viewport(), &move);
        } else {
            wheel(sign * 120);
        }
        w.paint();
    }
    counters(state, w);
}
BENCHMARK(BM_TimelineFrame)
    ->ArgNames({"records", "closer", "drag"})
    ->ArgsProduct({{8510, 100000}, {0, 1}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

} // namespace
