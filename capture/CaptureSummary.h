#pragma once

#include "CallStatistics.h"

#include <QString>

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace capture {

// What a capture holds at a glance: when, how many calls, which failed, what was slow, which
// instruments were busiest. Counted once over the whole file.
struct CaptureSummary
{
    std::int64_t rows = 0;
    std::uint64_t calls = 0; // returns, as the statistics count them
    std::uint64_t failedCalls = 0;
    bool any = false;
    std::int64_t firstSeconds = 0;
    double firstFraction = 0;
    std::int64_t lastSeconds = 0;
    double lastFraction = 0;
    std::map<std::int32_t, std::uint64_t> failuresByStatus;
    // Rows of the file (from 1), 0 when nothing failed.
    std::int64_t firstFailedRow = 0;
    std::int64_t lastFailedRow = 0;
    static constexpr std::size_t s_Top = 5;
    std::vector<CallStatistics::Figures> slowest; // operations by their longest call
    std::vector<CallStatistics::Figures> busiest; // addresses by their number of calls
    std::vector<std::pair<QString, QString>> facts;

    // Takes the figures for the top lists from statistics of every call.
    void rank(CallStatistics const& stats);
};

} // namespace capture
