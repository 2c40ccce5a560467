#include "LossCounter.h"

#include "SequenceMark.h"

#include <algorithm>
#include <chrono>

using namespace ZelTracer;

LossCounter::LossCounter(std::size_t maxProcesses)
    : maxProcesses(std::max<std::size_t>(maxProcesses, 1))
{ }

namespace {

std::int64_t steadyMilliseconds()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

} // namespace

void LossCounter::add(std::uint32_t pid, std::uint64_t reserved)
{
    const std::optional<std::uint64_t> marked = SequenceMark::number(pid, reserved);
    if (!marked)
        return;
    const std::uint64_t number = *marked;
    const std::int64_t now = steadyMilliseconds();
    auto it = processes.find(pid);
    if (it == processes.end()) {
        if (processes.size() >= maxProcesses) {
            processes.erase(recency.back());
            recency.pop_back();
        }
        recency.push_front(pid);
        // The first record seen is the start: what the process wrote before the tool listened is no loss.
        processes.emplace(pid, Process {number, 0, now, recency.begin()});
        return;
    }
    Process& p = it->second;
    recency.splice(recency.begin(), recency, p.age);
    // Numbers wrap after 2^40: distances are taken modulo that.
    const std::uint64_t ahead = (number - p.last) & SequenceMark::s_NumberMask;
    const std::uint64_t behind = (p.last - number) & SequenceMark::s_NumberMask;
    if (ahead == 0)
        return; // the same record again
    if (behind <= s_ReorderWindow) {
        // Counted as lost when a later number overtook it; it arrived after all.
        if (p.lost > 0) {
            --p.lost;
            --lostTotal;
        }
        return;
    }
    const auto elapsed = static_cast<std::uint64_t>(std::max<std::int64_t>(0, now - p.lastSeen));
    if (ahead - 1 <= (elapsed + 1000) * s_MaxRecordsPerMillisecond) {
        p.lost += ahead - 1;
        lostTotal += ahead - 1;
    }
    p.last = number;
    p.lastSeen = now;
}

void LossCounter::clear()
{
    processes.clear();
    recency.clear();
    lostTotal = 0;
}

std::vector<std::pair<std::uint32_t, std::uint64_t>> LossCounter::lossByProcess() const
{
    std::vector<std::pair<std::uint32_t, std::uint64_t>> losses;
    for (const auto& [pid, process] : processes) {
        if (process.lost > 0)
            losses.emplace_back(pid, process.lost);
    }
    std::sort(losses.begin(), losses.end());
    return losses;
}

std::uint64_t LossCounter::lostFor(std::uint32_t pid) const
{
    const auto it = processes.find(pid);
    return it == processes.end() ? 0 : it->second.lost;
}
