#include "AppTestSupport.h"
#include "MainWindow.h"
#include "TraceApplication.h"
#include "TraceProducer.h"
#include "ViewFilterDialog.h"

#include <QtTest>

#include <QAction>
#include <QClipboard>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollBar>
#include <QStatusBar>
#include <QTableView>
#include <QToolBar>
#include <QToolButton>

#include <functional>

using namespace ZelTracer;

namespace {

PrivateSegment& segment()
{
    static PrivateSegment s(41);
    return s;
}

// Runs the action while closing every modal box that shows; returns the texts of the boxes closed.
QStringList closingModals(const std::function<void()>& action)
{
    QStringList texts;
    QTimer closer;
    QObject::connect(&closer, &QTimer::timeout, [&texts] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            texts << box->windowTitle() + QLatin1Char('/') + box->text();
            box->close();
        }
    });
    closer.start(20);
    action();
    return texts;
}

// The names of a menu's or tool bar's entries, a dash for a separator and the submenu's name for a submenu.
QStringList entries(const QWidget* container)
{
    QStringList names;
    for (QAction* action : container->actions()) {
        if (action->isSeparator())
            names << QStringLiteral("-");
        else if (action->menu())
            names << action->menu()->objectName();
        else
            names << action->objectName();
    }
    return names;
}

} // namespace

class TestMainWindow : public QObject
{
    Q_OBJECT

public:
    explicit TestMainWindow(TraceApplication& app)
        : app(app)
    { }

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void actions_data();
    void actions();
    void containers();
    void widgets();
    void actionStates_data();
    void actionStates();
    void statusText();
    void quickFilters_data();
    void quickFilters();
    void quickHighlightColours();
    void copyCommand();
    void headerMenu();
    void doubleClickJumpsToPartner();
    void viewFilterDialogResult();
    void readerKeepsPlaceWhenRowsLeave();
    void pauseOnError();
    void fileNameChecks();
    void firstStartSettings();
    void settingsRoundTrip();
    void endToEndWithGenerator();

private:
    void write(std::uint32_t pid, std::uint32_t thread, std::uint64_t id, std::uint32_t kind, const char* text,
               std::int32_t status = 0);
    void capture();
    template<class T> T* child(const char* name) const
    {
        T* object = window->findChild<T*>(QLatin1String(name));
        if (!object)
            qFatal("no %s", name);
        return object;
    }
    QString status() const;

    TraceApplication& app;
    std::unique_ptr<TraceProducer> producer;
    std::unique_ptr<gui::MainWindow> window;
    // Records identical to ones taken before count as already taken, so every test writes its own ids.
    std::uint64_t idBase = 0;
};

void TestMainWindow::initTestCase()
{
    producer = std::make_unique<TraceProducer>(segment().key, s_VisaSharedMemorySize, segment().semaphore,
                                               segment().fileSemaphore);
}

void TestMainWindow::init()
{
    QSettings().clear();
    idBase += 1000000;
    app.stopfiletrace();
    app.getModel().setFilter(ModelFilters());
    // Tracing is on before the window comes, so that its monitor of the shared flags sees no edge
    // later and does not start afresh in the middle of a test.
    app.starttrace();
    window = std::make_unique<gui::MainWindow>(nullptr, app);
}

void TestMainWindow::cleanup()
{
    window.reset();
}

void TestMainWindow::write(std::uint32_t pid, std::uint32_t thread, std::uint64_t id, std::uint32_t kind,
                           const char* text, std::int32_t status)
{
    FullEntry e = makeEntry(idBase + id, pid, kind, text);
    e.threadId = thread;
    e.status = status;
    QCOMPARE(producer->write(e), TraceProducer::Outcome::Written);
}

void TestMainWindow::capture()
{
    QTest::qWait(LiveTraceModel::s_TimerInterval + 10);
    app.getModel().updateSharedData();
    app.getModel().updateInternalAndDipslay();
    QCoreApplication::processEvents(); // lets the view lay out the new rows
}

QString TestMainWindow::status() const
{
    const QList<QLabel*> labels = child<QStatusBar>("statusbar")->findChildren<QLabel*>();
    return labels.isEmpty() ? QString() : labels.first()->text();
}

