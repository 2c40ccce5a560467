// The traced side: the producer, its log file and the tool's count of what it lost, with real
// processes on private names for the faults (killed lock holders, bad lock files, the umask, many
// threads). None of these may hang, crash or corrupt the traced program.

#include "SharedFile.h"
#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QtTest>

#include <sys/prctl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <thread>

using namespace ZelTracer;
using Outcome = TraceProducer::Outcome;
Q_DECLARE_METATYPE(Outcome)

namespace {

int semaphoreValue(std::string const& name)
{
    sem_t* s = sem_open(name.c_str(), 0);
    int value = -1;
    if (s != SEM_FAILED) {
        sem_getvalue(s, &value);
        sem_close(s);
    }
    return value;
}

} // namespace

class TestProducer : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        qputenv("TZ", "UTC");
        tzset();
    }

    void write_data()
    {
        QTest::addColumn<bool>("active");
        QTest::addColumn<uint>("pidFilter");
        QTest::addColumn<QByteArray>("messageFilter");
        QTest::addColumn<int>("length"); // of the text, padded after the command
        QTest::addColumn<Outcome>("outcome");
        auto row = [](const char* name, bool active, uint pid, const char* message, int length, Outcome outcome) {
            QTest::newRow(name) << active << pid << QByteArray(message) << length << outcome;
        };
        row("tracing off", false, 0, "", 19, Outcome::Inactive);
        row("no filter", true, 0, "", 19, Outcome::Written);
        row("own pid", true, 100, "", 19, Outcome::Written);
        row("other pid", true, 101, "", 19, Outcome::Filtered);
        row("message in other case", true, 0, "IDN?", 19, Outcome::Written);
        row("message absent", true, 0, "viRead", 19, Outcome::Filtered);
        row("both must match", true, 101, "idn", 19, Outcome::Filtered);
        // A ring of five slots, one of which always stays free: four hold 319 characters and the terminator.
        row("four slots fit", true, 0, "", 319, Outcome::Written);
        row("five slots are dropped whole", true, 0, "", 320, Outcome::Dropped);
    }

    void write()
    {
        QFETCH(bool, active);
        QFETCH(uint, pidFilter);
        QFETCH(QByteArray, messageFilter);
        QFETCH(int, length);
        QFETCH(Outcome, outcome);
        PrivateSegment segment(30);
        const unsigned long size = s_HeaderSize + 5 * s_SlotSize;
        TraceChannelControl control(segment.key, size, segment.semaphore);
        TraceProducer producer(segment.key, size, segment.semaphore, segment.fileSemaphore);
        control.setTracingActive(active);
        control.setPidFilter(pidFilter);
        control.setMessageFilter(messageFilter.toStdString());
        std::string text = "viWrite(1, \"*idn?\")";
        text.resize(static_cast<std::size_t>(length), 'x');

        QCOMPARE(int(producer.write(makeEntry(1, 100, 0, text))), int(outcome));
        control.copySharedMemory(true);
        const std::vector<FullEntry> records = walk(control);
        QCOMPARE(QByteArray(records.size() == 1 ? records[0].text : "none"),
                 QByteArray(outcome == Outcome::Written ? text.c_str() : "none"));
    }

    // Lines in the fixed format: TAB and double quote pass through, a text without its terminator is
    // written empty, and the other control characters are escaped, so that a record is always one line
    // (an instrument's reply may hold line breaks). The disk is checked on the first line and then on
    // every 10001st, and below 500 MB the file gets the message and nothing more from this writer,
    // although space comes back at once.
    void logFile()
    {
        PrivateSegment names(31);
        const std::string name = dir.path().toStdString() + "/full.log";
        std::ofstream(name) << s_LogHeaderLine;
        SharedFile file(names.fileSemaphore);
        int checks = 0;
        file.setFreeSpaceQuery([&](std::string const& asked) { return ++checks == 2 || asked != name ? 499.0 : 1e6; });
        file.openFile(name);
        const QByteArrayList texts = {"viWrite(0x1, \"*IDN?\\n\", 6, 6)", "a\t\"b", "",
                                      QByteArray(int(sizeof(FullEntry::text)), 'x'), "1\n2\r3\x01\x7f\xe9"};
        for (int i = 0; i < 10001 + 20; ++i) {
            FullEntry entry = makeEntry(1, 100, 0, "");
            std::memcpy(entry.text, texts[i % 5].constData(), static_cast<std::size_t>(texts[i % 5].size()));
            if (i % 5 == 4)
                std::strcpy(entry.address, "GPIB0::22\n::INSTR");
            file.write(entry);
        }
        const QByteArray text = QByteArray::fromStdString(fileText(name));
        const QByteArray fields
            = "1\t2023-11-14 22:13:21\t1.50000e+00\t100\t101\t7\tGPIB0::22::INSTR\t1.23457e-03\t0\t-1073807339\t";
        const QByteArray head = s_LogHeaderLine + fields + "\"viWrite(0x1, \"*IDN?\\n\", 6, 6)\"\n" + fields
            + "\"a\t\"b\"\n" + fields + "\"\"\n" + fields + "\"\"\n" + QByteArray(fields).replace("::22::", "::22\\n::")
            + "\"1\\n2\\r3\\x01\\x7F\xe9\"\n";
        QCOMPARE(text.left(head.size()), head);
        QCOMPARE(QStringLiteral("%1 %2 %3").arg(checks).arg(text.count('\n')).arg(file.isDiskFull()),
                 QStringLiteral("2 10004 1"));
        QVERIFY(text.endsWith("\"\n# Not enough disk space left. At least 5.00000e+02MB are required.\n"
                              "# To resume logging close all applications using the Zel VISA, free "
                              "disk space and restart.\n"));
    }

    // Anyone can write a name into the header: a producer appends only to a log the tool started (a
    // regular file whose first line is the tool's header line), never makes a file, never follows a
    // symbolic link on the way, and never hangs on a FIFO. The file named is left as it was.
    void logFileRefused_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("problem"); // empty: the line is appended
        auto row = [](const char* name, const char* kind, const char* problem) {
            QTest::newRow(name) << QString::fromLatin1(kind) << QString::fromLatin1(problem);
        };
        row("a log the tool started", "log", "");
        row("missing: never made", "missing", "cannot be opened (No such file or directory)");
        row("another file", "passwd", "does not begin with the tool's header line");
        row("empty file", "empty", "does not begin with the tool's header line");
        row("link to a log", "link", "is a symbolic link");
        row("log behind a linked folder", "folderlink", "has a symbolic link or a file among its folders");
        row("FIFO", "fifo", "is not a regular file");
        row("folder", "folder", "cannot be opened (Is a directory)");
        row("relative name", "relative", "is not an absolute path");
    }

    void logFileRefused()
    {
        QFETCH(QString, kind);
        QFETCH(QString, problem);
        PrivateSegment names(32);
        QTemporaryDir place;
        const QString log = place.filePath(QStringLiteral("real.log"));
        std::ofstream(log.toStdString()) << s_LogHeaderLine;
        std::ofstream(place.filePath(QStringLiteral("passwd")).toStdString()) << "root:x:0:0::/root:/bin/sh\n";
        std::ofstream(place.filePath(QStringLiteral("empty")).toStdString());
        QVERIFY(QFile::link(log, place.filePath(QStringLiteral("link"))));
        QVERIFY(QFile::link(place.path(), place.filePath(QStringLiteral("folderlink"))));
        QVERIFY(mkfifo(place.filePath(QStringLiteral("fifo")).toLocal8Bit().constData(), 0666) == 0);
        QVERIFY(QDir(place.path()).mkdir(QStringLiteral("folder")));
        const QString name = kind == QLatin1String("log") ? log
            : kind == QLatin1String("folderlink")         ? place.filePath(QStringLiteral("folderlink/real.log"))
            : kind == QLatin1String("relative")           ? QStringLiteral("real.log")
                                                          : place.filePath(kind);
        const QByteArray before = QByteArray::fromStdString(fileText(log.toStdString()));
        SharedFile file(names.fileSemaphore);
        file.setFreeSpaceQuery([](std::string const&) { return 1e6; });
        file.openFile(name.toStdString());
        QCOMPARE(file.writeWithin(makeEntry(1, 100, 0, "viWrite"), s_ProducerLockBounds), problem.isEmpty());
        QVERIFY2(QString::fromStdString(file.openProblem()).contains(problem), file.openProblem().c_str());
        QCOMPARE(QString::fromStdString(SharedFile::appendProblem(name.toStdString())),
                 QString::fromStdString(file.openProblem()));
        QCOMPARE(QFileInfo::exists(place.filePath(QStringLiteral("missing"))), false);
        QCOMPARE(QByteArray::fromStdString(fileText(place.filePath(QStringLiteral("passwd")).toStdString())),
                 QByteArray("root:x:0:0::/root:/bin/sh\n"));
        QCOMPARE(QByteArray::fromStdString(fileText(log.toStdString())).size() > before.size(),
                 kind == QLatin1String("log"));
    }

    void killedLogWriterDoesNotHangTheNext()
    {
        PrivateSegment segment(41);
        QTemporaryDir logDir;
        TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
        control.setTracingActive(true);
        control.settracingToFileActive(true, logDir.filePath(QStringLiteral("trace.log")).toStdString());
        // A writer dies between taking the file lock and releasing it.
        QVERIFY(killedHolding([&] { return (new SharedFile(segment.fileSemaphore))->lock(); }));
        // The next producer keeps tracing into the segment and drops and counts its log lines.
        TraceProducer producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore);
        for (std::uint64_t id = 1; id <= 50; ++id)
            producer.write(makeEntry(id, 100, 0, "viWrite"));
        control.copySharedMemory(true);
        QCOMPARE(QStringLiteral("%1 %2").arg(walk(control).size()).arg(producer.getFileDropped()),
                 QStringLiteral("50 50"));
    }

    // A holder of the segment lock that died: no call of a traced program waits more than a few ms (the
    // unbounded lock took a second per call); the record is dropped and counted. Once calls have failed
    // for as long as the self-breaking lock waits, the lock is broken, with its line, and records are
    // written again.
    void deadLockHolderCostsAFewMilliseconds()
    {
        PrivateSegment segment(44);
        TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
        control.setTracingActive(true);
        QVERIFY(killedHolding([&] { return (new SharedMemory(segment.key, segment.semaphore))->lock(); }));
        TraceProducer producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore);
        std::int64_t longest = 0;
        Outcome outcome = Outcome::Dropped;
        const std::string errors = stderrOf([&] {
            for (const std::int64_t end = monotonicNanoseconds() + 5000000000;
                 outcome != Outcome::Written && monotonicNanoseconds() < end; usleep(1000)) {
                const std::int64_t start = monotonicNanoseconds();
                outcome = producer.write(makeEntry(1, 100, 0, "viWrite"));
                longest = std::max(longest, monotonicNanoseconds() - start);
            }
        });
        QCOMPARE(outcome, Outcome::Written);
        QVERIFY2(longest < 500000000, qPrintable(QString::number(longest)));
        QVERIFY(producer.getDropped() > 0 && producer.getSequence() == producer.getDropped() + 1);
        QCOMPARE(QByteArray::fromStdString(errors).count("Now I am breaking it!"), 1);
    }

    // Someone removes the segment, or the lock's file, while a traced program runs; the tool follows
    // to a new one. Within one look (200 ms, on a clock the test moves) the producer follows too: its
    // records reach the tool again, and it honours the lock the others use. Another thread of the
    // program goes on writing meanwhile and never finds the segment unmapped.
    void followsReplacedSegmentAndLock_data()
    {
        QTest::addColumn<bool>("lockFile");
        QTest::newRow("segment removed") << false;
        QTest::newRow("lock file removed") << true;
    }

    void followsReplacedSegmentAndLock()
    {
        QFETCH(bool, lockFile);
        static std::int64_t now = 1;
        PrivateSegment segment(45);
        TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
        control.setTracingActive(true);
        TraceProducer producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore);
        producer.setClock([] { return now; });
        std::atomic<bool> stop {false};
        std::thread other([&] {
            for (; !stop; usleep(200))
                producer.write(makeEntry(2, 100, 0, "other thread"));
        });
        std::unique_ptr<SharedMemory> holder;
        if (lockFile) {
            TestNames::unlinkSemaphore(segment.semaphore);
            QVERIFY(control.reopenLockIfReplaced());
            holder = std::make_unique<SharedMemory>(segment.key, segment.semaphore);
            QVERIFY(holder->lock());
        } else {
            TestNames::removeSegment(segment.key);
            QVERIFY(control.reattachIfReplaced());
            control.setTracingActive(true);
        }
        auto arrives = [&](const char* text) {
            producer.write(makeEntry(1, 100, 0, text));
            if (holder)
                holder->unlock();
            control.copySharedMemory(true);
            const std::vector<FullEntry> records = walk(control);
            const bool arrived = std::any_of(records.begin(), records.end(),
                                             [text](FullEntry const& e) { return std::strcmp(e.text, text) == 0; });
            if (holder)
                holder->lock();
            return arrived;
        };
        // Before the look the producer still writes where nobody reads, or past the lock others hold.
        const bool before = arrives("before");
        now += TraceProducer::s_CheckNanoseconds;
        const Outcome after = producer.write(makeEntry(1, 100, 0, "after"));
        stop = true;
        other.join();
        if (holder)
            holder->unlock();
        control.copySharedMemory(true);
        QCOMPARE(before, lockFile); // written into the dead segment, or while the new lock was held
        QCOMPARE(after, lockFile ? Outcome::Dropped : Outcome::Written);
        QVERIFY(lockFile || arrives("after"));
    }

    // Below 500 MB free the log writer stops for good, as it must; five seconds later (on the test's
    // clock) the producer opens a new writer, which finds the space freed and logs again. Every line
    // not written is counted.
    void diskFullThenFreed()
    {
        static std::int64_t now = 1;
        PrivateSegment segment(48);
        const std::string log = dir.path().toStdString() + "/disk.log";
        TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
        control.setTracingActive(true);
        control.settracingToFileActive(true, log);
        TraceProducer producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore);
        producer.setClock([] { return now; });
        double freeMiB = 100;
        producer.setFreeSpaceQuery([&freeMiB](std::string const&) { return freeMiB; });
        QStringList written;
        for (const std::int64_t step :
             {std::int64_t(0), std::int64_t(1000000000), TraceProducer::s_DiskRetryNanoseconds}) {
            now += step;
            producer.write(makeEntry(written.size() + 1, 100, 0, "viRead"));
            written << QString::number(producer.getFileDropped());
            freeMiB = 1e6;
        }
        QCOMPARE(written.join(QLatin1Char(' ')), QStringLiteral("1 2 2"));
        const QByteArray text = QByteArray::fromStdString(fileText(log));
        QVERIFY2(text.contains("disk space and restart.\n3\t"), text.constData());
    }

    void lockBreakRestoresOneHolder()
    {
        PrivateSegment segment(42);
        SharedMemory holder(segment.key, segment.semaphore), waiter(segment.key, segment.semaphore);
        QVERIFY(holder.lock());
        QVERIFY(waiter.lock()); // breaks after about a second: the holder looks dead
        holder.unlock(); // ...but was only slow
        waiter.unlock();
        QCOMPARE(semaphoreValue(segment.semaphore), 2);
        SharedMemory next(segment.key, segment.semaphore);
        QVERIFY(next.lock());
        QCOMPARE(semaphoreValue(segment.semaphore), 0); // nobody else gets in while `next` holds it
    }

    // Eight threads write long texts through one producer against a message filter, while a tool drains
    // the segment and another process keeps switching the log file. No waiter breaks the lock (the break
    // writes its line to stderr) or finds it open to two; every record that passed the filter is written
    // or dropped, every written record arrives whole, and every log line is whole or counted as dropped.
    void threadsShareAProducer()
    {
        PrivateSegment segment(43);
        const std::string logs[2] = {dir.path().toStdString() + "/a", dir.path().toStdString() + "/b"};
        LosslessReader reader(segment);
        reader.control.setTracingActive(true);
        reader.control.setMessageFilter("needle");
        reader.control.settracingToFileActive(true, logs[0]);
        const pid_t switcher = fork();
        if (switcher == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL); // never outlives a test that crashed
            TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
            for (int i = 0;; ++i, usleep(500))
                control.settracingToFileActive(true, logs[i % 2]);
        }
        TraceProducer producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore);
        producer.getFile().setFreeSpaceQuery([](std::string const&) { return 1e6; });
        constexpr int threads = 8, perThread = 1500;
        std::atomic<int> running {threads};
        std::atomic<quint64> passed {0};
        std::vector<std::thread> workers;
        for (int t = 0; t < threads; ++t) {
            workers.emplace_back([&, t] {
                for (int i = 0; i < perThread; ++i) {
                    std::string text(TraceProducer::s_MaxTextLength, char('a' + t));
                    if (i % 2 == 0)
                        text.replace(900, 6, "NEEDLE");
                    const Outcome outcome = producer.write(makeEntry(t * perThread + i, 100, 0, text));
                    passed += outcome == Outcome::Written || outcome == Outcome::Dropped;
                }
                --running;
            });
        }
        auto whole = [](QByteArray const& text) {
            return text.size() == 959
                && text == QByteArray(QByteArray(900, text[0]) + "NEEDLE" + QByteArray(53, text[0]));
        };
        quint64 wholeRecords = 0, wholeLines = 0;
        int highestValue = 0;
        const std::string errors = stderrOf([&] {
            for (bool last = false; !last; usleep(2000)) {
                last = running == 0;
                for (const FullEntry& e : reader.drain())
                    wholeRecords += whole(e.text);
                highestValue = std::max(highestValue, semaphoreValue(segment.semaphore));
            }
        });
        kill(switcher, SIGKILL);
        waitpid(switcher, nullptr, 0);
        for (std::thread& w : workers)
            w.join();
        for (const std::string& log : logs) {
            for (const QByteArray& line : QByteArray::fromStdString(fileText(log)).split('\n'))
                wholeLines += line.count('\t') == 10 && line.endsWith('"')
                    && whole(line.mid(line.lastIndexOf('\t') + 2).chopped(1));
        }
        QVERIFY2(errors.find("breaking") == std::string::npos, errors.c_str());
        QVERIFY(highestValue <= 1);
        const QVector<quint64> counts = {passed.load(), producer.getWritten() + producer.getDropped(),
                                         wholeRecords + producer.getDropped(), wholeLines + producer.getFileDropped()};
        QCOMPARE(counts, QVector<quint64>(4, threads * perThread / 2));
    }

    void lockFiles_data()
    {
        QTest::addColumn<bool>("fileLock");
        QTest::addColumn<int>("bytes"); // of the file left there beforehand; -1: none, the producer makes it
        QTest::newRow("segment lock made under umask 022") << false << -1;
        QTest::newRow("log file lock made under umask 022") << true << -1;
        QTest::newRow("empty segment lock") << false << 0;
        QTest::newRow("truncated segment lock") << false << 16;
        QTest::newRow("oversized segment lock") << false << 4096;
        QTest::newRow("empty log file lock") << true << 0;
    }

    // Any local user can leave a bad lock file, which glibc would map blindly and die of SIGBUS on first
    // use; a good lock must open to the programs of every user whatever the umask.
    void lockFiles()
    {
        QFETCH(bool, fileLock);
        QFETCH(int, bytes);
        PrivateSegment segment(46);
        const std::string name = fileLock ? segment.fileSemaphore : segment.semaphore;
        const std::string toolLock = TestNames::semaphoreName("tool46");
        TraceChannelControl control(segment.key, s_VisaSharedMemorySize, toolLock);
        control.setTracingActive(true);
        control.settracingToFileActive(true, dir.path().toStdString() + "/locks.log");
        if (bytes >= 0)
            std::ofstream(semaphoreFilePath(name), std::ios::binary) << std::string(std::size_t(bytes), '\0');
        // The umask belongs to the whole process, and a SIGBUS would end it: the producer runs in a child.
        const bool passed = passesInChild([&] {
            umask(022);
            TraceProducer producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore);
            const Outcome outcome = producer.write(makeEntry(1, 100, 0, "viWrite"));
            if (bytes < 0 || fileLock) // a bad log file lock loses only the log line
                return outcome == Outcome::Written && producer.getFileDropped() == (bytes < 0 ? 0u : 1u);
            return outcome == Outcome::NoSegment && !producer.lockProblem().empty();
        });
        TestNames::unlinkSemaphore(toolLock);
        QVERIFY(passed);
        struct stat info = {};
        QVERIFY(bytes >= 0 || (stat(semaphoreFilePath(name).c_str(), &info) == 0 && (info.st_mode & 0777) == 0666));
    }

private:
    QTemporaryDir dir;
};

QTEST_GUILESS_MAIN(TestProducer)
#include "tst_producer.moc"
