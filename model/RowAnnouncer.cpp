#include "RowAnnouncer.h"

#include "LiveTraceModel.h"

#include <QItemSelectionModel>

#include <algorithm>

namespace {

std::uint64_t sequenceAt(RowAnnouncer::Rows const& rows, int r)
{
    return rows((rows.begin + static_cast<std::uint32_t>(r)) % rows.numberOfElements()).entry->reserved;
}

} // namespace

RowAnnouncer::RowAnnouncer(LiveTraceModel& model)
    : model(model)
{ }

void RowAnnouncer::announce(Rows const& rows)
{
    if (resetPending)
        announceReset(rows);
    else
        announceChanges(rows);
}

bool RowAnnouncer::putOffRefresh()
{
    if (announcing)
        refreshPending = true;
    return announcing;
}

// Rows are ordered by their records' sequence numbers, so finding how many old rows went away is a
// binary search.
//
// A current row that leaves is cleared rather than handed on by Qt to a neighbour: Qt would scroll to
// the neighbour, which under load is the top row, and the view would jump there on every stage. (The
// live table keeps its own scroll position steady while rows leave at the top: LiveTableView.)
void RowAnnouncer::announceChanges(Rows const& rows)
{
    const int count = static_cast<int>(rows.size());
    QItemSelectionModel* selection = model.selectionModel;
    const QModelIndex current = selection ? selection->currentIndex() : QModelIndex();

    announcing = true;
    int gone = rowCount();
    if (count > 0 && !rowsInvalidated) {
        const auto firstKept = std::lower_bound(announced.begin(), announced.end(), sequenceAt(rows, 0));
        gone = static_cast<int>(firstKept - announced.begin());
    }
    rowsInvalidated = false;
    if (gone > 0) {
        if (current.isValid() && current.row() < gone)
            selection->setCurrentIndex(QModelIndex(), QItemSelectionModel::NoUpdate);
        // While the removal is open the view still counts the old rows: those above the kept ones
        // show nothing, the kept ones already show their new place.
        rowShift = gone;
        model.beginRemoveRows(QModelIndex(), 0, gone - 1);
        announced.erase(announced.begin(), announced.begin() + gone);
        rowShift = 0;
        model.endRemoveRows();
    }
    const int kept = rowCount();
    if (count < kept) {
        // The current row's record is now in the last row, or gone with the rows that were removed.
        const QModelIndex now = selection ? selection->currentIndex() : QModelIndex();
        if (now.isValid() && now.row() >= count)
            selection->setCurrentIndex(count > 0 ? model.index(count - 1, now.column()) : QModelIndex(),
                                       QItemSelectionModel::NoUpdate);
        model.beginRemoveRows(QModelIndex(), count, kept - 1);
        announced.resize(static_cast<std::size_t>(count));
        model.endRemoveRows();
    } else if (count > kept) {
        model.beginInsertRows(QModelIndex(), kept, count - 1);
        announced.resize(static_cast<std::size_t>(count));
        model.endInsertRows();
    }
    for (int r = 0; r < count; ++r)
        announced[static_cast<std::size_t>(r)] = sequenceAt(rows, r);
    announcing = false;
    if (refreshPending) {
        refreshPending = false;
        model.refresh();
    }
}

// The current row follows its record into the new rows.
void RowAnnouncer::announceReset(Rows const& rows)
{
    resetPending = false;
    rowsInvalidated = false;
    QItemSelectionModel* selection = model.selectionModel;
    const QModelIndex current = selection ? selection->currentIndex() : QModelIndex();
    const bool hadCurrent = current.isValid() && current.row() < rowCount();
    const std::uint64_t currentSequence = hadCurrent ? sequence(current.row()) : 0;

    const int count = static_cast<int>(rows.size());
    announcing = true;
    model.beginResetModel();
    announced.resize(static_cast<std::size_t>(count));
    for (int r = 0; r < count; ++r)
        announced[static_cast<std::size_t>(r)] = sequenceAt(rows, r);
    model.endResetModel();
    announcing = false;
    refreshPending = false;

    const int row = hadCurrent ? rowOfSequence(currentSequence) : -1;
    // The view scrolls to its new current row itself.
    if (row >= 0 && selection)
        selection->setCurrentIndex(model.index(row, current.column()),
                                   QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
}

int RowAnnouncer::rowOfSequence(std::uint64_t sequence) const
{
    const auto it = std::lower_bound(announced.begin(), announced.end(), sequence);
    return it == announced.end() ? -1 : static_cast<int>(it - announced.begin());
}
