// Another local user against this user's tool and traced programs, with real processes. The segment,
// its locks and the shared ring are open to every local user on purpose; the other user (`nobody`,
// through setpriv) must still not be able to freeze the tool, slow the traced programs down, or make
// them write into a file. Tests that need the other user are skipped, with a message, where the test
// cannot switch users. Beside them, what used to fail without a word in the window: a killed
// recorder's record filter, a full disk while recording, a relative log name.

#include "AppTestSupport.h"
#include "MainWindow.h"
#include "RingBufferSharedMem.h"
#include "RingSemaphore.h"
#include "TraceProducer.h"
#include "UnixSignalQuit.h"

#include <QAction>
#include <QLabel>
#include <QLineEdit>
#include <QProcess>
#include <QStatusBar>
#include <QToolButton>
#include <QtTest>

#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/sem.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>

using namespace ZelTracer;
using Outcome = TraceProducer::Outcome;

constexpr auto toolSegment = programSegment<60>; // the tool in this process
constexpr auto copiesSegment = programSegment<61>; // copies of the tool in processes of their own
constexpr auto otherSegment = programSegment<62>; // traced programs only

namespace {

QByteArray fileBytes(QString const& name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(none)");
}

// The other user's side: each mode does one hostile thing and ends.
int otherUser(int argc, char** argv)
{
    const QByteArray mode = argv[1];
    if (mode == "--zero-ring" && argc == 3) { // sets the shared ring's semaphore to 0 and leaves
        const key_t key = ftok(RingSemaphore::keyFileName(QString::fromUtf8(argv[2])).constData(), 'Q');
        const int id = key == -1 ? -1 : semget(key, 1, 0);
        return id != -1 && semctl(id, 0, SETVAL, 0) == 0 ? 0 : 1;
    }
    if (mode == "--hog" && argc == 4) { // keeps re-taking the segment lock for so many ms
        sem_t* lock = sem_open(argv[2], 0);
        if (lock == SEM_FAILED)
            return 1;
        std::printf("hogging\n");
        std::fflush(stdout);
        for (const std::int64_t end = monotonicNanoseconds() + std::atoll(argv[3]) * 1000000;
             monotonicNanoseconds() < end;) {
            sem_wait(lock);
            usleep(2000);
            sem_post(lock);
        }
        return 0;
    }
    if (mode == "--name-log" && argc == 5) { // writes a log name and the to-file flag into the header
        void* address = shmat(shmget(std::atoi(argv[2]), 0, 0), nullptr, 0);
        if (address == reinterpret_cast<void*>(-1))
            return 1;
        auto* header = static_cast<SharedMemoryHeader*>(address);
        std::strncpy(header->fileName, argv[3], sizeof header->fileName - 1);
        header->tracingToFile = std::atoi(argv[4]);
        return 0;
    }
    if (mode == "--own-segment" && argc == 4) // a segment of this size under the key, for this user only
        return shmget(std::atoi(argv[2]), std::strtoul(argv[3], nullptr, 10), IPC_CREAT | IPC_EXCL | 0600) != -1 ? 0
                                                                                                                 : 1;
    if (mode == "--fresh-stamp" && argc == 4) { // keeps the ring's last-update stamp fresh without draining
        RingBufferSharedMem<FullEntry> ring(QString::fromUtf8(argv[2]), LiveTraceModel::s_DefaultSharedRingSize);
        auto* block = static_cast<char*>(ring.block().data());
        if (!block)
            return 1;
        std::printf("stamping\n");
        std::fflush(stdout);
        for (const std::int64_t end = monotonicNanoseconds() + std::atoll(argv[3]) * 1000000;
             monotonicNanoseconds() < end; usleep(5000)) {
            const qint64 now = QDateTime::currentMSecsSinceEpoch();
            std::memcpy(block + 16, &now, sizeof now); // the block header's lastUpdate
        }
        return 0;
    }
    if (mode == "--probe" && argc == 2) // this program runs as the other user
        return 0;
    if (mode == "--link" && argc == 4) // a symbolic link where this user may write
        return symlink(argv[2], argv[3]) == 0 ? 0 : 1;
    return 2;
}

QStringList asOtherUser(QStringList const& arguments)
{
    return QStringList {QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
                        QStringLiteral("--clear-groups"), QCoreApplication::applicationFilePath()}
    + arguments;
}

// Root with setpriv, and a build that the other user may run (a build inside a private home folder
// is not).
bool otherUserAvailable()
{
    static const bool available = [] {
        if (geteuid() != 0 || QStandardPaths::findExecutable(QStringLiteral("setpriv")).isEmpty())
            return false;
        QProcess probe;
        probe.start(QStringLiteral("setpriv"), asOtherUser({QStringLiteral("--probe")}));
        return probe.waitForFinished(20000) && probe.exitStatus() == QProcess::NormalExit && probe.exitCode() == 0;
    }();
    return available;
}

template<class Call> std::int64_t timed(Call call)
{
    const std::int64_t start = monotonicNanoseconds();
    call();
    return monotonicNanoseconds() - start;
}

} // namespace