void TestMainWindow::actions_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("toolTip");
    QTest::addColumn<bool>("checkable");
    QTest::addColumn<int>("menuRole");

    const int text = QAction::TextHeuristicRole;
    auto row = [](const char* name, const char* label, const char* tip, bool checkable, int role) {
        QTest::newRow(name) << QString::fromLatin1(label) << QString::fromLatin1(tip ? tip : label) << checkable
                            << role;
    };
    row("actionSave_current_buffer", "Save view", nullptr, false, text);
    row("actionReset_Current_Buffer", "Clear", nullptr, false, text);
    row("actionExit", "Exit", nullptr, false, QAction::QuitRole);
    row("actionStart", "Start", nullptr, false, text);
    row("actionStop", "Stop", nullptr, false, text);
    row("actionRecord_to_file", "Record to file", nullptr, false, text);
    row("actionStop_record_to_file", "Stop record to file", nullptr, false, text);
    row("actionConfigure_filter", "Configure filter", nullptr, false, QAction::NoRole);
    row("actionPause", "Pause", nullptr, true, text);
    row("actionCopyClipboard", "Copy", nullptr, false, text);
    row("actionIconStart", "Start", "Start recording", false, text);
    row("actionIconStop", "Stop", "Stop recording", false, text);
    row("actionStart_to_file", "Start to file", "Start recording to file", false, text);
    row("actionStop_to_file", "Stop to file", "Stop recording to file", false, text);
    row("actionIconPause", "Pause", nullptr, true, text);
    row("actionClear", "Clear", nullptr, false, text);
    row("actionSave_view", "Save view", nullptr, false, text);
    row("actionCopy_view", "Copy view", nullptr, false, text);
    row("actionViewFilter", "Edit filter", nullptr, false, text);
    row("actionScroll", "Scroll to bottom", nullptr, true, text);
    row("actionPauseOnError", "Pause on error", nullptr, true, text);
    row("actionCollapse_same_commands", "Collapse same commands", nullptr, true, text);
    row("actionShow_only_string", "Show only string arguments", nullptr, true, text);
}

void TestMainWindow::actions()
{
    QAction* action = child<QAction>(QTest::currentDataTag());
    QTEST(action->text(), "text");
    QTEST(action->toolTip(), "toolTip");
    QTEST(action->isCheckable(), "checkable");
    QTEST(static_cast<int>(action->menuRole()), "menuRole");
    QVERIFY(action->shortcut().isEmpty());
    QVERIFY(action->statusTip().isEmpty());
    const bool hasIcon = !action->icon().isNull();
    const bool iconless = QByteArray(QTest::currentDataTag()).contains("Configure")
        || QByteArray(QTest::currentDataTag()).contains("PauseOnError")
        || QByteArray(QTest::currentDataTag()).contains("Collapse")
        || QByteArray(QTest::currentDataTag()).contains("Show_only");
    QCOMPARE(hasIcon, !iconless);
}

void TestMainWindow::containers()
{
    QCOMPARE(entries(child<QMenuBar>("menubar")),
             (QStringList {QStringLiteral("menuFile"), QStringLiteral("menuRecording"), QStringLiteral("menuView")}));
    QCOMPARE(entries(child<QMenu>("menuFile")).join(QLatin1Char(' ')),
             QStringLiteral("actionSave_current_buffer - actionExit"));
    QCOMPARE(entries(child<QMenu>("menuRecording")).join(QLatin1Char(' ')),
             QStringLiteral("actionStart actionStop - actionRecord_to_file actionStop_record_to_file - "
                            "actionConfigure_filter"));
    QCOMPARE(entries(child<QMenu>("menuView")).join(QLatin1Char(' ')),
             QStringLiteral("actionReset_Current_Buffer actionPause actionPauseOnError actionScroll - "
                            "actionCopyClipboard actionViewFilter - menuOptions"));
    QCOMPARE(entries(child<QMenu>("menuOptions")).join(QLatin1Char(' ')),
             QStringLiteral("actionCollapse_same_commands actionShow_only_string"));
    QCOMPARE(child<QMenu>("menuOptions")->title(), QStringLiteral("View Options"));
    QVERIFY(!child<QMenu>("menuOptions")->isTearOffEnabled());
    QCOMPARE(entries(child<QToolBar>("toolBar")).join(QLatin1Char(' ')),
             QStringLiteral("actionIconStart actionIconStop actionStart_to_file actionStop_to_file actionIconPause - "
                            "actionSave_view actionCopy_view actionClear actionViewFilter actionScroll"));
    QCOMPARE(window->toolBarArea(child<QToolBar>("toolBar")), Qt::TopToolBarArea);
    QCOMPARE(child<QToolBar>("toolBar")->contextMenuPolicy(), Qt::PreventContextMenu);
}

