#include "RowStream.h"

RowStream::RowStream(ModelFilters filters, EmitRow emitRow)
    : filters(std::move(filters))
    , emitRow(std::move(emitRow))
    , builder(firstIdByPid, false, false)
{ }

RowStream::RowStream(ModelFilters filters, std::function<void(Row const&)> emitRow)
    : RowStream(std::move(filters), [plain = std::move(emitRow)](Row const& row, Entry const*) { plain(row); })
{ }

void RowStream::Pending::popLast()
{
    stream.poppedEntry = stream.pendingEntry;
    stream.hasPopped = stream.hasPending;
    stream.hasPending = false;
}

void RowStream::Pending::push(Row const& row)
{
    if (stream.hasPending)
        stream.emitRow(stream.pendingRow, stream.pendingHasCall ? &stream.pendingCall : nullptr);
    Entry const& e = *row.entry;
    // Without collapsing, the builder takes a row back only for the return that completes it.
    stream.pendingHasCall = stream.hasPopped && row.displayKind == LiveTraceModel::CompletedKind
        && stream.poppedEntry.pid == e.pid && stream.poppedEntry.id == e.id
        && stream.poppedEntry.threadId == e.threadId;
    if (stream.pendingHasCall)
        stream.pendingCall = stream.poppedEntry;
    stream.hasPopped = false;
    stream.pendingEntry = e;
    stream.pendingRow = row;
    stream.pendingRow.entry = &stream.pendingEntry;
    stream.hasPending = true;
}

void RowStream::add(Entry const& record)
{
    Row row {};
    row.entry = const_cast<Entry*>(&record);
    Pending rows {*this};
    // A hidden return still takes its call row with it; nothing is pushed then.
    if (!builder.add(rows, row, filters.isFiltered(record) ? RowVisibility::HiddenByFilters : RowVisibility::Shown))
        hasPopped = false;
}

void RowStream::take(LiveTraceModel const& model)
{
    const auto& ring = model.getLocalRing();
    const std::uint32_t count = ring.size();
    if (count == 0)
        return;
    const std::uint32_t capacity = ring.numberOfElements();
    auto at = [&](std::uint32_t n) -> Entry const& { return ring((ring.begin + n) % capacity); };
    // The local copies are numbered from 1 in the order taken (their reserved word); a clear of the
    // model starts the numbers again.
    const std::uint64_t newest = at(count - 1).reserved;
    if (newest + 1 < nextSequence)
        nextSequence = 1;
    if (newest < nextSequence)
        return;
    const std::uint64_t fresh = newest - nextSequence + 1;
    if (fresh > count)
        missedRecords += fresh - count;
    for (std::uint32_t n = fresh > count ? 0 : count - static_cast<std::uint32_t>(fresh); n < count; ++n)
        add(at(n));
    nextSequence = newest + 1;
}

void RowStream::finish()
{
    if (hasPending)
        emitRow(pendingRow, pendingHasCall ? &pendingCall : nullptr);
    hasPending = false;
}
