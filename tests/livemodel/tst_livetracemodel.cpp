#include "FilterTestSupport.h"
#include "LiveTraceModel.h"
#include "RowStream.h"
#include "SequenceMark.h"
#include "TestClock.h"
#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QtTest>

#include <random>

using namespace ZelTracer;

namespace {

// One record as the producer writes it; calls carry no result, returns their duration and status.
struct Call
{
    std::uint32_t pid, thread;
    std::uint64_t id;
    std::uint32_t kind;
    const char* text;
    std::int32_t status = 0;
    double duration = 0.002;
};

// The private pipeline of one test: segment, producer, channel control and the model on a private ring.
struct Pipeline
{
    // A started pipeline; the calls given are written and captured.
    explicit Pipeline(int tag, std::initializer_list<Call> calls = {})
        : segment(tag)
        , control(segment.key, s_VisaSharedMemorySize, segment.semaphore)
        , producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore)
        , ring(QString::fromStdString(TestNames::sharedRingName(std::to_string(tag).c_str())))
        , model(nullptr, control, ring)
    {
        model.setClock(clock.function());
        control.setTracingActive(true);
        if (!model.start())
            qFatal("model not started");
        for (const Call& c : calls)
            write(c);
        if (calls.size())
            capture();
    }

    void write(const Call& c)
    {
        FullEntry e = makeCall(c.pid, c.thread, c.id, c.kind, c.text, c.status);
        e.duration = c.duration;
        producer.write(e);
    }
    // One pass of every stage, whatever the timer would have skipped.
    void capture()
    {
        clock.advance(LiveTraceModel::s_TimerInterval + 10); // the ring was fed more than a tick ago
        model.updateSharedData();
        model.updateInternalAndDipslay();
    }
    // Each row as "kind command duration", rows separated by '|'.
    QString rows() const
    {
        QStringList dump;
        for (int r = 0; r < model.rowCount(); ++r) {
            dump << QStringLiteral("%1 %2 %3")
                        .arg(model.displayRow(r)->displayKind)
                        .arg(model.data(model.index(r, LiveTraceModel::CommandColumn)).toString())
                        .arg(model.data(model.index(r, LiveTraceModel::DurationColumn)).toString());
        }
        return dump.join(QLatin1Char('|'));
    }
    QString cell(int row, int column) const { return model.data(model.index(row, column)).toString(); }

    PrivateSegment segment;
    TraceChannelControl control;
    TraceProducer producer;
    QString ring;
    TestClock clock;
    LiveTraceModel model;
};

} // namespace

using Batches = std::vector<std::vector<Call>>;
Q_DECLARE_METATYPE(Batches)
using Records = QVector<QPair<uint, quint64>>; // (pid, reserved) in arrival order

