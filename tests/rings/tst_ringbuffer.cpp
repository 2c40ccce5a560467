#include "RingBuffer.h"
#include "RingBufferSharedMem.h"
#include "TestNames.h"

#include <QtTest>

#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

using namespace ZelTracer;

namespace {

FullEntry entry(std::uint64_t id)
{
    FullEntry e;
    std::memset(&e, 0, sizeof e);
    e.id = id;
    std::snprintf(e.text, sizeof e.text, "record %llu", static_cast<unsigned long long>(id));
    return e;
}

QString ringName(const char* tag)
{
    return QString::fromStdString(TestNames::sharedRingName(tag));
}

struct BlockHeader
{
    std::uint32_t attachCount, begin, end, padding;
    std::int64_t lastUpdate;
};

BlockHeader headerOf(RingBufferSharedMem<FullEntry>& ring)
{
    BlockHeader h;
    std::memcpy(&h, ring.block().constData(), sizeof h);
    return h;
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
    void localOccupancy_data();
    void localOccupancy();
    void popBack();
    void resetEmptiesAndResizes();
    void twoInstancesShareOneBlock();
    void anotherProcessSeesTheRecords();
    void hostileHeaderReadsAsEmpty();
    void blockTooSmallHasNoSlots();
};

void TestRingBuffer::localOccupancy_data()
{
    QTest::addColumn<int>("pushes");
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("oldest");
    QTest::newRow("empty") << 0 << 0 << -1;
    QTest::newRow("partly filled") << 3 << 3 << 1;
    QTest::newRow("capacity - 1 fills it") << 4 << 4 << 1;
    QTest::newRow("capacity pushes drop the oldest") << 5 << 4 << 2;
    QTest::newRow("wrapped several times") << 13 << 4 << 10;
}

void TestRingBuffer::localOccupancy()
{
    QFETCH(int, pushes);
    QFETCH(int, size);
    QFETCH(int, oldest);
    RingBufferLocalMem<FullEntry> ring(5);
    for (int i = 1; i <= pushes; ++i)
        ring.push_back(entry(static_cast<std::uint64_t>(i)));
    QCOMPARE(static_cast<int>(ring.size()), size);
    QCOMPARE(ring.empty(), size == 0);
    if (oldest > 0) {
        QCOMPARE(ring(ring.begin).id, std::uint64_t(oldest));
        QCOMPARE(ring((ring.begin + ring.size() - 1) % 5).id, std::uint64_t(pushes));
    }
}

void TestRingBuffer::popBack()
{
    RingBufferLocalMem<FullEntry> ring(4);
    ring.push_back(entry(1));
    ring.pop_back();
    QCOMPARE(ring.begin, 0u);
    QCOMPARE(ring.end, 0u);

    // Wrapping below slot 0 goes to the last slot.
    for (int i = 1; i <= 6; ++i)
        ring.push_back(entry(static_cast<std::uint64_t>(i)));
    QCOMPARE(ring.begin, 3u);
    QCOMPARE(ring.end, 2u);
    ring.pop_back();
    ring.pop_back();
    QCOMPARE(ring.end, 0u);
    QCOMPARE(ring.size(), 1u);
    // Below slot 0 the end wraps to the last slot, meets the begin, and the ring is reset.
    ring.pop_back();
    QCOMPARE(ring.begin, 0u);
    QCOMPARE(ring.end, 0u);
}

void TestRingBuffer::resetEmptiesAndResizes()
{
    RingBufferLocalMem<RingBufferIterator<FullEntry>> rows(3);
    RingBufferIterator<FullEntry> row {};
    row.repeatCount = 4;
    rows.push_back(row);
    rows.reset(8511);
    QCOMPARE(rows.numberOfElements(), 8511u);
    QVERIFY(rows.empty());
    QCOMPARE(rows(8510).repeatCount, std::uint64_t(0));
    row.reset();
    QCOMPARE(row.repeatCount, std::uint64_t(0));
}

void TestRingBuffer::twoInstancesShareOneBlock()
{
    const QString name = ringName("share");
    auto first = std::make_unique<RingBufferSharedMem<FullEntry>>(name, ringBytes(10));
    QCOMPARE(first->numberOfElements(), 10u);
    first->block().lock();
    for (std::uint64_t id = 1; id <= 12; ++id)
        first->push_back(entry(id));
    first->lastUpdate = 1234;
    first->writeHeader();
    first->block().unlock();

    {
        RingBufferSharedMem<FullEntry> second(name, ringBytes(50)); // attaches: the size asked for is not used
        QCOMPARE(second.numberOfElements(), 10u);
        QCOMPARE(headerOf(second).attachCount, 2u);
        QCOMPARE(second.size(), 9u);
        QCOMPARE(second.lastUpdate, std::int64_t(1234));
        QCOMPARE(second(second.begin).id, std::uint64_t(4));
        QCOMPARE(QByteArray(second((second.end + 9) % 10).text), QByteArray("record 12"));

        second.block().lock();
        second.pop_back();
        second.block().unlock();
        first->block().lock();
        first->readHeader();
        first->block().unlock();
        QCOMPARE(first->size(), 8u);
    }
    QCOMPARE(headerOf(*first).attachCount, 1u);
}

void TestRingBuffer::anotherProcessSeesTheRecords()
{
    const QString name = ringName("process");
    RingBufferSharedMem<FullEntry> ring(name, ringBytes(8));
    ring.block().lock();
    ring.push_back(entry(41));
    ring.push_back(entry(42));
    ring.block().unlock();

    const pid_t child = fork();
    if (child == 0) {
        bool ok = false;
        {
            RingBufferSharedMem<FullEntry> other(name, ringBytes(8));
            other.block().lock();
            ok = other.size() == 2 && other.attachCount == 2 && other((other.begin + 1) % 8).id == 42;
            other.push_back(entry(43));
            other.block().unlock();
        }
        _exit(ok ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    QVERIFY(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    ring.block().lock();
    ring.readHeader();
    ring.block().unlock();
    QCOMPARE(ring.attachCount, 1u);
    QCOMPARE(ring.size(), 3u);
    QCOMPARE(QByteArray(ring((ring.begin + 2) % 8).text), QByteArray("record 43"));
}

void TestRingBuffer::hostileHeaderReadsAsEmpty()
{
    const QString name = ringName("hostile");
    QSharedMemory block(name);
    QVERIFY(block.create(ringBytes(4)));
    const BlockHeader hostile {1, 7, 0xFFFFFFF0u, 0, 0};
    std::memcpy(block.data(), &hostile, sizeof hostile);

    RingBufferSharedMem<FullEntry> ring(name, ringBytes(4));
    QCOMPARE(ring.numberOfElements(), 4u);
    QVERIFY(ring.empty());
    ring.block().lock();
    ring.push_back(entry(1));
    QCOMPARE(ring.size(), 1u);
    // Indices written behind our back after loading are also kept inside the block.
    std::memcpy(block.data(), &hostile, sizeof hostile);
    ring.push_back(entry(2));
    ring.block().unlock();
    QCOMPARE(ring(0xFFFFFFFFu).id, ring(0xFFFFFFFFu % 4).id);
}

void TestRingBuffer::blockTooSmallHasNoSlots()
{
    const QString name = ringName("small");
    QSharedMemory block(name);
    QVERIFY(block.create(RingBufferSharedMem<FullEntry>::s_HeaderSize));
    RingBufferSharedMem<FullEntry> ring(name, ringBytes(100));
    QCOMPARE(ring.numberOfElements(), 0u);
    ring.block().lock();
    ring.push_back(entry(1));
    ring.block().unlock();
    QVERIFY(ring.empty());
    QCOMPARE(ring(5).id, std::uint64_t(0));
}

QTEST_GUILESS_MAIN(TestRingBuffer)
#include "tst_ringbuffer.moc"
