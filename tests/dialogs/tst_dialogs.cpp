#include "AppTestSupport.h"
#include "FilterDialog.h"
#include "FilterTestSupport.h"
#include "TraceProducer.h"
#include "ViewFilterDialog.h"

#include <QtTest>
#include <QtWidgets>

using namespace ZelTracer;

Q_DECLARE_METATYPE(SingleFilter)

namespace {

PrivateSegment& segment()
{
    static PrivateSegment s(50);
    return s;
}

SingleFilter rule(std::int32_t type, std::uint32_t value, const char* text = "", QColor color = Qt::cyan)
{
    SingleFilter f;
    f.type = type;
    f.value = value;
    f.text = QString::fromLatin1(text);
    f.color = color;
    return f;
}

} // namespace

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
        QTest::addColumn<QString>("field");
        QTest::addColumn<QString>("action");
        QTest::addColumn<QString>("value");
        QTest::addColumn<SingleFilter>("after");

        const QString tid = QStringLiteral("Tid"), pid = QStringLiteral("Pid"), highlight = QStringLiteral("Highlight"),
                      include = QStringLiteral("Include"), exclude = QStringLiteral("Exclude");
        QTest::newRow("thread id edited") << rule(0, 1) << tid << highlight << QStringLiteral("42") << rule(0, 42);
        QTest::newRow("to include process") << rule(0, 1) << pid << include << QStringLiteral("7") << rule(6, 7);
        QTest::newRow("to exclude session")
            << rule(0, 1) << QStringLiteral("Session") << exclude << QStringLiteral("9") << rule(12, 9);
        QTest::newRow("to highlight address") << rule(0, 1) << QStringLiteral("Address") << highlight
                                              << QStringLiteral("TCPIP0::h::INSTR") << rule(3, 1, "TCPIP0::h::INSTR");
        QTest::newRow("to exclude command") << rule(5, 3) << QStringLiteral("Command") << exclude
                                            << QStringLiteral("viRead(") << rule(14, 3, "viRead(");
        QTest::newRow("non-number keeps the old value")
            << rule(1, 55) << pid << highlight << QStringLiteral("abc") << rule(1, 55);
        QTest::newRow("command to process keeps the number, changes the type")
            << rule(9, 55, "viWrite") << pid << include << QStringLiteral("viWrite") << rule(6, 55, "viWrite");
    }

    // The edits of the shown rule are committed when the dialog is accepted.
    void editorWritesTheShownRule()
    {
        QFETCH(SingleFilter, before);
        QFETCH(QString, field);
        QFETCH(QString, action);
        QFETCH(QString, value);
        gui::ViewFilterDialog dialog(nullptr, rules({before}));
        child<QListWidget>(&dialog, "filterlist")->setCurrentRow(0);
        QVERIFY(child<QGroupBox>(&dialog, "groupBoxFilter")->isEnabled());
        child<QRadioButton>(&dialog, qPrintable(QStringLiteral("radioButton") + field))->setChecked(true);
        child<QRadioButton>(&dialog, qPrintable(QStringLiteral("radioButton") + action))->setChecked(true);
        child<QLineEdit>(&dialog, "lineEditId")->setText(value);
        dialog.accept();
        QCOMPARE(dialog.result(), int(QDialog::Accepted));
        QCOMPARE(dialog.viewFilters.filters.size(), 1);
        QTEST(dialog.viewFilters.filters[0], "after");
        QCOMPARE(dialog.viewFilters.showOnly, dialog.viewFilters.showOnlyActive());
    }

    void excludeAddressKeepsThePreviousAction()
    {
        gui::ViewFilterDialog dialog(nullptr, rules({rule(0, 1), rule(13, 0, "GPIB0::1::INSTR")}));
        auto* list = child<QListWidget>(&dialog, "filterlist");
        list->setCurrentRow(0);
        list->setCurrentRow(1);
        QVERIFY(child<QRadioButton>(&dialog, "radioButtonAddress")->isChecked());
        QVERIFY(child<QRadioButton>(&dialog, "radioButtonHighlight")->isChecked());
        QCOMPARE(child<QLineEdit>(&dialog, "lineEditId")->text(), QStringLiteral("GPIB0::1::INSTR"));
        dialog.accept();
        QCOMPARE(dialog.viewFilters.filters[1].type, int(SingleFilter::HighlightAddress));
        QCOMPARE(dialog.viewFilters.filters[0], rule(0, 1));
    }

    void newAndDelete()
    {
        gui::ViewFilterDialog dialog(nullptr, rules({rule(4, 0, "viRead(", Qt::red), rule(11, 77, "", Qt::green)}));
        auto* list = child<QListWidget>(&dialog, "filterlist");
        auto* id = child<QLineEdit>(&dialog, "lineEditId");
        auto click = [&dialog](const char* name) { child<QPushButton>(&dialog, name)->click(); };
        // Each row's text and background, then whether the editor, Delete and Delete all are enabled.
        auto shown = [&dialog, list] {
            QStringList rows;
            for (int i = 0; i < list->count(); ++i)
                rows << list->item(i)->text() + QLatin1Char(' ') + list->item(i)->background().color().name();
            for (const char* name : {"groupBoxFilter", "deleteButton", "deleteAllButton"})
                rows << QString::number(child<QWidget>(&dialog, name)->isEnabled());
            return rows.join(QLatin1Char('|'));
        };
        // Only highlights show their colour.
        QCOMPARE(shown(), QStringLiteral("Highlight command \"viRead(\" #ff0000|Exclude process id 77 #ffffff|0|0|1"));
        click("deleteAllButton");
        QCOMPARE(shown(), QStringLiteral("0|0|0"));
        QVERIFY(dialog.viewFilters.filters.isEmpty());

        click("newButton");
        QCOMPARE(shown(), QStringLiteral("Highlight thread id 0 #00ffff|1|1|1"));
        QVERIFY(list->currentRow() == 0 && child<QRadioButton>(&dialog, "radioButtonTid")->isChecked());
        // The new rule's edits are committed when the next rule is made.
        id->setText(QStringLiteral("11"));
        click("newButton");
        id->setText(QStringLiteral("22"));
        click("newButton");
        QCOMPARE(shown(),
                 QStringLiteral("Highlight thread id 11 #00ffff|Highlight thread id 22 #00ffff|"
                                "Highlight thread id 0 #00ffff|1|1|1"));

        // Deleting the last row selects the new last row; deleting the first selects the one that took its place.
        click("deleteButton");
        QVERIFY(list->currentRow() == 1 && id->text() == QStringLiteral("22"));
        list->setCurrentRow(0);
        click("deleteButton");
        QCOMPARE(shown(), QStringLiteral("Highlight thread id 22 #00ffff|1|1|1"));
        click("deleteButton");
        QCOMPARE(shown(), QStringLiteral("0|0|0"));
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
        QCOMPARE(settings.value(QStringLiteral("ViewFilterDialog/size")).toSize(), QSize(500, 400));
        QCOMPARE(settings.value(QStringLiteral("ViewFilterDialog/pos")).toPoint(), QPoint(30, 40));
        QCOMPARE(settings.value(QStringLiteral("ViewFilterDialog/fullscreen")).toBool(), false);
        gui::ViewFilterDialog again(nullptr, ModelFilters());
        QCOMPARE(again.size(), QSize(500, 400));
        QCOMPARE(again.pos(), QPoint(30, 40));
    }

    void recordFilter_data()
    {
        QTest::addColumn<bool>("pidChecked");
        QTest::addColumn<QString>("pidText");
        QTest::addColumn<bool>("textChecked");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("accept");
        QTest::addColumn<uint>("pid");
        QTest::addColumn<QByteArray>("message");

        const QString none;
        QTest::newRow("process id") << true << QStringLiteral("1234") << false << none << true << 1234u << QByteArray();
        QTest::newRow("empty id means no filter") << true << none << false << none << true << 0u << QByteArray();
        QTest::newRow("unchecked box clears")
            << false << QStringLiteral("1234") << false << QStringLiteral("viRead") << true << 0u << QByteArray();
        QTest::newRow("seven digits are cut to six")
            << true << QStringLiteral("1234567") << false << none << true << 123456u << QByteArray();
        QTest::newRow("message text") << false << none << true << QStringLiteral("viWrite") << true << 0u
                                      << QByteArray("viWrite");
        QTest::newRow("both") << true << QStringLiteral("42") << true << QStringLiteral("TCPIP") << true << 42u
                              << QByteArray("TCPIP");
        QTest::newRow("cancel keeps the filter in force")
            << false << none << true << QStringLiteral("x") << false << 99u << QByteArray("old");
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
        QCOMPARE(pidEdit->text(), QStringLiteral("99"));
        QCOMPARE(textEdit->text(), QStringLiteral("old"));

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
            QVERIFY(!child<QGroupBox>(&dialog, "groupBoxPid")->isChecked());
            QVERIFY(!child<QGroupBox>(&dialog, "groupBoxRegex")->isChecked());
        }
        TraceProducer producer(segment().key, s_VisaSharedMemorySize, segment().semaphore, segment().fileSemaphore);
        for (std::uint32_t pid : {42u, 7u, 42u})
            producer.write(makeEntry(pid, pid, 0, "viClear(0x1)"));
        app.getModel().updateSharedData();
        app.getChannelControl().setPidFilter(42);

        gui::FilterDialog dialog(nullptr, app);
        auto* pids = child<QComboBox>(&dialog, "comboBoxPid");
        QCOMPARE(pids->count(), 2);
        QCOMPARE(pids->itemText(0), QStringLiteral("7"));
        QCOMPARE(pids->itemText(1), QStringLiteral("42"));
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