void TestMainWindow::widgets()
{
    QCOMPARE(window->windowTitle(), QStringLiteral("ZelVisaTraceTool - 5.12.9"));
    QCOMPARE(child<QLabel>("outputFilenameLabel")->text(), QStringLiteral("Output filename"));
    const QStringList rowOrder {QStringLiteral("outputFilenameLabel"), QStringLiteral("editFilename"),
                                QStringLiteral("saveFileButton"), QStringLiteral("viewlogfileButton"),
                                QStringLiteral("deleteLogFileButton")};
    auto* row = child<QHBoxLayout>("horizontalLayout");
    QCOMPARE(row->count(), rowOrder.size());
    for (int i = 0; i < row->count(); ++i)
        QCOMPARE(row->itemAt(i)->widget()->objectName(), rowOrder[i]);
    QCOMPARE(child<QToolButton>("saveFileButton")->toolTip(), QStringLiteral("Select log file"));
    QCOMPARE(child<QToolButton>("viewlogfileButton")->toolTip(), QStringLiteral("Open log file in file browser"));
    QCOMPARE(child<QToolButton>("deleteLogFileButton")->toolTip(), QStringLiteral("Delete log file"));

    auto* view = child<QTableView>("liveView");
    QCOMPARE(view->model(), &app.getModel());
    QCOMPARE(app.getModel().tableView, view);
    QCOMPARE(app.getModel().selectionModel, view->selectionModel());
    QVERIFY(view->horizontalHeader()->stretchLastSection());
    QCOMPARE(view->contextMenuPolicy(), Qt::CustomContextMenu);
    QCOMPARE(view->horizontalHeader()->contextMenuPolicy(), Qt::CustomContextMenu);
}

void TestMainWindow::actionStates_data()
{
    QTest::addColumn<bool>("tracing");
    QTest::addColumn<bool>("toFile");
    // enabled/visible flags in a fixed order: Start, Stop, Record, StopRecord, Pause, file row,
    // IconStart visible, IconStop visible, Start_to_file visible, Stop_to_file visible
    QTest::addColumn<QString>("states");
    QTest::addColumn<QString>("statusStart");

    QTest::newRow("off") << false << false << QStringLiteral("1010011010") << QStringLiteral("Live view not active|");
    QTest::newRow("tracing") << true << false << QStringLiteral("0110110110") << QStringLiteral("Live view active|");
    QTest::newRow("tracing to file") << true << true << QStringLiteral("0101100101")
                                     << QStringLiteral("Recording to file|Live view active|");
}

void TestMainWindow::actionStates()
{
    QFETCH(bool, tracing);
    QFETCH(bool, toFile);
    QTemporaryDir dir;
    if (!tracing)
        app.stoptrace();
    if (toFile)
        app.startfiletrace(dir.filePath(QStringLiteral("states.log")).toStdString());

    auto flag = [](bool b) { return b ? QLatin1Char('1') : QLatin1Char('0'); };
    QString states;
    states += flag(child<QAction>("actionStart")->isEnabled());
    states += flag(child<QAction>("actionStop")->isEnabled());
    states += flag(child<QAction>("actionRecord_to_file")->isEnabled());
    states += flag(child<QAction>("actionStop_record_to_file")->isEnabled());
    states += flag(child<QAction>("actionPause")->isEnabled() && child<QAction>("actionIconPause")->isEnabled());
    states += flag(child<QLineEdit>("editFilename")->isEnabled() && child<QToolButton>("saveFileButton")->isEnabled()
                   && child<QToolButton>("deleteLogFileButton")->isEnabled());
    states += flag(child<QAction>("actionIconStart")->isVisible());
    states += flag(child<QAction>("actionIconStop")->isVisible());
    states += flag(child<QAction>("actionStart_to_file")->isVisible());
    states += flag(child<QAction>("actionStop_to_file")->isVisible());
    QTEST(states, "states");
    QFETCH(QString, statusStart);
    QVERIFY2(status().startsWith(statusStart), qPrintable(status()));
    if (toFile)
        QCOMPARE(child<QLineEdit>("editFilename")->text(), dir.filePath(QStringLiteral("states.log")));
}

