#include "AppTestSupport.h"
#include "FilterDialog.h"
#include "FilterTestSupport.h"
#include "TraceApplication.h"
#include "TraceProducer.h"
#include "ViewFilterDialog.h"

#include <QtTest>

#include <QComboBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QRadioButton>

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

template<class T> T* child(QObject* dialog, const char* name)
{
    T* object = dialog->findChild<T*>(QLatin1String(name));
    if (!object)
        qFatal("no %s", name);
    return object;
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
    void init();
    void editorWritesTheShownRule_data();
    void editorWritesTheShownRule();
    void excludeAddressKeepsThePreviousAction();
    void newAndDelete();
    void listShowsRulesAndColours();
    void filterFiles();
    void placementIsRemembered();
    void recordFilterOpensWithTheFilterInForce();
    void recordFilterAccept_data();
    void recordFilterAccept();
    void recordFilterCancel();
    void recordFilterListsSeenProcesses();

private:
    TraceApplication& app;
    QTemporaryDir dir;
};

void TestDialogs::init()
{
    QSettings().clear();
    app.getChannelControl().setPidFilter(0);
    app.getChannelControl().setMessageFilter(std::string());
}

void TestDialogs::editorWritesTheShownRule_data()
{
    QTest::addColumn<SingleFilter>("before");
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("value");
    QTest::addColumn<SingleFilter>("after");

    const QString tid = QStringLiteral("radioButtonTid"), pid = QStringLiteral("radioButtonPid"),
                  session = QStringLiteral("radioButtonSession"), address = QStringLiteral("radioButtonAddress"),
                  command = QStringLiteral("radioButtonCommand"), highlight = QStringLiteral("radioButtonHighlight"),
                  include = QStringLiteral("radioButtonInclude"), exclude = QStringLiteral("radioButtonExclude");
    QTest::newRow("thread id edited") << rule(0, 1) << tid << highlight << QStringLiteral("42") << rule(0, 42);
    QTest::newRow("to include process") << rule(0, 1) << pid << include << QStringLiteral("7") << rule(6, 7);
    QTest::newRow("to exclude session") << rule(0, 1) << session << exclude << QStringLiteral("9") << rule(12, 9);
    QTest::newRow("to highlight address")
        << rule(0, 1) << address << highlight << QStringLiteral("TCPIP0::h::INSTR") << rule(3, 1, "TCPIP0::h::INSTR");
    QTest::newRow("to exclude command") << rule(5, 3) << command << exclude << QStringLiteral("viRead(")
                                        << rule(14, 3, "viRead(");
    QTest::newRow("non-number keeps the old value")
        << rule(1, 55) << pid << highlight << QStringLiteral("abc") << rule(1, 55);
    QTest::newRow("command to process keeps the number, changes the type")
        << rule(9, 55, "viWrite") << pid << include << QStringLiteral("viWrite") << rule(6, 55, "viWrite");
}

// The edits of the shown rule are committed when the dialog is accepted.
void TestDialogs::editorWritesTheShownRule()
{
    QFETCH(SingleFilter, before);
    QFETCH(QString, field);
    QFETCH(QString, action);
    QFETCH(QString, value);
    gui::ViewFilterDialog dialog(nullptr, rules({before}));
    child<QListWidget>(&dialog, "filterlist")->setCurrentRow(0);
    QVERIFY(child<QGroupBox>(&dialog, "groupBoxFilter")->isEnabled());
    child<QRadioButton>(&dialog, qPrintable(field))->setChecked(true);
    child<QRadioButton>(&dialog, qPrintable(action))->setChecked(true);
    child<QLineEdit>(&dialog, "lineEditId")->setText(value);
    dialog.accept();
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    QCOMPARE(dialog.viewFilters.filters.size(), 1);
    QTEST(dialog.viewFilters.filters[0], "after");
    QCOMPARE(dialog.viewFilters.showOnly, dialog.viewFilters.showOnlyActive());
}

void TestDialogs::excludeAddressKeepsThePreviousAction()
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

