#include "TimelineAxis.h"

#include "ValueFormat.h"

#include <algorithm>
#include <cmath>

namespace timeline::TimelineAxis {

namespace {

constexpr Nanoseconds s_Millisecond = 1000000;
constexpr Nanoseconds s_Second = s_NanosecondsPerSecond;

// Beyond a second the steps of a clock: seconds, minutes, hours, days.
constexpr Nanoseconds s_ClockSteps[]
    = {s_Second,          2 * s_Second,      5 * s_Second,      10 * s_Second,      15 * s_Second,     30 * s_Second,
       60 * s_Second,     120 * s_Second,    300 * s_Second,    600 * s_Second,     900 * s_Second,    1800 * s_Second,
       3600 * s_Second,   7200 * s_Second,   10800 * s_Second,  21600 * s_Second,   43200 * s_Second,  86400 * s_Second,
       172800 * s_Second, 432000 * s_Second, 864000 * s_Second, 1728000 * s_Second, 2592000 * s_Second};

} // namespace

Nanoseconds step(const TimelineViewport& viewport, double minSpacing)
{
    const double wanted = std::max(1.0, std::max(1.0, minSpacing) * viewport.pixelSize());
    for (Nanoseconds decade = 1; decade < s_Second; decade *= 10) {
        for (Nanoseconds multiple : {1, 2, 5}) {
            if (static_cast<double>(decade * multiple) >= wanted)
                return decade * multiple;
        }
    }
    for (Nanoseconds clockStep : s_ClockSteps) {
        if (static_cast<double>(clockStep) >= wanted)
            return clockStep;
    }
    return s_ClockSteps[std::size(s_ClockSteps) - 1];
}

QString timeOfDay(Nanoseconds time)
{
    return ValueFormat::timestamp2string(static_cast<long>(time / s_Second),
                                         static_cast<double>(time % s_Second / s_Millisecond) / 1000.0);
}

QString label(Nanoseconds time, Nanoseconds tickStep)
{
    if (tickStep >= s_Second)
        return timeOfDay(time).chopped(4);
    if (tickStep >= s_Millisecond || time % s_Millisecond == 0)
        return timeOfDay(time);
    // Decimals as the step needs them: none for whole microseconds, three for single nanoseconds.
    const int decimals = tickStep >= 1000 ? 0 : tickStep >= 100 ? 1 : tickStep >= 10 ? 2 : 3;
    return QString::fromUtf8("+%1 \xC2\xB5s").arg(static_cast<double>(time % s_Millisecond) / 1000.0, 0, 'f', decimals);
}

std::vector<TimelineTick> ticks(const TimelineViewport& viewport, double minSpacing)
{
    const Nanoseconds tickStep = step(viewport, minSpacing);
    std::vector<TimelineTick> result;
    const TimeRange range = viewport.range();
    for (Nanoseconds t = (range.begin + tickStep - 1) / tickStep * tickStep; t <= range.end; t += tickStep)
        result.push_back({t, viewport.x(t), label(t, tickStep)});
    return result;
}

} // namespace timeline::TimelineAxis
