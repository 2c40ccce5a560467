#include "ModelFilters.h"
#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QtTest>

#include <signal.h>

namespace {

QString operator""_q(const char* text, std::size_t size)
{
    return QString::fromUtf8(text, static_cast<int>(size));
}

QByteArray fileBytes(QString const& name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The rows of a table the recorder wrote, the header included.
QStringList tableLines(QString const& file)
{
    return QString::fromUtf8(fileBytes(file)).split("\r\n"_q, Qt::SkipEmptyParts);
}

struct Finished
{
    int exitCode; // -1: it did not end by itself
    QString out, err;
};

// Runs a program to its end, without a display.
Finished run(QString const& program, QStringList const& arguments)
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.remove("QT_QPA_PLATFORM"_q);
    env.remove("DISPLAY"_q);
    p.setProcessEnvironment(env);
    p.start(program, arguments);
    const bool ended = p.waitForFinished(120000) && p.exitStatus() == QProcess::NormalExit;
    return {ended ? p.exitCode() : -1, QString::fromUtf8(p.readAllStandardOutput()),
            QString::fromUtf8(p.readAllStandardError())};
}

} // namespace

// The programs as a user, a desktop and a test station meet them: installed, asked from a shell,
// and zel-record recording on a private segment, semaphore and shared ring, fed by a real producer in
// this process.
class TestPrograms : public QObject
{
    Q_OBJECT

    PrivateSegment segment {51};
    PrivateSegment unusable {52}; // its semaphore is made an empty file: no lock
    ZelTracer::TraceChannelControl control {segment.key, ZelTracer::s_VisaSharedMemorySize, segment.semaphore};
    ZelTracer::TraceProducer producer {segment.key, ZelTracer::s_VisaSharedMemorySize, segment.semaphore,
                                       segment.fileSemaphore};
    QTemporaryDir dir;
    std::uint64_t nextId = 1;

    // Starts zel-record on the private names.
    void record(QProcess& p, QStringList const& arguments)
    {
        p.start(ZEL_RECORD_PATH ""_q, privateNames() << "-q"_q << arguments);
    }

