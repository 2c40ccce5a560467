#pragma once

#include "TimelineSource.h"
#include "TimelineViewport.h"

#include <QPointF>
#include <QRectF>

#include <vector>

namespace timeline {

// A call or a run of calls as it lands on the screen: the call (for a run, merged, its count the
// calls', its row the first failed call's, else the first one's) and where it lies.
struct TimelineBar
{
    // Pixels from the left edge of the time area, cut to a little beyond the view. A bar narrower
    // than s_MinBarWidth is drawn that wide.
    double x0 = 0;
    double x1 = 0;
    TimelineCall call;
};

// The geometry of a timeline as numbers: where the lanes lie, which bars the calls make at a
// viewport (merging, per lane, runs of calls narrower than a pixel, so that what is painted is bounded
// by the pixels, not by the calls), and what lies under a point. The widget paints what this computes.
// Widget coordinates: the lane labels take the left labelWidth pixels, the axis the top axisHeight.
class TimelineLayout
{
public:
    static constexpr double s_MinBarWidth = 1.0;
    // How far beside a thin bar a click still hits it.
    static constexpr double s_HitSlack = 2.0;

    struct Metrics
    {
        int labelWidth = 160;
        int axisHeight = 22;
        int laneHeight = 22;
    };

    void setMetrics(const Metrics& newMetrics) { metrics = newMetrics; }
    const Metrics& sizes() const { return metrics; }
    // Pixels of the lanes scrolled away above the top lane.
    void setScroll(int pixels) { scroll = pixels; }
    int scrollOffset() const { return scroll; }

    // Lays out calls (each lane in start order, as sources give them) at viewport.
    void place(const TimelineViewport& viewport, const CallList& calls);
    const std::vector<TimelineBar>& bars() const { return placed; }

    int laneTop(int lane) const { return metrics.axisHeight + lane * metrics.laneHeight - scroll; }
    // The lane at widget height y, -1 over the axis.
    int laneAt(double y) const;
    // What a bar covers in widget coordinates.
    QRectF rectOf(const TimelineBar& bar) const { return rectOf(bar.call.lane, bar.x0, bar.x1); }
    QRectF rectOf(int lane, double x0, double x1) const;
    // The bar under point (widget coordinates), the one nearest within s_HitSlack of a thin one; -1 none.
    int barAt(QPointF point) const;

private:
    Metrics metrics;
    int scroll = 0;
    std::vector<TimelineBar> placed;
    std::vector<const TimelineCall*> order;
};

} // namespace timeline
