#include "ValueFormat.h"

#include <QtTest>

#include <ctime>

using namespace ValueFormat;

class TestValueFormat : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void everyStatusName();
    void unknownStatus_data();
    void unknownStatus();
    void duration_data();
    void duration();
    void timestamp_data();
    void timestamp();
    void filterStrings_data();
    void filterStrings();
};

void TestValueFormat::initTestCase()
{
    qputenv("TZ", "UTC");
    tzset();
}

void TestValueFormat::everyStatusName()
{
    struct Named
    {
        const char* name;
        quint32 code;
    };
    // clang-format off
    static const Named all[] = {
        {"VI_SUCCESS", 0x0}, {"VI_SUCCESS_EVENT_EN", 0x3FFF0002}, {"VI_SUCCESS_EVENT_DIS", 0x3FFF0003},
        {"VI_SUCCESS_QUEUE_EMPTY", 0x3FFF0004}, {"VI_SUCCESS_TERM_CHAR", 0x3FFF0005}, {"VI_SUCCESS_MAX_CNT", 0x3FFF0006},
        {"VI_WARN_QUEUE_OVERFLOW", 0x3FFF000C}, {"VI_WARN_CONFIG_NLOADED", 0x3FFF0077}, {"VI_SUCCESS_DEV_NPRESENT", 0x3FFF007D},
        {"VI_SUCCESS_TRIG_MAPPED", 0x3FFF007E}, {"VI_SUCCESS_QUEUE_NEMPTY", 0x3FFF0080}, {"VI_WARN_NULL_OBJECT", 0x3FFF0082},
        {"VI_WARN_NSUP_ATTR_STATE", 0x3FFF0084}, {"VI_WARN_UNKNOWN_STATUS", 0x3FFF0085}, {"VI_WARN_NSUP_BUF", 0x3FFF0088},
        {"VI_SUCCESS_NCHAIN", 0x3FFF0098}, {"VI_SUCCESS_NESTED_SHARED", 0x3FFF0099}, {"VI_SUCCESS_NESTED_EXCLUSIVE", 0x3FFF009A},
        {"VI_SUCCESS_SYNC", 0x3FFF009B}, {"VI_WARN_EXT_FUNC_NIMPL", 0x3FFF00A9}, {"VI_ERROR_SYSTEM_ERROR", 0xBFFF0000},
        {"VI_ERROR_INV_OBJECT", 0xBFFF000E}, {"VI_ERROR_RSRC_LOCKED", 0xBFFF000F}, {"VI_ERROR_INV_EXPR", 0xBFFF0010},
        {"VI_ERROR_RSRC_NFOUND", 0xBFFF0011}, {"VI_ERROR_INV_RSRC_NAME", 0xBFFF0012}, {"VI_ERROR_INV_ACC_MODE", 0xBFFF0013},
        {"VI_ERROR_TMO", 0xBFFF0015}, {"VI_ERROR_CLOSING_FAILED", 0xBFFF0016}, {"VI_ERROR_INV_DEGREE", 0xBFFF001B},
        {"VI_ERROR_INV_JOB_ID", 0xBFFF001C}, {"VI_ERROR_NSUP_ATTR", 0xBFFF001D}, {"VI_ERROR_NSUP_ATTR_STATE", 0xBFFF001E},
        {"VI_ERROR_ATTR_READONLY", 0xBFFF001F}, {"VI_ERROR_INV_LOCK_TYPE", 0xBFFF0020}, {"VI_ERROR_INV_ACCESS_KEY", 0xBFFF0021},
        {"VI_ERROR_INV_EVENT", 0xBFFF0026}, {"VI_ERROR_INV_MECH", 0xBFFF0027}, {"VI_ERROR_HNDLR_NINSTALLED", 0xBFFF0028},
        {"VI_ERROR_INV_HNDLR_REF", 0xBFFF0029}, {"VI_ERROR_INV_CONTEXT", 0xBFFF002A}, {"VI_ERROR_NENABLED", 0xBFFF002F},
        {"VI_ERROR_ABORT", 0xBFFF0030}, {"VI_ERROR_RAW_WR_PROT_VIOL", 0xBFFF0034}, {"VI_ERROR_RAW_RD_PROT_VIOL", 0xBFFF0035},
        {"VI_ERROR_OUTP_PROT_VIOL", 0xBFFF0036}, {"VI_ERROR_INP_PROT_VIOL", 0xBFFF0037}, {"VI_ERROR_BERR", 0xBFFF0038},
        {"VI_ERROR_IN_PROGRESS", 0xBFFF0039}, {"VI_ERROR_INV_SETUP", 0xBFFF003A}, {"VI_ERROR_QUEUE_ERROR", 0xBFFF003B},
        {"VI_ERROR_ALLOC", 0xBFFF003C}, {"VI_ERROR_INV_MASK", 0xBFFF003D}, {"VI_ERROR_IO", 0xBFFF003E},
        {"VI_ERROR_INV_FMT", 0xBFFF003F}, {"VI_ERROR_NSUP_FMT", 0xBFFF0041}, {"VI_ERROR_LINE_IN_USE", 0xBFFF0042},
        {"VI_ERROR_NSUP_MODE", 0xBFFF0046}, {"VI_ERROR_SRQ_NOCCURRED", 0xBFFF004A}, {"VI_ERROR_INV_SPACE", 0xBFFF004E},
        {"VI_ERROR_INV_OFFSET", 0xBFFF0051}, {"VI_ERROR_INV_WIDTH", 0xBFFF0052}, {"VI_ERROR_NSUP_OFFSET", 0xBFFF0054},
        {"VI_ERROR_NSUP_VAR_WIDTH", 0xBFFF0055}, {"VI_ERROR_WINDOW_NMAPPED", 0xBFFF0057}, {"VI_ERROR_RESP_PENDING", 0xBFFF0059},
        {"VI_ERROR_NLISTENERS", 0xBFFF005F}, {"VI_ERROR_NCIC", 0xBFFF0060}, {"VI_ERROR_NSYS_CNTLR", 0xBFFF0061},
        {"VI_ERROR_NSUP_OPER", 0xBFFF0067}, {"VI_ERROR_INTR_PENDING", 0xBFFF0068}, {"VI_ERROR_ASRL_PARITY", 0xBFFF006A},
        {"VI_ERROR_ASRL_FRAMING", 0xBFFF006B}, {"VI_ERROR_ASRL_OVERRUN", 0xBFFF006C}, {"VI_ERROR_TRIG_NMAPPED", 0xBFFF006E},
        {"VI_ERROR_NSUP_ALIGN_OFFSET", 0xBFFF0070}, {"VI_ERROR_USER_BUF", 0xBFFF0071}, {"VI_ERROR_RSRC_BUSY", 0xBFFF0072},
        {"VI_ERROR_NSUP_WIDTH", 0xBFFF0076}, {"VI_ERROR_INV_PARAMETER", 0xBFFF0078}, {"VI_ERROR_INV_PROT", 0xBFFF0079},
        {"VI_ERROR_INV_SIZE", 0xBFFF007B}, {"VI_ERROR_WINDOW_MAPPED", 0xBFFF0080}, {"VI_ERROR_NIMPL_OPER", 0xBFFF0081},
        {"VI_ERROR_INV_LENGTH", 0xBFFF0083}, {"VI_ERROR_INV_MODE", 0xBFFF0091}, {"VI_ERROR_SESN_NLOCKED", 0xBFFF009C},
        {"VI_ERROR_MEM_NSHARED", 0xBFFF009D}, {"VI_ERROR_LIBRARY_NFOUND", 0xBFFF009E}, {"VI_ERROR_NSUP_INTR", 0xBFFF009F},
        {"VI_ERROR_INV_LINE", 0xBFFF00A0}, {"VI_ERROR_FILE_ACCESS", 0xBFFF00A1}, {"VI_ERROR_FILE_IO", 0xBFFF00A2},
        {"VI_ERROR_NSUP_LINE", 0xBFFF00A3}, {"VI_ERROR_NSUP_MECH", 0xBFFF00A4}, {"VI_ERROR_INTF_NUM_NCONFIG", 0xBFFF00A5},
        {"VI_ERROR_CONN_LOST", 0xBFFF00A6},
    };
    // clang-format on
    QCOMPARE(std::size(all), std::size_t(97));
    for (const Named& n : all)
        QCOMPARE(status2string(static_cast<int>(n.code)), QString::fromLatin1(n.name));
}

