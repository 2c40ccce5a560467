#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QtTest>

using namespace ZelTracer;

namespace {

bool allBytes(const void* data, std::size_t size, char value)
{
    const char* bytes = static_cast<const char*>(data);
    return std::all_of(bytes, bytes + size, [value](char c) { return c == value; });
}

QByteArrayList texts(std::vector<FullEntry> const& records)
{
    QByteArrayList list;
    for (const FullEntry& e : records)
        list << e.text;
    return list;
}

} // namespace

class TestTraceChannel : public QObject
{
    Q_OBJECT

private slots:
    void creatorZeroesLaterAttachersKeep()
    {
        PrivateSegment segment(1);
        {
            RawSegment raw(segment);
            QVERIFY(!raw.memory.hasExisted());
            std::memset(raw.memory.getAddress(), 0xAB, 4096);
            // A channel that finds the segment already there must not wipe it.
            TraceChannel attacher(segment.key, s_VisaSharedMemorySize, segment.semaphore);
            QVERIFY(allBytes(raw.memory.getAddress(), 4096, char(0xAB)));
        }
        segment.remove();
        TraceChannel creator(segment.key, s_VisaSharedMemorySize, segment.semaphore);
        RawSegment raw(segment);
        QVERIFY(raw.memory.hasExisted());
        QVERIFY(allBytes(raw.memory.getAddress(), s_VisaSharedMemorySize, 0));
    }

    // A segment that exists with a smaller size cannot be attached at the full size: the channel reads
    // a header of zeros and an empty ring, not what the small segment holds.
    void missingSegmentReadsAsZero()
    {
        PrivateSegment segment(2);
        RawSegment small(segment, 4096);
        small.header().tracingActive = 1;
        TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
        SharedMemoryHeader h;
        std::memset(&h, 0x55, sizeof h);
        control.readSharedMemoryHeader(h);
        QVERIFY(allBytes(&h, sizeof h, 0));
        QCOMPARE(control.freeEntries(), 7279ul);
    }

    void headerSetters()
    {
        ControlledSegment s(3);
        s.control.setTracingActive(true);
        s.control.setPidFilter(4242);
        QVERIFY(s.header().tracingActive == 1 && s.header().pidFilter == 4242);
        // A text that does not fit with its terminator is refused whole.
        const std::string name255(255, 'n');
        s.control.setMessageFilter(name255);
        s.control.setMessageFilter(std::string(256, 'x'));
        QCOMPARE(std::string(s.header().messageFilter), name255);

        const std::string logName = QDir::temp().filePath(QStringLiteral("zeltest_%1.log").arg(getpid())).toStdString();
        QVERIFY(s.control.settracingToFileActive(true, logName));
        QVERIFY(!s.control.settracingToFileActive(true, std::string(256, 'n')));
        QVERIFY(s.header().tracingToFile == 1 && s.header().fileName == logName);
        // Stopping keeps the name; only the flag drops. An empty name cannot record.
        QVERIFY(s.control.settracingToFileActive(false));
        QVERIFY(s.header().tracingToFile == 0 && s.header().fileName == logName);
        QVERIFY(s.control.settracingToFileActive(true, ""));
        QCOMPARE(s.header().tracingToFile, 0u);

        // The tool writes a header block each time recording starts.
        QCOMPARE(fileText(logName),
                 std::string("# Logging to file activated\n# VISA version: 5.12.9\n"
                             "# Bitness:      64\n# OS:           Linux\n"));
        std::remove(logName.c_str());
        // The flags are read from the segment each time, the name only from what this tool set.
        s.header().tracingActive = 0;
        s.header().tracingToFile = 1;
        QVERIFY(!s.control.tracingActive() && s.control.isTracingToFile() && s.control.getFileName().empty());
    }

    void snapshotResetsOnlyIndices()
    {
        ControlledSegment s(4);
        s.control.setTracingActive(true);
        s.control.setPidFilter(9);
        s.header().readIndex = 7000;
        s.header().writeIndex = 10;
        SharedMemoryHeader before = s.header();

        s.control.copySharedMemory(true);
        QCOMPARE(s.control.countCopy(), 289ul);
        before.readIndex = before.writeIndex = 0;
        QCOMPARE(std::memcmp(&before, &s.header(), sizeof before), 0);
        QVERIFY(s.control.clear());
        QCOMPARE(s.control.countCopy(), 0ul);
    }

    void reassembly_data()
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

    void reassembly()
    {
        QFETCH(int, startSlot);
        QFETCH(int, textLength);
        QFETCH(int, slotsUsed);

        ControlledSegment s(5);
        TraceProducer producer(s.segment.key, s_VisaSharedMemorySize, s.segment.semaphore, s.segment.fileSemaphore);
        s.control.setTracingActive(true);
        s.header().readIndex = s.header().writeIndex = static_cast<std::uint32_t>(startSlot);
        std::string text(textLength, 'A');
        for (int i = 0; i < textLength; ++i)
            text[i] += i % 26;
        const FullEntry first = makeEntry(1, 100, 0, text);
        QVERIFY(producer.write(first) == TraceProducer::Outcome::Written);
        QVERIFY(producer.write(makeEntry(2, 100, 1, "next")) == TraceProducer::Outcome::Written);
        QCOMPARE(s.header().writeIndex, static_cast<std::uint32_t>((startSlot + slotsUsed + 1) % 7279));

        s.control.copySharedMemory(true);
        QCOMPARE(s.control.countCopy(), static_cast<unsigned long>(slotsUsed + 1));
        const std::vector<FullEntry> records = walk(s.control);
        QCOMPARE(texts(records), (QByteArrayList {text.c_str(), "next"}));
        // Every field as written, but the one the producer keeps for itself.
        QCOMPARE(records[0].id, first.id);
        QCOMPARE(std::memcmp(&records[0].pid, &first.pid, offsetof(FullEntry, continued) - offsetof(FullEntry, pid)),
                 0);
        QCOMPARE(records[0].continued, std::uint8_t(0));
    }