// A copy of the tool as the program runs it, on private names, with tracing on.
static int toolCopy(char** argv)
{
    Q_INIT_RESOURCE(icons);
    int argc = 1;
    TraceApplication app(argc, argv, {std::atoi(argv[2]), argv[3], QString::fromUtf8(argv[4])});
    gui::MainWindow window(nullptr, app);
    UnixSignalQuit signalQuit;
    QObject::connect(&signalQuit, &UnixSignalQuit::quitRequested, &window, &QWidget::close);
    window.show();
    app.starttrace();
    std::printf("ready\n");
    std::fflush(stdout);
    return app.exec();
}

#define REQUIRE_OTHER_USER()                                                                                           \
    if (!otherUserAvailable())                                                                                         \
    QSKIP("needs another user: run as root, with setpriv (util-linux), from a build that user nobody may run")

class TestHostile : public QObject
{
    Q_OBJECT

public:
    explicit TestHostile(TraceApplication& app)
        : app(app)
    { }

private slots:
    void initTestCase()
    {
        // The other user reaches the files of these tests; the test's own stay in a folder of its own.
        QVERIFY(chmod(QFile::encodeName(shared.path()).constData(), 01777) == 0);
        QVERIFY(chmod(QFile::encodeName(secret.path()).constData(), 0700) == 0);
        window = std::make_unique<gui::MainWindow>(nullptr, app);
        app.starttrace();
    }

    void cleanup()
    {
        for (auto& process : processes) {
            process->kill();
            process->waitForFinished();
        }
        processes.clear();
    }

    // The other user sets the shared ring's semaphore to 0 and leaves. The copies of the tool go on
    // (each wait is bounded, and the semaphore is repaired after about a second): a new copy starts,
    // records are drained again, and each copy quits on SIGTERM, the last one switching tracing off.
    void ringSemaphoreHeldAtZero()
    {
        REQUIRE_OTHER_USER();
        const QString ring = QString::fromStdString(TestNames::sharedRingName("copies"));
        QVERIFY(startTool(ring));
        QCOMPARE(runAsOtherUser({QStringLiteral("--zero-ring"), ring}), 0);
        QVERIFY(startTool(ring));
        TraceProducer producer(copiesSegment().key, s_VisaSharedMemorySize, copiesSegment().semaphore,
                               copiesSegment().fileSemaphore);
        QCOMPARE(producer.write(makeEntry(1, 100, 0, "viWrite")), Outcome::Written);
        RawSegment raw(copiesSegment());
        QTRY_VERIFY_WITH_TIMEOUT(raw.header().writeIndex == 0, 20000); // drained by a copy of the tool
        for (auto& tool : processes) {
            kill(static_cast<pid_t>(tool->processId()), SIGTERM);
            QVERIFY(tool->waitForFinished(20000));
            QCOMPARE(tool->exitCode(), 0);
        }
        QCOMPARE(raw.header().tracingActive, 0u);
    }

