#include "ModelFilters.h"
#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QtTest>

#include <signal.h>

// zel-record as the test station runs it: a separate process on a private segment, semaphore and
// shared ring, fed by a real producer in this process.
class TestZelRecord : public QObject
{
    Q_OBJECT

    PrivateSegment segment {51};
    ZelTracer::TraceChannelControl control {segment.key, ZelTracer::s_VisaSharedMemorySize, segment.semaphore};
    ZelTracer::TraceProducer producer {segment.key, ZelTracer::s_VisaSharedMemorySize, segment.semaphore,
                                       segment.fileSemaphore};
    QTemporaryDir dir;
    std::uint64_t nextId = 1;

    QStringList privateNames() const
    {
        return {QStringLiteral("--segment-key"),
                QString::number(segment.key),
                QStringLiteral("--segment-semaphore"),
                QString::fromStdString(segment.semaphore),
                QStringLiteral("--ring"),
                QString::fromStdString(TestNames::sharedRingName("rec"))};
    }

    bool tracing()
    {
        ZelTracer::SharedMemoryHeader h {};
        control.readSharedMemoryHeader(h);
        return h.tracingActive != 0;
    }

    void calls(int n, std::uint32_t pid = 4242, const char* text = "viQueryf(0x1, \"*IDN?\\n\")")
    {
        for (int i = 0; i < n; ++i, ++nextId) {
            ZelTracer::FullEntry e = makeEntry(nextId, pid, 0, text);
            producer.write(e);
            e.kind = 1;
            producer.write(e);
        }
    }

