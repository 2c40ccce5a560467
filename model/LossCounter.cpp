#include "LossCounter.h"

#include "TraceProducer.h"

#include <algorithm>

using ZelTracer::TraceProducer;

LossCounter::LossCounter(std::size_t maxProcesses)
    : maxProcesses(std::max<std::size_t>(maxProcesses, 1))
{ }

void LossCounter::add(std::uint32_t pid, std::uint64_t reserved)
{
    if ((reserved & TraceProducer::s_SequenceTagMask) != TraceProducer::s_SequenceTag)
        return;
    const std::uint64_t number = reserved & TraceProducer::s_SequenceMask;
    auto it = processes.find(pid);
    if (it == processes.end()) {
        if (processes.size() >= maxProcesses) {
            processes.erase(recency.back());
            recency.pop_back();
        }
        recency.push_front(pid);
        // The first record seen is the start: what the process wrote before the tool listened is no loss.
        processes.emplace(pid, Process {number, 0, recency.begin()});
        return;
    }
    Process& p = it->second;
    recency.splice(recency.begin(), recency, p.age);
    if (number > p.last) {
        const std::uint64_t gap = number - p.last - 1;
        p.lost += gap;
        lostTotal += gap;
        p.last = number;
    } else if (number + s_ReorderWindow < p.last) {
        p.last = number;
    } else if (number < p.last && p.lost > 0) {
        // Counted as lost when a later number overtook it; it arrived after all.
        --p.lost;
        --lostTotal;
    }
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
