#include "CaptureTestSupport.h"
#include "TraceProducer.h"

#include <QtTest>

using capture::Format;

class TestCaptures : public QObject
{
    Q_OBJECT

    PrivateSegment segment {50};
    ZelTracer::TraceChannelControl control {segment.key, ZelTracer::s_VisaSharedMemorySize, segment.semaphore};

    static QByteArray golden(const char* name)
    {
        QFile file(QStringLiteral(ZEL_CAPTURE_DATA "/") + QLatin1String(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private slots:
    void initTestCase() { useUtc(); }

    // The files a user gets for the known records, compared line by line with hand-checked ones.
    void goldenFiles_data()
    {
        QTest::addColumn<int>("format");
        QTest::addColumn<QString>("file");
        QTest::newRow("csv table") << int(Format::Csv) << QStringLiteral("known.csv");
        QTest::newRow("trace event timeline") << int(Format::Timeline) << QStringLiteral("known.json");
        QTest::newRow("saved view text") << int(Format::ViewText) << QStringLiteral("known.txt");
    }
    void goldenFiles()
    {
        QFETCH(int, format);
        QFETCH(QString, file);
        const QByteArray bytes = exported(knownRecords(), Format(format), control);
        QCOMPARE(QString::fromUtf8(bytes).split(QLatin1Char('\n')),
                 QString::fromUtf8(golden(file.toLatin1().constData())).split(QLatin1Char('\n')));
    }

    // Export, open, export again: the same text, so nothing a user saw is lost or changed on the way,
    // also with collapsing off (every call a row, as the recorder writes).
    void roundTrip_data()
    {
        QTest::addColumn<int>("format");
        QTest::addColumn<bool>("collapse");
        QTest::newRow("csv") << int(Format::Csv) << true;
        QTest::newRow("saved view") << int(Format::ViewText) << true;
        QTest::newRow("csv, every call a row") << int(Format::Csv) << false;
    }
    void roundTrip()
    {
        QFETCH(int, format);
        QFETCH(bool, collapse);
        const QByteArray first = exported(knownRecords(), Format(format), control, collapse);
        QString error;
        const std::vector<ZelTracer::FullEntry> back = readBack(first, &error);
        QVERIFY2(!back.empty(), qPrintable(error));
        QCOMPARE(QString::fromUtf8(exported(back, Format(format), control, collapse)).split(QLatin1Char('\n')),
                 QString::fromUtf8(first).split(QLatin1Char('\n')));
    }

    // A log written by the producers themselves opens as the same calls: its table equals the one of
    // the records (the log keeps whole seconds and six digits).
    void producersLogOpens()
    {
        QTemporaryDir dir;
        const QString log = dir.filePath(QStringLiteral("trace.log"));
        control.setTracingActive(true);
        control.settracingToFileActive(true, log.toStdString());
        ZelTracer::TraceProducer producer(segment.key, ZelTracer::s_VisaSharedMemorySize, segment.semaphore,
                                          segment.fileSemaphore);
        std::vector<ZelTracer::FullEntry> records = knownRecords();
        for (ZelTracer::FullEntry& e : records) {
            e.timestampFraction = 0;
            QCOMPARE(producer.write(e) == ZelTracer::TraceProducer::Outcome::Filtered, false);
        }
        control.settracingToFileActive(false);
        control.setTracingActive(false);
        producer.getFile().closeFile();

        capture::Capture capture;
        QString error;
        QVERIFY2(capture::CaptureReader::read(log, capture, error), qPrintable(error));
        QCOMPARE(capture.source, capture::Capture::TraceLog);
        QCOMPARE(QString::fromUtf8(exported(capture.records, Format::Csv, control)).split(QLatin1Char('\n')),
                 QString::fromUtf8(exported(records, Format::Csv, control)).split(QLatin1Char('\n')));
    }

    // A file cut short or of another kind is refused with a message that says so, never half read.
    void refusals_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("message");
        const QByteArray csv = capture::s_CsvHeader;
        const QByteArray row = "\"0\",\"1\",\"call\",\"2023-11-14 22:13:21.250\",\"1.5\",\"100\",\"101\",\"7\",\"A\","
                               "\"0.1\",\"0\",\"VI_SUCCESS\",\"1\",\"viClose(1)\"\r\n";
        const QByteArray view = capture::CaptureWriter::viewTextHeader();
        QTest::newRow("empty") << QByteArray() << QStringLiteral("capture is empty.");
        QTest::newRow("foreign") << QByteArray("PK\x03\x04 zip\n") << QStringLiteral("capture is not a capture");
        QTest::newRow("timeline") << golden("known.json") << QStringLiteral("capture is a timeline for trace viewers");
        QTest::newRow("table cut in a quoted field") << csv + row.left(44) + "\n" << QStringLiteral("cut short");
        QTest::newRow("table row short of fields") << csv
                + "\"0\",\"1\"\r\n" << QStringLiteral("Line 2 of capture is not a line of a capture: it has 2");
        QTest::newRow("table id not a number")
            << csv + QByteArray(row).replace("\"1\",\"call\"", "\"x\",\"call\"") << QStringLiteral("the id \"x\"");
        QTest::newRow("table unknown kind")
            << csv + QByteArray(row).replace("call", "ring") << QStringLiteral("\"ring\" is not a kind");
        QTest::newRow("view header cut") << view.left(40) << QStringLiteral("cut short");
        QTest::newRow("view bad time") << view + "0\t1\t25:61:00.000\t1\t2\t3\tA\t0.1\t1\t0\tx\n"
                                       << QStringLiteral("\"25:61:00.000\" is not a time");
        QTest::newRow("log bad date") << QByteArray("# Logging to file activated\n1\t2023-13-45 10:00:00\t1\t1\t2\t3\tA"
                                                    "\t1\t1\t0\t\"x\"\n")
                                      << QStringLiteral("is not a date and time");
        QTest::newRow("log text unquoted")
            << QByteArray("# Logging to file activated\n1\t2023-11-14 10:00:00\t1\t1\t2\t3"
                          "\tA\t1\t1\t0\tx\n")
            << QStringLiteral("quoted command are missing");
        QTest::newRow("line longer than any") << csv + QByteArray(capture::CaptureReader::s_MaxLineLength + 10, 'x')
                + "\n" << QStringLiteral("longer than any line");
    }
    void refusals()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, message);
        QString error;
        QVERIFY(readBack(bytes, &error).empty());
        QVERIFY2(error.contains(message), qPrintable(error));
    }