    static QStringList lines(QString const& file)
    {
        QFile f(file);
        f.open(QIODevice::ReadOnly);
        return QString::fromUtf8(f.readAll()).split(QStringLiteral("\r\n"), Qt::SkipEmptyParts);
    }

private slots:
    void helpAndVersion_data()
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("expected");
        auto args = [](const char* a, const char* b = nullptr, const char* c = nullptr) {
            QStringList out;
            for (const char* s : {a, b, c})
                out << (s ? QStringList(QLatin1String(s)) : QStringList());
            return out;
        };
        QTest::newRow("recorder help") << ZEL_RECORD_PATH << args("--help") << "--duration <seconds>";
        QTest::newRow("recorder version") << ZEL_RECORD_PATH << args("--version") << "zel-record 5.12.9\n";
        // The window's own options beside them change nothing.
        QTest::newRow("program help") << ZEL_PROGRAM_PATH << args("-t", "--help") << "  -ft [file]";
        QTest::newRow("program version") << ZEL_PROGRAM_PATH << args("-ft", "/tmp/x.log", "--version")
                                         << "ZelVisaTraceTool 5.12.9\n";
    }
    // Answered on the terminal; the program opens no window and no segment for them (no display here).
    void helpAndVersion()
    {
        QFETCH(QString, program);
        QFETCH(QStringList, arguments);
        QFETCH(QString, expected);
        QProcess p;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove(QStringLiteral("QT_QPA_PLATFORM"));
        env.remove(QStringLiteral("DISPLAY"));
        p.setProcessEnvironment(env);
        p.start(program, arguments);
        QVERIFY(p.waitForFinished(20000));
        QCOMPARE(p.exitCode(), 0);
        const QString out = QString::fromUtf8(p.readAllStandardOutput());
        QVERIFY2(out.contains(expected), qPrintable(out));
    }

    // --count ends the recording by itself after that many rows; tracing, switched on by the
    // recorder, is off again.
    void countStopsAndSwitchesOff()
    {
        const QString file = dir.filePath(QStringLiteral("count.csv"));
        QProcess p;
        p.start(QStringLiteral(ZEL_RECORD_PATH),
                privateNames() << QStringLiteral("-q") << QStringLiteral("--count") << QStringLiteral("5")
                               << QStringLiteral("-o") << file);
        QTRY_VERIFY_WITH_TIMEOUT(tracing(), 20000);
        calls(12);
        QVERIFY(p.waitForFinished(20000));
        QCOMPARE(p.exitCode(), 0);
        const QStringList rows = lines(file);
        QCOMPARE(rows.size(), 6);
        QVERIFY2(rows.last().startsWith(QStringLiteral("\"4\",\"")), qPrintable(rows.last()));
        QVERIFY(!tracing());
    }

    // A signal ends the recording with a complete file, the last row included, and leaves tracing as
    // the recorder found it.
    void signalLeavesTracingAsFound_data()
    {
        QTest::addColumn<int>("signalNumber");
        QTest::addColumn<bool>("onBefore");
        QTest::newRow("SIGTERM, tracing was off") << SIGTERM << false;
        QTest::newRow("SIGTERM, tracing was on") << SIGTERM << true;
        QTest::newRow("SIGINT, tracing was off") << SIGINT << false;
        QTest::newRow("SIGHUP, tracing was on") << SIGHUP << true;
    }
    void signalLeavesTracingAsFound()
    {
        QFETCH(int, signalNumber);
        QFETCH(bool, onBefore);
        control.setTracingActive(onBefore);
        const QString file = dir.filePath(QStringLiteral("signal.json"));
        QProcess p;
        p.start(QStringLiteral(ZEL_RECORD_PATH),
                privateNames() << QStringLiteral("-q") << QStringLiteral("-o") << file);
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(file).size() > 0 && tracing(), 20000); // recording
        calls(3);
        // Rows are written once final: the first two calls are, the third is the table's last row.
        QTRY_VERIFY_WITH_TIMEOUT(lines(file).join(QString()).count(QStringLiteral("\"ph\":\"X\"")) == 2, 20000);
        ::kill(static_cast<pid_t>(p.processId()), signalNumber);
        QVERIFY(p.waitForFinished(20000));
        QCOMPARE(p.exitStatus(), QProcess::NormalExit);
        QCOMPARE(p.exitCode(), 0);
        QFile json(file);
        QVERIFY(json.open(QIODevice::ReadOnly));
        QJsonParseError error;
        const QJsonDocument doc = QJsonDocument::fromJson(json.readAll(), &error);
        QCOMPARE(error.error, QJsonParseError::NoError);
        QCOMPARE(doc.array().size(), 3);
        QCOMPARE(tracing(), onBefore);
    }

    // The record filter holds for the producers while recording and is put back at the end; the
    // view filters of a file decide which rows are written.
    void filters()
    {
        ModelFilters hideCloses;
        SingleFilter rule;
        rule.type = SingleFilter::ExcludeCommand;
        rule.setValue(QStringLiteral("viClose"));
        hideCloses.add(rule);
        const QString filterFile = dir.filePath(QStringLiteral("hide.viewfilter"));
        QFile f(filterFile);
        QVERIFY(f.open(QIODevice::WriteOnly));
        hideCloses.saveViewFilterFile(f);
        f.close();
        const QString file = dir.filePath(QStringLiteral("filtered.csv"));
        QProcess p;
        p.start(QStringLiteral(ZEL_RECORD_PATH),
                privateNames() << QStringLiteral("-q") << QStringLiteral("--pid") << QStringLiteral("4242")
                               << QStringLiteral("--message") << QStringLiteral("(0x1")
                               << QStringLiteral("--view-filter") << filterFile << QStringLiteral("--count")
                               << QStringLiteral("2") << QStringLiteral("-o") << file);
        ZelTracer::SharedMemoryHeader h {};
        QTRY_VERIFY_WITH_TIMEOUT((control.readSharedMemoryHeader(h), h.tracingActive && h.pidFilter == 4242), 20000);
        QCOMPARE(QByteArray(h.messageFilter), QByteArray("(0x1"));
        calls(1, 4242, "viClose(0x1)");
        calls(1, 999);
        calls(1, 4242, "viClose(0x2)");
        calls(3);
        QVERIFY(p.waitForFinished(20000));
        QCOMPARE(p.exitCode(), 0);
        const QStringList rows = lines(file).mid(1);
        QCOMPARE(rows.size(), 2);
        for (const QString& row : rows)
            QVERIFY2(row.contains(QStringLiteral("\"4242\",\"4243\"")) && row.contains(QStringLiteral("*IDN?")),
                     qPrintable(row));
        control.readSharedMemoryHeader(h);
        QCOMPARE(h.pidFilter, 0u);
        QCOMPARE(QByteArray(h.messageFilter), QByteArray());
    }

    void wrongCommandLine_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::newRow("no output") << QStringList {QStringLiteral("--count"), QStringLiteral("3")} << 1;
        QTest::newRow("unknown format") << QStringList {QStringLiteral("-o"), QStringLiteral("x"),
                                                        QStringLiteral("--format"), QStringLiteral("xml")}
                                        << 1;
        QTest::newRow("duration beyond a timer") << QStringList {QStringLiteral("-o"), QStringLiteral("x"),
                                                                 QStringLiteral("--duration"), QStringLiteral("1e12")}
                                                 << 1;
        QTest::newRow("count not a number") << QStringList {QStringLiteral("-o"), QStringLiteral("x"),
                                                            QStringLiteral("--count"), QStringLiteral("many")}
                                            << 1;
        QTest::newRow("unwritable output")
            << QStringList {QStringLiteral("-o"), QStringLiteral("/no/such/dir/x.csv")} << 2;
        const std::string broken = TestNames::semaphoreName("broken");
        QTest::newRow("segment lock unusable")
            << QStringList {QStringLiteral("--segment-semaphore"), QString::fromStdString(broken), QStringLiteral("-o"),
                            dir.filePath(QStringLiteral("x.csv"))}
            << 2;
    }
    // Refused before anything is switched on; an empty semaphore file is no lock.
    void wrongCommandLine()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        control.setTracingActive(false);
        const std::string broken = TestNames::semaphoreName("broken");
        if (arguments.contains(QString::fromStdString(broken)))
            QFile(QStringLiteral("/dev/shm/sem.") + QString::fromStdString(broken.substr(1)))
                .open(QIODevice::WriteOnly);
        QProcess p;
        p.start(QStringLiteral(ZEL_RECORD_PATH), privateNames() + arguments);
        QVERIFY(p.waitForFinished(20000));
        QCOMPARE(p.exitCode(), exitCode);
        QVERIFY(!p.readAllStandardError().isEmpty());
        QVERIFY(!tracing());
        TestNames::unlinkSemaphore(broken);
    }
};

QTEST_GUILESS_MAIN(TestZelRecord)
#include "tst_zelrecord.moc"
