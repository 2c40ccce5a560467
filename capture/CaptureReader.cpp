#include "CaptureReader.h"

#include "CaptureExport.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <cctype>
#include <cstring>
#include <deque>
#include <set>
#include <tuple>

namespace capture {

namespace {

using ZelTracer::FullEntry;

FullEntry blankRecord()
{
    FullEntry e;
    std::memset(&e, 0, sizeof e);
    return e;
}

template<std::size_t N> void copyText(char (&field)[N], QByteArray const& bytes)
{
    const std::size_t n = std::min<std::size_t>(static_cast<std::size_t>(bytes.size()), N - 1);
    std::memcpy(field, bytes.constData(), n);
    field[n] = '\0';
}

// A text read back from a table is kept as UTF-8, which the tool decodes to the same text.
template<std::size_t N> void copyText(char (&field)[N], QString const& text)
{
    copyText(field, text.toUtf8());
}

// A text field of a table, decoded as the tool decodes record texts (a leading byte-order mark is
// part of the text; a table saved in another encoding still reads).
QString fieldText(QByteArray const& field)
{
    return ValueFormat::recordText(field.constData(), static_cast<std::size_t>(field.size()));
}

// Three digits of milliseconds, or -1.
int milliseconds(QByteArray const& digits)
{
    if (digits.size() != 3 || !std::isdigit(static_cast<unsigned char>(digits[0]))
        || !std::isdigit(static_cast<unsigned char>(digits[1])) || !std::isdigit(static_cast<unsigned char>(digits[2])))
        return -1;
    return digits.toInt();
}

// "HH:mm:ss" read digit by digit: a time is parsed for every line of a saved view.
QTime clockTime(QByteArray const& text)
{
    auto two = [&text](int at) {
        const auto a = static_cast<unsigned char>(text[at]), b = static_cast<unsigned char>(text[at + 1]);
        return std::isdigit(a) && std::isdigit(b) ? (a - '0') * 10 + (b - '0') : -1;
    };
    if (text.size() != 8 || text[2] != ':' || text[5] != ':')
        return QTime();
    return QTime(two(0), two(3), two(6)); // invalid for any part out of range
}

// Local date and time to seconds since the epoch. Converting is costly and records come many to a
// second, so the last text and its result are kept.
class LocalTime
{
public:
    bool seconds(QByteArray const& text, QDate const& day, std::int64_t& result)
    {
        if (text != lastText || day != lastDay) {
            lastText = text;
            lastDay = day;
            const QString t = QString::fromLatin1(text);
            const QDateTime when = day.isValid() ? QDateTime(day, clockTime(text))
                                                 : QDateTime::fromString(t, QStringLiteral("yyyy-MM-dd HH:mm:ss"));
            valid = when.isValid() && when.time().isValid();
            lastSeconds = when.toSecsSinceEpoch();
        }
        result = lastSeconds;
        return valid;
    }

private:
    QByteArray lastText;
    QDate lastDay;
    std::int64_t lastSeconds = 0;
    bool valid = false;
};

// One parse step: every number of a line is checked, none is trusted.
struct Fields
{
    bool ok = true;
    QString why;

    template<class T> T number(QByteArray const& text, const char* what)
    {
        bool good = false;
        T value {};
        if constexpr (std::is_same_v<T, std::uint64_t>)
            value = text.toULongLong(&good);
        else if constexpr (std::is_same_v<T, std::uint32_t>)
            value = text.toUInt(&good);
        else if constexpr (std::is_same_v<T, std::int32_t>)
            value = text.toInt(&good);
        else
            value = text.toDouble(&good);
        if (!good)
            fail(QStringLiteral("the %1 \"%2\" is not a number")
                     .arg(QLatin1String(what), QString::fromLatin1(text.left(40))));
        return value;
    }
    // Pid, thread and session, which every format writes side by side from `first` on.
    template<class List> void caller(List const& fields, int first, FullEntry& e)
    {
        e.pid = number<std::uint32_t>(fields[first], "pid");
        e.threadId = number<std::uint32_t>(fields[first + 1], "thread");
        e.session = number<std::uint32_t>(fields[first + 2], "session");
    }
    void fail(QString const& reason)
    {
        if (ok)
            why = reason;
        ok = false;
    }
};

// RFC 4180 fields of one record; false while a quoted field is still open at the end of the text.
bool splitCsv(QByteArray const& text, QList<QByteArray>& fields)
{
    fields.clear();
    fields.reserve(16);
    QByteArray field;
    bool quoted = false;
    bool wasQuoted = false;
    const char* p = text.constData();
    const int n = text.size();
    for (int i = 0; i < n; ++i) {
        if (quoted) {
            // Up to the next quote in one step: it ends the field unless a second one follows.
            const auto* q = static_cast<const char*>(std::memchr(p + i, '"', static_cast<std::size_t>(n - i)));
            if (!q) {
                field.append(p + i, n - i);
                break;
            }
            const int at = static_cast<int>(q - p);
            field.append(p + i, at - i);
            if (at + 1 < n && p[at + 1] == '"') {
                field += '"';
                i = at + 1;
            } else {
                quoted = false;
                i = at;
            }
            continue;
        }
        const char c = p[i];
        if (c == '"' && field.isEmpty() && !wasQuoted) {
            quoted = wasQuoted = true;
        } else if (c == ',') {
            fields.append(field);
            field.clear();
            wasQuoted = false;
        } else if (c != '\r' && c != '\n') {
            field += c;
        }
    }
    fields.append(field);
    return !quoted;
}

class Parser
{
public:
    Parser(Capture& capture, QDate day, std::optional<std::uint64_t> from, RecordSink const* sink)
        : capture(capture)
        , from(from)
        , sink(sink)
        , day(day)
    { }

