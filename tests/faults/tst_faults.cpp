// Peers that die or misbehave at any moment, with real processes on private names, and files that
// anyone may have written: the tool and the producers that remain keep working.
#include "AppTestSupport.h"
#include "FilterTestSupport.h"
#include "RingBufferSharedMem.h"
#include "SettingsGuard.h"
#include "TraceProducer.h"
#include "ViewFilterDialog.h"

#include <QProcess>
#include <QtTest>

#include <sys/prctl.h>

using namespace ZelTracer;
using SharedRing = RingBufferSharedMem<FullEntry>;

constexpr auto segment = programSegment<50>;
constexpr int s_RingSize = 24 + 64 * sizeof(FullEntry);
constexpr int ProducerKilledInLock = 0, SegmentRemoved = 1, SegmentReplaced = 2, SemaphoreRemoved = 3;

class TestFaults : public QObject
{
    Q_OBJECT

public:
    explicit TestFaults(TraceApplication& app)
        : app(app)
    { }

private slots:
    void initTestCase()
    {
        app.getModel().setSharedRingSize(s_RingSize);
        app.starttrace();
        QVERIFY(app.getModel().isRunning());
    }

    void cleanup()
    {
        instances.clear(); // a QProcess kills its process and waits for it when it goes
    }

    void ruleCountIsBounded_data()
    {
        QTest::addColumn<int>("rules");
        QTest::addColumn<bool>("foreign");
        QTest::addColumn<int>("loaded");
        QTest::addColumn<QStringList>("boxes");
        const QStringList refused
            = {QStringLiteral("Open View Filter file/The file holds more than 1000 rules and was not loaded.")};
        QTest::newRow("largest accepted set") << 1000 << false << 1000 << QStringList();
        QTest::newRow("one rule too many") << 1001 << false << 1 << refused;
        QTest::newRow("foreign file of many rules") << 1001 << true << 1 << QStringList();
    }

