// The application object and its dialogs, on one private segment, shared ring and settings store.
#include "AppTestSupport.h"
#include "ExternalEvents.h"
#include "FilterDialog.h"
#include "FilterTestSupport.h"
#include "TraceProducer.h"
#include "ViewFilterDialog.h"

#include <QtTest>
#include <QtWidgets>

#include <sys/prctl.h>

using namespace ZelTracer;

Q_DECLARE_METATYPE(ModelFilters)

constexpr auto segment = programSegment<40>;

class TestTraceApplication : public QObject
{
    Q_OBJECT

public:
    explicit TestTraceApplication(TraceApplication& app)
        : app(app)
    { }

private slots:
    void initTestCase()
    {
        // The settings of earlier versions are found under these names.
        QCOMPARE(QCoreApplication::organizationName() + QLatin1Char('/') + QCoreApplication::applicationName(),
                 QStringLiteral("Zelbrook/ZelVisaTraceTool"));
        QSignalSpy changed(&app, &TraceApplication::tracingChanged);
        app.starttrace();
        QCOMPARE(changed.size(), 1);
        QCOMPARE(raw.header().tracingActive, 1u);
        app.getModel().stop(); // the tests drive the stages themselves
        app.getModel().timerHit();
    }

    // No record filter is left in force: producers would drop the records of later tests.
    void init()
    {
        QSettings().clear();
        app.getChannelControl().setPidFilter(0);
        app.getChannelControl().setMessageFilter(std::string());
    }

    // The view's text, whose lines the capture tests compare whole; a "%1" in a command stays as it is.
    void exportAndSave()
    {
        const QString header = QStringLiteral("# VISA version: 5.12.9\n# Bitness:      64\n# OS:           Linux\n");
        raw.header().tracingActive = 1;
        producer.write(makeEntry(3, 200, 1, "viWrite(2, \"a\tb %1\")"));
        capture();
        QCOMPARE(app.getBuffer().mid(header.size()),
                 QStringLiteral("0\t3\t22:13:23.250\t200\t201\t7\tGPIB0::22::INSTR\t0.00123457\t1\t-1073807339\t"
                                "viWrite(2, \"a\tb %1\")\n"));

        // Saving writes over an older, longer file without cutting it.
        app.clearbuffer();
        const QString name = dir.filePath(QStringLiteral("view.txt"));
        std::ofstream(name.toStdString()) << std::string(100, 'X') << "TAIL";
        app.saveBufferToFile(name);
        QCOMPARE(QByteArray::fromStdString(fileText(name.toStdString())),
                 header.toLatin1() + QByteArray(100 - header.size(), 'X') + "TAIL");
        app.saveBufferToFile(dir.filePath(QStringLiteral("no/such/dir/view.txt"))); // quietly nothing
    }

    // Pausing keeps the rows; leaving the pause empties the view, also when the view was not paused at all.
    void leavingThePauseClears()
    {
        for (bool pause : {true, false}) {
            producer.write(makeEntry(pause ? 1 : 2, 300, 1, "viRead(1)"));
            capture();
            QCOMPARE(app.getModel().rowCount(), 1);
            app.setDisplayPause(pause);
            QCOMPARE(app.getModel().rowCount(), pause ? 1 : 0);
            app.setDisplayPause(false);
            QCOMPARE(app.getModel().rowCount(), 0);
        }
    }

    void startFailureIsReported()
    {
        // A ring that can be neither attached nor created.
        app.getModel().setSharedRingSize(-1);
        QSignalSpy changed(&app, &TraceApplication::tracingChanged);
        QCOMPARE(closingModals([this] { app.starttrace(); }),
                 QStringList {QStringLiteral("Error/Due to an internal error tracing could not be started!")});
        QCOMPARE(changed.size(), 0);
        QCOMPARE(raw.header().tracingActive, 0u);
        app.getModel().setSharedRingSize(LiveTraceModel::s_DefaultSharedRingSize);
    }

    void externalEventsReportEdges()
    {
        TraceChannelControl other(segment().key, s_VisaSharedMemorySize, segment().semaphore);
        other.setTracingActive(false);
        other.settracingToFileActive(false);
        ExternalEvents events(segment().key, segment().semaphore);
        QString order;
        auto note = [&order](const char* name) { return [&order, name] { order += QLatin1String(name); }; };
        QObject::connect(&events, &ExternalEvents::start, note("start "));
        QObject::connect(&events, &ExternalEvents::stop, note("stop "));
        QObject::connect(&events, &ExternalEvents::starttofile, note("starttofile "));
        QObject::connect(&events, &ExternalEvents::stoptofile, note("stoptofile "));
        events.emitSignals();
        QCOMPARE(order, QStringLiteral("stop stoptofile "));

        // Both flags in one interval: tracing first, then the file.
        other.settracingToFileActive(true, dir.filePath(QStringLiteral("e.log")).toStdString());
        other.setTracingActive(true);
        QTRY_COMPARE(order, QStringLiteral("stop stoptofile start starttofile "));

        // On and off again between two polls is no edge at all.
        other.setTracingActive(false);
        other.setTracingActive(true);
        QTest::qWait(3 * ExternalEvents::s_PollInterval);
        other.setTracingActive(false);
        QTRY_COMPARE(order, QStringLiteral("stop stoptofile start starttofile stop "));
    }

