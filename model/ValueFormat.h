#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstring>
#include <vector>

// How record fields read in the live view and the export. Pure functions; the live model offers
// them as its static members.
namespace ValueFormat {

// Local wall-clock time with milliseconds. The fraction is rounded on its own and never carries
// into the seconds (0.9996 shows as .000), which is accepted.
QString timestamp2string(const long& seconds, const double& fraction);
QString duration2string(double seconds);
// The VISA name of a status code, translated in the context "LiveTraceModel".
QString status2string(int status);
// The status codes that have a name of their own; every other code is "Unknown Status".
std::vector<int> namedStatuses();
// The command text reduced to its string arguments.
QString filterStrings(const QString& command);

// A text field of a record as people read it: UTF-8 where the bytes are valid UTF-8 (instruments
// send units and names in it), else each byte as Latin-1 (older instruments, binary replies). One
// decoding for the view, tool tips, details, search, exports, captures and the recorder.
QString recordText(const char* bytes, std::size_t length);
bool isUtf8(const char* bytes, std::size_t length);
// The same for a NUL-terminated field of a fixed size: the text up to its NUL.
template<std::size_t N> QString recordText(const char (&field)[N])
{
    return recordText(field, strnlen(field, N));
}

} // namespace ValueFormat
