#include "CaptureFileWindow.h"

#include "CaptureConverter.h"
#include "CaptureSummaryPane.h"
#include "FindBar.h"
#include "LiveTableView.h"
#include "TraceTableArea.h"
#include "ViewFilterDialog.h"

#include <QEventLoop>
#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressBar>
#include <QProgressDialog>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QTimer>

#include <atomic>
#include <thread>

namespace gui {

CaptureFileWindow::CaptureFileWindow(QString const& shownName, std::shared_ptr<QTemporaryDir> folder, QWidget* parent)
    : QMainWindow(parent)
    , shownName(shownName)
    , folder(std::move(folder))
    , view(new LiveTableView(this))
{
    setWindowTitle(tr("%1 - ZelVisa Trace Tool capture").arg(QFileInfo(shownName).fileName()));
    setWindowFilePath(shownName);
    resize(1200, 760);
    setCentralWidget(view);
    area = std::make_unique<TraceTableArea>(*this, *view, static_cast<TraceRows&>(captureModel));
    area->sizeColumns(width());
    area->offerHeaderMenu();
    view->setColumnHidden(LiveTraceModel::IdColumn, true);
    view->setColumnHidden(LiveTraceModel::ElapsedTimeColumn, true);
    view->setColumnHidden(LiveTraceModel::SessionColumn, true);
    // The bold rows and yellow arrows follow the current row.
    connect(view->selectionModel(), &QItemSelectionModel::currentChanged, this, [this] {
        view->viewport()->update();
        view->verticalHeader()->viewport()->update();
    });

    summary = new CaptureSummaryPane(this);
    addDockWidget(Qt::RightDockWidgetArea, summary);
    connect(summary, &CaptureSummaryPane::fileRowAsked, this, &CaptureFileWindow::showFileRow);
    connect(&captureModel, &capture::CaptureTableModel::summaryReady, this,
            [this] { summary->show(*captureModel.summary(), QFileInfo(this->shownName).fileName()); });

    statusLabel = new QLabel(this);
    workLabel = new QLabel(this);
    workBar = new QProgressBar(this);
    workBar->setRange(0, 100);
    workBar->setMaximumWidth(160);
    statusBar()->addWidget(statusLabel, 1);
    statusBar()->addPermanentWidget(workLabel);
    statusBar()->addPermanentWidget(workBar);
    workLabel->hide();
    workBar->hide();
    connect(&captureModel, &capture::CaptureTableModel::progress, this, [this](QString const& what, int percent) {
        workLabel->setText(what);
        workBar->setValue(percent);
        workLabel->setVisible(!what.isEmpty());
        workBar->setVisible(!what.isEmpty());
    });
    connect(&captureModel, &QAbstractItemModel::modelReset, this, &CaptureFileWindow::updateStatus);
    setupMenus();
}

CaptureFileWindow::~CaptureFileWindow()
{
    // The panes and the view hold on to the model, which goes last as the first member.
    area.reset();
    delete view;
}

bool CaptureFileWindow::open(QString const& fileName, QString& error)
{
    if (!captureModel.open(fileName, error))
        return false;
    updateStatus();
    return true;
}

QTableView* CaptureFileWindow::table() const
{
    return view;
}

FindBar* CaptureFileWindow::findBar() const
{
    return &area->findBar();
}

void CaptureFileWindow::showFileRow(std::int64_t fileRow)
{
    area->findBar().showRow(captureModel.rowOfFileRow(fileRow));
}

void CaptureFileWindow::updateStatus()
{
    statusLabel->setText(tr("%1: %2 rows of %3 (read only)")
                             .arg(QFileInfo(shownName).fileName())
                             .arg(captureModel.rowCount())
                             .arg(captureModel.file().rowCount()));
}

void CaptureFileWindow::setupMenus()
{
    QMenu* file = menuBar()->addMenu(tr("&File"));
    file->addAction(tr("&Export view..."), this, &CaptureFileWindow::askAndExport);
    file->addAction(summary->toggleViewAction());
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
    // A recording holds every call as a row of its own; collapsing them is worked out on demand.
    toggle(tr("&Collapse same commands"), captureModel.isCollapseSameCommands(),
           &capture::CaptureTableModel::setCollapseSameCommands);
    toggle(tr("Show only &string arguments"), captureModel.isShowOnlyStringParameters(),
           &capture::CaptureTableModel::setShowOnlyStringParameters);

    QMenu* analysis = menuBar()->addMenu(tr("&Analysis"));
    area->addAnalysisActions(*analysis);
    analysis->addSeparator();
    QAction* first = analysis->addAction(tr("First &failed call"), this, [this] {
        captureModel.find(nullptr, -1, true, this, [this](int row) { area->findBar().showRow(row); });
    });
    first->setShortcut(QKeySequence(Qt::CTRL + Qt::Key_F8));
}

void CaptureFileWindow::askAndExport()
{
    QString selected;
    QString name = QFileDialog::getSaveFileName(this, tr("Export view"), QString(),
                                                tr("CSV table (*.csv);;Timeline for Perfetto and chrome://tracing "
                                                   "(*.json);;Saved view text (*.txt)"),
                                                &selected);
    if (name.isEmpty())
        return;
    if (QFileInfo(name).suffix().isEmpty())
        name += selected.contains(QLatin1String("*.json")) ? QStringLiteral(".json")
            : selected.contains(QLatin1String("*.txt"))    ? QStringLiteral(".txt")
                                                           : QStringLiteral(".csv");
    captureModel.exportView(name, capture::formatForFileName(name), this, [this](QString const& error) {
        if (!error.isEmpty())
            QMessageBox::critical(this, tr("Export view"), error);
    });
}

CaptureFileWindow* CaptureFileWindow::openAny(QString const& fileName, QWidget* parent)
{
    QString error;
    QString capture = fileName;
    std::shared_ptr<QTemporaryDir> folder;
    if (QFileInfo(fileName).suffix().toLower() != QLatin1String("zelcap")) {
        // Read once, off the GUI thread, into a capture file that then opens whole.
        folder = std::make_shared<QTemporaryDir>();
        capture = folder->filePath(QFileInfo(fileName).completeBaseName() + QStringLiteral(".zelcap"));
        QProgressDialog dialog(tr("Reading %1...").arg(QFileInfo(fileName).fileName()), tr("Cancel"), 0, 1000, parent);
        dialog.setWindowTitle(tr("Open capture"));
        dialog.setWindowModality(Qt::WindowModal);
        dialog.setMinimumDuration(300);
        std::atomic<qint64> done {0};
        std::atomic<qint64> total {1};
        std::atomic<bool> cancelled {false};
        std::atomic<bool> finished {false};
        bool converted = false;
        std::thread worker([&] {
            converted = capture::convertToZelcap(
                fileName, capture,
                [&](qint64 now, qint64 size) {
                    done = now;
                    total = std::max<qint64>(size, 1);
                    return !cancelled.load();
                },
                error);
            finished = true;
        });
        QEventLoop loop;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
            if (finished)
                loop.quit();
            else if (!dialog.wasCanceled())
                dialog.setValue(static_cast<int>(done * 1000 / total));
        });
        QObject::connect(&dialog, &QProgressDialog::canceled, &loop, [&] { cancelled = true; });
        poll.start(50);
        loop.exec();
        worker.join();
        dialog.reset();
        if (cancelled)
            return nullptr;
        if (!converted) {
            QMessageBox::warning(parent, tr("Open capture"), error);
            return nullptr;
        }
    }
    auto* window = new CaptureFileWindow(fileName, folder);
    window->setAttribute(Qt::WA_DeleteOnClose);
    if (!window->open(capture, error)) {
        delete window;
        QMessageBox::warning(parent, tr("Open capture"), error);
        return nullptr;
    }
    window->show();
    return window;
}

} // namespace gui
