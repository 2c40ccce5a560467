#include "RecordDetails.h"

#include "ValueFormat.h"

#include <QDateTime>

#include <cmath>
#include <cstring>

namespace RecordDetails {

namespace {

constexpr int s_BytesPerLine = 16;
// Texts and blocks from outside are shown in full up to this; a record holds at most 1024 bytes.
constexpr int s_MaxDumpBytes = 1024;

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

QByteArray trimmed(const QByteArray& bytes)
{
    return bytes.trimmed();
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// A quote closes a string argument only where an argument or the list ends behind it: binary data
// inside a string may hold quotes of its own.
bool closesString(const QByteArray& text, int i)
{
    int next = i + 1;
    while (next < text.size() && isBlank(text[next]))
        ++next;
    return next >= text.size() || text[next] == ',' || text[next] == ')';
}

QString hex32(std::uint32_t value)
{
    return QStringLiteral("0x") + QStringLiteral("%1").arg(value, 8, 16, QLatin1Char('0')).toUpper();
}

QString timestampText(std::int64_t seconds, double fraction)
{
    const QDateTime time = QDateTime::fromSecsSinceEpoch(seconds);
    QString text = time.isValid() ? time.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"))
                                  : QStringLiteral("%1 s after the epoch").arg(seconds);
    if (std::isfinite(fraction) && fraction >= 0 && fraction < 1) {
        // Rounded without carrying into the seconds, as the table does.
        const long long micros = std::min(999999LL, std::llround(fraction * 1e6));
        text += QStringLiteral(".%1").arg(micros, 6, 10, QLatin1Char('0'));
    } else {
        text += QStringLiteral(" + %1 s").arg(fraction);
    }
    return text;
}

bool sameCall(const Entry& a, const Entry& b)
{
    return a.pid == b.pid && a.threadId == b.threadId && a.id == b.id;
}

} // namespace

QByteArray commandBytes(const Entry& e)
{
    return QByteArray(e.text, static_cast<int>(strnlen(e.text, sizeof e.text)));
}

QByteArray addressBytes(const Entry& e)
{
    return QByteArray(e.address, static_cast<int>(strnlen(e.address, sizeof e.address)));
}

// The bytes decoded as everywhere in the tool, control characters escaped. Quoted (an argument's
// contents), bytes that are not UTF-8 text are shown as \xNN: they are binary more often than Latin-1.
QString escapeBytes(const QByteArray& bytes, bool quoted)
{
    const auto size = static_cast<std::size_t>(bytes.size());
    const bool utf8 = ValueFormat::isUtf8(bytes.constData(), size);
    const QString text = ValueFormat::recordText(bytes.constData(), size);
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        const ushort u = c.unicode();
        switch (u) {
        case '\n':
            out += QLatin1String("\\n");
            break;
        case '\r':
            out += QLatin1String("\\r");
            break;
        case '\t':
            out += QLatin1String("\\t");
            break;
        default:
            if (quoted && (u == '\\' || u == '"'))
                out += QLatin1Char('\\') + c;
            else if (u < 0x20 || (u >= 0x7F && u < 0xA0) || (quoted && !utf8 && u > 0x7E))
                out += QStringLiteral("\\x%1").arg(u, 2, 16, QLatin1Char('0'));
            else
                out += c;
        }
    }
    return out;
}

QByteArray unescapeBytes(const QByteArray& text)
{
    QByteArray out;
    out.reserve(text.size());
    for (int i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c != '\\' || i + 1 >= text.size()) {
            out += c;
            continue;
        }
        const char n = text[++i];
        switch (n) {
        case 'n':
            out += '\n';
            break;
        case 'r':
            out += '\r';
            break;
        case 't':
            out += '\t';
            break;
        case '0':
            out += '\0';
            break;
        case '\\':
        case '"':
        case '\'':
            out += n;
            break;
        case 'x': {
            int value = 0;
            int digits = 0;
            while (digits < 2 && i + 1 < text.size() && hexValue(text[i + 1]) >= 0) {
                value = value * 16 + hexValue(text[++i]);
                ++digits;
            }
            if (digits == 0)
                out += "\\x";
            else
                out += static_cast<char>(value);
            break;
        }
        default:
            out += '\\';
            out += n;
        }
    }
    return out;
}

QStringList hexDump(const QByteArray& bytes, int maxBytes)
{
    QStringList lines;
    const int shown = std::min(bytes.size(), std::max(0, maxBytes));
    for (int offset = 0; offset < shown; offset += s_BytesPerLine) {
        QString hex;
        QString ascii;
        for (int i = 0; i < s_BytesPerLine; ++i) {
            if (offset + i < shown) {
                const auto b = static_cast<unsigned char>(bytes[offset + i]);
                hex += QStringLiteral("%1 ").arg(b, 2, 16, QLatin1Char('0'));
                ascii += (b >= 0x20 && b < 0x7F) ? QLatin1Char(static_cast<char>(b)) : QLatin1Char('.');
            } else {
                hex += QLatin1String("   ");
            }
        }
        lines << QStringLiteral("%1  %2 |%3|").arg(offset, 4, 16, QLatin1Char('0')).arg(hex, ascii);
    }
    if (shown < bytes.size())
        lines << QStringLiteral("(%1 more bytes)").arg(bytes.size() - shown);
    return lines;
}

