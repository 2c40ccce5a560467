#pragma once

#include "TimelineViewport.h"

#include <QString>

#include <vector>

namespace timeline {

// The ticks of a time axis at a viewport, a round step apart (1, 2 or 5 times a power of ten of
// nanoseconds, and the steps of a clock beyond a second), labelled in local time:
//   a step of a second or more:  "14:03:12"
//   a step of a millisecond or more:  "14:03:12.250"
//   finer steps: a whole millisecond as "14:03:12.250", the ticks in between as the time since it,
//   "+250 µs", "+12.5 µs"
struct TimelineTick
{
    Nanoseconds time = 0;
    double x = 0;
    QString label;
};

namespace TimelineAxis {

// The smallest round step that keeps ticks at least minSpacing pixels apart.
Nanoseconds step(const TimelineViewport& viewport, double minSpacing);
std::vector<TimelineTick> ticks(const TimelineViewport& viewport, double minSpacing);
QString label(Nanoseconds time, Nanoseconds step);
// A time of day to the millisecond, as the table shows it.
QString timeOfDay(Nanoseconds time);

} // namespace TimelineAxis

} // namespace timeline
