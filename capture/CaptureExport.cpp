#include "CaptureExport.h"

#include "ZelVersion.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <charconv>
#include <cmath>
#include <cstring>
#include <ctime>

namespace capture {

namespace {

using Entry = LiveTraceModel::Entry;
using Row = LiveTraceModel::Row;

// A text field is read only when it carries its terminator, as everywhere else in the tool.
QString commandText(Entry const& e)
{
    return ZelTracer::hasTerminator(e.text) ? ValueFormat::recordText(e.text) : QString();
}

QString addressText(Entry const& e)
{
    return ValueFormat::recordText(e.address);
}

double shownDuration(Row const& row)
{
    return row.repeatCount != 0 ? row.summedDuration : row.entry->duration;
}

QString rowNumber(Row const& row)
{
    if (row.entry->id >= row.firstId)
        return QString::number(static_cast<qulonglong>(row.entry->id - row.firstId));
    return QStringLiteral("-1");
}

QString dateAndTime(Entry const& e)
{
    const std::time_t seconds = static_cast<std::time_t>(e.timestamp);
    std::tm local {};
    char date[32] = {};
    if (localtime_r(&seconds, &local))
        std::strftime(date, sizeof date, "%Y-%m-%d ", &local);
    return QLatin1String(date) + ValueFormat::timestamp2string(static_cast<long>(e.timestamp), e.timestampFraction);
}

QByteArray quoted(QString const& field)
{
    QByteArray bytes = field.toUtf8();
    bytes.replace('"', "\"\"");
    return '"' + bytes + '"';
}

QByteArray jsonString(QString const& text)
{
    QByteArray out = "\"";
    for (const char c : text.toUtf8()) {
        const auto u = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (u < 0x20) {
            char code[8];
            std::snprintf(code, sizeof code, "\\u%04x", u);
            out += code;
        } else {
            out += c;
        }
    }
    return out + '"';
}

// The VISA operation a command text names: what stands before its parenthesis.
QString operationName(QString const& command)
{
    const int paren = command.indexOf(QLatin1Char('('));
    QString name = (paren >= 0 ? command.left(paren) : command).trimmed();
    if (name.isEmpty())
        return QStringLiteral("(no command)");
    return name.left(64);
}

} // namespace

Format formatForFileName(QString const& fileName)
{
    const QString suffix = QFileInfo(fileName).suffix().toLower();
    if (suffix == QLatin1String("csv"))
        return Format::Csv;
    if (suffix == QLatin1String("json"))
        return Format::Timeline;
    return Format::ViewText;
}

std::optional<Format> formatForName(QString const& name)
{
    if (name == QLatin1String("csv"))
        return Format::Csv;
    if (name == QLatin1String("text"))
        return Format::ViewText;
    if (name == QLatin1String("timeline"))
        return Format::Timeline;
    return std::nullopt;
}

QString escapeControls(QString const& text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        const ushort u = c.unicode();
        if (u == '\\')
            out += QLatin1String("\\\\");
        else if (u == '\t')
            out += QLatin1String("\\t");
        else if (u == '\n')
            out += QLatin1String("\\n");
        else if (u == '\r')
            out += QLatin1String("\\r");
        else if (u < 0x20 || (u >= 0x7F && u < 0xA0))
            out += QStringLiteral("\\x%1").arg(u, 2, 16, QLatin1Char('0'));
        else
            out += c;
    }
    return out;
}

QString unescapeControls(QString const& text)
{
    QString out;
    out.reserve(text.size());
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c != QLatin1Char('\\') || i + 1 >= text.size()) {
            out += c;
            continue;
        }
        const QChar next = text.at(++i);
        if (next == QLatin1Char('t')) {
            out += QLatin1Char('\t');
        } else if (next == QLatin1Char('n')) {
            out += QLatin1Char('\n');
        } else if (next == QLatin1Char('r')) {
            out += QLatin1Char('\r');
        } else if (next == QLatin1Char('x') && i + 2 < text.size()) {
            bool hex = false;
            const ushort value = text.mid(i + 1, 2).toUShort(&hex, 16);
            if (hex) {
                out += QChar(value);
                i += 2;
            } else {
                out += QLatin1String("\\x");
            }
        } else {
            out += next; // "\\" and anything unknown stand for themselves
        }
    }
    return out;
}

QString kindName(std::uint64_t displayKind)
{
    switch (displayKind) {
    case LiveTraceModel::CallKind:
        return QStringLiteral("call");
    case LiveTraceModel::ReturnKind:
        return QStringLiteral("return");
    case LiveTraceModel::CompletedKind:
        return QStringLiteral("completed");
    default:
        return QString::number(static_cast<qulonglong>(displayKind));
    }
}

