#pragma once

#include "TraceRows.h"

// The live model's rows for the panes and the find bar: everything in memory, answered at once.
class LiveRows : public TraceRows
{
public:
    explicit LiveRows(LiveTraceModel& model)
        : model(model)
    { }

    QAbstractItemModel& itemModel() override { return model; }
    void onRowsChanged(QObject* context, std::function<void()> changed) override;
    int count() const override { return model.rowCount(); }
    bool call(int row, Call& out) override;
    void find(RowSearch const* search, int from, bool forward, QObject* context,
              std::function<void(int)> found) override;
    void countMatches(RowSearch const& search, QObject* context, std::function<void(int)> counted) override;
    void updateStatistics(CallStatistics& stats, QObject* context, std::function<void()> done) override;
    void setOnlyErrors(bool only) override { model.setOnlyErrors(only); }
    void setSelectionModel(QItemSelectionModel* selection) override { model.selectionModel = selection; }

private:
    LiveTraceModel& model;
};
