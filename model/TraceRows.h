#pragma once

#include "LiveTraceModel.h"

#include <QPointer>

#include <functional>

class CallStatistics;
class QAbstractItemModel;
class QItemSelectionModel;
class RowSearch;

// The rows of a trace table as the find bar, the details and statistics panes and the Analysis
// actions read them, whatever holds them: the live model with its few thousand rows in memory, or a
// capture file of millions read in windows. Answers that a large capture works out in the background
// come later, through the callback, on the GUI thread, and only while the context object lives;
// the live table answers at once.
class TraceRows
{
public:
    using Entry = LiveTraceModel::Entry;
    using Row = LiveTraceModel::Row;

    // A row and the call it belongs to: its record, and the other record of the call if known.
    struct Call
    {
        Row row {};
        Entry record {};
        bool hasPartner = false;
        Entry partner {};
    };

    virtual ~TraceRows() = default;

    virtual QAbstractItemModel& itemModel() = 0;
    // changed runs whenever the rows are others than before (new records, options, filters).
    virtual void onRowsChanged(QObject* context, std::function<void()> changed) = 0;
    virtual int count() const = 0;
    // False outside the table.
    virtual bool call(int row, Call& out) = 0;

    // The next row after from (before it), wrapping, that matches the search, or with a failed call
    // when search is null; -1 for none.
    virtual void find(RowSearch const* search, int from, bool forward, QObject* context, std::function<void(int)> found)
        = 0;
    virtual void countMatches(RowSearch const& search, QObject* context, std::function<void(int)> counted) = 0;
    // Brings stats up to date with every record held; done runs once it is.
    virtual void updateStatistics(CallStatistics& stats, QObject* context, std::function<void()> done) = 0;

    virtual void setOnlyErrors(bool only) = 0;
    // The table's selection, for the bold rows and yellow arrows of the current call.
    virtual void setSelectionModel(QItemSelectionModel* selection) = 0;
};
