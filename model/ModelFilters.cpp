#include "ModelFilters.h"

#include <QByteArray>
#include <QDataStream>
#include <QIODevice>

#include <algorithm>

bool ModelFilters::add(SingleFilter const& filter)
{
    filters.append(filter);
    return showOnly = showOnlyActive();
}

bool ModelFilters::erase(unsigned long index)
{
    filters.removeAt(static_cast<int>(index));
    return showOnly = showOnlyActive();
}

void ModelFilters::clear()
{
    filters.clear();
    showOnly = false;
}

bool ModelFilters::showOnlyActive() const
{
    return std::any_of(filters.cbegin(), filters.cend(), [](SingleFilter const& f) { return f.showonly(); });
}

bool ModelFilters::isHighlighted(ZelTracer::FullEntry const& entry, QColor* color) const
{
    RecordTexts texts(entry);
    for (SingleFilter const& f : filters) {
        if (f.type > SingleFilter::HighlightCommand || !f.matches(entry, texts))
            continue;
        if (color)
            *color = f.color;
        return true;
    }
    return false;
}

bool ModelFilters::anyMatch(ZelTracer::FullEntry const& entry, int firstType, int lastType) const
{
    RecordTexts texts(entry);
    return std::any_of(filters.cbegin(), filters.cend(), [&](SingleFilter const& f) {
        return f.type >= firstType && f.type <= lastType && f.matches(entry, texts);
    });
}

bool ModelFilters::testShow(ZelTracer::FullEntry const& entry) const
{
    return anyMatch(entry, SingleFilter::IncludeThread, SingleFilter::IncludeCommand);
}

bool ModelFilters::testHide(ZelTracer::FullEntry const& entry) const
{
    return anyMatch(entry, SingleFilter::ExcludeThread, SingleFilter::ExcludeCommand);
}

bool ModelFilters::isFiltered(ZelTracer::FullEntry const& entry) const
{
    if (filters.isEmpty())
        return false;
    // While any include rule exists, exclude rules are not consulted at all.
    if (showOnly)
        return !testShow(entry);
    return testHide(entry);
}

void ModelFilters::toStream(QDataStream& stream) const
{
    stream << static_cast<qint32>(filters.size());
    for (SingleFilter const& f : filters)
        stream << f;
    stream << showOnly;
}

void ModelFilters::fromStream(QDataStream& stream)
{
    filters.clear();
    qint32 count = 0;
    stream >> count;
    // The count comes from a file: reserve no more than the remaining bytes could hold (a rule
    // takes at least 23 bytes), so that a hostile count cannot cause a huge allocation.
    constexpr qint64 smallestRule = 4 + 4 + 4 + 11;
    const qint64 available = stream.device() ? stream.device()->bytesAvailable() : 0;
    filters.reserve(static_cast<int>(std::clamp<qint64>(std::min<qint64>(count, available / smallestRule), 0, 4096)));
    for (qint32 i = 0; i < count; ++i) {
        SingleFilter f;
        stream >> f;
        filters.append(f);
        if (stream.atEnd() || stream.status() != QDataStream::Ok)
            break;
    }
    stream >> showOnly;
}

void ModelFilters::saveViewFilterFile(QIODevice& device) const
{
    QDataStream stream(&device);
    stream << s_FileMagic << s_FileVersion;
    stream.setVersion(s_StreamVersion);
    stream << *this;
}

bool ModelFilters::loadViewFilterFile(QIODevice& device)
{
    return loadViewFilterFileChecked(device) == LoadResult::Loaded;
}

ModelFilters::LoadResult ModelFilters::loadViewFilterFileChecked(QIODevice& device)
{
    QDataStream stream(&device);
    qint32 magic = 0;
    stream >> magic;
    if (magic != s_FileMagic)
        return LoadResult::Foreign;
    qint32 version = 0;
    stream >> version;
    if (version != s_FileVersion)
        return LoadResult::Foreign;
    // The count is looked at before anything is replaced, so that a refused file leaves the set alone.
    const QByteArray countBytes = device.peek(4);
    if (countBytes.size() == 4) {
        const auto* b = reinterpret_cast<const unsigned char*>(countBytes.constData());
        const qint64 count = static_cast<qint32>(static_cast<quint32>(b[0]) << 24 | static_cast<quint32>(b[1]) << 16
                                                 | static_cast<quint32>(b[2]) << 8 | b[3]);
        if (count > s_MaxFileRules)
            return LoadResult::TooManyRules;
    }
    stream.setVersion(s_StreamVersion);
    stream >> *this;
    return LoadResult::Loaded;
}

QDataStream& operator<<(QDataStream& stream, ModelFilters const& filters)
{
    filters.toStream(stream);
    return stream;
}

QDataStream& operator>>(QDataStream& stream, ModelFilters& filters)
{
    filters.fromStream(stream);
    return stream;
}
