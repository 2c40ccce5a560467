#include "AppTestSupport.h"
#include "FilterDialog.h"
#include "FilterTestSupport.h"
#include "TraceProducer.h"
#include "ViewFilterDialog.h"

#include <QtTest>
#include <QtWidgets>

using namespace ZelTracer;

Q_DECLARE_METATYPE(SingleFilter)

constexpr auto segment = programSegment<50>;

class TestDialogs : public QObject
{
    Q_OBJECT

public:
    explicit TestDialogs(TraceApplication& app)
        : app(app)
    { }

private slots:
    void init()
    {
        QSettings().clear();
        app.getChannelControl().setPidFilter(0);
        app.getChannelControl().setMessageFilter(std::string());
    }

    void editorWritesTheShownRule_data()
    {
        QTest::addColumn<SingleFilter>("before");
        // The field, the action and the value typed.
        QTest::addColumn<QString>("edit");
        QTest::addColumn<SingleFilter>("after");
        auto row = [](const char* name, SingleFilter before, const char* edit, SingleFilter after) {
            QTest::newRow(name) << before << QString::fromLatin1(edit) << after;
        };
        row("thread id edited", rule(0, 1), "Tid Highlight 42", rule(0, 42));
        row("to include process", rule(0, 1), "Pid Include 7", rule(6, 7));
        row("to exclude session", rule(0, 1), "Session Exclude 9", rule(12, 9));
        row("to highlight address", rule(0, 1), "Address Highlight TCPIP0::h::INSTR", rule(3, 1, "TCPIP0::h::INSTR"));
        row("to exclude command", rule(5, 3), "Command Exclude viRead(", rule(14, 3, "viRead("));
        row("non-number keeps the old value", rule(1, 55), "Pid Highlight abc", rule(1, 55));
        row("command to process keeps the number, changes the type", rule(9, 55, "viWrite"), "Pid Include viWrite",
            rule(6, 55, "viWrite"));
    }

    // The edits of the shown rule are committed when the dialog is accepted.
    void editorWritesTheShownRule()
    {
        QFETCH(SingleFilter, before);
        QFETCH(QString, edit);
        const QStringList parts = edit.split(QLatin1Char(' '));
        gui::ViewFilterDialog dialog(nullptr, rules({before}));
        child<QListWidget>(&dialog, "filterlist")->setCurrentRow(0);
        QVERIFY(child<QGroupBox>(&dialog, "groupBoxFilter")->isEnabled());
        for (int i : {0, 1})
            child<QRadioButton>(&dialog, qPrintable(QStringLiteral("radioButton") + parts[i]))->setChecked(true);
        child<QLineEdit>(&dialog, "lineEditId")->setText(parts[2]);
        dialog.accept();
        QFETCH(SingleFilter, after);
        QCOMPARE(dialog.viewFilters, rules({after}));
    }

    void excludeAddressKeepsThePreviousAction()
    {
        gui::ViewFilterDialog dialog(nullptr, rules({rule(0, 1), rule(13, 0, "GPIB0::1::INSTR")}));
        auto* list = child<QListWidget>(&dialog, "filterlist");
        list->setCurrentRow(0);
        list->setCurrentRow(1);
        QVERIFY(child<QRadioButton>(&dialog, "radioButtonAddress")->isChecked()
                && child<QRadioButton>(&dialog, "radioButtonHighlight")->isChecked());
        dialog.accept();
        QCOMPARE(dialog.viewFilters, rules({rule(0, 1), rule(3, 0, "GPIB0::1::INSTR")}));
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
        QVERIFY(child<QRadioButton>(&dialog, "radioButtonTid")->isChecked());
        // The new rule's edits are committed when the next rule is made.
        id->setText(QStringLiteral("11"));
        click("newButton");
        id->setText(QStringLiteral("22"));
        click("newButton");
        QCOMPARE(shown(),
                 QStringLiteral("Highlight thread id 11 #00ffff|Highlight thread id 22 #00ffff|"
                                "Highlight thread id 0 #00ffff|1|1|1|2|0"));

        // Deleting the last row selects the new last row; deleting the first selects the one that took its place.
        click("deleteButton");
        QVERIFY(shown().endsWith(QLatin1String("|1|22")));
        list->setCurrentRow(0);
        click("deleteButton");
        QCOMPARE(shown(), QStringLiteral("Highlight thread id 22 #00ffff|1|1|1|0|22"));
        click("deleteButton");
        QCOMPARE(shown(), QStringLiteral("0|0|0|-1|22"));
        dialog.accept();
        QVERIFY(dialog.viewFilters.filters.isEmpty());
    }