    QStringList privateNames() const
    {
        return {"--segment-key"_q,
                QString::number(segment.key),
                "--segment-semaphore"_q,
                QString::fromStdString(segment.semaphore),
                "--ring"_q,
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

private slots:
    void answersAndEnds_data()
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QString>("arguments"); // separated by '|'
        QTest::addColumn<QString>("expected"); // in what it prints
        const QString entry = ZEL_PACKAGING_DIR "/com.zelbrook.ZelVisaTraceTool."_q;
        QTest::newRow("recorder help") << ZEL_RECORD_PATH << "--help"
                                       << "--duration <seconds>";
        QTest::newRow("recorder version") << ZEL_RECORD_PATH << "--version"
                                          << "zel-record 5.12.9\n";
        // The window's own options beside them change nothing.
        QTest::newRow("program help") << ZEL_PROGRAM_PATH << "-t|--help"
                                      << "  -ft [file]";
        QTest::newRow("program version") << ZEL_PROGRAM_PATH << "-ft|/tmp/x.log|--version"
                                         << "ZelVisaTraceTool 5.12.9\n";
        QTest::newRow("desktop entry") << "desktop-file-validate" << entry + "desktop"_q << QString();
        QTest::newRow("AppStream metainfo") << "appstreamcli"
                                            << "validate|--no-net|"_q + entry + "metainfo.xml"_q << QString();
    }
    // --help and --version are answered on the terminal, without a window or a segment (there is no
    // display here); the desktop's own validators accept the desktop entry and the AppStream data.
    void answersAndEnds()
    {
        QFETCH(QString, program);
        QFETCH(QString, arguments);
        QFETCH(QString, expected);
        if (QStandardPaths::findExecutable(program).isEmpty())
            QSKIP("the validator is not installed (scripts/install-deps.sh installs it)");
        const Finished done = run(program, arguments.split(QLatin1Char('|')));
        QVERIFY2(done.exitCode == 0 && done.out.contains(expected), qPrintable(done.out + done.err));
    }

    // What `cmake --install` puts on a desktop system, and an icon drawn at its size.
    void installLayout()
    {
        QTemporaryDir prefix;
        const Finished done = run(ZEL_CMAKE ""_q, {"--install"_q, ZEL_BINARY_DIR ""_q, "--prefix"_q, prefix.path()});
        QVERIFY2(done.exitCode == 0, qPrintable(done.err));
        QStringList files;
        for (QDirIterator it(prefix.path(), QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
            files << QDir(prefix.path()).relativeFilePath(it.next());
        files = files.filter(QRegularExpression("^(bin|share)/"_q));
        files.sort();
        QCOMPARE(files,
                 QString::fromUtf8(fileBytes(ZEL_CAPTURE_DATA "/installed.txt"_q))
                     .split(QLatin1Char('\n'), Qt::SkipEmptyParts));
        const QImage icon(prefix.filePath("share/icons/hicolor/48x48/apps/com.zelbrook.ZelVisaTraceTool.png"_q));
        QCOMPARE(icon.size(), QSize(48, 48));
    }

    // --count ends the recording by itself after that many rows; tracing, switched on by the
    // recorder, is off again.
    void countStopsAndSwitchesOff()
    {
        const QString file = dir.filePath("count.csv"_q);
        QProcess p;
        record(p, {"--count"_q, "5"_q, "-o"_q, file});
        QTRY_VERIFY_WITH_TIMEOUT(tracing(), 20000);
        calls(12);
        QVERIFY(p.waitForFinished(20000));
        QCOMPARE(p.exitCode(), 0);
        const QStringList rows = tableLines(file);
        QCOMPARE(rows.size(), 6);
        QVERIFY2(rows.last().startsWith("\"4\",\""_q), qPrintable(rows.last()));
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
        const QString file = dir.filePath("signal.json"_q);
        QProcess p;
        record(p, {"-o"_q, file});
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(file).size() > 0 && tracing(), 20000); // recording
        calls(3);
        // Rows are written once final: the first two calls are, the third is the table's last row.
        QTRY_VERIFY_WITH_TIMEOUT(fileBytes(file).count("\"ph\":\"X\"") == 2, 20000);
        ::kill(static_cast<pid_t>(p.processId()), signalNumber);
        QVERIFY(p.waitForFinished(20000));
        QCOMPARE(p.exitStatus(), QProcess::NormalExit);
        QCOMPARE(p.exitCode(), 0);
        QCOMPARE(QJsonDocument::fromJson(fileBytes(file)).array().size(), 3);
        QCOMPARE(tracing(), onBefore);
    }

    // The record filter holds for the producers while recording and is put back at the end; the
    // view filters of a file decide which rows are written.
    void filters()
    {
        ModelFilters hideCloses;
        SingleFilter rule;
        rule.type = SingleFilter::ExcludeCommand;
        rule.setValue("viClose"_q);
        hideCloses.add(rule);
        QFile filterFile(dir.filePath("hide.viewfilter"_q));
        QVERIFY(filterFile.open(QIODevice::WriteOnly));
        hideCloses.saveViewFilterFile(filterFile);
        filterFile.close();
        const QString file = dir.filePath("filtered.csv"_q);
        QProcess p;
        record(p,
               {"--pid"_q, "4242"_q, "--message"_q, "(0x1"_q, "--view-filter"_q, filterFile.fileName(), "--count"_q,
                "2"_q, "-o"_q, file});
        ZelTracer::SharedMemoryHeader h {};
        QTRY_VERIFY_WITH_TIMEOUT((control.readSharedMemoryHeader(h), h.tracingActive && h.pidFilter == 4242), 20000);
        QCOMPARE(QByteArray(h.messageFilter), QByteArray("(0x1"));
        calls(1, 4242, "viClose(0x1)");
        calls(1, 999);
        calls(1, 4242, "viClose(0x2)");
        calls(3);
        QVERIFY(p.waitForFinished(20000));
        QCOMPARE(p.exitCode(), 0);
        const QStringList rows = tableLines(file).mid(1);
        QCOMPARE(rows.size(), 2);
        for (const QString& row : rows)
            QVERIFY2(row.contains("\"4242\",\"4243\""_q) && row.contains("*IDN?"_q), qPrintable(row));
        control.readSharedMemoryHeader(h);
        QCOMPARE(h.pidFilter, 0u);
        QCOMPARE(QByteArray(h.messageFilter), QByteArray());
    }

    void wrongCommandLine_data()
    {
        QTest::addColumn<QString>("arguments"); // separated by '|'
        QTest::addColumn<int>("exitCode");
        QTest::newRow("no output") << "--count|3" << 1;
        QTest::newRow("unknown format") << "-o|x|--format|xml" << 1;
        QTest::newRow("duration beyond a timer") << "-o|x|--duration|1e12" << 1;
        QTest::newRow("count not a number") << "-o|x|--count|many" << 1;
        QTest::newRow("unwritable output") << "-o|/no/such/dir/x.csv" << 2;
        const QString lock = QString::fromStdString(unusable.semaphore);
        QTest::newRow("segment lock unusable")
            << "--segment-semaphore|"_q + lock + "|-o|"_q + dir.filePath("x.csv"_q) << 2;
    }
    // Refused with a message before anything is switched on.
    void wrongCommandLine()
    {
        QFETCH(QString, arguments);
        QFETCH(int, exitCode);
        control.setTracingActive(false);
        QFile("/dev/shm/sem."_q + QString::fromStdString(unusable.semaphore).mid(1)).open(QIODevice::WriteOnly);
        const Finished done = run(ZEL_RECORD_PATH ""_q, privateNames() + arguments.split(QLatin1Char('|')));
        QCOMPARE(done.exitCode, exitCode);
        QVERIFY(!done.err.isEmpty());
        QVERIFY(!tracing());
    }
};

QTEST_GUILESS_MAIN(TestPrograms)
#include "tst_programs.moc"
