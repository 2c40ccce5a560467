#pragma once

#include "SingleFilter.h"

#include <QList>

class QColor;
class QDataStream;
class QIODevice;

// The ordered set of view filter rules in force. Order matters: the first matching highlight wins.
class ModelFilters
{
public:
    bool add(SingleFilter const& filter);
    bool erase(unsigned long index);
    void clear();
    bool showOnlyActive() const;

    bool isHighlighted(ZelTracer::FullEntry const& entry, QColor* color) const;
    bool testShow(ZelTracer::FullEntry const& entry) const;
    bool testHide(ZelTracer::FullEntry const& entry) const;
    bool isFiltered(ZelTracer::FullEntry const& entry) const;

    void toStream(QDataStream& stream) const;
    void fromStream(QDataStream& stream);

    // A whole *.viewfilter file: magic, format version, then the set at stream version 12.
    void saveViewFilterFile(QIODevice& device) const;
    // A foreign magic or another format version leaves the set as it is and returns false.
    bool loadViewFilterFile(QIODevice& device);
    enum class LoadResult
    {
        Loaded,
        Foreign, // wrong magic or format version: ignored silently
        TooManyRules // more rules than anyone edits by hand: refused with a message
    };
    // As above, and says why a file was not taken.
    LoadResult loadViewFilterFileChecked(QIODevice& device);

    bool operator==(ModelFilters const& other) const { return filters == other.filters && showOnly == other.showOnly; }

    static constexpr qint32 s_FileMagic = 0x2906FAB1;
    static constexpr qint32 s_FileVersion = 1;
    static constexpr int s_StreamVersion = 12;
    // Every rule is tested against every record on each display rebuild (every 200 ms over up to
    // 8510 records). 1000 command rules cost about 0.1 s per rebuild, 10000 about 1 s; nobody edits
    // even a hundred by hand, so files above this are refused.
    static constexpr qint32 s_MaxFileRules = 1000;

    QList<SingleFilter> filters;
    bool showOnly = false;

private:
    bool anyMatch(ZelTracer::FullEntry const& entry, int firstType, int lastType) const;
};

QDataStream& operator<<(QDataStream& stream, ModelFilters const& filters);
QDataStream& operator>>(QDataStream& stream, ModelFilters& filters);
