// A PyVISA script, unchanged, through the zeltrace backend against the simulated instrument: the
// segment receives exactly the calls the script made, each as a call and a return record.

#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QtTest>

using namespace ZelTracer;

class TestPyVisa : public QObject
{
    Q_OBJECT

private slots:
    void scriptCallsArriveAsCallAndReturnRecords()
    {
        PrivateSegment segment(47);
        TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
        control.setTracingActive(true);

        QProcess instrument;
        instrument.start(QStringLiteral(ZEL_INSTRUMENT_PATH), {QStringLiteral("--port"), QStringLiteral("0")});
        QVERIFY(instrument.waitForReadyRead(10000));
        const QByteArray listening = instrument.readLine().trimmed();
        QVERIFY2(listening.startsWith("listening on "), listening.constData());
        const QString port = QString::fromLatin1(listening.mid(13));
        const QString address = QStringLiteral("TCPIP::127.0.0.1::") + port + QStringLiteral("::SOCKET");

        QProcess script;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("PYTHONPATH"), QStringLiteral(ZEL_PYTHON_PACKAGES));
        env.insert(QStringLiteral("PYTHONDONTWRITEBYTECODE"), QStringLiteral("1"));
        env.insert(QStringLiteral("PYVISA_LIBRARY"), QStringLiteral("py@zeltrace"));
        env.insert(QStringLiteral("ZELTRACE_LIBRARY"), QStringLiteral(ZELTRACE_LIBRARY_PATH));
        env.insert(QStringLiteral("ZELTRACE_KEY"), QString::number(segment.key));
        env.insert(QStringLiteral("ZELTRACE_SEMAPHORE"), QString::fromStdString(segment.semaphore));
        env.insert(QStringLiteral("ZELTRACE_FILE_SEMAPHORE"), QString::fromStdString(segment.fileSemaphore));
#ifdef ZEL_PRELOAD
        env.insert(QStringLiteral("LD_PRELOAD"), QStringLiteral(ZEL_PRELOAD));
        env.insert(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("detect_leaks=0")); // the interpreter's own
#endif
        script.setProcessEnvironment(env);
        script.start(QStringLiteral(ZEL_PYTHON), {QStringLiteral(ZEL_SESSION_SCRIPT), port});
        QVERIFY(script.waitForFinished(60000));
        instrument.kill();
        instrument.waitForFinished();
        QVERIFY2(script.exitCode() == 0, script.readAllStandardError().constData());
        QCOMPARE(script.readAllStandardOutput().trimmed(), QByteArray("timeout -1073807339"));

