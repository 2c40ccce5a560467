#pragma once

#include "LiveTraceModel.h"

#include <QByteArray>
#include <QString>

#include <map>
#include <optional>
#include <tuple>

class QIODevice;

// Captures that people keep and share: the rows of a view written as a spreadsheet table (CSV), as the
// tab-separated text of "Save view", or as a timeline in the Trace Event format that Perfetto's UI and
// chrome://tracing open. The window exports its current view; the recorder streams rows as they
// become final.
namespace capture {

enum class Format
{
    Csv,
    ViewText,
    Timeline
};

// ".csv" is a table, ".json" a timeline, anything else the view text.
Format formatForFileName(QString const& fileName);
std::optional<Format> formatForName(QString const& name); // "csv", "text", "timeline"

// The CSV columns. Every field is quoted; the command and the address keep control bytes, the
// backslash and non-printable bytes as \t \n \r \\ \xHH escapes, so one row is always one line.
inline constexpr char s_CsvHeader[] = "\"Row\",\"Id\",\"Kind\",\"Date and time\",\"Elapsed (s)\",\"Pid\",\"Thread\","
                                      "\"Session\",\"Address\",\"Duration (s)\",\"Status\",\"Status name\",\"Calls\","
                                      "\"Command\"\r\n";

// Writes rows one at a time. The timeline is a JSON array whose closing bracket comes with finish();
// a recorder that is killed leaves a file that trace viewers still open. It holds one event per call:
// a call shown as a row of its own waits for its return row, and one that never returned is written
// at the end as begun and not ended. Rows given to it should not be collapsed (a collapsed row stands
// for several calls but holds only the last record).
class CaptureWriter
{
public:
    CaptureWriter(QIODevice& device, Format format);

    void begin();
    void write(LiveTraceModel::Row const& row);
    void finish();
    bool ok() const;

    static QByteArray csvLine(LiveTraceModel::Row const& row);
    // A completed call: from its start (its return time less its duration) to its return.
    static QByteArray timelineEvent(LiveTraceModel::Row const& row);

    // Calls waiting for their return at the most; beyond, the oldest is written as not ended.
    static constexpr std::size_t s_MaxOpenCalls = 10000;

private:
    void put(QByteArray const& bytes);
    void putEvent(QByteArray const& event);
    void writeTimeline(LiveTraceModel::Row const& row);
    void writeOpenCall(ZelTracer::FullEntry const& call);
    // Times in microseconds.
    static QByteArray completeEvent(LiveTraceModel::Row const& row, double start, double duration);

    struct CallKey
    {
        std::uint32_t pid;
        std::uint32_t threadId;
        std::uint64_t id;
        bool operator<(CallKey const& other) const
        {
            return std::tie(pid, threadId, id) < std::tie(other.pid, other.threadId, other.id);
        }
    };

    QIODevice& device;
    Format format;
    bool first = true;
    bool failed = false;
    // Calls written as rows of their own, until their return comes, by arrival.
    std::map<CallKey, std::uint64_t> openCalls;
    std::map<std::uint64_t, ZelTracer::FullEntry> openByArrival;
    std::uint64_t arrivals = 0;
};

// The text of "Copy view", "Save view", the exported and the recorded view text: three header lines,
// then one tab-separated line per row with the raw status number, the record's own duration and kind,
// and the address and text unescaped. One implementation for every place that writes it.
QString viewTextHeader();
void appendViewTextLine(QString& out, LiveTraceModel::Row const& row);

// The text of a control or non-ASCII-printable byte as the CSV keeps it, and back.
QString escapeControls(QString const& text);
QString unescapeControls(QString const& text);

// The kind column: "call", "return", "completed", or the number of another kind.
QString kindName(std::uint64_t displayKind);

// Writes every row of the model's view to fileName, replacing what the file held. On failure returns
// false and says why in error.
bool exportView(LiveTraceModel& model, QString const& fileName, Format format, QString* error);
// Every row the model shows, in the format, to an open device; false when a write failed.
bool writeView(LiveTraceModel& model, QIODevice& device, Format format);

} // namespace capture
