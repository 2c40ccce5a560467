#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QtTest>

#include <sys/wait.h>
#include <unistd.h>

using namespace ZelTracer;

class TestTraceChannel : public QObject
{
    Q_OBJECT

private slots:
    void creatorZeroesLaterAttachersKeep();
    void missingSegmentReadsAsZero();
    void headerSetters();
    void snapshotResetsOnlyIndices();
    void reassembly_data();
    void reassembly();
    void twelveSlotCapStartsNewRecordAtLeftover();
    void hostileIndicesGiveEmptyWalk_data();
    void hostileIndicesGiveEmptyWalk();
    void findMapsKindTwoToOne();
    void deadHolderLockIsBroken();
};

void TestTraceChannel::creatorZeroesLaterAttachersKeep()
{
    PrivateSegment segment(1);
    {
        RawSegment raw(segment);
        QVERIFY(!raw.memory.hasExisted());
        std::memset(raw.memory.getAddress(), 0xAB, 4096);
        // A channel that finds the segment already there must not wipe it.
        TraceChannel attacher(segment.key, s_VisaSharedMemorySize, segment.semaphore);
        QCOMPARE(static_cast<unsigned char>(static_cast<char*>(raw.memory.getAddress())[100]), 0xAB);
    }
    segment.remove();
    TraceChannel creator(segment.key, s_VisaSharedMemorySize, segment.semaphore);
    RawSegment raw(segment);
    QVERIFY(raw.memory.hasExisted());
    const char* bytes = static_cast<const char*>(raw.memory.getAddress());
    QVERIFY(std::all_of(bytes, bytes + s_VisaSharedMemorySize, [](char c) { return c == 0; }));
}

void TestTraceChannel::missingSegmentReadsAsZero()
{
    PrivateSegment segment(2);
    // A segment that exists with a smaller size cannot be attached at the full size.
    RawSegment small(segment, 4096);
    small.header().tracingActive = 1;
    TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
    SharedMemoryHeader h;
    std::memset(&h, 0x55, sizeof h);
    control.readSharedMemoryHeader(h);
    const char* bytes = reinterpret_cast<const char*>(&h);
    QVERIFY(std::all_of(bytes, bytes + sizeof h, [](char c) { return c == 0; }));
    QCOMPARE(control.freeEntries(), 7279ul);
    QVERIFY(!control.tracingActive());
    control.setTracingActive(true); // quietly nothing
    QCOMPARE(small.header().tracingActive, 1u);
    QCOMPARE(control.countCopy(), 0ul);
    QVERIFY(control.begin() == control.end());
}

void TestTraceChannel::headerSetters()
{
    PrivateSegment segment(3);
    TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
    RawSegment raw(segment);
    const std::string name255(255, 'n');

    control.setTracingActive(true);
    control.setPidFilter(4242);
    QVERIFY(raw.header().tracingActive == 1 && raw.header().pidFilter == 4242);
    // A text that does not fit with its terminator is refused whole.
    control.setMessageFilter(name255);
    control.setMessageFilter(std::string(256, 'x'));
    QCOMPARE(std::string(raw.header().messageFilter), name255);

    const QString logName = QDir::temp().filePath(QStringLiteral("zeltest_%1.log").arg(getpid()));
    QVERIFY(control.settracingToFileActive(true, logName.toStdString()));
    QVERIFY(!control.settracingToFileActive(true, std::string(256, 'n')));
    QCOMPARE(raw.header().tracingToFile, 1u);
    QCOMPARE(std::string(raw.header().fileName), logName.toStdString());

    // Stopping keeps the name; only the flag drops.
    QVERIFY(control.settracingToFileActive(false));
    QCOMPARE(raw.header().tracingToFile, 0u);
    QCOMPARE(std::string(raw.header().fileName), logName.toStdString());

    // An empty name cannot record.
    QVERIFY(control.settracingToFileActive(true, ""));
    QCOMPARE(raw.header().tracingToFile, 0u);

    // The tool writes a header block each time recording starts.
    QFile log(logName);
    QVERIFY(log.open(QIODevice::ReadOnly));
    QCOMPARE(log.readAll(),
             QByteArray("# Logging to file activated\n"
                        "# VISA version: 5.12.9\n"
                        "# Bitness:      64\n"
                        "# OS:           Linux\n"));
    log.remove();

    raw.header().tracingActive = 0;
    raw.header().tracingToFile = 1;
    QVERIFY(!control.tracingActive());
    QVERIFY(control.isTracingToFile());
    QCOMPARE(control.getFileName(), std::string());
}

