#include "LiveTraceModel.h"
#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QtTest>

using namespace ZelTracer;

namespace {

// One record as the producer writes it; calls carry no result, returns their duration and status.
struct Call
{
    std::uint32_t pid;
    std::uint32_t thread;
    std::uint64_t id;
    std::uint32_t kind;
    const char* text;
    std::int32_t status = 0;
    double duration = 0.002;
};

// The private pipeline of one test: segment, producer, channel control and the model on a private ring.
struct Pipeline
{
    explicit Pipeline(int tag)
        : segment(tag)
        , control(segment.key, s_VisaSharedMemorySize, segment.semaphore)
        , producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore)
        , model(nullptr, control, QString::fromStdString(TestNames::sharedRingName(std::to_string(tag).c_str())))
    {
        control.setTracingActive(true);
    }

    void write(const Call& c)
    {
        FullEntry e = makeEntry(c.id, c.pid, c.kind, c.text);
        e.threadId = c.thread;
        e.status = c.status;
        e.duration = c.duration;
        producer.write(e);
    }
    // One pass of every stage, whatever the timer would have skipped.
    void capture()
    {
        QTest::qWait(LiveTraceModel::s_TimerInterval + 10); // the shared stage feeds a ring at most once a tick
        model.updateSharedData();
        model.updateInternalAndDipslay();
    }
    QStringList rows() const
    {
        QStringList dump;
        for (int r = 0; r < model.rowCount(); ++r) {
            const LiveTraceModel::Row* row = model.displayRow(r);
            dump << QStringLiteral("%1 %2 %3")
                        .arg(row->displayKind)
                        .arg(model.data(model.index(r, LiveTraceModel::CommandColumn)).toString())
                        .arg(model.data(model.index(r, LiveTraceModel::DurationColumn)).toString());
        }
        return dump;
    }

    PrivateSegment segment;
    TraceChannelControl control;
    TraceProducer producer;
    LiveTraceModel model;
};

} // namespace

Q_DECLARE_METATYPE(std::vector<std::vector<Call>>)

class TestLiveTraceModel : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void rows_data();
    void rows();
    void droppedRecordsCountAsLost();
    void drainsWhateverTheLastUpdateStamp_data();
    void drainsWhateverTheLastUpdateStamp();
    void collapsingOff();
    void cells();
    void colours();
    void currentCallIsBold();
    void rowCapAndNotifications();
    void pauseClearResume();
    void secondInstanceSharesTheRing();
    void timerDrivesThePipeline();
};

void TestLiveTraceModel::initTestCase()
{
    Q_INIT_RESOURCE(icons);
    qputenv("TZ", "UTC");
    tzset();
}

using Batches = std::vector<std::vector<Call>>;

