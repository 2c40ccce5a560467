#include "TimelineLayout.h"

#include <algorithm>
#include <cmath>
#include <tuple>

namespace timeline {

namespace {

bool placedBefore(const TimelineCall* a, const TimelineCall* b)
{
    return std::tie(a->lane, a->start) < std::tie(b->lane, b->start);
}

// Takes call into the run of thin calls that bar stands for.
void merge(TimelineBar& bar, const TimelineCall& call, double x1)
{
    TimelineCall& run = bar.call;
    // The first failed call is the one worth a click.
    if (run.errors == 0 && call.errors > 0)
        run.row = call.row;
    bar.x1 = std::max(bar.x1, x1);
    run.count = run.count + call.count < run.count ? UINT32_MAX : run.count + call.count;
    run.errors = run.errors + call.errors < run.errors ? UINT32_MAX : run.errors + call.errors;
    // The first highlight wins, as the first matching rule does in the table.
    if (!run.highlighted && call.highlighted) {
        run.highlighted = true;
        run.highlight = call.highlight;
    }
    run.open = run.open || call.open;
    run.merged = true;
    run.end = std::max(run.end, call.end);
}

} // namespace

void TimelineLayout::place(const TimelineViewport& viewport, const CallList& calls)
{
    placed.clear();
    order.clear();
    for (const TimelineCall& call : calls)
        order.push_back(&call);
    // Sources give each lane in start order; one that does not is put in order here.
    if (!std::is_sorted(order.begin(), order.end(), placedBefore))
        std::stable_sort(order.begin(), order.end(), placedBefore);

    const double limit = viewport.width() + 2 * s_MinBarWidth;
    bool pending = false; // the last bar placed is a run of thin calls that may grow
    for (const TimelineCall* call : order) {
        const double left = viewport.x(call->start);
        const double right = viewport.x(call->end);
        if (left > limit || right < -2 * s_MinBarWidth)
            continue;
        const double x0 = std::max(left, -2 * s_MinBarWidth);
        const double x1 = std::clamp(right, x0, limit);
        const bool thin = x1 - x0 < s_MinBarWidth;
        if (pending && thin && placed.back().call.lane == call->lane && x0 - placed.back().x1 < s_MinBarWidth) {
            merge(placed.back(), *call, x1);
            continue;
        }
        placed.push_back({x0, x1, *call});
        pending = thin;
    }
}

int TimelineLayout::laneAt(double y) const
{
    const double inLanes = y - metrics.axisHeight + scroll;
    if (y < metrics.axisHeight || inLanes < 0 || metrics.laneHeight <= 0)
        return -1;
    return static_cast<int>(inLanes / metrics.laneHeight);
}

QRectF TimelineLayout::rectOf(int lane, double x0, double x1) const
{
    const double width = std::max(x1 - x0, s_MinBarWidth);
    return QRectF(metrics.labelWidth + x0, laneTop(lane) + 3, width, metrics.laneHeight - 6);
}

int TimelineLayout::barAt(QPointF point) const
{
    const int lane = laneAt(point.y());
    if (lane < 0 || point.x() < metrics.labelWidth)
        return -1;
    const double x = point.x() - metrics.labelWidth;
    // Bars of a lane lie in start order: those that start beyond the point and its slack are skipped.
    const auto first = std::lower_bound(placed.begin(), placed.end(), lane,
                                        [](const TimelineBar& bar, int l) { return bar.call.lane < l; });
    int best = -1;
    double bestDistance = s_HitSlack;
    for (auto it = first; it != placed.end() && it->call.lane == lane && it->x0 <= x + s_HitSlack; ++it) {
        const double right = std::max(it->x1, it->x0 + s_MinBarWidth);
        const double distance = x < it->x0 ? it->x0 - x : x > right ? x - right : 0;
        // The later of two bars under the point is painted over the earlier: it is the one hit.
        if (distance <= bestDistance) {
            bestDistance = distance;
            best = static_cast<int>(it - placed.begin());
        }
    }
    return best;
}

} // namespace timeline
