#include "RowStream.h"

RowStream::RowStream(ModelFilters filters, std::function<void(Row const&)> emitRow)
    : filters(std::move(filters))
    , emitRow(std::move(emitRow))
    , builder(firstIdByPid, false, false)
{ }

void RowStream::Pending::push(Row const& row)
{
    if (stream.hasPending)
        stream.emitRow(stream.pendingRow);
    stream.pendingEntry = *row.entry;
    stream.pendingRow = row;
    stream.pendingRow.entry = &stream.pendingEntry;
    stream.hasPending = true;
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
    Pending rows {*this};
    for (std::uint32_t n = fresh > count ? 0 : count - static_cast<std::uint32_t>(fresh); n < count; ++n) {
        Entry const& e = at(n);
        Row row {};
        row.entry = const_cast<Entry*>(&e);
        builder.add(rows, row, filters.isFiltered(e) ? RowVisibility::HiddenByFilters : RowVisibility::Shown);
    }
    nextSequence = newest + 1;
}

void RowStream::finish()
{
    if (hasPending)
        emitRow(pendingRow);
    hasPending = false;
}
