// Programs traced without a change: C programs linked with a VISA library or loading it at run time,
// and a PyVISA script on the @ivi backend, run through zel-run against libvisa-sim and zel-instrument,
// on private segment names; the records are read back through the channel control.

#include "SequenceMark.h"
#include "TraceProducer.h"
#include "TraceTestSupport.h"

#include <QtTest>

using namespace ZelTracer;

namespace {

QString operator""_q(const char* text, std::size_t size)
{
    return QString::fromUtf8(text, static_cast<int>(size));
}

// What a program printed and how it ended.
struct Outcome
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

// zel-instrument on a free port, for one test.
class Instrument
{
public:
    Instrument()
    {
        process.start(QStringLiteral(ZEL_INSTRUMENT), {"--port"_q, "0"_q});
        if (process.waitForReadyRead(10000)) {
            const QByteArray line = process.readLine().trimmed();
            if (line.startsWith("listening on "))
                port = QString::fromLatin1(line.mid(13));
        }
    }
    ~Instrument()
    {
        process.kill();
        process.waitForFinished();
    }
    QProcess process;
    QString port;
};

} // namespace

class TestVisaPrograms : public QObject
{
    Q_OBJECT

    QTemporaryDir config; // an empty configuration home: a user's zelvisa.conf never takes part

    // The environment of a traced program: the private segment, and nothing of the user's.
    QProcessEnvironment environment(PrivateSegment const& segment) const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const char* name : {"ZELVISA_LIBRARY", "PYVISA_LIBRARY", "LD_PRELOAD", "ZELVISA_SIM_RESOURCES"})
            env.remove(QString::fromLatin1(name));
        env.insert("ZELTRACE_KEY"_q, QString::number(segment.key));
        env.insert("ZELTRACE_SEMAPHORE"_q, QString::fromStdString(segment.semaphore));
        env.insert("ZELTRACE_FILE_SEMAPHORE"_q, QString::fromStdString(segment.fileSemaphore));
        env.insert("XDG_CONFIG_HOME"_q, config.path());
        env.insert("PYTHONDONTWRITEBYTECODE"_q, "1"_q);
#ifdef ZEL_PRELOAD
        env.insert("LD_PRELOAD"_q, QStringLiteral(ZEL_PRELOAD)); // zel-run keeps them first
        env.insert("ASAN_OPTIONS"_q, "detect_leaks=0"_q); // the interpreter's own
