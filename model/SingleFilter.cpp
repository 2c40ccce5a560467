#include "SingleFilter.h"

#include <QByteArray>
#include <QDataStream>
#include <QMetaType>
#include <QVariant>

#include <cstring>
#include <string_view>

QString const& RecordTexts::address()
{
    if (!haveAddress) {
        decodedAddress
            = QString::fromUtf8(entry.address, static_cast<int>(strnlen(entry.address, sizeof entry.address)));
        haveAddress = true;
    }
    return decodedAddress;
}

QString const& RecordTexts::command()
{
    if (!haveCommand) {
        decodedCommand = QString::fromUtf8(entry.text, static_cast<int>(strnlen(entry.text, sizeof entry.text)));
        haveCommand = true;
    }
    return decodedCommand;
}

QString const& RecordTexts::foldedCommand()
{
    if (!haveFoldedCommand) {
        decodedFoldedCommand = command().toCaseFolded();
        haveFoldedCommand = true;
    }
    return decodedFoldedCommand;
}

namespace {

std::u16string_view codeUnits(QString const& s)
{
    return {reinterpret_cast<char16_t const*>(s.utf16()), static_cast<std::size_t>(s.size())};
}

} // namespace

QString const& SingleFilter::foldedText() const
{
    if (foldedSource.constData() != text.constData() || foldedSource.size() != text.size()) {
        foldedSource = text;
        folded = text.toCaseFolded();
    }
    return folded;
}

QString SingleFilter::getValue() const
{
    if (isNumericType(type))
        return QStringLiteral("%1").arg(value, 0, 10);
    if (isTextType(type))
        return text;
    return QString();
}

void SingleFilter::setValue(QString const& newValue)
{
    if (isTextType(type)) {
        text = newValue;
    } else if (isNumericType(type)) {
        bool ok = false;
        const int parsed = newValue.toInt(&ok, 10);
        if (ok)
            value = static_cast<std::uint32_t>(parsed);
    }
}

std::string SingleFilter::toString() const
{
    if (!validType(type))
        return std::string();
    static const char* const actions[ActionCount] = {"Highlight ", "Include ", "Exclude "};
    static const char* const fields[FieldCount] = {"thread id ", "process id ", "session id ", "address ", "command "};
    std::string result = std::string(actions[type / FieldCount]) + fields[type % FieldCount];
    if (isNumericType(type))
        return result + std::to_string(value);
    return result + '"' + text.toUtf8().toStdString() + '"';
}

bool SingleFilter::matches(ZelTracer::FullEntry const& entry, RecordTexts& texts) const
{
    if (!validType(type))
        return false;
    switch (static_cast<Field>(type % FieldCount)) {
    case ThreadField:
        return value == entry.threadId;
    case ProcessField:
        return value == entry.pid;
    case SessionField:
        return value == entry.session;
    case AddressField:
        return texts.address() == text;
    case CommandField:
        // An empty text is found at position 0, so an empty command rule matches every record.
        // Both sides folded alike: the same matches as a case-insensitive search, several times faster.
        // A plain search over the code units: QString::indexOf hashes the pattern again on every
        // call, which made a set of many command rules several times slower.
        return codeUnits(texts.foldedCommand()).find(codeUnits(foldedText())) != std::u16string_view::npos;
    case FieldCount:
        break;
    }
    return false;
}

void SingleFilter::toStream(QDataStream& stream) const
{
    stream << static_cast<qint32>(value) << text << static_cast<qint32>(type) << color;
}

void SingleFilter::fromStream(QDataStream& stream)
{
    qint32 storedValue = 0;
    qint32 storedType = 0;
    stream >> storedValue >> text >> storedType;
    value = static_cast<std::uint32_t>(storedValue);
    type = storedType;
    readColor(stream, color);
}

// A colour from a file carries its own colour-model byte, and QColor stores whatever it reads
// there in its enum: a byte outside the known colour models would be undefined behaviour. So
// the 11 bytes are taken first and only a known colour model is handed to QColor; any other
// leaves the colour as it was.
bool SingleFilter::readColor(QDataStream& stream, QColor& color)
{
    if (stream.version() < QDataStream::Qt_4_0) {
        stream >> color; // the old form is a plain RGB word with no colour-model byte
        return true;
    }
    constexpr int colorBytes = 1 + 5 * 2;
    char raw[colorBytes];
    if (stream.readRawData(raw, colorBytes) != colorBytes) {
        stream.setStatus(QDataStream::ReadPastEnd);
        return false;
    }
    const auto model = static_cast<signed char>(raw[0]);
    if (model < QColor::Invalid || model > QColor::ExtendedRgb)
        return false;
    QDataStream colorStream(QByteArray::fromRawData(raw, colorBytes));
    colorStream.setVersion(stream.version());
    colorStream.setByteOrder(stream.byteOrder());
    colorStream.setFloatingPointPrecision(stream.floatingPointPrecision());
    colorStream >> color;
    return true;
}

QColor SingleFilter::checkedColor(QVariant const& value, QColor const& fallback)
{
    QColor color = fallback;
    if (value.userType() == QMetaType::QColor) {
        // Copying the stored colour out would already read its colour model; its bytes are safe.
        QByteArray bytes;
        {
            QDataStream out(&bytes, QIODevice::WriteOnly);
            QMetaType::save(out, QMetaType::QColor, value.constData());
        }
        QDataStream in(bytes);
        if (!readColor(in, color))
            return fallback;
    } else if (value.canConvert<QColor>()) {
        color = value.value<QColor>(); // a name or "#rrggbb": parsed, so always a known colour model
    }
    return color.isValid() ? color : fallback;
}

QDataStream& operator<<(QDataStream& stream, SingleFilter const& filter)
{
    filter.toStream(stream);
    return stream;
}

QDataStream& operator>>(QDataStream& stream, SingleFilter& filter)
{
    filter.fromStream(stream);
    return stream;
}