void TestMainWindow::statusText()
{
    QCOMPARE(status(), QStringLiteral("Live view active|0 entries|"));
    write(100, 1, 1, 0, "viOpen(0x1, \"GPIB0::1::INSTR\")");
    write(100, 1, 1, 1, "viOpen(0x1, \"GPIB0::1::INSTR\")");
    capture();
    QCOMPARE(status(), QStringLiteral("Live view active|1 entry|"));
    write(100, 1, 2, 0, "viRead(0x2)");
    write(100, 1, 2, 1, "viRead(0x2)", -1073807339);
    capture();
    QCOMPARE(status(), QStringLiteral("Live view active|Entry with error|2 entries|"));
    child<QAction>("actionIconPause")->trigger();
    QVERIFY(child<QAction>("actionPause")->isChecked());
    QCOMPARE(status(), QStringLiteral("Live view paused|Entry with error|2 entries|"));
    // Resuming starts afresh.
    child<QAction>("actionPause")->trigger();
    QVERIFY(!child<QAction>("actionIconPause")->isChecked());
    QCOMPARE(status(), QStringLiteral("Live view active|0 entries|"));
}

void TestMainWindow::quickFilters_data()
{
    QTest::addColumn<int>("entry");
    QTest::addColumn<quint32>("value");
    QTest::addColumn<QString>("text");

    // The row under test: pid 4242, thread 77, session 7, address GPIB0::22::INSTR.
    const QString function = QStringLiteral("viWrite(");
    const QString address = QStringLiteral("GPIB0::22::INSTR");
    const char* names[] = {"thread", "process", "session", "address", "command"};
    const quint32 numbers[] = {77, 4242, 7, 0, 0};
    const QString texts[] = {QString(), QString(), QString(), address, function};
    const char* actions[] = {"highlight", "show only", "hide"};
    for (int type = 0; type < SingleFilter::TypeCount; ++type) {
        const int field = type % 5;
        QTest::addRow("%s %s", actions[type / 5], names[field]) << type << numbers[field] << texts[field];
    }
}

void TestMainWindow::quickFilters()
{
    QFETCH(int, entry);
    write(1, 1, 1, 0, "viClear(0x1)");
    write(1, 1, 1, 1, "viClear(0x1)");
    write(4242, 77, 2, 0, "viWrite(0x7, \"*IDN?\\n\", 6, 6)");
    write(4242, 77, 2, 1, "viWrite(0x7, \"*IDN?\\n\", 6, 6)");
    capture();
    QCOMPARE(app.getModel().rowCount(), 2);

    QVERIFY(QMetaObject::invokeMethod(window.get(), "popupmenuTriggered", Q_ARG(int, 1 * 32 + entry)));
    const QList<SingleFilter>& rules = app.getModel().getFilters().filters;
    QCOMPARE(rules.size(), 1);
    QCOMPARE(rules[0].type, entry);
    QTEST(rules[0].value, "value");
    QTEST(rules[0].text, "text");
    QCOMPARE(rules[0].color, QColor(Qt::magenta));
    QVERIFY(!child<QAction>("actionViewFilter")->icon().isNull());
}

void TestMainWindow::quickHighlightColours()
{
    {
        QSettings settings;
        settings.setValue(QStringLiteral("FilterColors/FilterColor0"), QColor(Qt::red));
        settings.setValue(QStringLiteral("FilterColors/FilterColor1"), QColor(Qt::green));
    }
    write(5, 6, 1, 0, "viRead(0x1, 10)");
    capture();
    const int hideProcess = SingleFilter::ExcludeProcess;
    const int ids[] = {SingleFilter::HighlightThread, SingleFilter::IncludeSession, SingleFilter::HighlightAddress,
                       SingleFilter::HighlightCommand, hideProcess};
    for (int id : ids)
        QMetaObject::invokeMethod(window.get(), "popupmenuTriggered", Q_ARG(int, id));
    QList<QColor> colours;
    for (const SingleFilter& rule : app.getModel().getFilters().filters)
        colours << rule.color;
    // Only highlights advance the colour; a show-only in between takes the colour that is current.
    QCOMPARE(colours, (QList<QColor> {Qt::red, Qt::green, Qt::green, Qt::magenta, Qt::magenta}));

    // At exit the highlight colours in force are stored in rule order, skipping other rules.
    window.reset();
    QSettings settings;
    settings.beginGroup(QStringLiteral("FilterColors"));
    QCOMPARE(settings.value(QStringLiteral("FilterColor0")).value<QColor>(), QColor(Qt::red));
    QCOMPARE(settings.value(QStringLiteral("FilterColor1")).value<QColor>(), QColor(Qt::green));
    QCOMPARE(settings.value(QStringLiteral("FilterColor2")).value<QColor>(), QColor(Qt::magenta));
    QVERIFY(!settings.contains(QStringLiteral("FilterColor3")));
}