    void ruleCountIsBounded()
    {
        QFETCH(int, rules);
        QFETCH(bool, foreign);
        QFETCH(int, loaded);
        QFETCH(QStringList, boxes);
        const QString path = dir.filePath(QStringLiteral("rules.viewfilter"));
        ModelFilters many;
        for (int i = 0; i < rules; ++i)
            many.filters.append(rule(SingleFilter::ExcludeCommand, 0, "viRead"));
        gui::ViewFilterDialog(nullptr, many).saveFile(path);
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadWrite) && (!foreign || file.write("\x12\x34\x56\x78", 4) == 4));
        file.close();
        gui::ViewFilterDialog dialog(nullptr, ::rules({SingleFilter()}));
        QCOMPARE(closingModals([&] { dialog.loadFile(path); }), boxes);
        QCOMPARE(dialog.viewFilters.filters.size(), loaded);
    }

    void forgedSettingsValuesDropped_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<bool>("kept");
        // A polygon of 0x7FFFFFFF points, as a settings file may claim one.
        QTest::newRow("forged polygon") << QByteArray("size=@Variant(\\0\\0\\0G\\x7f\\xff\\xff\\xff)") << false;
        QTest::newRow("escaped at sign") << QByteArray("size=\\x40Variant(\\0\\0\\0G\\x7f\\xff\\xff\\xff)") << false;
        QTest::newRow("quoted") << QByteArray("size=\"@Variant(\\0\\0\\0G\\x7f\\xff\\xff\\xff)\"") << false;
        QTest::newRow("colour") << QByteArray(
            "FilterColor0=@Variant(\\0\\0\\0\\x43\\x1\\xff\\xff\\xff\\xff\\0\\0\\0\\0\\0\\0)")
                                << true;
        QTest::newRow("plain size") << QByteArray("size=@Size(800 600)") << true;
        // Read as a key of the group all the same, and decoded: it crashed every start.
        QTest::newRow("empty key, forged value")
            << QByteArray("=@Variant(\\0\\0\\0\\x7f\\0\\0\\0\\x7fQPolygon\\0\\x7f\\xff\\xff\\xff)") << false;
        QTest::newRow("blank key") << QByteArray(" =1") << false;
    }

    void forgedSettingsValuesDropped()
    {
        QFETCH(QByteArray, line);
        QFETCH(bool, kept);
        const QString path = dir.filePath(QStringLiteral("store.conf"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write("[MainWindow]\n" + line + "\nPauseOnError=true\n");
        file.close();
        gui::dropForeignVariants(path);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromLatin1(file.readAll()),
                 QString::fromLatin1(QByteArray("[MainWindow]\n" + (kept ? QByteArray(line + '\n') : QByteArray())
                                                + "PauseOnError=true\n")));
    }

    void peerFault_data()
    {
        QTest::addColumn<int>("fault");
        QTest::newRow("producer killed inside the lock") << ProducerKilledInLock;
        QTest::newRow("segment removed") << SegmentRemoved;
        QTest::newRow("segment removed, a producer made a new one") << SegmentReplaced;
        QTest::newRow("semaphore file removed") << SemaphoreRemoved;
    }

    // After each fault a program started next still has its records shown, also after the tool's Clear:
    // the lock of a dead holder is broken, a removed segment is followed, a removed semaphore is made anew.
    void peerFault()
    {
        QFETCH(int, fault);
        QSignalSpy reattached(&app, &TraceApplication::segmentReattached);
        app.getChannelControl().setPidFilter(4242);
        app.getChannelControl().setMessageFilter("vi");
        if (fault == ProducerKilledInLock)
            QVERIFY(killedHolding([] { return (new SharedMemory(segment().key, segment().semaphore))->lock(); }));
        else if (fault == SemaphoreRemoved)
            TestNames::unlinkSemaphore(segment().semaphore);
        else
            QCOMPARE(shmctl(shmget(segment().key, 0, 0), IPC_RMID, nullptr), 0);
        if (fault == SegmentReplaced) // a fresh segment reads tracing off: the producer records nothing
            QCOMPARE(write("lost"), TraceProducer::Outcome::Inactive);
        QVERIFY(fault == ProducerKilledInLock || fault == SemaphoreRemoved || reattached.wait(10000));
        QVERIFY(shows("viWrite after the fault"));
        app.clearbuffer();
        QVERIFY(shows("viRead after a clear"));
        // The record filters hold for the producers of the new segment too.
        QCOMPARE(write("other text"), TraceProducer::Outcome::Filtered);
        app.getChannelControl().setPidFilter(0);
        app.getChannelControl().setMessageFilter(std::string());
    }

    void killedInstancesAreNotCounted_data()
    {
        QTest::addColumn<int>("started");
        QTest::addColumn<int>("killed");
        QTest::addColumn<quint32>("hostileCount"); // written over the ring's count before leaving; 0: none
        QTest::newRow("the only other instance killed") << 1 << 1 << 0u;
        QTest::newRow("one of two killed") << 2 << 1 << 0u;
        QTest::newRow("count far too high") << 0 << 0 << 1000u;
        QTest::newRow("count of zero") << 1 << 0 << 0xFFFFFFFFu;
    }

    void killedInstancesAreNotCounted()
    {
        QFETCH(int, started);
        QFETCH(int, killed);
        QFETCH(quint32, hostileCount);
        for (int i = 0; i < started; ++i)
            QVERIFY(startInstance());
        for (int i = 0; i < killed; ++i) {
            instances[i]->kill();
            QVERIFY(instances[i]->waitForFinished(10000));
        }
        QVERIFY(shows("viRead while peers come and go"));
        if (hostileCount != 0) {
            SharedRing peer(app.getEndpoints().sharedRingName, s_RingSize);
            peer.lockWithin();
            *static_cast<quint32*>(peer.block().data()) = hostileCount == 0xFFFFFFFFu ? 0 : hostileCount;
            peer.unlock();
            peer.block().detach(); // leaves without counting itself out
        }
        QCOMPARE(app.getModel().detachSharedRingBuffer(), started - killed > 0);
        QVERIFY(app.getModel().start());
    }

    // A segment of the key with the wrong size is never used; once the key is free the tool makes its own.
    void segmentOfWrongSize()
    {
        PrivateSegment other(51);
        QVERIFY(shmget(other.key, 4096, IPC_CREAT | IPC_EXCL | 0600) != -1);
        TraceChannelControl control(other.key, s_VisaSharedMemorySize, other.semaphore);
        control.setTracingActive(true);
        control.copySharedMemory(true);
        QVERIFY(!control.tracingActive() && control.countCopy() == 0 && control.begin() == control.end());
        QVERIFY(!control.reattachIfReplaced());
        TestNames::removeSegment(other.key);
        QVERIFY(control.reattachIfReplaced());
        control.setTracingActive(true);
        QVERIFY(control.tracingActive());
    }

    void hugeSharedBlockNotAdopted()
    {
        const QString name = QString::fromStdString(TestNames::sharedRingName("huge"));
        QSharedMemory hostile(name);
        if (!hostile.create(2000000000))
            QSKIP("the system does not allow a block of 2 GB");
        SharedRing ring(name, s_RingSize);
        QVERIFY(ring.numberOfElements() > 0
                && ring.numberOfElements() <= SharedRing::s_MaxBlockSize / sizeof(FullEntry));
    }

    // Last: quitting leaves the application unable to run modal loops.
    void lastLiveToolSwitchesTracingOff()
    {
        QVERIFY(startInstance());
        app.startfiletrace(dir.filePath(QStringLiteral("faults.log")).toStdString());
        instances.back()->kill();
        QVERIFY(instances.back()->waitForFinished(10000));
        // This copy also left the ring before, as one that only records to a file would never join it.
        app.getModel().detachSharedRingBuffer();
        app.quit();
        RawSegment raw(segment());
        QVERIFY(raw.header().tracingActive == 0 && raw.header().tracingToFile == 0);
    }

private:
    // Another copy of the tool attached to the shared ring, until it is killed.
    QProcess* startInstance()
    {
        auto process = std::make_unique<QProcess>();
        process->start(QCoreApplication::applicationFilePath(),
                       {QStringLiteral("--attach-ring"), app.getEndpoints().sharedRingName});
        if (!process->waitForReadyRead(10000))
            return nullptr;
        instances.push_back(std::move(process));
        return instances.back().get();
    }

    // One record through a fresh producer, as a newly started traced program would write it.
    TraceProducer::Outcome write(const char* text)
    {
        TraceProducer producer(segment().key, s_VisaSharedMemorySize, segment().semaphore, segment().fileSemaphore);
        return producer.write(makeEntry(nextId++, 4242, 1, text));
    }

    // Writes the record and lets the model take snapshots until it is shown. A producer waits a few ms
    // for the lock at most, so it writes again until the lock of a holder that died is broken (by the
    // tool's snapshots, which keep failing meanwhile).
    bool shows(const char* text)
    {
        LiveTraceModel& model = app.getModel();
        bool written = false;
        for (int attempt = 0; attempt < 100; ++attempt) {
            written = written || write(text) == TraceProducer::Outcome::Written;
            QTest::qWait(LiveTraceModel::s_TimerInterval);
            model.updateSharedData();
            model.updateInternalAndDipslay();
            const QModelIndex top = model.index(0, LiveTraceModel::CommandColumn);
            if (written && !model.match(top, Qt::DisplayRole, QLatin1String(text), 1, Qt::MatchExactly).isEmpty())
                return true;
        }
        return false;
    }

    TraceApplication& app;
    std::vector<std::unique_ptr<QProcess>> instances;
    std::uint64_t nextId = 1;
    QTemporaryDir dir;
};

int main(int argc, char** argv)
{
    if (argc == 3 && qstrcmp(argv[1], "--attach-ring") == 0) { // the helper side: another copy of the tool
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        SharedRing ring(QString::fromUtf8(argv[2]), s_RingSize);
        std::printf("attached\n");
        std::fflush(stdout);
        for (;;)
            pause();
    }
    return execWithApplication<TestFaults>(argc, argv, segment(), "faults");
}

#include "tst_faults.moc"
