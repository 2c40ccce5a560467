#include "AppTestSupport.h"
#include "ExternalEvents.h"
#include "TraceApplication.h"
#include "TraceProducer.h"

#include <QtTest>

using namespace ZelTracer;

constexpr auto segment = programSegment<40>;

class TestTraceApplication : public QObject
{
    Q_OBJECT

public:
    explicit TestTraceApplication(TraceApplication& app)
        : app(app)
    { }

private slots:
    void initTestCase()
    {
        // The settings of earlier versions are found under these names.
        QCOMPARE(QCoreApplication::organizationName() + QLatin1Char('/') + QCoreApplication::applicationName(),
                 QStringLiteral("Zelbrook/ZelVisaTraceTool"));
        QSignalSpy changed(&app, &TraceApplication::tracingChanged);
        app.starttrace();
        QCOMPARE(changed.size(), 1);
        QCOMPARE(raw.header().tracingActive, 1u);
        app.getModel().stop(); // the tests drive the stages themselves
        app.getModel().timerHit();
    }

    // The export is the header, then one line per row: kind, id, time, pid, thread, session, address,
    // duration, repeat count, status as unsigned, command.
    void exportAndSave()
    {
        const QString header = QStringLiteral("# VISA version: 5.12.9\n# Bitness:      64\n# OS:           Linux\n");
        app.clearbuffer();
        QCOMPARE(app.getBuffer(), header);
        raw.header().tracingActive = 1;
        write(100, 7, 0, "viOpen(1, \"TCPIP0::1::INSTR\")");
        write(100, 7, 1, "viOpen(1, \"TCPIP0::1::INSTR\")");
        write(200, 3, 1, "viWrite(2, \"a\tb %1\")");
        write(100, 9, 0, "viClose(2)");
        capture();
        QCOMPARE(
            app.getBuffer(),
            header
                + QStringLiteral("0\t7\t22:13:27.250\t100\t101\t7\tGPIB0::22::INSTR\t0.000123457\t1\t1073676293\t"
                                 "viOpen(1, \"TCPIP0::1::INSTR\")\n"
                                 "0\t3\t22:13:23.250\t200\t201\t7\tGPIB0::22::INSTR\t0.000123457\t1\t1073676293\t"
                                 "viWrite(2, \"a\tb %1\")\n"
                                 "2\t9\t22:13:29.250\t100\t101\t7\tGPIB0::22::INSTR\t0.000123457\t0\t0\tviClose(2)\n"));

        // Saving writes over an older, longer file without cutting it.
        app.clearbuffer();
        const QString name = dir.filePath(QStringLiteral("view.txt"));
        std::ofstream(name.toStdString()) << std::string(100, 'X') << "TAIL";
        app.saveBufferToFile(name);
        QCOMPARE(QByteArray::fromStdString(fileText(name.toStdString())),
                 header.toLatin1() + QByteArray(100 - header.size(), 'X') + "TAIL");
        app.saveBufferToFile(dir.filePath(QStringLiteral("no/such/dir/view.txt"))); // quietly nothing
    }

    // Leaving the pause empties the view, also when the view was not paused at all.
    void leavingThePauseClears()
    {
        for (std::uint64_t id : {1, 2}) {
            write(300, id, 1, "viRead(1)");
            capture();
            QCOMPARE(app.getModel().rowCount(), 1);
            app.setDisplayPause(id == 1);
            QCOMPARE(app.getModel().isPaused(), id == 1);
            QCOMPARE(app.getModel().rowCount(), id == 1 ? 1 : 0);
            app.setDisplayPause(false);
            QCOMPARE(app.getModel().rowCount(), 0);
        }
    }

    void startFailureIsReported()
    {
        // A ring that can be neither attached nor created.
        app.getModel().setSharedRingSize(-1);
        QSignalSpy changed(&app, &TraceApplication::tracingChanged);
        QCOMPARE(closingModals([this] { app.starttrace(); }),
                 QStringList {QStringLiteral("Error/Due to an internal error tracing could not be started!")});
        QCOMPARE(changed.size(), 0);
        QCOMPARE(raw.header().tracingActive, 0u);
        app.getModel().setSharedRingSize(LiveTraceModel::s_DefaultSharedRingSize);
    }

    void externalEventsReportEdges()
    {
        TraceChannelControl other(segment().key, s_VisaSharedMemorySize, segment().semaphore);
        other.setTracingActive(false);
        other.settracingToFileActive(false);
        ExternalEvents events(segment().key, segment().semaphore);
        QString order;
        auto note = [&order](const char* name) { return [&order, name] { order += QLatin1String(name); }; };
        QObject::connect(&events, &ExternalEvents::start, note("start "));
        QObject::connect(&events, &ExternalEvents::stop, note("stop "));
        QObject::connect(&events, &ExternalEvents::starttofile, note("starttofile "));
        QObject::connect(&events, &ExternalEvents::stoptofile, note("stoptofile "));
        events.emitSignals();
        QCOMPARE(order, QStringLiteral("stop stoptofile "));

        // Both flags in one interval: tracing first, then the file.
        other.settracingToFileActive(true, dir.filePath(QStringLiteral("e.log")).toStdString());
        other.setTracingActive(true);
        QTRY_COMPARE(order, QStringLiteral("stop stoptofile start starttofile "));

        // On and off again between two polls is no edge at all.
        other.setTracingActive(false);
        other.setTracingActive(true);
        QTest::qWait(3 * ExternalEvents::s_PollInterval);
        other.setTracingActive(false);
        QTRY_COMPARE(order, QStringLiteral("stop stoptofile start starttofile stop "));
    }

    // Last: quitting leaves the application unable to run modal loops.
    void lastInstanceSwitchesTracingOff()
    {
        // Another copy of the tool: its own channel control and model on the same ring.
        TraceChannelControl otherControl(segment().key, s_VisaSharedMemorySize, segment().semaphore);
        auto other = std::make_unique<LiveTraceModel>(nullptr, otherControl,
                                                      privateEndpoints(segment(), "app").sharedRingName);
        app.starttrace();
        QVERIFY(other->start());
        app.startfiletrace(dir.filePath(QStringLiteral("q.log")).toStdString());

        app.quit();
        QVERIFY(raw.header().tracingActive == 1 && raw.header().tracingToFile == 1);

        QVERIFY(!other->detachSharedRingBuffer()); // the other copy was the last one
        other.reset();
        app.starttrace();
        app.quit();
        QVERIFY(raw.header().tracingActive == 0 && raw.header().tracingToFile == 0);
    }

private:
    void write(std::uint32_t pid, std::uint64_t id, std::uint32_t kind, const char* text)
    {
        FullEntry e = makeEntry(id, pid, kind, text);
        e.duration = 0.00012345678;
        e.status = kind == 1 ? 0x3FFF0005 : 0;
        producer.write(e);
    }
    void capture()
    {
        LiveTraceModel& model = app.getModel();
        if (!model.isRunning())
            QVERIFY(model.start());
        model.stop();
        QTest::qWait(LiveTraceModel::s_TimerInterval + 10);
        model.timerHit();
    }

    TraceApplication& app;
    TraceProducer producer {segment().key, s_VisaSharedMemorySize, segment().semaphore, segment().fileSemaphore};
    RawSegment raw {segment()};
    QTemporaryDir dir;
};

int main(int argc, char** argv)
{
    qputenv("TZ", "UTC");
    tzset();
    return execWithApplication<TestTraceApplication>(argc, argv, segment(), "app");
}

#include "tst_traceapplication.moc"
