// Faults of the traced side with real processes on private names: killed lock holders, bad lock
// files, the umask, many threads. None of these may hang, crash or corrupt the traced program.

#include "SharedFile.h"
#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QtTest>

#include <sys/stat.h>

#include <atomic>
#include <thread>

using namespace ZelTracer;

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

// Runs work(t) in `threads` threads while a tool drains the segment, calling `sample` after each
// drain; returns every record drained.
template<class Work, class Sample>
std::vector<FullEntry> whileDraining(LosslessReader& reader, int threads, Work work, Sample sample)
{
    std::atomic<int> running {threads};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&, t] { work(t), --running; });
    std::vector<FullEntry> records;
    for (bool last = false; !last; usleep(2000)) {
        last = running == 0;
        for (const FullEntry& e : reader.drain())
            records.push_back(e);
        sample();
    }
    for (std::thread& w : workers)
        w.join();
    return records;
}

} // namespace

class TestProducerFaults : public QObject
{
    Q_OBJECT

private slots:
    void killedLogWriterDoesNotHangTheNext()
    {
        PrivateSegment segment(41);
        QTemporaryDir dir;
        TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
        control.setTracingActive(true);
        control.settracingToFileActive(true, dir.filePath(QStringLiteral("trace.log")).toStdString());
        // A writer dies between taking the file lock and releasing it.
        QVERIFY(killedHolding([&] { return (new SharedFile(segment.fileSemaphore))->lock(); }));
        QCOMPARE(semaphoreValue(segment.fileSemaphore), 0);

        // The next producer keeps tracing into the segment and drops and counts its log lines.
        TraceProducer producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore);
        producer.getFile().setFreeSpaceQuery([](std::string const&) { return 1e6; });
        for (std::uint64_t id = 1; id <= 50; ++id)
            QVERIFY(producer.write(makeEntry(id, 100, 0, "viWrite")) == TraceProducer::Outcome::Written);
        QCOMPARE(producer.getFileDropped(), std::uint64_t(50));
        control.copySharedMemory(true);
        QCOMPARE(walk(control).size(), std::size_t(50));
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

