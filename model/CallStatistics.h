#pragma once

#include "RingBuffer.h"
#include "TraceRecord.h"

#include <QByteArray>
#include <QHash>
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
    // For records that are counted once and never leave (a capture counted whole): no update() then.
    void count(const Entry& e);

    // Sorted by key.
    std::vector<Figures> figures(Grouping grouping) const;
    // Tab-separated, with a header line, operations then addresses.
    QStringList toText() const;

    // "viWrite MEAS:VOLT?" for a message sent to an instrument, the function name otherwise.
    static QString operationOf(const Entry& e);

    std::uint64_t callCount() const { return counted.size() + wholeCount; }

private:
    // Records leave the ring oldest first, so they leave every group oldest first too: a group's
    // durations are a queue, and the order statistics are taken when the figures are asked for.
    struct Group
    {
        std::uint64_t errors = 0;
        double sum = 0;
        std::deque<double> durations; // in arrival order
    };
    using Groups = std::unordered_map<QString, Group>;
    struct Counted
    {
        std::uint64_t sequence;
        // Elements of an unordered_map keep their address when it rehashes; iterators do not.
        Groups::value_type* operation;
        Groups::value_type* address;
        double duration;
        bool error;
    };

    void add(const Entry& e);
    // Joins the figures of its operation and address; false for a call record, which counts nothing.
    bool join(const Entry& e, Groups::value_type*& operation, Groups::value_type*& address, double& duration,
              bool& error);
    void remove(Groups& groups, Groups::value_type* group, double duration, bool error);
    QString cachedOperationOf(const Entry& e);
    static std::vector<Figures> figuresOf(const Groups& groups);

    // Commands repeat: the operation of a text is worked out once.
    QHash<QByteArray, QString> operationCache;
    Groups operations;
    Groups addresses;
    std::deque<Counted> counted; // oldest first
    std::uint64_t wholeCount = 0; // calls counted by count()
    // The newest record taken, to tell new records from old and to notice a cleared ring.
    std::uint64_t lastSequence = 0;
    std::uint64_t lastId = 0;
    std::uint32_t lastPid = 0;
    bool hasLast = false;
};