void TestMainWindow::copyCommand()
{
    for (std::uint64_t id = 1; id <= 4; ++id)
        write(9, static_cast<std::uint32_t>(id), id, 0, qPrintable(QStringLiteral("viWrite(0x%1, \"A\tB\")").arg(id)));
    capture();
    QCOMPARE(app.getModel().rowCount(), 4);
    QMetaObject::invokeMethod(window.get(), "popupmenuTriggered", Q_ARG(int, ~(3 * 32)));
    QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("viWrite(0x4, \"A\tB\")"));
    QMetaObject::invokeMethod(window.get(), "popupmenuTriggered", Q_ARG(int, -1));
    QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("viWrite(0x1, \"A\tB\")"));
    QVERIFY(app.getModel().getFilters().filters.isEmpty());

    // The table's context menu offers the same entries whatever the row, and nothing below the last row.
    auto* view = child<QTableView>("liveView");
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    const int menusBefore = window->findChildren<QMenu*>().size();
    emit view->customContextMenuRequested(QPoint(5, view->viewport()->height() - 2));
    QCOMPARE(window->findChildren<QMenu*>().size(), menusBefore);
    emit view->customContextMenuRequested(view->visualRect(app.getModel().index(2, 9)).center());
    const QList<QMenu*> menus = window->findChildren<QMenu*>();
    QCOMPARE(menus.size(), menusBefore + 1);
    QStringList texts;
    for (QAction* action : menus.last()->actions())
        texts << (action->isSeparator() ? QStringLiteral("-") : action->text());
    QCOMPARE(texts.size(), 19);
    QCOMPARE(texts.mid(14).join(QLatin1Char('|')),
             QStringLiteral("Hide session|Hide address|Hide command|-|Copy command"));
    menus.last()->actions().last()->trigger();
    QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("viWrite(0x3, \"A\tB\")"));
    menus.last()->close();
}

void TestMainWindow::headerMenu()
{
    auto* view = child<QTableView>("liveView");
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    emit view->horizontalHeader()->customContextMenuRequested(QPoint(1, 1));
    QMenu* menu = window->findChildren<QMenu*>().last();
    QCOMPARE(menu->actions().size(), 9);
    QCOMPARE(menu->actions().at(3)->text(), QStringLiteral("Pid"));
    QVERIFY(!menu->actions().at(3)->isChecked()); // hidden by default
    QVERIFY(menu->actions().at(6)->isChecked()); // Address shown
    menu->actions().at(6)->trigger();
    QVERIFY(view->isColumnHidden(6));
    menu->close();
    QMetaObject::invokeMethod(window.get(), "headerpopupmenuTriggered", Q_ARG(int, 6));
    QVERIFY(!view->isColumnHidden(6));
}

void TestMainWindow::doubleClickJumpsToPartner()
{
    // A call whose return comes 150 records later, with another thread's traffic in between.
    write(20, 1, 1, 0, "viRead(0x1, 100)");
    for (std::uint64_t id = 2; id < 152; ++id)
        write(20, 2, id, 0, qPrintable(QStringLiteral("viGetAttribute(0x2, %1)").arg(id)));
    write(20, 1, 1, 1, "viRead(0x1, 100)");
    write(20, 3, 152, 0, "viFlush(0x3)");
    capture();
    LiveTraceModel& model = app.getModel();
    QCOMPARE(model.rowCount(), 153);

    auto* view = child<QTableView>("liveView");
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    auto shown = [view, &model](int row) {
        return view->viewport()->rect().contains(view->visualRect(model.index(row, 9)).center());
    };

    view->scrollToTop();
    QVERIFY(!shown(151));
    // Row 0 never jumps, even though its partner is in the table.
    QMetaObject::invokeMethod(window.get(), "doubleClickedListView", Q_ARG(QModelIndex, model.index(0, 0)));
    QVERIFY(!shown(151));

    // The return record jumps back to its call; a row whose partner is not shown does nothing.
    view->scrollToBottom();
    const int bottom = view->verticalScrollBar()->value();
    QMetaObject::invokeMethod(window.get(), "doubleClickedListView", Q_ARG(QModelIndex, model.index(152, 0)));
    QCOMPARE(view->verticalScrollBar()->value(), bottom);
    emit view->doubleClicked(model.index(151, 3));
    QVERIFY(shown(0));

    // A call jumps forward to its return, which lands in the middle of the view.
    write(21, 1, 200, 0, "viOpen(0x1)");
    write(21, 2, 201, 0, "viWrite(0x2, \"X\")");
    for (std::uint64_t id = 202; id < 250; ++id)
        write(21, 3, id, 0, qPrintable(QStringLiteral("viFlush(0x%1)").arg(id)));
    write(21, 2, 201, 1, "viWrite(0x2, \"X\")");
    capture();
    const int callRow = 154;
    const int returnRow = model.rowCount() - 1;
    QCOMPARE(model.data(model.index(callRow, 9)).toString(), QStringLiteral("viWrite(0x2, \"X\")"));
    QCOMPARE(model.displayRow(returnRow)->entry->kind, 1u);
    view->scrollToTop();
    emit view->doubleClicked(model.index(callRow, 9));
    QVERIFY(shown(returnRow));
}

