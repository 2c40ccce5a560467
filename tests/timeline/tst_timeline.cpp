#include "AppTestSupport.h"
#include "CaptureWindow.h"
#include "FilterTestSupport.h"
#include "MainWindow.h"
#include "SettingsKeys.h"
#include "TimelineAxis.h"
#include "TimelineDock.h"
#include "TimelineLayout.h"
#include "TimelineModelSource.h"
#include "TimelineView.h"
#include "TraceProducer.h"

#include <QtTest>
#include <QtWidgets>

#include <cmath>
#include <limits>

using namespace ZelTracer;
using namespace timeline;

// Lists of these are test data.
Q_DECLARE_METATYPE(TimelineCall)
Q_DECLARE_METATYPE(FullEntry)

namespace {

constexpr auto segment = programSegment<47>;
constexpr std::int32_t s_Timeout = static_cast<std::int32_t>(0xBFFF0015u);
// 2023-11-14 22:13:20 UTC: every record of these tests is stamped some milliseconds after it.
constexpr std::int64_t s_T0 = 1700000000;
constexpr Nanoseconds s_Ms = 1000000;
constexpr Nanoseconds s_Origin = s_T0 * s_NanosecondsPerSecond;

QString operator""_q(const char* text, std::size_t size)
{
    return QString::fromUtf8(text, static_cast<int>(size));
}

// A record stamped at ms milliseconds after s_T0; a return carries the call's duration.
FullEntry stamped(std::uint32_t thread, std::uint64_t id, std::uint32_t kind, double ms, const char* text,
                  double durationMs = 0, std::int32_t status = 0, std::uint32_t session = 7,
                  const char* address = "GPIB0::22::INSTR")
{
    FullEntry e = makeCall(100, thread, id, kind, text, status);
    e.timestamp = s_T0 + static_cast<std::int64_t>(ms / 1000);
    e.timestampFraction = std::fmod(ms, 1000.0) / 1000.0;
    e.duration = durationMs / 1000;
    e.session = session;
    std::memset(e.address, 0, sizeof e.address);
    std::strncpy(e.address, address, sizeof e.address - 1);
    return e;
}

// A call from startMs to endMs as its call record and its return record, back to back.
std::vector<FullEntry> call(std::uint32_t thread, std::uint64_t id, double startMs, double endMs, const char* text,
                            std::int32_t status = 0)
{
    return {stamped(thread, id, 0, startMs, text), stamped(thread, id, 1, endMs, text, endMs - startMs, status)};
}

std::vector<FullEntry> joined(std::initializer_list<std::vector<FullEntry>> parts)
{
    std::vector<FullEntry> all;
    for (const auto& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

QString ms(Nanoseconds time)
{
    return QString::number(static_cast<double>(time - s_Origin) / s_Ms, 'f', 3);
}

// Every call of a source as one line: lane, start-end in ms after s_T0, row, count, errors, flags.
QStringList describe(const TimelineSource& source)
{
    CallList calls;
    source.calls({0, s_LatestTime}, 1, calls);
    QStringList lines;
    for (const TimelineCall& c : calls) {
        QString line = source.laneLabel(c.lane) + " | "_q + ms(c.start) + "-"_q + ms(c.end) + " | row "_q
            + QString::number(c.row);
        if (c.count != 1)
            line += " | "_q + QString::number(c.count) + "x"_q;
        if (c.errors)
            line += " | "_q + QString::number(c.errors) + " failed"_q;
        if (c.open)
            line += " | open"_q;
        if (c.highlighted)
            line += " | "_q + QColor::fromRgba(c.highlight).name();
        lines << line;
    }
    return lines;
}

// The bars of a layout as lines: lane, x range in pixels, count, row and flags.
QStringList describe(const TimelineLayout& layout)
{
    QStringList lines;
    for (const TimelineBar& b : layout.bars()) {
        QString line = QStringLiteral("%1: %2-%3 row %4")
                           .arg(b.call.lane)
                           .arg(b.x0, 0, 'f', 1)
                           .arg(b.x1, 0, 'f', 1)
                           .arg(b.call.row);
        if (b.call.merged)
            line += " merged %1"_q.arg(b.call.count);
        if (b.call.errors)
            line += " failed %1"_q.arg(b.call.errors);
        lines << line;
    }
    return lines;
}

TimelineCall at(int lane, double startMs, double endMs, int row, std::uint32_t errors = 0)
{
    TimelineCall c;
    c.lane = lane;
    c.start = s_Origin + std::llround(startMs * s_Ms);
    c.end = s_Origin + std::llround(endMs * s_Ms);
    c.row = row;
    c.errors = errors;
    return c;
}

// A viewport of width pixels from fromMs on, msPerPixel each.
TimelineViewport viewport(double fromMs, double msPerPixel, int width = 1000)
{
    TimelineViewport v;
    v.setWidth(width);
    v.show({s_Origin + std::llround(fromMs * s_Ms), s_Origin + std::llround((fromMs + msPerPixel * width) * s_Ms)});
    return v;
}

} // namespace

class TestTimeline : public QObject
{
    Q_OBJECT

public:
    explicit TestTimeline(TraceApplication& app)
        : app(app)
    { }

private slots:
    void initTestCase()
    {
        qputenv("TZ", "UTC");
        tzset();
        // Tracing is on before any window comes: the window's monitor sees no edge to act on.
        app.starttrace();
    }
    void cleanup()
    {
        window.reset();
        if (app.getModel().isPaused())
            app.setDisplayPause(false);
        app.clearbuffer();
    }

    // ---- Geometry, as numbers ----

    void viewport_data()
    {
        QTest::addColumn<QString>("move");
        QTest::addColumn<double>("value");
        QTest::addColumn<qint64>("start"); // ns after s_T0 of the view's left edge
        QTest::addColumn<qint64>("span"); // ns
        // The view starts 1 s after s_T0 and shows 1 ms a pixel on 1000 pixels.
        QTest::newRow("as shown") << "none"_q << 0.0 << qint64(1000000000) << qint64(1000000000);
        QTest::newRow("zoom in twice around x 250") << "zoom 250"_q << 2.0 << qint64(1125000000) << qint64(500000000);
        QTest::newRow("zoom out around the left edge") << "zoom 0"_q << 0.5 << qint64(1000000000) << qint64(2000000000);
        QTest::newRow("zoom in beyond a microsecond across")
            << "zoom 500"_q << 1e12 << qint64(1499999500) << qint64(1000);
        QTest::newRow("zoom out beyond 30 days across")
            << "zoom 0"_q << 1e-12 << qint64(1000000000) << qint64(2592000000000000);
        QTest::newRow("drag 100 pixels right shows earlier times")
            << "pan"_q << 100.0 << qint64(900000000) << qint64(1000000000);
        QTest::newRow("no time before the epoch") << "pan"_q << 1e18 << qint64(-s_Origin) << qint64(1000000000);
        QTest::newRow("a time at the right edge") << "end"_q << 5000.0 << qint64(4000000000) << qint64(1000000000);
        QTest::newRow("a range in view does not move it")
            << "reveal"_q << 1500.0 << qint64(1000000000) << qint64(1000000000);
        QTest::newRow("a range out of view is centred")
            << "reveal"_q << 9000.0 << qint64(8550000000) << qint64(1000000000);
        QTest::newRow("a range longer than the view zooms out")
            << "reveal long"_q << 9000.0 << qint64(8750000000) << qint64(2500000000);
        QTest::newRow("an instant is centred in a microsecond")
            << "show"_q << 7000.0 << qint64(6999999500) << qint64(1000);
    }
    void viewport()
    {
        QFETCH(QString, move);
        QFETCH(double, value);
        QFETCH(qint64, start);
        QFETCH(qint64, span);
        TimelineViewport v = ::viewport(1000, 1);
        const Nanoseconds time = s_Origin + std::llround(value * s_Ms);
        const QStringList words = move.split(QLatin1Char(' '));
        const Nanoseconds anchor = words[0] == "zoom"_q ? v.time(words[1].toDouble()) : 0;
        if (words[0] == "zoom"_q)
            v.zoom(words[1].toDouble(), value);
        else if (move == "pan"_q)
            v.pan(value);
        else if (move == "end"_q)
            v.endAt(time);
        else if (move == "reveal"_q)
            QCOMPARE(v.reveal({time, time + 100 * s_Ms}), value > 2000);
        else if (move == "reveal long"_q)
            QVERIFY(v.reveal({time, time + 2000 * s_Ms}));
        else if (move == "show"_q)
            v.show({time, time});
        QCOMPARE(v.start() - s_Origin, start);
        QCOMPARE(v.span(), span);
        // The time under the pointer stays under it, to the nanosecond.
        if (words[0] == "zoom"_q && span > TimelineViewport::s_MinSpan)
            QCOMPARE(v.time(words[1].toDouble()), anchor);
    }

    void bars_data()
    {
        QTest::addColumn<CallList>("calls");
        QTest::addColumn<double>("fromMs");
        QTest::addColumn<double>("msPerPixel");
        QTest::addColumn<QStringList>("bars");
        QTest::newRow("one call per lane, at 1 ms a pixel")
            << CallList {at(0, 100, 350, 0), at(1, 120, 130, 1), at(1, 500, 501.5, 2)} << 0.0 << 1.0
            << QStringList {"0: 100.0-350.0 row 0"_q, "1: 120.0-130.0 row 1"_q, "1: 500.0-501.5 row 2"_q};
        QTest::newRow("the same ten times closer, from 100 ms")
            << CallList {at(0, 100, 350, 0), at(1, 120, 130, 1), at(1, 500, 501.5, 2)} << 100.0 << 0.1
            << QStringList {"0: 0.0-1002.0 row 0"_q, "1: 200.0-300.0 row 1"_q};
        CallList thin;
        for (int i = 0; i < 100; ++i)
            thin.push_back(at(0, 10 + i * 0.1, 10.01 + i * 0.1, i, i == 42 ? 1 : 0));
        QTest::newRow("100 calls of 10 us, 100 us apart, merge at 1 ms a pixel")
            << thin << 0.0 << 1.0 << QStringList {"0: 10.0-19.9 row 42 merged 100 failed 1"_q};
        QTest::newRow("and stand alone at 10 us a pixel") << CallList(thin.begin(), thin.begin() + 2) << 10.0 << 0.01
                                                          << QStringList {"0: 0.0-1.0 row 0"_q, "0: 10.0-11.0 row 1"_q};
        QTest::newRow("thin calls two pixels apart stay apart")
            << CallList {at(0, 10, 10.1, 0), at(0, 12, 12.1, 1), at(0, 12.5, 12.6, 2)} << 0.0 << 1.0
            << QStringList {"0: 10.0-10.1 row 0"_q, "0: 12.0-12.6 row 1 merged 2"_q};
        QTest::newRow("a wide call ends a run of thin ones")
            << CallList {at(0, 10, 10.1, 0), at(0, 10.2, 10.3, 1), at(0, 10.5, 20, 2), at(0, 20.1, 20.2, 3)} << 0.0
            << 1.0 << QStringList {"0: 10.0-10.3 row 0 merged 2"_q, "0: 10.5-20.0 row 2"_q, "0: 20.1-20.2 row 3"_q};
        QTest::newRow("thin calls of other lanes never merge")
            << CallList {at(0, 10, 10.1, 0), at(1, 10.2, 10.3, 1)} << 0.0 << 1.0
            << QStringList {"0: 10.0-10.1 row 0"_q, "1: 10.2-10.3 row 1"_q};
        QTest::newRow("calls beyond the view are cut to its edges")
            << CallList {at(0, -5000, 5000, 0), at(0, 5000, 6000, 1), at(1, -10, -5, 2)} << 0.0 << 1.0
            << QStringList {"0: -2.0-1002.0 row 0"_q};
        QTest::newRow("lanes out of order are put in order")
            << CallList {at(1, 5, 6, 0), at(0, 7, 8, 1), at(0, 1, 2, 2)} << 0.0 << 1.0
            << QStringList {"0: 1.0-2.0 row 2"_q, "0: 7.0-8.0 row 1"_q, "1: 5.0-6.0 row 0"_q};
    }
    void bars()
    {
        QFETCH(CallList, calls);
        QFETCH(double, fromMs);
        QFETCH(double, msPerPixel);
        QFETCH(QStringList, bars);
        TimelineLayout layout;
        layout.place(::viewport(fromMs, msPerPixel), calls);
        QCOMPARE(describe(layout), bars);
    }

    // However far out the view is zoomed, the bars count every call once.
    void mergedBarsCountTheirCalls()
    {
        CallList calls;
        std::uint32_t failed = 0;
        for (int i = 0; i < 5000; ++i) {
            const double start = i * 0.37 + (i % 7) * 0.05;
            calls.push_back(at(i % 3, start, start + (i % 11 == 0 ? 3 : 0.02), i, i % 13 == 0 ? 1 : 0));
            failed += i % 13 == 0 ? 1 : 0;
        }
        std::sort(calls.begin(), calls.end(), [](const TimelineCall& a, const TimelineCall& b) {
            return std::tie(a.lane, a.start) < std::tie(b.lane, b.start);
        });
        for (double msPerPixel : {0.001, 0.1, 1.0, 10.0, 1000.0}) {
            TimelineLayout layout;
            layout.place(::viewport(-10, msPerPixel, 2000), calls);
            std::uint64_t count = 0;
            std::uint64_t errors = 0;
            std::size_t merged = 0;
            for (const TimelineBar& bar : layout.bars()) {
                count += bar.call.count;
                errors += bar.call.errors;
                merged += bar.call.merged ? 1 : 0;
            }
            if (msPerPixel >= 1) {
                QCOMPARE(count, std::uint64_t(calls.size()));
                QCOMPARE(errors, std::uint64_t(failed));
                // What is painted is bounded by the pixels of the lanes.
                QVERIFY2(layout.bars().size() <= 3 * 2000, qPrintable(QString::number(layout.bars().size())));
                QVERIFY(merged > 0);
            } else {
                QCOMPARE(merged, std::size_t(0));
            }
        }
    }

    void hitTest_data()
    {
        QTest::addColumn<QPointF>("point");
        QTest::addColumn<int>("bar");
        // Label column 160 px, axis 22 px, lanes 22 px high; bar 0 in lane 0 at x 100-350, bar 1 in
        // lane 1 at x 120-130, bar 2 in lane 1 at 500.0-500.2 (thin).
        QTest::newRow("inside a wide bar") << QPointF(160 + 200, 22 + 11) << 0;
        QTest::newRow("inside in the lane below") << QPointF(160 + 125, 44 + 11) << 1;
        QTest::newRow("a lane without a bar there") << QPointF(160 + 200, 44 + 11) << -1;
        QTest::newRow("beside a thin bar") << QPointF(160 + 501.5, 44 + 11) << 2;
        QTest::newRow("too far beside it") << QPointF(160 + 503.5, 44 + 11) << -1;
        QTest::newRow("over the axis") << QPointF(160 + 200, 10) << -1;
        QTest::newRow("over the lane labels") << QPointF(60, 22 + 11) << -1;
        QTest::newRow("below the lanes") << QPointF(160 + 200, 200) << -1;
    }
    void hitTest()
    {
        QFETCH(QPointF, point);
        QFETCH(int, bar);
        TimelineLayout layout;
        layout.place(::viewport(0, 1), {at(0, 100, 350, 0), at(1, 120, 130, 1), at(1, 500, 500.2, 2)});
        QCOMPARE(layout.barAt(point), bar);
    }

    void axis_data()
    {
        QTest::addColumn<double>("fromMs");
        QTest::addColumn<double>("spanMs");
        QTest::addColumn<QStringList>("labels");
        QTest::newRow("seconds") << 300.0 << 4000.0
                                 << QStringList {"22:13:21"_q, "22:13:22"_q, "22:13:23"_q, "22:13:24"_q};
        QTest::newRow("clock steps beyond a minute")
            << 0.0 << 1800000.0 << QStringList {"22:20:00"_q, "22:30:00"_q, "22:40:00"_q};
        QTest::newRow("milliseconds") << 995.0 << 20.0
                                      << QStringList {"22:13:20.995"_q, "22:13:21.000"_q, "22:13:21.005"_q,
                                                      "22:13:21.010"_q, "22:13:21.015"_q};
        QTest::newRow("microseconds after a whole millisecond")
            << 1.9 << 0.3 << QStringList {"+900 \u00b5s"_q, "22:13:20.002"_q, "+100 \u00b5s"_q, "+200 \u00b5s"_q};
        // Shorter than the shortest span: a microsecond around it.
        QTest::newRow("nanoseconds") << 0.0002 << 0.0003
                                     << QStringList {"22:13:20.000"_q, "+0.2 \u00b5s"_q, "+0.4 \u00b5s"_q,
                                                     "+0.6 \u00b5s"_q, "+0.8 \u00b5s"_q};
    }
    void axis()
    {
        QFETCH(double, fromMs);
        QFETCH(double, spanMs);
        QFETCH(QStringList, labels);
        // Ticks at least 200 pixels apart on 1000 pixels.
        const TimelineViewport v = ::viewport(fromMs, spanMs / 1000);
        QStringList shown;
        double lastX = -1000;
        for (const TimelineTick& tick : TimelineAxis::ticks(v, 200)) {
            shown << tick.label;
            QVERIFY(tick.x >= 0 && tick.x <= 1000);
            QVERIFY(tick.x - lastX >= 199.9);
            lastX = tick.x;
        }
        QCOMPARE(shown, labels);
    }

    // ---- The rows of a model as calls ----

    void modelCalls_data()
    {
        QTest::addColumn<std::vector<FullEntry>>("records");
        QTest::addColumn<int>("lanes"); // LaneGrouping
        QTest::addColumn<QStringList>("calls");
        const char* read = "viRead(7, \"1.5\\n\", 1024, 4)";
        QTest::newRow("a completed call runs from its return minus its duration")
            << call(1, 1, 10, 15.5, read) << 0 << QStringList {"Pid 100, thread 1 | 10.000-15.500 | row 0"_q};
        QTest::newRow("threads in lanes of their own, failures counted")
            << joined({call(2, 1, 10, 20, read), call(1, 2, 12, 14, "viClear(7)", s_Timeout)}) << 0
            << QStringList {"Pid 100, thread 1 | 12.000-14.000 | row 1 | 1 failed"_q,
                            "Pid 100, thread 2 | 10.000-20.000 | row 0"_q};
        // Thread 1's call, thread 2's call, thread 1's return, thread 2's return: four rows, two bars.
        QTest::newRow("a call and its return shown apart make one bar")
            << std::vector<FullEntry> {stamped(1, 1, 0, 10, read), stamped(2, 1, 0, 11, "viClear(7)"),
                                       stamped(1, 1, 1, 30, read, 20), stamped(2, 1, 1, 31, "viClear(7)", 20)}
            << 0
            << QStringList {"Pid 100, thread 1 | 10.000-30.000 | row 2"_q,
                            "Pid 100, thread 2 | 11.000-31.000 | row 3"_q};
        QTest::newRow("a call not returned runs to the capture's last record")
            << std::vector<FullEntry> {stamped(1, 1, 0, 10, read), stamped(2, 5, 0, 40, "viClear(7)"),
                                       stamped(2, 5, 1, 50, "viClear(7)", 10)}
            << 0
            << QStringList {"Pid 100, thread 1 | 10.000-50.000 | row 0 | open"_q,
                            "Pid 100, thread 2 | 40.000-50.000 | row 1"_q};
        QTest::newRow("a collapsed row runs from its first call to its last return")
            << joined({call(1, 1, 10, 11, read, s_Timeout), call(1, 2, 20, 21, read, s_Timeout),
                       call(1, 3, 30, 32, read, s_Timeout)})
            << 0 << QStringList {"Pid 100, thread 1 | 10.000-32.000 | row 0 | 3x | 3 failed"_q};
        QTest::newRow("lanes per session")
            << std::vector<FullEntry> {stamped(1, 1, 1, 5, read, 1, 0, 9), stamped(2, 2, 1, 6, read, 1, 0, 3),
                                       stamped(2, 3, 1, 7, "viClose(9)", 1, 0, 9)}
            << int(LaneGrouping::Session)
            << QStringList {"Pid 100, session 3 | 5.000-6.000 | row 1"_q, "Pid 100, session 9 | 4.000-5.000 | row 0"_q,
                            "Pid 100, session 9 | 6.000-7.000 | row 2"_q};
        QTest::newRow("lanes per address, across threads")
            << std::vector<FullEntry> {stamped(1, 1, 1, 5, read, 1, 0, 7, "TCPIP0::10.0.0.5::INSTR"),
                                       stamped(2, 2, 1, 6, read, 1, 0, 7, "ASRL1::INSTR"),
                                       stamped(3, 3, 1, 7, "viOpenDefaultRM()", 1, 0, 7, "")}
            << int(LaneGrouping::Address)
            << QStringList {"(no address) | 6.000-7.000 | row 2"_q, "ASRL1::INSTR | 5.000-6.000 | row 1"_q,
                            "TCPIP0::10.0.0.5::INSTR | 4.000-5.000 | row 0"_q};
    }
    void modelCalls()
    {
        QFETCH(std::vector<FullEntry>, records);
        QFETCH(int, lanes);
        QFETCH(QStringList, calls);
        LiveTraceModel model(nullptr, app.getChannelControl(), app.getEndpoints().sharedRingName);
        model.loadRecords(records);
        TimelineModelSource source(model);
        source.setGrouping(static_cast<LaneGrouping>(lanes));
        QVERIFY(source.rebuild() || lanes != 0);
        QCOMPARE(describe(source), calls);
        // Nothing changed: nothing to repaint.
        QVERIFY(!source.rebuild());
        // Every row's call is a bar, the call row of a call shown apart its return's bar.
        for (int row = 0; row < model.rowCount(); ++row) {
            const std::optional<TimelineCall> c = source.callOfRow(row);
            QVERIFY(c.has_value());
            const LiveTraceModel::Row* shown = model.displayRow(row);
            QCOMPARE(c->row == row, shown->displayKind != LiveTraceModel::CallKind || c->open);
        }
    }

    // Lanes read their addresses when they are made: records loaded afresh (or a ring that turned)
    // bring their own lanes, never the old records' texts.
    void lanesFollowNewRecords()
    {
        LiveTraceModel model(nullptr, app.getChannelControl(), app.getEndpoints().sharedRingName);
        TimelineModelSource source(model);
        source.setGrouping(LaneGrouping::Address);
        model.loadRecords({stamped(1, 1, 1, 5, "viRead(7)", 1, 0, 7, "GPIB0::5::INSTR")});
        source.rebuild();
        model.loadRecords({stamped(1, 1, 1, 5, "viRead(7)", 1, 0, 7, "ASRL3::INSTR"),
                           stamped(2, 2, 1, 6, "viRead(7)", 1, 0, 7, "GPIB0::5::INSTR")});
        QVERIFY(source.rebuild());
        QCOMPARE(describe(source),
                 QStringList({"ASRL3::INSTR | 4.000-5.000 | row 0"_q, "GPIB0::5::INSTR | 5.000-6.000 | row 1"_q}));
        model.loadRecords({stamped(1, 1, 1, 5, "viRead(7)", 1, 0, 7, "GPIB0::5::INSTR")});
        QVERIFY(source.rebuild());
        QCOMPARE(describe(source), QStringList({"GPIB0::5::INSTR | 4.000-5.000 | row 0"_q}));
    }

    // Hidden rows leave no bar; a highlight colours the bar and wins over the error colour.
    void filtersApply()
    {
        LiveTraceModel model(nullptr, app.getChannelControl(), app.getEndpoints().sharedRingName);
        model.loadRecords(joined({call(1, 1, 10, 11, "viWrite(7, \"*RST\\n\")", s_Timeout),
                                  call(2, 2, 12, 13, "viRead(7)"), call(1, 3, 14, 15, "viClose(7)")}));
        model.setFilter(
            rules({rule(SingleFilter::ExcludeThread, 2), rule(SingleFilter::HighlightCommand, 0, "*RST", Qt::cyan)}));
        TimelineModelSource source(model);
        source.rebuild();
        QCOMPARE(describe(source),
                 QStringList({"Pid 100, thread 1 | 10.000-11.000 | row 0 | 1 failed | #00ffff"_q,
                              "Pid 100, thread 1 | 14.000-15.000 | row 1"_q}));
    }

    // Times from outside are clamped, whatever they hold; nothing overflows on the way to pixels.
    void hostileTimes()
    {
        std::vector<FullEntry> records;
        const double nan = std::numeric_limits<double>::quiet_NaN();
        const double inf = std::numeric_limits<double>::infinity();
        const std::int64_t extremes[]
            = {std::numeric_limits<std::int64_t>::min(), -1, 0, s_T0, std::numeric_limits<std::int64_t>::max()};
        const double odd[] = {nan, inf, -inf, -1.0, 0.5, 1e300, -1e300, 2.0};
        std::uint64_t id = 0;
        for (std::int64_t seconds : extremes) {
            for (double value : odd) {
                ++id;
                FullEntry e = stamped(static_cast<std::uint32_t>(id % 3), id, 1, 0, "viRead(7)", 0);
                e.timestamp = seconds;
                e.timestampFraction = value;
                e.duration = odd[id % std::size(odd)];
                records.push_back(e);
            }
        }
        LiveTraceModel model(nullptr, app.getChannelControl(), app.getEndpoints().sharedRingName);
        model.loadRecords(records);
        TimelineModelSource source(model);
        source.rebuild();
        CallList calls;
        source.calls({0, s_LatestTime}, 1, calls);
        QCOMPARE(int(calls.size()), model.rowCount());
        for (const TimelineCall& c : calls) {
            QVERIFY(c.start >= 0 && c.start <= c.end && c.end <= s_LatestTime);
        }
        for (double msPerPixel : {1e-9, 1.0, 1e9}) {
            TimelineViewport v;
            v.setWidth(800);
            v.show({0, std::llround(msPerPixel * 800 * s_Ms)});
            v.zoom(400, 3);
            TimelineLayout layout;
            layout.place(v, calls);
            for (const TimelineBar& bar : layout.bars())
                QVERIFY(std::isfinite(bar.x0) && bar.x0 <= bar.x1 && bar.x1 <= 800 + 2);
            QVERIFY(!TimelineAxis::ticks(v, 100).empty());
        }
    }

    // ---- The dock, linked with the table ----

    // A click on a bar makes its row current; the details pane follows.
    void clickSelectsRow()
    {
        gui::CaptureWindow w(app, "capture"_q, captured());
        gui::TimelineView* timeline = show(w);
        const auto& bars = timeline->layout().bars();
        QCOMPARE(int(bars.size()), 4);
        for (const timeline::TimelineBar& bar : bars) {
            QTest::mouseClick(timeline->viewport(), Qt::LeftButton, {}, timeline->centreOf(bar));
            QCOMPARE(w.table()->currentIndex().row(), bar.call.row);
        }
        // The last bar is the call not returned yet; the details pane shows it.
        const QString details = child<QDockWidget>(&w, "detailsPane")->findChild<QLabel*>()->text();
        QVERIFY2(details.contains("not returned yet"_q), qPrintable(details));
        // A drag pans and selects nothing.
        const int current = w.table()->currentIndex().row();
        const Nanoseconds start = timeline->timeView().start();
        const QPoint from = timeline->centreOf(bars.front());
        QTest::mousePress(timeline->viewport(), Qt::LeftButton, {}, from);
        QMouseEvent drag(QEvent::MouseMove, from + QPoint(80, 0), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(timeline->viewport(), &drag);
        QTest::mouseRelease(timeline->viewport(), Qt::LeftButton, {}, from + QPoint(80, 0));
        QCOMPARE(w.table()->currentIndex().row(), current);
        QCOMPARE(timeline->timeView().start(),
                 std::max<Nanoseconds>(0, start - std::llround(80 * timeline->timeView().pixelSize())));
    }

    // F8 makes the next failed call current, on the timeline too: its bar comes into view, outlined.
    void errorKeysBringTheBarIntoView()
    {
        gui::CaptureWindow w(app, "capture"_q, captured());
        gui::TimelineView* timeline = show(w);
        w.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&w));
        w.table()->setCurrentIndex(w.model().index(0, LiveTraceModel::CommandColumn));
        timeline->zoomToSelection();
        const auto failed = [&w](int row) { return w.model().displayRow(row)->entry->status < 0; };
        QVERIFY(!failed(0));
        timeline->setFocus();
        QTest::keyClick(timeline, Qt::Key_F8);
        const int row = w.table()->currentIndex().row();
        QVERIFY(row > 0 && failed(row));
        const std::optional<TimelineCall> c = w.findChild<gui::TimelineDock*>()->source().callOfRow(row);
        QVERIFY(c.has_value());
        QVERIFY(c->start >= timeline->timeView().start());
        QVERIFY(c->end <= timeline->timeView().range().end);
        QVERIFY(!timeline->isFollowing());
        // Shift+F8 goes back along the timeline the same way.
        QTest::keyClick(timeline, Qt::Key_F8, Qt::ShiftModifier);
        QCOMPARE(w.table()->currentIndex().row(), row);
    }

    void toolTips()
    {
        gui::CaptureWindow w(app, "capture"_q, captured());
        gui::TimelineView* timeline = show(w);
        QStringList tips;
        for (const timeline::TimelineBar& bar : timeline->layout().bars())
            tips << timeline->toolTipOf(bar);
        QCOMPARE(tips,
                 QStringList({"viWrite(7, \"MEAS?\\n\")\nVI_SUCCESS, 1.500 ms\n22:13:20.010 \u2013 22:13:20.011"_q,
                              "viRead(7, \"\", 1024, 0)\nVI_ERROR_TMO, 2.000 s\n22:13:20.012 \u2013 22:13:22.012"_q,
                              "viClose(7)\nVI_SUCCESS, 1.250 ms\n22:13:22.100 \u2013 22:13:22.101"_q,
                              "viRead(9)\nNot returned yet, open for 2.081 s\n22:13:20.020 \u2013 22:13:22.101"_q}));
        timeline->showAll();
        timeline::TimelineBar merged;
        merged.call.merged = true;
        merged.call.count = 12;
        merged.call.errors = 2;
        merged.call.start = s_Origin;
        merged.call.end = s_Origin + s_Ms;
        QCOMPARE(
            timeline->toolTipOf(merged),
            "12 calls, 2 failed\n22:13:20.000 \u2013 22:13:20.001\nZoom in to tell them apart; a click selects the "
            "first failed call."_q);
    }

    // Lanes per address, switched in the header; a stored choice is taken back, a forged one not.
    void lanesAndSettings_data()
    {
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<int>("index");
        QTest::newRow("address") << QVariant(2) << 2;
        QTest::newRow("out of range") << QVariant(99) << 0;
        QTest::newRow("negative") << QVariant(-1) << 0;
        QTest::newRow("text") << QVariant("session"_q) << 0;
    }
    void lanesAndSettings()
    {
        QFETCH(QVariant, stored);
        QFETCH(int, index);
        gui::CaptureWindow w(app, "capture"_q, captured());
        gui::TimelineView* timeline = show(w);
        auto* dock = w.findChild<gui::TimelineDock*>();
        auto* lanes = child<QComboBox>(dock, "timelineLanes");
        QTemporaryDir dir;
        QSettings settings(dir.filePath("s.ini"_q), QSettings::IniFormat);
        settings.setValue(QLatin1String(gui::SettingsKeys::s_TimelineLanes), stored);
        dock->restore(settings, true);
        QCOMPARE(lanes->currentIndex(), index);
        QCOMPARE(int(dock->source().grouping()), index);
        if (index == 2) {
            QCOMPARE(dock->source().laneCount(), 2);
            QCOMPARE(dock->source().laneLabel(0), "GPIB0::22::INSTR"_q);
            QCOMPARE(dock->source().laneLabel(1), "TCPIP0::10.0.0.5::INSTR"_q);
            QCOMPARE(int(timeline->layout().bars().size()), 4);
        }
        lanes->setCurrentIndex(1);
        dock->save(settings);
        QCOMPARE(settings.value(QLatin1String(gui::SettingsKeys::s_TimelineLanes)).toInt(), 1);
    }

    // Live: the view follows the newest calls until the user zooms; the button returns to following;
    // paused, it stays still; an open call grows with the clock.
    void followsLiveCalls()
    {
        gui::TimelineDock* dock = openLive();
        // Hidden at first in the live window; asked for, it shows and is remembered.
        QVERIFY(dock->isHidden());
        dock->toggleViewAction()->trigger();
        QVERIFY(dock->isVisible());
        Nanoseconds now = s_Origin + 100 * s_Ms;
        dock->source().setClock([&now] { return now; });
        auto* timeline = &dock->timelineView();
        auto* follow = child<QToolButton>(dock, "timelineFollow");

        write(call(1, 1, 10, 20, "viWrite(7)"));
        QVERIFY(timeline->isFollowing() && follow->isChecked());
        QCOMPARE(timeline->timeView().range().end > s_Origin + 20 * s_Ms, true);
        QVERIFY(timeline->timeView().start() <= s_Origin + 10 * s_Ms);
        write(call(1, 2, 5000, 5010, "viRead(7)"));
        QVERIFY(timeline->timeView().range().end >= s_Origin + 5010 * s_Ms);

        // A wheel turn zooms around the pointer and ends following.
        QWheelEvent wheel(QPointF(timeline->layout().sizes().labelWidth + 50, 40),
                          timeline->mapToGlobal(QPoint(50, 40)), QPoint(), QPoint(0, 120), Qt::NoButton, Qt::NoModifier,
                          Qt::NoScrollPhase, false);
        QCoreApplication::sendEvent(timeline->viewport(), &wheel);
        QVERIFY(!timeline->isFollowing() && !follow->isChecked());
        const TimeRange zoomed = timeline->timeView().range();
        write(call(1, 3, 9000, 9010, "viRead(7)"));
        QCOMPARE(timeline->timeView().range().begin, zoomed.begin);
        QCOMPARE(timeline->timeView().range().end, zoomed.end);

        follow->click();
        QVERIFY(timeline->isFollowing());
        QCOMPARE(timeline->timeView().span(), zoomed.length());
        QVERIFY(timeline->timeView().range().end >= s_Origin + 9010 * s_Ms);

        // An open call grows with the clock, step by step of the timer.
        write({stamped(1, 4, 0, 9100, "viRead(7)")});
        QVERIFY(timeline->isGrowing());
        now = s_Origin + 12000 * s_Ms;
        timeline->advance();
        QCOMPARE(dock->source().extent().end, now);
        QVERIFY(timeline->timeView().range().end >= now);

        // Paused, nothing moves, whatever the clock does.
        child<QAction>(window.get(), "actionPause")->trigger();
        QVERIFY(app.getModel().isPaused());
        const TimeRange paused = timeline->timeView().range();
        now += 5000 * s_Ms;
        writeAndTake(app, producer, call(2, 9, 13000, 13010, "viRead(7)"), true);
        timeline->advance();
        QVERIFY(!timeline->isGrowing());
        QCOMPARE(timeline->timeView().range().begin, paused.begin);
        QCOMPARE(timeline->timeView().range().end, paused.end);
    }

    // Shown in the last window, shown in the next. A hidden timeline takes no rows; shown again it
    // has them all.
    void hiddenCostsNothing()
    {
        gui::TimelineDock* dock = openLive();
        QVERIFY(dock->isVisible());
        dock->hide();
        write(call(1, 1, 10, 20, "viWrite(7)"));
        QCOMPARE(dock->source().laneCount(), 0);
        dock->show();
        QTRY_COMPARE(dock->source().laneCount(), 1);
    }

private:
    // The live window, shown, and its timeline.
    gui::TimelineDock* openLive()
    {
        window = std::make_unique<gui::MainWindow>(nullptr, app);
        window->show();
        if (!QTest::qWaitForWindowExposed(window.get()))
            qFatal("window not exposed");
        return child<gui::TimelineDock>(window.get(), "timelinePane");
    }
    gui::TimelineView* show(gui::CaptureWindow& w)
    {
        w.show();
        if (!QTest::qWaitForWindowExposed(&w))
            qFatal("window not exposed");
        auto* dock = w.findChild<gui::TimelineDock*>();
        if (!dock || !dock->isVisible())
            qFatal("no timeline");
        dock->timelineView().showAll();
        return &dock->timelineView();
    }

    // Four calls in two threads: one fails after 2 s, one has not returned.
    static capture::Capture captured()
    {
        capture::Capture c;
        c.records = joined({call(1, 1, 10, 11.5, "viWrite(7, \"MEAS?\\n\")"),
                            {stamped(2, 2, 0, 20, "viRead(9)", 0, 0, 7, "TCPIP0::10.0.0.5::INSTR")},
                            call(1, 3, 12, 2012, "viRead(7, \"\", 1024, 0)", s_Timeout),
                            call(1, 4, 2100, 2101.25, "viClose(7)")});
        return c;
    }

    void write(const std::vector<FullEntry>& list) { writeAndTake(app, producer, list); }

    TraceApplication& app;
    TraceProducer producer {segment().key, s_VisaSharedMemorySize, segment().semaphore, segment().fileSemaphore};
    std::unique_ptr<gui::MainWindow> window;
};

int main(int argc, char** argv)
{
    return execWithApplication<TestTimeline>(argc, argv, segment(), "timeline");
}

#include "tst_timeline.moc"
