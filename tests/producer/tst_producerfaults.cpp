// Faults of the traced side with real processes on private names: killed lock holders, bad lock
// files, the umask, many threads. None of these may hang, crash or corrupt the traced program.

#include "SharedFile.h"
#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QtTest>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <thread>

using namespace ZelTracer;

namespace {

// Runs `body` in a child process and returns its wait status; the child's exit code is body's result.
template<class Body> int inChild(Body body)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(body());
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

bool exitedWith(int status, int code)
{
    return WIFEXITED(status) && WEXITSTATUS(status) == code;
}

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

// Runs work(t) in `threads` threads while a tool drains the segment, passing it every record.
template<class Work, class Seen> void whileDraining(LosslessReader& reader, int threads, Work work, Seen seen)
{
    std::atomic<int> running {threads};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&, t] {
            work(t);
            --running;
        });
    }
    for (bool last = false; !last; usleep(2000)) {
        last = running == 0;
        for (const FullEntry& e : reader.drain())
            seen(e);
    }
    for (std::thread& w : workers)
        w.join();
}

} // namespace

class TestProducerFaults : public QObject
{
    Q_OBJECT

private slots:
    void killedLogWriterDoesNotHangTheNext();
    void lockBreakRestoresOneHolder();
    void messageFilterAndManyThreadsNeverBreakTheLock();
    void threadsShareAProducerWhileTheLogNameChanges();
    void semaphoresOpenToEveryUser_data();
    void semaphoresOpenToEveryUser();
    void badSemaphoreFileMeansNoLock_data();
    void badSemaphoreFileMeansNoLock();
};

void TestProducerFaults::killedLogWriterDoesNotHangTheNext()
{
    PrivateSegment segment(41);
    QTemporaryDir dir;
    const std::string log = dir.filePath(QStringLiteral("trace.log")).toStdString();
    TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
    control.setTracingActive(true);
    control.settracingToFileActive(true, log);

    // A writer dies between taking the file lock and releasing it.
    int ready[2];
    QVERIFY(pipe(ready) == 0);
    const pid_t writer = fork();
    if (writer == 0) {
        SharedFile file(segment.fileSemaphore);
        const char ok = file.lock() ? 1 : 0;
        (void)::write(ready[1], &ok, 1);
        pause();
        _exit(0);
    }
    char ok = 0;
    QCOMPARE(::read(ready[0], &ok, 1), ssize_t(1));
    QCOMPARE(ok, char(1));
    kill(writer, SIGKILL);
    waitpid(writer, nullptr, 0);
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

void TestProducerFaults::lockBreakRestoresOneHolder()
{
    PrivateSegment segment(42);
    SharedMemory holder(segment.key, segment.semaphore);
    SharedMemory waiter(segment.key, segment.semaphore);
    QVERIFY(holder.lock());
    QVERIFY(waiter.lock()); // breaks after about a second: the holder looks dead
    holder.unlock(); // ...but was only slow
    waiter.unlock();
    QCOMPARE(semaphoreValue(segment.semaphore), 2);
    SharedMemory next(segment.key, segment.semaphore);
    QVERIFY(next.lock());
    QCOMPARE(semaphoreValue(segment.semaphore), 0); // nobody else gets in while `next` holds it
    next.unlock();
    QCOMPARE(semaphoreValue(segment.semaphore), 1);
}

// Long texts against a message filter in eight threads, drained by a tool: no waiter ever breaks the
// lock (the break writes its line to stderr), every record that passed the filter is written or
// dropped, and every written record arrives intact.
void TestProducerFaults::messageFilterAndManyThreadsNeverBreakTheLock()
{
    PrivateSegment segment(43);
    LosslessReader reader(segment);
    reader.control.setTracingActive(true);
    reader.control.setMessageFilter("needle");
    constexpr int threads = 8;
    constexpr std::uint64_t perThread = 1500;
    QTemporaryFile errors;
    QVERIFY(errors.open());
    const int savedStderr = dup(STDERR_FILENO);
    dup2(errors.handle(), STDERR_FILENO);

    TraceProducer producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore);
    sem_t* lock = sem_open(segment.semaphore.c_str(), 0);
    std::atomic<std::uint64_t> passed {0};
    std::size_t received = 0;
    bool intact = true;
    int highestValue = 0;
    whileDraining(
        reader, threads,
        [&](int t) {
            for (std::uint64_t i = 0; i < perThread; ++i) {
                std::string text(TraceProducer::s_MaxTextLength, char('a' + t));
                if (i % 2 == 0)
                    text.replace(900, 6, "NEEDLE");
                const auto outcome = producer.write(makeEntry(t * perThread + i, 100, 0, text));
                passed += outcome == TraceProducer::Outcome::Written || outcome == TraceProducer::Outcome::Dropped;
            }
        },
        [&](const FullEntry& e) {
            ++received;
            intact = intact && std::strlen(e.text) == TraceProducer::s_MaxTextLength && std::strstr(e.text, "NEEDLE");
            int value = 0;
            sem_getvalue(lock, &value);
            highestValue = std::max(highestValue, value);
        });
    sem_close(lock);
    dup2(savedStderr, STDERR_FILENO);
    close(savedStderr);

    const QByteArray stderrText = errors.readAll();
    QVERIFY2(!stderrText.contains("breaking"), stderrText.constData());
    QVERIFY(highestValue <= 1);
    QCOMPARE(passed.load(), std::uint64_t(threads * perThread / 2));
    QCOMPARE(producer.getWritten() + producer.getDropped(), passed.load());
    QCOMPARE(std::uint64_t(received), producer.getWritten());
    QVERIFY(intact);
}

