// The trace segment seen through the tool's channel and lock, and the ring of records that copies of the
// tool share.
#include "RingBufferSharedMem.h"
#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QtTest>

#include <sys/sem.h>

#include <algorithm>

using namespace ZelTracer;

namespace {

// The texts up to their terminator, or all 1024 bytes when a text has none.
QByteArrayList texts(std::vector<FullEntry> const& records)
{
    QByteArrayList list;
    for (const FullEntry& e : records)
        list << QByteArray(e.text, static_cast<int>(strnlen(e.text, sizeof e.text)));
    return list;
}

FullEntry entry(std::uint64_t id)
{
    return makeEntry(id, 0, 0, "record " + std::to_string(id));
}

constexpr int ringBytes(int slotCount)
{
    return RingBufferSharedMem<FullEntry>::s_HeaderSize + slotCount * static_cast<int>(sizeof(FullEntry));
}

} // namespace

class TestTracer : public QObject
{
    Q_OBJECT

private slots:
    // A segment that exists with a smaller size cannot be attached at the full size: the channel reads
    // a header of zeros and an empty ring, not what the small segment holds.
    void segmentOfAnotherSizeReadsAsZero()
    {
        PrivateSegment segment(2);
        RawSegment small(segment, 4096);
        small.header().tracingActive = 1;
        TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
        SharedMemoryHeader h;
        std::memset(&h, 0x55, sizeof h);
        control.readSharedMemoryHeader(h);
        QCOMPARE(QByteArray(reinterpret_cast<char*>(&h), sizeof h), QByteArray(sizeof h, 0));
        QCOMPARE(control.freeEntries(), 7279ul);
    }

    // The tool writes its switches and filters into the header and nothing more: a traced process
    // attaching leaves the segment as it is, and a snapshot resets the indices only.
    void header()
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
        QVERIFY(s.control.settracingToFileActive(true, "") && s.header().tracingToFile == 0);
        // The tool writes a header block each time recording starts.
        QCOMPARE(fileText(logName),
                 std::string("# Logging to file activated\n# VISA version: 5.12.9\n"
                             "# Bitness:      64\n# OS:           Linux\n"));
        std::remove(logName.c_str());
        // The flags are read from the segment each time.
        s.header().tracingActive = 0;
        s.header().tracingToFile = 1;
        QVERIFY(!s.control.tracingActive() && s.control.isTracingToFile());

        s.header().readIndex = 7000;
        s.header().writeIndex = 10;
        SharedMemoryHeader before = s.header();
        TraceChannel attacher(s.segment.key, s_VisaSharedMemorySize, s.segment.semaphore);
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
        FullEntry first = makeEntry(1, 100, 0, text);
        QVERIFY(producer.write(first) == TraceProducer::Outcome::Written);
        QVERIFY(producer.write(makeEntry(2, 100, 1, "next")) == TraceProducer::Outcome::Written);
        QCOMPARE(s.header().writeIndex, static_cast<std::uint32_t>((startSlot + slotsUsed + 1) % 7279));

