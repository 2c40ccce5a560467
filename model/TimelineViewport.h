#pragma once

#include "TimelineSource.h"

namespace timeline {

// The stretch of time a timeline shows across its width in pixels, and the moves of it: zoom
// around a point, pan, fit a range, keep a time at the right edge. x is measured in pixels from the
// left edge of the time area. Whatever is asked, the span stays between s_MinSpan and s_MaxSpan and
// the view within [0, s_LatestTime].
class TimelineViewport
{
public:
    static constexpr Nanoseconds s_MinSpan = 1000; // 1 µs across the view
    static constexpr Nanoseconds s_MaxSpan = Nanoseconds(60) * 60 * 24 * 30 * s_NanosecondsPerSecond; // 30 days

    void setWidth(int pixels);
    int width() const { return pixels; }
    Nanoseconds start() const { return first; }
    Nanoseconds span() const { return length; }
    TimeRange range() const { return {first, first + length}; }
    // Nanoseconds per pixel.
    double pixelSize() const { return static_cast<double>(length) / pixels; }

    double x(Nanoseconds time) const { return static_cast<double>(time - first) / pixelSize(); }
    Nanoseconds time(double x) const;

    // Shows range across the whole width (or, beyond the limits of the span, centred on it).
    void show(TimeRange range);
    // factor > 1 zooms in; the time under x stays under x.
    void zoom(double x, double factor);
    // The picture moves right by pixels (towards earlier times).
    void pan(double pixels);
    // The same span, ending at time.
    void endAt(Nanoseconds time);
    // Brings range into view: nothing moves when it is in view already; else it is centred, and the
    // view zoomed out as far as it must to hold it whole. True when the view moved.
    bool reveal(TimeRange range);

private:
    void place(Nanoseconds newFirst, Nanoseconds newLength);

    int pixels = 1;
    Nanoseconds first = 0;
    Nanoseconds length = 10 * s_NanosecondsPerSecond;
};

} // namespace timeline
