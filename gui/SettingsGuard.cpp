#include "SettingsGuard.h"

#include <QFile>
#include <QSaveFile>
#include <QString>

#include <cctype>

namespace gui {

namespace {

// The value as Qt reads it: quotes dropped and escapes decoded (\xHH..., \0, \a..\v, and a
// backslash before any other character standing for that character), so that an escaped '@'
// cannot slip past the test below.
QString unescaped(QByteArray const& raw)
{
    QString out;
    for (int i = 0; i < raw.size(); ++i) {
        const char c = raw[i];
        if (c == '"')
            continue;
        if (c != '\\' || i + 1 >= raw.size()) {
            out += QLatin1Char(c);
            continue;
        }
        const char e = raw[++i];
        if (e == 'x') {
            uint code = 0;
            while (i + 1 < raw.size() && isxdigit(static_cast<unsigned char>(raw[i + 1])))
                code = ((code << 4) | static_cast<uint>(QByteArray(1, raw[++i]).toUInt(nullptr, 16))) & 0xFFFF;
            out += QChar(static_cast<ushort>(code));
        } else if (e >= '0' && e <= '7') {
            uint code = static_cast<uint>(e - '0');
            while (i + 1 < raw.size() && raw[i + 1] >= '0' && raw[i + 1] <= '7')
                code = ((code << 3) | static_cast<uint>(raw[++i] - '0')) & 0xFFFF;
            out += QChar(static_cast<ushort>(code));
        } else {
            out += QLatin1Char(e);
        }
    }
    return out;
}

// A colour as Qt writes it: the type number of QColor (67) in four big-endian bytes, then eleven
// bytes whose decoding cannot allocate.
bool isColorVariant(QString const& value)
{
    return value.startsWith(QLatin1String("@Variant(")) && value.size() > 13 && value[9].unicode() == 0
        && value[10].unicode() == 0 && value[11].unicode() == 0 && value[12].unicode() == 67;
}

} // namespace

void dropForeignVariants(QString const& fileName)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly))
        return;
    QByteArray kept;
    bool dropped = false;
    while (!file.atEnd()) {
        QByteArray entry = file.readLine(1 << 20);
        // A value may go on over the next line after a trailing backslash.
        while (entry.trimmed().endsWith('\\') && !file.atEnd())
            entry += file.readLine(1 << 20);
        const int equals = entry.indexOf('=');
        const QString value = equals >= 0 ? unescaped(entry.mid(equals + 1).trimmed()) : QString();
        // Qt never writes an empty key, and reads one as a key of its group whose forged value it
        // decodes all the same: such a line goes whatever it holds.
        const bool emptyKey = equals >= 0 && entry.left(equals).trimmed().isEmpty();
        if (emptyKey || (value.contains(QLatin1String("@Variant(")) && !isColorVariant(value))) {
            dropped = true;
            continue;
        }
        kept += entry;
    }
    file.close();
    if (!dropped)
        return;
    QSaveFile out(fileName);
    if (out.open(QIODevice::WriteOnly)) {
        out.write(kept);
        out.commit();
    }
}

} // namespace gui