void TestTraceChannel::snapshotResetsOnlyIndices()
{
    PrivateSegment segment(4);
    TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
    RawSegment raw(segment);
    control.setTracingActive(true);
    control.setPidFilter(9);
    raw.header().readIndex = 7000;
    raw.header().writeIndex = 10;
    SharedMemoryHeader before = raw.header();

    control.copySharedMemory(true);
    QCOMPARE(control.countCopy(), 289ul);
    QCOMPARE(raw.header().readIndex, 0u);
    QCOMPARE(raw.header().writeIndex, 0u);
    before.readIndex = before.writeIndex = 0;
    QCOMPARE(std::memcmp(&before, &raw.header(), sizeof before), 0);

    QVERIFY(control.clear());
    QCOMPARE(control.countCopy(), 0ul);
}

void TestTraceChannel::reassembly_data()
{
    QTest::addColumn<int>("startSlot");
    QTest::addColumn<int>("textLength");
    QTest::addColumn<int>("slotsUsed");

    QTest::newRow("empty text") << 0 << 0 << 1;
    QTest::newRow("79 characters, one slot") << 0 << 79 << 1;
    QTest::newRow("exactly 80 characters need a slot for the terminator") << 0 << 80 << 2;
    QTest::newRow("three slots") << 0 << 200 << 3;
    QTest::newRow("wraps round the end of the ring") << 7277 << 300 << 4;
    QTest::newRow("longest text that keeps its terminator") << 100 << 959 << 12;
}

void TestTraceChannel::reassembly()
{
    QFETCH(int, startSlot);
    QFETCH(int, textLength);
    QFETCH(int, slotsUsed);

    PrivateSegment segment(5);
    TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
    TraceProducer producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore);
    RawSegment raw(segment);
    control.setTracingActive(true);
    raw.header().readIndex = raw.header().writeIndex = static_cast<std::uint32_t>(startSlot);

    std::string text;
    for (int i = 0; i < textLength; ++i)
        text += static_cast<char>('A' + i % 26);
    QVERIFY(producer.write(makeEntry(1, 100, 0, text)) == TraceProducer::Outcome::Written);
    QVERIFY(producer.write(makeEntry(2, 100, 1, "next")) == TraceProducer::Outcome::Written);
    QCOMPARE(raw.header().writeIndex, static_cast<std::uint32_t>((startSlot + slotsUsed + 1) % 7279));

    control.copySharedMemory(true);
    QCOMPARE(control.countCopy(), static_cast<unsigned long>(slotsUsed + 1));
    const std::vector<FullEntry> records = walk(control);
    QCOMPARE(records.size(), std::size_t(2));
    QCOMPARE(std::string(records[0].text), text);
    QCOMPARE(records[0].continued, std::uint8_t(0));
    QCOMPARE(records[0].id, std::uint64_t(1));
    QCOMPARE(records[0].timestamp, std::int64_t(1700000001));
    QCOMPARE(std::string(records[0].address), std::string("GPIB0::22::INSTR"));
    QCOMPARE(std::string(records[1].text), std::string("next"));
}

void TestTraceChannel::twelveSlotCapStartsNewRecordAtLeftover()
{
    PrivateSegment segment(6);
    TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
    RawSegment raw(segment);
    // Fourteen continued slots, each chunk a full 80 characters of its own letter, the last not continued.
    const FullEntry head = makeEntry(5, 100, 0, "");
    for (std::uint32_t i = 0; i < 14; ++i) {
        SlotEntry& s = raw.slot(i);
        std::memcpy(&s, &head, offsetof(SlotEntry, continued));
        s.continued = i < 13 ? 1 : 0;
        std::memset(s.text, 'a' + static_cast<int>(i), s_SlotTextSize);
    }
    raw.header().writeIndex = 14;

    control.copySharedMemory(true);
    const std::vector<FullEntry> records = walk(control);
    QCOMPARE(records.size(), std::size_t(2));
    std::string expected;
    for (int i = 0; i < 12; ++i)
        expected += std::string(80, static_cast<char>('a' + i));
    QCOMPARE(std::string(records[0].text), expected);
    // The leftover slots are read as records of their own, deliberately without skipping them.
    QCOMPARE(std::string(records[1].text), std::string(80, 'm') + std::string(80, 'n'));
}