    void twelveSlotCapStartsNewRecordAtLeftover()
    {
        ControlledSegment s(6);
        // Fourteen continued slots, each chunk a full 80 characters of its own letter, the last not continued.
        const FullEntry head = makeEntry(5, 100, 0, "");
        for (std::uint32_t i = 0; i < 14; ++i) {
            std::memcpy(&s.slot(i), &head, offsetof(SlotEntry, continued));
            s.slot(i).continued = i < 13 ? 1 : 0;
            std::memset(s.slot(i).text, 'a' + static_cast<int>(i), s_SlotTextSize);
        }
        s.header().writeIndex = 14;

        s.control.copySharedMemory(true);
        std::string expected;
        for (int i = 0; i < 12; ++i)
            expected += std::string(80, static_cast<char>('a' + i));
        // The leftover slots are read as records of their own, deliberately without skipping them.
        QCOMPARE(texts(walk(s.control)),
                 (QByteArrayList {expected.c_str(), QByteArray(80, 'm') + QByteArray(80, 'n')}));
    }

    void hostileIndicesGiveEmptyWalk_data()
    {
        QTest::addColumn<quint32>("readIndex");
        QTest::addColumn<quint32>("writeIndex");
        QTest::newRow("write index at the slot count") << 0u << 7279u;
        QTest::newRow("read index far beyond") << 0xFFFFFFF0u << 3u;
        QTest::newRow("both beyond") << 9000u << 8000u;
    }

    void hostileIndicesGiveEmptyWalk()
    {
        QFETCH(quint32, readIndex);
        QFETCH(quint32, writeIndex);
        ControlledSegment s(7);
        // The very last slot has no terminator and claims a continuation past the end of the copy.
        std::memset(&s.slot(7278), 'z', sizeof(SlotEntry));
        s.header().readIndex = readIndex;
        s.header().writeIndex = writeIndex;

        s.control.copySharedMemory(true);
        QVERIFY(s.control.countCopy() == 0 && s.control.begin() == s.control.end() && *s.control.begin() == nullptr);
        QVERIFY(s.control.find(0, 0, 0, 0) == s.control.end());
        QCOMPARE(s.control.freeEntries(), 7279ul);

        // A reader that starts on that last slot: a chain that runs into the write index gives no record;
        // with room it ends in slot 0, and every text is terminated.
        for (std::uint32_t write : {0u, 2u}) {
            s.header().readIndex = 7278;
            s.header().writeIndex = write;
            s.control.copySharedMemory(true);
            const std::vector<FullEntry> records = walk(s.control);
            QCOMPARE(records.size(), std::size_t(write));
            for (const FullEntry& record : records)
                QVERIFY(strnlen(record.text, sizeof record.text) < sizeof record.text);
        }
    }

    void findMapsKindTwoToOne()
    {
        ControlledSegment s(8);
        const FullEntry entries[] = {makeEntry(1, 10, 0, "a"), makeEntry(1, 10, 2, "b"), makeEntry(1, 10, 1, "c")};
        for (std::uint32_t i = 0; i < 3; ++i)
            std::memcpy(&s.slot(i), &entries[i], offsetof(SlotEntry, text) + 2);
        s.header().writeIndex = 3;
        s.control.copySharedMemory(true);

        const long ts = entries[0].timestamp;
        auto found = [&](std::uint32_t pid, std::uint32_t kind, long t) {
            const BufferEntryIterator it = s.control.find(1, pid, kind, t);
            return QByteArray(it == s.control.end() ? "none" : (*it)->text);
        };
        // A kind of 2 is looked up as a return.
        const QByteArrayList results
            = {found(10, 0, ts), found(10, 2, ts), found(10, 1, ts), found(11, 0, ts), found(10, 0, ts + 1)};
        QCOMPARE(results.join(' '), QByteArray("a c c none none"));
    }

    // A holder killed while it held the lock: the next waiter breaks it with the exact line on its
    // standard error and goes on.
    void deadHolderLockIsBroken()
    {
        PrivateSegment segment(9);
        QVERIFY(killedHolding([&] { return (new SharedMemory(segment.key, segment.semaphore))->lock(); }));
        SharedMemory memory(segment.key, segment.semaphore);
        bool locked = false;
        QCOMPARE(stderrOf([&] { locked = memory.lock(); }),
                 std::string("ERROR in lock: I made 101 attempts to acquire the lock for the Shared Memory. "
                             "Now I am breaking it!\n"));
        QVERIFY(locked);
    }
};

QTEST_GUILESS_MAIN(TestTraceChannel)
#include "tst_tracechannel.moc"
