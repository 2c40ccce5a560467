#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <unordered_map>
#include <utility>
#include <vector>

// Counts, per traced process, the records it wrote that never reached the tool: dropped by the
// producer for want of room, or lost between a snapshot and the reset of the ring. libzeltrace
// numbers every record a process means to deliver and stores the number with its check in
// `reserved` (ZelTracer::SequenceMark); the gaps in each process's numbers are the loss. Records
// whose word fails the check come from other producers and are ignored. A figure shown must have been
// measured: a jump further than the process could have written since its last record (a word that
// passed the check by chance, a new process under a reused pid) starts its count again instead of
// counting a loss.
//
// Fed in arrival order with the `reserved` word as it came from the segment (before the model puts
// its own numbers there). Memory stays bounded whatever pids arrive: past `maxProcesses` the process
// seen least recently is forgotten (its loss stays in the total).
class LossCounter
{
public:
    static constexpr std::size_t s_DefaultMaxProcesses = 1024;
    // A record this much behind the newest of its process arrived late (two writers were inside the
    // lock at once); further back, the pid belongs to a new process and its numbering starts again.
    static constexpr std::uint64_t s_ReorderWindow = 64;
    // More than a producer can write: a record costs it well over 50 ns even when nobody waits.
    static constexpr std::uint64_t s_MaxRecordsPerMillisecond = 20000;

    explicit LossCounter(std::size_t maxProcesses = s_DefaultMaxProcesses);

    void add(std::uint32_t pid, std::uint64_t reserved);
    void clear();

    std::uint64_t total() const { return lostTotal; }
    std::uint64_t lostFor(std::uint32_t pid) const;
    std::size_t trackedProcesses() const { return processes.size(); }
    // The processes with a loss, by pid.
    std::vector<std::pair<std::uint32_t, std::uint64_t>> lossByProcess() const;

private:
    struct Process
    {
        std::uint64_t last;
        std::uint64_t lost;
        std::int64_t lastSeen; // steady-clock milliseconds of its newest record
        std::list<std::uint32_t>::iterator age;
    };

    std::unordered_map<std::uint32_t, Process> processes;
    std::list<std::uint32_t> recency; // most recently seen first
    std::size_t maxProcesses;
    std::uint64_t lostTotal = 0;
};