void TestValueFormat::unknownStatus_data()
{
    QTest::addColumn<quint32>("code");
    QTest::newRow("between two warnings") << 0x3FFF0001u;
    QTest::newRow("below the first error") << 0xBFFEFFFFu;
    QTest::newRow("above the last error") << 0xBFFF00A7u;
    QTest::newRow("a newer standard code") << 0xBFFF00AAu;
    QTest::newRow("minus one") << 0xFFFFFFFFu;
    QTest::newRow("one") << 1u;
}

void TestValueFormat::unknownStatus()
{
    QFETCH(quint32, code);
    QCOMPARE(status2string(static_cast<int>(code)), QStringLiteral("Unknown Status"));
}

void TestValueFormat::duration_data()
{
    QTest::addColumn<double>("seconds");
    QTest::addColumn<QString>("text");
    QTest::newRow("above one second") << 1.2345 << QStringLiteral("1.234 s");
    QTest::newRow("exactly one second") << 1.0 << QStringLiteral("1000.000 ms");
    QTest::newRow("milliseconds") << 0.0123456 << QStringLiteral("12.346 ms");
    QTest::newRow("exactly one millisecond") << 0.001 << QString::fromUtf8("1000.0 \xC2\xB5s");
    QTest::newRow("microseconds") << 0.0000255 << QString::fromUtf8("25.5 \xC2\xB5s");
    QTest::newRow("exactly one microsecond") << 0.000001 << QStringLiteral("1000 ns");
    QTest::newRow("zero") << 0.0 << QStringLiteral("0 ns");
    QTest::newRow("negative") << -0.5 << QStringLiteral("-500000000 ns");
}