        control.copySharedMemory(true);
        const std::vector<FullEntry> records = walk(control);
        QVERIFY(records.size() >= 6);
        const QString rm = QString::number(records[1].session);
        const QString session = QString::number(records[5].session);
        const QString canonical = QStringLiteral("TCPIP0::127.0.0.1::") + port + QStringLiteral("::SOCKET");
        auto normal = [&](const char* text) {
            return QString::fromLatin1(text)
                .replace(canonical, QStringLiteral("ADDR0"))
                .replace(address, QStringLiteral("ADDR"))
                .replace(rm, QStringLiteral("RM"))
                .replace(session, QStringLiteral("S"));
        };
        QStringList actual;
        for (const FullEntry& e : records) {
            actual << QString::number(e.kind) + QLatin1Char(' ') + QString::number(e.status) + QLatin1Char(' ')
                    + normal(e.address) + QLatin1Char(' ') + normal(e.text);
        }
        // A call and its return on the instrument session; `both` when the return shows the same text.
        const QString call = QStringLiteral("0 0 ADDR0 "), done = QStringLiteral("1 0 ADDR0 ");
        const QString answered = QStringLiteral("1 1073676293 ADDR0 "); // VI_SUCCESS_TERM_CHAR
        auto both = [&](const char* text) {
            return QStringList {call + QLatin1String(text), done + QLatin1String(text)};
        };
        auto io = [&](const char* command, int length) {
            const QString written = QStringLiteral("viWrite(S, \"%1\\n\", %2").arg(QLatin1String(command)).arg(length);
            return QStringList {call + written + QLatin1Char(')'),
                                done + written + QStringLiteral(", %1)").arg(length)};
        };
        const QString read = call + QStringLiteral("viRead(S, \"\", 20480)");
        const QStringList expected
            = QStringList {QStringLiteral("0 0  viOpenDefaultRM()"),
                           QStringLiteral("1 0  viOpenDefaultRM(RM)"),
                           QStringLiteral("0 0 ADDR viParseRsrcEx(RM, \"ADDR\")"),
                           QStringLiteral("1 0 ADDR viParseRsrcEx(RM, \"ADDR\", {6, 0, \"SOCKET\", \"ADDR0\", NULL})"),
                           call + QStringLiteral("viOpen(RM, \"ADDR0\", 0, 0)"),
                           done + QStringLiteral("viOpen(RM, \"ADDR0\", 0, 0, S)")}
            + both("viSetAttribute(S, attribute=VI_ATTR_TERMCHAR, value=10)")
            + both("viSetAttribute(S, attribute=VI_ATTR_TERMCHAR_EN, value=1)")
            + both("viSetAttribute(S, attribute=VI_ATTR_TMO_VALUE, value=1500)") + io("*IDN?", 6)
            + QStringList {read, answered + QStringLiteral("viRead(S, \"Zelbrook,ZSIM-100,000001,1.0\\n\", 20480, 29)")}
            + io("MEAS:VOLT?", 11)
            + QStringList {read, answered + QStringLiteral("viRead(S, \"+1.000000E+00\\n\", 20480, 14)")}
            + io("BOGUS", 6) + io("SYST:ERR?", 10)
            + QStringList {read,
                           answered + QStringLiteral("viRead(S, \"-113,\\\"Undefined header\\\"\\n\", 20480, 24)")}
            + io("TRAC:DATA?", 11)
            // The block holds a line feed: the first read stops there, the rest of the block follows.
            + QStringList {read,
                           answered
                               + QStringLiteral(
                                   "viRead(S, \"#216\\x00\\x01\\x02\\x03\\x04\\x05\\x06\\x07\\x08\\t\\n\", 20480, 15)"),
                           call + QStringLiteral("viRead(S, \"\", 6)"),
                           answered + QStringLiteral("viRead(S, \"\\x0b\\x0c\\r\\x0e\\x0f\\n\", 6, 6)")}
            + io("SIM:SILENT ON", 14) + io("*IDN?", 6)
            + QStringList {read, QStringLiteral("1 -1073807339 ADDR0 viRead(S, \"\", 20480, 0)")} // VI_ERROR_TMO
            + both("viDisableEvent(S, 1073709055, 65535)") + both("viDiscardEvents(S, 1073709055, 65535)")
            + both("viClose(S)") + QStringList {QStringLiteral("0 0  viClose(RM)"), QStringLiteral("1 0  viClose(RM)")};
        QCOMPARE(actual.join(QLatin1Char('\n')), expected.join(QLatin1Char('\n')));

        // Every call is followed by its own return: same id, process and thread; the process's records
        // are numbered without a gap; the timed-out read lasted the session's 1.5 s timeout.
        const std::uint32_t pid = records[0].pid;
        for (std::size_t i = 0; i < records.size(); ++i) {
            const FullEntry& e = records[i];
            QCOMPARE(e.pid, pid);
            QCOMPARE(e.reserved, TraceProducer::s_SequenceTag | (i + 1));
            if (e.kind == 1) {
                QCOMPARE(e.id, records[i - 1].id);
                QCOMPARE(e.threadId, records[i - 1].threadId);
                QVERIFY(e.duration >= 0 && e.timestamp >= records[i - 1].timestamp);
            }
        }
        QVERIFY(pid != static_cast<std::uint32_t>(getpid()));
        QVERIFY(records[37].duration >= 1.5 && records[37].duration < 30);
    }
};

QTEST_GUILESS_MAIN(TestPyVisa)
#include "tst_pyvisa.moc"