void TestLiveTraceModel::rows_data()
{
    QTest::addColumn<Batches>("batches");
    QTest::addColumn<std::uint32_t>("hiddenThread");
    QTest::addColumn<QStringList>("rows");

    const QString ms = QStringLiteral("2.000 ms");
    QTest::newRow("call and return back to back pair")
        << Batches {{{1, 1, 1, 0, "viWrite(1, \"*RST\")"}, {1, 1, 1, 1, "viWrite(1, \"*RST\")"}}} << 0u
        << QStringList {QStringLiteral("2 viWrite(1, \"*RST\") ") + ms};
    QTest::newRow("interleaved threads do not pair")
        << Batches {{{1, 1, 1, 0, "a"}, {1, 2, 2, 0, "b"}, {1, 1, 1, 1, "a"}, {1, 2, 2, 1, "b"}}} << 0u
        << QStringList {QStringLiteral("0 a "), QStringLiteral("0 b "), QStringLiteral("1 a ") + ms,
                        QStringLiteral("1 b ") + ms};
    QTest::newRow("a return first in an empty display is complete")
        << Batches {{{1, 1, 9, 1, "viClose(1)"}}} << 0u << QStringList {QStringLiteral("2 viClose(1) ") + ms};
    QTest::newRow("three identical calls collapse") << Batches {{{1, 1, 1, 0, "viRead(1)"},
                                                                 {1, 1, 1, 1, "viRead(1)", 0, 0.002},
                                                                 {1, 1, 2, 0, "viRead(1)"},
                                                                 {1, 1, 2, 1, "viRead(1)", 0, 0.003},
                                                                 {1, 1, 3, 0, "viRead(1)"},
                                                                 {1, 1, 3, 1, "viRead(1)", 0, 0.004}}}
                                                    << 0u << QStringList {QStringLiteral("2 3 x viRead(1) 9.000 ms")};
    QTest::newRow("a longer text followed by its prefix collapses")
        << Batches {{{1, 1, 1, 0, "viWrite(1, \"ABC\")"},
                     {1, 1, 1, 1, "viWrite(1, \"ABC\")"},
                     {1, 1, 2, 0, "viWrite(1, \"AB"},
                     {1, 1, 2, 1, "viWrite(1, \"AB"}}}
        << 0u << QStringList {QStringLiteral("2 2 x viWrite(1, \"AB 4.000 ms")};
    QTest::newRow("a text followed by a longer one does not")
        << Batches {{{1, 1, 1, 0, "viWrite(1, \"AB"},
                     {1, 1, 1, 1, "viWrite(1, \"AB"},
                     {1, 1, 2, 0, "viWrite(1, \"ABC\")"},
                     {1, 1, 2, 1, "viWrite(1, \"ABC\")"}}}
        << 0u << QStringList {QStringLiteral("2 viWrite(1, \"AB ") + ms, QStringLiteral("2 viWrite(1, \"ABC\") ") + ms};
    QTest::newRow("different status does not collapse")
        << Batches {{{1, 1, 1, 0, "viRead(1)"},
                     {1, 1, 1, 1, "viRead(1)"},
                     {1, 1, 2, 0, "viRead(1)"},
                     {1, 1, 2, 1, "viRead(1)", -1}}}
        << 0u << QStringList {QStringLiteral("2 viRead(1) ") + ms, QStringLiteral("2 viRead(1) ") + ms};
    QTest::newRow("a hidden return takes its call row with it") << Batches {{{1, 1, 1, 0, "viOpen"},
                                                                             {1, 1, 1, 1, "viOpen"},
                                                                             {1, 1, 2, 0, "viRead(1, \"\")"},
                                                                             {1, 1, 2, 1, "viRead(1, \"secret\")"}}}
                                                                << 0u << QStringList {QStringLiteral("2 viOpen ") + ms};
    // Taking from the shared ring neither loses nor repeats a record, whatever fields records share.
    QTest::newRow("a record sharing kind, id, pid and timestamp with the last taken one")
        << Batches {{{5, 1, 10, 0, "a"}}, {{5, 2, 11, 0, "b"}, {5, 3, 10, 0, "c"}, {5, 1, 12, 0, "d"}}} << 0u
        << QStringList {QStringLiteral("0 a "), QStringLiteral("0 b "), QStringLiteral("0 c "), QStringLiteral("0 d ")};
    QTest::newRow("pid 0 as the newest record")
        << Batches {{{0, 1, 1, 1, "zero"}}, {}, {}} << 0u << QStringList {QStringLiteral("2 zero ") + ms};
    // The rule hides the batch when it arrives and is removed at the end.
    QTest::newRow("the first batch is taken even when the filters hide all of it")
        << Batches {{{5, 9, 1, 0, "x"}, {5, 9, 2, 0, "y"}}} << 9u
        << QStringList {QStringLiteral("0 x "), QStringLiteral("0 y ")};
}

