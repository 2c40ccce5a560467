#pragma once

#include "RingBuffer.h"
#include "TraceRecord.h"

#include <QString>
#include <QStringList>

#include <cstdint>
#include <deque>
#include <unordered_map>
#include <vector>

// Per operation and per resource address: how many calls, how many failed, and how long they took,
// over the records the live model holds in its local ring. Every return record counts as one call.
// The ring numbers its records in the reserved word, so an update looks only at what arrived since
// the last one and at what left the ring: its cost follows the traffic, not the ring's size.
class CallStatistics
{
public:
    using Entry = ZelTracer::FullEntry;
    using Ring = ZelTracer::RingBuffer<Entry>;

    struct Figures
    {
        QString key;
        std::uint64_t calls = 0;
        std::uint64_t errors = 0;
        double min = 0;
        double mean = 0;
        double p95 = 0; // nearest rank
        double max = 0;
    };
    enum Grouping
    {
        ByOperation,
        ByAddress
    };

    // Brings the figures in line with the ring: records that left it leave the figures, new ones join.
    void update(const Ring& ring);
    void clear();

    // Sorted by key.
    std::vector<Figures> figures(Grouping grouping) const;
    // Tab-separated, with a header line, operations then addresses.
    QStringList toText() const;

    // "viWrite MEAS:VOLT?" for a message sent to an instrument, the function name otherwise.
    static QString operationOf(const Entry& e);

    std::uint64_t callCount() const { return counted.size(); }

private:
    struct Group
    {
        std::uint64_t errors = 0;
        double sum = 0;
        std::vector<double> sorted; // durations, ascending
    };
    using Groups = std::unordered_map<QString, Group>;
    struct Counted
    {
        std::uint64_t sequence;
        Groups::iterator operation;
        Groups::iterator address;
        double duration;
        bool error;
    };

    void add(const Entry& e);
    void remove(Groups& groups, Groups::iterator group, double duration, bool error);
    static std::vector<Figures> figuresOf(const Groups& groups);

    Groups operations;
    Groups addresses;
    std::deque<Counted> counted; // oldest first
    // The newest record taken, to tell new records from old and to notice a cleared ring.
    std::uint64_t lastSequence = 0;
    std::uint64_t lastId = 0;
    std::uint32_t lastPid = 0;
    bool hasLast = false;
};
