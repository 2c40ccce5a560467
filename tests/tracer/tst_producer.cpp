#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QtTest>

using namespace ZelTracer;

class TestProducer : public QObject
{
    Q_OBJECT

private slots:
    void recordFilter_data()
    {
        QTest::addColumn<bool>("active");
        QTest::addColumn<uint>("pidFilter");
        QTest::addColumn<QByteArray>("messageFilter");
        QTest::addColumn<int>("outcome");

        const int written = static_cast<int>(TraceProducer::Outcome::Written);
        const int filtered = static_cast<int>(TraceProducer::Outcome::Filtered);
        QTest::newRow("tracing off") << false << 0u << QByteArray()
                                     << static_cast<int>(TraceProducer::Outcome::Inactive);
        QTest::newRow("no filter") << true << 0u << QByteArray() << written;
        QTest::newRow("own pid") << true << 100u << QByteArray() << written;
        QTest::newRow("other pid") << true << 101u << QByteArray() << filtered;
        QTest::newRow("message in other case") << true << 0u << QByteArray("IDN?") << written;
        QTest::newRow("message absent") << true << 0u << QByteArray("viRead") << filtered;
        QTest::newRow("both must match") << true << 101u << QByteArray("idn") << filtered;
    }

    void recordFilter()
    {
        QFETCH(bool, active);
        QFETCH(uint, pidFilter);
        QFETCH(QByteArray, messageFilter);
        QFETCH(int, outcome);

        PrivateSegment segment(30);
        TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
        TraceProducer producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore);
        control.setTracingActive(active);
        control.setPidFilter(pidFilter);
        control.setMessageFilter(messageFilter.toStdString());

        QCOMPARE(static_cast<int>(producer.write(makeEntry(1, 100, 0, "viWrite(1, \"*idn?\")"))), outcome);
        control.copySharedMemory(true);
        QCOMPARE(walk(control).size(), std::size_t(outcome == static_cast<int>(TraceProducer::Outcome::Written)));
    }
};

QTEST_GUILESS_MAIN(TestProducer)
#include "tst_producer.moc"
