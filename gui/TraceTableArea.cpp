#include "TraceTableArea.h"

#include "CellToolTips.h"
#include "DetailsPane.h"
#include "FindBar.h"
#include "LiveRows.h"
#include "LiveTableView.h"
#include "RowHeaderView.h"
#include "SettingsKeys.h"
#include "StatisticsPane.h"
#include "TimelineDock.h"

#include <QAction>
#include <QFontMetrics>
#include <QHeaderView>
#include <QMainWindow>
#include <QMenu>
#include <QSettings>
#include <QSignalMapper>
#include <QStyledItemDelegate>

#include <algorithm>

namespace gui {

namespace {

// An address tells both its host and its resource class ("TCPIP0::10.0.0.5…5025::SOCKET"), so a cut
// one loses its middle, not its end.
class MiddleElidingDelegate : public QStyledItemDelegate
{
public:
    using QStyledItemDelegate::QStyledItemDelegate;

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override
    {
        QStyledItemDelegate::initStyleOption(option, index);
        option->textElideMode = Qt::ElideMiddle;
    }
};

} // namespace

TraceTableArea::TraceTableArea(QMainWindow& window, LiveTableView& view, LiveTraceModel& liveModel)
    : TraceTableArea(window, view, *new LiveRows(liveModel), &liveModel)
{
    liveRows.reset(static_cast<LiveRows*>(&rows));
    liveModel.tableView = &view;
}

TraceTableArea::TraceTableArea(QMainWindow& window, LiveTableView& view, TraceRows& rows)
    : TraceTableArea(window, view, rows, nullptr)
{ }

TraceTableArea::TraceTableArea(QMainWindow& window, LiveTableView& view, TraceRows& rows, LiveTraceModel* liveModel)
    : window(window)
    , view(view)
    , rows(rows)
    , model(rows.itemModel())
{
    // The live window's form sets the same; a capture window's table is made here.
    view.setSelectionBehavior(QAbstractItemView::SelectRows);
    view.setSelectionMode(QAbstractItemView::SingleSelection);
    view.setEditTriggers(QAbstractItemView::NoEditTriggers);
    view.setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    view.setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    view.setAlternatingRowColors(true);
    // Qt wraps a cell's text at its first blank or hyphen and shows the first line only, even where the
    // whole text would fit: "viOpen(0x00000001, …" beside an empty half of the cell.
    view.setWordWrap(false);
    view.setItemDelegateForColumn(LiveTraceModel::AddressColumn, new MiddleElidingDelegate(&view));
    // Fixed row heights and a row header that measures a few labels: the view's cost per update then
    // follows what is visible, not the 8510 rows.
    view.setVerticalHeader(new RowHeaderView(&view));
    view.setModel(&model);
    view.horizontalHeader()->setStretchLastSection(true);
    rows.setSelectionModel(view.selectionModel());

    new CellToolTips(&view);
    finder = new FindBar(rows, &view);
    details = new DetailsPane(rows, &view, &window);
    statistics = new StatisticsPane(rows, &window);
    // The timeline (for rows in memory) right below the table across its width, both panes below it,
    // so that the table keeps its width for the Command column.
    if (liveModel) {
        timeline = new TimelineDock(*liveModel, view, *finder, &window);
        window.addDockWidget(Qt::BottomDockWidgetArea, timeline);
        window.addDockWidget(Qt::BottomDockWidgetArea, details, Qt::Vertical);
    } else {
        window.addDockWidget(Qt::BottomDockWidgetArea, details);
    }
    window.addDockWidget(Qt::BottomDockWidgetArea, statistics);
    window.splitDockWidget(details, statistics, Qt::Horizontal);
    details->toggleViewAction()->setText(tr("&Details pane"));
    statistics->toggleViewAction()->setText(tr("&Statistics pane"));
    if (timeline) {
        timeline->toggleViewAction()->setText(tr("&Timeline"));
        timeline->toggleViewAction()->setShortcut(QKeySequence(Qt::CTRL + Qt::Key_T));
    }
    onlyErrors = new QAction(tr("&Only errors"), this);
    onlyErrors->setCheckable(true);
    connect(onlyErrors, &QAction::toggled, this, [this](bool only) { this->rows.setOnlyErrors(only); });
}

// The panes and the find bar read the model, which may go before the window that holds them.
TraceTableArea::~TraceTableArea()
{
    delete timeline;
    delete details;
    delete statistics;
    delete finder;
}

void TraceTableArea::sizeColumns(int windowWidth)
{
    // Room for typical values, in bold, as the current call's rows show.
    QFont bold = view.font();
    bold.setBold(true);
    const QFontMetrics metrics(bold);
    QHeaderView* header = view.horizontalHeader();
    auto widen = [header, &metrics](int column, const char* sample) {
        header->resizeSection(column, metrics.horizontalAdvance(QLatin1String(sample)) + 16);
    };
    widen(LiveTraceModel::TimestampColumn, "00:00:00.000");
    widen(LiveTraceModel::ElapsedTimeColumn, "000.000000 s");
    widen(LiveTraceModel::PidColumn, "0000000");
    widen(LiveTraceModel::ThreadColumn, "0000000");
    widen(LiveTraceModel::AddressColumn, "TCPIP0::192.168.1.10::inst0::INSTR");
    widen(LiveTraceModel::DurationColumn, "1000.000 ms");
    widen(LiveTraceModel::StatusColumn, "VI_ERROR_RSRC_NFOUND");
    // The Command column keeps a quarter of the width, at least 300 px, and fills what the others
    // leave; on a small screen the long columns give way alike, timestamp and duration stay whole (a
    // cut cell shows its whole text as a tool tip). At 1200 px every column has room for the typical
    // values above.
    const int yielding[]
        = {LiveTraceModel::ElapsedTimeColumn, LiveTraceModel::AddressColumn, LiveTraceModel::StatusColumn};
    const int fixed = metrics.horizontalAdvance(QStringLiteral("00000")) // the row header
        + header->sectionSize(LiveTraceModel::TimestampColumn) + header->sectionSize(LiveTraceModel::DurationColumn);
    int wanted = 0;
    for (int column : yielding)
        wanted += header->sectionSize(column);
    const int command = std::max(windowWidth / 4, 300);
    const int room = std::max(windowWidth - command - fixed, 3 * 60);
    for (int column : yielding) {
        if (wanted > room)
            header->resizeSection(column, header->sectionSize(column) * room / wanted);
    }
}

void TraceTableArea::addAnalysisActions(QMenu& menu)
{
    auto add = [this, &menu](const QString& text, const QKeySequence& key, void (FindBar::*slot)()) {
        QAction* action = menu.addAction(text);
        action->setShortcut(key);
        connect(action, &QAction::triggered, finder, slot);
    };
    add(tr("&Find..."), QKeySequence(Qt::CTRL + Qt::Key_F), &FindBar::activate);
    add(tr("Find &next"), QKeySequence(Qt::Key_F3), &FindBar::findNext);
    add(tr("Find &previous"), QKeySequence(Qt::SHIFT + Qt::Key_F3), &FindBar::findPrevious);
    menu.addSeparator();
    add(tr("Next &error"), QKeySequence(Qt::Key_F8), &FindBar::nextError);
    add(tr("Pre&vious error"), QKeySequence(Qt::SHIFT + Qt::Key_F8), &FindBar::previousError);
    menu.addAction(onlyErrors);
    menu.addSeparator();
    menu.addAction(details->toggleViewAction());
    menu.addAction(statistics->toggleViewAction());
    if (timeline)
        menu.addAction(timeline->toggleViewAction());
}

std::unique_ptr<QMenu> TraceTableArea::headerMenu(QWidget* parent, QSignalMapper& mapper) const
{
    auto menu = std::make_unique<QMenu>(parent);
    for (int column = 0; column < model.columnCount() - 1; ++column) {
        QAction* action = menu->addAction(model.headerData(column, Qt::Horizontal).toString());
        action->setCheckable(true);
        action->setChecked(!view.isColumnHidden(column));
        mapper.setMapping(action, column);
        connect(action, &QAction::triggered, &mapper, qOverload<>(&QSignalMapper::map));
    }
    return menu;
}

void TraceTableArea::toggleColumn(int column)
{
    view.setColumnHidden(column, !view.isColumnHidden(column));
}

void TraceTableArea::offerHeaderMenu()
{
    ownHeaderMapper = new QSignalMapper(this);
    connect(ownHeaderMapper, &QSignalMapper::mappedInt, this, &TraceTableArea::toggleColumn);
    QHeaderView* header = view.horizontalHeader();
    header->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(header, &QWidget::customContextMenuRequested, this, [this, header](QPoint pos) {
        ownHeaderMenu = headerMenu(&window, *ownHeaderMapper);
        ownHeaderMenu->popup(header->viewport()->mapToGlobal(pos));
    });
}

void TraceTableArea::restorePanes(QSettings& settings, bool detailsByDefault, bool statisticsByDefault)
{
    settings.beginGroup(QLatin1String(SettingsKeys::s_AnalysisGroup));
    details->setVisible(settings.value(QLatin1String(SettingsKeys::s_DetailsVisible), detailsByDefault).toBool());
    statistics->setVisible(
        settings.value(QLatin1String(SettingsKeys::s_StatisticsVisible), statisticsByDefault).toBool());
    // The live window gives the table its height until the timeline is asked for.
    if (timeline)
        timeline->restore(settings, false);
    settings.endGroup();
    window.resizeDocks({details}, {window.height() / 3}, Qt::Vertical);
    window.resizeDocks({details, statistics}, {window.width() * 3 / 5, window.width() * 2 / 5}, Qt::Horizontal);
}

void TraceTableArea::savePanes(QSettings& settings) const
{
    settings.beginGroup(QLatin1String(SettingsKeys::s_AnalysisGroup));
    settings.setValue(QLatin1String(SettingsKeys::s_DetailsVisible), !details->isHidden());
    settings.setValue(QLatin1String(SettingsKeys::s_StatisticsVisible), !statistics->isHidden());
    if (timeline)
        timeline->save(settings);
    settings.endGroup();
}

} // namespace gui