    void filterFiles()
    {
        const ModelFilters saved = rules({rule(0, 5, "", Qt::red), rule(8, 0, "ASRL1::INSTR")});
        const QString path = dir.filePath(QStringLiteral("set.viewfilter"));
        gui::ViewFilterDialog(nullptr, saved).saveFile(path);

        gui::ViewFilterDialog dialog(nullptr, rules({rule(1, 1)}));
        child<QListWidget>(&dialog, "filterlist")->setCurrentRow(0);
        dialog.loadFile(path);
        QCOMPARE(dialog.viewFilters, saved);
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
        QSettings settings;
        settings.beginGroup(QStringLiteral("ViewFilterDialog"));
        QCOMPARE(settings.value(QStringLiteral("size")).toSize(), QSize(500, 400));
        QCOMPARE(settings.value(QStringLiteral("pos")).toPoint(), QPoint(30, 40));
        QVERIFY(settings.contains(QStringLiteral("fullscreen"))
                && !settings.value(QStringLiteral("fullscreen")).toBool());
        gui::ViewFilterDialog again(nullptr, ModelFilters());
        QVERIFY(again.size() == QSize(500, 400) && again.pos() == QPoint(30, 40));
    }

    void recordFilter_data()
    {
        // What the user sets: the process box and its text, the message box and its text; then accepted or
        // not, and the filter in force afterwards.
        QTest::addColumn<bool>("pidChecked");
        QTest::addColumn<QString>("pidText");
        QTest::addColumn<bool>("textChecked");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("accept");
        QTest::addColumn<uint>("pid");
        QTest::addColumn<QByteArray>("message");
        auto row = [](const char* name, bool pidOn, const char* pid, bool textOn, const char* text, bool accept,
                      uint pidAfter, const char* messageAfter) {
            QTest::newRow(name) << pidOn << QString::fromLatin1(pid) << textOn << QString::fromLatin1(text) << accept
                                << pidAfter << QByteArray(messageAfter);
        };
        row("process id", true, "1234", false, "", true, 1234, "");
        row("empty id means no filter", true, "", false, "", true, 0, "");
        row("unchecked box clears", false, "1234", false, "viRead", true, 0, "");
        row("seven digits are cut to six", true, "1234567", false, "", true, 123456, "");
        row("message text", false, "", true, "viWrite", true, 0, "viWrite");
        row("both", true, "42", true, "TCPIP", true, 42, "TCPIP");
        row("cancel keeps the filter in force", false, "", true, "x", false, 99, "old");
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
        QTEST(pid, "pid");
        QTEST(QByteArray::fromStdString(message), "message");
    }

    void recordFilterListsSeenProcesses()
    {
        app.starttrace();
        {
            gui::FilterDialog dialog(nullptr, app);
            QCOMPARE(child<QComboBox>(&dialog, "comboBoxPid")->count(), 0);
            QVERIFY(!child<QGroupBox>(&dialog, "groupBoxPid")->isChecked()
                    && !child<QGroupBox>(&dialog, "groupBoxRegex")->isChecked());
        }
        TraceProducer producer(segment().key, s_VisaSharedMemorySize, segment().semaphore, segment().fileSemaphore);
        for (std::uint32_t pid : {42u, 7u, 42u})
            producer.write(makeEntry(pid, pid, 0, "viClear(0x1)"));
        app.getModel().updateSharedData();
        app.getChannelControl().setPidFilter(42);

        gui::FilterDialog dialog(nullptr, app);
        auto* pids = child<QComboBox>(&dialog, "comboBoxPid");
        QCOMPARE(pids->count(), 2);
        QCOMPARE(pids->itemText(0) + QLatin1Char(' ') + pids->itemText(1), QStringLiteral("7 42"));
        // The edit field still shows the filter in force, not the first id of the list.
        app.getChannelControl().setPidFilter(0);
        gui::FilterDialog unfiltered(nullptr, app);
        QVERIFY(child<QComboBox>(&unfiltered, "comboBoxPid")->currentText().isEmpty());
        app.stoptrace();
    }

private:
    TraceApplication& app;
    QTemporaryDir dir;
};

int main(int argc, char** argv)
{
    return execWithApplication<TestDialogs>(argc, argv, segment(), "dialogs");
}

#include "tst_dialogs.moc"