    // A table saved again by a spreadsheet (byte order mark, header quoted its own way) still opens.
    void spreadsheetResaveOpens()
    {
        QByteArray table = golden("known.csv");
        const int headerEnd = table.indexOf('\n');
        const QByteArray resaved = "\xEF\xBB\xBF" + table.left(headerEnd).replace("\"", "") + table.mid(headerEnd);
        QString error;
        const auto records = readBack(resaved, &error);
        QVERIFY2(!records.empty(), qPrintable(error));
        QCOMPARE(exported(records, Format::Csv, control), table);
    }

    // A file longer than a view is read a part at a time, and the first failed call is found in all
    // of it. The table holds the calls 0 .. max+49, then the failed call as its call and return.
    void partsOfALongCapture_data()
    {
        const qint64 max = capture::CaptureReader::s_MaxRecords;
        QTest::addColumn<qint64>("from"); // -1: the newest part
        QTest::addColumn<qint64>("first");
        QTest::addColumn<qint64>("size");
        QTest::newRow("newest part") << qint64(-1) << qint64(52) << max;
        QTest::newRow("from the start") << qint64(0) << qint64(0) << max;
        QTest::newRow("last records only") << max + 40 << max + 40 << qint64(12);
        QTest::newRow("beyond the end") << max + 100 << max + 52 << qint64(0);
    }
    void partsOfALongCapture()
    {
        QFETCH(qint64, from);
        QFETCH(qint64, first);
        QFETCH(qint64, size);
        QByteArray bytes = longTable();
        QBuffer in(&bytes);
        in.open(QIODevice::ReadOnly);
        capture::Capture part;
        QString error;
        QVERIFY2(capture::CaptureReader::read(in, QStringLiteral("long.csv"), QDate(2023, 11, 14), part, error,
                                              from < 0 ? std::nullopt : std::optional<std::uint64_t>(from)),
                 qPrintable(error));
        QCOMPARE(part.total, capture::CaptureReader::s_MaxRecords + 52);
        QCOMPARE(part.firstError, qint64(capture::CaptureReader::s_MaxRecords + 51));
        QCOMPARE(qint64(part.first), first);
        QCOMPARE(qint64(part.records.size()), size);
        if (size > 0)
            QCOMPARE(part.records.front().id, quint64(11 + first));
    }

    // A count from outside costs neither memory beyond a view's worth nor the call's id order.
    void hostileCallCountIsBounded()
    {
        const QByteArray bytes = QByteArray(capture::s_CsvHeader)
            + "\"0\",\"5\",\"call\",\"2023-11-14 22:13:21.250\",\"1.5\",\"100\",\"101\",\"7\",\"A\",\"1\",\"0\","
              "\"VI_SUCCESS\",\"18446744073709551615\",\"x\"\r\n";
        const std::vector<ZelTracer::FullEntry> records = readBack(bytes);
        QCOMPARE(records.size(), capture::CaptureReader::s_MaxRecords);
        QCOMPARE(records.back().id, 5u);
    }

    // Export replaces the target whole (no old tail) and says why it could not write.
    void exportReplacesOrSaysWhy()
    {
        QTemporaryDir dir;
        const QString name = dir.filePath(QStringLiteral("view.csv"));
        QFile old(name);
        QVERIFY(old.open(QIODevice::WriteOnly));
        old.write(QByteArray(100000, 'X'));
        old.close();
        LiveTraceModel model(nullptr, control);
        model.loadRecords(knownRecords());
        QString error;
        QVERIFY(capture::exportView(model, name, Format::Csv, &error));
        QVERIFY(old.open(QIODevice::ReadOnly));
        QCOMPARE(old.readAll(), exported(knownRecords(), Format::Csv, control));
        QVERIFY(!capture::exportView(model, dir.filePath(QStringLiteral("no/such/dir/v.csv")), Format::Csv, &error));
        QVERIFY2(error.startsWith(QStringLiteral("Cannot write ")), qPrintable(error));
    }
};

QTEST_GUILESS_MAIN(TestCaptures)
#include "tst_captures.moc"
