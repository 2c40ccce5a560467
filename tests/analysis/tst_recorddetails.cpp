#include "CallStatistics.h"
#include "RecordDetails.h"
#include "TraceTestSupport.h"

#include <QtTest>

using namespace RecordDetails;
using LocalRing = ZelTracer::RingBufferLocalMem<Entry>;

namespace {

Entry record(std::uint64_t id, std::uint32_t thread, std::uint32_t kind, const std::string& text,
             std::int32_t status = 0, double duration = 0.002, const char* address = "GPIB0::22::INSTR")
{
    Entry e = makeEntry(id, 100, kind, text);
    e.threadId = thread;
    e.status = kind == 0 ? 0 : status;
    e.duration = kind == 0 ? 0 : duration;
    std::strncpy(e.address, address, sizeof e.address - 1);
    return e;
}

// Records numbered as the live model numbers its local copies.
struct NumberedRing
{
    explicit NumberedRing(std::uint32_t capacity)
        : ring(capacity)
    { }
    void push(Entry e)
    {
        e.reserved = ++sequence;
        ring.push_back(e);
    }
    LocalRing ring;
    std::uint64_t sequence = 0;
};

const std::int32_t s_Timeout = static_cast<std::int32_t>(0xBFFF0015u);

} // namespace

class TestRecordDetails : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        qputenv("TZ", "UTC");
        tzset();
    }
    void callDetails_data();
    void callDetails();
    void command_data();
    void command();
    void statistics();
    void statisticsFollowTheRing_data();
    void statisticsFollowTheRing();
};

void TestRecordDetails::callDetails_data()
{
    QTest::addColumn<int>("position");
    QTest::addColumn<QStringList>("lines");

    const QString command = QStringLiteral("viWrite(0x00000007, \"*RST\\n\", 5, 5) ");
    auto recordOf = [&command](const QString& kind, int id, const QString& time) {
        return QStringList {kind,
                            QStringLiteral("Id: %1").arg(id),
                            QStringLiteral("Process: 100  Thread: 7"),
                            QStringLiteral("Session: 7 (0x00000007)"),
                            QStringLiteral("Address: GPIB0::22::INSTR"),
                            QStringLiteral("Timestamp: 2023-11-14 ") + time,
                            QStringLiteral("Elapsed time: 1.500000 s")};
    };
    const QStringList commandPart = {
        QStringLiteral("Command (36 characters):"),
        command,
        QStringLiteral("Function: viWrite"),
        QStringLiteral("Argument 1: 0x00000007"),
        QStringLiteral("Argument 2: \"*RST\\n\" (5 bytes)"),
        QStringLiteral("  SCPI: *RST"),
        QStringLiteral("Argument 3: 5"),
        QStringLiteral("Argument 4: 5"),
        QStringLiteral("Text dump:"),
        QStringLiteral("  0000  76 69 57 72 69 74 65 28 30 78 30 30 30 30 30 30  |viWrite(0x000000|"),
        QStringLiteral("  0010  30 37 2c 20 22 2a 52 53 54 5c 6e 22 2c 20 35 2c  |07, \"*RST\\n\", 5,|"),
        QStringLiteral("  0020  20 35 29 20                                      | 5) |"),
    };
    const QStringList call
        = recordOf(QStringLiteral("Call record"), 1, QStringLiteral("22:13:21.250000")) + commandPart;
    const QStringList ret = recordOf(QStringLiteral("Return record (kind 1)"), 1, QStringLiteral("22:13:21.250000"))
        + QStringList {QStringLiteral("Duration: 2.000 s (2 s)"), QStringLiteral("Status: VI_ERROR_TMO (0xBFFF0015)")}
        + commandPart;
    const QStringList completed
        = QStringList {QStringLiteral("viWrite on GPIB0::22::INSTR: VI_ERROR_TMO (0xBFFF0015) after 2.000 s"), {}}
        + call + QStringList {QString()} + ret;
    QTest::newRow("call whose return came later") << 0 << completed;
    QTest::newRow("return, its call found back past another thread's call of the same id") << 3 << completed;
    QTest::newRow("call not returned yet")
        << 4
        << QStringList {QStringLiteral("viWrite on GPIB0::22::INSTR: not returned yet"), {}}
            + recordOf(QStringLiteral("Call record"), 9, QStringLiteral("22:13:29.250000")) + commandPart
            + QStringList {QString(), QStringLiteral("Not returned yet")};
}

void TestRecordDetails::callDetails()
{
    QFETCH(int, position);
    QFETCH(QStringList, lines);
    // The text ends in a blank so that the dump shows a short last line.
    const std::string text = "viWrite(0x00000007, \"*RST\\n\", 5, 5) ";
    NumberedRing r(8);
    r.push(record(1, 7, 0, text));
    r.push(record(1, 8, 0, "viRead(0x00000007, \"\", 10, 0)"));
    r.push(record(1, 8, 1, "viRead(0x00000007, \"\", 10, 0)"));
    r.push(record(1, 7, 1, text, s_Timeout, 2.0));
    r.push(record(9, 7, 0, text));
    QCOMPARE(callLines(r.ring, r.ring(static_cast<unsigned>(position))), lines);
}