void TestLiveTraceModel::rows()
{
    QFETCH(Batches, batches);
    QFETCH(std::uint32_t, hiddenThread);
    QFETCH(QStringList, rows);

    Pipeline p(1);
    QVERIFY(p.model.start());
    SingleFilter hide;
    hide.type = SingleFilter::ExcludeCommand;
    hide.text = QStringLiteral("SECRET");
    ModelFilters secretOnly;
    secretOnly.add(hide);
    p.model.setFilter(secretOnly);
    if (hiddenThread != 0) {
        hide.type = SingleFilter::ExcludeThread;
        hide.value = hiddenThread;
        p.model.addFilter(hide);
    }
    for (const std::vector<Call>& batch : batches) {
        for (const Call& c : batch)
            p.write(c);
        p.capture();
    }
    p.model.setFilter(secretOnly);
    QCOMPARE(p.rows(), rows);
}

// What the producer could not fit into a full segment shows up as lost once later records arrive.
void TestLiveTraceModel::droppedRecordsCountAsLost()
{
    Pipeline p(11);
    QVERIFY(p.model.start());
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

void TestLiveTraceModel::drainsWhateverTheLastUpdateStamp_data()
{
    QTest::addColumn<qint64>("offset");
    QTest::addColumn<bool>("absolute");
    QTest::newRow("clock stepped back: stamp 10 s in the future") << qint64(10000) << false;
    QTest::newRow("stamp far in the past") << std::numeric_limits<qint64>::min() << true;
    QTest::newRow("stamp at the end of time") << std::numeric_limits<qint64>::max() << true;
}

// Another process's clock, or a hostile writer, sets the shared ring's stamp: capture goes on.
void TestLiveTraceModel::drainsWhateverTheLastUpdateStamp()
{
    QFETCH(qint64, offset);
    QFETCH(bool, absolute);
    Pipeline p(12);
    QVERIFY(p.model.start());
    RingBufferSharedMem<FullEntry> peer(QString::fromStdString(TestNames::sharedRingName("12")),
                                        LiveTraceModel::s_DefaultSharedRingSize);
    for (std::uint64_t id = 1; id <= 3; ++id) {
        peer.block().lock();
        peer.readHeader();
        peer.lastUpdate = absolute ? offset : QDateTime::currentMSecsSinceEpoch() + offset;
        peer.writeHeader();
        peer.block().unlock();
        p.write({1, 1, id, 1, "viClear(1)"});
        p.model.updateSharedData();
        p.model.updateInternalAndDipslay();
    }
    p.model.setCollapseSameCommands(false);
    QCOMPARE(p.model.rowCount(), 3);
}

void TestLiveTraceModel::collapsingOff()
{
    Pipeline p(2);
    QVERIFY(p.model.start());
    for (std::uint64_t id = 1; id <= 3; ++id) {
        p.write({1, 1, id, 0, "viWrite(1, \"*CLS\")"});
        p.write({1, 1, id, 1, "viWrite(1, \"*CLS\")"});
    }
    p.capture();
    QCOMPARE(p.model.rowCount(), 1);
    p.model.setCollapseSameCommands(false);
    QCOMPARE(p.model.rowCount(), 3);
    p.model.setShowOnlyStringParameters(true);
    QCOMPARE(p.model.data(p.model.index(0, LiveTraceModel::CommandColumn)).toString(),
             QStringLiteral("viWrite(\"*CLS\")"));
}

void TestLiveTraceModel::cells()
{
    Pipeline p(3);
    QVERIFY(p.model.start());
    p.write({100, 5, 10, 0, "viOpen(1, \"GPIB0::22::INSTR\")"});
    p.write({100, 5, 10, 1, "viOpen(1, \"GPIB0::22::INSTR\")", static_cast<std::int32_t>(0xBFFF0015u), 2.5});
    p.write({100, 5, 4, 0, "viClose(2)"}); // an id below the process's first: a restarted process
    p.capture();

    QStringList cells;
    for (int c = 0; c < LiveTraceModel::ColumnCount; ++c)
        cells << p.model.data(p.model.index(0, c)).toString();
    QCOMPARE(cells,
             (QStringList {QStringLiteral("10"), QStringLiteral("22:13:30.250"), QStringLiteral("1.500000 s"),
                           QStringLiteral("100"), QStringLiteral("5"), QStringLiteral("7"),
                           QStringLiteral("GPIB0::22::INSTR"), QStringLiteral("2.500 s"),
                           QStringLiteral("VI_ERROR_TMO"), QStringLiteral("viOpen(1, \"GPIB0::22::INSTR\")")}));
    QCOMPARE(p.model.data(p.model.index(0, LiveTraceModel::IdColumn)).userType(), int(QMetaType::ULongLong));
    QCOMPARE(p.model.data(p.model.index(0, LiveTraceModel::PidColumn)).userType(), int(QMetaType::UInt));
    // An open call shows neither duration nor status.
    QCOMPARE(p.model.data(p.model.index(1, LiveTraceModel::DurationColumn)).toString(), QString());
    QCOMPARE(p.model.data(p.model.index(1, LiveTraceModel::StatusColumn)).toString(), QString());

    QCOMPARE(p.model.headerData(0, Qt::Vertical).toString(), QStringLiteral("0"));
    QCOMPARE(p.model.headerData(1, Qt::Vertical).toString(), QStringLiteral("-1"));
    QStringList titles;
    for (int c = 0; c < LiveTraceModel::ColumnCount; ++c)
        titles << p.model.headerData(c, Qt::Horizontal).toString();
    QCOMPARE(titles.join(QLatin1Char('|')),
             QStringLiteral("Id|Timestamp|Elapsed time|Pid|Thread|Session|Address|Duration|Status|Command"));

    for (int role : {int(Qt::DisplayRole), int(Qt::BackgroundRole), int(Qt::FontRole)})
        QVERIFY(!p.model.data(p.model.index(2, 0), role).isValid());
    QVERIFY(!p.model.headerData(2, Qt::Vertical).isValid());
    QVERIFY(!p.model.headerData(10, Qt::Horizontal).isValid());
    QVERIFY(!p.model.data(p.model.index(0, 0), Qt::ToolTipRole).isValid());
}

void TestLiveTraceModel::colours()
{
    Pipeline p(4);
    QVERIFY(p.model.start());
    p.write({1, 1, 1, 1, "viRead(1)", -1});
    p.write({1, 2, 2, 1, "viWrite(1)"});
    p.capture();
    QCOMPARE(p.model.data(p.model.index(0, 3), Qt::BackgroundRole).value<QBrush>().color(), QColor(255, 128, 128));
    QVERIFY(!p.model.data(p.model.index(1, 3), Qt::BackgroundRole).isValid());
    QVERIFY(p.model.errorInDisplay);

    SingleFilter highlight;
    highlight.type = SingleFilter::HighlightProcess;
    highlight.value = 1;
    highlight.color = Qt::green;
    p.model.addFilter(highlight);
    QCOMPARE(p.model.data(p.model.index(0, 3), Qt::BackgroundRole).value<QColor>(), QColor(Qt::green));
}

void TestLiveTraceModel::currentCallIsBold()
{
    Pipeline p(5);
    QVERIFY(p.model.start());
    p.write({1, 1, 1, 0, "a"});
    p.write({1, 2, 2, 0, "b"});
    p.write({1, 1, 1, 1, "a"});
    p.capture();
    QCOMPARE(p.model.rowCount(), 3);
    const auto icon
        = [&](int row) { return p.model.headerData(row, Qt::Vertical, Qt::DecorationRole).value<QPixmap>(); };
    QVERIFY(!icon(0).isNull());
    const qint64 plainDown = icon(0).cacheKey();

    QItemSelectionModel selection(&p.model);
    p.model.selectionModel = &selection;
    QVERIFY(!p.model.data(p.model.index(0, 0), Qt::FontRole).isValid());
    selection.setCurrentIndex(p.model.index(2, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    QVERIFY(p.model.data(p.model.index(0, 0), Qt::FontRole).value<QFont>().bold());
    QVERIFY(!p.model.data(p.model.index(1, 0), Qt::FontRole).isValid());
    QVERIFY(p.model.data(p.model.index(2, 0), Qt::FontRole).value<QFont>().bold());
    QVERIFY(icon(0).cacheKey() != plainDown);
    QCOMPARE(icon(1).cacheKey(), plainDown);
}

void TestLiveTraceModel::rowCapAndNotifications()
{
    Pipeline p(6);
    QVERIFY(p.model.start());
    QSignalSpy removed(&p.model, &QAbstractItemModel::rowsRemoved);
    QSignalSpy inserted(&p.model, &QAbstractItemModel::rowsInserted);
    std::uint64_t id = 0;
    for (int batch = 0; batch < 3; ++batch) {
        for (int i = 0; i < 3000; ++i, ++id)
            p.write({1, 1, id, 0, std::to_string(id).c_str()});
        p.capture();
    }
    QCOMPARE(p.model.rowCount(), 8510);
    QCOMPARE(p.model.getDisplayRing().size(), 8510u);
    // The rows that left the full ring were announced as removed at the top.
    QCOMPARE(removed.size(), 1);
    QCOMPARE(removed.first().at(1).toInt(), 0);
    QCOMPARE(removed.first().at(2).toInt(), 9000 - 8510 - 1);
    QCOMPARE(inserted.size(), 3);
    QCOMPARE(p.model.data(p.model.index(0, LiveTraceModel::CommandColumn)).toString(), QStringLiteral("490"));
}

void TestLiveTraceModel::pauseClearResume()
{
    Pipeline p(7);
    QVERIFY(p.model.start());
    p.write({1, 1, 1, 1, "first"});
    p.capture();
    QCOMPARE(p.model.rowCount(), 1);

    p.model.setPause(true);
    p.write({1, 1, 2, 1, "during pause"});
    QTest::qWait(60);
    p.model.timerHit();
    QCOMPARE(p.model.rowCount(), 1);

    p.model.clear();
    p.model.updateDisplayData();
    QCOMPARE(p.model.rowCount(), 0);
    p.model.setPause(false);
    p.write({1, 1, 3, 1, "after"});
    p.capture();
    QCOMPARE(p.rows(), QStringList {QStringLiteral("2 after 2.000 ms")});
}

void TestLiveTraceModel::secondInstanceSharesTheRing()
{
    Pipeline p(8);
    TraceChannelControl otherControl(p.segment.key, s_VisaSharedMemorySize, p.segment.semaphore);
    LiveTraceModel other(nullptr, otherControl,
                         QString::fromStdString(TestNames::sharedRingName(std::to_string(8).c_str())));
    QVERIFY(p.model.start());
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
    QTest::qWait(60);
    other.updateSharedData();
    other.updateInternalAndDipslay();
    p.model.updateInternalAndDipslay();
    QCOMPARE(other.rowCount(), 3);
    QCOMPARE(p.model.rowCount(), 3);

    QVERIFY(other.detachSharedRingBuffer()); // the first is still attached
    QVERIFY(!p.model.detachSharedRingBuffer());
    QVERIFY(p.model.detachSharedRingBuffer()); // no ring any more
}

void TestLiveTraceModel::timerDrivesThePipeline()
{
    Pipeline p(9);
    QSignalSpy collected(&p.model, &LiveTraceModel::newDataCollected);
    QVERIFY(p.model.start());
    QVERIFY(p.model.isRunning());
    p.write({1, 1, 1, 0, "viOpen"});
    p.write({1, 1, 1, 1, "viOpen"});
    QTRY_COMPARE(p.model.rowCount(), 1);
    QVERIFY(!collected.isEmpty());
    p.model.stop();
    QTRY_VERIFY(!p.model.isRunning() && p.model.getPids().empty());
}

QTEST_MAIN(TestLiveTraceModel)
#include "tst_livetracemodel.moc"