    // The other user keeps the shared ring's last-update stamp fresh, as a copy of the tool that drains
    // the segment would, without draining it. The copy of the tool believes the stamp only while the
    // segment shows a drain, so records are still taken (before, every copy left the draining to
    // "another" and records piled up until the segment was full).
    void freshStampStillDrained()
    {
        REQUIRE_OTHER_USER();
        const QString ring = QString::fromStdString(TestNames::sharedRingName("stamped"));
        QVERIFY(startTool(ring));
        QProcess* stamper = startAsOtherUser({QStringLiteral("--fresh-stamp"), ring, QStringLiteral("20000")});
        QVERIFY(stamper && stamper->waitForReadyRead(20000));
        TraceProducer producer(copiesSegment().key, s_VisaSharedMemorySize, copiesSegment().semaphore,
                               copiesSegment().fileSemaphore);
        RawSegment raw(copiesSegment());
        for (std::uint64_t id = 1; id <= 5; ++id) {
            QCOMPARE(producer.write(makeEntry(id, 100, 0, "viWrite")), Outcome::Written);
            QTRY_VERIFY_WITH_TIMEOUT(raw.header().writeIndex == 0, 10000); // drained by the copy of the tool
        }
    }

    // The other user keeps re-taking the segment lock. A traced program's calls wait a few ms at most
    // and drop their records (the lock used to cost each call about a second); the tool's header reads
    // and snapshots on its GUI thread wait at most one tick. scripts/another-user.sh measures it.
    void lockHog()
    {
        REQUIRE_OTHER_USER();
        TraceChannelControl control(otherSegment().key, s_VisaSharedMemorySize, otherSegment().semaphore);
        control.setTracingActive(true);
        TraceProducer producer(otherSegment().key, s_VisaSharedMemorySize, otherSegment().semaphore,
                               otherSegment().fileSemaphore);
        QProcess* hog = startAsOtherUser(
            {QStringLiteral("--hog"), QString::fromStdString(otherSegment().semaphore), QStringLiteral("3000")});
        QVERIFY(hog && hog->waitForReadyRead(20000));
        std::vector<std::int64_t> producerCalls, toolCalls;
        for (int i = 0; i < 1500; ++i, usleep(1000)) {
            producerCalls.push_back(timed([&] { producer.write(makeEntry(1, 100, 0, "viWrite")); }));
            if (i % 30 == 0) {
                toolCalls.push_back(timed([&] { control.tracingActive(); }));
                toolCalls.push_back(timed([&] { control.copySharedMemory(true); }));
            }
        }
        QVERIFY(hog->waitForFinished(20000));
        std::sort(producerCalls.begin(), producerCalls.end());
        QVERIFY(producerCalls[producerCalls.size() * 99 / 100] < 20000000);
        QVERIFY(producerCalls.back() < 500000000 && *std::max_element(toolCalls.begin(), toolCalls.end()) < 500000000);
        QVERIFY(producer.getDropped() > 0);
    }

    // The other user names a file in the header and switches recording on. This user's traced programs
    // append only to a log the tool started: the file named is left as it was, none is made, no link is
    // followed, and a reply with line breaks never becomes lines of any file.
    void logFileHijack_data()
    {
        QTest::addColumn<QString>("target");
        QTest::newRow("a file of this user in a folder of its own") << secret.filePath(QStringLiteral("passwd"));
        QTest::newRow("a new file in that folder") << secret.filePath(QStringLiteral("new.log"));
        QTest::newRow("a link in a shared folder to that file") << shared.filePath(QStringLiteral("trace.log"));
    }

