#pragma once

#include <QHash>
#include <QRegularExpression>
#include <QString>

#include "LiveTraceModel.h"

// Finds rows of the live table whose command, address or status name contain a text
// (case-insensitive) or match a regular expression, and rows of failed calls. Moves wrap around
// the table. Reads the model's rows as they stand; the caller runs it on the model's thread.
class RowSearch
{
public:
    // False (and no pattern) when the regular expression is not valid.
    bool setPattern(const QString& text, bool regularExpression);
    bool isActive() const { return active; }
    QString errorString() const { return error; }

    bool matches(const LiveTraceModel& model, int row) const;
    // The same for a row with its record, wherever it is held.
    bool matches(const LiveTraceModel::Row& row) const;
    // An ASCII text (not an expression): it is found in the bytes of a record as they are.
    bool isPlainAscii() const { return active && !regex && ascii; }
    QByteArray asciiNeedle() const { return folded; }
    // Whether one text as shown in a cell matches, for marking the cells that made a row match.
    bool matchesText(const QString& text) const;
    // The next matching row after from (before it when going back), wrapping; -1 when none.
    // A from outside the table starts at its first (last) row.
    int find(const LiveTraceModel& model, int from, bool forward) const;
    int countMatches(const LiveTraceModel& model) const;

    // The same moves over rows whose call failed (negative status).
    static int findError(const LiveTraceModel& model, int from, bool forward);

private:
    template<class Pred> static int step(const LiveTraceModel& model, int from, bool forward, Pred matches);
    bool containsFolded(const char* text, std::size_t length) const;

    bool active = false;
    bool regex = false;
    bool ascii = true;
    QByteArray folded; // an ASCII text, lower case
    QString needle;
    QRegularExpression expression;
    QString error;
    mutable QHash<int, bool> statusMatches; // per status code, whether its name matches
};
