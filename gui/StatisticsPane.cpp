#include "StatisticsPane.h"

#include "TraceRows.h"
#include "ValueFormat.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QPushButton>
#include <QStandardItemModel>
#include <QTabWidget>
#include <QTableView>
#include <QVBoxLayout>

namespace gui {

namespace {

// Sorting reads the numbers, not the texts with their units.
constexpr int s_SortRole = Qt::UserRole + 1;

enum Column
{
    KeyColumn,
    CallsColumn,
    ErrorsColumn,
    MinColumn,
    MeanColumn,
    P95Column,
    MaxColumn,
    ColumnCount
};

QTableView* makeTable(QStandardItemModel* table, const QString& keyTitle, QWidget* parent)
{
    table->setHorizontalHeaderLabels({keyTitle, QObject::tr("Calls"), QObject::tr("Errors"), QObject::tr("Min"),
                                      QObject::tr("Mean"), QObject::tr("P95"), QObject::tr("Max")});
    table->setSortRole(s_SortRole);
    auto* view = new QTableView(parent);
    view->setModel(table);
    // A key cut at its first blank would hide what it counts; whole texts, cut only at the end.
    view->setWordWrap(false);
    view->setSortingEnabled(true);
    view->sortByColumn(CallsColumn, Qt::DescendingOrder);
    view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    view->setSelectionBehavior(QAbstractItemView::SelectRows);
    view->verticalHeader()->hide();
    view->horizontalHeader()->setSectionResizeMode(KeyColumn, QHeaderView::Stretch);
    for (int c = CallsColumn; c < ColumnCount; ++c)
        view->horizontalHeader()->setSectionResizeMode(c, QHeaderView::ResizeToContents);
    return view;
}

void setCell(QStandardItemModel* table, int row, int column, const QString& text, const QVariant& sortValue)
{
    QStandardItem* item = table->item(row, column);
    if (!item) {
        item = new QStandardItem;
        if (column != KeyColumn)
            item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
        table->setItem(row, column, item);
    }
    if (item->text() != text)
        item->setText(text);
    if (item->data(s_SortRole) != sortValue)
        item->setData(sortValue, s_SortRole);
}

} // namespace

StatisticsPane::StatisticsPane(TraceRows& rows, QWidget* parent)
    : QDockWidget(tr("Statistics"), parent)
    , rows(rows)
    , operations(new QStandardItemModel(0, ColumnCount, this))
    , addresses(new QStandardItemModel(0, ColumnCount, this))
{
    setObjectName(QStringLiteral("statisticsPane"));
    auto* content = new QWidget(this);
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(4, 4, 4, 4);
    auto* tabs = new QTabWidget(content);
    operationsView = makeTable(operations, tr("Operation"), tabs);
    addressesView = makeTable(addresses, tr("Address"), tabs);
    tabs->addTab(operationsView, tr("By operation"));
    tabs->addTab(addressesView, tr("By address"));
    layout->addWidget(tabs, 1);
    auto* buttons = new QHBoxLayout;
    auto* copy = new QPushButton(tr("Copy as text"), content);
    buttons->addStretch(1);
    buttons->addWidget(copy);
    layout->addLayout(buttons);
    setWidget(content);

    connect(copy, &QPushButton::clicked, this, &StatisticsPane::copyToClipboard);
    rows.onRowsChanged(this, [this] { refresh(); });
    connect(this, &QDockWidget::visibilityChanged, this, [this](bool visible) {
        if (visible)
            refresh();
    });
}

void StatisticsPane::refresh()
{
    // A hidden pane catches up when it is shown again.
    if (isHidden())
        return;
    rows.updateStatistics(stats, this, [this] {
        fill(operations, operationsView, stats.figures(CallStatistics::ByOperation));
        fill(addresses, addressesView, stats.figures(CallStatistics::ByAddress));
    });
}

// Updates the rows in place, so that a reader's selection, scroll position and sort order stay.
void StatisticsPane::fill(QStandardItemModel* table, QTableView* tableView,
                          const std::vector<CallStatistics::Figures>& list)
{
    QHash<QString, const CallStatistics::Figures*> byKey;
    for (const CallStatistics::Figures& f : list)
        byKey.insert(f.key, &f);
    for (int row = table->rowCount() - 1; row >= 0; --row) {
        if (!byKey.contains(table->item(row, KeyColumn)->text()))
            table->removeRow(row);
    }
    QHash<QString, int> rows;
    for (int row = 0; row < table->rowCount(); ++row)
        rows.insert(table->item(row, KeyColumn)->text(), row);
    for (const CallStatistics::Figures& f : list) {
        int row = rows.value(f.key, -1);
        if (row < 0) {
            row = table->rowCount();
            table->insertRow(row);
            setCell(table, row, KeyColumn, f.key, f.key);
        }
        setCell(table, row, CallsColumn, QString::number(f.calls), static_cast<qulonglong>(f.calls));
        setCell(table, row, ErrorsColumn, QString::number(f.errors), static_cast<qulonglong>(f.errors));
        const double values[] = {f.min, f.mean, f.p95, f.max};
        for (int i = 0; i < 4; ++i)
            setCell(table, row, MinColumn + i, ValueFormat::duration2string(values[i]), values[i]);
    }
    const QHeaderView* header = tableView->horizontalHeader();
    table->sort(header->sortIndicatorSection(), header->sortIndicatorOrder());
}

void StatisticsPane::copyToClipboard() const
{
    QGuiApplication::clipboard()->setText(stats.toText().join(QLatin1Char('\n')) + QLatin1Char('\n'));
}

} // namespace gui