    void logFileHijack()
    {
        REQUIRE_OTHER_USER();
        QFETCH(QString, target);
        const QString passwd = secret.filePath(QStringLiteral("passwd"));
        const QByteArray content = "root:x:0:0:root:/root:/bin/bash\n";
        QFile file(passwd);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(content) == content.size());
        file.close();
        QFile::remove(shared.filePath(QStringLiteral("trace.log")));
        QCOMPARE(runAsOtherUser({QStringLiteral("--link"), passwd, shared.filePath(QStringLiteral("trace.log"))}), 0);
        TraceChannelControl control(otherSegment().key, s_VisaSharedMemorySize, otherSegment().semaphore);
        control.setTracingActive(true);
        QCOMPARE(runAsOtherUser(
                     {QStringLiteral("--name-log"), QString::number(otherSegment().key), target, QStringLiteral("1")}),
                 0);
        TraceProducer producer(otherSegment().key, s_VisaSharedMemorySize, otherSegment().semaphore,
                               otherSegment().fileSemaphore);
        for (int i = 0; i < 3; ++i)
            QCOMPARE(producer.write(makeEntry(1, 100, 1, "viRead(\"\nevil::0:0::/root:/bin/sh\n\")")),
                     Outcome::Written);
        QCOMPARE(producer.getFileDropped(), 3u);
        QCOMPARE(fileBytes(passwd), content);
        QVERIFY(!QFile::exists(secret.filePath(QStringLiteral("new.log"))));
    }

    // The same against the window. While it records into the log chosen in it, the other user writes
    // another name into the header: the window says so, and a segment removed meanwhile is followed
    // without writing a header into that name (the tool used to). Recording is not started again into
    // the name the header put into the window's field, only into one chosen there.
    void windowWritesOnlyTheChosenLog()
    {
        REQUIRE_OTHER_USER();
        const QString chosen = secret.filePath(QStringLiteral("chosen.log"));
        const QString foreign = secret.filePath(QStringLiteral("foreign"));
        QFile(foreign).open(QIODevice::WriteOnly);
        auto* field = child<QLineEdit>(window.get(), "editFilename");
        auto* record = child<QAction>(window.get(), "actionRecord_to_file");
        field->setText(chosen);
        record->trigger();
        QVERIFY(app.getChannelControl().isTracingToFile() && warning().isEmpty());
        QCOMPARE(runAsOtherUser(
                     {QStringLiteral("--name-log"), QString::number(toolSegment().key), foreign, QStringLiteral("1")}),
                 0);
        emit app.tracingChanged(); // the window reads the header again
        QCOMPARE(field->text(), foreign);
        QVERIFY(warning().contains(QStringLiteral("which another program named")));
        QSignalSpy reattached(&app, &TraceApplication::segmentReattached);
        TestNames::removeSegment(toolSegment().key);
        QVERIFY(reattached.wait(10000));
        QVERIFY(!app.getChannelControl().isTracingToFile() && record->isEnabled());
        record->trigger();
        QVERIFY(window->statusBar()->currentMessage().contains(QStringLiteral("named by another program")));
        QVERIFY(!app.getChannelControl().isTracingToFile());
        QCOMPARE(fileBytes(foreign), QByteArray());
        field->setText(chosen);
        record->trigger();
        QVERIFY(app.getChannelControl().isTracingToFile());
        QCOMPARE(fileBytes(chosen).count(s_LogHeaderLine), 2);
        app.stopfiletrace();
    }

    // The other user takes the key with a segment of the wrong size, closed to others. Nothing can be
    // traced; the channel says why, the recorder refuses to start with that text, and the window shows
    // it until the segment is gone and the tool has made its own again.
    void foreignSegment()
    {
        REQUIRE_OTHER_USER();
        PrivateSegment segment(63);
        QCOMPARE(
            runAsOtherUser({QStringLiteral("--own-segment"), QString::number(segment.key), QStringLiteral("4096")}), 0);
        const QString problem
            = QStringLiteral("The trace segment %1 has 4096 bytes instead of 2097152: no calls can be "
                             "traced until it is removed (ipcrm -M %1).")
                  .arg(segment.key);
        TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
        QCOMPARE(QString::fromStdString(control.segmentProblem()), problem);
        QProcess recorder;
        recorder.start(QStringLiteral(ZEL_RECORD_PATH),
                       {QStringLiteral("-o"), shared.filePath(QStringLiteral("f.csv")), QStringLiteral("--segment-key"),
                        QString::number(segment.key), QStringLiteral("--segment-semaphore"),
                        QString::fromStdString(segment.semaphore), QStringLiteral("--ring"),
                        QString::fromStdString(TestNames::sharedRingName("foreign"))});
        QVERIFY(recorder.waitForFinished(20000));
        QCOMPARE(recorder.exitCode(), 2);
        QCOMPARE(QString::fromLocal8Bit(recorder.readAllStandardError()),
                 QStringLiteral("zel-record: no calls can be recorded: ") + problem + QLatin1Char('\n'));

        TestNames::removeSegment(toolSegment().key);
        QCOMPARE(runAsOtherUser(
                     {QStringLiteral("--own-segment"), QString::number(toolSegment().key), QStringLiteral("4096")}),
                 0);
        emit app.tracingChanged();
        QVERIFY2(warning().startsWith(QStringLiteral("The trace segment %1 has 4096 bytes").arg(toolSegment().key)),
                 qPrintable(warning()));
        QSignalSpy reattached(&app, &TraceApplication::segmentReattached);
        TestNames::removeSegment(toolSegment().key);
        QVERIFY(reattached.wait(10000));
        emit app.tracingChanged();
        QCOMPARE(warning(), QString());
    }

    // A relative name (typed, or given with -ft) goes into the header absolute, with its folders
    // resolved: the traced programs run in other folders and refuse a symbolic link on the way.
    void relativeLogName()
    {
        const QString here = QDir::currentPath();
        QVERIFY(QDir::setCurrent(shared.path()));
        QVERIFY(QFile::link(shared.path(), QStringLiteral("linked")));
        child<QLineEdit>(window.get(), "editFilename")->setText(QStringLiteral("linked/rel.log"));
        child<QAction>(window.get(), "actionRecord_to_file")->trigger();
        QDir::setCurrent(here);
        const QString expected = QDir(shared.path()).canonicalPath() + QStringLiteral("/rel.log");
        QCOMPARE(QString::fromStdString(app.getChannelControl().getFileName()), expected);
        QVERIFY(fileBytes(expected).startsWith(s_LogHeaderLine));
        app.stopfiletrace();
    }

    // A zel-record killed outright leaves its record filter behind; the window shows it beside the
    // status text and clears it with one click.
    void killedRecordersFilter()
    {
        const QString ring = QString::fromStdString(TestNames::sharedRingName("recorder"));
        QProcess recorder;
        recorder.start(QStringLiteral(ZEL_RECORD_PATH),
                       {QStringLiteral("-o"), shared.filePath(QStringLiteral("r.csv")), QStringLiteral("-q"),
                        QStringLiteral("--pid"), QStringLiteral("4242"), QStringLiteral("--message"),
                        QStringLiteral("vi"), QStringLiteral("--segment-key"), QString::number(toolSegment().key),
                        QStringLiteral("--segment-semaphore"), QString::fromStdString(toolSegment().semaphore),
                        QStringLiteral("--ring"), ring});
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(shared.filePath(QStringLiteral("r.csv"))).size() > 0, 20000);
        recorder.kill();
        QVERIFY(recorder.waitForFinished(20000));
        delete new RingBufferSharedMem<FullEntry>(ring, 0); // the last one out takes the ring it left

        auto* indicator = child<QWidget>(window.get(), "recordFilterIndicator");
        emit app.tracingChanged();
        QVERIFY(!indicator->isHidden());
        QCOMPARE(indicator->findChild<QLabel*>()->text(), QStringLiteral("Record filter: process 4242, text \"vi\""));
        child<QToolButton>(window.get(), "clearRecordFilter")->click();
        std::string message;
        unsigned pid = 1;
        app.getChannelControl().getFilter(message, pid);
        QVERIFY(pid == 0 && message.empty() && indicator->isHidden());
    }

    // A full disk while recording: the window says that lines are being lost beside "Recording to file",
    // the traced program counts them, and once space is freed the warning goes and, five seconds later,
    // the program logs again. A file system of 1 MB in a mount namespace of this process is the disk.
    void fullDisk()
    {
        if (geteuid() != 0 || unshare(CLONE_NEWNS) != 0
            || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            QSKIP("needs root to mount a small file system in a mount namespace of its own");
        QTemporaryDir disk;
        const QByteArray where = QFile::encodeName(disk.path());
        QVERIFY(mount("zeltest", where.constData(), "tmpfs", 0, "size=1m") == 0);
        static std::int64_t now = 1;
        const QString log = disk.filePath(QStringLiteral("trace.log"));
        child<QLineEdit>(window.get(), "editFilename")->setText(log);
        child<QAction>(window.get(), "actionRecord_to_file")->trigger();
        QVERIFY(app.getChannelControl().isTracingToFile());
        TraceProducer producer(toolSegment().key, s_VisaSharedMemorySize, toolSegment().semaphore,
                               toolSegment().fileSemaphore);
        producer.setClock([] { return now; });
        producer.write(makeEntry(1, 100, 0, "viRead"));
        emit app.tracingChanged();
        const QString full = warning();
        QVERIFY(mount("zeltest", where.constData(), "tmpfs", MS_REMOUNT, "size=600m") == 0);
        emit app.tracingChanged();
        const QString freed = warning();
        now += TraceProducer::s_DiskRetryNanoseconds;
        producer.write(makeEntry(2, 100, 0, "viRead"));
        app.stopfiletrace();
        const QByteArray text = fileBytes(log);
        QVERIFY(umount2(where.constData(), MNT_DETACH) == 0);
        QVERIFY2(full.contains(QStringLiteral("Less than 500 MB")) && full.endsWith(QStringLiteral("lost.")),
                 qPrintable(full));
        QCOMPARE(freed, QString());
        QCOMPARE(producer.getFileDropped(), 1u);
        QVERIFY2(text.contains("restart.\n2\t"), text.constData());
    }

private:
    QString warning() const
    {
        auto* label = child<QLabel>(window.get(), "traceWarning");
        return label->isHidden() ? QString() : label->text();
    }

    QProcess* startAsOtherUser(QStringList const& arguments)
    {
        auto process = std::make_unique<QProcess>();
        process->start(QStringLiteral("setpriv"), asOtherUser(arguments));
        processes.push_back(std::move(process));
        return processes.back()->waitForStarted(20000) ? processes.back().get() : nullptr;
    }

    int runAsOtherUser(QStringList const& arguments)
    {
        QProcess process;
        process.start(QStringLiteral("setpriv"), asOtherUser(arguments));
        return process.waitForFinished(20000) && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    }

    // A copy of the tool in a process of its own, on the copies' segment and the given ring.
    bool startTool(QString const& ring)
    {
        auto process = std::make_unique<QProcess>();
        process->start(QCoreApplication::applicationFilePath(),
                       {QStringLiteral("--tool"), QString::number(copiesSegment().key),
                        QString::fromStdString(copiesSegment().semaphore), ring});
        const bool ready = process->waitForReadyRead(20000) && process->readAll().contains("ready");
        processes.push_back(std::move(process));
        return ready;
    }

    TraceApplication& app;
    std::unique_ptr<gui::MainWindow> window;
    std::vector<std::unique_ptr<QProcess>> processes;
    QTemporaryDir shared;
    QTemporaryDir secret;
};

int main(int argc, char** argv)
{
    if (argc == 5 && qstrcmp(argv[1], "--tool") == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        return toolCopy(argv);
    }
    if (argc > 1 && qstrncmp(argv[1], "--", 2) == 0 && qstrcmp(argv[1], "--tool") != 0)
        return otherUser(argc, argv);
    return execWithApplication<TestHostile>(argc, argv, toolSegment(), "hostile");
}

#include "tst_hostile.moc"