class TestLiveTraceModel : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        Q_INIT_RESOURCE(icons);
        qputenv("TZ", "UTC");
        tzset();
    }

    void rows_data()
    {
        QTest::addColumn<Batches>("batches");
        QTest::addColumn<std::uint32_t>("hiddenThread");
        QTest::addColumn<QString>("rows");
        // No test writes from thread 0, so a hidden thread of 0 hides nothing.
        auto row = [](const char* name, Batches batches, const char* rows, std::uint32_t hiddenThread = 0) {
            QTest::newRow(name) << batches << hiddenThread << QString::fromLatin1(rows);
        };
        // A call and its return of thread 1; every display stage rebuilds all rows, so pairs may come in batches.
        auto pair = [](std::uint64_t id, const char* text, std::int32_t status = 0, double duration = 0.002) {
            return std::vector<Call> {{1, 1, id, 0, text}, {1, 1, id, 1, text, status, duration}};
        };
        row("call and return back to back pair", {pair(1, "viWrite(1, \"*RST\")")}, "2 viWrite(1, \"*RST\") 2.000 ms");
        row("interleaved threads do not pair",
            {{{1, 1, 1, 0, "a"}, {1, 2, 2, 0, "b"}, {1, 1, 1, 1, "a"}, {1, 2, 2, 1, "b"}}},
            "0 a |0 b |1 a 2.000 ms|1 b 2.000 ms");
        row("a return first in an empty display is complete", {{{1, 1, 9, 1, "viClose(1)"}}}, "2 viClose(1) 2.000 ms");
        row("three identical calls collapse",
            {pair(1, "viRead(1)"), pair(2, "viRead(1)", 0, 0.003), pair(3, "viRead(1)", 0, 0.004)},
            "2 3 x viRead(1) 9.000 ms");
        row("a longer text followed by its prefix collapses",
            {pair(1, "viWrite(1, \"ABC\")"), pair(2, "viWrite(1, \"AB")}, "2 2 x viWrite(1, \"AB 4.000 ms");
        row("a text followed by a longer one does not", {pair(1, "viWrite(1, \"AB"), pair(2, "viWrite(1, \"ABC\")")},
            "2 viWrite(1, \"AB 2.000 ms|2 viWrite(1, \"ABC\") 2.000 ms");
        row("different status does not collapse", {pair(1, "viRead(1)"), pair(2, "viRead(1)", -1)},
            "2 viRead(1) 2.000 ms|2 viRead(1) 2.000 ms");
        row("a hidden return takes its call row with it",
            {pair(1, "viOpen"), {{1, 1, 2, 0, "viRead(1, \"\")"}, {1, 1, 2, 1, "viRead(1, \"secret\")"}}},
            "2 viOpen 2.000 ms");
        // Taking from the shared ring neither loses nor repeats a record, whatever fields records share.
        row("a record sharing kind, id, pid and timestamp with the last taken one",
            {{{5, 1, 10, 0, "a"}}, {{5, 2, 11, 0, "b"}, {5, 3, 10, 0, "c"}, {5, 1, 12, 0, "d"}}},
            "0 a |0 b |0 c |0 d ");
        // A record taken again would pair with itself; the one before it shows the repeat.
        row("pid 0 as the newest record", {{{5, 1, 1, 1, "a"}, {0, 1, 2, 1, "zero"}}, {}, {}},
            "2 a 2.000 ms|1 zero 2.000 ms");
        // The rule hides the batch when it arrives and is removed at the end.
        row("the first batch is taken even when the filters hide all of it", {{{5, 9, 1, 0, "x"}, {5, 9, 2, 0, "y"}}},
            "0 x |0 y ", 9);
    }

    void rows()
    {
        QFETCH(Batches, batches);
        QFETCH(std::uint32_t, hiddenThread);
        QFETCH(QString, rows);

        Pipeline p(1);
        const SingleFilter secret = rule(SingleFilter::ExcludeCommand, 0, "SECRET");
        p.model.setFilter(rules({secret, rule(SingleFilter::ExcludeThread, hiddenThread)}));
        for (const std::vector<Call>& batch : batches) {
            for (const Call& c : batch)
                p.write(c);
            p.capture();
        }
        p.model.setFilter(rules({secret}));
        QCOMPARE(p.rows(), rows);
    }

    // The loss per process from the numbers our producers mark records with. Words that fail the check
    // (other VISA libraries write anything into reserved) count nothing, nor does a jump further than
    // a producer could have written since its last record.
    void lossCounter_data()
    {
        QTest::addColumn<Records>("records");
        QTest::addColumn<QString>("lost"); // the total, then pid:loss of each process with a loss
        auto row = [](const char* name, Records records, const char* lost) {
            QTest::newRow(name) << records << QString::fromLatin1(lost);
        };
        auto marked = [](uint pid, std::initializer_list<quint64> numbers) {
            Records records;
            for (quint64 n : numbers)
                records.append({pid, SequenceMark::mark(pid, n)});
            return records;
        };
        const quint64 wrap = SequenceMark::s_NumberMask;
        row("no gap", marked(1, {1, 2, 3}), "0");
        row("first record seen is the start", marked(1, {500, 501}), "0");
        row("gaps per process", marked(1, {1}) + marked(2, {7}) + marked(1, {4}) + marked(2, {10}) + marked(1, {5}),
            "4 1:2 2:2");
        row("other producers ignored",
            marked(1, {1}) + Records {{1, 0}, {1, 77}, {1, SequenceMark::mark(2, 9)}} + marked(1, {2}), "0");
        row("late arrival", marked(1, {1, 3, 2, 4}), "0");
        row("same record twice", marked(1, {1, 1, 2}), "0");
        row("reused pid starts again", marked(1, {1000, 1, 3}), "1 1:1");
        row("numbers wrap", marked(1, {wrap - 1, wrap, 0, 2}), "1 1:1");
        row("a jump no producer makes", marked(1, {1, 2, 1ull << 39, 3 + (1ull << 39)}), "2 1:2");
        // 400,000 records of 16 processes with random reserved words: the old 16-bit tag let one in
        // 65,536 through, each counting a loss in the trillions.
        Records random;
        std::mt19937_64 words(19);
        for (int i = 0; i < 400000; ++i)
            random.append({uint(i % 16), words()});
        row("random reserved words", random, "0");
    }
    void lossCounter()
    {
        QFETCH(Records, records);
        QFETCH(QString, lost);
        LossCounter counter;
        for (const auto& r : records)
            counter.add(r.first, r.second);
        QString shown = QString::number(counter.total());
        for (const auto& [pid, count] : counter.lossByProcess())
            shown += QStringLiteral(" %1:%2").arg(pid).arg(count);
        QCOMPARE(shown, lost);
    }

    void lossCounterMemoryStaysBounded()
    {
        LossCounter counter(16);
        for (std::uint32_t pid = 1; pid <= 100000; ++pid) {
            counter.add(pid, SequenceMark::mark(pid, 1));
            counter.add(pid, SequenceMark::mark(pid, 3));
            counter.add(200000, SequenceMark::mark(200000, pid)); // seen all along, losing nothing
        }
        QVERIFY(counter.trackedProcesses() == 16 && counter.total() == 100000 && counter.lostFor(200000) == 0);
    }

    // A recorder's rows: every record taken, paired as the view pairs them, hidden ones left out, each
    // handed on once final; what the local ring overwrote before the stream saw it is counted.
    void rowStream()
    {
        Pipeline p(13);
        QStringList rows;
        RowStream stream(rules({rule(SingleFilter::ExcludeCommand, 0, "viClose")}), [&rows](RowStream::Row const& row) {
            rows << QStringLiteral("%1 %2").arg(row.displayKind).arg(QLatin1String(row.entry->text));
        });
        p.write({1, 1, 1, 0, "viOpen"});
        p.write({1, 1, 1, 1, "viOpen"});
        p.write({1, 1, 2, 0, "viRead"});
        p.write({1, 2, 3, 0, "viWrite"});
        p.write({1, 1, 2, 1, "viRead"});
        p.write({1, 1, 4, 0, "viClose"});
        p.capture();
        stream.take(p.model);
        QCOMPARE(rows.join(QLatin1Char('|')), QStringLiteral("2 viOpen|0 viRead|0 viWrite"));
        for (std::uint64_t id = 10; id < 10010; ++id) {
            p.write({1, 1, id, 0, "viWaitOnEvent"});
            if (id % 5000 == 9)
                p.capture();
        }
        rows.clear();
        stream.take(p.model);
        stream.finish();
        QCOMPARE(stream.missed(), 10000u - 8510); // the local ring holds 8510 of the 10,000
        QCOMPARE(rows.size(), 8510 + 1); // the pending return of viRead, then every call held
        QCOMPARE(rows.first(), QStringLiteral("1 viRead"));
    }

    // What the producer could not fit into a full segment shows up as lost once later records arrive.
    void droppedRecordsCountAsLost()
    {
        Pipeline p(11);
        for (std::uint64_t id = 1; id <= 8000; ++id)
            p.write({33, 1, id, 0, "viClear(1)"});
        QVERIFY(p.producer.getDropped() > 0);
        p.capture();
        p.write({33, 1, 9000, 0, "viClear(1)"});
        p.capture();
        QCOMPARE(p.model.getLossCounter().total(), p.producer.getDropped());
        p.model.clear();
        QCOMPARE(p.model.getLossCounter().total(), 0u);
    }

    // Another process's clock, or a hostile writer, sets the shared ring's stamp: capture goes on. A fresh
    // stamp that nobody drains behind holds it back one tick at most. Switching collapsing off rebuilds
    // the rows at once.
    void drainsWhateverTheLastUpdateStampAndOptions()
    {
        Pipeline p(12);
        RingBufferSharedMem<FullEntry> peer(p.ring, LiveTraceModel::s_DefaultSharedRingSize);
        std::uint64_t id = 0;
        QStringList taken;
        // Fresh stamps of a writer that never drains, a clock stepped back by 10 s, a stamp far in the
        // past, one at the end of time.
        for (qint64 stamp : {p.clock.now - 1, p.clock.now - 2, p.clock.now + 10000, LLONG_MIN, LLONG_MAX}) {
            peer.lockWithin();
            peer.readHeader();
            peer.lastUpdate = stamp;
            peer.writeHeader();
            peer.unlock();
            p.write({1, 1, ++id, 1, "viWrite(1, \"X\")"});
            p.model.updateSharedData();
            p.model.updateInternalAndDipslay();
            taken << QString::number(p.model.getLocalRing().size());
        }
        QCOMPARE(taken.join(QLatin1Char(' ')), QStringLiteral("0 2 3 4 5"));
        p.model.setShowOnlyStringParameters(true);
        p.model.setCollapseSameCommands(false);
        QCOMPARE(p.rows(),
                 QStringLiteral("2 viWrite(\"X\") 2.000 ms|1 viWrite(\"X\") 2.000 ms|1 viWrite(\"X\") 2.000 ms|"
                                "1 viWrite(\"X\") 2.000 ms|1 viWrite(\"X\") 2.000 ms"));
    }

    void cells()
    {
        // The second call has an id below the process's first: a restarted process.
        Pipeline p(3,
                   {{100, 5, 10, 0, "viOpen(1, \"GPIB0::22::INSTR\")"},
                    {100, 5, 10, 1, "viOpen(1, \"GPIB0::22::INSTR\")", static_cast<std::int32_t>(0xBFFF0015u), 2.5},
                    {100, 5, 4, 0, "viClose(2)"}});
        // Each row's cells and row header, then the column titles; an open call shows neither duration
        // nor status, a row past the end nothing.
        QStringList cells;
        for (int r = 0; r <= 2; ++r) {
            for (int c = 0; c < LiveTraceModel::ColumnCount; ++c)
                cells << p.cell(r, c);
            cells << p.model.headerData(r, Qt::Vertical).toString();
        }
        for (int c = 0; c <= LiveTraceModel::ColumnCount; ++c)
            cells << p.model.headerData(c, Qt::Horizontal).toString();
        QCOMPARE(cells.join(QLatin1Char('|')),
                 QStringLiteral("10|22:13:30.250|1.500000 s|100|5|7|GPIB0::22::INSTR|2.500 s|VI_ERROR_TMO|"
                                "viOpen(1, \"GPIB0::22::INSTR\")|0|"
                                "4|22:13:24.250|1.500000 s|100|5|7|GPIB0::22::INSTR|||viClose(2)|-1|"
                                "|||||||||||"
                                "Id|Timestamp|Elapsed time|Pid|Thread|Session|Address|Duration|Status|Command|"));
        QCOMPARE(p.model.data(p.model.index(0, LiveTraceModel::IdColumn)).userType(), int(QMetaType::ULongLong));
        QCOMPARE(p.model.data(p.model.index(0, LiveTraceModel::PidColumn)).userType(), int(QMetaType::UInt));
        QVERIFY(!p.model.data(p.model.index(0, 0), Qt::ToolTipRole).isValid());
    }

    // Error rows are red unless a highlight takes them; the call of the current row and its return are
    // bold (not another call of the thread), and the call's arrow changes.
    void coloursAndCurrentCall()
    {
        Pipeline p(4, {{1, 1, 1, 0, "a"}, {1, 2, 2, 0, "b"}, {1, 1, 1, 1, "a"}, {1, 1, 3, 1, "c", -1}});
        auto background = [&](int row) { return p.model.data(p.model.index(row, 3), Qt::BackgroundRole); };
        QVERIFY(p.model.errorInDisplay && !background(0).isValid());
        QCOMPARE(background(3).value<QBrush>().color(), QColor(255, 128, 128));
        const auto icon = [&](int row) {
            return p.model.headerData(row, Qt::Vertical, Qt::DecorationRole).value<QPixmap>().cacheKey();
        };
        const qint64 plainDown = icon(0);
        QItemSelectionModel selection(&p.model);
        p.model.selectionModel = &selection;
        auto bold = [&] {
            QString rows;
            for (int r = 0; r < 4; ++r)
                rows += QString::number(p.model.data(p.model.index(r, 0), Qt::FontRole).value<QFont>().bold());
            return rows;
        };
        QCOMPARE(bold(), QStringLiteral("0000"));
        selection.setCurrentIndex(p.model.index(2, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
        QCOMPARE(bold(), QStringLiteral("1010"));
        QVERIFY(!p.model.data(p.model.index(1, 0), Qt::FontRole).isValid());
        QVERIFY(plainDown != 0 && icon(0) != plainDown && icon(1) == plainDown);
        p.model.addFilter(rule(SingleFilter::HighlightCommand, 0, "c", Qt::green));
        QCOMPARE(background(3).value<QColor>(), QColor(Qt::green));
    }

    void rowCapAndNotifications()
    {
        Pipeline p(6);
        QSignalSpy removed(&p.model, &QAbstractItemModel::rowsRemoved);
        QSignalSpy inserted(&p.model, &QAbstractItemModel::rowsInserted);
        for (std::uint64_t id = 0; id < 9000; ++id) {
            p.write({1, 1, id, 0, std::to_string(id).c_str()});
            if (id % 3000 == 2999)
                p.capture();
        }
        QCOMPARE(p.model.rowCount(), 8510);
        // The rows that left the full ring were announced as removed at the top.
        QCOMPARE(removed.size(), 1);
        QCOMPARE(removed.first().mid(1), (QVariantList {0, 9000 - 8510 - 1}));
        QCOMPARE(inserted.size(), 3);
        QCOMPARE(p.cell(0, LiveTraceModel::CommandColumn), QStringLiteral("490"));
    }

    void pauseClearResume()
    {
        Pipeline p(7, {{1, 1, 1, 1, "first"}});
        p.model.setPause(true);
        p.write({1, 1, 2, 1, "during pause"});
        p.clock.advance(LiveTraceModel::s_TimerInterval + 10);
        p.model.timerHit();
        QCOMPARE(p.rows(), QStringLiteral("2 first 2.000 ms"));
        p.model.clear();
        p.model.updateDisplayData();
        QCOMPARE(p.model.rowCount(), 0);
        p.model.setPause(false);
        p.write({1, 1, 3, 1, "after"});
        p.capture();
        QCOMPARE(p.rows(), QStringLiteral("2 after 2.000 ms"));
    }

    // "Keep records while paused": the rows on screen stay while records keep coming; resuming shows
    // them with what arrived, as much as the view holds, and counts what did not fit.
    void keepRecordsWhilePaused_data()
    {
        QTest::addColumn<int>("before");
        QTest::addColumn<int>("during");
        QTest::addColumn<int>("firstShown");
        QTest::addColumn<int>("notShown");
        QTest::newRow("held rows and the arrived ones") << 3 << 2 << 0 << 0;
        QTest::newRow("more than the view holds") << 8000 << 1000 << 490 << 490;
        QTest::newRow("more than the pause holds") << 10 << 9000 << 500 << 500;
    }
    void keepRecordsWhilePaused()
    {
        QFETCH(int, before);
        QFETCH(int, during);
        QFETCH(int, firstShown);
        QFETCH(int, notShown);
        Pipeline p(14);
        p.model.setKeepRecordsWhilePaused(true);
        p.model.setCollapseSameCommands(false);
        int id = 0;
        auto calls = [&p, &id](int count, bool paused) {
            for (const int end = id + count; id < end;) {
                p.write({1, 1, std::uint64_t(id), 0, std::to_string(id).c_str()});
                if (++id % 5000 == 0 || id == end) {
                    p.clock.advance(LiveTraceModel::s_TimerInterval + 10);
                    if (paused)
                        p.model.timerHit();
                    else
                        p.capture();
                }
            }
        };
        calls(before, false);
        p.model.setPause(true);
        const QString frozen = p.rows();
        calls(during, true);
        p.model.updateDisplayData();
        QCOMPARE(p.rows(), frozen);
        p.model.setPause(false);
        p.model.updateDisplayData();
        QCOMPARE(p.model.rowCount(), before + during - notShown);
        QCOMPARE(p.cell(0, LiveTraceModel::CommandColumn), QString::number(firstShown));
        QCOMPARE(int(p.model.getRecordsNotShown()), notShown);
    }

    void secondInstanceSharesTheRing()
    {
        Pipeline p(8);
        TraceChannelControl otherControl(p.segment.key, s_VisaSharedMemorySize, p.segment.semaphore);
        LiveTraceModel other(nullptr, otherControl, p.ring);
        other.setClock(p.clock.function());
        QVERIFY(other.start());
        p.write({42, 1, 1, 1, "one"});
        p.write({7, 1, 2, 1, "two"});
        p.capture();
        // Within one tick of the first instance's update the second does not copy from the segment.
        p.write({7, 1, 3, 1, "three"});
        other.updateSharedData();
        other.updateInternalAndDipslay();
        QCOMPARE(other.rowCount(), 2);
        QCOMPARE(other.getPids(), (std::set<std::uint32_t> {7, 42}));
        p.clock.advance(LiveTraceModel::s_TimerInterval + 10);
        other.updateSharedData();
        other.updateInternalAndDipslay();
        p.model.updateInternalAndDipslay();
        QVERIFY(other.rowCount() == 3 && p.model.rowCount() == 3);
        QVERIFY(other.detachSharedRingBuffer()); // the first is still attached
        QVERIFY(!p.model.detachSharedRingBuffer());
        QVERIFY(p.model.detachSharedRingBuffer()); // no ring any more
    }

    void timerDrivesThePipeline()
    {
        Pipeline p(9);
        QSignalSpy collected(&p.model, &LiveTraceModel::newDataCollected);
        p.write({1, 1, 1, 0, "viOpen"});
        p.write({1, 1, 1, 1, "viOpen"});
        QTRY_COMPARE(p.model.rowCount(), 1);
        QVERIFY(!collected.isEmpty());
        p.model.stop();
        QTRY_VERIFY(!p.model.isRunning() && p.model.getPids().empty());
    }
};

QTEST_MAIN(TestLiveTraceModel)
#include "tst_livetracemodel.moc"