// Accepting the dialog replaces the model's set; cancelling keeps it. The funnel shows whether any rule is in force.
void TestMainWindow::viewFilterDialogResult()
{
    auto funnel = [](const QIcon& icon) { return icon.pixmap(16).toImage(); };
    const QImage inactive = funnel(QIcon(QStringLiteral(":/icons/Filter_tra4d09c6de6a114.ico")));
    const QImage active = funnel(QIcon(QStringLiteral(":/icons/Filter_akt4d09c69b9ee49.ico")));
    QVERIFY(inactive != active);
    QAction* edit = child<QAction>("actionViewFilter");
    QCOMPARE(funnel(edit->icon()), inactive);

    // A highlight rule alone switches the funnel on.
    QMetaObject::invokeMethod(window.get(), "popupmenuTriggered", Q_ARG(int, SingleFilter::HighlightCommand));
    QCOMPARE(funnel(edit->icon()), active);

    auto emptyTheSetAnd = [](bool accept) {
        QTimer::singleShot(50, [accept] {
            auto* dialog = qobject_cast<gui::ViewFilterDialog*>(QApplication::activeModalWidget());
            QVERIFY(dialog);
            QCOMPARE(dialog->viewFilters.filters.size(), 1);
            dialog->findChild<QPushButton*>(QStringLiteral("deleteAllButton"))->click();
            accept ? dialog->accept() : dialog->reject();
        });
    };
    emptyTheSetAnd(false);
    edit->trigger();
    QCOMPARE(app.getModel().getFilters().filters.size(), 1);
    emptyTheSetAnd(true);
    edit->trigger();
    QVERIFY(app.getModel().getFilters().filters.isEmpty());
    QCOMPARE(funnel(edit->icon()), inactive);
}

// A full table drops its oldest rows as new ones arrive; the rows a reader looks at stay where they are.
void TestMainWindow::readerKeepsPlaceWhenRowsLeave()
{
    LiveTraceModel& model = app.getModel();
    std::uint64_t id = 0;
    auto writeCalls = [&](int n) {
        for (int i = 0; i < n; ++i, ++id)
            write(40, 1, id, 0, qPrintable(QStringLiteral("viWrite(0x1, \"%1\")").arg(id)));
        capture();
    };
    writeCalls(5000);
    writeCalls(3510);
    QCOMPARE(model.rowCount(), 8510);

    auto* view = child<QTableView>("liveView");
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    view->scrollTo(model.index(4000, 9), QAbstractItemView::PositionAtTop);
    const std::uint64_t topRecord = model.displayRow(view->rowAt(0))->entry->id;

    writeCalls(120);
    QCOMPARE(model.rowCount(), 8510);
    QCOMPARE(model.displayRow(view->rowAt(0))->entry->id, topRecord);
}

void TestMainWindow::pauseOnError()
{
    child<QAction>("actionPauseOnError")->setChecked(true);
    write(30, 1, 1, 0, "viOpen(0x1)");
    write(30, 1, 1, 1, "viOpen(0x1)");
    capture();
    emit app.getModel().newDataCollected();
    QVERIFY(!child<QAction>("actionPause")->isChecked());

    write(30, 1, 2, 0, "viRead(0x1, 10)");
    write(30, 1, 2, 1, "viRead(0x1, 10)", -1073807339);
    capture();
    emit app.getModel().newDataCollected();
    QVERIFY(child<QAction>("actionPause")->isChecked());
    QVERIFY(child<QAction>("actionIconPause")->isChecked());
    QVERIFY(app.getModel().isPaused());
    QVERIFY(status().startsWith(QStringLiteral("Live view paused|Entry with error|")));

    // Unchecking resumes with an empty view.
    child<QAction>("actionPause")->trigger();
    QVERIFY(!app.getModel().isPaused());
    QCOMPARE(app.getModel().rowCount(), 0);
    QVERIFY(!app.getModel().errorInDisplay);
}

