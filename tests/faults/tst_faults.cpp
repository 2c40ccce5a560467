// Peers that die or misbehave at any moment, with real processes on private names: the tool and
// the producers that remain keep working.
#include "AppTestSupport.h"
#include "RingBufferSharedMem.h"
#include "TraceApplication.h"
#include "TraceProducer.h"

#include <QProcess>
#include <QtTest>

#include <sys/prctl.h>
#include <sys/shm.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <memory>
#include <vector>

using namespace ZelTracer;
using SharedRing = RingBufferSharedMem<FullEntry>;

namespace {

PrivateSegment& segment()
{
    static PrivateSegment s(50);
    return s;
}

constexpr int s_RingSize = 24 + 64 * sizeof(FullEntry);

// The helper side: another copy of the tool attached to the shared ring, until it is killed.
int attachAndWait(const char* ringName)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    SharedRing ring(QString::fromUtf8(ringName), s_RingSize);
    std::printf("attached\n");
    std::fflush(stdout);
    for (;;)
        pause();
}

} // namespace

class TestFaults : public QObject
{
    Q_OBJECT

public:
    explicit TestFaults(TraceApplication& app)
        : app(app)
    { }

private slots:
    void initTestCase();
    void cleanup();
    void producerKilledInsideLock();
    void killedInstancesAreNotCounted_data();
    void killedInstancesAreNotCounted();
    void segmentRemoved_data();
    void segmentRemoved();
    void segmentOfWrongSize();
    void semaphoreFileRemoved();
    void hugeSharedBlockNotAdopted();
    // Last: quitting leaves the application unable to run modal loops.
    void lastLiveToolSwitchesTracingOff();

private:
    QProcess* startInstance();
    bool shows(const char* text);
    std::uint32_t headerFlag(std::size_t offset);

    TraceApplication& app;
    std::vector<std::unique_ptr<QProcess>> instances;
    std::uint64_t nextId = 1;
};

void TestFaults::initTestCase()
{
    app.getModel().setSharedRingSize(s_RingSize);
    app.starttrace();
    QVERIFY(app.getModel().isRunning());
}

void TestFaults::cleanup()
{
    for (auto& process : instances) {
        process->kill();
        process->waitForFinished(10000);
    }
    instances.clear();
}

QProcess* TestFaults::startInstance()
{
    auto process = std::make_unique<QProcess>();
    process->start(QCoreApplication::applicationFilePath(),
                   {QStringLiteral("--attach-ring"), app.getEndpoints().sharedRingName});
    if (!process->waitForReadyRead(10000))
        return nullptr;
    instances.push_back(std::move(process));
    return instances.back().get();
}

// Writes one record through a fresh producer, as a newly started traced program would, and lets
// the model take snapshots until the record is shown.
bool TestFaults::shows(const char* text)
{
    TraceProducer producer(segment().key, s_VisaSharedMemorySize, segment().semaphore, segment().fileSemaphore);
    if (producer.write(makeEntry(nextId++, 4242, 1, text)) != TraceProducer::Outcome::Written)
        return false;
    LiveTraceModel& model = app.getModel();
    for (int attempt = 0; attempt < 100; ++attempt) {
        QTest::qWait(LiveTraceModel::s_TimerInterval);
        model.updateSharedData();
        model.updateInternalData();
        model.updateDisplayData();
        for (int r = 0; r < model.rowCount(); ++r) {
            if (model.data(model.index(r, LiveTraceModel::CommandColumn)).toString() == QLatin1String(text))
                return true;
        }
    }
    return false;
}

std::uint32_t TestFaults::headerFlag(std::size_t offset)
{
    RawSegment raw(segment());
    return *reinterpret_cast<std::uint32_t*>(reinterpret_cast<char*>(&raw.header()) + offset);
}

void TestFaults::producerKilledInsideLock()
{
    const pid_t child = fork();
    if (child == 0) {
        SharedMemory memory(segment().key, segment().semaphore);
        memory.lock();
        raise(SIGKILL);
    }
    int status = 0;
    waitpid(child, &status, 0);
    QVERIFY(WIFSIGNALED(status));
    // The next writer breaks the dead holder's lock; what it writes reaches the view.
    QVERIFY(shows("viWrite after a killed holder"));
}

void TestFaults::killedInstancesAreNotCounted_data()
{
    QTest::addColumn<int>("started");
    QTest::addColumn<int>("killed");
    QTest::addColumn<quint32>("hostileCount"); // written over the ring's count before leaving; 0: none
    QTest::newRow("the only other instance killed") << 1 << 1 << 0u;
    QTest::newRow("one of two killed") << 2 << 1 << 0u;
    QTest::newRow("another instance alive") << 1 << 0 << 0u;
    QTest::newRow("count far too high") << 0 << 0 << 1000u;
    QTest::newRow("count of zero") << 1 << 0 << 0xFFFFFFFFu;
}

