#include "AppTestSupport.h"
#include "ExternalEvents.h"
#include "TraceApplication.h"
#include "TraceProducer.h"

#include <QtTest>

using namespace ZelTracer;

namespace {

PrivateSegment& segment()
{
    static PrivateSegment s(40);
    return s;
}

// Closes the next modal dialog once it shows, and tells how many it closed.
int closeModalsWithin(int ms, const std::function<void()>& action)
{
    int closed = 0;
    QTimer closer;
    QObject::connect(&closer, &QTimer::timeout, [&closed] {
        if (QWidget* modal = QApplication::activeModalWidget()) {
            modal->close();
            ++closed;
        }
    });
    closer.start(ms);
    action();
    return closed;
}

} // namespace

class TestTraceApplication : public QObject
{
    Q_OBJECT

public:
    explicit TestTraceApplication(TraceApplication& app)
        : app(app)
    { }

private slots:
    void initTestCase();
    void cleanupTestCase();
    void settingsIdentity();
    void emptyExportIsTheHeader();
    void exportText();
    void saveDoesNotTruncate();
    void leavingThePauseClears();
    void fileTracingCommands();
    void startFailureIsReported();
    void externalEventsReportEdges();
    // Last: quitting leaves the application unable to run modal loops.
    void lastInstanceSwitchesTracingOff();

private:
    void write(std::uint32_t pid, std::uint64_t id, std::uint32_t kind, const char* text);
    void capture();

    TraceApplication& app;
    std::unique_ptr<TraceProducer> producer;
    std::unique_ptr<RawSegment> raw;
    QTemporaryDir dir;
};

void TestTraceApplication::initTestCase()
{
    producer = std::make_unique<TraceProducer>(segment().key, s_VisaSharedMemorySize, segment().semaphore,
                                               segment().fileSemaphore);
    raw = std::make_unique<RawSegment>(segment());
    QSignalSpy changed(&app, &TraceApplication::tracingChanged);
    app.starttrace();
    QCOMPARE(changed.size(), 1);
    QCOMPARE(raw->header().tracingActive, 1u);
    app.getModel().stop(); // the tests drive the stages themselves
    app.getModel().timerHit();
}

void TestTraceApplication::cleanupTestCase()
{
    producer.reset();
    raw.reset();
    segment().remove();
}

void TestTraceApplication::write(std::uint32_t pid, std::uint64_t id, std::uint32_t kind, const char* text)
{
    FullEntry e = makeEntry(id, pid, kind, text);
    e.duration = 0.00012345678;
    e.status = kind == 1 ? 0x3FFF0005 : 0;
    producer->write(e);
}

void TestTraceApplication::capture()
{
    LiveTraceModel& model = app.getModel();
    if (!model.isRunning())
        QVERIFY(model.start());
    model.stop();
    QTest::qWait(LiveTraceModel::s_TimerInterval + 10);
    model.timerHit();
}

void TestTraceApplication::settingsIdentity()
{
    QCOMPARE(QCoreApplication::organizationName(), QStringLiteral("Zelbrook"));
    QCOMPARE(QCoreApplication::applicationName(), QStringLiteral("ZelVisaTraceTool"));
    QCOMPARE(QCoreApplication::applicationVersion(), QStringLiteral("5.12.9"));
}

void TestTraceApplication::emptyExportIsTheHeader()
{
    app.clearbuffer();
    QCOMPARE(app.getBuffer(), QStringLiteral("# VISA version: 5.12.9\n# Bitness:      64\n# OS:           Linux\n"));
}

void TestTraceApplication::exportText()
{
    app.clearbuffer();
    raw->header().tracingActive = 1;
    write(100, 7, 0, "viOpen(1, \"TCPIP0::1::INSTR\")");
    write(100, 7, 1, "viOpen(1, \"TCPIP0::1::INSTR\")");
    write(200, 3, 1, "viWrite(2, \"a\tb %1\")");
    write(100, 9, 0, "viClose(2)");
    capture();
    QCOMPARE(app.getModel().rowCount(), 3);
    const QStringList lines = app.getBuffer().split(QLatin1Char('\n'));
    QCOMPARE(lines.mid(3),
             (QStringList {
                 QStringLiteral("0\t7\t22:13:27.250\t100\t101\t7\tGPIB0::22::INSTR\t0.000123457\t1\t1073676293\t"
                                "viOpen(1, \"TCPIP0::1::INSTR\")"),
                 QStringLiteral("0\t3\t22:13:23.250\t200\t201\t7\tGPIB0::22::INSTR\t0.000123457\t1\t1073676293\t"
                                "viWrite(2, \"a\tb %1\")"),
                 QStringLiteral("2\t9\t22:13:29.250\t100\t101\t7\tGPIB0::22::INSTR\t0.000123457\t0\t0\tviClose(2)"),
                 QString()}));
}

