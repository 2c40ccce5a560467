#include "AppTestSupport.h"
#include "CaptureExport.h"
#include "CommandLine.h"
#include "MainWindow.h"
#include "TraceProducer.h"
#include "ViewFilterDialog.h"

#include <QtTest>
#include <QtWidgets>

using namespace ZelTracer;

namespace {

constexpr auto segment = programSegment<41>;

// The model's refresh deliberately reaches one past the last row and column (also in an empty table),
// which the tester reports; every other complaint of the tester is a fault.
QStringList complaints;
QtMessageHandler previousHandler = nullptr;
void collectComplaints(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    static const QRegularExpression deliberate(QStringLiteral("bottomRight|topLeft\\.isValid|< itemCount"));
    if (qstrcmp(context.category, "qt.modeltest") != 0)
        previousHandler(type, context, message);
    else if (!message.contains(deliberate))
        complaints << message;
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
    void init()
    {
        QSettings().clear();
        idBase += 1000000;
        app.stopfiletrace();
        model.setFilter(ModelFilters());
        model.setOnlyErrors(false);
        model.setCollapseSameCommands(true);
        model.setShowOnlyStringParameters(false);
        // Tracing is on before the window comes, so that its monitor of the shared flags sees no edge
        // later and does not start afresh in the middle of a test.
        app.starttrace();
        window = std::make_unique<gui::MainWindow>(nullptr, app);
    }

    void cleanup() { window.reset(); }

    // Each row's name is a command line split at spaces (a trailing space is an empty argument), then
    // whether it asks for tracing and for file tracing, and the log file name it gives.
    void commandLine_data()
    {
        QTest::addColumn<QString>("asked");
        auto row = [](const char* line, const char* asked) { QTest::newRow(line) << QString::fromLatin1(asked); };
        row("zel", "00 ");
        row("zel night.zelcap -t a.csv", "10  | night.zelcap a.csv"); // captures beside, as a file manager passes
        row("zel -t", "10 ");
        row("zel -ft", "01 "); // the window keeps the name it restored
        row("zel -ft /tmp/a.log", "01 /tmp/a.log");
        row("zel -ft -x log.txt", "01 log.txt");
        row("zel -ft a.log b.log", "01 b.log");
        row("zel /tmp/a.log -ft", "01  | /tmp/a.log");
        row("zel -t -ft x.log", "11 x.log");
        row("zel -T -FT", "00 ");
        row("zel -ft -t", "11 ");
        row("zel -ft a.log ", "01 ");
    }

    void commandLine()
    {
        const auto line = gui::CommandLine::parse(QString::fromLatin1(QTest::currentDataTag()).split(QLatin1Char(' ')));
        const QString captures = line.captureFiles.isEmpty()
            ? QString()
            : QStringLiteral(" | ") + line.captureFiles.join(QLatin1Char(' '));
        const QString asked
            = QStringLiteral("%1%2 %3").arg(int(line.startTracing)).arg(int(line.startFileTracing)).arg(line.fileName);
        QTEST(QString(asked + captures), "asked");
    }

    void actionStates_data()
    {
        QTest::addColumn<bool>("tracing");
        QTest::addColumn<bool>("toFile");
        // Which actions and fields are enabled, which tool bar actions are visible (in the order the test
        // reads them), then the start of the status text.
        QTest::addColumn<QString>("states");
        QTest::newRow("off") << false << false << QStringLiteral("101000111 1010 Live view not active|");
        QTest::newRow("tracing") << true << false << QStringLiteral("011011111 0110 Live view active|");
        QTest::newRow("tracing to file") << true << true
                                         << QStringLiteral("010111000 0101 Recording to file|Live view active|");
    }

    void actionStates()
    {
        QFETCH(bool, tracing);
        QFETCH(bool, toFile);
        QTemporaryDir dir;
        const QString log = dir.filePath(QStringLiteral("states.log"));
        if (!tracing)
            app.stoptrace();
        if (toFile)
            app.startfiletrace(log.toStdString());

        const QString actual
            = flags("enabled",
                    {"actionStart", "actionStop", "actionRecord_to_file", "actionStop_record_to_file", "actionPause",
                     "actionIconPause", "editFilename", "saveFileButton", "deleteLogFileButton"})
            + QLatin1Char(' ')
            + flags("visible", {"actionIconStart", "actionIconStop", "actionStart_to_file", "actionStop_to_file"})
            + QLatin1Char(' ') + status();
        QFETCH(QString, states);
        QVERIFY2(actual.startsWith(states), qPrintable(actual));
        if (toFile)
            QCOMPARE(get<QLineEdit>("editFilename")->text(), log);
    }

    void statusAndPause()
    {
        // The status, then whether the model and both pause actions are paused.
        auto state = [this]() -> QString {
            return status() + flags("checked", {"actionPause", "actionIconPause"}) + QString::number(model.isPaused());
        };
        QCOMPARE(state(), QStringLiteral("Live view active|0 entries|000"));
        get("actionPauseOnError")->setChecked(true);
        write(30, 1, 1, 0, "viOpen(0x1)");
        write(30, 1, 1, 1, "viOpen(0x1)");
        capture();
        QCOMPARE(state(), QStringLiteral("Live view active|1 entry|000"));
        // An error row pauses the view; resuming starts afresh.
        write(30, 1, 2, 0, "viRead(0x1, 10)");
        write(30, 1, 2, 1, "viRead(0x1, 10)", -1073807339);
        capture();
        QCOMPARE(state(), QStringLiteral("Live view paused|Entry with error|2 entries|111"));
        get("actionPause")->trigger();
        QCOMPARE(state(), QStringLiteral("Live view active|0 entries|000"));
        get("actionIconPause")->trigger();
        QCOMPARE(state(), QStringLiteral("Live view paused|0 entries|111"));
    }

    void quickFilters_data()
    {
        QTest::addColumn<int>("entry");
        const char* names[] = {"thread", "process", "session", "address", "command"};
        const char* actions[] = {"highlight", "show only", "hide"};
        for (int type = 0; type < SingleFilter::TypeCount; ++type)
            QTest::addRow("%s %s", actions[type / 5], names[type % SingleFilter::FieldCount]) << type;
    }

    // The menu id carries the row: the rule takes its value from row 1, not from row 0.
    void quickFilters()
    {
        QFETCH(int, entry);
        write(1, 1, 1, 0, "viClear(0x1)");
        write(1, 1, 1, 1, "viClear(0x1)");
        for (std::uint32_t kind : {0u, 1u}) {
            FullEntry e = makeCall(4242, 77, idBase + 2, kind, "viWrite(0x9, \"*IDN?\\n\", 6, 6)");
            e.session = 9;
            std::strcpy(e.address, "TCPIP0::h::INSTR");
            producer.write(e);
        }
        capture();
        popup(1 * 32 + entry);
        // Row 1 differs from row 0 in every field: the rule's count, type, colour, value and text.
        const char* const taken[] = {"77 ", "4242 ", "9 ", "0 TCPIP0::h::INSTR", "0 viWrite("};
        const QList<SingleFilter>& rules = model.getFilters().filters;
        const SingleFilter rule = rules.value(0);
        QCOMPARE(QStringLiteral("%1 %2 %3 %4 ").arg(rules.size()).arg(rule.type).arg(rule.color.name()).arg(rule.value)
                     + rule.text,
                 QStringLiteral("1 %1 #ff00ff ").arg(entry) + QLatin1String(taken[entry % SingleFilter::FieldCount]));
    }

    void quickHighlightColours()
    {
        QSettings settings;
        settings.beginGroup(QStringLiteral("FilterColors"));
        settings.setValue(QStringLiteral("FilterColor0"), QColor(Qt::red));
        settings.setValue(QStringLiteral("FilterColor1"), QColor(Qt::green));
        write(5, 6, 1, 0, "viRead(0x1, 10)");
        capture();
        for (int id : {SingleFilter::HighlightThread, SingleFilter::IncludeSession, SingleFilter::HighlightAddress,
                       SingleFilter::HighlightCommand, SingleFilter::ExcludeProcess})
            popup(id);
        QString colours;
        for (const SingleFilter& rule : model.getFilters().filters)
            colours += rule.color.name();
        // Only highlights advance the colour; a show-only in between takes the colour that is current.
        QCOMPARE(colours, QStringLiteral("#ff0000#00ff00#00ff00#ff00ff#ff00ff"));

        // At exit the highlight colours in force are stored in rule order, skipping other rules.
        window.reset();
        settings.sync();
        QString stored;
        for (const QString& key : settings.childKeys())
            stored += key + QLatin1Char('=') + settings.value(key).value<QColor>().name() + QLatin1Char(' ');
        QCOMPARE(stored, QStringLiteral("FilterColor0=#ff0000 FilterColor1=#00ff00 FilterColor2=#ff00ff "));
    }

    // The table's menus and the rules they make: copy command, a quick rule from the real menu, the view
    // filter dialog over the rules (the funnel shows whether any is in force).
    void contextMenus()
    {
        for (std::uint32_t id = 1; id <= 4; ++id)
            write(9, id, id, 0, qPrintable(QStringLiteral("viWrite(0x%1, \"A\tB\")").arg(id)));
        capture();
        // "Copy command" ids are the complement of row * 32, row 0 included.
        auto* clipboard = QGuiApplication::clipboard();
        popup(~(3 * 32));
        QCOMPARE(clipboard->text(), QStringLiteral("viWrite(0x4, \"A\tB\")"));
        popup(-1);
        QCOMPARE(clipboard->text(), QStringLiteral("viWrite(0x1, \"A\tB\")"));
        const QImage idle = QIcon(QStringLiteral(":/icons/Filter_tra4d09c6de6a114.ico")).pixmap(16).toImage();
        auto funnel = [this] { return get("actionViewFilter")->icon().pixmap(16).toImage(); };
        QCOMPARE(funnel(), idle);

        // Nothing below the last row; on a row the entries act on that row.
        auto* view = shownView();
        const int menusBefore = window->findChildren<QMenu*>().size();
        emit view->customContextMenuRequested(QPoint(5, view->viewport()->height() - 2));
        QCOMPARE(window->findChildren<QMenu*>().size(), menusBefore);
        emit view->customContextMenuRequested(view->visualRect(model.index(2, 9)).center());
        QMenu* menu = window->findChildren<QMenu*>().last();
        QCOMPARE(menu->actions().size(), 19);
        menu->actions().last()->trigger();
        QCOMPARE(clipboard->text(), QStringLiteral("viWrite(0x3, \"A\tB\")"));
        menu->actions().at(15)->trigger(); // "Hide address"
        QCOMPARE(model.getFilters().filters.value(0).type, int(SingleFilter::ExcludeAddress));
        menu->close();
        QCOMPARE(funnel(), QIcon(QStringLiteral(":/icons/Filter_akt4d09c69b9ee49.ico")).pixmap(16).toImage());

        // Accepting the dialog replaces the model's set; cancelling keeps it.
        for (bool accept : {false, true}) {
            QTimer::singleShot(50, [accept] {
                auto* dialog = qobject_cast<gui::ViewFilterDialog*>(QApplication::activeModalWidget());
                QVERIFY(dialog && dialog->viewFilters.filters.size() == 1);
                child<QPushButton>(dialog, "deleteAllButton")->click();
                accept ? dialog->accept() : dialog->reject();
            });
            get("actionViewFilter")->trigger();
            QCOMPARE(model.getFilters().filters.size(), accept ? 0 : 1);
        }
        QCOMPARE(funnel(), idle);
    }

    void doubleClickJumpsToPartner()
    {
        // A call whose return comes 150 records later, with another thread's traffic in between.
        write(20, 1, 1, 0, "viRead(0x1, 100)");
        writeCalls(20, 2, 2, 152);
        write(20, 1, 1, 1, "viRead(0x1, 100)");
        write(20, 3, 152, 0, "viFlush(0x3)");
        capture();
        QCOMPARE(model.rowCount(), 153);
        auto* view = shownView();
        auto doubleClick = [&](int row) { emit view->doubleClicked(model.index(row, 0)); };

        // Row 0 never jumps, even though its partner is in the table.
        view->scrollToTop();
        doubleClick(0);
        QVERIFY(!shown(151));
        // A row whose partner is not shown does nothing; the return record jumps back to its call.
        view->scrollToBottom();
        const int bottom = view->verticalScrollBar()->value();
        doubleClick(152);
        QCOMPARE(view->verticalScrollBar()->value(), bottom);
        doubleClick(151);
        QVERIFY(shown(0));

        // A call jumps forward to its return.
        write(21, 1, 200, 0, "viOpen(0x1)");
        write(21, 2, 201, 0, "viWrite(0x2, \"X\")");
        writeCalls(21, 3, 202, 250);
        write(21, 2, 201, 1, "viWrite(0x2, \"X\")");
        capture();
        const int returnRow = model.rowCount() - 1;
        QVERIFY(model.displayRow(154)->entry->id == idBase + 201 && model.displayRow(returnRow)->entry->kind == 1);
        view->scrollToTop();
        doubleClick(154);
        QVERIFY(shown(returnRow));
    }

    void readerKeepsPlaceWhenRowsLeave_data()
    {
        QTest::addColumn<int>("currentRow");
        QTest::newRow("no current row") << -1;
        QTest::newRow("current row is the oldest, which leaves") << 0;
        QTest::newRow("current row in sight") << 4005;
    }

    // A full table drops its oldest rows as new ones arrive; the rows a reader looks at stay where they
    // are, wherever the current row is, and choosing a row afterwards changes nothing.
    void readerKeepsPlaceWhenRowsLeave()
    {
        QFETCH(int, currentRow);
        writeCalls(40, 1, 0, 5000);
        capture();
        writeCalls(40, 1, 5000, 8510);
        capture();
        QCOMPARE(model.rowCount(), 8510);

        auto* view = shownView();
        if (currentRow >= 0)
            view->selectionModel()->setCurrentIndex(model.index(currentRow, 0), QItemSelectionModel::NoUpdate);
        view->scrollTo(model.index(4000, 9), QAbstractItemView::PositionAtTop);
        const std::uint64_t topRecord = model.displayRow(view->rowAt(0))->entry->id;

        writeCalls(40, 1, 8510, 8630);
        capture();
        QCOMPARE(model.displayRow(view->rowAt(0))->entry->id, topRecord);
        // A click between the internal and the display stage, when the newest records have overwritten
        // the local slots of the oldest rows.
        writeCalls(40, 1, 8630, 8690);
        appClock().advance(LiveTraceModel::s_TimerInterval + 10);
        model.updateSharedData();
        model.updateInternalData();
        QTest::mouseClick(view->viewport(), Qt::LeftButton, {},
                          QPoint(5, view->rowViewportPosition(view->rowAt(0) + 3) + 2));
        capture();
        QCOMPARE(model.displayRow(view->rowAt(0))->entry->id, topRecord);
        QCOMPARE(model.displayRow(view->currentIndex().row())->entry->id, topRecord + 3);
    }

    // "Copy view" and Export of a full table while records keep arriving: the newest records have
    // overwritten the local slots of the oldest rows since the last display stage. Both hold every row
    // the view shows, each with its own record, and the same text.
    void copiedViewHoldsEveryShownRow()
    {
        writeCalls(40, 1, 0, 5000);
        capture();
        writeCalls(40, 1, 5000, 8510);
        capture();
        writeCalls(40, 1, 8510, 8710);
        appClock().advance(LiveTraceModel::s_TimerInterval + 10);
        model.updateSharedData();
        model.updateInternalData();

        const QString copied = app.getBuffer();
        QStringList lines = copied.split(QLatin1Char('\n'));
        lines = lines.mid(3, lines.size() - 4); // the header's three lines, the empty rest after the last
        QCOMPARE(lines.size(), model.rowCount());
        QCOMPARE(lines.size(), 8510);
        for (int r = 0; r < lines.size(); r += 97) {
            const QStringList fields = lines[r].split(QLatin1Char('\t'));
            QCOMPARE(fields.value(1).toULongLong(), idBase + 200 + r);
            QCOMPARE(fields.value(10), QStringLiteral("viWrite(0x1, \"%1\")").arg(200 + r));
        }
        QTemporaryDir dir;
        const QString name = dir.filePath(QStringLiteral("view.txt"));
        QVERIFY(capture::exportView(model, name, capture::Format::ViewText, nullptr));
        QFile file(name);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), copied.toUtf8());
    }

    // The message boxes a button or action brings up with the given name in the field, then the name the
    // field shows afterwards.
    void fileNameChecks()
    {
        auto* edit = get<QLineEdit>("editFilename");
        auto boxes = [&](const char* name, const QString& fileName) {
            edit->setText(fileName);
            const QStringList texts = closingModals([this, name] {
                if (auto* button = window->findChild<QToolButton*>(QLatin1String(name)))
                    button->click();
                else
                    get(name)->trigger();
            });
            return (texts + QStringList {edit->text()}).join(QLatin1Char('|'));
        };
        const QString home = QDir::homePath() + QStringLiteral("/ZelVisa.log");
        QCOMPARE(boxes("actionRecord_to_file", QString()),
                 QStringLiteral("Invalid filename/The specified filename \"\" of the log file is not valid.|") + home);
        const QString noDir = QStringLiteral("/no/such/dir/a.log");
        QCOMPARE(boxes("actionStart_to_file", noDir).section(QLatin1Char('|'), 1), noDir);
        QVERIFY(!app.getChannelControl().isTracingToFile());

        QTemporaryDir dir;
        const QString missing = dir.filePath(QStringLiteral("gone.log"));
        QCOMPARE(boxes("deleteLogFileButton", missing),
                 QStringLiteral("Info/The file \"%1\" could not be deleted.\n|%1").arg(missing));
        QCOMPARE(boxes("viewlogfileButton", missing), missing);
        QFile(missing).open(QIODevice::WriteOnly);
        QCOMPARE(boxes("deleteLogFileButton", missing), missing);
        QVERIFY(!QFile::exists(missing));
        QCOMPARE(boxes("viewlogfileButton", QString()), QStringLiteral("View failure/Cannot open file \"\"|"));
        emit edit->editingFinished();
        QCOMPARE(edit->text(), home);

        // A valid name starts the recording, which the tool bar's action stops.
        const QString log = dir.filePath(QStringLiteral("trace.log"));
        QCOMPARE(boxes("actionRecord_to_file", log), log);
        QCOMPARE(QString::fromStdString(app.getChannelControl().getFileName()), log);
        get("actionStop_to_file")->trigger();
        QVERIFY(!app.getChannelControl().isTracingToFile());
    }

    // First start shows the defaults; what the user changed comes back in the next window, except that
    // the Command column is never hidden.
    void settings()
    {
        auto* view = get<QTableView>("liveView");
        const std::initializer_list<const char*> options {"actionScroll", "actionPauseOnError",
                                                          "actionCollapse_same_commands", "actionShow_only_string"};
        // The log file name, the hidden columns, the options checked.
        auto state = [&]() -> QString {
            QString columns;
            for (int c = 0; c < LiveTraceModel::ColumnCount; ++c)
                columns += get<QTableView>("liveView")->isColumnHidden(c) ? QLatin1Char('H') : QLatin1Char('.');
            return get<QLineEdit>("editFilename")->text() + QLatin1Char(' ') + columns + QLatin1Char(' ')
                + flags("checked", options);
        };
        QVERIFY(!window->isMaximized());
        QCOMPARE(state(), QDir::homePath() + QStringLiteral("/ZelVisa.log H..HHH.... 0010"));

        get<QLineEdit>("editFilename")->setText(QStringLiteral("/tmp/kept.log"));
        for (const char* name : options)
            get(name)->trigger();
        view->setColumnHidden(0, false);
        view->setColumnHidden(7, true);
        window->resize(700, 500);
        window.reset();
        QSettings().setValue(QStringLiteral("MainWindow/ColumnHidden9"), true);

        window = std::make_unique<gui::MainWindow>(nullptr, app);
        QCOMPARE(window->size(), QSize(700, 500));
        QCOMPARE(state(), QStringLiteral("/tmp/kept.log ...HHH.H.. 1101"));
        QVERIFY(!model.isCollapseSameCommands() && model.isShowOnlyStringParameters());
        window.reset();
        QCOMPARE(QSettings().value(QStringLiteral("MainWindow/ColumnHidden9")).toBool(), false);
    }

    // With "Scroll to bottom" on, a row the reader chose (the next error, a click) stays in sight while
    // records arrive; "Follow newest" or End goes on following, and a row set by the program alone
    // does not stop it.
    void chosenRowStaysInSight_data()
    {
        QTest::addColumn<QString>("choice");
        QTest::addColumn<QString>("resume");
        QTest::newRow("next error, then the button") << "F8"
                                                     << "button";
        QTest::newRow("a click, then End") << "click"
                                           << "End";
        QTest::newRow("set by the program") << "program"
                                            << "";
    }
    void chosenRowStaysInSight()
    {
        QFETCH(QString, choice);
        QFETCH(QString, resume);
        get("actionScroll")->setChecked(true);
        auto* view = shownView();
        // Each its own text, so that nothing collapses.
        auto calls = [this](std::uint64_t first, std::uint64_t end) {
            for (std::uint64_t id = first; id < end; ++id)
                write(40, 1, id, 1, qPrintable(QStringLiteral("viRead(0x1, %1)").arg(id)), id == 120 ? -1073807339 : 0);
        };
        calls(0, 300);
        capture();
        QVERIFY(shown(model.rowCount() - 1));
        int chosen = 120;
        if (choice == QLatin1String("F8")) {
            view->selectionModel()->setCurrentIndex(model.index(100, 1), QItemSelectionModel::NoUpdate);
            QTest::keyClick(view, Qt::Key_F8);
        } else if (choice == QLatin1String("click")) {
            view->scrollTo(model.index(chosen, 1));
            QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, view->visualRect(model.index(chosen, 1)).center());
        } else {
            view->selectionModel()->setCurrentIndex(model.index(chosen, 1), QItemSelectionModel::ClearAndSelect);
        }
        QCOMPARE(view->currentIndex().row(), chosen);
        calls(300, 400);
        capture();
        auto* button = get<QToolButton>("followNewestButton");
        QCOMPARE(shown(chosen), resume != QString());
        QCOMPARE(button->isVisible(), resume != QString());
        if (resume == QLatin1String("button"))
            QTest::mouseClick(button, Qt::LeftButton);
        else if (resume == QLatin1String("End"))
            QTest::keyClick(view, Qt::Key_End);
        QVERIFY(shown(model.rowCount() - 1));
        QVERIFY(!button->isVisible());
        calls(400, 500);
        capture();
        QVERIFY(shown(model.rowCount() - 1));
    }

    // Keys beside the menus, whose texts carry no mnemonic, and the actions, which have no shortcut.
    void keys_data()
    {
        QTest::addColumn<int>("key");
        QTest::addColumn<QString>("outcome");
        QTest::newRow("Alt+F opens File") << int(Qt::ALT + Qt::Key_F) << "menu File";
        QTest::newRow("Alt+R opens Recording") << int(Qt::ALT + Qt::Key_R) << "menu Recording";
        QTest::newRow("Alt+V opens View") << int(Qt::ALT + Qt::Key_V) << "menu View";
        QTest::newRow("F5 starts") << int(Qt::Key_F5) << "tracing 1";
        QTest::newRow("Shift+F5 stops") << int(Qt::SHIFT + Qt::Key_F5) << "tracing 0";
        QTest::newRow("Ctrl+P pauses") << int(Qt::CTRL + Qt::Key_P) << "paused 1";
        QTest::newRow("Ctrl+L clears") << int(Qt::CTRL + Qt::Key_L) << "rows 0";
        QTest::newRow("Ctrl+Shift+C copies the view") << int(Qt::CTRL + Qt::SHIFT + Qt::Key_C) << "copied 1";
    }
    void keys()
    {
        QFETCH(int, key);
        QFETCH(QString, outcome);
        writeCalls(40, 1, 0, 3);
        capture();
        if (key == Qt::Key_F5)
            app.stoptrace();
        QGuiApplication::clipboard()->clear();
        shownView();
        window->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(window.get()));
        QTest::keyClick(window.get(), Qt::Key(key & ~Qt::KeyboardModifierMask),
                        Qt::KeyboardModifiers(key & Qt::KeyboardModifierMask));
        QString seen;
        if (auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget()))
            seen = QStringLiteral("menu ") + menu->title();
        else if (outcome.startsWith(QLatin1String("tracing")))
            seen = QStringLiteral("tracing %1").arg(app.getChannelControl().tracingActive());
        else if (outcome.startsWith(QLatin1String("paused")))
            seen = QStringLiteral("paused %1").arg(model.isPaused());
        else if (outcome.startsWith(QLatin1String("rows")))
            seen = QStringLiteral("rows %1").arg(model.rowCount());
        else
            seen = QStringLiteral("copied %1")
                       .arg(QGuiApplication::clipboard()->text().startsWith(QLatin1String("# VISA version")));
        if (QWidget* popup = QApplication::activePopupWidget())
            popup->close();
        QCOMPARE(seen, outcome);
    }

    // The whole program as it runs: the traffic generator is a separate process on the private segment.
    void endToEndWithGenerator()
    {
        QSettings().setValue(QStringLiteral("MainWindow/ScrollToBottom"), true);
        app.stoptrace();
        window = std::make_unique<gui::MainWindow>(nullptr, app);
        shownView();
        QSignalSpy changes(&app, &TraceApplication::tracingChanged);
        get("actionIconStart")->trigger();
        QVERIFY(model.isRunning());
        // The monitor of shared flags reports this start as an edge and starts afresh once more.
        QTRY_COMPARE(changes.size(), 2);

        const QString arguments = QStringLiteral("--key %1 --semaphore %2 --file-semaphore %3 --count 400 --rate 4000 "
                                                 "--seed 7 --quiet")
                                      .arg(QString::number(segment().key), QString::fromStdString(segment().semaphore),
                                           QString::fromStdString(segment().fileSemaphore));
        QCOMPARE(QProcess::execute(QStringLiteral(ZEL_TRAFFIC_PATH), arguments.split(QLatin1Char(' '))), 0);
        capture(); // what the timer has not taken yet

        // One process, one thread: every call is followed by its return and pairs with it. Error rows are red.
        int completed = 0, errors = 0, red = 0;
        for (int r = 0; r < model.rowCount(); ++r) {
            completed += model.displayRow(r)->displayKind == LiveTraceModel::CompletedKind;
            errors += model.displayRow(r)->entry->status < 0;
            red += model.data(model.index(r, 8), Qt::BackgroundRole).value<QBrush>().color() == QColor(255, 128, 128);
        }
        QVERIFY2(completed >= model.rowCount() - 1, qPrintable(QString::number(completed)));
        QVERIFY(errors > 0 && red == errors);
        QVERIFY2(status().endsWith(QStringLiteral("Entry with error|%1 entries|").arg(model.rowCount())),
                 qPrintable(status()));
        // Scroll to bottom keeps the last row in sight.
        QVERIFY(shown(model.rowCount() - 1));
        get("actionIconStop")->trigger();
    }

    // The live table with a full ring while records arrive on every tick and the user clicks, moves through
    // rows with the keyboard, clears, pauses and changes filters: no crash, no inconsistent notification,
    // no cell that shows another call.
    void fullTurningRingUnderUserInput()
    {
        previousHandler = qInstallMessageHandler(collectComplaints);
        QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Warning);
        auto* view = shownView();
        // Calls and returns of three threads; every 37th record fails.
        std::uint64_t n = 0;
        auto burst = [&](std::uint64_t count) {
            for (const std::uint64_t end = n + count; n < end; ++n) {
                const std::string text = "viWrite(0x1, \"MEAS:VOLT? " + std::to_string(n / 2) + "\")";
                producer.write(makeCall(7, n / 2 % 3, idBase + n / 2, n % 2, text, n % 37 == 1 ? -1073807339 : 0));
            }
        };
        // Fill the ring, then keep it turning.
        for (int i = 0; i < 6 && model.rowCount() < 3000; ++i) {
            burst(6000);
            QTest::qWait(220);
        }
        for (int step = 0; step < 60; ++step) {
            burst(900);
            const int rows = model.rowCount();
            if (rows > 0) {
                const int row = (step * 97) % rows;
                view->scrollTo(model.index(row, 0));
                QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, view->visualRect(model.index(row, 1)).center());
            }
            QTest::keyClick(view, step % 3 == 0 ? Qt::Key_Home : Qt::Key_Down,
                            step % 3 == 0 ? Qt::ControlModifier : Qt::NoModifier);
            if (step % 5 == 0)
                QTest::keyClick(view, Qt::Key_PageDown);
            if (step == 20)
                get("actionClear")->trigger();
            if (step == 30 || step == 34)
                get("actionPause")->toggle();
            if (step == 40)
                get("actionCollapse_same_commands")->toggle();
            if (step == 45)
                popup(2 * 32 + SingleFilter::ExcludeThread);
            if (step == 50)
                model.setOnlyErrors(true);
            if (step == 55)
                model.setFilter(ModelFilters());
            QTest::qWait(step % 2 ? 60 : 15);

            // Every row shows one record whole (its id is the number in its text) or nothing, and the
            // rows keep the order in which the calls came.
            std::uint64_t previous = 0;
            for (int r = 0; r < model.rowCount(); r += 173) {
                const QString command = model.data(model.index(r, LiveTraceModel::CommandColumn)).toString();
                const std::uint64_t id = model.data(model.index(r, LiveTraceModel::IdColumn)).toULongLong();
                const bool whole = command.endsWith(QStringLiteral(" %1\")").arg(id - idBase));
                QVERIFY2(command.isEmpty() || (whole && id >= previous), qPrintable(command));
                previous = command.isEmpty() ? previous : id;
            }
        }
        qInstallMessageHandler(previousHandler);
        QVERIFY2(complaints.isEmpty(), qPrintable(complaints.join(QLatin1Char('\n'))));
        QVERIFY(model.rowCount() > 0);
    }

