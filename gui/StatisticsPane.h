#pragma once

#include "CallStatistics.h"

#include <QDockWidget>

class TraceRows;
class QStandardItemModel;
class QTableView;

namespace gui {

// A dock with per-operation and per-address figures of the calls the model holds: calls, errors
// and min / mean / p95 / max duration. Sortable by any column; copied as tab-separated text.
// The figures follow the model's display stage and cost what arrived since; those of a large capture
// are counted in the background.
class StatisticsPane : public QDockWidget
{
    Q_OBJECT

public:
    StatisticsPane(TraceRows& rows, QWidget* parent = nullptr);

    const CallStatistics& statistics() const { return stats; }

public slots:
    void refresh();
    void copyToClipboard() const;

private:
    void fill(QStandardItemModel* table, QTableView* tableView, const std::vector<CallStatistics::Figures>& list);

    TraceRows& rows;
    CallStatistics stats;
    QStandardItemModel* operations;
    QStandardItemModel* addresses;
    QTableView* operationsView;
    QTableView* addressesView;
};

} // namespace gui