    void push(FullEntry const& e)
    {
        if (sink) {
            ++total;
            sink->record(e);
            return;
        }
        const std::uint64_t index = total++;
        if (capture.firstError < 0 && e.status < 0 && e.kind != 0)
            capture.firstError = static_cast<std::int64_t>(index);
        if (from && (index < *from || index - *from >= CaptureReader::s_MaxRecords))
            return;
        kept.push_back(e);
        if (kept.size() > CaptureReader::s_MaxRecords)
            kept.pop_front();
    }

    void finish()
    {
        capture.records.assign(kept.begin(), kept.end());
        kept.clear();
        capture.total = total;
        capture.first = from ? std::min(*from, total) : total - capture.records.size();
        if (total > capture.records.size())
            capture.note = QStringLiteral("records %1 to %2 of %3")
                               .arg(capture.first + 1)
                               .arg(capture.first + capture.records.size())
                               .arg(total);
    }

    QString csvRow(QByteArray const& line)
    {
        QList<QByteArray> f;
        splitCsv(line, f);
        if (f.size() != 14)
            return QStringLiteral("it has %1 fields instead of 14").arg(f.size());
        Fields p;
        FullEntry e = blankRecord();
        e.id = p.number<std::uint64_t>(f[1], "id");
        const QString kind = QString::fromUtf8(f[2]);
        const QByteArray& when = f[3];
        const int ms = milliseconds(when.mid(20));
        if (when.size() != 23 || when.at(19) != '.' || ms < 0 || !clock.seconds(when.left(19), QDate(), e.timestamp))
            p.fail(QStringLiteral("\"%1\" is not a date and time").arg(QString::fromUtf8(when.left(40))));
        e.elapsedTime = p.number<double>(f[4], "elapsed time");
        p.caller(f, 5, e);
        copyText(e.address, unescapeControls(fieldText(f[8])));
        const double total = p.number<double>(f[9], "duration");
        e.status = p.number<std::int32_t>(f[10], "status");
        const std::uint64_t calls = p.number<std::uint64_t>(f[12], "call count");
        copyText(e.text, unescapeControls(fieldText(f[13])));
        if (p.ok && calls == 0)
            p.fail(QStringLiteral("the call count is 0"));
        bool numericKind = false;
        const std::uint32_t otherKind = kind.toUInt(&numericKind);
        if (!numericKind && kind != kindName(LiveTraceModel::CallKind) && kind != kindName(LiveTraceModel::ReturnKind)
            && kind != kindName(LiveTraceModel::CompletedKind))
            p.fail(QStringLiteral("\"%1\" is not a kind of row").arg(kind.left(40)));
        if (!p.ok)
            return p.why;
        e.timestampFraction = ms / 1000.0;

        // A collapsed row stands for its calls; they are given the ids before the newest one's.
        const bool completed = kind == kindName(LiveTraceModel::CompletedKind);
        e.kind = numericKind ? otherKind : (kind == kindName(LiveTraceModel::CallKind) ? 0u : 1u);
        // Only the newest records stay, and the calls that counts stand for are bounded over the whole
        // file, so a hostile count costs neither memory nor much time.
        const std::uint64_t expand
            = std::min<std::uint64_t>(calls, 1 + std::min(expansionBudget, CaptureReader::s_MaxRecords));
        expansionBudget -= expand - 1;
        for (std::uint64_t k = calls - expand; k < calls; ++k) {
            FullEntry call = e;
            call.id = e.id >= calls - 1 ? e.id - (calls - 1 - k) : e.id;
            call.duration = total / static_cast<double>(expand);
            if (completed) {
                FullEntry start = call;
                start.kind = 0;
                start.duration = 0;
                start.status = 0;
                push(start);
            }
            push(call);
        }
        return QString();
    }