private:
    void write(std::uint32_t pid, std::uint32_t thread, std::uint64_t id, std::uint32_t kind, const char* text,
               std::int32_t status = 0)
    {
        QCOMPARE(producer.write(makeCall(pid, thread, idBase + id, kind, text, status)),
                 TraceProducer::Outcome::Written);
    }
    // Calls numbered from `first` up to `end`, each with its own text.
    void writeCalls(std::uint32_t pid, std::uint32_t thread, std::uint64_t first, std::uint64_t end)
    {
        for (std::uint64_t id = first; id < end; ++id)
            write(pid, thread, id, 0, qPrintable(QStringLiteral("viWrite(0x1, \"%1\")").arg(id)));
    }
    void popup(int id) { QMetaObject::invokeMethod(window.get(), "popupmenuTriggered", Q_ARG(int, id)); }
    void capture()
    {
        appClock().advance(LiveTraceModel::s_TimerInterval + 10);
        model.updateSharedData();
        model.updateInternalAndDipslay();
        QCoreApplication::processEvents(); // lets the view lay out the new rows
    }
    template<class T = QAction> T* get(const char* name) const { return child<T>(window.get(), name); }
    // A boolean property of the named actions or widgets, as a string of 0 and 1.
    QString flags(const char* property, std::initializer_list<const char*> names) const
    {
        QString out;
        for (const char* name : names)
            out += get<QObject>(name)->property(property).toBool() ? QLatin1Char('1') : QLatin1Char('0');
        return out;
    }
    QString status() const { return get<QStatusBar>("statusbar")->findChildren<QLabel*>().value(0)->text(); }
    QTableView* shownView()
    {
        window->show();
        if (!QTest::qWaitForWindowExposed(window.get()))
            qFatal("window not exposed");
        return get<QTableView>("liveView");
    }
    // Whether the row is in sight, however far the view is scrolled sideways.
    bool shown(int row) const
    {
        auto* view = get<QTableView>("liveView");
        const int middle = view->rowViewportPosition(row) + view->rowHeight(row) / 2;
        return middle >= 0 && middle < view->viewport()->height();
    }

    TraceApplication& app;
    LiveTraceModel& model = app.getModel();
    TraceProducer producer {segment().key, s_VisaSharedMemorySize, segment().semaphore, segment().fileSemaphore};
    std::unique_ptr<gui::MainWindow> window;
    // Records identical to ones taken before count as already taken, so every test writes its own ids.
    std::uint64_t idBase = 0;
};

int main(int argc, char** argv)
{
    return execWithApplication<TestMainWindow>(argc, argv, segment(), "gui");
}

#include "tst_mainwindow.moc"
