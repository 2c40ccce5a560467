#pragma once

#include "LiveTraceModel.h"
#include "ModelFilters.h"
#include "RowBuilder.h"

#include <QHash>

#include <cstdint>
#include <functional>

// Every record a live model takes, made into rows as the view would make them (a call paired with the
// return right behind it, records the view filters hide left out, no collapsing: each call a row of
// its own), each handed on once it is final, i.e. once the record after it has come. For a recorder:
// it reads what each internal stage took straight from the local ring, so it keeps up with all the
// segment delivers, while the display rows are rebuilt only every fourth tick and hold only what fits
// in a view. A row already handed on cannot change: a return whose call row went out before a hidden
// record came between them stays a row of its own.
class RowStream
{
public:
    using Entry = LiveTraceModel::Entry;
    using Row = LiveTraceModel::Row;

    // A completed row is handed on with the call record it took in (null for the other rows, and for
    // a return that came first and so stands completed on its own).
    using EmitRow = std::function<void(Row const& row, Entry const* call)>;
    RowStream(ModelFilters filters, EmitRow emitRow);
    RowStream(ModelFilters filters, std::function<void(Row const&)> emitRow);

    // Takes the records the model took since the last call; run it after every internal stage.
    void take(LiveTraceModel const& model);
    // One record in arrival order, from wherever records come (a file being converted).
    void add(Entry const& record);
    // Hands on the last row: nothing can change it any more.
    void finish();
    // Records the model took but had overwritten in its local ring before take() saw them.
    std::uint64_t missed() const { return missedRecords; }

private:
    // The rows the builder works on: only the newest, not yet final, with its own copy of its record.
    struct Pending
    {
        RowStream& stream;
        bool empty() const { return !stream.hasPending; }
        Row& last() { return stream.pendingRow; }
        void popLast();
        void push(Row const& row);
    };

    ModelFilters filters;
    EmitRow emitRow;
    QHash<std::uint32_t, std::uint64_t> firstIdByPid;
    RowBuilder builder;
    std::uint64_t nextSequence = 1;
    std::uint64_t missedRecords = 0;
    Entry pendingEntry {};
    Row pendingRow {};
    bool hasPending = false;
    // The last row taken back by the builder: a call that its return completes.
    Entry poppedEntry {};
    bool hasPopped = false;
    Entry pendingCall {};
    bool pendingHasCall = false;
};
