#include "LossCounter.h"
#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QtTest>

using namespace ZelTracer;
using Records = QVector<QPair<uint, quint64>>; // (pid, reserved) in arrival order

class TestLossCounter : public QObject
{
    Q_OBJECT

private slots:
    void counts_data()
    {
        QTest::addColumn<Records>("records");
        QTest::addColumn<quint64>("total");
        QTest::addColumn<quint64>("pid1");
        const quint64 m = TraceProducer::s_SequenceTag;
        auto row = [](const char* name, Records records, quint64 total, quint64 pid1) {
            QTest::newRow(name) << records << total << pid1;
        };
        row("no gap", {{1, m | 1}, {1, m | 2}, {1, m | 3}}, 0, 0);
        row("first record seen is the start", {{1, m | 500}, {1, m | 501}}, 0, 0);
        row("gaps per process", {{1, m | 1}, {2, m | 7}, {1, m | 4}, {2, m | 10}, {1, m | 5}}, 4, 2);
        row("other producers ignored", {{1, m | 1}, {1, 0}, {1, 77}, {1, 0x5A55000000000009ull}, {1, m | 2}}, 0, 0);
        row("late arrival", {{1, m | 1}, {1, m | 3}, {1, m | 2}, {1, m | 4}}, 0, 0);
        row("same record twice", {{1, m | 1}, {1, m | 1}, {1, m | 2}}, 0, 0);
        row("reused pid starts again", {{1, m | 1000}, {1, m | 1}, {1, m | 3}}, 1, 1);
    }

    void counts()
    {
        QFETCH(Records, records);
        QFETCH(quint64, total);
        QFETCH(quint64, pid1);
        LossCounter counter;
        for (const auto& r : records)
            counter.add(r.first, r.second);
        QCOMPARE(quint64(counter.total()), total);
        QCOMPARE(quint64(counter.lostFor(1)), pid1);
        quint64 listed = 0;
        for (const auto& [pid, lost] : counter.lossByProcess()) {
            QVERIFY(lost > 0 && lost == counter.lostFor(pid));
            listed += lost;
        }
        QCOMPARE(listed, total);
    }

    void memoryStaysBoundedWhateverPidsArrive()
    {
        LossCounter counter(16);
        for (std::uint32_t pid = 1; pid <= 100000; ++pid) {
            counter.add(pid, TraceProducer::s_SequenceTag | 1);
            counter.add(pid, TraceProducer::s_SequenceTag | 3);
            counter.add(200000, TraceProducer::s_SequenceTag | pid); // seen all along, losing nothing
        }
        QVERIFY(counter.trackedProcesses() == 16 && counter.total() == 100000 && counter.lostFor(200000) == 0);
    }

    // The real producer on a small ring that overflows, drained now and then by the tool's snapshot:
    // the counter finds exactly the records the producer reports as dropped.
    void matchesWhatTheProducerDropped()
    {
        PrivateSegment segment(40);
        const unsigned long size = s_HeaderSize + 16 * s_SlotSize;
        TraceChannelControl control(segment.key, size, segment.semaphore);
        TraceProducer producer(segment.key, size, segment.semaphore, segment.fileSemaphore);
        control.setTracingActive(true);
        LossCounter counter;
        std::size_t arrived = 0;
        auto drain = [&] {
            control.copySharedMemory(true);
            for (const FullEntry& e : walk(control)) {
                counter.add(e.pid, e.reserved);
                arrived += std::strlen(e.text) == e.id % 150; // a record that did not fit is dropped whole
            }
        };
        for (std::uint64_t id = 1; id <= 400; ++id) {
            producer.write(makeEntry(id, 100, id % 2, std::string(id % 150, 'x')));
            if (id % 23 == 0)
                drain();
        }
        drain();
        QVERIFY(producer.write(makeEntry(401, 100, 0, std::string(401 % 150, 'x'))) == TraceProducer::Outcome::Written);
        drain();
        QVERIFY(producer.getDropped() > 50);
        QCOMPARE(arrived, std::size_t(producer.getWritten()));
        QCOMPARE(quint64(counter.lostFor(100)), quint64(producer.getDropped()));
    }
};

QTEST_GUILESS_MAIN(TestLossCounter)
#include "tst_losscounter.moc"
