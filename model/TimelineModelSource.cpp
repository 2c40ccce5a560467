#include "TimelineModelSource.h"

#include "LiveTraceModel.h"
#include "ValueFormat.h"

#include <QColor>
#include <QCoreApplication>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <tuple>

namespace timeline {

namespace {

constexpr double s_LatestSeconds = static_cast<double>(s_LatestTime / s_NanosecondsPerSecond);

Nanoseconds systemNow()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// Seconds in [0, s_LatestSeconds] as nanoseconds; anything else is taken as 0.
Nanoseconds clampedSeconds(double seconds)
{
    if (!(seconds > 0))
        return 0;
    return static_cast<Nanoseconds>(std::min(seconds, s_LatestSeconds) * 1e9 + 0.5);
}

bool sameCall(const TimelineCall& a, const TimelineCall& b)
{
    return a.start == b.start && a.end == b.end && a.lane == b.lane && a.row == b.row && a.count == b.count
        && a.errors == b.errors && a.highlight == b.highlight && a.highlighted == b.highlighted && a.open == b.open;
}

} // namespace

Nanoseconds recordTime(const ZelTracer::FullEntry& record)
{
    const std::int64_t seconds = std::clamp<std::int64_t>(record.timestamp, 0, s_LatestTime / s_NanosecondsPerSecond);
    const double fraction
        = record.timestampFraction >= 0 && record.timestampFraction < 1 ? record.timestampFraction : 0;
    return std::min<Nanoseconds>(seconds * s_NanosecondsPerSecond + std::llround(fraction * 1e9), s_LatestTime);
}

Nanoseconds durationOf(double seconds)
{
    return clampedSeconds(seconds);
}

Nanoseconds startOf(const ZelTracer::FullEntry& record)
{
    const Nanoseconds time = recordTime(record);
    if (record.kind != LiveTraceModel::ReturnKind)
        return time;
    return std::max<Nanoseconds>(0, time - durationOf(record.duration));
}

bool TimelineModelSource::LaneKey::operator<(const LaneKey& other) const
{
    if (number != other.number)
        return number < other.number;
    if (!address || !other.address)
        return other.address != nullptr && address == nullptr;
    return std::strncmp(address, other.address, sizeof ZelTracer::FullEntry::address) < 0;
}

TimelineModelSource::TimelineModelSource(const LiveTraceModel& model)
    : model(model)
    , clock(&systemNow)
{ }

void TimelineModelSource::setGrouping(LaneGrouping newGrouping)
{
    if (newGrouping == laneGrouping)
        return;
    laneGrouping = newGrouping;
    rebuild();
}

bool TimelineModelSource::isLive() const
{
    return model.isRunning() && !model.isPaused();
}

// A call shown as two rows (other rows came between) has a call row and a return row; they pair by
// process, thread and id, as the row builder pairs adjacent ones, the call row first. The call rows
// wait in an open-addressed table of twice the rows, so that a probe always ends at a free slot.
void TimelineModelSource::pairHalves(int rows)
{
    returnOfCall.assign(static_cast<std::size_t>(rows), -1);
    std::size_t size = 16;
    while (size < 2 * static_cast<std::size_t>(rows))
        size *= 2;
    constexpr int free = -1;
    constexpr int taken = -2; // paired: probes go on past it
    pending.assign(size, free);
    const auto same = [](const ZelTracer::FullEntry& a, const ZelTracer::FullEntry& b) {
        return a.pid == b.pid && a.threadId == b.threadId && a.id == b.id;
    };
    for (int r = 0; r < rows; ++r) {
        const LiveTraceModel::Row* row = model.displayRow(r);
        if (!row || (row->displayKind != LiveTraceModel::CallKind && row->displayKind != LiveTraceModel::ReturnKind))
            continue;
        const ZelTracer::FullEntry& e = *row->entry;
        std::size_t slot = (e.id * 0x9E3779B97F4A7C15u ^ (std::uint64_t(e.pid) << 32 | e.threadId)) & (size - 1);
        if (row->displayKind == LiveTraceModel::CallKind) {
            while (pending[slot] != free)
                slot = (slot + 1) & (size - 1);
            pending[slot] = r;
            continue;
        }
        for (; pending[slot] != free; slot = (slot + 1) & (size - 1)) {
            if (pending[slot] != taken && same(*model.displayRow(pending[slot])->entry, e)) {
                returnOfCall[static_cast<std::size_t>(pending[slot])] = r;
                pending[slot] = taken;
                break;
            }
        }
    }
}

// A collapsed row keeps only the last call of its run. The first one is the first record of the
// same thread that the view shows after the row before: any other shown record of that thread would
// have made a row of its own in between.
Nanoseconds TimelineModelSource::runStart(const LiveTraceModel::Row& last, std::uint32_t fromSlot) const
{
    const auto& ring = model.getLocalRing();
    const std::uint32_t capacity = ring.numberOfElements();
    const bool onlyErrors = model.isOnlyErrors();
    for (std::uint32_t slot = fromSlot, n = 0; slot != last.current && n < capacity;
         slot = (slot + 1) % capacity, ++n) {
        const ZelTracer::FullEntry& e = ring(slot);
        if (e.pid == last.entry->pid && e.threadId == last.entry->threadId && !model.getFilters().isFiltered(e)
            && !(onlyErrors && e.status >= 0))
            return startOf(e);
    }
    return startOf(*last.entry);
}

TimelineModelSource::LaneKey TimelineModelSource::laneKey(const ZelTracer::FullEntry& e) const
{
    switch (laneGrouping) {
    case LaneGrouping::Thread:
        return {std::uint64_t(e.pid) << 32 | e.threadId, nullptr};
    case LaneGrouping::Session:
        return {std::uint64_t(e.pid) << 32 | e.session, nullptr};
    case LaneGrouping::Address:
        return {0, e.address};
    }
    return {};
}

QString TimelineModelSource::labelOf(const LaneKey& key) const
{
    const auto pid = static_cast<quint32>(key.number >> 32);
    const auto low = static_cast<quint32>(key.number);
    switch (laneGrouping) {
    case LaneGrouping::Thread:
        return QCoreApplication::translate("TimelineModelSource", "Pid %1, thread %2").arg(pid).arg(low);
    case LaneGrouping::Session:
        return QCoreApplication::translate("TimelineModelSource", "Pid %1, session %2").arg(pid).arg(low);
    case LaneGrouping::Address: {
        const QString address
            = ValueFormat::recordText(key.address, strnlen(key.address, sizeof ZelTracer::FullEntry::address));
        return address.isEmpty() ? QCoreApplication::translate("TimelineModelSource", "(no address)") : address;
    }
    }
    return QString();
}

// Lanes in the order of their keys, so that they stay in place while rows come and go. The lanes of
// the last rebuild are tried first: they rarely change.
void TimelineModelSource::assignLanes()
{
    const auto before = [](const Lane& lane, const LaneKey& key) { return lane.key() < key; };
    std::vector<int>& used = laneStart;
    used.assign(lanes.size(), 0);
    bool known = true;
    for (std::size_t i = 0; i < fresh.size() && known; ++i) {
        const auto it = std::lower_bound(lanes.begin(), lanes.end(), keys[i], before);
        known = it != lanes.end() && it->key() == keys[i];
        if (known) {
            fresh[i].lane = static_cast<int>(it - lanes.begin());
            ++used[static_cast<std::size_t>(fresh[i].lane)];
        }
    }
    if (known && std::find(used.begin(), used.end(), 0) == used.end())
        return;
    sortedKeys = keys;
    std::sort(sortedKeys.begin(), sortedKeys.end());
    sortedKeys.erase(std::unique(sortedKeys.begin(), sortedKeys.end()), sortedKeys.end());
    lanes.resize(sortedKeys.size());
    for (std::size_t i = 0; i < lanes.size(); ++i) {
        lanes[i].number = sortedKeys[i].number;
        lanes[i].byAddress = sortedKeys[i].address != nullptr;
        if (lanes[i].byAddress)
            std::memcpy(lanes[i].address.data(), sortedKeys[i].address, lanes[i].address.size());
    }
    for (std::size_t i = 0; i < fresh.size(); ++i)
        fresh[i].lane = static_cast<int>(std::lower_bound(lanes.begin(), lanes.end(), keys[i], before) - lanes.begin());
}

// Lane by lane, each in start order. Rows come in return order, which within a lane of one thread
// is start order already: a lane is sorted only where it is not.
void TimelineModelSource::orderByLane()
{
    laneStart.assign(lanes.size() + 1, 0);
    for (const TimelineCall& call : fresh)
        ++laneStart[static_cast<std::size_t>(call.lane) + 1];
    for (std::size_t lane = 1; lane < laneStart.size(); ++lane)
        laneStart[lane] += laneStart[lane - 1];
    ordered.resize(fresh.size());
    laneNext.assign(laneStart.begin(), laneStart.end() - 1);
    for (const TimelineCall& call : fresh)
        ordered[static_cast<std::size_t>(laneNext[static_cast<std::size_t>(call.lane)]++)] = call;
    const auto earlier = [](const TimelineCall& a, const TimelineCall& b) {
        return std::tie(a.start, a.row) < std::tie(b.start, b.row);
    };
    for (std::size_t lane = 0; lane + 1 < laneStart.size(); ++lane) {
        const auto first = ordered.begin() + laneStart[lane];
        const auto last = ordered.begin() + laneStart[lane + 1];
        if (!std::is_sorted(first, last, earlier))
            std::sort(first, last, earlier);
    }
}

bool TimelineModelSource::rebuild()
{
    const int rows = model.rowCount();
    pairHalves(rows);
    fresh.clear();
    keys.clear();
    const std::uint32_t capacity = model.getLocalRing().numberOfElements();
    std::uint32_t nextSlot = model.getLocalRing().begin;
    for (int r = 0; r < rows; ++r) {
        const LiveTraceModel::Row* row = model.displayRow(r);
        if (!row || capacity == 0)
            continue;
        const std::uint32_t fromSlot = nextSlot;
        nextSlot = (row->current + 1) % capacity;
        // The bar of a call shown apart from its return is the return's.
        if (returnOfCall[static_cast<std::size_t>(r)] >= 0)
            continue;
        const ZelTracer::FullEntry& e = *row->entry;
        TimelineCall call;
        call.row = r;
        call.end = recordTime(e);
        call.count = static_cast<std::uint32_t>(std::min<std::uint64_t>(row->repeatCount, UINT32_MAX - 1) + 1);
        switch (row->displayKind) {
        case LiveTraceModel::CallKind:
            call.start = call.end;
            call.open = true;
            break;
        case LiveTraceModel::ReturnKind:
        case LiveTraceModel::CompletedKind:
            call.start = row->repeatCount > 0 ? runStart(*row, fromSlot) : startOf(e);
            call.errors = e.status < 0 ? call.count : 0;
            break;
        default: // a record without duration and status: an instant
            call.start = call.end;
            break;
        }
        call.start = std::min(call.start, call.end);
        QColor colour;
        call.highlighted = model.getFilters().isHighlighted(e, &colour);
        call.highlight = call.highlighted ? colour.rgba() : 0;
        fresh.push_back(call);
        keys.push_back(laneKey(e));
    }
    assignLanes();
    orderByLane();

    QStringList freshLabels;
    for (const Lane& lane : lanes)
        freshLabels << labelOf(lane.key());
    const bool changed = ordered.size() != built.size() || freshLabels != labels
        || !std::equal(ordered.begin(), ordered.end(), built.begin(), sameCall);
    built.swap(ordered);
    labels.swap(freshLabels);

    callIndex.assign(static_cast<std::size_t>(rows), -1);
    firstStart = built.empty() ? 0 : built.front().start;
    lastEnd = 0;
    openCalls = 0;
    for (std::size_t i = 0; i < built.size(); ++i) {
        const TimelineCall& call = built[i];
        callIndex[static_cast<std::size_t>(call.row)] = static_cast<int>(i);
        firstStart = std::min(firstStart, call.start);
        lastEnd = std::max(lastEnd, call.end);
        openCalls += call.open ? 1 : 0;
    }
    for (int r = 0; r < rows; ++r) {
        const int back = returnOfCall[static_cast<std::size_t>(r)];
        if (back >= 0)
            callIndex[static_cast<std::size_t>(r)] = callIndex[static_cast<std::size_t>(back)];
    }
    if (isLive())
        lastNow = std::max(lastNow, clock());
    return changed;
}

Nanoseconds TimelineModelSource::openEnd() const
{
    if (isLive())
        lastNow = std::max(lastNow, std::min(clock(), s_LatestTime));
    // A capture never seen live ends its open calls with its last record.
    return std::max(lastNow, lastEnd);
}

TimelineCall TimelineModelSource::shown(const TimelineCall& call) const
{
    TimelineCall result = call;
    if (call.open)
        result.end = std::max(call.start, openEnd());
    return result;
}

TimeRange TimelineModelSource::extent() const
{
    if (built.empty())
        return {};
    return {firstStart, openCalls > 0 ? std::max(lastEnd, openEnd()) : lastEnd};
}

void TimelineModelSource::calls(TimeRange range, Nanoseconds, CallList& out) const
{
    const Nanoseconds now = openEnd();
    for (const TimelineCall& call : built) {
        const Nanoseconds end = call.open ? std::max(call.start, now) : call.end;
        if (call.start <= range.end && end >= range.begin) {
            out.push_back(call);
            out.back().end = end;
        }
    }
}

std::optional<TimelineCall> TimelineModelSource::callOfRow(int row) const
{
    if (row < 0 || static_cast<std::size_t>(row) >= callIndex.size() || callIndex[static_cast<std::size_t>(row)] < 0)
        return std::nullopt;
    return shown(built[static_cast<std::size_t>(callIndex[static_cast<std::size_t>(row)])]);
}

} // namespace timeline
