#pragma once

#include "RingBuffer.h"
#include "TraceRecord.h"

#include <cstdint>
#include <vector>

class LiveTraceModel;

// What a live model's views were last told about its rows: the sequence numbers of the rows' records,
// in row order. The model rebuilds its rows from scratch on every display stage; this tells the views
// the difference in row terms, once per stage (rows whose records left at the top, rows removed or
// added at the bottom), or resets them after a change of filters or options. Rows changed in place
// are repainted by the model's refresh that follows.
class RowAnnouncer
{
public:
    using Row = ZelTracer::RingBufferIterator<ZelTracer::FullEntry>;
    using Rows = ZelTracer::RingBufferLocalMem<Row>;

    explicit RowAnnouncer(LiveTraceModel& model);

    // Tells the views what became of their rows: a difference, or a reset when one was asked for.
    void announce(Rows const& rows);
    // The next announcement resets the views; their rows differ everywhere.
    void resetNext() { resetPending = true; }
    // The model numbers its records afresh: none of the rows announced can be matched any more.
    void invalidate() { rowsInvalidated = true; }
    void reserve(std::size_t rows) { announced.reserve(rows); }
    // A refresh asked for while rows are being announced waits until the views know the new row
    // count; true when it was put off.
    bool putOffRefresh();

    int rowCount() const { return static_cast<int>(announced.size()); }
    std::uint64_t sequence(int row) const { return announced[static_cast<std::size_t>(row)]; }
    std::uint64_t lastSequence() const { return announced.empty() ? 0 : announced.back(); }
    // Rows at the top that the views still count while their removal is being announced.
    int shift() const { return rowShift; }
    // The row that shows the record with this sequence number (or the first later one), -1 if none.
    int rowOfSequence(std::uint64_t sequence) const;

private:
    void announceChanges(Rows const& rows);
    void announceReset(Rows const& rows);

    LiveTraceModel& model;
    std::vector<std::uint64_t> announced;
    bool announcing = false;
    bool refreshPending = false;
    int rowShift = 0;
    bool resetPending = false;
    bool rowsInvalidated = false;
};
