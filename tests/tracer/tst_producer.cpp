#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QtTest>

#include <set>

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

    void recordThatDoesNotFitIsDroppedWhole()
    {
        PrivateSegment segment(31);
        const unsigned long size = s_HeaderSize + 10 * s_SlotSize; // ten slots, nine usable
        TraceChannelControl control(segment.key, size, segment.semaphore);
        TraceProducer producer(segment.key, size, segment.semaphore, segment.fileSemaphore);
        control.setTracingActive(true);

        QVERIFY(producer.write(makeEntry(1, 100, 0, std::string(500, 'a'))) == TraceProducer::Outcome::Written);
        QCOMPARE(producer.freeEntries(), 3ul);
        // Three slots are needed, three are free, but one slot must always stay free.
        QVERIFY(producer.write(makeEntry(2, 100, 0, std::string(200, 'b'))) == TraceProducer::Outcome::Dropped);
        QVERIFY(producer.write(makeEntry(3, 100, 0, std::string(100, 'c'))) == TraceProducer::Outcome::Written);
        QVERIFY(producer.getWritten() == 2 && producer.getDropped() == 1);
        control.copySharedMemory(true);
        std::string texts;
        for (const FullEntry& e : walk(control))
            texts += std::string(e.text) + '|';
        QVERIFY(texts == std::string(500, 'a') + '|' + std::string(100, 'c') + '|');
    }

    void appendsToTheHeadersLogFile()
    {
        PrivateSegment segment(32);
        QTemporaryDir dir;
        const std::string first = dir.path().toStdString() + "/a.log", second = dir.path().toStdString() + "/b.log";
        TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
        TraceProducer producer(segment.key, s_VisaSharedMemorySize, segment.semaphore, segment.fileSemaphore);
        producer.getFile().setFreeSpaceQuery([](std::string const&) { return 1e6; });
        control.setTracingActive(true);
        control.settracingToFileActive(true, first);
        producer.write(makeEntry(1, 100, 0, "one"));
        control.settracingToFileActive(true, second);
        producer.write(makeEntry(2, 100, 0, "two"));
        control.settracingToFileActive(false);
        producer.write(makeEntry(3, 100, 0, "three"));

        // Each file: the tool's four header lines, then the record.
        const QByteArrayList a = QByteArray::fromStdString(fileText(first)).split('\n');
        const QByteArrayList b = QByteArray::fromStdString(fileText(second)).split('\n');
        QVERIFY(a.size() == 6 && a[4].startsWith("1\t") && a[4].endsWith("\"one\"") && a[5].isEmpty());
        QVERIFY(b.size() == 6 && b[4].startsWith("2\t") && b[4].endsWith("\"two\""));
    }

    void trafficGeneratorDeliversWhatItReports()
    {
        PrivateSegment segment(34);
        LosslessReader reader(segment);
        QProcess generator;
        generator.start(
            QStringLiteral(ZEL_TRAFFIC_PATH),
            trafficArguments(segment, "--enable --processes 2 --threads 2 --count 500 --rate 5000 --quiet"));
        QVERIFY(generator.waitForStarted());

        std::set<std::pair<std::uint32_t, std::pair<std::uint64_t, std::uint32_t>>> records;
        bool wellFormed = true;
        auto drain = [&] {
            for (const FullEntry& e : reader.drain()) {
                wellFormed = wellFormed && e.kind <= 1 && std::strncmp(e.text, "vi", 2) == 0;
                records.insert({e.pid, {e.id, e.kind}});
            }
        };
        while (!generator.waitForFinished(5))
            drain();
        drain();

        QCOMPARE(generator.exitCode(), 0);
        const QByteArray summary = generator.readAllStandardOutput().trimmed();
        QRegularExpression pattern(QStringLiteral("^written (\\d+) dropped (\\d+)$"));
        const QRegularExpressionMatch match = pattern.match(QString::fromLatin1(summary));
        QVERIFY2(match.hasMatch(), summary.constData());
        const std::size_t written = match.captured(1).toULongLong();
        QVERIFY(written > 0);
        QCOMPARE(written + match.captured(2).toULongLong(), std::size_t(2 * 2 * 500));
        QCOMPARE(records.size(), written);
        QVERIFY(wellFormed);
    }
};

QTEST_GUILESS_MAIN(TestProducer)
#include "tst_producer.moc"
