#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QtTest>

#include <set>

using namespace ZelTracer;

class TestProducer : public QObject
{
    Q_OBJECT

private slots:
    void recordFilter_data();
    void recordFilter();
    void recordThatDoesNotFitIsDroppedWhole();
    void appendsToTheHeadersLogFile();
    void trafficGeneratorDeliversWhatItReports();
};

void TestProducer::recordFilter_data()
{
    QTest::addColumn<bool>("active");
    QTest::addColumn<uint>("pidFilter");
    QTest::addColumn<QByteArray>("messageFilter");
    QTest::addColumn<int>("outcome");

    const int written = static_cast<int>(TraceProducer::Outcome::Written);
    const int filtered = static_cast<int>(TraceProducer::Outcome::Filtered);
    QTest::newRow("tracing off") << false << 0u << QByteArray() << static_cast<int>(TraceProducer::Outcome::Inactive);
    QTest::newRow("no filter") << true << 0u << QByteArray() << written;
    QTest::newRow("own pid") << true << 100u << QByteArray() << written;
    QTest::newRow("other pid") << true << 101u << QByteArray() << filtered;
    QTest::newRow("message in other case") << true << 0u << QByteArray("IDN?") << written;
    QTest::newRow("message absent") << true << 0u << QByteArray("viRead") << filtered;
    QTest::newRow("both must match") << true << 101u << QByteArray("idn") << filtered;
}

void TestProducer::recordFilter()
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

void TestProducer::recordThatDoesNotFitIsDroppedWhole()
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
    QCOMPARE(producer.getWritten(), std::uint64_t(2));
    QCOMPARE(producer.getDropped(), std::uint64_t(1));

    control.copySharedMemory(true);
    const std::vector<FullEntry> records = walk(control);
    QCOMPARE(records.size(), std::size_t(2));
    QCOMPARE(std::string(records[0].text), std::string(500, 'a'));
    QCOMPARE(std::string(records[1].text), std::string(100, 'c'));
}

void TestProducer::appendsToTheHeadersLogFile()
{
    PrivateSegment segment(32);
    QTemporaryDir dir;
    const std::string first = dir.filePath(QStringLiteral("a.log")).toStdString();
    const std::string second = dir.filePath(QStringLiteral("b.log")).toStdString();
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

    auto lines = [](const std::string& name) {
        QFile f(QString::fromStdString(name));
        f.open(QIODevice::ReadOnly);
        return QString::fromLatin1(f.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    };
    const QStringList a = lines(first);
    const QStringList b = lines(second);
    QCOMPARE(a.size(), 5); // the tool's four header lines, then the record
    QVERIFY(a.last().startsWith(QLatin1String("1\t")) && a.last().endsWith(QLatin1String("\"one\"")));
    QCOMPARE(b.size(), 5);
    QVERIFY(b.last().endsWith(QLatin1String("\"two\"")));
}

void TestProducer::trafficGeneratorDeliversWhatItReports()
{
    PrivateSegment segment(34);
    LosslessReader reader(segment);
    QProcess generator;
    generator.start(QStringLiteral(ZEL_TRAFFIC_PATH),
                    {QStringLiteral("--key"), QString::number(segment.key), QStringLiteral("--semaphore"),
                     QString::fromStdString(segment.semaphore), QStringLiteral("--file-semaphore"),
                     QString::fromStdString(segment.fileSemaphore), QStringLiteral("--enable"),
                     QStringLiteral("--processes"), QStringLiteral("2"), QStringLiteral("--threads"),
                     QStringLiteral("2"), QStringLiteral("--count"), QStringLiteral("500"), QStringLiteral("--rate"),
                     QStringLiteral("5000"), QStringLiteral("--quiet")});
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

QTEST_GUILESS_MAIN(TestProducer)
#include "tst_producer.moc"
