#pragma once

#include <QRgb>
#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

// What the timeline draws, from wherever the calls are held: the live model's rows, a capture read
// into memory, or a capture file queried a window at a time. A source hands out lanes and calls in
// nanoseconds; where they land on the screen is the layout's business.
namespace timeline {

// Nanoseconds since the epoch, or a length of time in nanoseconds.
using Nanoseconds = std::int64_t;

inline constexpr Nanoseconds s_NanosecondsPerSecond = 1000000000;
// The latest time a timeline shows (in 2096): times from outside are clamped to it, so that no sum of
// two times or lengths overflows.
inline constexpr Nanoseconds s_LatestTime = Nanoseconds(4000000000) * s_NanosecondsPerSecond;

struct TimeRange
{
    Nanoseconds begin = 0;
    Nanoseconds end = 0;

    Nanoseconds length() const { return end - begin; }
    bool isEmpty() const { return end <= begin; }
    bool overlaps(TimeRange other) const { return begin <= other.end && other.begin <= end; }
};

// What one lane stands for.
enum class LaneGrouping
{
    Thread, // a process's thread
    Session, // a process's VISA session
    Address, // an instrument's resource address, across processes
};

// One bar: a call from its start to its return, or several calls a source merged because they are
// too short to be told apart at the detail asked for.
struct TimelineCall
{
    Nanoseconds start = 0;
    // For a call that has not returned, the time the source counts as now.
    Nanoseconds end = 0;
    int lane = 0;
    // The table row that a click makes current; a call shown as two rows (call and return) gives the
    // return's row. -1 when the call has no row.
    int row = -1;
    // Calls it stands for: a collapsed row's repeats, or what a source merged.
    std::uint32_t count = 1;
    // How many of them failed (negative status).
    std::uint32_t errors = 0;
    // The view filters' highlight colour, when highlighted is set.
    QRgb highlight = 0;
    bool highlighted = false;
    // Not returned yet: drawn to now and marked.
    bool open = false;
    // Several calls the source merged; row is the first failed one's, else the first one's.
    bool merged = false;
};

// Calls of one lane come in start order, lanes in ascending order.
using CallList = std::vector<TimelineCall>;

// The narrow face a timeline view needs. A source backed by a file or a database answers calls()
// with a query that merges, per lane, the calls shorter than `detail` (GROUP BY lane and start /
// detail), so that a frame costs what the pixels cost, not what the file holds.
class TimelineSource
{
public:
    virtual ~TimelineSource() = default;

    virtual void setGrouping(LaneGrouping grouping) = 0;
    virtual LaneGrouping grouping() const = 0;
    virtual int laneCount() const = 0;
    virtual QString laneLabel(int lane) const = 0;
    // From the earliest start to the latest end (an open call counting to now); empty without calls.
    virtual TimeRange extent() const = 0;
    // Appends to out the calls that overlap range. Calls shorter than detail may come merged.
    virtual void calls(TimeRange range, Nanoseconds detail, CallList& out) const = 0;
    // The call that table row row shows, unmerged.
    virtual std::optional<TimelineCall> callOfRow(int row) const = 0;
    // Calls still arrive: the view may follow the newest.
    virtual bool isLive() const = 0;
    // Open calls grow with the clock: the view repaints now and then although nothing arrives.
    virtual bool isGrowing() const = 0;
};

} // namespace timeline
