#pragma once

#include "RingBuffer.h"
#include "TraceRecord.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

// Everything a user needs to read one call whole: the fields of its records, its command text taken
// apart (arguments, string arguments with their control bytes shown, SCPI commands, an IEEE 488.2
// block) and dumps. Pure functions of the records; no model state, no widgets.
namespace RecordDetails {

using Entry = ZelTracer::FullEntry;
using Ring = ZelTracer::RingBuffer<Entry>;

// The text of a record as stored: up to its NUL, at most the field's capacity.
QByteArray commandBytes(const Entry& e);
QByteArray addressBytes(const Entry& e);

// Control bytes as \n \r \t \xNN. For the content of a string (quoted), also backslash, quote and
// bytes above 0x7E, so that escapeBytes(unescapeBytes(s)) is a canonical form of s.
QString escapeBytes(const QByteArray& bytes, bool quoted = true);
// The reverse of the C-style escapes producers write into texts (\n \r \t \0 \\ \" \' \xHH).
QByteArray unescapeBytes(const QByteArray& text);

// "0000  76 69 57 ...  |viW...|", 16 bytes a line; stops after maxBytes with a note.
QStringList hexDump(const QByteArray& bytes, int maxBytes = 1024);

// The function name before the first "(", trimmed; the whole text when there is none.
QByteArray functionName(const QByteArray& command);
// The arguments between the outer parentheses, split at commas outside string arguments.
QList<QByteArray> arguments(const QByteArray& command);
// A quoted argument's content (escapes still in it), or a null array when it is not quoted.
QByteArray quotedContent(const QByteArray& argument);
// SCPI program messages split at ";" (outside quoted SCPI strings), trimmed, trailing newline gone.
QList<QByteArray> scpiCommands(const QByteArray& message);
// The header of one SCPI command: the text before its first blank ("MEAS:VOLT?", "*IDN?").
QByteArray scpiHeader(const QByteArray& command);
// Whether a function sends a message to the instrument (its first string argument is SCPI).
bool isWriteFunction(const QByteArray& function);

// An IEEE 488.2 block: "#<n><len><data>" with n digits of length, or "#0<data>" (indefinite).
struct Block
{
    int offset = -1; // of the "#" in the searched bytes; -1 when there is no block
    int headerLength = 0; // "#", the digit and the length digits
    qint64 declared = -1; // the length the header gives; -1 for an indefinite block
    QByteArray data; // what follows the header, at most the declared length
};
Block findBlock(const QByteArray& bytes);

// The lines describing one command text.
QStringList commandLines(const QByteArray& command);
// The lines describing one record: every field, then its command.
QStringList recordLines(const Entry& e);
// One line saying what a call did: function, address and, once it returned, status and duration.
QString summaryLine(const Entry* call, const Entry* ret);

// What there is to read about the call a record belongs to: a summary line, a blank line, the call
// record, a blank line, the return record (each also handed out on its own, for side by side views).
QStringList callLines(const Ring& ring, const Entry& e, QStringList* callPart = nullptr,
                      QStringList* returnPart = nullptr);
// The same with the other record of the call already found (null when it is not known).
QStringList callLines(const Entry& e, const Entry* partner, QStringList* callPart = nullptr,
                      QStringList* returnPart = nullptr);

// The other record of the same call (same pid, thread and id), searched anywhere in the ring: a
// return after its call, a call before its return. Null when it is not (or no longer) there.
const Entry* findPartner(const Ring& ring, const Entry& e);

} // namespace RecordDetails
