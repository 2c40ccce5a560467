#pragma once

#include "LiveTraceModel.h"
#include "TraceRecord.h"

#include <QDate>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

class QIODevice;

namespace capture {

// What a capture file held, as records a model can show again.
struct Capture
{
    enum Source
    {
        CsvTable,
        ViewText,
        TraceLog
    };

    Source source = CsvTable;
    std::vector<ZelTracer::FullEntry> records;
    // Set when not everything could be taken, for the user to read.
    QString note;
    // Where records stand in the whole file: a capture longer than a view is shown a part at a time.
    std::uint64_t total = 0;
    std::uint64_t first = 0;
    // The first failed call (a record with a negative status that is not a call record), or -1.
    std::int64_t firstError = -1;
};

// Where a reader that streams hands the records, in the order of the file.
struct RecordSink
{
    std::function<void(ZelTracer::FullEntry const&)> record;
    // Asked now and then with the bytes read so far; false stops the reading (an error says so).
    std::function<bool(qint64)> goOn;
};

// Reads an exported table (CSV), a saved view or a trace log written by the traced processes back
// into records. A completed row becomes its call and its return record again and a collapsed row its
// calls, so the model pairs and collapses them as it did when they were captured. The file comes from
// outside: a line, a field or a count never makes the reader allocate beyond the caps below, and a
// file that was cut short or is something else is refused with a message.
class CaptureReader
{
public:
    static constexpr int s_MaxLineLength = 16 * 1024;
    // As many as a view shows; of a longer capture the newest are kept, as the live view keeps them.
    static constexpr std::size_t s_MaxRecords = LiveTraceModel::s_MaxCaptureRecords;

    // Without from, the newest records are kept; with it, s_MaxRecords records from that index on.
    static bool read(QString const& fileName, Capture& capture, QString& error,
                     std::optional<std::uint64_t> from = std::nullopt);
    // A saved view carries times without a date; they are placed on day, going on to the next day
    // when the time jumps back by more than half a day.
    static bool read(QIODevice& device, QString const& name, QDate const& day, Capture& capture, QString& error,
                     std::optional<std::uint64_t> from = std::nullopt);

    // Every record of the file to the sink, however many: nothing is kept here. Costs the file's
    // length; a file that is refused has handed the sink the records before the line that failed.
    static bool stream(QString const& fileName, RecordSink const& sink, QString& error);
    static bool stream(QIODevice& device, QString const& name, QDate const& day, RecordSink const& sink,
                       QString& error);

private:
    static bool readDevice(QIODevice& device, QString const& name, QDate const& day, Capture& capture, QString& error,
                           std::optional<std::uint64_t> from, RecordSink const* sink);
};

} // namespace capture