void TestMainWindow::fileNameChecks()
{
    auto* edit = child<QLineEdit>("editFilename");
    const QString defaultName = QDir::homePath() + QStringLiteral("/ZelVisa.log");

    edit->clear();
    QCOMPARE(
        closingModals([this] { child<QAction>("actionRecord_to_file")->trigger(); }),
        QStringList {QStringLiteral("Invalid filename/The specified filename \"\" of the log file is not valid.")});
    QCOMPARE(edit->text(), defaultName);
    QVERIFY(!app.getChannelControl().isTracingToFile());

    edit->setText(QStringLiteral("/no/such/dir/a.log"));
    QCOMPARE(closingModals([this] { child<QAction>("actionStart_to_file")->trigger(); }).size(), 1);
    QCOMPARE(edit->text(), QStringLiteral("/no/such/dir/a.log"));
    QVERIFY(!app.getChannelControl().isTracingToFile());

    QTemporaryDir dir;
    const QString missing = dir.filePath(QStringLiteral("gone.log"));
    edit->setText(missing);
    QCOMPARE(closingModals([this] { child<QToolButton>("deleteLogFileButton")->click(); }),
             QStringList {QStringLiteral("Info/The file \"%1\" could not be deleted.\n").arg(missing)});
    QVERIFY(closingModals([this] { child<QToolButton>("viewlogfileButton")->click(); }).isEmpty());

    QFile(missing).open(QIODevice::WriteOnly);
    QVERIFY(closingModals([this] { child<QToolButton>("deleteLogFileButton")->click(); }).isEmpty());
    QVERIFY(!QFile::exists(missing));

    edit->clear();
    QCOMPARE(closingModals([this] { child<QToolButton>("viewlogfileButton")->click(); }),
             QStringList {QStringLiteral("View failure/Cannot open file \"\"")});
    emit edit->editingFinished();
    QCOMPARE(edit->text(), defaultName);

    // A valid name starts the recording; the header carries it and the field follows the header.
    edit->setText(dir.filePath(QStringLiteral("trace.log")));
    child<QAction>("actionRecord_to_file")->trigger();
    QVERIFY(app.getChannelControl().isTracingToFile());
    QCOMPARE(QString::fromStdString(app.getChannelControl().getFileName()), dir.filePath(QStringLiteral("trace.log")));
    QVERIFY(!edit->isEnabled());
    QVERIFY(status().startsWith(QStringLiteral("Recording to file|")));
    child<QAction>("actionStop_to_file")->trigger();
    QVERIFY(!app.getChannelControl().isTracingToFile());
    QVERIFY(edit->isEnabled());
}

void TestMainWindow::firstStartSettings()
{
    QCOMPARE(window->size(), QSize(600, 400));
    QVERIFY(!window->isMaximized());
    QCOMPARE(child<QLineEdit>("editFilename")->text(), QDir::homePath() + QStringLiteral("/ZelVisa.log"));
    auto* view = child<QTableView>("liveView");
    QString hidden;
    for (int c = 0; c < 10; ++c)
        hidden += view->isColumnHidden(c) ? QLatin1Char('H') : QLatin1Char('.');
    QCOMPARE(hidden, QStringLiteral("H..HHH...."));
    QVERIFY(!child<QAction>("actionScroll")->isChecked());
    QVERIFY(!child<QAction>("actionPauseOnError")->isChecked());
    QVERIFY(child<QAction>("actionCollapse_same_commands")->isChecked());
    QVERIFY(!child<QAction>("actionShow_only_string")->isChecked());
}

