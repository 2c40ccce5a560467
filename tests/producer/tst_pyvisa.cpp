// A PyVISA script, unchanged, through the zeltrace backend against the simulated instrument: the
// segment receives exactly the calls the script made, each as a call and a return record.

#include "SequenceMark.h"
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
        QCOMPARE(script.readAllStandardOutput().trimmed(), QByteArray("timeout -1073807339\nraised TypeError"));

        control.copySharedMemory(true);
        const std::vector<FullEntry> records = walk(control);
        QVERIFY(records.size() >= 6);
        const QString rm = QString::number(records[1].session);
        const QString session = QString::number(records[5].session);
        const QString canonical = QStringLiteral("TCPIP0::127.0.0.1::") + port + QStringLiteral("::SOCKET");
        auto normal = [&](const char* text) {
            const QString s = QString::fromLatin1(text)
                                  .replace(canonical, QStringLiteral("A0"))
                                  .replace(address, QStringLiteral("A"));
            return s.isEmpty() ? QStringLiteral("-")
                               : QString(s).replace(rm, QStringLiteral("RM")).replace(session, QStringLiteral("S"));
        };
        // As pyvisa_session.py describes; "=>" only when the return follows its own call: same id, thread
        // and address, not earlier.
        QStringList lines;
        bool numbered = records[0].pid != static_cast<std::uint32_t>(getpid());
        for (std::size_t i = 0; i < records.size(); ++i) {
            const FullEntry& e = records[i];
            // The script's records are its own process's, numbered without a gap.
            numbered &= e.pid == records[0].pid && e.reserved == SequenceMark::mark(e.pid, i + 1);
            if (e.kind == 0 || i == 0) {
                lines << normal(e.address) + QLatin1Char(' ') + normal(e.text);
                continue;
            }
            const FullEntry& call = records[i - 1];
            const bool paired = call.kind == 0 && call.id == e.id && call.threadId == e.threadId
                && std::strcmp(call.address, e.address) == 0 && e.timestamp >= call.timestamp && e.duration >= 0;
            lines.last() += (paired ? QStringLiteral(" => ") : QStringLiteral(" =/> ")) + QString::number(e.status)
                + QLatin1Char(' ') + (std::strcmp(call.text, e.text) == 0 ? QStringLiteral("=") : normal(e.text));
        }
        QFile expected(QStringLiteral(ZEL_SESSION_TRACE));
        QVERIFY(expected.open(QIODevice::ReadOnly));
        QCOMPARE(lines, QString::fromLatin1(expected.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts));
        QVERIFY(numbered);
        QVERIFY(records[37].duration >= 1.5 && records[37].duration < 30); // the session's timeout, waited
    }
};

QTEST_GUILESS_MAIN(TestPyVisa)
#include "tst_pyvisa.moc"