    // The six tab-separated fields both text formats begin with; pos ends behind the sixth tab.
    static bool leadingFields(QByteArray const& line, QList<QByteArray>& head, int& pos)
    {
        for (int i = 0; i < 6; ++i) {
            const int tab = line.indexOf('\t', pos);
            if (tab < 0)
                return false;
            head.append(line.mid(pos, tab - pos));
            pos = tab + 1;
        }
        return true;
    }

    // With dryRun only checks that the line begins a row.
    QString viewTextRow(QByteArray const& line, bool dryRun)
    {
        // id offset, id, time, pid, thread, session, then address, duration, kind, status, text.
        // Address and text are written as they are and may hold tabs: the address ends at the first
        // tab after which a duration, a kind and a status follow.
        QList<QByteArray> head;
        int pos = 0;
        if (!leadingFields(line, head, pos))
            return QStringLiteral("it has fewer than 11 fields");
        Fields p;
        FullEntry e = blankRecord();
        e.id = p.number<std::uint64_t>(head[1], "id");
        const QByteArray& shown = head[2];
        const QTime time = clockTime(shown.left(8));
        const int ms = milliseconds(shown.mid(9));
        if (!time.isValid() || shown.size() != 12 || shown.at(8) != '.' || ms < 0)
            p.fail(QStringLiteral("\"%1\" is not a time").arg(QString::fromLatin1(shown.left(20))));
        p.caller(head, 3, e);
        if (!p.ok)
            return p.why;
        if (dryRun)
            return QString(); // a line that begins like a row is one
        if (!tail(line, pos, '\0', e))
            return QStringLiteral("its duration, kind and status are missing");

        if (lastTime.isValid() && time.msecsTo(lastTime) > 12 * 3600 * 1000)
            day = day.addDays(1);
        lastTime = time;
        clock.seconds(shown.left(8), day, e.timestamp);
        e.timestampFraction = ms / 1000.0;
        pushWithCall(e);
        return QString();
    }

    QString logRow(QByteArray const& line, bool dryRun)
    {
        // id, date and time, elapsed, pid, thread, session, address, duration, kind, status, "text".
        QList<QByteArray> head;
        int pos = 0;
        if (!leadingFields(line, head, pos))
            return QStringLiteral("it has fewer than 11 fields");
        Fields p;
        FullEntry e = blankRecord();
        e.id = p.number<std::uint64_t>(head[0], "id");
        if (head[1].size() != 19 || !clock.seconds(head[1], QDate(), e.timestamp))
            p.fail(QStringLiteral("\"%1\" is not a date and time").arg(QString::fromLatin1(head[1].left(30))));
        e.elapsedTime = p.number<double>(head[2], "elapsed time");
        p.caller(head, 3, e);
        if (!p.ok)
            return p.why;
        if (dryRun)
            return QString(); // a line that begins like a row is one
        if (!tail(line, pos, '"', e))
            return QStringLiteral("its duration, kind, status and quoted command are missing");
        push(e);
        return QString();
    }

private:
    // From pos: the address up to the tab after which "duration \t kind \t status \t" and the text
    // follow; with a quote the text must be enclosed in quotes. Each tab is tried once and looks at
    // most three fields ahead, so a line full of tabs costs its length, not its length squared.
    bool tail(QByteArray const& line, int pos, char quote, FullEntry& e)
    {
        const char* p = line.constData();
        const int n = line.size();
        auto nextTab = [p, n](int from) {
            const void* t = from < n ? std::memchr(p + from, '\t', static_cast<std::size_t>(n - from)) : nullptr;
            return t ? static_cast<int>(static_cast<const char*>(t) - p) : -1;
        };
        for (int tab = nextTab(pos); tab >= 0; tab = nextTab(tab + 1)) {
            int ends[3];
            int from = tab + 1;
            bool three = true;
            for (int& end : ends) {
                end = nextTab(from);
                three = three && end >= 0;
                if (!three)
                    break;
                from = end + 1;
            }
            if (!three)
                return false;
            auto field = [&line](int begin, int end) {
                return QByteArray::fromRawData(line.constData() + begin, end - begin);
            };
            Fields f;
            const double duration = f.number<double>(field(tab + 1, ends[0]), "duration");
            const std::uint32_t kind = f.ok ? f.number<std::uint32_t>(field(ends[0] + 1, ends[1]), "kind") : 0;
            const std::int32_t status = f.ok ? f.number<std::int32_t>(field(ends[1] + 1, ends[2]), "status") : 0;
            if (!f.ok)
                continue;
            int textStart = ends[2] + 1;
            int textEnd = n;
            if (quote) {
                if (textEnd - textStart < 2 || p[textStart] != quote || p[textEnd - 1] != quote)
                    continue;
                ++textStart;
                --textEnd;
            }
            // The bytes as the record or the saved view held them: the tool decodes them as it did then.
            copyText(e.address, line.mid(pos, tab - pos));
            copyText(e.text, line.mid(textStart, textEnd - textStart));
            e.duration = duration;
            e.kind = kind;
            e.status = status;
            return true;
        }
        return false;
    }