void TestMainWindow::settingsRoundTrip()
{
    child<QLineEdit>("editFilename")->setText(QStringLiteral("/tmp/kept.log"));
    child<QAction>("actionScroll")->setChecked(true);
    child<QAction>("actionPauseOnError")->setChecked(true);
    child<QAction>("actionCollapse_same_commands")->setChecked(false);
    child<QAction>("actionShow_only_string")->setChecked(true);
    child<QTableView>("liveView")->setColumnHidden(0, false);
    child<QTableView>("liveView")->setColumnHidden(7, true);
    window->resize(700, 500);
    window.reset();
    QSettings().setValue(QStringLiteral("MainWindow/ColumnHidden9"), true);

    window = std::make_unique<gui::MainWindow>(nullptr, app);
    QCOMPARE(window->size(), QSize(700, 500));
    QCOMPARE(child<QLineEdit>("editFilename")->text(), QStringLiteral("/tmp/kept.log"));
    QVERIFY(child<QAction>("actionScroll")->isChecked());
    QVERIFY(child<QAction>("actionPauseOnError")->isChecked());
    QVERIFY(!app.getModel().isCollapseSameCommands());
    QVERIFY(app.getModel().isShowOnlyStringParameters());
    auto* view = child<QTableView>("liveView");
    QVERIFY(!view->isColumnHidden(0));
    QVERIFY(view->isColumnHidden(7));
    QVERIFY(!view->isColumnHidden(9));
    window.reset();
    QCOMPARE(QSettings().value(QStringLiteral("MainWindow/ColumnHidden9")).toBool(), false);

    // Back to the model's defaults for the tests that follow.
    app.getModel().setCollapseSameCommands(true);
    app.getModel().setShowOnlyStringParameters(false);
    window = std::make_unique<gui::MainWindow>(nullptr, app);
}

// The whole program as it runs: the traffic generator is a separate process on the private segment.
void TestMainWindow::endToEndWithGenerator()
{
    QSettings().setValue(QStringLiteral("MainWindow/ScrollToBottom"), true);
    app.stoptrace();
    window = std::make_unique<gui::MainWindow>(nullptr, app);
    window->show();
    QVERIFY(QTest::qWaitForWindowExposed(window.get()));
    child<QAction>("actionIconStart")->trigger();
    QVERIFY(app.getModel().isRunning());
    // The monitor of shared flags reports this start as an edge and starts afresh once more.
    QTest::qWait(2 * ExternalEvents::s_PollInterval + 50);

    QProcess generator;
    generator.start(QStringLiteral(ZEL_TRAFFIC_PATH),
                    {QStringLiteral("--key"), QString::number(segment().key), QStringLiteral("--semaphore"),
                     QString::fromStdString(segment().semaphore), QStringLiteral("--file-semaphore"),
                     QString::fromStdString(segment().fileSemaphore), QStringLiteral("--count"), QStringLiteral("400"),
                     QStringLiteral("--rate"), QStringLiteral("4000"), QStringLiteral("--seed"), QStringLiteral("7"),
                     QStringLiteral("--quiet")});
    QVERIFY(generator.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(generator.state() == QProcess::NotRunning, 20000);
    QCOMPARE(generator.exitCode(), 0);

    LiveTraceModel& model = app.getModel();
    QTRY_VERIFY(model.rowCount() > 50);
    QTest::qWait(300); // one more display pass after the last records

    int completed = 0;
    int errors = 0;
    for (int r = 0; r < model.rowCount(); ++r) {
        if (model.displayRow(r)->displayKind == LiveTraceModel::CompletedKind)
            ++completed;
        if (model.displayRow(r)->entry->status < 0) {
            ++errors;
            QCOMPARE(model.data(model.index(r, 8), Qt::BackgroundRole).value<QBrush>().color(), QColor(255, 128, 128));
        }
    }
    // One process, one thread: every call is followed by its return and pairs with it.
    QVERIFY2(completed >= model.rowCount() - 1, qPrintable(QString::number(completed)));
    QVERIFY(errors > 0);
    QVERIFY2(status().endsWith(QStringLiteral("%1 entries|").arg(model.rowCount())), qPrintable(status()));
    QCOMPARE(status().contains(QStringLiteral("Entry with error|")), errors > 0);
    // Scroll to bottom keeps the last row in sight.
    auto* view = child<QTableView>("liveView");
    const QRect lastRow = view->visualRect(model.index(model.rowCount() - 1, LiveTraceModel::TimestampColumn));
    QVERIFY(view->viewport()->rect().contains(lastRow.center()));
    child<QAction>("actionIconStop")->trigger();
}

int main(int argc, char** argv)
{
    return execWithApplication<TestMainWindow>(argc, argv, segment(), "gui");
}

#include "tst_mainwindow.moc"
