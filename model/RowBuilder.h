#pragma once

#include "LiveTraceModel.h"
#include "RowVisibility.h"

#include <QHash>

#include <cstdint>
#include <cstring>

// Makes rows out of records in arrival order, as the live view shows them: a return right behind its
// call replaces it as one completed row, records the view filters hide are left out, repeats
// collapse. The live model rebuilds its rows with it on every display stage; a recorder streams every
// record through it. The rows go to a store that holds them; the builder only ever looks at, removes
// or adds the newest one:
//   bool empty() const; Row& last(); void popLast(); void push(Row const&);
class RowBuilder
{
public:
    using Entry = LiveTraceModel::Entry;
    using Row = LiveTraceModel::Row;

    RowBuilder(QHash<std::uint32_t, std::uint64_t>& firstIdByPid, bool collapse, bool onlyErrors)
        : firstIdByPid(firstIdByPid)
        , collapse(collapse)
        , onlyErrors(onlyErrors)
    { }

    // Adds the row of row.entry. Returns whether a row was added for it.
    template<class Rows> bool add(Rows& rows, Row row, RowVisibility visibility)
    {
        const Entry& e = *row.entry;
        row.displayKind = e.kind;
        row.firstId = *firstIdByPid.insert(e.pid, firstIdByPid.value(e.pid, e.id));

        // A return right behind its call replaces it as one completed row. The removal happens before
        // the filter test on purpose: a hidden return takes its call row with it.
        if (!rows.empty()) {
            const Entry& last = *rows.last().entry;
            if (last.pid == e.pid && last.id == e.id && last.threadId == e.threadId) {
                rows.popLast();
                row.displayKind = LiveTraceModel::CompletedKind;
            }
        } else if (e.kind == LiveTraceModel::ReturnKind) {
            row.displayKind = LiveTraceModel::CompletedKind;
        }
        if (visibility == RowVisibility::HiddenAsSuccess) {
            // Its own call record does not part a failed call from the failure before it.
            ++successesSinceRow;
            lastSuccess = e;
        }
        if (visibility != RowVisibility::Shown)
            return false;
        const bool adjacent = successesSinceRow == 0
            || (successesSinceRow == 1 && lastSuccess.kind == LiveTraceModel::CallKind && lastSuccess.pid == e.pid
                && lastSuccess.id == e.id && lastSuccess.threadId == e.threadId);
        successesSinceRow = 0;
        // With only errors shown, a call record (no status yet) is hidden like a success: its failed
        // return stands for the whole call, as it does first in an empty table, so that repeated
        // failures look alike and collapse.
        if (onlyErrors && row.displayKind == LiveTraceModel::ReturnKind)
            row.displayKind = LiveTraceModel::CompletedKind;

        row.repeatCount = 0;
        row.summedDuration = e.duration;
        if (collapse && adjacent && !rows.empty()) {
            const Row& previous = rows.last();
            const Entry& last = *previous.entry;
            // A prefix test on purpose: the earlier text only has to begin with this one.
            const std::size_t n = strnlen(e.text, sizeof e.text);
            if (last.pid == e.pid && last.threadId == e.threadId && last.status == e.status
                && previous.displayKind == row.displayKind && std::strncmp(last.text, e.text, n) == 0) {
                row.repeatCount = previous.repeatCount + 1;
                row.summedDuration = previous.summedDuration + e.duration;
                rows.popLast();
            }
        }
        rows.push(row);
        return true;
    }

private:
    QHash<std::uint32_t, std::uint64_t>& firstIdByPid;
    bool collapse;
    bool onlyErrors;
    int successesSinceRow = 0;
    // Only the identifying fields are read: a copy of the header is enough, not the 1 KB text.
    struct
    {
        std::uint32_t kind = 0, pid = 0, threadId = 0;
        std::uint64_t id = 0;
        void operator=(Entry const& e)
        {
            kind = e.kind;
            pid = e.pid;
            threadId = e.threadId;
            id = e.id;
        }
    } lastSuccess;
};