void TestDialogs::newAndDelete()
{
    gui::ViewFilterDialog dialog(nullptr, ModelFilters());
    auto* list = child<QListWidget>(&dialog, "filterlist");
    auto* deleteAll = child<QPushButton>(&dialog, "deleteAllButton");
    auto* editor = child<QGroupBox>(&dialog, "groupBoxFilter");
    QVERIFY(!deleteAll->isEnabled());
    QVERIFY(!editor->isEnabled());

    child<QPushButton>(&dialog, "newButton")->click();
    QCOMPARE(list->count(), 1);
    QCOMPARE(list->item(0)->text(), QStringLiteral("Highlight thread id 0"));
    QCOMPARE(list->item(0)->background().color(), QColor(Qt::cyan));
    QCOMPARE(list->currentRow(), 0);
    QVERIFY(editor->isEnabled() && deleteAll->isEnabled());
    QVERIFY(child<QRadioButton>(&dialog, "radioButtonTid")->isChecked());

    // The new rule's edits are committed when the next rule is made.
    child<QLineEdit>(&dialog, "lineEditId")->setText(QStringLiteral("11"));
    child<QPushButton>(&dialog, "newButton")->click();
    child<QLineEdit>(&dialog, "lineEditId")->setText(QStringLiteral("22"));
    child<QPushButton>(&dialog, "newButton")->click();
    QCOMPARE(list->count(), 3);
    QCOMPARE(dialog.viewFilters.filters[0].value, 11u);
    QCOMPARE(dialog.viewFilters.filters[1].value, 22u);

    // Deleting the last row selects the new last row.
    child<QPushButton>(&dialog, "deleteButton")->click();
    QCOMPARE(list->count(), 2);
    QCOMPARE(list->currentRow(), 1);
    QCOMPARE(child<QLineEdit>(&dialog, "lineEditId")->text(), QStringLiteral("22"));
    // Deleting the first row selects the row that took its place.
    list->setCurrentRow(0);
    child<QPushButton>(&dialog, "deleteButton")->click();
    QCOMPARE(list->count(), 1);
    QCOMPARE(dialog.viewFilters.filters[0].value, 22u);
    child<QPushButton>(&dialog, "deleteButton")->click();
    QCOMPARE(list->count(), 0);
    QVERIFY(!editor->isEnabled());
    QVERIFY(!child<QPushButton>(&dialog, "deleteButton")->isEnabled());
    QVERIFY(!deleteAll->isEnabled());

    child<QPushButton>(&dialog, "newButton")->click();
    child<QPushButton>(&dialog, "newButton")->click();
    deleteAll->click();
    QCOMPARE(list->count(), 0);
    QVERIFY(dialog.viewFilters.filters.isEmpty());
    QVERIFY(!deleteAll->isEnabled());
    dialog.accept();
    QVERIFY(dialog.viewFilters.filters.isEmpty());
}

void TestDialogs::listShowsRulesAndColours()
{
    gui::ViewFilterDialog dialog(nullptr, rules({rule(4, 0, "viRead(", Qt::red), rule(11, 77, "", Qt::green)}));
    auto* list = child<QListWidget>(&dialog, "filterlist");
    QCOMPARE(list->count(), 2);
    QCOMPARE(list->item(0)->text(), QString::fromLatin1(rule(4, 0, "viRead(").toString().c_str()));
    QCOMPARE(list->item(0)->background().color(), QColor(Qt::red));
    // Only highlights show their colour.
    QCOMPARE(list->item(1)->background(), list->palette().brush(QPalette::Base));
}

void TestDialogs::filterFiles()
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

    // Another version, another magic, a missing file: the set stays as it is.
    auto writeHeader = [this](const char* name, qint32 magic, qint32 version) {
        QFile file(dir.filePath(QLatin1String(name)));
        file.open(QIODevice::WriteOnly);
        QDataStream out(&file);
        out << magic << version << qint32(1);
        return file.fileName();
    };
    const ModelFilters kept = rules({rule(2, 3)});
    for (const QString& bad :
         {writeHeader("v2.viewfilter", ModelFilters::s_FileMagic, 2), writeHeader("foreign.viewfilter", 0x12345678, 1),
          dir.filePath(QStringLiteral("none"))}) {
        gui::ViewFilterDialog other(nullptr, kept);
        other.loadFile(bad);
        QCOMPARE(other.viewFilters, kept);
    }

    // Saving again over the same name replaces the file.
    gui::ViewFilterDialog(nullptr, kept).saveFile(path);
    gui::ViewFilterDialog reloaded(nullptr, ModelFilters());
    reloaded.loadFile(path);
    QCOMPARE(reloaded.viewFilters, kept);
}