QByteArray functionName(const QByteArray& command)
{
    const int paren = command.indexOf('(');
    return trimmed(paren < 0 ? command : command.left(paren));
}

QList<QByteArray> arguments(const QByteArray& command)
{
    QList<QByteArray> list;
    const int open = command.indexOf('(');
    if (open < 0)
        return list;
    int close = command.size();
    while (close > open + 1 && isBlank(command[close - 1]))
        --close;
    if (close > open + 1 && command[close - 1] == ')')
        --close;
    QByteArray current;
    bool inside = false;
    for (int i = open + 1; i < close; ++i) {
        const char c = command[i];
        if (inside) {
            current += c;
            if (c == '\\' && i + 1 < close)
                current += command[++i];
            else if (c == '"' && closesString(command.left(close), i))
                inside = false;
        } else if (c == '"') {
            inside = true;
            current += c;
        } else if (c == ',') {
            list << trimmed(current);
            current.clear();
        } else {
            current += c;
        }
    }
    if (!trimmed(current).isEmpty() || !list.isEmpty())
        list << trimmed(current);
    return list;
}

QByteArray quotedContent(const QByteArray& argument)
{
    if (argument.size() < 1 || argument[0] != '"')
        return QByteArray();
    const bool closed = argument.size() >= 2 && argument.endsWith('"');
    return QByteArray(argument.constData() + 1, argument.size() - (closed ? 2 : 1));
}

QList<QByteArray> scpiCommands(const QByteArray& message)
{
    QList<QByteArray> commands;
    QByteArray current;
    char quote = 0;
    for (const char c : message) {
        if (quote) {
            if (c == quote)
                quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == ';') {
            commands << trimmed(current);
            current.clear();
            continue;
        }
        current += c;
    }
    commands << trimmed(current);
    commands.removeAll(QByteArray());
    return commands;
}

QByteArray scpiHeader(const QByteArray& command)
{
    const QByteArray text = trimmed(command);
    int end = 0;
    while (end < text.size() && !isBlank(text[end]) && text[end] != '\n' && text[end] != '\r')
        ++end;
    return text.left(end);
}

bool isWriteFunction(const QByteArray& function)
{
    return function.contains("Write") || function.contains("Printf") || function.contains("Query");
}

Block findBlock(const QByteArray& bytes)
{
    Block block;
    for (int at = bytes.indexOf('#'); at >= 0 && at + 1 < bytes.size(); at = bytes.indexOf('#', at + 1)) {
        const int digits = hexValue(bytes[at + 1]);
        if (digits < 0 || digits > 9)
            continue;
        if (digits == 0) {
            block.offset = at;
            block.headerLength = 2;
            block.data = bytes.mid(at + 2);
            return block;
        }
        if (at + 2 + digits > bytes.size())
            continue;
        qint64 length = 0;
        bool numeric = true;
        for (int i = 0; i < digits && numeric; ++i) {
            const char c = bytes[at + 2 + i];
            numeric = c >= '0' && c <= '9';
            length = length * 10 + (c - '0');
        }
        if (!numeric)
            continue;
        block.offset = at;
        block.headerLength = 2 + digits;
        block.declared = length;
        const qint64 available = bytes.size() - (at + 2 + digits);
        block.data = bytes.mid(at + 2 + digits, static_cast<int>(std::min(length, available)));
        return block;
    }
    return block;
}

QStringList commandLines(const QByteArray& command)
{
    QStringList lines;
    lines << QStringLiteral("Command (%1 characters):").arg(command.size());
    lines << escapeBytes(command, false);
    const QByteArray function = functionName(command);
    if (command.indexOf('(') < 0)
        return lines;
    lines << QStringLiteral("Function: ") + QString::fromLatin1(function);
    const QList<QByteArray> args = arguments(command);
    bool firstString = true;
    for (int i = 0; i < args.size(); ++i) {
        const QByteArray content = quotedContent(args[i]);
        if (content.isNull()) {
            lines << QStringLiteral("Argument %1: %2").arg(i + 1).arg(escapeBytes(args[i], false));
            continue;
        }
        const QByteArray raw = unescapeBytes(content);
        lines << QStringLiteral("Argument %1: \"%2\" (%3 bytes)").arg(i + 1).arg(escapeBytes(raw)).arg(raw.size());
        if (firstString && isWriteFunction(function)) {
            for (const QByteArray& scpi : scpiCommands(raw))
                lines << QStringLiteral("  SCPI: ") + escapeBytes(scpi, false);
        }
        firstString = false;
        const Block block = findBlock(raw);
        if (block.offset < 0)
            continue;
        const QString header = QString::fromLatin1(raw.mid(block.offset, block.headerLength));
        if (block.declared < 0)
            lines << QStringLiteral("  Block %1: indefinite length, %2 bytes").arg(header).arg(block.data.size());
        else if (block.data.size() < block.declared)
            lines << QStringLiteral("  Block %1: %2 bytes declared, only %3 present")
                         .arg(header)
                         .arg(block.declared)
                         .arg(block.data.size());
        else
            lines << QStringLiteral("  Block %1: %2 bytes").arg(header).arg(block.declared);
        for (const QString& line : hexDump(block.data, s_MaxDumpBytes))
            lines << QStringLiteral("    ") + line;
    }
    return lines;
}