void TestRecordDetails::command_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QStringList>("lines");

    QTest::newRow("block transfer")
        << QByteArray(R"(viRead(0x00000007, "#210\x00\x01\x02\xfe\xff\r\nA,C\n", 1024, 13))")
        << QStringList {QStringLiteral("Command (65 characters):"),
                        QStringLiteral(R"(viRead(0x00000007, "#210\x00\x01\x02\xfe\xff\r\nA,C\n", 1024, 13))"),
                        QStringLiteral("Function: viRead"),
                        QStringLiteral("Argument 1: 0x00000007"),
                        QStringLiteral(R"(Argument 2: "#210\x00\x01\x02\xfe\xff\r\nA,C\n" (15 bytes))"),
                        QStringLiteral("  Block #210: 10 bytes"),
                        QStringLiteral("    0000  00 01 02 fe ff 0d 0a 41 2c 43                    |.......A,C|"),
                        QStringLiteral("Argument 3: 1024"),
                        QStringLiteral("Argument 4: 13")};
    QTest::newRow("raw control bytes, a quote and a comma inside the string")
        << QByteArray("viWrite(1, \"A\"B,\r\n\x01\xb5\", 7)")
        << QStringList {QStringLiteral("Command (25 characters):"),
                        QStringLiteral(R"(viWrite(1, "A"B,\r\n\x01)") + QChar(0xB5) + QStringLiteral(R"(", 7))"),
                        QStringLiteral("Function: viWrite"),
                        QStringLiteral("Argument 1: 1"),
                        QStringLiteral(R"(Argument 2: "A\"B,\r\n\x01\xb5" (8 bytes))"),
                        QStringLiteral(R"(  SCPI: A"B,\r\n\x01)") + QChar(0xB5),
                        QStringLiteral("Argument 3: 7")};
    QTest::newRow("SCPI commands split at semicolons outside SCPI strings")
        << QByteArray(R"(viPrintf(3, ":DISP:TEXT 'a;b';MEAS:VOLT? (@101); *OPC?\n"))")
        << QStringList {QStringLiteral("Command (58 characters):"),
                        QStringLiteral(R"(viPrintf(3, ":DISP:TEXT 'a;b';MEAS:VOLT? (@101); *OPC?\n"))"),
                        QStringLiteral("Function: viPrintf"),
                        QStringLiteral("Argument 1: 3"),
                        QStringLiteral(R"(Argument 2: ":DISP:TEXT 'a;b';MEAS:VOLT? (@101); *OPC?\n" (42 bytes))"),
                        QStringLiteral("  SCPI: :DISP:TEXT 'a;b'"),
                        QStringLiteral("  SCPI: MEAS:VOLT? (@101)"),
                        QStringLiteral("  SCPI: *OPC?")};
    QTest::newRow("block cut short, a header that is no block before it")
        << QByteArray(R"(viRead(1, "#9123 #3100abc"))")
        << QStringList {QStringLiteral("Command (27 characters):"),
                        QStringLiteral(R"(viRead(1, "#9123 #3100abc"))"),
                        QStringLiteral("Function: viRead"),
                        QStringLiteral("Argument 1: 1"),
                        QStringLiteral(R"(Argument 2: "#9123 #3100abc" (14 bytes))"),
                        QStringLiteral("  Block #3100: 100 bytes declared, only 3 present"),
                        QStringLiteral("    0000  61 62 63                                         |abc|")};
    QTest::newRow("no argument list") << QByteArray(
        "viFlush") << QStringList {QStringLiteral("Command (7 characters):"), QStringLiteral("viFlush")};
}

void TestRecordDetails::command()
{
    QFETCH(QByteArray, text);
    QFETCH(QStringList, lines);
    QCOMPARE(commandLines(text), lines);
}

void TestRecordDetails::statistics()
{
    NumberedRing r(16);
    auto call = [&r](std::uint64_t id, const char* text, std::int32_t status, double duration, const char* address) {
        r.push(record(id, 7, 0, text, 0, 0, address));
        r.push(record(id, 7, 1, text, status, duration, address));
    };
    const char* dmm = "GPIB0::22::INSTR";
    const char* scope = "TCPIP0::192.168.1.10::inst0::INSTR";
    call(1, "viOpen(1, \"GPIB0::22::INSTR\", 0, 0, 7)", 0, 0.004, "");
    call(2, "viWrite(7, \"MEAS:VOLT?\\n\", 11, 11)", 0, 0.0015, dmm);
    call(3, "viWrite(7, \":SYST:ERR?;*OPC?\\n\", 17, 17)", 0, 0.002, dmm);
    call(4, "viWrite(7, \"MEAS:VOLT? (@101)\\n\", 18, 18)", 0, 0.003, dmm);
    call(5, "viRead(9, \"\", 1024, 0)", s_Timeout, 2.0, scope);
    call(6, "viRead(9, \"1\\n\", 1024, 2)", 0, 0.006, scope);
    r.push(record(7, 7, 0, "viClose(7)", 0, 0, dmm)); // not returned: no call to count yet

    CallStatistics stats;
    stats.update(r.ring);
    const QString header = QStringLiteral("%1\tCalls\tErrors\tMin\tMean\tP95\tMax");
    QCOMPARE(stats.toText(),
             (QStringList {
                 header.arg(QStringLiteral("Operation")),
                 QStringLiteral("viOpen\t1\t0\t4.000 ms\t4.000 ms\t4.000 ms\t4.000 ms"),
                 QStringLiteral("viRead\t2\t1\t6.000 ms\t1.003 s\t2.000 s\t2.000 s"),
                 QStringLiteral("viWrite :SYST:ERR?\t1\t0\t2.000 ms\t2.000 ms\t2.000 ms\t2.000 ms"),
                 QStringLiteral("viWrite MEAS:VOLT?\t2\t0\t1.500 ms\t2.250 ms\t3.000 ms\t3.000 ms"),
                 header.arg(QStringLiteral("Address")),
                 QStringLiteral("(no address)\t1\t0\t4.000 ms\t4.000 ms\t4.000 ms\t4.000 ms"),
                 QStringLiteral("GPIB0::22::INSTR\t3\t0\t1.500 ms\t2.167 ms\t3.000 ms\t3.000 ms"),
                 QStringLiteral("TCPIP0::192.168.1.10::inst0::INSTR\t2\t1\t6.000 ms\t1.003 s\t2.000 s\t2.000 s")}));

    // The first two calls leave the ring; what is left counts as if it had always been alone.
    call(8, "viWrite(7, \"*RST\\n\", 5, 5)", 0, 0.006, dmm);
    call(9, "viWrite(7, \"*CLS\\n\", 5, 5)", 0, 0.008, dmm);
    call(10, "viWrite(7, \"*CLS\\n\", 5, 5)", s_Timeout, 2.0, dmm);
    stats.update(r.ring);
    QCOMPARE(stats.toText(),
             (QStringList {
                 header.arg(QStringLiteral("Operation")),
                 QStringLiteral("viRead\t2\t1\t6.000 ms\t1.003 s\t2.000 s\t2.000 s"),
                 QStringLiteral("viWrite *CLS\t2\t1\t8.000 ms\t1.004 s\t2.000 s\t2.000 s"),
                 QStringLiteral("viWrite *RST\t1\t0\t6.000 ms\t6.000 ms\t6.000 ms\t6.000 ms"),
                 QStringLiteral("viWrite :SYST:ERR?\t1\t0\t2.000 ms\t2.000 ms\t2.000 ms\t2.000 ms"),
                 QStringLiteral("viWrite MEAS:VOLT?\t1\t0\t3.000 ms\t3.000 ms\t3.000 ms\t3.000 ms"),
                 header.arg(QStringLiteral("Address")),
                 QStringLiteral("GPIB0::22::INSTR\t5\t1\t2.000 ms\t403.800 ms\t2.000 s\t2.000 s"),
                 QStringLiteral("TCPIP0::192.168.1.10::inst0::INSTR\t2\t1\t6.000 ms\t1.003 s\t2.000 s\t2.000 s")}));
}

void TestRecordDetails::statisticsFollowTheRing_data()
{
    QTest::addColumn<int>("capacity");
    QTest::addColumn<int>("batch");
    QTest::newRow("one record at a time, small ring") << 5 << 1;
    QTest::newRow("batches larger than the ring") << 7 << 11;
    QTest::newRow("batches that wrap the ring partly") << 13 << 4;
}

// Whatever arrives and leaves between updates, the figures equal those counted afresh.
void TestRecordDetails::statisticsFollowTheRing()
{
    QFETCH(int, capacity);
    QFETCH(int, batch);
    NumberedRing r(static_cast<std::uint32_t>(capacity));
    CallStatistics followed;
    const char* texts[] = {"viWrite(1, \"*IDN?\\n\")", "viRead(1, \"x\")", "viWrite(1, \"MEAS?\\n\")", "viClear(1)"};
    for (int n = 0; n < 60; ++n) {
        if (n == 37) {
            r.ring.clear(); // the model's clear: numbering starts again
            r.sequence = 0;
        }
        r.push(record(static_cast<std::uint64_t>(n / 2), 7, static_cast<std::uint32_t>(n % 2), texts[n / 2 % 4],
                      n % 6 == 1 ? s_Timeout : 0, 0.001 * (n % 5 + 1)));
        if (n % batch != batch - 1)
            continue;
        followed.update(r.ring);
        CallStatistics fresh;
        fresh.update(r.ring);
        QCOMPARE(followed.toText(), fresh.toText());
        QCOMPARE(followed.callCount(), fresh.callCount());
    }
}

QTEST_GUILESS_MAIN(TestRecordDetails)
#include "tst_recorddetails.moc"