    void editorWritesTheShownRule_data()
    {
        QTest::addColumn<ModelFilters>("before");
        // The field and action chosen and the value typed for the last rule, after each rule was shown in turn.
        QTest::addColumn<QString>("edit");
        QTest::addColumn<ModelFilters>("after");
        using Rules = std::initializer_list<SingleFilter>;
        auto row = [](const char* name, Rules before, const char* edit, Rules after) {
            QTest::newRow(name) << rules(before) << QString::fromLatin1(edit) << rules(after);
        };
        row("thread id edited", {rule(0, 1)}, "Tid Highlight 42", {rule(0, 42)});
        row("to include process", {rule(0, 1)}, "Pid Include 7", {rule(6, 7)});
        row("to exclude session", {rule(0, 1)}, "Session Exclude 9", {rule(12, 9)});
        row("to highlight address", {rule(0, 1)}, "Address Highlight TCPIP0::h::INSTR",
            {rule(3, 1, "TCPIP0::h::INSTR")});
        row("to exclude command", {rule(5, 3)}, "Command Exclude viRead(", {rule(14, 3, "viRead(")});
        row("non-number keeps the old value", {rule(1, 55)}, "Pid Highlight abc", {rule(1, 55)});
        row("command to process keeps the number, changes the type", {rule(9, 55, "viWrite")}, "Pid Include viWrite",
            {rule(6, 55, "viWrite")});
        // Showing an exclude-address rule leaves the action buttons as the rule before set them.
        row("exclude address keeps the previous action", {rule(0, 1), rule(13, 0, "GPIB0::1::INSTR")},
            "GPIB0::1::INSTR", {rule(0, 1), rule(3, 0, "GPIB0::1::INSTR")});
    }

    // The edits of the shown rule are committed when the dialog is accepted.
    void editorWritesTheShownRule()
    {
        QFETCH(ModelFilters, before);
        QFETCH(QString, edit);
        gui::ViewFilterDialog dialog(nullptr, before);
        for (int i = 0; i < before.filters.size(); ++i)
            child<QListWidget>(&dialog, "filterlist")->setCurrentRow(i);
        const QStringList parts = edit.split(QLatin1Char(' '));
        for (int i = 0; i < parts.size() - 1; ++i)
            child<QRadioButton>(&dialog, qPrintable(QStringLiteral("radioButton") + parts[i]))->setChecked(true);
        child<QLineEdit>(&dialog, "lineEditId")->setText(parts.last());
        dialog.accept();
        QTEST(dialog.viewFilters, "after");
    }

    void newAndDelete()
    {
        gui::ViewFilterDialog dialog(nullptr, rules({rule(4, 0, "viRead(", Qt::red), rule(11, 77, "", Qt::green)}));
        auto* list = child<QListWidget>(&dialog, "filterlist");
        auto* id = child<QLineEdit>(&dialog, "lineEditId");
        auto click = [&dialog](const char* name) { child<QPushButton>(&dialog, name)->click(); };
        // Each row's text and background, whether the editor, Delete and Delete all are enabled, then the
        // current row and the value in the editor.
        auto shown = [&dialog, list, id] {
            QStringList rows;
            for (int i = 0; i < list->count(); ++i)
                rows << list->item(i)->text() + QLatin1Char(' ') + list->item(i)->background().color().name();
            for (const char* name : {"groupBoxFilter", "deleteButton", "deleteAllButton"})
                rows << QString::number(child<QWidget>(&dialog, name)->isEnabled());
            return (rows << QString::number(list->currentRow()) << id->text()).join(QLatin1Char('|'));
        };
        // Only highlights show their colour.
        QCOMPARE(shown(),
                 QStringLiteral("Highlight command \"viRead(\" #ff0000|Exclude process id 77 #ffffff|0|0|1|-1|"));
        click("deleteAllButton");
        QCOMPARE(shown(), QStringLiteral("0|0|0|-1|"));

        click("newButton");
        QCOMPARE(shown(), QStringLiteral("Highlight thread id 0 #00ffff|1|1|1|0|0"));
        // The new rule's edits are committed when the next rule is made.
        id->setText(QStringLiteral("11"));
        click("newButton");
        id->setText(QStringLiteral("22"));
        click("newButton");
        QCOMPARE(shown(),
                 QStringLiteral("Highlight thread id 11 #00ffff|Highlight thread id 22 #00ffff|"
                                "Highlight thread id 0 #00ffff|1|1|1|2|0"));

        // Deleting the first row selects the one that took its place; deleting the last selects the new last.
        list->setCurrentRow(0);
        click("deleteButton");
        QCOMPARE(shown(), QStringLiteral("Highlight thread id 22 #00ffff|Highlight thread id 0 #00ffff|1|1|1|0|22"));
        list->setCurrentRow(1);
        click("deleteButton");
        QCOMPARE(shown(), QStringLiteral("Highlight thread id 22 #00ffff|1|1|1|0|22"));
        click("deleteButton");
        QCOMPARE(shown(), QStringLiteral("0|0|0|-1|22"));
    }