#endif
        return env;
    }

    static Outcome run(QString const& program, QStringList const& arguments, QProcessEnvironment const& env)
    {
        QProcess p;
        p.setProcessEnvironment(env);
        p.start(program, arguments);
        Outcome o;
        if (!p.waitForFinished(60000)) {
            p.kill();
            p.waitForFinished();
            return o;
        }
        o.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
        o.out = p.readAllStandardOutput();
        o.err = p.readAllStandardError();
        return o;
    }

    static Outcome traced(QStringList const& arguments, QProcessEnvironment const& env)
    {
        return run(QStringLiteral(ZEL_RUN), arguments, env);
    }

    // One line per call: the call record's address and text, "=>", then the return record's status
    // and text ("=" when unchanged); "=/>" where the return does not follow its own call.
    static QStringList callLines(std::vector<FullEntry> const& records, QString const& port)
    {
        auto normal = [&](const char* text) {
            const QString s = QString::fromLatin1(text).replace(port, "PORT"_q);
            return s.isEmpty() ? "-"_q : s;
        };
        QStringList lines;
        for (std::size_t i = 0; i < records.size(); ++i) {
            const FullEntry& e = records[i];
            if (e.kind == 0 || i == 0) {
                lines << normal(e.address) + QLatin1Char(' ') + normal(e.text);
                continue;
            }
            const FullEntry& call = records[i - 1];
            const bool paired = call.kind == 0 && call.id == e.id && call.threadId == e.threadId
                && std::strcmp(call.address, e.address) == 0 && e.duration >= 0;
            lines.last() += (paired ? " => "_q : " =/> "_q) + QString::number(e.status) + QLatin1Char(' ')
                + (std::strcmp(call.text, e.text) == 0 ? "="_q : normal(e.text));
        }
        return lines;
    }

    static QStringList fileLines(QString const& name)
    {
        QFile file(QStringLiteral(ZEL_VISA_DATA "/") + name);
        return file.open(QIODevice::ReadOnly)
            ? QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts)
            : QStringList {"cannot read "_q + file.fileName()};
    }

    static QStringList lines(QByteArray const& text)
    {
        return QString::fromUtf8(text).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

private slots:
    // The same session written four ways leaves the same records: linked with the library, loading it
    // by a usual name or by its path and looking the functions up on the handle, and as a PyVISA script.
    void sessionFourWays_data()
    {
        QTest::addColumn<QStringList>("arguments"); // for zel-run; PORT is the instrument's port
        QTest::addColumn<QByteArray>("printed"); // the end of what the program printed
        const QString sim = QStringLiteral(ZEL_SIM);
        const QByteArray closed = "close 0 0\n";
        // Without --visa the calls go to the library the program uses itself.
        QTest::newRow("C, linked") << QStringList {ZEL_SESSION_LINKED ""_q, "PORT"_q} << closed;
        QTest::newRow("C, dlopen by path, dlsym on the handle")
            << QStringList {ZEL_SESSION_DLOPEN ""_q, "PORT"_q, sim} << closed;
        QTest::newRow("C, dlopen by a usual name")
            << QStringList {"--visa"_q, sim, ZEL_SESSION_DLOPEN ""_q, "PORT"_q, "libvisa.so"_q} << closed;
        QTest::newRow("PyVISA @ivi") << QStringList {"--visa"_q, sim, ZEL_PYTHON ""_q, ZEL_IVI_SCRIPT ""_q, "PORT"_q}
                                     << QByteArray("timeout -1073807339\n");
    }
    void sessionFourWays()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, printed);
        PrivateSegment segment(50);
        TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
        control.setTracingActive(true);
        Instrument instrument;
        QVERIFY(!instrument.port.isEmpty());
        arguments.replaceInStrings("PORT"_q, instrument.port);

        const Outcome o = traced(arguments, environment(segment));
        QVERIFY2(o.exitCode == 0, o.err.constData());
        QVERIFY2(o.out.endsWith(printed), o.out.constData());
        QVERIFY2(o.err.isEmpty(), o.err.constData());

        control.copySharedMemory(true);
        const std::vector<FullEntry> records = walk(control);
        QCOMPARE(callLines(records, instrument.port), fileLines("session.trace"_q));
        // The program's own process, numbered without a gap.
        bool numbered = !records.empty();
        for (std::size_t i = 0; i < records.size(); ++i)
            numbered
                &= records[i].pid == records[0].pid && records[i].reserved == SequenceMark::mark(records[i].pid, i + 1);
        QVERIFY(numbered);
    }

    // Every function of the API, called through libzelvisa, returns what the library returned, leaves
    // the errno it left and the outputs it wrote, whether the call is recorded or not; a function the
    // library lacks stays missing. Recorded, each present function is one call and one return record.
    void programSeesTheSame_data()
    {
        QTest::addColumn<QString>("state");
        QTest::newRow("tracing on") << "on"_q;
        QTest::newRow("tracing off") << "off"_q;
        QTest::newRow("no usable segment") << "no segment"_q;
    }
    void programSeesTheSame()
    {
        QFETCH(QString, state);
        PrivateSegment segment(51);
        const QStringList arguments {ZEL_EVERY_CALL ""_q, ZEL_STUB ""_q};
        const Outcome direct = run(arguments[0], arguments.mid(1), environment(segment));
        QCOMPARE(direct.exitCode, 0);
        std::unique_ptr<TraceChannelControl> control;
        if (state == "no segment"_q) {
            // A segment of another size under the key: the program cannot attach to it.
            QVERIFY(shmget(segment.key, 4096, IPC_CREAT | 0600) != -1);
        } else {
            control = std::make_unique<TraceChannelControl>(segment.key, s_VisaSharedMemorySize, segment.semaphore);
            control->setTracingActive(state == "on"_q);
        }

        const Outcome viaRun = traced(arguments, environment(segment));
        QCOMPARE(viaRun.exitCode, 0);
        QCOMPARE(lines(viaRun.out), lines(direct.out));
        QVERIFY2(viaRun.err.isEmpty(), viaRun.err.constData());

        QStringList expected; // per present function: its name and status, twice
        for (QString const& line : lines(direct.out)) {
            const QStringList fields = line.split(QLatin1Char(' '));
            if (fields[1] != "missing"_q && state == "on"_q)
                expected << fields[0] + QLatin1Char(' ') + fields[0] + QLatin1Char(' ') + fields[1];
        }
        QStringList recorded;
        if (control) {
            control->copySharedMemory(true);
            for (FullEntry const& e : walk(*control)) {
                const QString name = QString::fromLatin1(e.text).section(QLatin1Char('('), 0, 0);
                if (e.kind == 0)
                    recorded << name;
                else if (!recorded.isEmpty())
                    recorded.last() += QLatin1Char(' ') + name + QLatin1Char(' ') + QString::number(e.status);
            }
        }
        QCOMPARE(recorded, expected);
    }

    // Formatted I/O with varargs gives the same results traced; the records show the format and what
    // went through the library's own viWrite and viRead, which are not recorded themselves.
    void formattedIo()
    {
        PrivateSegment segment(52);
        TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
        control.setTracingActive(true);
        Instrument instrument;
        QVERIFY(!instrument.port.isEmpty());
        const Outcome plain = run(ZEL_FORMATTED ""_q, {instrument.port}, environment(segment));
        control.copySharedMemory(true);
        QCOMPARE(walk(control).size(), std::size_t(0));
        const Outcome viaRun = traced({ZEL_FORMATTED ""_q, instrument.port}, environment(segment));
        QCOMPARE(plain.exitCode, 0);
        QCOMPARE(viaRun.exitCode, 0);
        QCOMPARE(lines(viaRun.out), lines(plain.out));
        QCOMPARE(lines(plain.out), fileLines("formatted.out"_q));
        control.copySharedMemory(true);
        QCOMPARE(callLines(walk(control), instrument.port), fileLines("formatted.trace"_q));
    }

    // A service request reaches the handler one thread installed while another thread writes: the
    // delivery is recorded on the library's thread around the handler's own VISA calls, and the
    // handler gets its user handle. Then the same request through the event queue.
    void handlerDeliveredWhileAnotherThreadWrites()
    {
        PrivateSegment segment(53);
        TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
        control.setTracingActive(true);
        Instrument instrument;
        QVERIFY(!instrument.port.isEmpty());
        const Outcome o = traced({ZEL_THREADS ""_q, instrument.port}, environment(segment));
        QVERIFY2(o.exitCode == 0, o.err.constData());
        QCOMPARE(lines(o.out),
                 QStringList({"install 0"_q, "enable 0"_q, "delivered 1 stb 64 type ok handle 1 traffic ok"_q,
                              "queue 0"_q, "wait 0 ok"_q}));

        control.copySharedMemory(true);
        const std::vector<FullEntry> records = walk(control);
        auto threadOf = [&](const char* start) {
            for (FullEntry const& e : records) {
                if (e.kind == 0 && std::strncmp(e.text, start, std::strlen(start)) == 0)
                    return e.threadId;
            }
            return 0u;
        };
        const std::uint32_t main = threadOf("viInstallHandler(");
        const std::uint32_t writer = threadOf("viWrite(3, \"MEAS:CURR?");
        const std::uint32_t library = threadOf("viEventHandler(");
        QVERIFY(main && writer && library);
        QVERIFY(library != main && library != writer && writer != main);
        // Per thread, its records in order; the event context and the user handle vary from run to run.
        auto normal = [&](QStringList list) {
            return list.replaceInStrings(instrument.port, "PORT"_q)
                .replaceInStrings(QRegularExpression("0x[0-9A-F]+"_q), "HANDLE"_q)
                .replaceInStrings(QRegularExpression("\\b[4-9]\\b(?=[,)])"_q), "E"_q);
        };
        auto threadLines = [&](std::uint32_t thread) {
            std::vector<FullEntry> own;
            std::copy_if(records.begin(), records.end(), std::back_inserter(own),
                         [thread](FullEntry const& e) { return e.threadId == thread; });
            return normal(callLines(own, instrument.port));
        };
        // The delivery encloses the handler's own calls.
        QStringList delivery;
        for (FullEntry const& e : records) {
            if (e.threadId == library)
                delivery << (e.kind == 0 ? "call "_q : "return "_q + QString::number(e.status) + QLatin1Char(' '))
                        + QString::fromLatin1(e.text);
        }
        QCOMPARE(normal(delivery),
                 QStringList({"call viEventHandler(2, 1073684491, E, HANDLE)"_q, "call viReadSTB(2)"_q,
                              "return 0 viReadSTB(2, 64)"_q, "call viGetAttribute(E, attribute=VI_ATTR_EVENT_TYPE)"_q,
                              "return 0 viGetAttribute(E, attribute=VI_ATTR_EVENT_TYPE, value=1073684491)"_q,
                              "return 0 viEventHandler(2, 1073684491, E, HANDLE)"_q}));
        QVERIFY(threadLines(writer).filter(" viWrite(3, \"MEAS:CURR?\\n\", 11) => 0 "_q).size() >= 5);
        QVERIFY(threadLines(main).contains("TCPIP0::127.0.0.1::PORT::SOCKET viWaitOnEvent(2, 1073684491, 10000) => 0 "
                                           "viWaitOnEvent(2, 1073684491, 10000, 1073684491, E)"_q));
    }

    // Without a real library every function returns VI_ERROR_SYSTEM_ERROR and says why, once.
    void noVisaLibrary()
    {
        PrivateSegment segment(54);
        TraceChannelControl control(segment.key, s_VisaSharedMemorySize, segment.semaphore);
        control.setTracingActive(true);
        QProcessEnvironment env = environment(segment);
        env.insert("ZELVISA_LIBRARY"_q, "/nonexistent/libvisa.so"_q);
        const Outcome o = run(ZEL_EVERY_CALL ""_q, {ZEL_ZELVISA ""_q}, env);
        QCOMPARE(o.exitCode, 0);
        const QStringList printed = lines(o.out);
        QCOMPARE(printed.size(), 106);
        for (QString const& line : printed) {
            const QStringList fields = line.split(QLatin1Char(' '));
            const bool isVoid = fields[0].startsWith("viPeek"_q) || fields[0].startsWith("viPoke"_q);
            QCOMPARE(fields.mid(1, 2), QStringList({isVoid ? "0"_q : "-1073807360"_q, "4242"_q}));
        }
        QCOMPARE(lines(o.err).size(), 1);
        QVERIFY2(o.err.contains("cannot load ZELVISA_LIBRARY=/nonexistent/libvisa.so"), o.err.constData());
        control.copySharedMemory(true);
        QCOMPARE(walk(control).size(), std::size_t(2 * 106));
    }

    // A program that loads libzelvisa in place of its VISA library (the library path way) gets the one
    // zelvisa.conf names; functions that library lacks return VI_ERROR_NSUP_OPER.
    void configurationFile_data()
    {
        QTest::addColumn<QString>("opened"); // what the program loads as its VISA library
        QTest::addColumn<QByteArray>("file"); // STUB stands for the test library's path
        QTest::addColumn<bool>("used");
        QTest::addColumn<QByteArray>("message"); // on standard error; empty for none
        const QString zelvisa = QStringLiteral(ZEL_ZELVISA);
        QTest::newRow("names the library") << zelvisa << QByteArray("library = STUB\n") << true << QByteArray();
        QTest::newRow("through the libvisa.so link of the library path")
            << QStringLiteral(ZEL_LIBRARY_PATH_LINK) << QByteArray("library = STUB\n") << true << QByteArray();
        QTest::newRow("comments, blank lines, spaces")
            << zelvisa << QByteArray("# the vendor's library\n\n   library=STUB   \n") << true << QByteArray();
        QTest::newRow("an unknown setting is reported, the rest used")
            << zelvisa << QByteArray("colour = red\nlibrary = STUB\n") << true
            << QByteArray("zelvisa.conf: line 1: unknown setting 'colour'");
        QTest::newRow("a line without a setting") << zelvisa << QByteArray("STUB\n") << false
                                                  << QByteArray("zelvisa.conf: line 1: expected 'library = PATH'");
        QTest::newRow("a file that is not there")
            << zelvisa << QByteArray("library = /nonexistent/libvisa.so\n") << false
            << QByteArray("names /nonexistent/libvisa.so, which cannot be used");
        QTest::newRow("this library itself") << zelvisa << QByteArray("library = " ZEL_ZELVISA "\n") << false
                                             << QByteArray("is this tracing library, not a VISA library");
    }
    void configurationFile()
    {
        QFETCH(QString, opened);
        QFETCH(QByteArray, file);
        QFETCH(bool, used);
        QFETCH(QByteArray, message);
        PrivateSegment segment(55);
        QTemporaryDir home;
        QFile conf(home.filePath("zelvisa.conf"_q));
        QVERIFY(conf.open(QIODevice::WriteOnly));
        conf.write(file.replace("STUB", ZEL_STUB));
        conf.close();
        QProcessEnvironment env = environment(segment);
        const Outcome direct = run(ZEL_EVERY_CALL ""_q, {ZEL_STUB ""_q}, env);
        env.insert("XDG_CONFIG_HOME"_q, home.path());
        const Outcome o = run(ZEL_EVERY_CALL ""_q, {opened}, env);
        QCOMPARE(o.exitCode, 0);
        QVERIFY2(message.isEmpty() ? o.err.isEmpty() : o.err.contains(message), o.err.constData());
        if (!used)
            return; // what is found instead depends on the machine
        const QStringList expected = lines(direct.out);
        const QStringList printed = lines(o.out);
        QCOMPARE(printed.size(), expected.size());
        auto status = [&](QString const& name) { // status and errno of a present function
            return expected.filter(QRegularExpression("^"_q + name + " -?[0-9]+ "_q))
                .value(0)
                .section(QLatin1Char(' '), 1, 2);
        };
        for (int i = 0; i < printed.size(); ++i) {
            if (!expected[i].endsWith(" missing"_q)) {
                QCOMPARE(printed[i], expected[i]);
                continue;
            }
            // The varargs forms go through the va_list forms; a function the library lacks is not supported.
            const QString name = expected[i].section(QLatin1Char(' '), 0, 0);
            const QString listForm = "viV"_q + name.mid(2);
            const bool isVoid = name.startsWith("viPeek"_q) || name.startsWith("viPoke"_q);
            const QString outcome = isVoid                                       ? "0 4242"_q
                : name.endsWith(QLatin1Char('f')) && !status(listForm).isEmpty() ? status(listForm)
                                                                                 : "-1073807257 4242"_q;
            QCOMPARE(printed[i].section(QLatin1Char(' '), 0, 2), name + QLatin1Char(' ') + outcome);
        }
    }

    // Installed, zel-run finds the libzelvisa installed beside it, and the library path's links lead to it.
    void installedLauncher()
    {
        QTemporaryDir prefix;
        QProcess install;
        install.start(QStringLiteral(ZEL_CMAKE), {"--install"_q, ZEL_BINARY_DIR ""_q, "--prefix"_q, prefix.path()});
        QVERIFY(install.waitForFinished(120000) && install.exitCode() == 0);
        const QString library = prefix.path() + "/bin/../"_q + ZEL_INSTALL_LIBDIR ""_q + "/libzelvisa.so.1"_q;
        QVERIFY(QFileInfo::exists(library));
        PrivateSegment segment(58);
        const QProcessEnvironment env = environment(segment);
        const Outcome o = run(prefix.filePath("bin/zel-run"_q), {"sh"_q, "-c"_q, "printf %s \"$LD_PRELOAD\""_q}, env);
        QCOMPARE(o.exitCode, 0);
        const QString before = env.value("LD_PRELOAD"_q); // a sanitizer's runtime
        QCOMPARE(QString::fromUtf8(o.out), before.isEmpty() ? library : before + QLatin1Char(':') + library);
        for (const char* link : {"libvisa.so", "libivivisa.so.7"}) {
            const QFileInfo info(prefix.path() + QLatin1Char('/') + ZEL_INSTALL_LIBDIR ""_q + "/zelvisa/"_q
                                 + QLatin1String(link));
            QVERIFY(info.isSymLink());
            QCOMPARE(info.canonicalFilePath(), QFileInfo(library).canonicalFilePath());
        }
    }

    void launcherCommandLine_data()
    {
        QTest::addColumn<QString>("arguments"); // separated by '|'
        QTest::addColumn<QString>("preload"); // LD_PRELOAD before it runs
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("printed"); // on standard output, or on standard error when it failed
        const QString sim = QFileInfo(QStringLiteral(ZEL_SIM)).canonicalFilePath();
        const QString show = "sh|-c|printf '%s;%s;%s' \"$LD_PRELOAD\" \"$ZELVISA_LIBRARY\" \"$PYVISA_LIBRARY\""_q;
        QTest::newRow("--help") << "--help"_q << QString() << 0 << "Usage: zel-run [--visa LIBRARY]"_q;
        QTest::newRow("--version") << "--version"_q << QString() << 0 << "zel-run 5.12.9\n"_q;
        QTest::newRow("no program") << QString() << QString() << 2 << "zel-run: no program to run"_q;
        QTest::newRow("unknown option") << "--trace|true"_q << QString() << 2 << "zel-run: unknown option --trace"_q;
        QTest::newRow("--visa without a library") << "--visa"_q << QString() << 2 << "--visa needs a library"_q;
        QTest::newRow("a program that is not there")
            << "/nonexistent/program"_q << QString() << 127
            << "zel-run: cannot run /nonexistent/program: No such file or directory"_q;
        QTest::newRow("a library that is not there") << "--visa|/nonexistent/libvisa.so|true"_q << QString() << 127
                                                     << "zel-run: /nonexistent/libvisa.so: No such file or directory"_q;
        QTest::newRow("the program's exit status") << "sh|-c|exit 7"_q << QString() << 7 << QString();
        QTest::newRow("arguments after --")
            << "--|sh|-c|echo \"$0\" \"$1\"|--visa|x y"_q << QString() << 0 << "--visa x y\n"_q;
        QTest::newRow("environment") << "--visa|"_q + sim + QLatin1Char('|') + show << QString() << 0
                                     << ";"_q + sim + QLatin1Char(';') + sim;
        QTest::newRow("preloaded libraries stay first") << show << ZEL_STUB ""_q << 0 << ZEL_STUB ":"_q;
    }
    void launcherCommandLine()
    {
        QFETCH(QString, arguments);
        QFETCH(QString, preload);
        QFETCH(int, exitCode);
        QFETCH(QString, printed);
        PrivateSegment segment(56);
        QProcessEnvironment env = environment(segment);
        // After what the test itself needs preloaded (a sanitizer's runtime), the row's.
        preload = QStringList({env.value("LD_PRELOAD"_q), preload})
                      .filter(QRegularExpression("."_q))
                      .join(QLatin1Char(':'));
        env.insert("LD_PRELOAD"_q, preload);
        const Outcome o = traced(arguments.isEmpty() ? QStringList() : arguments.split(QLatin1Char('|')), env);
        QCOMPARE(o.exitCode, exitCode);
        const QString text = QString::fromUtf8(exitCode == 0 || exitCode == 7 ? o.out : o.err);
        QVERIFY2(text.contains(printed), qPrintable(text));
        if (arguments.contains("LD_PRELOAD"_q)) {
            // Then zelvisa, itself once.
            const QString first = preload.isEmpty() ? QString() : preload + QLatin1Char(':');
            QVERIFY2(text.count("libzelvisa.so.1"_q) == 1 && text.startsWith(first), qPrintable(text));
        }
    }
};

QTEST_GUILESS_MAIN(TestVisaPrograms)
#include "tst_visaprograms.moc"