QStringList recordLines(const Entry& e)
{
    QStringList lines;
    lines << (e.kind == 0 ? QStringLiteral("Call record") : QStringLiteral("Return record (kind %1)").arg(e.kind));
    lines << QStringLiteral("Id: %1").arg(static_cast<qulonglong>(e.id));
    lines << QStringLiteral("Process: %1  Thread: %2").arg(e.pid).arg(e.threadId);
    lines << QStringLiteral("Session: %1 (%2)").arg(e.session).arg(hex32(e.session));
    lines << QStringLiteral("Address: ") + escapeBytes(addressBytes(e), false);
    lines << QStringLiteral("Timestamp: ") + timestampText(e.timestamp, e.timestampFraction);
    lines << QStringLiteral("Elapsed time: %1 s").arg(e.elapsedTime, 0, 'f', 6);
    // A call record carries no result yet; its duration and status fields mean nothing.
    if (e.kind != 0) {
        // The seconds as a plain decimal to the nanosecond: "7.3 µs (0.000007274 s)", not 7.27399993e-06.
        QString seconds = QString::number(e.duration, 'f', 9);
        while (seconds.endsWith(QLatin1Char('0')))
            seconds.chop(1);
        if (seconds.endsWith(QLatin1Char('.')))
            seconds.chop(1);
        lines << QStringLiteral("Duration: %1 (%2 s)").arg(ValueFormat::duration2string(e.duration), seconds);
        lines << QStringLiteral("Status: %1 (%2)")
                     .arg(ValueFormat::status2string(e.status))
                     .arg(hex32(static_cast<std::uint32_t>(e.status)));
    }
    const QByteArray command = commandBytes(e);
    lines << commandLines(command);
    lines << QStringLiteral("Text dump:");
    for (const QString& line : hexDump(command, s_MaxDumpBytes))
        lines << QStringLiteral("  ") + line;
    return lines;
}

QString summaryLine(const Entry* call, const Entry* ret)
{
    const Entry* any = call ? call : ret;
    if (!any)
        return QString();
    QString line = QString::fromLatin1(functionName(commandBytes(*any)));
    const QByteArray address = addressBytes(*any);
    if (!address.isEmpty())
        line += QStringLiteral(" on ") + escapeBytes(address, false);
    if (!ret)
        return line + QStringLiteral(": not returned yet");
    line += QStringLiteral(": %1 (%2) after %3")
                .arg(ValueFormat::status2string(ret->status), hex32(static_cast<std::uint32_t>(ret->status)),
                     ValueFormat::duration2string(ret->duration));
    if (!call)
        line += QStringLiteral(", its call record is no longer held");
    return line;
}

QStringList callLines(const Ring& ring, const Entry& e, QStringList* callPart, QStringList* returnPart)
{
    return callLines(e, findPartner(ring, e), callPart, returnPart);
}

QStringList callLines(const Entry& e, const Entry* partner, QStringList* callPart, QStringList* returnPart)
{
    const Entry* call = e.kind == 0 ? &e : partner;
    const Entry* ret = e.kind == 0 ? partner : &e;
    const QStringList callText = call ? recordLines(*call) : QStringList {QStringLiteral("Call record no longer held")};
    const QStringList returnText = ret ? recordLines(*ret) : QStringList {QStringLiteral("Not returned yet")};
    if (callPart)
        *callPart = callText;
    if (returnPart)
        *returnPart = returnText;
    return QStringList {summaryLine(call, ret), QString()} + callText + QStringList {QString()} + returnText;
}

const Entry* findPartner(const Ring& ring, const Entry& e)
{
    const std::uint32_t capacity = ring.numberOfElements();
    const std::uint32_t count = ring.size();
    const Entry* before = nullptr; // the newest matching call seen so far, before e
    bool seen = false;
    for (std::uint32_t n = 0; n < count && capacity > 0; ++n) {
        const Entry& other = ring((ring.begin + n) % capacity);
        if (&other == &e) {
            if (e.kind != 0)
                return before;
            seen = true;
            continue;
        }
        if (!sameCall(other, e))
            continue;
        if (e.kind == 0 && other.kind != 0 && (seen || other.reserved > e.reserved))
            return &other;
        if (e.kind != 0 && other.kind == 0 && !seen)
            before = &other;
    }
    // e itself is not held in the ring (a copy): the best match by sequence number.
    return seen ? nullptr : before;
}

} // namespace RecordDetails