    void filterFiles()
    {
        const ModelFilters saved = rules({rule(0, 5, "", Qt::red), rule(8, 0, "ASRL1::INSTR")});
        const QString path = dir.filePath(QStringLiteral("set.viewfilter"));
        gui::ViewFilterDialog(nullptr, saved).saveFile(path);

        gui::ViewFilterDialog dialog(nullptr, rules({rule(1, 1)}));
        child<QListWidget>(&dialog, "filterlist")->setCurrentRow(0);
        dialog.loadFile(path);
        QCOMPARE(child<QListWidget>(&dialog, "filterlist")->count(), 2);
        // What was shown before the load is not written over a loaded rule.
        dialog.accept();
        QCOMPARE(dialog.viewFilters, saved);

        // A missing file leaves the set as it is, without a word.
        QVERIFY(closingModals([&] { dialog.loadFile(dir.filePath(QStringLiteral("none"))); }).isEmpty());
        QCOMPARE(dialog.viewFilters, saved);
    }

    void placementIsRemembered()
    {
        {
            gui::ViewFilterDialog dialog(nullptr, ModelFilters());
            dialog.resize(500, 400);
            dialog.move(30, 40);
        }
        QCOMPARE(QSettings().allKeys().join(QLatin1Char(' ')),
                 QStringLiteral("ViewFilterDialog/fullscreen ViewFilterDialog/pos ViewFilterDialog/size"));
        gui::ViewFilterDialog again(nullptr, ModelFilters());
        QVERIFY(again.size() == QSize(500, 400) && again.pos() == QPoint(30, 40) && !again.isMaximized());
    }

    void recordFilter_data()
    {
        // What the user sets: the process box and its text, the message box and its text; then accepted or
        // not, and the process id and message text in force afterwards.
        QTest::addColumn<bool>("pidChecked");
        QTest::addColumn<QString>("pidText");
        QTest::addColumn<bool>("textChecked");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("accept");
        QTest::addColumn<QString>("filter");
        auto row = [](const char* name, bool pidOn, const char* pid, bool textOn, const char* text, bool accept,
                      const char* filter) {
            QTest::newRow(name) << pidOn << QString::fromLatin1(pid) << textOn << QString::fromLatin1(text) << accept
                                << QString::fromLatin1(filter);
        };
        row("process id", true, "1234", false, "", true, "1234 ");
        row("empty id means no filter", true, "", false, "", true, "0 ");
        row("unchecked box clears", false, "1234", false, "viRead", true, "0 ");
        row("seven digits are cut to six", true, "1234567", false, "", true, "123456 ");
        row("message text", false, "", true, "viWrite", true, "0 viWrite");
        row("both", true, "42", true, "TCPIP", true, "42 TCPIP");
        row("cancel keeps the filter in force", false, "", true, "x", false, "99 old");
    }

    // The dialog opens with the filter in force and writes what was typed only when accepted.
    void recordFilter()
    {
        QFETCH(bool, pidChecked);
        QFETCH(QString, pidText);
        QFETCH(bool, textChecked);
        QFETCH(QString, text);
        QFETCH(bool, accept);
        app.getChannelControl().setPidFilter(99);
        app.getChannelControl().setMessageFilter("old");
        gui::FilterDialog dialog(nullptr, app);
        auto* pidBox = child<QGroupBox>(&dialog, "groupBoxPid");
        auto* textBox = child<QGroupBox>(&dialog, "groupBoxRegex");
        auto* pidEdit = child<QComboBox>(&dialog, "comboBoxPid")->lineEdit();
        auto* textEdit = child<QLineEdit>(&dialog, "lineEditRegexFilter");
        QVERIFY(pidBox->isChecked() && textBox->isChecked());
        QCOMPARE(pidEdit->text() + textEdit->text(), QStringLiteral("99old"));

        pidBox->setChecked(pidChecked);
        pidEdit->clear();
        QTest::keyClicks(pidEdit, pidText);
        textBox->setChecked(textChecked);
        textEdit->setText(text);
        accept ? dialog.accept() : dialog.reject();

        std::string message;
        unsigned int pid = 0;
        app.getChannelControl().getFilter(message, pid);
        QTEST(QStringLiteral("%1 %2").arg(pid).arg(QString::fromStdString(message)), "filter");
    }