        s.control.copySharedMemory(true);
        const std::vector<FullEntry> records = walk(s.control);
        QCOMPARE(texts(records), (QByteArrayList {text.c_str(), "next"}));
        // Every field and text byte as written, but the one the producer keeps for itself.
        first.reserved = records[0].reserved;
        QCOMPARE(std::memcmp(&records[0], &first, offsetof(FullEntry, text) + sizeof first.text), 0);
    }

    void twelveSlotCapStartsNewRecordAtLeftover()
    {
        ControlledSegment s(6);
        // Fourteen continued slots, each chunk a full 80 characters of its own letter, the last not continued.
        const FullEntry head = makeEntry(5, 100, 0, "");
        QByteArray expected;
        for (std::uint32_t i = 0; i < 14; ++i) {
            std::memcpy(&s.slot(i), &head, offsetof(SlotEntry, continued));
            s.slot(i).continued = i < 13 ? 1 : 0;
            std::memset(s.slot(i).text, 'a' + static_cast<int>(i), s_SlotTextSize);
            expected += QByteArray(80, static_cast<char>('a' + i));
        }
        s.header().writeIndex = 14;
        s.control.copySharedMemory(true);
        // The leftover slots are read as records of their own, deliberately without skipping them.
        QCOMPARE(texts(walk(s.control)), (QByteArrayList {expected.left(960), expected.mid(960)}));
    }

    // Indices a broken or hostile writer left, and a last slot that has no terminator and claims a
    // continuation past the end of the segment.
    void hostileIndices_data()
    {
        QTest::addColumn<quint32>("readIndex");
        QTest::addColumn<quint32>("writeIndex");
        QTest::addColumn<ulong>("free");
        QTest::addColumn<QByteArrayList>("texts");
        QTest::newRow("write index at the slot count") << 0u << 7279u << 7279ul << QByteArrayList();
        QTest::newRow("read index far beyond") << 0xFFFFFFF0u << 3u << 7279ul << QByteArrayList();
        QTest::newRow("both beyond") << 9000u << 8000u << 7279ul << QByteArrayList();
        QTest::newRow("chain running into the write index") << 7278u << 0u << 7278ul << QByteArrayList();
        QTest::newRow("chain ending in slot 0")
            << 7278u << 2u << 7276ul << QByteArrayList {QByteArray(80, 'z'), QByteArray()};
    }

    void hostileIndices()
    {
        QFETCH(quint32, readIndex);
        QFETCH(quint32, writeIndex);
        ControlledSegment s(7);
        std::memset(&s.slot(7278), 'z', sizeof(SlotEntry));
        s.header().readIndex = readIndex;
        s.header().writeIndex = writeIndex;
        QTEST(s.control.freeEntries(), "free");
        s.control.copySharedMemory(true);
        const std::vector<FullEntry> records = walk(s.control);
        QTEST(texts(records), "texts");
        // The first place holds no record where the walk gives none, not even when its chain ran into the
        // write index. Slots 0 and 1 hold records of id 0: found only where the walk reaches them.
        QCOMPARE(*s.control.begin() == nullptr, records.empty());
        QCOMPARE(s.control.find(0, 0, 0, 0) == s.control.end(), records.empty());
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
        QCOMPARE(stderrOf([&] { QVERIFY(memory.lock()); }),
                 std::string("ERROR in lock: I made 101 attempts to acquire the lock for the Shared Memory. "
                             "Now I am breaking it!\n"));
    }

    void localOccupancy_data()
    {
        QTest::addColumn<int>("pushes");
        QTest::addColumn<int>("pops");
        QTest::addColumn<int>("size");
        QTest::addColumn<int>("oldest");
        QTest::addColumn<int>("newest");
        QTest::newRow("empty") << 0 << 0 << 0 << 0 << 0;
        QTest::newRow("partly filled") << 3 << 0 << 3 << 1 << 3;
        QTest::newRow("capacity - 1 fills it") << 4 << 0 << 4 << 1 << 4;
        QTest::newRow("capacity pushes drop the oldest") << 5 << 0 << 4 << 2 << 5;
        QTest::newRow("wrapped several times") << 13 << 0 << 4 << 10 << 13;
        QTest::newRow("popping the only element") << 1 << 1 << 0 << 0 << 0;
        QTest::newRow("pops down to slot 0") << 7 << 2 << 2 << 4 << 5;
        QTest::newRow("a pop below slot 0 wraps to the last slot") << 7 << 3 << 1 << 4 << 4;
        QTest::newRow("the end meeting the begin resets the ring") << 7 << 4 << 0 << 0 << 0;
    }

    void localOccupancy()
    {
        QFETCH(int, pushes);
        QFETCH(int, pops);
        QFETCH(int, size);
        RingBufferLocalMem<FullEntry> ring(5);
        for (int i = 1; i <= pushes; ++i)
            ring.push_back(entry(static_cast<std::uint64_t>(i)));
        for (int i = 0; i < pops; ++i)
            ring.pop_back();
        QCOMPARE(static_cast<int>(ring.size()), size);
        QCOMPARE(ring.empty(), size == 0);
        // An empty ring is reset to slot 0.
        QTEST(size ? static_cast<int>(ring(ring.begin).id) : static_cast<int>(ring.begin), "oldest");
        QTEST(size ? static_cast<int>(ring((ring.end + 4) % 5).id) : static_cast<int>(ring.end), "newest");
    }

    // A second copy of the tool in another process attaches to the block (whatever size it asks for)
    // and sees the records, the update time and the count; what it changes, the first copy sees.
    void anotherProcessSharesTheBlock()
    {
        const QString name = QString::fromStdString(TestNames::sharedRingName("process"));
        RingBufferSharedMem<FullEntry> ring(name, ringBytes(10));
        QCOMPARE(ring.numberOfElements(), 10u);
        ring.lockWithin();
        for (std::uint64_t id = 1; id <= 12; ++id)
            ring.push_back(entry(id));
        ring.lastUpdate = 1234;
        ring.writeHeader();
        ring.unlock();

        QVERIFY(passesInChild([&name, &ring] {
            // A forked child inherits the parent's attachment; a second copy of the tool would not.
            ring.block().detach();
            RingBufferSharedMem<FullEntry> other(name, ringBytes(50));
            other.lockWithin();
            const bool ok = other.numberOfElements() == 10 && other.size() == 9 && other.attachCount == 2
                && other.lastUpdate == 1234 && other(other.begin).id == 4 && other((other.end + 9) % 10).id == 12;
            other.pop_back();
            other.pop_back();
            other.push_back(entry(43));
            other.unlock();
            return ok;
        }));
        ring.lockWithin();
        ring.readHeader();
        ring.unlock();
        QCOMPARE(*static_cast<const quint32*>(ring.block().constData()), 1u); // the count the child left
        QCOMPARE(ring.size(), 8u);
        QCOMPARE(QByteArray(ring((ring.end + 9) % 10).text), QByteArray("record 43"));
    }

    // Anyone can set the shared ring's semaphore to 0 and leave. No acquisition waits more than one tick,
    // and once they have failed for as long as the segment lock takes to break, the semaphore is
    // repaired: the tool works on without a restart. It is the semaphore Qt uses for the block, so a copy
    // of the tool that locks through Qt excludes this one.
    void ringLockHeldAtZero()
    {
        const QString name = QString::fromStdString(TestNames::sharedRingName("zero"));
        RingBufferSharedMem<FullEntry> ring(name, ringBytes(4));
        QSharedMemory olderCopy(name);
        QVERIFY(olderCopy.attach() && olderCopy.lock());
        QVERIFY(!ring.lockWithin());
        olderCopy.unlock();
        QVERIFY(ring.lockWithin());
        ring.unlock();
        olderCopy.detach();

        const int id = semget(ftok(RingSemaphore::keyFileName(name).constData(), 'Q'), 1, 0);
        QCOMPARE(semctl(id, 0, SETVAL, 0), 0);
        std::int64_t longest = 0;
        bool locked = false;
        for (const std::int64_t end = monotonicNanoseconds() + 5000000000; !locked && monotonicNanoseconds() < end;
             QTest::qSleep(10)) {
            const std::int64_t start = monotonicNanoseconds();
            locked = ring.lockWithin();
            longest = std::max(longest, monotonicNanoseconds() - start);
        }
        QVERIFY(locked);
        QVERIFY2(longest < 500000000, qPrintable(QString::number(longest)));
        QCOMPARE(semctl(id, 0, GETVAL), 0);
        ring.unlock();
        QCOMPARE(semctl(id, 0, GETVAL), 1);
    }

    // A block left by another process: its header claims indices far outside it, or it has no room for
    // a single slot. The ring stays inside the block whatever it reads.
    void hostileBlocks_data()
    {
        QTest::addColumn<int>("slotCount");
        QTest::newRow("hostile header") << 4;
        QTest::newRow("too small for one slot") << 0;
    }

    void hostileBlocks()
    {
        QFETCH(int, slotCount);
        const QString name = QString::fromStdString(TestNames::sharedRingName("hostile"));
        QSharedMemory block(name);
        QVERIFY(block.create(ringBytes(slotCount)));
        const quint32 hostile[6] = {1, 7, 0xFFFFFFF0u}; // count, begin, end, padding, last update
        std::memcpy(block.data(), &hostile, sizeof hostile);

        RingBufferSharedMem<FullEntry> ring(name, ringBytes(100));
        QCOMPARE(ring.numberOfElements(), std::uint32_t(slotCount));
        QVERIFY(ring.empty());
        ring.lockWithin();
        ring.push_back(entry(1));
        QCOMPARE(ring.size(), slotCount ? 1u : 0u);
        // Indices written behind our back after loading are also kept inside the block.
        std::memcpy(block.data(), &hostile, sizeof hostile);
        ring.push_back(entry(2));
        ring.unlock();
        QCOMPARE(ring(0xFFFFFFFFu).id, slotCount ? ring(0xFFFFFFFFu % 4).id : 0u);
    }
};

QTEST_GUILESS_MAIN(TestTracer)
#include "tst_tracer.moc"