    // Long texts against a message filter in eight threads, drained by a tool: no waiter ever breaks the
    // lock (the break writes its line to stderr), every record that passed the filter is written or
    // dropped, and every written record arrives intact.
    void messageFilterAndManyThreadsNeverBreakTheLock()
    {
        PrivateSegment segment(43);
        LosslessReader reader(segment);
        reader.control.setTracingActive(true);
        reader.control.setMessageFilter("needle");
        constexpr int threads = 8;
        constexpr std::uint64_t perThread = 1500;
        TraceProducer producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore);
        std::atomic<std::uint64_t> passed {0};
        auto work = [&](int t) {
            for (std::uint64_t i = 0; i < perThread; ++i) {
                std::string text(TraceProducer::s_MaxTextLength, char('a' + t));
                if (i % 2 == 0)
                    text.replace(900, 6, "NEEDLE");
                const auto outcome = producer.write(makeEntry(t * perThread + i, 100, 0, text));
                passed += outcome == TraceProducer::Outcome::Written || outcome == TraceProducer::Outcome::Dropped;
            }
        };
        int highestValue = 0;
        auto sample = [&] { highestValue = std::max(highestValue, semaphoreValue(segment.semaphore)); };
        std::vector<FullEntry> records;
        const std::string errors = stderrOf([&] { records = whileDraining(reader, threads, work, sample); });
        QVERIFY2(errors.find("breaking") == std::string::npos, errors.c_str());
        QVERIFY(highestValue <= 1);
        QCOMPARE(passed.load(), std::uint64_t(threads * perThread / 2));
        QCOMPARE(producer.getWritten() + producer.getDropped(), passed.load());
        QCOMPARE(std::uint64_t(records.size()), producer.getWritten());
        for (const FullEntry& e : records)
            QVERIFY(std::strlen(e.text) == TraceProducer::s_MaxTextLength && std::strstr(e.text, "NEEDLE"));
    }

    // Four threads log through one producer while another process keeps switching the log file: no
    // crash, no line lost or torn (a line reaches one of the files or is counted as dropped).
    void threadsShareAProducerWhileTheLogNameChanges()
    {
        PrivateSegment segment(44);
        QTemporaryDir dir;
        const std::string logs[2] = {dir.path().toStdString() + "/a", dir.path().toStdString() + "/b"};
        LosslessReader reader(segment);
        reader.control.setTracingActive(true);
        reader.control.settracingToFileActive(true, logs[0]);
        const pid_t switcher = fork();
        if (switcher == 0) {
            TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
            for (int i = 0;; ++i, usleep(500))
                control.settracingToFileActive(true, logs[i % 2]);
        }
        TraceProducer producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore);
        producer.getFile().setFreeSpaceQuery([](std::string const&) { return 1e6; });
        constexpr std::uint64_t perThread = 2000;
        auto work = [&](int t) {
            for (std::uint64_t i = 0; i < perThread; ++i)
                producer.write(makeEntry(t * perThread + i, 100, 0, "viRead(\"" + std::to_string(i) + "\")"));
        };
        const std::size_t received = whileDraining(reader, 4, work, [] {}).size();
        kill(switcher, SIGKILL);
        waitpid(switcher, nullptr, 0);
        QCOMPARE(std::uint64_t(received), producer.getWritten());
        QCOMPARE(producer.getWritten() + producer.getDropped(), 4 * perThread);
        std::uint64_t lines = 0;
        for (const std::string& log : logs) {
            for (const QByteArray& line : QByteArray::fromStdString(fileText(log)).split('\n')) {
                if (line.isEmpty() || line.startsWith('#'))
                    continue;
                ++lines;
                QVERIFY2(line.count('\t') == 10 && line.endsWith('"'), line.constData());
            }
        }
        QCOMPARE(lines + producer.getFileDropped(), 4 * perThread);
    }

    void semaphoresOpenToEveryUser_data()
    {
        QTest::addColumn<bool>("fileLock");
        QTest::newRow("segment lock") << false;
        QTest::newRow("log file lock") << true;
    }

    void semaphoresOpenToEveryUser()
    {
        QFETCH(bool, fileLock);
        PrivateSegment segment(45);
        const std::string name = fileLock ? segment.fileSemaphore : segment.semaphore;
        // umask belongs to the whole process: the object is created in a child.
        QVERIFY(passesInChild([&] {
            umask(022);
            return fileLock ? SharedFile(name).hasLock() : SharedMemory(segment.key, name).hasLock();
        }));
        struct stat info = {};
        QCOMPARE(stat(semaphoreFilePath(name).c_str(), &info), 0);
        QCOMPARE(info.st_mode & 0777, mode_t(0666));
    }

    void badSemaphoreFileMeansNoLock_data()
    {
        QTest::addColumn<bool>("fileLock");
        QTest::addColumn<int>("bytes");
        QTest::newRow("empty segment lock") << false << 0;
        QTest::newRow("truncated segment lock") << false << 16;
        QTest::newRow("oversized segment lock") << false << 4096;
        QTest::newRow("empty log file lock") << true << 0;
    }

    // Any local user can leave such a file; glibc would map it blindly and die of SIGBUS on first use.
    void badSemaphoreFileMeansNoLock()
    {
        QFETCH(bool, fileLock);
        QFETCH(int, bytes);
        PrivateSegment segment(46);
        const std::string goodLock = TestNames::semaphoreName("good46");
        TraceChannelControl control(segment.key, s_VisaSharedMemorySize, goodLock);
        control.setTracingActive(true);
        QTemporaryDir dir;
        control.settracingToFileActive(true, dir.filePath(QStringLiteral("t.log")).toStdString());
        std::ofstream(semaphoreFilePath(fileLock ? segment.fileSemaphore : segment.semaphore), std::ios::binary)
            << std::string(static_cast<std::size_t>(bytes), '\0');

        const bool passed = passesInChild([&] {
            TraceProducer producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore);
            const auto outcome = producer.write(makeEntry(1, 100, 0, "viWrite"));
            if (fileLock) // the segment still works; only the log line is lost
                return outcome == TraceProducer::Outcome::Written && !producer.getFile().hasLock();
            return outcome == TraceProducer::Outcome::NoSegment && !producer.hasLock()
                && !producer.lockProblem().empty();
        });
        TestNames::unlinkSemaphore(goodLock);
        QVERIFY(passed);
    }
};

QTEST_GUILESS_MAIN(TestProducerFaults)
#include "tst_producerfaults.moc"
