#include "LiveTraceModel.h"
#include "ToolPresence.h"
#include "TraceProducer.h"
#include "TraceTestSupport.h"
#include "ZelcapFile.h"

#include <QtTest>

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

// The ids of the rows a recording holds, in their order; none of a timeline that is not whole JSON.
QString idsIn(QString const& file)
{
    const QByteArray bytes = fileBytes(file);
    if (file.endsWith(".json"_q) && !QJsonDocument::fromJson(bytes).isArray())
        return QString();
    QStringList ids;
    const QRegularExpression id("(?:^\"-?\\d+\",\"|\"id\":)(\\d+)"_q, QRegularExpression::MultilineOption);
    for (auto match = id.globalMatch(QString::fromUtf8(bytes)); match.hasNext();)
        ids << match.next().captured(1);
    return ids.join(QLatin1Char(' '));
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
    const QString recorder = ZEL_RECORD_PATH ""_q;
    const QStringList privateNames
        = "--segment-key|%1|--segment-semaphore|%2|--ring|%3"_q.arg(segment.key)
              .arg(QString::fromStdString(segment.semaphore), QString::fromStdString(TestNames::sharedRingName("rec")))
              .split(QLatin1Char('|'));
    QString out, err; // what the last program run printed

    // Runs a program to its end, without a display; its exit code, or -1 when it did not end by itself.
    int run(QString const& program, QStringList const& arguments)
    {
        QProcess p;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove("QT_QPA_PLATFORM"_q);
        env.remove("DISPLAY"_q);
        p.setProcessEnvironment(env);
        p.start(program, arguments);
        const bool ended = p.waitForFinished(120000) && p.exitStatus() == QProcess::NormalExit;
        out = QString::fromUtf8(p.readAllStandardOutput());
        err = QString::fromUtf8(p.readAllStandardError());
        return ended ? p.exitCode() : -1;
    }

    // What the producers are told: tracing and the record filters.
    QString header()
    {
        ZelTracer::SharedMemoryHeader h {};
        control.readSharedMemoryHeader(h);
        return QString::asprintf("tracing %u, pid %u, message \"%.*s\"", unsigned(h.tracingActive),
                                 unsigned(h.pidFilter), int(sizeof h.messageFilter), h.messageFilter);
    }

private slots:
    void commandLines_data()
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QString>("arguments"); // separated by '|'
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("expected"); // in what it prints (on error: to stderr)
        auto row = [](const char* name, QString const& program, QString const& arguments, int exitCode,
                      const char* expected) {
            QTest::newRow(name) << program << arguments << exitCode << QString::fromUtf8(expected);
        };
        const QString program = ZEL_PROGRAM_PATH ""_q, entry = ZEL_PACKAGING_DIR "/com.zelbrook.ZelVisaTraceTool."_q;
        row("recorder help", recorder, "--help"_q, 0, "--duration <seconds>");
        row("recorder version", recorder, "--version"_q, 0, "zel-record 5.12.9\n");
        // The window's own options beside them change nothing.
        row("program help", program, "-t|--help"_q, 0, "  -ft [file]");
        row("program version", program, "-ft|/tmp/x.log|--version"_q, 0, "ZelVisaTraceTool 5.12.9\n");
        row("desktop entry", "desktop-file-validate"_q, entry + "desktop"_q, 0, "");
        row("AppStream metainfo", "appstreamcli"_q, "validate|--no-net|"_q + entry + "metainfo.xml"_q, 0, "");
        row("no output", recorder, "--count|3"_q, 1, "zel-record: no output file; see --help");
        row("unknown format", recorder, "-o|x|--format|xml"_q, 1, "unknown format \"xml\"");
        row("duration beyond a timer", recorder, "-o|x|--duration|1e12"_q, 1, "take positive numbers");
        row("count not a number", recorder, "-o|x|--count|many"_q, 1, "take positive numbers");
        row("unwritable output", recorder, "-o|/no/such/dir/x.csv"_q, 2, "cannot write /no/such/dir/x.csv");
        const QString lock = QString::fromStdString(unusable.semaphore);
        QFile("/dev/shm/sem."_q + lock.mid(1)).open(QIODevice::WriteOnly);
        row("segment lock unusable", recorder, "--segment-semaphore|"_q + lock + "|-o|"_q + dir.filePath("x.csv"_q), 2,
            "zel-record: no calls can be recorded: ");
    }
    // --help and --version are answered on the terminal, without a window (there is no display
    // here); the desktop's validators accept the desktop entry and the AppStream data; a recorder
    // command line that cannot work is refused with a message before anything is switched on.
    void commandLines()
    {
        QFETCH(QString, program);
        QFETCH(QString, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, expected);
        if (QStandardPaths::findExecutable(program).isEmpty())
            QSKIP("the validator is not installed (scripts/install-deps.sh installs it)");
        const QString before = header();
        QCOMPARE(run(program, (program == recorder ? privateNames : QStringList()) + arguments.split(QLatin1Char('|'))),
                 exitCode);
        QVERIFY2((exitCode ? err : out).contains(expected), qPrintable(out + err));
        QCOMPARE(header(), before);
    }

    // What `cmake --install` puts on a desktop system, and an icon drawn at its size.
    void installLayout()
    {
        QTemporaryDir prefix;
        QVERIFY2(run(ZEL_CMAKE ""_q, {"--install"_q, ZEL_BINARY_DIR ""_q, "--prefix"_q, prefix.path()}) == 0,
                 qPrintable(err));
        QStringList files;
        for (QDirIterator it(prefix.path(), QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
            files << QDir(prefix.path()).relativeFilePath(it.next());
        files = files.filter(QRegularExpression("^(bin|share)/"_q));
        files.sort();
        const QString expected = QString::fromUtf8(fileBytes(ZEL_CAPTURE_DATA "/installed.txt"_q));
        QCOMPARE(files, expected.split(QLatin1Char('\n'), Qt::SkipEmptyParts));
        const QImage icon(prefix.filePath("share/icons/hicolor/48x48/apps/com.zelbrook.ZelVisaTraceTool.png"_q));
        QCOMPARE(icon.size(), QSize(48, 48));
    }

    // A recording ends by --count or by a signal, with a complete file that holds the last row, and
    // leaves tracing as it found it. The record filters hold for the producers while it records and
    // are put back at the end; the view filters of a file decide which rows are written.
    void recording_data()
    {
        QTest::addColumn<QString>("arguments"); // separated by '|', in the test's folder
        QTest::addColumn<int>("signalNumber"); // 0: it ends by itself
        QTest::addColumn<bool>("tracingBefore");
        QTest::addColumn<QString>("expected"); // the header while it records, the ids it wrote
        auto row = [](const char* name, QString const& arguments, int signalNumber, bool before, const char* ids,
                      const char* recordFilters = "pid 0, message \"\"") {
            const QString expected = "tracing 1, %1 | %2"_q.arg(QLatin1String(recordFilters), QLatin1String(ids));
            QTest::newRow(name) << arguments << signalNumber << before << expected;
        };
        row("--count", "--count|5|-o|count.csv"_q, 0, false, "1 2 3 4 5");
        row("SIGTERM", "-o|t.json"_q, SIGTERM, true, "1 2 3 4 5 6");
        row("SIGINT", "-o|t.json"_q, SIGINT, false, "1 2 3 4 5 6");
        row("SIGHUP", "-o|t.json"_q, SIGHUP, true, "1 2 3 4 5 6");
        const QString filters
            = "--pid|4242|--message|(0x1|--count|2|--view-filter|%1/hide-closes.viewfilter|-o|f.csv"_q;
        row("filters", filters.arg(ZEL_CAPTURE_DATA ""_q), 0, false, "4 5", "pid 4242, message \"(0x1\"");
    }
    void recording()
    {
        QFETCH(QString, arguments);
        QFETCH(int, signalNumber);
        QFETCH(bool, tracingBefore);
        QFETCH(QString, expected);
        control.clear(); // nothing left of an earlier recording
        control.setTracingActive(tracingBefore);
        const QString before = header(), file = dir.filePath(arguments.section(QLatin1Char('|'), -1));
        QFile::remove(file);
        // A ring that outlived an earlier copy of the tool still holds its calls: they are not recorded.
        using Ring = ZelTracer::RingBufferSharedMem<ZelTracer::FullEntry>;
        auto history = std::make_unique<Ring>(privateNames[5], LiveTraceModel::s_DefaultSharedRingSize);
        history->push_back(makeEntry(99, 4242, 1, "viQueryf(0x1)"));
        history->writeHeader();
        QProcess p;
        p.setWorkingDirectory(dir.path());
        p.start(recorder, privateNames + QString("-q|"_q + arguments).split(QLatin1Char('|')));
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(file).size() > 0, 20000); // its header: it records
        history.reset();
        const QString during = header();
        // The view filters hide call 1, the pid filter call 2, the message filter call 3.
        for (std::uint64_t id = 1; id <= 6; ++id) {
            const char* text = id == 1 ? "viClose(0x1)" : id == 3 ? "viQueryf(0x2)" : "viQueryf(0x1)";
            for (const std::uint32_t kind : {0, 1})
                producer.write(makeEntry(id, id == 2 ? 999 : 4242, kind, text));
        }
        if (signalNumber) {
            // Rows are written once final, one line each: all but the last one before the signal.
            QTRY_COMPARE_WITH_TIMEOUT(fileBytes(file).count('\n'), 5, 20000);
            ::kill(static_cast<pid_t>(p.processId()), signalNumber);
        }
        QVERIFY(p.waitForFinished(20000));
        QCOMPARE(p.exitStatus(), QProcess::NormalExit);
        QCOMPARE(p.exitCode(), 0);
        QCOMPARE(QString(during + " | "_q + idsIn(file)), expected);
        QCOMPARE(header(), before);
    }

    // A producer as fast as the segment lets it (it waits while the segment is full, so it drops
    // nothing), then a burst that does not fit: every record it tried to write is in the file or in
    // the summary's figure of records lost.
    void recordingKeepsEveryRecord()
    {
        control.clear();
        control.setTracingActive(false);
        const std::uint64_t triedBefore = producer.getWritten() + producer.getDropped();
        const QString file = dir.filePath("all.csv"_q);
        QProcess p;
        p.start(recorder, privateNames + QStringList {"-o"_q, file});
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(file).size() > 0, 20000);
        std::uint64_t id = 0;
        auto call = [&](std::uint32_t kind) {
            return makeCall(4242, 1, id, kind, kind ? "viRead(0x1, \"1.25\", 20)" : "viRead(0x1, buf, 20)");
        };
        QElapsedTimer waited;
        waited.start();
        while (id < 20000) {
            if (producer.freeEntries() < 3) {
                QVERIFY(waited.elapsed() < 20000); // the recorder drains the segment
                QThread::usleep(200);
                continue;
            }
            ++id;
            QCOMPARE(producer.write(call(0)), ZelTracer::TraceProducer::Outcome::Written);
            QCOMPARE(producer.write(call(1)), ZelTracer::TraceProducer::Outcome::Written);
        }
        for (const std::uint64_t end = id + 5000; id < end;) {
            ++id;
            producer.write(call(0));
            producer.write(call(1));
        }
        // A loss shows as a gap before a later record of the process.
        QTRY_VERIFY_WITH_TIMEOUT(producer.freeEntries() >= 3, 20000);
        ++id;
        QCOMPARE(producer.write(call(0)), ZelTracer::TraceProducer::Outcome::Written);
        ::kill(static_cast<pid_t>(p.processId()), SIGTERM);
        QVERIFY(p.waitForFinished(20000));
        // A completed row holds two records, a call or a return row one.
        const QByteArray rows = fileBytes(file);
        const std::uint64_t records
            = 2 * std::uint64_t(rows.count(",\"completed\",")) + rows.count(",\"call\",") + rows.count(",\"return\",");
        const QRegularExpression summary("(\\d+) records lost"_q);
        const auto lost = summary.match(QString::fromUtf8(p.readAllStandardError()));
        QVERIFY(lost.hasMatch());
        QVERIFY(producer.getDropped() > 0);
        QCOMPARE(records + lost.captured(1).toULongLong(), producer.getWritten() + producer.getDropped() - triedBefore);
    }

    // A recorder killed in the middle of a recording at full rate leaves a capture file that opens and
    // holds every call up to its last transaction: the first calls without a gap, at least all of those
    // it had committed before, and nothing the producer did not write.
    void killedRecorderKeepsWhatItCommitted()
    {
        control.clear();
        control.setTracingActive(false);
        const QString file = dir.filePath("killed.zelcap"_q);
        QProcess p;
        p.start(recorder, privateNames + QStringList {"-q"_q, "-o"_q, file});
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(file).size() > 0 && header().startsWith("tracing 1"_q), 20000);
        std::uint64_t id = 0;
        auto writeCalls = [&](std::uint64_t count) {
            for (const std::uint64_t end = id + count; id < end;) {
                if (producer.freeEntries() < 3) {
                    QThread::usleep(100);
                    continue;
                }
                ++id;
                producer.write(makeCall(4242, 1, id, 0, "viRead(0x1, buf, 20)"));
                producer.write(makeCall(4242, 1, id, 1, "viRead(0x1, \"1.25\", 20)"));
            }
        };
        auto callsIn = [&file](std::int64_t& rows) {
            capture::ZelcapFile capture;
            QString error;
            std::uint64_t last = 0;
            bool gapless = capture.open(file, error);
            rows = capture.rowCount();
            capture.scan(1, rows, [&](capture::StoredRow const& r) {
                gapless = gapless && r.record.id == last + (r.record.kind == 0 || r.hasCall ? 1 : 0);
                last = r.record.id;
                return gapless;
            });
            return gapless ? last : 0;
        };
        writeCalls(20000);
        std::int64_t rows = 0;
        // Committed within half a second, the last call once the next one comes.
        writeCalls(1);
        QTRY_VERIFY_WITH_TIMEOUT(callsIn(rows) >= 20000, 20000);
        writeCalls(30000);
        ::kill(static_cast<pid_t>(p.processId()), SIGKILL);
        QVERIFY(p.waitForFinished(20000));
        const std::uint64_t kept = callsIn(rows);
        QVERIFY2(kept >= 20000 && kept <= id, qPrintable("%1 calls kept of %2"_q.arg(kept).arg(id)));
        QVERIFY(rows > 0);
        control.setTracingActive(false);
        // What the killed recorder left attached goes with the test.
        ZelTracer::RingBufferSharedMem<ZelTracer::FullEntry>(privateNames[5], LiveTraceModel::s_DefaultSharedRingSize);
        TestNames::removeSegment(ZelTracer::ToolPresence::keyFor(privateNames[5].toStdString()));
    }
};

QTEST_GUILESS_MAIN(TestPrograms)
#include "tst_programs.moc"