void TestTraceChannel::hostileIndicesGiveEmptyWalk_data()
{
    QTest::addColumn<quint32>("readIndex");
    QTest::addColumn<quint32>("writeIndex");
    QTest::newRow("write index at the slot count") << 0u << 7279u;
    QTest::newRow("read index far beyond") << 0xFFFFFFF0u << 3u;
    QTest::newRow("both beyond") << 9000u << 8000u;
}

void TestTraceChannel::hostileIndicesGiveEmptyWalk()
{
    QFETCH(quint32, readIndex);
    QFETCH(quint32, writeIndex);
    PrivateSegment segment(7);
    TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
    RawSegment raw(segment);
    // The very last slot has no terminator and claims a continuation past the end of the copy.
    SlotEntry& last = raw.slot(7278);
    std::memset(&last, 'z', sizeof last);
    raw.header().readIndex = readIndex;
    raw.header().writeIndex = writeIndex;

    control.copySharedMemory(true);
    QCOMPARE(control.countCopy(), 0ul);
    QVERIFY(control.begin() == control.end());
    QVERIFY(*control.begin() == nullptr);
    QVERIFY(control.find(0, 0, 0, 0) == control.end());
    QCOMPARE(control.freeEntries(), 7279ul);

    // A reader that starts on that last slot stops at the write index and terminates the text.
    raw.header().readIndex = 7278;
    raw.header().writeIndex = 2;
    control.copySharedMemory(true);
    const std::vector<FullEntry> records = walk(control);
    QVERIFY(!records.empty());
    QVERIFY(strnlen(records[0].text, sizeof records[0].text) < sizeof records[0].text);
}

void TestTraceChannel::findMapsKindTwoToOne()
{
    PrivateSegment segment(8);
    TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
    RawSegment raw(segment);
    const FullEntry entries[] = {makeEntry(1, 10, 0, "a"), makeEntry(1, 10, 2, "b"), makeEntry(1, 10, 1, "c")};
    for (std::uint32_t i = 0; i < 3; ++i)
        std::memcpy(&raw.slot(i), &entries[i], offsetof(SlotEntry, text) + 2);
    raw.header().writeIndex = 3;
    control.copySharedMemory(true);

    const long ts = entries[0].timestamp;
    QCOMPARE(std::string((*control.find(1, 10, 0, ts))->text), std::string("a"));
    QCOMPARE(std::string((*control.find(1, 10, 2, ts))->text), std::string("c"));
    QCOMPARE(std::string((*control.find(1, 10, 1, ts))->text), std::string("c"));
    QVERIFY(control.find(1, 11, 0, ts) == control.end());
    QVERIFY(control.find(1, 10, 0, ts + 1) == control.end());
}

void TestTraceChannel::deadHolderLockIsBroken()
{
    PrivateSegment segment(9);
    int ready[2];
    QCOMPARE(pipe(ready), 0);
    const pid_t holder = fork();
    if (holder == 0) {
        SharedMemory memory(segment.key, segment.semaphore);
        memory.lock();
        const char byte = 1;
        (void)!write(ready[1], &byte, 1);
        pause();
        _exit(0);
    }
    char byte = 0;
    QCOMPARE(read(ready[0], &byte, 1), ssize_t(1));
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);

    // The waiter runs in its own process so that its standard error can be captured exactly.
    int errors[2];
    QCOMPARE(pipe(errors), 0);
    const pid_t waiter = fork();
    if (waiter == 0) {
        dup2(errors[1], STDERR_FILENO);
        SharedMemory memory(segment.key, segment.semaphore);
        const bool locked = memory.lock();
        memory.unlock();
        _exit(locked ? 0 : 1);
    }
    close(errors[1]);
    int status = 0;
    waitpid(waiter, &status, 0);
    QByteArray captured;
    char buffer[512];
    for (ssize_t n; (n = read(errors[0], buffer, sizeof buffer)) > 0;)
        captured.append(buffer, static_cast<int>(n));
    close(errors[0]);
    close(ready[0]);
    close(ready[1]);

    QVERIFY(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    QCOMPARE(captured,
             QByteArray("ERROR in lock: I made 101 attempts to acquire the lock for the Shared Memory. "
                        "Now I am breaking it!\n"));
}

QTEST_GUILESS_MAIN(TestTraceChannel)
#include "tst_tracechannel.moc"