CaptureWriter::CaptureWriter(QIODevice& device, Format format)
    : device(device)
    , format(format)
{ }

QString viewTextHeader()
{
    return QStringLiteral("# VISA version: ") + QLatin1String(ZelTracer::s_VersionString)
        + QStringLiteral("\n# Bitness:      64\n# OS:           Linux\n");
}

// Built in place: "Copy view" of a full table with the longest commands is several megabytes, and
// the GUI thread that builds it also drains the segment. Numbers and texts are appended without
// temporary strings; only the time and the duration go through their formatters. Appended rather
// than filled in with arg(): a "%1" inside a command must stay as it is.
void appendViewTextLine(QString& out, Row const& row)
{
    Entry const& e = *row.entry;
    const QLatin1Char tab('\t');
    char digits[24];
    auto number = [&out, &digits](auto value) {
        const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
        out += QLatin1String(digits, static_cast<int>(end - digits));
    };
    number(static_cast<std::uint64_t>(e.id - row.firstId));
    out += tab;
    number(static_cast<std::uint64_t>(e.id));
    out += tab;
    out += ValueFormat::timestamp2string(static_cast<long>(e.timestamp), e.timestampFraction);
    out += tab;
    number(e.pid);
    out += tab;
    number(e.threadId);
    out += tab;
    number(e.session);
    out += tab;
    out += addressText(e);
    out += tab;
    out += QString::number(e.duration, 'g', 6);
    out += tab;
    number(e.kind);
    out += tab;
    number(e.status);
    out += tab;
    out += commandText(e);
    out += QLatin1Char('\n');
}

QByteArray CaptureWriter::csvLine(Row const& row)
{
    Entry const& e = *row.entry;
    const QByteArray comma = ",";
    return quoted(rowNumber(row)) + comma + quoted(QString::number(e.id)) + comma + quoted(kindName(row.displayKind))
        + comma + quoted(dateAndTime(e)) + comma + quoted(QString::number(e.elapsedTime, 'f', 6)) + comma
        + quoted(QString::number(e.pid)) + comma + quoted(QString::number(e.threadId)) + comma
        + quoted(QString::number(e.session)) + comma + quoted(escapeControls(addressText(e))) + comma
        + quoted(QString::number(shownDuration(row), 'f', 9)) + comma + quoted(QString::number(e.status)) + comma
        + quoted(ValueFormat::status2string(e.status)) + comma
        + quoted(QString::number(static_cast<qulonglong>(row.repeatCount) + 1)) + comma
        + quoted(escapeControls(commandText(e))) + "\r\n";
}

namespace {

double microseconds(Entry const& e)
{
    return static_cast<double>(e.timestamp) * 1e6 + e.timestampFraction * 1e6;
}

QByteArray eventArgs(Entry const& e, QString const& command, std::uint64_t displayKind)
{
    return "{\"id\":" + QByteArray::number(static_cast<qulonglong>(e.id))
        + ",\"kind\":" + jsonString(kindName(displayKind)) + ",\"session\":" + QByteArray::number(e.session)
        + ",\"address\":" + jsonString(addressText(e)) + ",\"command\":" + jsonString(command);
}

} // namespace

QByteArray CaptureWriter::timelineEvent(Row const& row)
{
    // A complete event starts when the call started: a return record is stamped when the call
    // returned, so its duration is taken off. Times are microseconds.
    Entry const& e = *row.entry;
    const bool returned = row.displayKind != LiveTraceModel::CallKind;
    const double duration = returned ? std::max(0.0, shownDuration(row)) * 1e6 : 0.0;
    return completeEvent(row, microseconds(e) - duration, duration);
}

QByteArray CaptureWriter::completeEvent(Row const& row, double start, double duration)
{
    Entry const& e = *row.entry;
    const QString command = commandText(e);
    QByteArray args = eventArgs(e, command, row.displayKind);
    if (row.displayKind != LiveTraceModel::CallKind)
        args += ",\"status\":" + QByteArray::number(e.status)
            + ",\"statusName\":" + jsonString(ValueFormat::status2string(e.status));
    if (row.repeatCount != 0)
        args += ",\"calls\":" + QByteArray::number(static_cast<qulonglong>(row.repeatCount) + 1);
    args += '}';
    return "{\"name\":" + jsonString(operationName(command)) + ",\"cat\":\"VISA\",\"ph\":\"X\",\"ts\":"
        + QByteArray::number(start, 'f', 3) + ",\"dur\":" + QByteArray::number(duration, 'f', 3) + ",\"pid\":"
        + QByteArray::number(e.pid) + ",\"tid\":" + QByteArray::number(e.threadId) + ",\"args\":" + args + '}';
}

