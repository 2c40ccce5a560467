#include "CaptureWindow.h"

#include "CaptureFileWindow.h"
#include "FindBar.h"
#include "LiveTableView.h"
#include "TraceApplication.h"
#include "TraceTableArea.h"
#include "ViewFilterDialog.h"
#include "ZelVersion.h"

#include "SettingsKeys.h"

#include <QAction>
#include <QDateTime>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFontMetrics>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QSettings>
#include <QStatusBar>
#include <QTableView>

namespace gui {

namespace {

struct ExportChoice
{
    const char* filter;
    const char* suffix;
    capture::Format format;
};

constexpr ExportChoice s_ExportChoices[] = {
    {"CSV table (*.csv)", "csv", capture::Format::Csv},
    {"Timeline for Perfetto and chrome://tracing (*.json)", "json", capture::Format::Timeline},
    {"Saved view text (*.txt)", "txt", capture::Format::ViewText},
};

} // namespace

CaptureWindow::CaptureWindow(TraceApplication& app, QString const& fileName, capture::Capture const& capture,
                             QWidget* parent)
    : QMainWindow(parent)
    , captureModel(nullptr, app.getChannelControl(), app.getEndpoints().sharedRingName)
    , fileName(fileName)
    , note(capture.note)
    , total(capture.total)
    , first(capture.first)
    , firstError(capture.firstError)
    , view(new LiveTableView(this))
{
    setWindowTitle(tr("%1 - ZelVisa Trace Tool capture").arg(QFileInfo(fileName).fileName()));
    setWindowFilePath(fileName);
    resize(1200, 760);
    setCentralWidget(view);
    area = std::make_unique<TraceTableArea>(*this, *view, captureModel);
    area->sizeColumns(width());
    area->offerHeaderMenu();
    // Id, elapsed time and session can be shown again from the header.
    view->setColumnHidden(LiveTraceModel::IdColumn, true);
    view->setColumnHidden(LiveTraceModel::ElapsedTimeColumn, true);
    view->setColumnHidden(LiveTraceModel::SessionColumn, true);
    connect(view->selectionModel(), &QItemSelectionModel::currentChanged, &captureModel,
            &LiveTraceModel::selectionChanged);
    captureModel.loadRecords(capture.records);

    statusLabel = new QLabel(this);
    statusBar()->addWidget(statusLabel, 1);
    connect(&captureModel, &LiveTraceModel::newDataCollected, this, &CaptureWindow::updateStatus);
    setupMenus();
    updateStatus();
}

CaptureWindow::~CaptureWindow()
{
    // The panes and the view hold on to the model, which goes first as a member: they go before it.
    captureModel.selectionModel = nullptr;
    captureModel.tableView = nullptr;
    area.reset();
    delete view;
}

QTableView* CaptureWindow::table() const
{
    return view;
}

FindBar* CaptureWindow::findBar() const
{
    return &area->findBar();
}

void CaptureWindow::setupMenus()
{
    QMenu* file = menuBar()->addMenu(tr("&File"));
    file->addAction(tr("&Export view..."), this, [this] { askAndExport(this, captureModel); });
    file->addSeparator();
    constexpr std::uint64_t part = capture::CaptureReader::s_MaxRecords;
    partActions << file->addAction(tr("E&arlier records"), this, [this] { showPart(first > part ? first - part : 0); })
                << file->addAction(tr("&Later records"), this,
                                   [this] { showPart(std::min(first + part, total > part ? total - part : 0)); })
                << file->addAction(tr("Part with the first &failed call"), this, [this] {
                       showPart(static_cast<std::uint64_t>(std::max<std::int64_t>(0, firstError - part / 2)), true);
                   });
    partActions[0]->setShortcut(QKeySequence(Qt::ALT + Qt::Key_PageUp));
    partActions[1]->setShortcut(QKeySequence(Qt::ALT + Qt::Key_PageDown));
    file->addSeparator();
    QAction* close = file->addAction(tr("&Close"), this, &QWidget::close);
    close->setShortcut(QKeySequence::Close);

    QMenu* viewMenu = menuBar()->addMenu(tr("&View"));
    viewMenu->addAction(tr("View &filters..."), this, [this] {
        ViewFilterDialog dialog(this, captureModel.getFilters());
        if (dialog.exec())
            captureModel.setFilter(dialog.viewFilters);
    });
    auto toggle = [this, viewMenu](QString const& text, bool on, auto set) {
        QAction* action = viewMenu->addAction(text);
        action->setCheckable(true);
        action->setChecked(on);
        connect(action, &QAction::toggled, this, [this, set](bool checked) { (captureModel.*set)(checked); });
    };
    toggle(tr("&Collapse same commands"), captureModel.isCollapseSameCommands(),
           &LiveTraceModel::setCollapseSameCommands);
    toggle(tr("Show only &string arguments"), captureModel.isShowOnlyStringParameters(),
           &LiveTraceModel::setShowOnlyStringParameters);

    area->addAnalysisActions(*menuBar()->addMenu(tr("&Analysis")));
}

bool CaptureWindow::showPart(std::uint64_t from, bool toFirstError)
{
    capture::Capture capture;
    QString error;
    if (!capture::CaptureReader::read(fileName, capture, error, from)) {
        QMessageBox::warning(this, tr("Open capture"), error);
        return false;
    }
    total = capture.total;
    first = capture.first;
    firstError = capture.firstError;
    note = capture.note;
    captureModel.loadRecords(capture.records);
    updateStatus();
    for (int row = 0; toFirstError && row < captureModel.rowCount(); ++row) {
        const LiveTraceModel::Row* shown = captureModel.displayRow(row);
        if (shown && shown->entry->status < 0 && shown->displayKind != LiveTraceModel::CallKind) {
            area->findBar().showRow(row);
            break;
        }
    }
    return true;
}

void CaptureWindow::updateStatus()
{
    const bool parts = total > captureModel.getLocalRing().size();
    partActions[0]->setEnabled(parts && first > 0);
    partActions[1]->setEnabled(parts && first + captureModel.getLocalRing().size() < total);
    partActions[2]->setEnabled(parts && firstError >= 0);
    QString text = tr("%1: %2 rows from %3 records (read only)")
                       .arg(QFileInfo(fileName).fileName())
                       .arg(captureModel.rowCount())
                       .arg(captureModel.getLocalRing().size());
    if (!note.isEmpty())
        text += QStringLiteral(" - ") + note;
    statusLabel->setText(text);
}

CaptureWindow* CaptureWindow::open(TraceApplication& app, QString const& fileName, QWidget* parent)
{
    capture::Capture capture;
    QString error;
    if (!capture::CaptureReader::read(fileName, capture, error)) {
        QMessageBox::warning(parent, tr("Open capture"), error);
        return nullptr;
    }
    auto* window = new CaptureWindow(app, fileName, capture, nullptr);
    window->setAttribute(Qt::WA_DeleteOnClose);
    window->show();
    return window;
}

bool CaptureWindow::exportView(QWidget* parent, LiveTraceModel& model, QString const& fileName, capture::Format format)
{
    QString error;
    if (capture::exportView(model, fileName, format, &error))
        return true;
    QMessageBox::critical(parent, tr("Export view"), error);
    return false;
}

QString CaptureWindow::fileDialogFilters()
{
    QStringList filters;
    for (ExportChoice const& choice : s_ExportChoices)
        filters << tr(choice.filter);
    return filters.join(QStringLiteral(";;"));
}

std::pair<QString, capture::Format> CaptureWindow::exportTarget(QString name, QString const& selectedFilter)
{
    // The suffix the user typed decides; without one of ours, the filter chosen in the dialog.
    const QString typed = QFileInfo(name).suffix().toLower();
    for (ExportChoice const& c : s_ExportChoices) {
        if (typed == QLatin1String(c.suffix))
            return {name, c.format};
    }
    ExportChoice const* choice = &s_ExportChoices[0];
    for (ExportChoice const& c : s_ExportChoices) {
        if (selectedFilter == tr(c.filter))
            choice = &c;
    }
    if (typed.isEmpty())
        name += QLatin1Char('.') + QLatin1String(choice->suffix);
    return {name, choice->format};
}

void CaptureWindow::askAndExport(QWidget* parent, LiveTraceModel& model)
{
    // In the folder of the last export (else the home folder), with a name that says when.
    QSettings settings;
    const QString folderKey
        = QLatin1String(SettingsKeys::s_AnalysisGroup) + QLatin1Char('/') + QLatin1String(SettingsKeys::s_ExportFolder);
    const QString folder = settings.value(folderKey, QDir::homePath()).toString();
    const QString proposed = QDir(folder).filePath(
        QStringLiteral("zelvisa-%1.csv").arg(QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"))));
    QString selected = tr(s_ExportChoices[0].filter);
    const QString name
        = QFileDialog::getSaveFileName(parent, tr("Export view"), proposed, fileDialogFilters(), &selected);
    if (name.isEmpty())
        return;
    settings.setValue(folderKey, QFileInfo(name).absolutePath());
    const auto [target, format] = exportTarget(name, selected);
    exportView(parent, model, target, format);
}

void CaptureWindow::askAndOpen(TraceApplication&, QWidget* parent)
{
    const QString name = QFileDialog::getOpenFileName(
        parent, tr("Open capture"), QString(),
        tr("Captures (*.zelcap *.csv *.txt *.log);;Capture files (*.zelcap);;Exported tables (*.csv);;Saved views "
           "(*.txt);;Trace logs (*.log);;All files (*)"));
    // Any capture opens whole: tables, views and logs are converted in the background first.
    if (!name.isEmpty())
        CaptureFileWindow::openAny(name, parent);
}

} // namespace gui
