#include "ValueFormat.h"

#include <QCoreApplication>
#include <QTextCodec>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <iterator>

namespace ValueFormat {

QString timestamp2string(const long& seconds, const double& fraction)
{
    const std::time_t t = seconds;
    std::tm local {};
    char buffer[16] = {};
    if (localtime_r(&t, &local))
        std::strftime(buffer, sizeof buffer, "%H:%M:%S", &local);
    const QString millis = QStringLiteral("%1").arg(fraction, 0, 'f', 3).right(3);
    return QString::fromLatin1(buffer) + QLatin1Char('.') + millis;
}

QString duration2string(double d)
{
    if (d > 1.0)
        return QStringLiteral("%1 s").arg(d, 0, 'f', 3);
    if (d > 0.001)
        return QStringLiteral("%1 ms").arg(d * 1000, 0, 'f', 3);
    if (d > 0.000001)
        return QString::fromUtf8("%1 \xC2\xB5s").arg(d * 1000000, 0, 'f', 1);
    return QStringLiteral("%1 ns").arg(d * 1000000000, 0, 'f', 0);
}

namespace {

struct StatusName
{
    std::uint32_t code;
    const char* name;
};

// Sorted by code, for a binary search.
const StatusName s_StatusNames[] = {
    {0x00000000, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_SUCCESS")},
    {0x3FFF0002, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_SUCCESS_EVENT_EN")},
    {0x3FFF0003, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_SUCCESS_EVENT_DIS")},
    {0x3FFF0004, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_SUCCESS_QUEUE_EMPTY")},
    {0x3FFF0005, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_SUCCESS_TERM_CHAR")},
    {0x3FFF0006, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_SUCCESS_MAX_CNT")},
    {0x3FFF000C, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_WARN_QUEUE_OVERFLOW")},
    {0x3FFF0077, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_WARN_CONFIG_NLOADED")},
    {0x3FFF007D, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_SUCCESS_DEV_NPRESENT")},
    {0x3FFF007E, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_SUCCESS_TRIG_MAPPED")},
    {0x3FFF0080, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_SUCCESS_QUEUE_NEMPTY")},
    {0x3FFF0082, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_WARN_NULL_OBJECT")},
    {0x3FFF0084, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_WARN_NSUP_ATTR_STATE")},
    {0x3FFF0085, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_WARN_UNKNOWN_STATUS")},
    {0x3FFF0088, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_WARN_NSUP_BUF")},
    {0x3FFF0098, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_SUCCESS_NCHAIN")},
    {0x3FFF0099, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_SUCCESS_NESTED_SHARED")},
    {0x3FFF009A, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_SUCCESS_NESTED_EXCLUSIVE")},
    {0x3FFF009B, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_SUCCESS_SYNC")},
    {0x3FFF00A9, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_WARN_EXT_FUNC_NIMPL")},
    {0xBFFF0000, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_SYSTEM_ERROR")},
    {0xBFFF000E, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_OBJECT")},
    {0xBFFF000F, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_RSRC_LOCKED")},
    {0xBFFF0010, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_EXPR")},
    {0xBFFF0011, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_RSRC_NFOUND")},
    {0xBFFF0012, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_RSRC_NAME")},
    {0xBFFF0013, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_ACC_MODE")},
    {0xBFFF0015, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_TMO")},
    {0xBFFF0016, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_CLOSING_FAILED")},
    {0xBFFF001B, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_DEGREE")},
    {0xBFFF001C, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_JOB_ID")},
    {0xBFFF001D, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_NSUP_ATTR")},
    {0xBFFF001E, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_NSUP_ATTR_STATE")},
    {0xBFFF001F, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_ATTR_READONLY")},
    {0xBFFF0020, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_LOCK_TYPE")},
    {0xBFFF0021, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_ACCESS_KEY")},
    {0xBFFF0026, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_EVENT")},
    {0xBFFF0027, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_MECH")},
    {0xBFFF0028, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_HNDLR_NINSTALLED")},
    {0xBFFF0029, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_HNDLR_REF")},
    {0xBFFF002A, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_CONTEXT")},
    {0xBFFF002F, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_NENABLED")},
    {0xBFFF0030, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_ABORT")},
    {0xBFFF0034, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_RAW_WR_PROT_VIOL")},
    {0xBFFF0035, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_RAW_RD_PROT_VIOL")},
    {0xBFFF0036, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_OUTP_PROT_VIOL")},
    {0xBFFF0037, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INP_PROT_VIOL")},
    {0xBFFF0038, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_BERR")},
    {0xBFFF0039, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_IN_PROGRESS")},
    {0xBFFF003A, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_SETUP")},
    {0xBFFF003B, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_QUEUE_ERROR")},
    {0xBFFF003C, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_ALLOC")},
    {0xBFFF003D, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_MASK")},
    {0xBFFF003E, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_IO")},
    {0xBFFF003F, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_FMT")},
    {0xBFFF0041, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_NSUP_FMT")},
    {0xBFFF0042, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_LINE_IN_USE")},
    {0xBFFF0046, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_NSUP_MODE")},
    {0xBFFF004A, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_SRQ_NOCCURRED")},
    {0xBFFF004E, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_SPACE")},
    {0xBFFF0051, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_OFFSET")},
    {0xBFFF0052, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_WIDTH")},
    {0xBFFF0054, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_NSUP_OFFSET")},
    {0xBFFF0055, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_NSUP_VAR_WIDTH")},
    {0xBFFF0057, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_WINDOW_NMAPPED")},
    {0xBFFF0059, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_RESP_PENDING")},
    {0xBFFF005F, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_NLISTENERS")},
    {0xBFFF0060, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_NCIC")},
    {0xBFFF0061, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_NSYS_CNTLR")},
    {0xBFFF0067, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_NSUP_OPER")},
    {0xBFFF0068, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INTR_PENDING")},
    {0xBFFF006A, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_ASRL_PARITY")},
    {0xBFFF006B, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_ASRL_FRAMING")},
    {0xBFFF006C, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_ASRL_OVERRUN")},
    {0xBFFF006E, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_TRIG_NMAPPED")},
    {0xBFFF0070, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_NSUP_ALIGN_OFFSET")},
    {0xBFFF0071, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_USER_BUF")},
    {0xBFFF0072, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_RSRC_BUSY")},
    {0xBFFF0076, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_NSUP_WIDTH")},
    {0xBFFF0078, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_PARAMETER")},
    {0xBFFF0079, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_PROT")},
    {0xBFFF007B, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_SIZE")},
    {0xBFFF0080, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_WINDOW_MAPPED")},
    {0xBFFF0081, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_NIMPL_OPER")},
    {0xBFFF0083, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_LENGTH")},
    {0xBFFF0091, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_MODE")},
    {0xBFFF009C, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_SESN_NLOCKED")},
    {0xBFFF009D, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_MEM_NSHARED")},
    {0xBFFF009E, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_LIBRARY_NFOUND")},
    {0xBFFF009F, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_NSUP_INTR")},
    {0xBFFF00A0, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INV_LINE")},
    {0xBFFF00A1, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_FILE_ACCESS")},
    {0xBFFF00A2, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_FILE_IO")},
    {0xBFFF00A3, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_NSUP_LINE")},
    {0xBFFF00A4, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_NSUP_MECH")},
    {0xBFFF00A5, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_INTF_NUM_NCONFIG")},
    {0xBFFF00A6, QT_TRANSLATE_NOOP("LiveTraceModel", "VI_ERROR_CONN_LOST")},
};
static_assert(std::size(s_StatusNames) == 97);

} // namespace

std::vector<int> namedStatuses()
{
    std::vector<int> codes;
    for (StatusName const& s : s_StatusNames)
        codes.push_back(static_cast<int>(s.code));
    return codes;
}

QString status2string(int status)
{
    const auto code = static_cast<std::uint32_t>(status);
    const auto found = std::lower_bound(std::begin(s_StatusNames), std::end(s_StatusNames), code,
                                        [](StatusName const& s, std::uint32_t c) { return s.code < c; });
    const char* name = found != std::end(s_StatusNames) && found->code == code ? found->name : "Unknown Status";
    return QCoreApplication::translate("LiveTraceModel", name);
}

namespace {

QString attributeArguments(const QString& command, QString result)
{
    const QStringList parts = command.split(QLatin1Char(','));
    if (parts.size() != 3)
        return result;
    for (int i = 1; i <= 2; ++i) {
        const QStringList pieces = parts[i].split(QLatin1Char('='));
        if (pieces.size() == 2)
            result += pieces[1];
        if (i == 1)
            result += QLatin1Char(',');
    }
    // No closing parenthesis is added: the value's own stays at its end.
    return result;
}

} // namespace

QString filterStrings(const QString& command)
{
    const int p = command.indexOf(QLatin1Char('('));
    QString result = command.left(p + 1);
    if (result.contains(QLatin1String("viSetAttribute")) || result.contains(QLatin1String("viGetAttribute")))
        return attributeArguments(command, result);

    const QChar quote = QLatin1Char('"');
    bool inside = false;
    bool first = true;
    for (int i = p + 1; i < command.size(); ++i) {
        const QChar c = command[i];
        if (c != quote || (i > 0 && command[i - 1] == QLatin1Char('\\'))) {
            if (inside)
                result += c;
            continue;
        }
        if (!inside) {
            if (!first)
                result += QLatin1Char(',');
            result += quote;
            inside = true;
        } else {
            const bool last = i + 1 == command.size();
            const QChar next = last ? QChar() : command[i + 1];
            // A quote closes the string only where an argument list could go on.
            if (last || next == QLatin1Char(',') || next == QLatin1Char(')') || next == QLatin1Char(';'))
                inside = false;
            result += quote;
        }
        first = false;
    }
    return result + QLatin1Char(')');
}

namespace {

bool isAscii(const char* bytes, std::size_t length)
{
    return std::all_of(bytes, bytes + length, [](char c) { return (static_cast<unsigned char>(c) & 0x80) == 0; });
}

// Strict UTF-8: a sequence cut at the end is not valid, and a byte-order mark is a character of the
// text like any other (QString::fromUtf8 would drop one at the start).
bool decodeUtf8(const char* bytes, std::size_t length, QString* text)
{
    static QTextCodec* const utf8 = QTextCodec::codecForName("UTF-8");
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    const QString decoded = utf8->toUnicode(bytes, static_cast<int>(length), &state);
    if (state.invalidChars != 0 || state.remainingChars != 0)
        return false;
    if (text)
        *text = decoded;
    return true;
}

} // namespace

bool isUtf8(const char* bytes, std::size_t length)
{
    return isAscii(bytes, length) || decodeUtf8(bytes, length, nullptr);
}

QString recordText(const char* bytes, std::size_t length)
{
    QString text;
    if (isAscii(bytes, length) || !decodeUtf8(bytes, length, &text))
        return QString::fromLatin1(bytes, static_cast<int>(length));
    return text;
}

} // namespace ValueFormat
