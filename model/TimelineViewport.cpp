#include "TimelineViewport.h"

#include <algorithm>
#include <cmath>

namespace timeline {

namespace {

// A length of time from a double, which may be anything a computation made of it. Times themselves
// stay integers: a double holds a time since the epoch only to a quarter of a microsecond.
Nanoseconds offset(double value)
{
    if (std::isnan(value))
        return 0;
    const auto limit = static_cast<double>(s_LatestTime);
    return std::llround(std::clamp(value, -limit, limit));
}

} // namespace

void TimelineViewport::setWidth(int newPixels)
{
    pixels = std::max(1, newPixels);
}

Nanoseconds TimelineViewport::time(double atX) const
{
    return std::clamp<Nanoseconds>(first + offset(atX * pixelSize()), 0, s_LatestTime);
}

void TimelineViewport::place(Nanoseconds newFirst, Nanoseconds newLength)
{
    length = std::clamp(newLength, s_MinSpan, s_MaxSpan);
    first = std::clamp<Nanoseconds>(newFirst, 0, s_LatestTime - length);
}

void TimelineViewport::show(TimeRange range)
{
    const Nanoseconds begin = std::clamp<Nanoseconds>(range.begin, 0, s_LatestTime);
    const Nanoseconds end = std::clamp<Nanoseconds>(range.end, begin, s_LatestTime);
    const Nanoseconds wanted = std::clamp(end - begin, s_MinSpan, s_MaxSpan);
    // A range shorter than the shortest span stays centred; of one longer than the longest, the end shows.
    if (end - begin > s_MaxSpan)
        place(end - wanted, wanted);
    else
        place(begin + (end - begin) / 2 - wanted / 2, wanted);
}

void TimelineViewport::zoom(double atX, double factor)
{
    if (!(factor > 0) || !std::isfinite(factor))
        return;
    const Nanoseconds anchor = time(atX);
    const double newLength = std::clamp(static_cast<double>(length) / factor, static_cast<double>(s_MinSpan),
                                        static_cast<double>(s_MaxSpan));
    place(anchor - offset(atX * newLength / pixels), std::llround(newLength));
}

void TimelineViewport::pan(double byPixels)
{
    if (!std::isfinite(byPixels))
        return;
    place(first - offset(byPixels * pixelSize()), length);
}

void TimelineViewport::endAt(Nanoseconds time)
{
    place(std::clamp<Nanoseconds>(time, 0, s_LatestTime) - length, length);
}

bool TimelineViewport::reveal(TimeRange range)
{
    const Nanoseconds begin = std::clamp<Nanoseconds>(range.begin, 0, s_LatestTime);
    const Nanoseconds end = std::clamp<Nanoseconds>(range.end, begin, s_LatestTime);
    if (begin >= first && end <= first + length)
        return false;
    // Whole, with an eighth of its length to spare on each side.
    const Nanoseconds needed = (end - begin) + (end - begin) / 4;
    const Nanoseconds newLength = std::max(length, needed);
    place(begin + (end - begin) / 2 - newLength / 2, newLength);
    return true;
}

} // namespace timeline
