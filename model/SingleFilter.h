#pragma once

#include "TraceRecord.h"

#include <QColor>
#include <QString>

#include <cstdint>
#include <string>

class QDataStream;
class QVariant;

// The texts of one record that text rules look at, decoded at most once per record however many
// rules ask for them.
class RecordTexts
{
public:
    explicit RecordTexts(ZelTracer::FullEntry const& entry)
        : entry(entry)
    { }
    QString const& address();
    QString const& command();
    // The command in case-folded form, for the case-insensitive command rules.
    QString const& foldedCommand();

private:
    ZelTracer::FullEntry const& entry;
    QString decodedAddress;
    QString decodedCommand;
    QString decodedFoldedCommand;
    bool haveAddress = false;
    bool haveCommand = false;
    bool haveFoldedCommand = false;
};

// One view filter rule: an action (highlight, include, exclude) on one record field.
class SingleFilter
{
public:
    enum Field
    {
        ThreadField,
        ProcessField,
        SessionField,
        AddressField,
        CommandField,
        FieldCount
    };
    enum Action
    {
        HighlightAction,
        IncludeAction,
        ExcludeAction,
        ActionCount
    };
    // The numbering is part of the file format: type = action * FieldCount + field.
    enum Type
    {
        HighlightThread,
        HighlightProcess,
        HighlightSession,
        HighlightAddress,
        HighlightCommand,
        IncludeThread,
        IncludeProcess,
        IncludeSession,
        IncludeAddress,
        IncludeCommand,
        ExcludeThread,
        ExcludeProcess,
        ExcludeSession,
        ExcludeAddress,
        ExcludeCommand,
        TypeCount
    };

    static bool isNumericType(std::int32_t type) { return validType(type) && (0x1CE7 >> type) & 1; }
    static bool isTextType(std::int32_t type) { return validType(type) && (0x6318 >> type) & 1; }

    // Taken unsigned before subtracting: a type near INT_MIN read from a file must not overflow.
    bool showonly() const { return static_cast<std::uint32_t>(type) - IncludeThread <= 4; }
    QString getValue() const;
    void setValue(QString const& newValue);
    std::string toString() const;
    // Whether the rule's field matches the record, whatever its action.
    bool matches(ZelTracer::FullEntry const& entry, RecordTexts& texts) const;

    void toStream(QDataStream& stream) const;
    void fromStream(QDataStream& stream);
    // A colour from outside (a settings store anyone may edit): fallback unless it is a valid
    // colour of a known colour model.
    static QColor checkedColor(QVariant const& value, QColor const& fallback);

    bool operator==(SingleFilter const& other) const
    {
        return value == other.value && text == other.text && type == other.type && color == other.color;
    }
    bool operator!=(SingleFilter const& other) const { return !(*this == other); }

    std::uint32_t value = 0;
    QString text = QStringLiteral("");
    std::int32_t type = HighlightThread;
    QColor color = QColor(Qt::cyan);

private:
    static bool validType(std::int32_t type) { return static_cast<std::uint32_t>(type) < TypeCount; }
    QString const& foldedText() const;
    static bool readColor(QDataStream& stream, QColor& color);

    // A case-folded copy of text, made once instead of folding both sides on every comparison.
    // It is valid while foldedSource still shares text's data: any change to text detaches it.
    mutable QString foldedSource;
    mutable QString folded;
};

QDataStream& operator<<(QDataStream& stream, SingleFilter const& filter);
QDataStream& operator>>(QDataStream& stream, SingleFilter& filter);