void CaptureWriter::put(QByteArray const& bytes)
{
    if (device.write(bytes) != bytes.size())
        failed = true;
}

void CaptureWriter::putEvent(QByteArray const& event)
{
    put((first ? "\n" : ",\n") + event);
    first = false;
}

// One event per call: a call row waits for its return row, which then stands for the call whole, as a
// completed row does; a return whose call is not held is written as it comes.
void CaptureWriter::writeTimeline(Row const& row)
{
    Entry const& e = *row.entry;
    const CallKey key {e.pid, e.threadId, e.id};
    if (row.displayKind == LiveTraceModel::CallKind) {
        if (const auto again = openCalls.find(key); again != openCalls.end()) {
            writeOpenCall(openByArrival[again->second]);
            openByArrival.erase(again->second);
            openCalls.erase(again);
        }
        if (openCalls.size() >= s_MaxOpenCalls) {
            const auto oldest = openByArrival.begin();
            writeOpenCall(oldest->second);
            openCalls.erase({oldest->second.pid, oldest->second.threadId, oldest->second.id});
            openByArrival.erase(oldest);
        }
        openCalls.emplace(key, ++arrivals);
        openByArrival.emplace(arrivals, e);
        return;
    }
    const auto call = row.displayKind == LiveTraceModel::ReturnKind ? openCalls.find(key) : openCalls.end();
    if (call == openCalls.end()) {
        putEvent(timelineEvent(row));
        return;
    }
    // Spanning the duration the producer measured around the call, as a completed row does; the
    // records' own times may disagree with it.
    Row whole = row;
    whole.displayKind = LiveTraceModel::CompletedKind;
    putEvent(timelineEvent(whole));
    openByArrival.erase(call->second);
    openCalls.erase(call);
}

// Begun and never ended: trace viewers draw it to the end of the capture.
void CaptureWriter::writeOpenCall(Entry const& call)
{
    const QString command = commandText(call);
    putEvent("{\"name\":" + jsonString(operationName(command))
             + ",\"cat\":\"VISA\",\"ph\":\"B\",\"ts\":" + QByteArray::number(microseconds(call), 'f', 3)
             + ",\"pid\":" + QByteArray::number(call.pid) + ",\"tid\":" + QByteArray::number(call.threadId)
             + ",\"args\":" + eventArgs(call, command, LiveTraceModel::CallKind) + ",\"open\":true}}");
}

void CaptureWriter::begin()
{
    switch (format) {
    case Format::Csv:
        put(s_CsvHeader);
        break;
    case Format::ViewText:
        put(viewTextHeader().toUtf8());
        break;
    case Format::Timeline:
        put("[");
        break;
    }
}

void CaptureWriter::write(Row const& row)
{
    if (!row.entry)
        return;
    switch (format) {
    case Format::Csv:
        put(csvLine(row));
        break;
    case Format::ViewText: {
        QString line;
        appendViewTextLine(line, row);
        put(line.toUtf8());
        break;
    }
    case Format::Timeline:
        writeTimeline(row);
        return;
    }
    first = false;
}

void CaptureWriter::finish()
{
    if (format != Format::Timeline)
        return;
    for (auto const& [arrival, call] : openByArrival)
        writeOpenCall(call);
    openByArrival.clear();
    openCalls.clear();
    put("\n]\n");
}

bool CaptureWriter::ok() const
{
    return !failed;
}

bool writeView(LiveTraceModel& model, QIODevice& device, Format format)
{
    CaptureWriter writer(device, format);
    writer.begin();
    // A timeline draws calls: collapsed rows are expanded into the calls they stand for.
    const auto write = [&writer](LiveTraceModel::Row const& row) { writer.write(row); };
    if (format == Format::Timeline)
        model.forEachShownCall(write);
    else
        model.forEachShownRow(write);
    writer.finish();
    return writer.ok();
}

bool exportView(LiveTraceModel& model, QString const& fileName, Format format, QString* error)
{
    // Written beside the target and renamed over it, so a failure never leaves half a capture and an
    // old file's tail never survives.
    QSaveFile file(fileName);
    if (!file.open(QIODevice::WriteOnly)) {
        if (error)
            *error = QStringLiteral("Cannot write %1: %2").arg(fileName, file.errorString());
        return false;
    }
    if (!writeView(model, file, format) || !file.commit()) {
        if (error)
            *error = QStringLiteral("Cannot write %1: %2").arg(fileName, file.errorString());
        return false;
    }
    return true;
}

} // namespace capture
