#include "RingBuffer.h"
#include "RingBufferSharedMem.h"
#include "TraceTestSupport.h"

#include <QtTest>

#include <cstring>

using namespace ZelTracer;

namespace {

FullEntry entry(std::uint64_t id)
{
    return makeEntry(id, 0, 0, "record " + std::to_string(id));
}

constexpr int ringBytes(int slotCount)
{
    return RingBufferSharedMem<FullEntry>::s_HeaderSize + slotCount * static_cast<int>(sizeof(FullEntry));
}

} // namespace

class TestRingBuffer : public QObject
{
    Q_OBJECT

private slots:
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
        ring.block().lock();
        for (std::uint64_t id = 1; id <= 12; ++id)
            ring.push_back(entry(id));
        ring.lastUpdate = 1234;
        ring.writeHeader();
        ring.block().unlock();

        QVERIFY(passesInChild([&name, &ring] {
            // A forked child inherits the parent's attachment; a second copy of the tool would not.
            ring.block().detach();
            RingBufferSharedMem<FullEntry> other(name, ringBytes(50));
            other.block().lock();
            const bool ok = other.numberOfElements() == 10 && other.size() == 9 && other.attachCount == 2
                && other.lastUpdate == 1234 && other(other.begin).id == 4 && other((other.end + 9) % 10).id == 12;
            other.pop_back();
            other.pop_back();
            other.push_back(entry(43));
            other.block().unlock();
            return ok;
        }));
        ring.block().lock();
        ring.readHeader();
        ring.block().unlock();
        QCOMPARE(*static_cast<const quint32*>(ring.block().constData()), 1u); // the count the child left
        QCOMPARE(ring.size(), 8u);
        QCOMPARE(QByteArray(ring((ring.end + 9) % 10).text), QByteArray("record 43"));
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
        ring.block().lock();
        ring.push_back(entry(1));
        QCOMPARE(ring.size(), slotCount ? 1u : 0u);
        // Indices written behind our back after loading are also kept inside the block.
        std::memcpy(block.data(), &hostile, sizeof hostile);
        ring.push_back(entry(2));
        ring.block().unlock();
        QCOMPARE(ring(0xFFFFFFFFu).id, slotCount ? ring(0xFFFFFFFFu % 4).id : 0u);
    }
};

QTEST_GUILESS_MAIN(TestRingBuffer)
#include "tst_ringbuffer.moc"
