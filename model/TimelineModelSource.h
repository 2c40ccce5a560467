#pragma once

#include "RingBuffer.h"
#include "TimelineSource.h"
#include "TraceRecord.h"

#include <QStringList>

#include <array>

#include <functional>

class LiveTraceModel;

namespace timeline {

// A record's own time (its return time for a return record) and a duration, in nanoseconds. The
// fields come from other processes: a time before the epoch or after s_LatestTime, a fraction or a
// duration that is no number, negative or out of range is clamped, so that no conversion overflows.
Nanoseconds recordTime(const ZelTracer::FullEntry& record);
Nanoseconds durationOf(double seconds);
// When the call of a record started: a return record is stamped when the call returned.
Nanoseconds startOf(const ZelTracer::FullEntry& record);

// The calls a LiveTraceModel shows, live or read back from a capture: one bar per shown row, where a
// call and its return shown as two rows make one bar, a collapsed row one bar with its count, and
// rows the view hides none. Rebuilt after each display stage; the view asks between two rebuilds.
class TimelineModelSource : public TimelineSource
{
public:
    using Clock = std::function<Nanoseconds()>;

    explicit TimelineModelSource(const LiveTraceModel& model);

    // The clock that open calls count to; tests set one of their own.
    void setClock(Clock newClock)
    {
        clock = std::move(newClock);
        lastNow = 0;
    }
    // Takes the model's rows as they stand; false when the bars and lanes are the same as before.
    bool rebuild();

    void setGrouping(LaneGrouping newGrouping) override;
    LaneGrouping grouping() const override { return laneGrouping; }
    int laneCount() const override { return labels.size(); }
    QString laneLabel(int lane) const override { return labels.value(lane); }
    TimeRange extent() const override;
    void calls(TimeRange range, Nanoseconds detail, CallList& out) const override;
    std::optional<TimelineCall> callOfRow(int row) const override;
    bool isLive() const override;
    bool isGrowing() const override { return openCalls > 0 && isLive(); }

private:
    // What makes a lane, compared as a number and then as an address text. A key points into a
    // record and is good only while the rebuild that made it runs.
    struct LaneKey
    {
        std::uint64_t number = 0;
        const char* address = nullptr;
        bool operator<(const LaneKey& other) const;
        bool operator==(const LaneKey& other) const { return !(*this < other) && !(other < *this); }
    };
    // A lane keeps its own copy of the address: the records of the last rebuild may be gone.
    struct Lane
    {
        std::uint64_t number = 0;
        std::array<char, sizeof ZelTracer::FullEntry::address> address {};
        bool byAddress = false;
        LaneKey key() const { return {number, byAddress ? address.data() : nullptr}; }
    };
    void pairHalves(int rows);
    Nanoseconds runStart(const ZelTracer::RingBufferIterator<ZelTracer::FullEntry>& last, std::uint32_t fromSlot) const;
    LaneKey laneKey(const ZelTracer::FullEntry& e) const;
    QString labelOf(const LaneKey& key) const;
    void assignLanes();
    void orderByLane();
    Nanoseconds openEnd() const;
    TimelineCall shown(const TimelineCall& call) const;

    const LiveTraceModel& model;
    Clock clock;
    LaneGrouping laneGrouping = LaneGrouping::Thread;

    // Kept between rebuilds so that a rebuild allocates nothing once they have grown.
    CallList built;
    CallList fresh; // in row order
    CallList ordered; // by lane, then start
    std::vector<LaneKey> keys;
    std::vector<LaneKey> sortedKeys;
    std::vector<Lane> lanes;
    std::vector<int> laneStart; // where each lane begins in ordered
    std::vector<int> laneNext;
    std::vector<int> pending; // call rows waiting for their return, by hash of process, thread and id
    std::vector<int> returnOfCall; // per row: the row of its return, for a call shown apart
    std::vector<int> callIndex; // per row: its bar in built, -1 for none
    QStringList labels;

    Nanoseconds firstStart = 0;
    Nanoseconds lastEnd = 0;
    int openCalls = 0;
    // The latest now an open call was drawn to while live; it stays there while paused or stopped.
    mutable Nanoseconds lastNow = 0;
};

} // namespace timeline