void TestFaults::killedInstancesAreNotCounted()
{
    QFETCH(int, started);
    QFETCH(int, killed);
    QFETCH(quint32, hostileCount);
    LiveTraceModel& model = app.getModel();
    for (int i = 0; i < started; ++i)
        QVERIFY(startInstance());
    for (int i = 0; i < killed; ++i) {
        ::kill(static_cast<pid_t>(instances[i]->processId()), SIGKILL);
        QVERIFY(instances[i]->waitForFinished(10000));
    }
    QVERIFY(shows("viRead while peers come and go"));
    if (hostileCount != 0) {
        SharedRing peer(app.getEndpoints().sharedRingName, s_RingSize);
        peer.block().lock();
        *static_cast<quint32*>(peer.block().data()) = hostileCount == 0xFFFFFFFFu ? 0 : hostileCount;
        peer.block().unlock();
        peer.block().detach(); // leaves without counting itself out
    }
    const bool othersRemain = model.detachSharedRingBuffer();
    QCOMPARE(othersRemain, started - killed > 0);
    QVERIFY(model.start());
}

void TestFaults::segmentRemoved_data()
{
    QTest::addColumn<bool>("recreatedByProducer");
    QTest::newRow("removed") << false;
    QTest::newRow("removed, a producer made a new one") << true;
}

void TestFaults::segmentRemoved()
{
    QFETCH(bool, recreatedByProducer);
    QSignalSpy reattached(&app, &TraceApplication::segmentReattached);
    QCOMPARE(shmctl(shmget(segment().key, 0, 0), IPC_RMID, nullptr), 0);
    if (recreatedByProducer) // a fresh segment reads tracing off: the producer records nothing
        QCOMPARE(TraceProducer(segment().key, s_VisaSharedMemorySize, segment().semaphore, segment().fileSemaphore)
                     .write(makeEntry(nextId++, 4242, 1, "lost")),
                 TraceProducer::Outcome::Inactive);
    QVERIFY(reattached.wait(10000));
    QCOMPARE(headerFlag(offsetof(SharedMemoryHeader, tracingActive)), 1u);
    QVERIFY(shows("viWrite into the new segment"));
}

void TestFaults::segmentOfWrongSize()
{
    const int key = TestNames::segmentKey(51);
    const std::string semaphore = TestNames::semaphoreName("wrongsize");
    TestNames::removeSegment(key);
    QVERIFY(shmget(key, 4096, IPC_CREAT | IPC_EXCL | 0600) != -1);
    {
        TraceChannelControl control(key, s_VisaSharedMemorySize, semaphore);
        control.setTracingActive(true);
        QVERIFY(!control.tracingActive());
        control.copySharedMemory(true);
        QCOMPARE(control.countCopy(), 0ul);
        QVERIFY(control.begin() == control.end());
        QVERIFY(!control.reattachIfReplaced());
        // Once the key is free again the channel makes its own segment.
        TestNames::removeSegment(key);
        QVERIFY(control.reattachIfReplaced());
        control.setTracingActive(true);
        QVERIFY(control.tracingActive());
    }
    TestNames::removeSegment(key);
    TestNames::unlinkSemaphore(semaphore);
}

void TestFaults::semaphoreFileRemoved()
{
    TestNames::unlinkSemaphore(segment().semaphore);
    // A program started now opens a new semaphore of that name; its records still arrive.
    QVERIFY(shows("viWrite under a new semaphore"));
    app.clearbuffer();
    QVERIFY(shows("viRead under a new semaphore"));
}

void TestFaults::hugeSharedBlockNotAdopted()
{
    const QString name = QString::fromStdString(TestNames::sharedRingName("huge"));
    QSharedMemory hostile(name);
    if (!hostile.create(2000000000))
        QSKIP("the system does not allow a block of 2 GB");
    SharedRing ring(name, s_RingSize);
    QVERIFY(ring.numberOfElements() <= SharedRing::s_MaxBlockSize / sizeof(FullEntry));
    QVERIFY(ring.numberOfElements() > 0);
}

void TestFaults::lastLiveToolSwitchesTracingOff()
{
    QVERIFY(startInstance());
    app.startfiletrace(QDir::temp().filePath(QStringLiteral("zelfaults-%1.log").arg(getpid())).toStdString());
    ::kill(static_cast<pid_t>(instances.back()->processId()), SIGKILL);
    QVERIFY(instances.back()->waitForFinished(10000));
    // This copy also left the ring before, as one that only records to a file would never join it.
    app.getModel().detachSharedRingBuffer();
    app.quit();
    QCOMPARE(headerFlag(offsetof(SharedMemoryHeader, tracingActive)), 0u);
    QCOMPARE(headerFlag(offsetof(SharedMemoryHeader, tracingToFile)), 0u);
    QFile::remove(QDir::temp().filePath(QStringLiteral("zelfaults-%1.log").arg(getpid())));
}

int main(int argc, char** argv)
{
    if (argc == 3 && qstrcmp(argv[1], "--attach-ring") == 0)
        return attachAndWait(argv[2]);
    return execWithApplication<TestFaults>(argc, argv, segment(), "faults");
}

#include "tst_faults.moc"
