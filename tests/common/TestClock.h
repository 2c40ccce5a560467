#pragma once

#include <QtGlobal>

#include <functional>

// Milliseconds since the epoch that only the test moves, for code that decides by the time: the
// test never waits for a timer nor races one.
struct TestClock
{
    qint64 now = Q_INT64_C(1700000000000);

    std::function<qint64()> function()
    {
        return [this] { return now; };
    }
    void advance(qint64 milliseconds) { now += milliseconds; }
};