    // A saved view shows a completed call only by its return record: the call record is put back
    // in front of it, unless the call was shown as a row of its own.
    void pushWithCall(FullEntry const& e)
    {
        const auto key = std::make_tuple(e.pid, e.threadId, static_cast<qulonglong>(e.id));
        if (e.kind == 0) {
            // Calls that never return must not grow the set without end.
            if (openCalls.size() >= CaptureReader::s_MaxRecords)
                openCalls.clear();
            openCalls.insert(key);
        } else if (e.kind == 1 && openCalls.erase(key) == 0) {
            FullEntry call = e;
            call.kind = 0;
            call.duration = 0;
            call.status = 0;
            push(call);
        }
        push(e);
    }

    Capture& capture;
    std::optional<std::uint64_t> from;
    RecordSink const* sink;
    std::deque<FullEntry> kept;
    std::uint64_t total = 0;
    std::uint64_t expansionBudget = 10 * CaptureReader::s_MaxRecords;
    QDate day;
    QTime lastTime;
    LocalTime clock;
    std::set<std::tuple<std::uint32_t, std::uint32_t, qulonglong>> openCalls;
};

} // namespace

bool CaptureReader::read(QString const& fileName, Capture& capture, QString& error, std::optional<std::uint64_t> from)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("Cannot open %1: %2").arg(fileName, file.errorString());
        return false;
    }
    QFileInfo info(fileName);
    const QDate day = info.lastModified().isValid() ? info.lastModified().date() : QDate::currentDate();
    return read(file, info.fileName(), day, capture, error, from);
}

bool CaptureReader::read(QIODevice& device, QString const& name, QDate const& day, Capture& capture, QString& error,
                         std::optional<std::uint64_t> from)
{
    return readDevice(device, name, day, capture, error, from, nullptr);
}

bool CaptureReader::stream(QString const& fileName, RecordSink const& sink, QString& error)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("Cannot open %1: %2").arg(fileName, file.errorString());
        return false;
    }
    const QFileInfo info(fileName);
    const QDate day = info.lastModified().isValid() ? info.lastModified().date() : QDate::currentDate();
    Capture capture;
    return readDevice(file, info.fileName(), day, capture, error, std::nullopt, &sink);
}

bool CaptureReader::stream(QIODevice& device, QString const& name, QDate const& day, RecordSink const& sink,
                           QString& error)
{
    Capture capture;
    return readDevice(device, name, day, capture, error, std::nullopt, &sink);
}

