#include "CallStatistics.h"

#include "RecordDetails.h"
#include "ValueFormat.h"

#include <algorithm>
#include <cmath>

namespace {

// Keys come from producers' texts; a hostile text must not make a huge key.
constexpr int s_MaxKeyLength = 80;
constexpr int s_MaxCachedOperations = 4096;

} // namespace

QString CallStatistics::operationOf(const Entry& e)
{
    const QByteArray command = RecordDetails::commandBytes(e);
    const QByteArray function = RecordDetails::functionName(command);
    QByteArray key = function;
    if (RecordDetails::isWriteFunction(function)) {
        for (const QByteArray& argument : RecordDetails::arguments(command)) {
            const QByteArray content = RecordDetails::quotedContent(argument);
            if (content.isNull())
                continue;
            const QList<QByteArray> scpi = RecordDetails::scpiCommands(RecordDetails::unescapeBytes(content));
            if (!scpi.isEmpty())
                key += ' ' + RecordDetails::scpiHeader(scpi.first());
            break;
        }
    }
    return RecordDetails::escapeBytes(key.left(s_MaxKeyLength), false);
}

QString CallStatistics::cachedOperationOf(const Entry& e)
{
    const QByteArray command = RecordDetails::commandBytes(e);
    const auto cached = operationCache.constFind(command);
    if (cached != operationCache.constEnd())
        return *cached;
    // Bounded whatever the producers send.
    if (operationCache.size() >= s_MaxCachedOperations)
        operationCache.clear();
    return *operationCache.insert(command, operationOf(e));
}

void CallStatistics::clear()
{
    operations.clear();
    addresses.clear();
    counted.clear();
    wholeCount = 0;
    hasLast = false;
    lastSequence = 0;
}

void CallStatistics::update(const Ring& ring)
{
    const std::uint32_t capacity = ring.numberOfElements();
    const std::uint32_t size = ring.size();
    if (size == 0 || capacity == 0) {
        clear();
        return;
    }
    auto at = [&ring, capacity](std::uint32_t n) -> const Entry& { return ring((ring.begin + n) % capacity); };
    const std::uint64_t oldest = at(0).reserved;
    const std::uint64_t newest = at(size - 1).reserved;

    // Sequence numbers run without gaps through the ring, so the last record taken sits at a known
    // place. If it is not there (the ring was cleared and numbering restarted), start over.
    std::uint32_t start = 0;
    if (hasLast) {
        const bool held = lastSequence >= oldest && lastSequence <= newest;
        const Entry* last = held ? &at(static_cast<std::uint32_t>(lastSequence - oldest)) : nullptr;
        if (last && last->reserved == lastSequence && last->id == lastId && last->pid == lastPid)
            start = static_cast<std::uint32_t>(lastSequence - oldest) + 1;
        else if (lastSequence < oldest && newest > lastSequence && newest - oldest == size - 1)
            start = 0; // everything held is newer than what was taken: the ring wrapped past it
        else
            clear();
    }

    while (!counted.empty() && counted.front().sequence < oldest) {
        const Counted& c = counted.front();
        remove(operations, c.operation, c.duration, c.error);
        remove(addresses, c.address, c.duration, c.error);
        counted.pop_front();
    }
    for (std::uint32_t n = start; n < size; ++n)
        add(at(n));
    const Entry& last = at(size - 1);
    lastSequence = last.reserved;
    lastId = last.id;
    lastPid = last.pid;
    hasLast = true;
}

bool CallStatistics::join(const Entry& e, Groups::value_type*& operation, Groups::value_type*& address,
                          double& duration, bool& error)
{
    if (e.kind == 0)
        return false;
    error = e.status < 0;
    duration = std::isfinite(e.duration) ? e.duration : 0.0;
    auto joinGroup = [duration, error](Groups& groups, const QString& key) {
        Groups::value_type* group = &*groups.try_emplace(key).first;
        Group& g = group->second;
        g.errors += error ? 1 : 0;
        g.sum += duration;
        g.durations.push_back(duration);
        return group;
    };
    QByteArray addressBytes = RecordDetails::addressBytes(e);
    const QString addressKey = addressBytes.isEmpty()
        ? QStringLiteral("(no address)")
        : RecordDetails::escapeBytes(addressBytes.left(s_MaxKeyLength), false);
    operation = joinGroup(operations, cachedOperationOf(e));
    address = joinGroup(addresses, addressKey);
    return true;
}

void CallStatistics::add(const Entry& e)
{
    Groups::value_type* operation = nullptr;
    Groups::value_type* address = nullptr;
    double duration = 0;
    bool error = false;
    if (join(e, operation, address, duration, error))
        counted.push_back({e.reserved, operation, address, duration, error});
}

void CallStatistics::count(const Entry& e)
{
    Groups::value_type* operation = nullptr;
    Groups::value_type* address = nullptr;
    double duration = 0;
    bool error = false;
    if (join(e, operation, address, duration, error))
        ++wholeCount;
}

void CallStatistics::remove(Groups& groups, Groups::value_type* group, double duration, bool error)
{
    Group& g = group->second;
    g.errors -= error ? 1 : 0;
    g.sum -= duration;
    g.durations.pop_front();
    if (g.durations.empty())
        groups.erase(group->first);
}

std::vector<CallStatistics::Figures> CallStatistics::figuresOf(const Groups& groups)
{
    std::vector<Figures> list;
    list.reserve(groups.size());
    for (const auto& [key, g] : groups) {
        Figures f;
        f.key = key;
        std::vector<double> values(g.durations.begin(), g.durations.end());
        f.calls = values.size();
        f.errors = g.errors;
        const auto [min, max] = std::minmax_element(values.begin(), values.end());
        f.min = *min;
        f.max = *max;
        f.mean = std::max(0.0, g.sum) / static_cast<double>(f.calls);
        // Nearest rank.
        const auto rank
            = std::max<std::size_t>(static_cast<std::size_t>(std::ceil(0.95 * static_cast<double>(f.calls))), 1);
        std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(rank - 1), values.end());
        f.p95 = values[rank - 1];
        list.push_back(f);
    }
    std::sort(list.begin(), list.end(), [](const Figures& a, const Figures& b) { return a.key < b.key; });
    return list;
}

std::vector<CallStatistics::Figures> CallStatistics::figures(Grouping grouping) const
{
    return figuresOf(grouping == ByOperation ? operations : addresses);
}

QStringList CallStatistics::toText() const
{
    QStringList lines;
    auto section = [&lines](const QString& title, const std::vector<Figures>& list) {
        lines << title + QStringLiteral("\tCalls\tErrors\tMin\tMean\tP95\tMax");
        for (const Figures& f : list)
            lines << QStringList {f.key,
                                  QString::number(f.calls),
                                  QString::number(f.errors),
                                  ValueFormat::duration2string(f.min),
                                  ValueFormat::duration2string(f.mean),
                                  ValueFormat::duration2string(f.p95),
                                  ValueFormat::duration2string(f.max)}
                         .join(QLatin1Char('\t'));
    };
    section(QStringLiteral("Operation"), figures(ByOperation));
    section(QStringLiteral("Address"), figures(ByAddress));
    return lines;
}