    // The list offers each process in the shared ring once; the field shows the filter in force, not the
    // first id of the list.
    void recordFilterListsSeenProcesses()
    {
        app.starttrace();
        gui::FilterDialog unfiltered(nullptr, app);
        QVERIFY(!child<QGroupBox>(&unfiltered, "groupBoxPid")->isChecked()
                && !child<QGroupBox>(&unfiltered, "groupBoxRegex")->isChecked());
        for (std::uint32_t pid : {42u, 7u, 42u})
            producer.write(makeEntry(pid, pid, 0, "viClear(0x1)"));
        app.getModel().updateSharedData();
        app.getChannelControl().setPidFilter(42);
        gui::FilterDialog dialog(nullptr, app);
        auto* pids = child<QComboBox>(&dialog, "comboBoxPid");
        QStringList shown {pids->currentText()};
        for (int i = 0; i < pids->count(); ++i)
            shown << pids->itemText(i);
        QCOMPARE(shown, (QStringList {QStringLiteral("42"), QStringLiteral("7"), QStringLiteral("42")}));
        app.stoptrace();
    }

    // Last: quitting leaves the application unable to run modal loops. Copies of the tool in other
    // processes: only the last to quit switches tracing and recording off, whether the others trace or
    // only record.
    void lastCopySwitchesTracingOff()
    {
        auto flags = [this] {
            return QStringLiteral("%1 %2").arg(raw.header().tracingActive).arg(raw.header().tracingToFile);
        };
        app.stoptrace();
        app.getModel().timerHit(); // leaves the shared ring, as a copy that does not trace has
        app.startfiletrace(dir.filePath(QStringLiteral("q.log")).toStdString());
        std::unique_ptr<QProcess> idle = startCopy(false);
        QVERIFY(idle);
        idle->write("quit\n");
        QVERIFY(idle->waitForFinished(10000) && idle->exitCode() == 0);
        QCOMPARE(flags(), QStringLiteral("0 1"));

        std::unique_ptr<QProcess> tracing = startCopy(true);
        QVERIFY(tracing);
        app.starttrace();
        app.quit();
        QCOMPARE(flags(), QStringLiteral("1 1"));
        tracing->kill(); // however it ends, it no longer counts
        QVERIFY(tracing->waitForFinished(10000));
        app.quit();
        QCOMPARE(flags(), QStringLiteral("0 0"));
    }

private:
    // Another copy of the tool on this test's segment and ring, in a process of its own; it quits
    // when told so on its input.
    std::unique_ptr<QProcess> startCopy(bool tracing)
    {
        auto process = std::make_unique<QProcess>();
        process->start(QCoreApplication::applicationFilePath(),
                       {QStringLiteral("--tool-copy"), QString::number(segment().key),
                        QString::fromStdString(segment().semaphore), app.getEndpoints().sharedRingName,
                        QString::number(tracing)});
        if (!process->waitForReadyRead(10000))
            return nullptr;
        return process;
    }

    void capture()
    {
        LiveTraceModel& model = app.getModel();
        if (!model.isRunning())
            QVERIFY(model.start());
        model.stop();
        appClock().advance(LiveTraceModel::s_TimerInterval + 10);
        model.timerHit();
    }

    TraceApplication& app;
    TraceProducer producer {segment().key, s_VisaSharedMemorySize, segment().semaphore, segment().fileSemaphore};
    RawSegment raw {segment()};
    QTemporaryDir dir;
};

// The other copy of the tool: an application on the given segment and ring that may trace, until a
// line on its input tells it to quit.
int runToolCopy(int argc, char** argv)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    qputenv("QT_QPA_PLATFORM", "offscreen");
    int none = 1;
    TraceApplication copy(none, argv, {std::atoi(argv[2]), argv[3], QString::fromUtf8(argv[4])});
    if (argc > 5 && qstrcmp(argv[5], "1") == 0)
        copy.starttrace();
    std::printf("ready\n");
    std::fflush(stdout);
    char line[16];
    if (!std::fgets(line, sizeof line, stdin))
        return 1;
    copy.quit();
    return 0;
}

int main(int argc, char** argv)
{
    if (argc == 6 && qstrcmp(argv[1], "--tool-copy") == 0)
        return runToolCopy(argc, argv);
    qputenv("TZ", "UTC");
    tzset();
    return execWithApplication<TestTraceApplication>(argc, argv, segment(), "app");
}

#include "tst_traceapplication.moc"
