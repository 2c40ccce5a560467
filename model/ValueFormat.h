#pragma once

#include <QString>

// How record fields read in the live view and the export. Pure functions; the live model offers
// them as its static members.
namespace ValueFormat {

// Local wall-clock time with milliseconds. The fraction is rounded on its own and never carries
// into the seconds (0.9996 shows as .000), which is accepted.
QString timestamp2string(const long& seconds, const double& fraction);
QString duration2string(double seconds);
// The VISA name of a status code, translated in the context "LiveTraceModel".
QString status2string(int status);
// The command text reduced to its string arguments.
QString filterStrings(const QString& command);

} // namespace ValueFormat