void TestTraceApplication::saveDoesNotTruncate()
{
    app.clearbuffer();
    const QString name = dir.filePath(QStringLiteral("view.txt"));
    QFile old(name);
    QVERIFY(old.open(QIODevice::WriteOnly));
    old.write(QByteArray(100, 'X') + "TAIL");
    old.close();
    app.saveBufferToFile(name);
    QFile saved(name);
    QVERIFY(saved.open(QIODevice::ReadOnly));
    const QByteArray bytes = saved.readAll();
    QVERIFY(bytes.startsWith("# VISA version: 5.12.9\n# Bitness:      64\n# OS:           Linux\n"));
    QVERIFY(bytes.endsWith("XXTAIL"));
    app.saveBufferToFile(dir.filePath(QStringLiteral("no/such/dir/view.txt"))); // quietly nothing
}

void TestTraceApplication::leavingThePauseClears()
{
    write(300, 1, 1, "viRead(1)");
    capture();
    QVERIFY(app.getModel().rowCount() > 0);
    app.setDisplayPause(true);
    QVERIFY(app.getModel().isPaused());
    QVERIFY(app.getModel().rowCount() > 0);
    app.setDisplayPause(false);
    QCOMPARE(app.getModel().rowCount(), 0);
    write(300, 2, 1, "viRead(2)");
    capture();
    QCOMPARE(app.getModel().rowCount(), 1);
    app.setDisplayPause(false); // un-paused: still clears
    QCOMPARE(app.getModel().rowCount(), 0);
}

void TestTraceApplication::fileTracingCommands()
{
    QSignalSpy changed(&app, &TraceApplication::tracingChanged);
    const std::string log = dir.filePath(QStringLiteral("trace.log")).toStdString();
    app.startfiletrace(log);
    QCOMPARE(raw->header().tracingToFile, 1u);
    QCOMPARE(std::string(raw->header().fileName), log);
    app.stopfiletrace();
    QCOMPARE(raw->header().tracingToFile, 0u);
    QCOMPARE(std::string(raw->header().fileName), log);
    QCOMPARE(changed.size(), 2);
}

void TestTraceApplication::lastInstanceSwitchesTracingOff()
{
    // Another copy of the tool: its own channel control and model on the same ring.
    TraceChannelControl otherControl(segment().key, s_VisaSharedMemorySize, segment().semaphore);
    auto other
        = std::make_unique<LiveTraceModel>(nullptr, otherControl, privateEndpoints(segment(), "app").sharedRingName);
    app.starttrace();
    QVERIFY(other->start());
    app.startfiletrace(dir.filePath(QStringLiteral("q.log")).toStdString());

    app.quit();
    QCOMPARE(raw->header().tracingActive, 1u);
    QCOMPARE(raw->header().tracingToFile, 1u);

    QVERIFY(!other->detachSharedRingBuffer()); // the other copy was the last one
    other.reset();
    app.starttrace();
    app.quit();
    QCOMPARE(raw->header().tracingActive, 0u);
    QCOMPARE(raw->header().tracingToFile, 0u);
}

void TestTraceApplication::startFailureIsReported()
{
    // A ring that can be neither attached nor created.
    app.getModel().setSharedRingSize(-1);
    QSignalSpy changed(&app, &TraceApplication::tracingChanged);
    const int boxes = closeModalsWithin(50, [this] { app.starttrace(); });
    QCOMPARE(boxes, 1);
    QCOMPARE(changed.size(), 0);
    QCOMPARE(raw->header().tracingActive, 0u);
    app.getModel().setSharedRingSize(LiveTraceModel::s_DefaultSharedRingSize);
}

void TestTraceApplication::externalEventsReportEdges()
{
    TraceChannelControl other(segment().key, s_VisaSharedMemorySize, segment().semaphore);
    other.setTracingActive(false);
    other.settracingToFileActive(false);
    ExternalEvents events(segment().key, segment().semaphore);
    QStringList order;
    QObject::connect(&events, &ExternalEvents::start, [&] { order << QStringLiteral("start"); });
    QObject::connect(&events, &ExternalEvents::stop, [&] { order << QStringLiteral("stop"); });
    QObject::connect(&events, &ExternalEvents::starttofile, [&] { order << QStringLiteral("starttofile"); });
    QObject::connect(&events, &ExternalEvents::stoptofile, [&] { order << QStringLiteral("stoptofile"); });

    events.emitSignals();
    QCOMPARE(order, (QStringList {QStringLiteral("stop"), QStringLiteral("stoptofile")}));
    order.clear();

    // Both flags in one interval: tracing first, then the file.
    other.settracingToFileActive(true, dir.filePath(QStringLiteral("e.log")).toStdString());
    other.setTracingActive(true);
    QTRY_COMPARE(order, (QStringList {QStringLiteral("start"), QStringLiteral("starttofile")}));
    order.clear();

    // On and off again between two polls is no edge at all.
    other.setTracingActive(false);
    other.setTracingActive(true);
    QTest::qWait(3 * ExternalEvents::s_PollInterval);
    QCOMPARE(order, QStringList());
    other.setTracingActive(false);
    QTRY_COMPARE(order, QStringList {QStringLiteral("stop")});
}

int main(int argc, char** argv)
{
    qputenv("TZ", "UTC");
    tzset();
    return execWithApplication<TestTraceApplication>(argc, argv, segment(), "app");
}

#include "tst_traceapplication.moc"
