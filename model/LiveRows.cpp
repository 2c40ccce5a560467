#include "LiveRows.h"

#include "CallStatistics.h"
#include "RecordDetails.h"
#include "RowSearch.h"

void LiveRows::onRowsChanged(QObject* context, std::function<void()> changed)
{
    QObject::connect(&model, &LiveTraceModel::newDataCollected, context, changed);
    QObject::connect(&model, &QAbstractItemModel::modelReset, context, changed);
}

bool LiveRows::call(int row, Call& out)
{
    const Row* shown = model.displayRow(row);
    if (!shown)
        return false;
    out.row = *shown;
    out.record = *shown->entry;
    out.row.entry = &out.record;
    const Entry* partner = RecordDetails::findPartner(model.getLocalRing(), *shown->entry);
    out.hasPartner = partner != nullptr;
    if (partner)
        out.partner = *partner;
    return true;
}

void LiveRows::find(RowSearch const* search, int from, bool forward, QObject*, std::function<void(int)> found)
{
    found(search ? search->find(model, from, forward) : RowSearch::findError(model, from, forward));
}

void LiveRows::countMatches(RowSearch const& search, QObject*, std::function<void(int)> counted)
{
    counted(search.countMatches(model));
}

void LiveRows::updateStatistics(CallStatistics& stats, QObject*, std::function<void()> done)
{
    stats.update(model.getLocalRing());
    done();
}
