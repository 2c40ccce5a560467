#include "MainWindow.h"

#include "AboutBox.h"
#include "CaptureWindow.h"

#include "CommandLine.h"
#include "FilterDialog.h"
#include "FindBar.h"
#include "FollowNewest.h"
#include "LossIndicator.h"
#include "RecordFilterIndicator.h"
#include "SettingsGuard.h"
#include "SettingsKeys.h"
#include "TraceApplication.h"
#include "TraceTableArea.h"
#include "TraceWarning.h"
#include "ViewFilterDialog.h"
#include "WindowPlacement.h"
#include "ZelVersion.h"
#include "ui_MainWindow.h"

#include <QClipboard>
#include <QCloseEvent>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QScreen>
#include <QSettings>
#include <QSignalMapper>

namespace gui {

namespace {

// Table context menu ids carry the row and the entry: row * 32 + rule type, and the bitwise
// complement of row * 32 for "Copy command".
constexpr int s_RowShift = 5;
constexpr int s_RowStride = 1 << s_RowShift;
constexpr int s_CopyCommandKind = -1;

constexpr char const* s_QuickFilterTexts[SingleFilter::TypeCount]
    = {"Highlight thread", "Highlight process", "Highlight session", "Highlight address", "Highlight command",
       "Show only thread", "Show only process", "Show only session", "Show only address", "Show only command",
       "Hide thread",      "Hide process",      "Hide session",      "Hide address",      "Hide command"};

// The column a quick filter of the given field reads its value from.
constexpr int s_FieldColumn[SingleFilter::FieldCount]
    = {LiveTraceModel::ThreadColumn, LiveTraceModel::PidColumn, LiveTraceModel::SessionColumn,
       LiveTraceModel::AddressColumn, LiveTraceModel::CommandColumn};

bool hiddenByDefault(int column)
{
    return column == LiveTraceModel::IdColumn || column == LiveTraceModel::PidColumn
        || column == LiveTraceModel::ThreadColumn || column == LiveTraceModel::SessionColumn;
}

QString columnHiddenKey(int column)
{
    return QString::fromLatin1(SettingsKeys::s_ColumnHidden).arg(column);
}

QString filterColorKey(std::uint64_t n)
{
    return QString::fromLatin1(SettingsKeys::s_FilterColor).arg(static_cast<qulonglong>(n));
}

QString key(char const* name)
{
    return QLatin1String(name);
}

} // namespace

MainWindow::MainWindow(QWidget* parent, TraceApplication& app)
    : QMainWindow(parent)
    , ui(std::make_unique<Ui_MainWindow>())
    , app(app)
    , statusLabel(std::make_unique<QLabel>())
    , tableMenuMapper(std::make_unique<QSignalMapper>(this))
    , headerMenuMapper(std::make_unique<QSignalMapper>(this))
    , defaultFilterColor(Qt::magenta)
    , filterColorIndex(0)
    , scrollToBottom(false)
    , externalEvents(app.getEndpoints().segmentKey, app.getEndpoints().segmentSemaphore)
{
    // Before anything reads the settings store: see dropForeignVariants().
    dropForeignVariants(QSettings().fileName());
    ui->setupUi(this);
    setupUi();
    setupConnections();
    setupAnalysis();
    setupCaptureActions();
    setupKeys();
    restoreWindowSettings();
    applyCommandLine();
    // The table, not the file name field, takes the keyboard first: arrow keys move through rows
    // at once, and an idle window has no blinking cursor to repaint.
    ui->liveView->setFocus();
    // Takes over a tracing or recording state that another program set before this tool started.
    externalEvents.emitSignals();
}

MainWindow::~MainWindow()
{
    saveWindowSettings();
    saveAnalysisSettings();
    // The model outlives the window; it must not reach for the view that goes with it.
    app.getModel().selectionModel = nullptr;
    app.getModel().tableView = nullptr;
    // Widgets still signal while the base class tears them down (the file name field reports the
    // end of editing when it loses the focus); those signals must not reach a half-destroyed window.
    const QList<QObject*> children = findChildren<QObject*>();
    for (QObject* child : children)
        QObject::disconnect(child, nullptr, this, nullptr);
}

QString MainWindow::getDefaultSaveFilename()
{
    return QDir::toNativeSeparators(QDir::homePath() + QStringLiteral("/ZelVisa.log"));
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    QMainWindow::closeEvent(event);
    app.quit();
}

void MainWindow::setupUi()
{
    setWindowTitle(QStringLiteral("ZelVisaTraceTool - ") + QLatin1String(ZelTracer::s_VersionString));
    statusBar()->addWidget(statusLabel.get(), 0);
    lossIndicator = new LossIndicator(this);
    statusBar()->addPermanentWidget(lossIndicator);
    // Beside the status text, which keeps its fixed segments: what would otherwise go unsaid.
    recordFilterIndicator = new RecordFilterIndicator(app, this);
    statusBar()->addPermanentWidget(recordFilterIndicator);
    traceWarning = new TraceWarning(app, this);
    statusBar()->addPermanentWidget(traceWarning);
    // The table with its row header, model, panes and analysis, as every capture window has it too.
    area = std::make_unique<TraceTableArea>(*this, *ui->liveView, app.getModel());
    analysisMenu = menuBar()->addMenu(tr("&Analysis"));
    helpMenu = menuBar()->addMenu(tr("&Help"));
}

void MainWindow::setupConnections()
{
    LiveTraceModel* model = &app.getModel();
    connect(ui->actionExit, &QAction::triggered, &app, &TraceApplication::quit);
    connect(ui->actionStart, &QAction::triggered, &app, &TraceApplication::starttrace);
    connect(ui->actionIconStart, &QAction::triggered, &app, &TraceApplication::starttrace);
    connect(&externalEvents, &ExternalEvents::start, &app, &TraceApplication::starttrace);
    connect(ui->actionStop, &QAction::triggered, &app, &TraceApplication::stoptrace);
    connect(ui->actionIconStop, &QAction::triggered, &app, &TraceApplication::stoptrace);
    connect(&externalEvents, &ExternalEvents::stop, &app, &TraceApplication::stoptrace);
    connect(ui->actionRecord_to_file, &QAction::triggered, this, &MainWindow::startFileTracing);
    connect(ui->actionStart_to_file, &QAction::triggered, this, &MainWindow::startFileTracing);
    connect(&externalEvents, &ExternalEvents::starttofile, this, &MainWindow::startFileTracing);
    connect(ui->actionStop_record_to_file, &QAction::triggered, &app, &TraceApplication::stopfiletrace);
    connect(ui->actionStop_to_file, &QAction::triggered, &app, &TraceApplication::stopfiletrace);
    connect(&externalEvents, &ExternalEvents::stoptofile, &app, &TraceApplication::stopfiletrace);
    connect(&app, &TraceApplication::tracingChanged, this, &MainWindow::tracingChanged);
    connect(&app, &TraceApplication::segmentReattached, this, [this] {
        externalEvents.followSegment();
        statusBar()->showMessage(
            tr("The trace segment was removed by another program; the tool now reads the new one."), 10000);
    });
    connect(ui->actionReset_Current_Buffer, &QAction::triggered, &app, &TraceApplication::clearbuffer);
    connect(ui->actionClear, &QAction::triggered, &app, &TraceApplication::clearbuffer);
    connect(ui->actionPause, &QAction::toggled, this, &MainWindow::pauseChanged);
    connect(ui->actionIconPause, &QAction::toggled, this, &MainWindow::pauseChanged);
    connect(ui->actionCollapse_same_commands, &QAction::toggled, this, &MainWindow::collapsedCommandChanged);
    connect(ui->actionShow_only_string, &QAction::toggled, this, &MainWindow::onlyStringParametersChanged);
    connect(ui->saveFileButton, &QToolButton::clicked, this, &MainWindow::changeFileName);
    connect(ui->actionConfigure_filter, &QAction::triggered, this, &MainWindow::showFilterDialog);
    connect(ui->actionViewFilter, &QAction::triggered, this, &MainWindow::showViewFilterDialog);
    connect(ui->liveView->selectionModel(), &QItemSelectionModel::currentChanged, this, &MainWindow::selectionChanged);
    connect(ui->liveView, &QTableView::doubleClicked, this, &MainWindow::doubleClickedListView);
    connect(ui->actionCopyClipboard, &QAction::triggered, &app, &TraceApplication::copyToClipboard);
    connect(ui->actionCopy_view, &QAction::triggered, &app, &TraceApplication::copyToClipboard);
    connect(ui->actionSave_current_buffer, &QAction::triggered, this, &MainWindow::saveBufferToFile);
    connect(ui->actionSave_view, &QAction::triggered, this, &MainWindow::saveBufferToFile);
    ui->liveView->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(ui->liveView, &QWidget::customContextMenuRequested, this, &MainWindow::tablePopupMenu);
    // mappedInt is the Qt 5.15 name of the mapper's mapped(int) signal.
    connect(tableMenuMapper.get(), &QSignalMapper::mappedInt, this, &MainWindow::popupmenuTriggered);
    ui->liveView->horizontalHeader()->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(ui->liveView->horizontalHeader(), &QWidget::customContextMenuRequested, this, &MainWindow::headerPopupMenu);
    connect(headerMenuMapper.get(), &QSignalMapper::mappedInt, this, &MainWindow::headerpopupmenuTriggered);
    connect(model, &LiveTraceModel::newDataCollected, this, &MainWindow::newDataCollected);
    connect(ui->actionScroll, &QAction::toggled, this, &MainWindow::scrollToggled);
    connect(ui->viewlogfileButton, &QToolButton::clicked, this, &MainWindow::viewLogFile);
    connect(ui->deleteLogFileButton, &QToolButton::clicked, this, &MainWindow::delLogFile);
    connect(ui->editFilename, &QLineEdit::editingFinished, this, &MainWindow::logFileeditingFinished);
    connect(ui->editFilename, &QLineEdit::textChanged, this,
            [this](QString const& text) { chosenLogFile = resolvedLogFile(text); });
}

// File recording is requested before the live trace starts, so that the first records of the trace
// already reach the log file.
void MainWindow::applyCommandLine()
{
    const CommandLine commandLine = CommandLine::parse(QCoreApplication::arguments());
    if (!commandLine.fileName.isEmpty())
        ui->editFilename->setText(commandLine.fileName);
    if (commandLine.startFileTracing)
        startFileTracing();
    if (commandLine.startTracing)
        app.starttrace();
}

// ---- Action states and status text ----

void MainWindow::tracingChanged()
{
    updateMenuItemsStatus();
}

// Later steps copy states that earlier steps set, so the order matters.
void MainWindow::updateMenuItemsStatus()
{
    ZelTracer::TraceChannelControl& control = app.getChannelControl();
    LiveTraceModel& model = app.getModel();

    ui->actionStart->setEnabled(!control.tracingActive());
    ui->actionStop->setEnabled(control.tracingActive());
    ui->actionRecord_to_file->setEnabled(!control.isTracingToFile());
    ui->actionStop_record_to_file->setEnabled(control.isTracingToFile());
    ui->actionPause->setChecked(model.isPaused());
    ui->actionPause->setEnabled(control.tracingActive());

    const bool fileRowEditable = ui->actionRecord_to_file->isEnabled();
    ui->editFilename->setEnabled(fileRowEditable);
    ui->deleteLogFileButton->setEnabled(fileRowEditable);
    ui->saveFileButton->setEnabled(fileRowEditable);

    ui->actionIconStart->setVisible(ui->actionStart->isEnabled());
    ui->actionIconStop->setVisible(ui->actionStop->isEnabled());
    ui->actionStart_to_file->setVisible(ui->actionRecord_to_file->isEnabled());
    ui->actionStop_to_file->setVisible(ui->actionStop_record_to_file->isEnabled());

    ui->actionIconPause->setChecked(ui->actionPause->isChecked());
    ui->actionIconPause->setEnabled(ui->actionPause->isEnabled());
    ui->actionScroll->setChecked(scrollToBottom);
    follow->setScrolling(scrollToBottom);
    ui->actionCollapse_same_commands->setChecked(model.isCollapseSameCommands());
    ui->actionShow_only_string->setChecked(model.isShowOnlyStringParameters());

    ui->actionViewFilter->setIcon(QIcon(model.getFilters().filters.isEmpty()
                                            ? QStringLiteral(":/icons/Filter_tra4d09c6de6a114.ico")
                                            : QStringLiteral(":/icons/Filter_akt4d09c69b9ee49.ico")));

    // Latin-1 on the way back, as the name has always been shown; a name beyond ASCII shows altered.
    // The name comes from the header, which anyone can write: it is not taken as chosen here.
    if (control.isTracingToFile()) {
        const QSignalBlocker notChosen(ui->editFilename);
        ui->editFilename->setText(QDir::toNativeSeparators(QString::fromLatin1(control.getFileName().c_str())));
    }

    updateStatusBar();
}

void MainWindow::updateStatusBar()
{
    ZelTracer::TraceChannelControl& control = app.getChannelControl();
    LiveTraceModel& model = app.getModel();

    QString text;
    if (control.isTracingToFile())
        text += QStringLiteral("Recording to file|");
    if (!control.tracingActive())
        text += QStringLiteral("Live view not active|");
    else if (model.isPaused())
        text += QStringLiteral("Live view paused|");
    else
        text += QStringLiteral("Live view active|");
    if (model.errorInDisplay)
        text += QStringLiteral("Entry with error|");
    const int rows = ui->liveView->model()->rowCount(QModelIndex());
    if (rows == 1)
        text += QStringLiteral("1 entry|");
    else
        text += QStringLiteral("%1 entries|").arg(rows);
    statusLabel->setText(text);
    recordFilterIndicator->refresh();
    traceWarning->refresh();
}

void MainWindow::pauseChanged(bool checked)
{
    // Beside the pause that starts afresh when it ends: the rows held and what arrived meanwhile.
    if (!checked && app.getModel().isKeepRecordsWhilePaused()) {
        app.getModel().setPause(false);
        if (const std::uint64_t notShown = app.getModel().getRecordsNotShown())
            statusBar()->showMessage(
                tr("%1 records of the pause did not fit in the view.").arg(static_cast<qulonglong>(notShown)), 10000);
        updateMenuItemsStatus();
        return;
    }
    if (!checked && app.getModel().errorInDisplay)
        app.clearbuffer();
    app.setDisplayPause(checked);
    updateMenuItemsStatus();
}

void MainWindow::collapsedCommandChanged(bool checked)
{
    app.getModel().setCollapseSameCommands(checked);
    updateMenuItemsStatus();
}

void MainWindow::onlyStringParametersChanged(bool checked)
{
    app.getModel().setShowOnlyStringParameters(checked);
    updateMenuItemsStatus();
}

void MainWindow::newDataCollected()
{
    // Not while the reader looks at a row they chose; "Follow newest" or End goes on.
    if (scrollToBottom && !follow->isPaused())
        ui->liveView->scrollToBottom();
    if (ui->actionPauseOnError->isChecked() && app.getModel().errorInDisplay && !ui->actionPause->isChecked()) {
        ui->actionPause->toggle();
        // The reader lands on the failed call that stopped the view.
        area->findBar().showRow(RowSearch::findError(app.getModel(), -1, true));
    }
    updateStatusBar();
    lossIndicator->showLoss(app.getModel().getLossCounter());
}

void MainWindow::scrollToggled(bool checked)
{
    scrollToBottom = checked;
    follow->setScrolling(checked);
}

void MainWindow::selectionChanged(QModelIndex const&, QModelIndex const&)
{
    app.getModel().selectionChanged();
}

// ---- Context menus and quick filters ----

void MainWindow::tablePopupMenu(QPoint pos)
{
    const int row = ui->liveView->indexAt(pos).row();
    if (row < 0)
        return;
    tableMenu = std::make_unique<QMenu>(this);
    auto addEntry = [this](QString const& text, int id) {
        QAction* action = tableMenu->addAction(text);
        connect(action, &QAction::triggered, tableMenuMapper.get(), qOverload<>(&QSignalMapper::map));
        tableMenuMapper->setMapping(action, id);
    };
    const int rowBase = row * s_RowStride;
    for (int type = 0; type < SingleFilter::TypeCount; ++type) {
        addEntry(QString::fromLatin1(s_QuickFilterTexts[type]), rowBase + type);
        if (type % SingleFilter::FieldCount == SingleFilter::FieldCount - 1)
            tableMenu->addSeparator();
    }
    addEntry(QStringLiteral("Copy command"), ~rowBase);
    tableMenu->popup(ui->liveView->viewport()->mapToGlobal(pos));
}

void MainWindow::popupmenuTriggered(int i)
{
    LiveTraceModel& model = app.getModel();
    const int kind = i % s_RowStride;
    if (kind == s_CopyCommandKind) {
        const int row = (-i) >> s_RowShift;
        QGuiApplication::clipboard()->setText(model.data(model.index(row, LiveTraceModel::CommandColumn)).toString(),
                                              QClipboard::Clipboard);
        return;
    }
    const int row = i >> s_RowShift;

    QSettings settings;
    settings.beginGroup(key(SettingsKeys::s_FilterColorsGroup));
    // The store may hold anything; only a valid colour of a known kind is taken.
    const QColor color
        = SingleFilter::checkedColor(settings.value(filterColorKey(filterColorIndex)), defaultFilterColor);
    settings.endGroup();

    if (static_cast<unsigned>(kind) < SingleFilter::TypeCount) {
        if (kind <= SingleFilter::HighlightCommand)
            ++filterColorIndex;
        SingleFilter filter;
        filter.type = kind;
        filter.color = color;
        const int field = kind % SingleFilter::FieldCount;
        const QVariant cell = model.data(model.index(row, s_FieldColumn[field]));
        if (field == SingleFilter::AddressField) {
            filter.text = cell.toString();
        } else if (field == SingleFilter::CommandField) {
            // The function name with its parenthesis, so viRead does not also match viReadAsync.
            filter.text = cell.toString().split(QLatin1Char('(')).first() + QLatin1Char('(');
        } else {
            filter.value = cell.toUInt();
            filter.text = QString();
        }
        model.addFilter(filter);
    }
    updateMenuItemsStatus();
}

void MainWindow::headerPopupMenu(QPoint pos)
{
    headerMenu = area->headerMenu(this, *headerMenuMapper);
    headerMenu->popup(ui->liveView->horizontalHeader()->viewport()->mapToGlobal(pos));
}

void MainWindow::headerpopupmenuTriggered(int i)
{
    area->toggleColumn(i);
}

// Jumps between the call record and the return record of one call. Row 0 never jumps.
void MainWindow::doubleClickedListView(QModelIndex const& index)
{
    const auto& rows = app.getModel().getDisplayRing();
    const int clickedRow = index.row();
    if (clickedRow <= 0 || static_cast<std::uint32_t>(clickedRow) >= rows.size())
        return;
    const std::uint32_t capacity = rows.numberOfElements();
    auto rowAt = [&rows, capacity](std::uint32_t r) -> LiveTraceModel::Row const& {
        return rows((rows.begin + r) % capacity);
    };
    LiveTraceModel::Row const& clicked = rowAt(static_cast<std::uint32_t>(clickedRow));
    if (clicked.displayKind == LiveTraceModel::CompletedKind)
        return;
    const auto id = clicked.entry->id;
    const auto pid = clicked.entry->pid;
    const auto kind = clicked.entry->kind;
    for (std::uint32_t r = 0; r < rows.size(); ++r) {
        LiveTraceModel::Entry const& entry = *rowAt(r).entry;
        if (entry.id == id && entry.pid == pid && entry.kind != kind) {
            ui->liveView->scrollTo(app.getModel().index(static_cast<int>(r), LiveTraceModel::CommandColumn),
                                   QAbstractItemView::PositionAtCenter);
            return;
        }
    }
}

// ---- Log file row, saving the view and the filter dialogs ----

void MainWindow::changeFileName(bool)
{
    const QString name
        = QFileDialog::getSaveFileName(this, tr("Save File"), QDir::toNativeSeparators(QDir::homePath()));
    if (!name.isEmpty())
        ui->editFilename->setText(QDir::toNativeSeparators(name));
}

void MainWindow::logFileeditingFinished()
{
    if (ui->editFilename->text().isEmpty())
        ui->editFilename->setText(getDefaultSaveFilename());
}

// The traced programs run in other folders, so a relative name is made absolute before it reaches
// the header, and they refuse a symbolic link on the way, so the folders are resolved too.
QString MainWindow::resolvedLogFile(QString const& name)
{
    const QFileInfo file(name);
    const QString folder = file.absoluteDir().canonicalPath();
    return folder.isEmpty() ? file.absoluteFilePath() : QDir(folder).filePath(file.fileName());
}

// The tool writes the header, which makes the file; only the folder it goes into must already exist.
// The field also shows names that another program wrote into the header (anyone can): such a name
// was not chosen here, and this tool writes nothing there.
void MainWindow::startFileTracing()
{
    const QString name = ui->editFilename->text();
    if (!name.isEmpty() && resolvedLogFile(name) != chosenLogFile) {
        statusBar()->showMessage(tr("Recording to file not started: \"%1\" was named by another program, not "
                                    "chosen in this window.")
                                     .arg(name),
                                 10000);
        return;
    }
    if (!name.isEmpty() && QFileInfo(name).absoluteDir().exists()) {
        app.startfiletrace(resolvedLogFile(name).toUtf8().toStdString());
        return;
    }
    QMessageBox::critical(this, QStringLiteral("Invalid filename"),
                          QStringLiteral("The specified filename \"%1\" of the log file is not valid.").arg(name));
    if (name.isEmpty())
        ui->editFilename->setText(getDefaultSaveFilename());
}

// No file browser is launched on this platform; only an empty name is worth a word.
void MainWindow::viewLogFile()
{
    const QString name = ui->editFilename->text();
    if (name.isEmpty())
        QMessageBox::warning(this, QStringLiteral("View failure"), QStringLiteral("Cannot open file \"%1\"").arg(name));
}

void MainWindow::delLogFile()
{
    const QString name = ui->editFilename->text();
    if (name.isEmpty())
        return;
    if (!QFile::remove(name))
        QMessageBox::information(this, QStringLiteral("Info"),
                                 QStringLiteral("The file \"%1\" could not be deleted.\n").arg(name));
}

// The application's save reports no result, so the message says only what was asked for.
void MainWindow::saveBufferToFile()
{
    const QString name = QDir::toNativeSeparators(QFileDialog::getSaveFileName(
        this, tr("Save File"), QDir::toNativeSeparators(QDir::homePath()), QStringLiteral("Log files (*.log);;")));
    if (name.isEmpty())
        return;
    app.saveBufferToFile(name);
    statusBar()->showMessage(QStringLiteral("Buffer saved to ") + name, 3000);
}

void MainWindow::showFilterDialog()
{
    FilterDialog dialog(this, app);
    dialog.exec();
}

void MainWindow::showViewFilterDialog()
{
    ViewFilterDialog dialog(this, app.getModel().getFilters());
    if (dialog.exec()) {
        app.getModel().setFilter(dialog.viewFilters);
        updateMenuItemsStatus();
    }
}

// ---- Settings ----

void MainWindow::restoreWindowSettings()
{
    LiveTraceModel& model = app.getModel();
    QSettings settings;
    settings.beginGroup(key(SettingsKeys::s_MainWindowGroup));
    const bool fullscreen = restorePlacement(*this, settings);
    ui->editFilename->setText(settings.value(key(SettingsKeys::s_SaveFilename), getDefaultSaveFilename()).toString());
    scrollToBottom = settings.value(key(SettingsKeys::s_ScrollToBottom), scrollToBottom).toBool();
    ui->actionPauseOnError->setChecked(settings.value(key(SettingsKeys::s_PauseOnError), false).toBool());
    model.setCollapseSameCommands(
        settings.value(key(SettingsKeys::s_CollapseCommands), model.isCollapseSameCommands()).toBool());
    model.setShowOnlyStringParameters(
        settings.value(key(SettingsKeys::s_OnlyStringParameters), model.isShowOnlyStringParameters()).toBool());
    // The Command column is never hidden, whatever the store says.
    for (int column = 0; column < model.columnCount() - 1; ++column)
        ui->liveView->setColumnHidden(column,
                                      settings.value(columnHiddenKey(column), hiddenByDefault(column)).toBool());
    settings.endGroup();
    if (fullscreen)
        showMaximized();
    updateMenuItemsStatus();
}

void MainWindow::saveWindowSettings() const
{
    LiveTraceModel& model = app.getModel();
    QSettings settings;
    settings.beginGroup(key(SettingsKeys::s_MainWindowGroup));
    savePlacement(*this, settings);
    // A name another program put into the field is not kept as the user's choice.
    settings.setValue(key(SettingsKeys::s_SaveFilename),
                      resolvedLogFile(ui->editFilename->text()) == chosenLogFile ? ui->editFilename->text()
                                                                                 : chosenLogFile);
    settings.setValue(key(SettingsKeys::s_ScrollToBottom), scrollToBottom);
    settings.setValue(key(SettingsKeys::s_PauseOnError), ui->actionPauseOnError->isChecked());
    settings.setValue(key(SettingsKeys::s_CollapseCommands), model.isCollapseSameCommands());
    settings.setValue(key(SettingsKeys::s_OnlyStringParameters), model.isShowOnlyStringParameters());
    for (int column = 0; column < model.columnCount(); ++column)
        settings.setValue(columnHiddenKey(column), ui->liveView->isColumnHidden(column));
    settings.endGroup();

    // Earlier runs' surplus keys stay: the next run's quick highlights offer them again.
    settings.beginGroup(key(SettingsKeys::s_FilterColorsGroup));
    std::uint64_t n = 0;
    for (SingleFilter const& filter : model.getFilters().filters) {
        if (filter.type <= SingleFilter::HighlightCommand)
            settings.setValue(filterColorKey(n++), filter.color);
    }
    settings.endGroup();
}

// ---- Analysis: details, find, errors, statistics ----

void MainWindow::setupAnalysis()
{
    QSettings settings;
    const QString sizeKey = key(SettingsKeys::s_MainWindowGroup) + QLatin1Char('/') + key(SettingsKeys::s_Size);
    // Without a stored size the form's size would hide the Command column: a first start takes a
    // size that shows it, within the screen. A stored size still wins when the settings are restored.
    if (!settings.contains(sizeKey))
        resize(QSize(1200, 760).boundedTo(QGuiApplication::primaryScreen()->availableGeometry().size()));
    // Against the width the window is about to take: a stored size is only applied later.
    const QSize stored = settings.value(sizeKey).toSize();
    area->sizeColumns(stored.isValid() ? stored.width() : width());
    // On a short screen (a laptop at a display scale of 2) the details pane would leave the table a few
    // rows: it starts hidden there, one click away in the Analysis menu.
    area->restorePanes(settings, height() >= 600, false);
    area->addAnalysisActions(*analysisMenu);
    analysisMenu->addSeparator();
    keepWhilePaused = analysisMenu->addAction(tr("&Keep records while paused"));
    keepWhilePaused->setCheckable(true);
    keepWhilePaused->setChecked(
        settings
            .value(key(SettingsKeys::s_AnalysisGroup) + QLatin1Char('/') + key(SettingsKeys::s_KeepWhilePaused), false)
            .toBool());
    app.getModel().setKeepRecordsWhilePaused(keepWhilePaused->isChecked());
    connect(keepWhilePaused, &QAction::toggled, this,
            [this](bool keep) { app.getModel().setKeepRecordsWhilePaused(keep); });
    follow = std::make_unique<FollowNewest>(*ui->liveView);
    connect(&area->findBar(), &FindBar::rowShown, follow.get(), &FollowNewest::rowChosen);
    follow->pauseWhenShown(area->findBar());
    connect(follow.get(), &FollowNewest::resumed, this, [this] {
        if (scrollToBottom)
            ui->liveView->scrollToBottom();
    });
    connect(&area->onlyErrorsAction(), &QAction::toggled, this, &MainWindow::updateStatusBar);
}

void MainWindow::saveAnalysisSettings() const
{
    QSettings settings;
    area->savePanes(settings);
    settings.setValue(key(SettingsKeys::s_AnalysisGroup) + QLatin1Char('/') + key(SettingsKeys::s_KeepWhilePaused),
                      keepWhilePaused->isChecked());
}

// Keys beside the menus and actions, whose texts carry no mnemonic and which have no shortcut of their
// own: the first three menus open with Alt and their first letter (Analysis and Help have theirs), and
// the commands used most have keys, each doing what its action does while the action may.
void MainWindow::setupKeys()
{
    auto key = [this](QKeySequence const& sequence, auto run) {
        auto* action = new QAction(this);
        action->setShortcut(sequence);
        connect(action, &QAction::triggered, this, run);
        addAction(action);
    };
    for (auto [letter, menu] : {std::pair {Qt::Key_F, ui->menuFile}, std::pair {Qt::Key_R, ui->menuRecording},
                                std::pair {Qt::Key_V, ui->menuView}})
        key(QKeySequence(Qt::ALT + letter), [this, menu = menu] { menuBar()->setActiveAction(menu->menuAction()); });
    auto trigger = [](QAction* action) {
        return [action] {
            if (action->isEnabled())
                action->trigger();
        };
    };
    key(QKeySequence(Qt::Key_F5), trigger(ui->actionStart));
    key(QKeySequence(Qt::SHIFT + Qt::Key_F5), trigger(ui->actionStop));
    key(QKeySequence(Qt::CTRL + Qt::Key_P), trigger(ui->actionPause));
    key(QKeySequence(Qt::CTRL + Qt::Key_L), trigger(ui->actionReset_Current_Buffer));
    key(QKeySequence(Qt::CTRL + Qt::SHIFT + Qt::Key_C), trigger(ui->actionCopy_view));
}

void MainWindow::setupCaptureActions()
{
    analysisMenu->addSeparator();
    QAction* exportView = analysisMenu->addAction(tr("&Export view..."));
    exportView->setShortcut(QKeySequence(Qt::CTRL + Qt::Key_E));
    connect(exportView, &QAction::triggered, this, [this] { CaptureWindow::askAndExport(this, app.getModel()); });
    QAction* openCapture = analysisMenu->addAction(tr("Open &capture..."));
    openCapture->setShortcut(QKeySequence::Open);
    connect(openCapture, &QAction::triggered, this, [this] { CaptureWindow::askAndOpen(app, this); });
    QAction* about = helpMenu->addAction(tr("&About ZelVisa Trace Tool"));
    connect(about, &QAction::triggered, this, [this] { showAbout(this); });
    helpMenu->addAction(tr("About &Qt"), qApp, &QApplication::aboutQt);
}

} // namespace gui