bool CaptureReader::readDevice(QIODevice& device, QString const& name, QDate const& day, Capture& capture,
                               QString& error, std::optional<std::uint64_t> from, RecordSink const* sink)
{
    capture = Capture();
    Parser parser(capture, day.isValid() ? day : QDate::currentDate(), from, sink);
    QList<QByteArray> csvHeaderFields;
    splitCsv(QByteArray(s_CsvHeader).trimmed(), csvHeaderFields);
    const QByteArray viewHeader = viewTextHeader().toUtf8();
    const QList<QByteArray> viewHeaderLines = viewHeader.split('\n');
    int lineNumber = 0;
    QByteArray pending; // a CSV record whose quoted field goes on in the next line
    bool any = false;
    // A saved view and a log keep texts unescaped, so a text may hold line breaks: a line that is no
    // row on its own continues the row before it, which is read once the next row begins.
    QByteArray held;
    int heldLine = 0;
    auto row = [&parser, &capture](QByteArray const& text, bool dryRun) {
        return capture.source == Capture::ViewText ? parser.viewTextRow(text, dryRun) : parser.logRow(text, dryRun);
    };
    auto refuse = [&error, &name](int number, QString const& why) {
        error = QStringLiteral("Line %1 of %2 is not a line of a capture: %3.").arg(number).arg(name, why);
        return false;
    };
    auto tooLong = [&error, &name](int number) {
        error = QStringLiteral("Line %1 of %2 is longer than any line of a capture.").arg(number).arg(name);
        return false;
    };

    while (!device.atEnd()) {
        if (sink && sink->goOn && lineNumber % 1024 == 0 && !sink->goOn(device.pos())) {
            error = QStringLiteral("Reading %1 was cancelled.").arg(name);
            return false;
        }
        QByteArray line = device.readLine(s_MaxLineLength + 2);
        ++lineNumber;
        if (!line.endsWith('\n')) {
            if (line.size() > s_MaxLineLength)
                return tooLong(lineNumber);
            error = QStringLiteral("%1 ends in the middle of a line: the file was cut short.").arg(name);
            return false;
        }
        line.chop(1);
        if (line.endsWith('\r'))
            line.chop(1);

        if (!any) {
            any = true;
            // A table saved again by a spreadsheet may start with a byte order mark and quote its
            // header differently; its header fields decide.
            if (line.startsWith("\xEF\xBB\xBF"))
                line.remove(0, 3);
            QList<QByteArray> headerFields;
            if (splitCsv(line, headerFields) && headerFields == csvHeaderFields) {
                capture.source = Capture::CsvTable;
                continue;
            }
            if (line == viewHeaderLines.value(0)) {
                capture.source = Capture::ViewText;
                continue;
            }
            if (line.startsWith("# Logging to file activated")) {
                capture.source = Capture::TraceLog;
                continue;
            }
            if (line.startsWith('[') || line.startsWith('{')) {
                error = QStringLiteral("%1 is a timeline for trace viewers: open it in Perfetto's UI or "
                                       "chrome://tracing; export the view as CSV to open it here.")
                            .arg(name);
                return false;
            }
            error = QStringLiteral("%1 is not a capture: it begins neither like an exported table, nor like a "
                                   "saved view, nor like a trace log.")
                        .arg(name);
            return false;
        }
        QString why;
        switch (capture.source) {
        case Capture::CsvTable: {
            pending += line;
            QList<QByteArray> fields;
            if (!splitCsv(pending, fields)) {
                if (pending.size() > s_MaxLineLength)
                    return tooLong(lineNumber);
                pending += '\n';
                continue;
            }
            why = parser.csvRow(pending);
            pending.clear();
            break;
        }
        case Capture::ViewText:
            if (lineNumber <= 3) {
                if (line != viewHeaderLines.value(lineNumber - 1)
                    && !(lineNumber == 2 && line.startsWith("# Bitness:"))) {
                    why = QStringLiteral("the header of a saved view is incomplete");
                }
                break;
            }
            [[fallthrough]];
        case Capture::TraceLog:
            if (capture.source == Capture::TraceLog && (line.startsWith('#') || line.isEmpty())) {
                if (!held.isEmpty() && !(why = row(held, false)).isEmpty())
                    return refuse(heldLine, why);
                held.clear();
                continue;
            }
            if (!held.isEmpty() && !row(line, true).isEmpty()) {
                held += '\n' + line;
                if (held.size() > s_MaxLineLength)
                    return tooLong(heldLine);
                continue;
            }
            if (!held.isEmpty() && !(why = row(held, false)).isEmpty())
                return refuse(heldLine, why);
            held = line;
            heldLine = lineNumber;
            continue;
        }
        if (!why.isEmpty())
            return refuse(lineNumber, why);
    }
    if (!held.isEmpty()) {
        const QString why = row(held, false);
        if (!why.isEmpty())
            return refuse(heldLine, why);
    }
    if (!any) {
        error = QStringLiteral("%1 is empty.").arg(name);
        return false;
    }
    if (!pending.isEmpty() || (capture.source == Capture::ViewText && lineNumber < 3)) {
        error = QStringLiteral("%1 ends in the middle of a line: the file was cut short.").arg(name);
        return false;
    }
    parser.finish();
    return true;
}

} // namespace capture
