#include "ValueFormat.h"

#include <QtTest>

#include <ctime>

using namespace ValueFormat;

class TestValueFormat : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        qputenv("TZ", "UTC");
        tzset();
    }

    void everyStatusName_data()
    {
        // Name without its prefix = low bits of the code, in hex.
        QTest::addColumn<QString>("prefix");
        QTest::addColumn<quint32>("base");
        QTest::addColumn<QString>("names");
        // clang-format off
        QTest::newRow("successes and warnings") << QStringLiteral("VI_") << 0x3FFF0000u << QStringLiteral(
            "SUCCESS=0 SUCCESS_EVENT_EN=2 SUCCESS_EVENT_DIS=3 SUCCESS_QUEUE_EMPTY=4 SUCCESS_TERM_CHAR=5 "
            "SUCCESS_MAX_CNT=6 WARN_QUEUE_OVERFLOW=C WARN_CONFIG_NLOADED=77 SUCCESS_DEV_NPRESENT=7D "
            "SUCCESS_TRIG_MAPPED=7E SUCCESS_QUEUE_NEMPTY=80 WARN_NULL_OBJECT=82 WARN_NSUP_ATTR_STATE=84 "
            "WARN_UNKNOWN_STATUS=85 WARN_NSUP_BUF=88 SUCCESS_NCHAIN=98 SUCCESS_NESTED_SHARED=99 "
            "SUCCESS_NESTED_EXCLUSIVE=9A SUCCESS_SYNC=9B WARN_EXT_FUNC_NIMPL=A9");
        QTest::newRow("errors") << QStringLiteral("VI_ERROR_") << 0xBFFF0000u << QStringLiteral(
            "SYSTEM_ERROR=0 INV_OBJECT=E RSRC_LOCKED=F INV_EXPR=10 RSRC_NFOUND=11 INV_RSRC_NAME=12 "
            "INV_ACC_MODE=13 TMO=15 CLOSING_FAILED=16 INV_DEGREE=1B INV_JOB_ID=1C NSUP_ATTR=1D NSUP_ATTR_STATE=1E "
            "ATTR_READONLY=1F INV_LOCK_TYPE=20 INV_ACCESS_KEY=21 INV_EVENT=26 INV_MECH=27 HNDLR_NINSTALLED=28 "
            "INV_HNDLR_REF=29 INV_CONTEXT=2A NENABLED=2F ABORT=30 RAW_WR_PROT_VIOL=34 RAW_RD_PROT_VIOL=35 "
            "OUTP_PROT_VIOL=36 INP_PROT_VIOL=37 BERR=38 IN_PROGRESS=39 INV_SETUP=3A QUEUE_ERROR=3B ALLOC=3C "
            "INV_MASK=3D IO=3E INV_FMT=3F NSUP_FMT=41 LINE_IN_USE=42 NSUP_MODE=46 SRQ_NOCCURRED=4A INV_SPACE=4E "
            "INV_OFFSET=51 INV_WIDTH=52 NSUP_OFFSET=54 NSUP_VAR_WIDTH=55 WINDOW_NMAPPED=57 RESP_PENDING=59 "
            "NLISTENERS=5F NCIC=60 NSYS_CNTLR=61 NSUP_OPER=67 INTR_PENDING=68 ASRL_PARITY=6A ASRL_FRAMING=6B "
            "ASRL_OVERRUN=6C TRIG_NMAPPED=6E NSUP_ALIGN_OFFSET=70 USER_BUF=71 RSRC_BUSY=72 NSUP_WIDTH=76 "
            "INV_PARAMETER=78 INV_PROT=79 INV_SIZE=7B WINDOW_MAPPED=80 NIMPL_OPER=81 INV_LENGTH=83 INV_MODE=91 "
            "SESN_NLOCKED=9C MEM_NSHARED=9D LIBRARY_NFOUND=9E NSUP_INTR=9F INV_LINE=A0 FILE_ACCESS=A1 FILE_IO=A2 "
            "NSUP_LINE=A3 NSUP_MECH=A4 INTF_NUM_NCONFIG=A5 CONN_LOST=A6");
        // Between two warnings, below the first and above the last error, a newer standard code, -1, 1.
        QTest::newRow("codes without a name") << QStringLiteral("Unknown Status") << 0u << QStringLiteral(
            "=3FFF0001 =BFFEFFFF =BFFF00A7 =BFFF00AA =FFFFFFFF =1");
        // clang-format on
    }

    void everyStatusName()
    {
        QFETCH(QString, prefix);
        QFETCH(quint32, base);
        QFETCH(QString, names);
        for (const QString& pair : names.split(QLatin1Char(' '))) {
            const QString name = prefix + pair.section(QLatin1Char('='), 0, 0);
            const quint32 low = pair.section(QLatin1Char('='), 1).toUInt(nullptr, 16);
            // VI_SUCCESS is 0 itself, not the base.
            const quint32 code = name == QLatin1String("VI_SUCCESS") ? 0 : base | low;
            QCOMPARE(status2string(static_cast<int>(code)), name);
        }
    }

    void duration_data()
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

    void duration()
    {
        QFETCH(double, seconds);
        QTEST(duration2string(seconds), "text");
    }

    void timestamp_data()
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

    void timestamp()
    {
        QFETCH(qint64, seconds);
        QFETCH(double, fraction);
        QTEST(timestamp2string(static_cast<long>(seconds), fraction), "text");
    }

    void filterStrings_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("filtered");
        auto row = [](const char* name, const char* command, const char* filtered) {
            QTest::newRow(name) << QString::fromLatin1(command) << QString::fromLatin1(filtered);
        };
        row("write keeps only the string", "viWrite(0x00000001, \"*IDN?\\n\", 6, 6)", "viWrite(\"*IDN?\\n\")");
        row("two strings separated by a comma", "viOpen(1, \"GPIB0::1::INSTR\", \"x\")",
            "viOpen(\"GPIB0::1::INSTR\",\"x\")");
        row("inner quote that does not close", "viWrite(1, \"a\"b\", 3)", "viWrite(\"a\"b\")");
        row("escaped quote stays inside", "viWrite(1, \"a\\\"b\")", "viWrite(\"a\\\"b\")");
        row("unterminated string runs to the end", "viWrite(1, \"abc", "viWrite(\"abc)");
        row("no parenthesis, no quotes", "viClose", ")");
        row("no parenthesis, a string", "x \"y\"", "\"y\")");
        row("set attribute", "viSetAttribute(0x1, attribute=VI_ATTR_TMO_VALUE, value=5000)",
            "viSetAttribute(VI_ATTR_TMO_VALUE,5000)");
        row("attribute with two parts shows only the name", "viSetAttribute(0x1, VI_ATTR_TMO_VALUE=5000)",
            "viSetAttribute(");
        row("part without a value keeps its comma", "viGetAttribute(1, A, C=D)", "viGetAttribute(,D)");
        row("get attribute with three parts", "viGetAttribute(1, A=B, C=D)", "viGetAttribute(B,D)");
        row("attribute with four parts shows only the name", "viGetAttribute(1, A=B, C=D, E)", "viGetAttribute(");
        row("count prefix is part of the text", "3 x viWrite(1, \"a\")", "3 x viWrite(\"a\")");
    }

    void filterStrings()
    {
        QFETCH(QString, command);
        QTEST(ValueFormat::filterStrings(command), "filtered");
    }
};

QTEST_GUILESS_MAIN(TestValueFormat)
#include "tst_valueformat.moc"
