#pragma once

#include "LiveTraceModel.h"

#include <QByteArray>
#include <QString>

#include <optional>

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
// a recorder that is killed leaves a file that trace viewers still open.
class CaptureWriter
{
public:
    CaptureWriter(QIODevice& device, Format format);

    void begin();
    void write(LiveTraceModel::Row const& row);
    void finish();
    bool ok() const;

    static QByteArray csvLine(LiveTraceModel::Row const& row);
    static QByteArray timelineEvent(LiveTraceModel::Row const& row);

private:
    void put(QByteArray const& bytes);

    QIODevice& device;
    Format format;
    bool first = true;
    bool failed = false;
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
