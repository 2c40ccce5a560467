#include "SharedFile.h"
#include "TraceTestSupport.h"

#include <QtTest>

#include <cstdlib>
#include <ctime>

using namespace ZelTracer;

class TestSharedFile : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        qputenv("TZ", "UTC");
        tzset();
        QVERIFY(dir.isValid());
    }

    void logLine_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<bool>("terminated");
        QTest::addColumn<QByteArray>("expected");

        const QByteArray fields
            = "1\t2023-11-14 22:13:21\t1.50000e+00\t100\t101\t7\tGPIB0::22::INSTR\t1.23457e-03\t0\t-1073807339\t";
        QTest::newRow("plain command") << QByteArray("viWrite(0x1, \"*IDN?\\n\", 6, 6)") << true
                                       << fields + "\"viWrite(0x1, \"*IDN?\\n\", 6, 6)\"\n";
        QTest::newRow("tab and quote pass through") << QByteArray("a\t\"b") << true << fields + "\"a\t\"b\"\n";
        QTest::newRow("empty text") << QByteArray() << true << fields + "\"\"\n";
        QTest::newRow("text without terminator is written empty")
            << QByteArray(1024, 'x') << false << fields + "\"\"\n";
    }

    void logLine()
    {
        QFETCH(QByteArray, text);
        QFETCH(bool, terminated);
        QFETCH(QByteArray, expected);

        FullEntry entry = makeEntry(1, 100, 0, "");
        std::memcpy(entry.text, text.constData(), static_cast<std::size_t>(text.size()));
        QCOMPARE(hasTerminator(entry.text), terminated);

        const std::string name = logName("line");
        std::remove(name.c_str());
        {
            SharedFile file(names.fileSemaphore);
            file.setFreeSpaceQuery([](std::string const&) { return 1e6; });
            file.openFile(name);
            file.write(entry);
        }
        QCOMPARE(readAll(name), expected);
    }

    void diskFullStopsForGood()
    {
        const std::string name = logName("full");
        SharedFile file(names.fileSemaphore);
        double freeMiB = 499.0;
        file.setFreeSpaceQuery([&freeMiB](std::string const&) { return freeMiB; });
        file.openFile(name);
        file.write(makeEntry(1, 100, 0, "first"));
        freeMiB = 1e6; // freeing space does not resume logging within this process
        for (int i = 0; i < 20; ++i)
            file.write(makeEntry(2, 100, 0, "later"));
        QVERIFY(file.isDiskFull());
        QCOMPARE(readAll(name),
                 QByteArray("# Not enough disk space left. At least 5.00000e+02MB are required.\n"
                            "# To resume logging close all applications using the Zel VISA, free "
                            "disk space and restart.\n"));
    }

    void diskCheckedOnFirstWriteThenEvery10001st()
    {
        const std::string name = logName("count");
        SharedFile file(names.fileSemaphore);
        int checks = 0;
        file.setFreeSpaceQuery([&checks](std::string const& fileName) {
            ++checks;
            return fileName.empty() ? 0.0 : 600.0;
        });
        file.openFile(name);
        const FullEntry entry = makeEntry(1, 100, 0, "x");
        QString counts;
        for (int i = 0; i <= 10001; ++i) {
            file.write(entry);
            if (i == 0 || i == 10000 || i == 10001)
                counts += QString::number(checks);
        }
        QCOMPARE(counts, QStringLiteral("112"));
        QVERIFY(!file.isDiskFull());
        QCOMPARE(readAll(name).count('\n'), 10002);
    }

private:
    std::string logName(const char* tag) const { return dir.path().toStdString() + '/' + tag + ".log"; }
    static QByteArray readAll(std::string const& name) { return QByteArray::fromStdString(fileText(name)); }

    QTemporaryDir dir;
    PrivateSegment names {20};
};

QTEST_GUILESS_MAIN(TestSharedFile)
#include "tst_sharedfile.moc"