void TestValueFormat::duration()
{
    QFETCH(double, seconds);
    QFETCH(QString, text);
    QCOMPARE(duration2string(seconds), text);
}

void TestValueFormat::timestamp_data()
{
    QTest::addColumn<qint64>("seconds");
    QTest::addColumn<double>("fraction");
    QTest::addColumn<QString>("text");
    QTest::newRow("quarter") << Q_INT64_C(1700000000) << 0.25 << QStringLiteral("22:13:20.250");
    QTest::newRow("rounds down to zero") << Q_INT64_C(1700000000) << 0.0004 << QStringLiteral("22:13:20.000");
    QTest::newRow("never carries into the seconds")
        << Q_INT64_C(1700000000) << 0.9996 << QStringLiteral("22:13:20.000");
    QTest::newRow("midnight") << Q_INT64_C(0) << 0.999 << QStringLiteral("00:00:00.999");
}

void TestValueFormat::timestamp()
{
    QFETCH(qint64, seconds);
    QFETCH(double, fraction);
    QFETCH(QString, text);
    const long s = static_cast<long>(seconds);
    QCOMPARE(timestamp2string(s, fraction), text);
}

void TestValueFormat::filterStrings_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("filtered");
    QTest::newRow("write keeps only the string")
        << QStringLiteral("viWrite(0x00000001, \"*IDN?\\n\", 6, 6)") << QStringLiteral("viWrite(\"*IDN?\\n\")");
    QTest::newRow("two strings separated by a comma") << QStringLiteral("viOpen(1, \"GPIB0::1::INSTR\", \"x\")")
                                                      << QStringLiteral("viOpen(\"GPIB0::1::INSTR\",\"x\")");
    QTest::newRow("inner quote that does not close")
        << QStringLiteral("viWrite(1, \"a\"b\", 3)") << QStringLiteral("viWrite(\"a\"b\")");
    QTest::newRow("escaped quote stays inside")
        << QStringLiteral("viWrite(1, \"a\\\"b\")") << QStringLiteral("viWrite(\"a\\\"b\")");
    QTest::newRow("unterminated string runs to the end")
        << QStringLiteral("viWrite(1, \"abc") << QStringLiteral("viWrite(\"abc)");
    QTest::newRow("no parenthesis, no quotes") << QStringLiteral("viClose") << QStringLiteral(")");
    QTest::newRow("no parenthesis, a string") << QStringLiteral("x \"y\"") << QStringLiteral("\"y\")");
    QTest::newRow("set attribute") << QStringLiteral("viSetAttribute(0x1, attribute=VI_ATTR_TMO_VALUE, value=5000)")
                                   << QStringLiteral("viSetAttribute(VI_ATTR_TMO_VALUE,5000)");
    QTest::newRow("attribute with two parts shows only the name")
        << QStringLiteral("viSetAttribute(0x1, VI_ATTR_TMO_VALUE=5000)") << QStringLiteral("viSetAttribute(");
    QTest::newRow("part without a value keeps its comma")
        << QStringLiteral("viGetAttribute(1, A, C=D)") << QStringLiteral("viGetAttribute(,D)");
    QTest::newRow("get attribute with three parts")
        << QStringLiteral("viGetAttribute(1, A=B, C=D)") << QStringLiteral("viGetAttribute(B,D)");
    QTest::newRow("attribute with four parts shows only the name")
        << QStringLiteral("viGetAttribute(1, A=B, C=D, E)") << QStringLiteral("viGetAttribute(");
    QTest::newRow("count prefix is part of the text")
        << QStringLiteral("3 x viWrite(1, \"a\")") << QStringLiteral("3 x viWrite(\"a\")");
}

void TestValueFormat::filterStrings()
{
    QFETCH(QString, command);
    QFETCH(QString, filtered);
    QCOMPARE(ValueFormat::filterStrings(command), filtered);
}

QTEST_GUILESS_MAIN(TestValueFormat)
#include "tst_valueformat.moc"