// Four threads log through one producer while another process keeps switching the log file: no
// crash, no line lost or torn (a line reaches one of the files or is counted as dropped).
void TestProducerFaults::threadsShareAProducerWhileTheLogNameChanges()
{
    PrivateSegment segment(44);
    QTemporaryDir dir;
    const std::string logs[2]
        = {dir.filePath(QStringLiteral("a.log")).toStdString(), dir.filePath(QStringLiteral("b.log")).toStdString()};
    LosslessReader reader(segment);
    reader.control.setTracingActive(true);
    reader.control.settracingToFileActive(true, logs[0]);

    const pid_t switcher = fork();
    if (switcher == 0) {
        TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
        for (int i = 0;; ++i) {
            control.settracingToFileActive(true, logs[i % 2]);
            usleep(500);
        }
    }
    TraceProducer producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore);
    producer.getFile().setFreeSpaceQuery([](std::string const&) { return 1e6; });
    constexpr std::uint64_t perThread = 2000;
    std::size_t received = 0;
    whileDraining(
        reader, 4,
        [&](int t) {
            for (std::uint64_t i = 0; i < perThread; ++i)
                producer.write(makeEntry(t * perThread + i, 100, 0, "viRead(\"" + std::to_string(i) + "\")"));
        },
        [&](const FullEntry&) { ++received; });
    kill(switcher, SIGKILL);
    waitpid(switcher, nullptr, 0);
    std::size_t lines = 0;
    bool wellFormed = true;
    for (const std::string& log : logs) {
        std::ifstream in(log);
        for (std::string line; std::getline(in, line);) {
            if (line.rfind('#', 0) == 0)
                continue;
            ++lines;
            wellFormed = wellFormed && std::count(line.begin(), line.end(), '\t') == 10 && line.back() == '"';
        }
    }
    QCOMPARE(std::uint64_t(received), producer.getWritten());
    QCOMPARE(producer.getWritten() + producer.getDropped(), 4 * perThread);
    QCOMPARE(std::uint64_t(lines) + producer.getFileDropped(), 4 * perThread);
    QVERIFY(wellFormed);
}

void TestProducerFaults::semaphoresOpenToEveryUser_data()
{
    QTest::addColumn<bool>("fileLock");
    QTest::newRow("segment lock") << false;
    QTest::newRow("log file lock") << true;
}

void TestProducerFaults::semaphoresOpenToEveryUser()
{
    QFETCH(bool, fileLock);
    PrivateSegment segment(45);
    const std::string name = fileLock ? segment.fileSemaphore : segment.semaphore;
    // umask belongs to the whole process: the object is created in a child.
    const int status = inChild([&] {
        umask(022);
        if (fileLock)
            return SharedFile(name).hasLock() ? 0 : 1;
        return SharedMemory(segment.key, name).hasLock() ? 0 : 1;
    });
    QVERIFY(exitedWith(status, 0));
    struct stat info
    {
    };
    QCOMPARE(stat(semaphoreFilePath(name).c_str(), &info), 0);
    QCOMPARE(info.st_mode & 0777, mode_t(0666));
}

void TestProducerFaults::badSemaphoreFileMeansNoLock_data()
{
    QTest::addColumn<bool>("fileLock");
    QTest::addColumn<int>("bytes");
    QTest::newRow("empty segment lock") << false << 0;
    QTest::newRow("truncated segment lock") << false << 16;
    QTest::newRow("oversized segment lock") << false << 4096;
    QTest::newRow("empty log file lock") << true << 0;
}

// Any local user can leave such a file; glibc would map it blindly and die of SIGBUS on first use.
void TestProducerFaults::badSemaphoreFileMeansNoLock()
{
    QFETCH(bool, fileLock);
    QFETCH(int, bytes);
    PrivateSegment segment(46);
    const std::string goodLock = TestNames::semaphoreName("good46");
    TraceChannelControl control(segment.key, s_VisaSharedMemorySize, goodLock);
    control.setTracingActive(true);
    QTemporaryDir dir;
    control.settracingToFileActive(true, dir.filePath(QStringLiteral("t.log")).toStdString());
    const std::string bad = fileLock ? segment.fileSemaphore : segment.semaphore;
    {
        std::ofstream out(semaphoreFilePath(bad), std::ios::binary);
        out << std::string(static_cast<std::size_t>(bytes), '\0');
    }

    const int status = inChild([&] {
        TraceProducer producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore);
        const auto outcome = producer.write(makeEntry(1, 100, 0, "viWrite"));
        if (fileLock) // the segment still works; only the log line is lost
            return outcome == TraceProducer::Outcome::Written && !producer.getFile().hasLock() ? 0 : 1;
        return outcome == TraceProducer::Outcome::NoSegment && !producer.hasLock() && !producer.lockProblem().empty()
            ? 0
            : 1;
    });
    TestNames::unlinkSemaphore(goodLock);
    QVERIFY2(exitedWith(status, 0), qPrintable(QString::number(status)));
}

QTEST_GUILESS_MAIN(TestProducerFaults)
#include "tst_producerfaults.moc"