void TestDialogs::placementIsRemembered()
{
    {
        gui::ViewFilterDialog dialog(nullptr, ModelFilters());
        QCOMPARE(dialog.size(), QSize(557, 468));
        QCOMPARE(dialog.windowTitle(), QStringLiteral("Edit view filter"));
        QVERIFY(!(dialog.windowFlags() & Qt::WindowContextHelpButtonHint));
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

void TestDialogs::recordFilterOpensWithTheFilterInForce()
{
    {
        gui::FilterDialog dialog(nullptr, app);
        QCOMPARE(dialog.windowTitle(), QStringLiteral("Set record filter"));
        QVERIFY(!child<QGroupBox>(&dialog, "groupBoxPid")->isChecked());
        QVERIFY(!child<QGroupBox>(&dialog, "groupBoxRegex")->isChecked());
        QVERIFY(child<QComboBox>(&dialog, "comboBoxPid")->currentText().isEmpty());
        QVERIFY(child<QLineEdit>(&dialog, "lineEditRegexFilter")->text().isEmpty());
    }
    app.getChannelControl().setPidFilter(4711);
    app.getChannelControl().setMessageFilter("*IDN?");
    gui::FilterDialog dialog(nullptr, app);
    QVERIFY(child<QGroupBox>(&dialog, "groupBoxPid")->isChecked());
    QCOMPARE(child<QComboBox>(&dialog, "comboBoxPid")->currentText(), QStringLiteral("4711"));
    QVERIFY(child<QGroupBox>(&dialog, "groupBoxRegex")->isChecked());
    QCOMPARE(child<QLineEdit>(&dialog, "lineEditRegexFilter")->text(), QStringLiteral("*IDN?"));
}

void TestDialogs::recordFilterAccept_data()
{
    QTest::addColumn<bool>("pidChecked");
    QTest::addColumn<QString>("pidText");
    QTest::addColumn<bool>("textChecked");
    QTest::addColumn<QString>("text");
    QTest::addColumn<uint>("pid");
    QTest::addColumn<QByteArray>("message");

    QTest::newRow("process id") << true << QStringLiteral("1234") << false << QString() << 1234u << QByteArray();
    QTest::newRow("empty id means no filter") << true << QString() << false << QString() << 0u << QByteArray();
    QTest::newRow("unchecked box clears")
        << false << QStringLiteral("1234") << false << QStringLiteral("viRead") << 0u << QByteArray();
    QTest::newRow("seven digits are cut to six")
        << true << QStringLiteral("1234567") << false << QString() << 123456u << QByteArray();
    QTest::newRow("message text") << false << QString() << true << QStringLiteral("viWrite") << 0u
                                  << QByteArray("viWrite");
    QTest::newRow("both") << true << QStringLiteral("42") << true << QStringLiteral("TCPIP") << 42u
                          << QByteArray("TCPIP");
}

void TestDialogs::recordFilterAccept()
{
    QFETCH(bool, pidChecked);
    QFETCH(QString, pidText);
    QFETCH(bool, textChecked);
    QFETCH(QString, text);
    app.getChannelControl().setPidFilter(99);
    app.getChannelControl().setMessageFilter("old");
    gui::FilterDialog dialog(nullptr, app);
    child<QGroupBox>(&dialog, "groupBoxPid")->setChecked(pidChecked);
    auto* edit = child<QComboBox>(&dialog, "comboBoxPid")->lineEdit();
    edit->clear();
    QTest::keyClicks(edit, pidText);
    child<QGroupBox>(&dialog, "groupBoxRegex")->setChecked(textChecked);
    child<QLineEdit>(&dialog, "lineEditRegexFilter")->setText(text);
    dialog.accept();

    std::string message;
    unsigned int pid = 0;
    app.getChannelControl().getFilter(message, pid);
    QTEST(pid, "pid");
    QTEST(QByteArray::fromStdString(message), "message");
}

void TestDialogs::recordFilterCancel()
{
    app.getChannelControl().setPidFilter(321);
    gui::FilterDialog dialog(nullptr, app);
    child<QGroupBox>(&dialog, "groupBoxPid")->setChecked(false);
    child<QGroupBox>(&dialog, "groupBoxRegex")->setChecked(true);
    child<QLineEdit>(&dialog, "lineEditRegexFilter")->setText(QStringLiteral("x"));
    dialog.reject();
    std::string message;
    unsigned int pid = 0;
    app.getChannelControl().getFilter(message, pid);
    QCOMPARE(pid, 321u);
    QCOMPARE(message, std::string());
}

void TestDialogs::recordFilterListsSeenProcesses()
{
    app.starttrace();
    {
        gui::FilterDialog dialog(nullptr, app);
        QCOMPARE(child<QComboBox>(&dialog, "comboBoxPid")->count(), 0);
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

int main(int argc, char** argv)
{
    return execWithApplication<TestDialogs>(argc, argv, segment(), "dialogs");
}

#include "tst_dialogs.moc"
