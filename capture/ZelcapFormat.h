#pragma once

#include <cstdint>

// The capture file (".zelcap"): an SQLite database that a recording fills as it goes.
//
//   calls      one row per row of the view, in order, numbered from 1 without gaps; `shown` is the
//              row's display kind (0 call, 1 return, 2 completed, else the record's own kind), the
//              other plain columns are the fields of the row's record (the return of a completed
//              call); the call_ columns hold the call record of a completed row, NULL otherwise, and
//              call_address and call_command only where they differ from the return's. Texts are
//              the record's bytes as the producer wrote them. The reserved word is not kept: in the
//              tool it is a local sequence number.
//   processes  the first id seen of each process, from which the row header counts
//   facts      name and value: host, user, start, stop, filters, the tool's version, counts
//
// Written in WAL mode in transactions of a bounded size and age, so that a recorder killed at any
// moment leaves a file that opens with everything up to its last transaction; a recording that ends
// properly turns the file back into a single file.
namespace capture::zelcap {

// "ZELC" in the database header, so that another program's database is told apart from a capture.
inline constexpr std::int32_t s_ApplicationId = 0x5A454C43;
// The format; a reader refuses a newer one with a message.
inline constexpr int s_FormatVersion = 1;

inline constexpr char s_Schema[] = R"(
CREATE TABLE facts(name TEXT PRIMARY KEY, value) WITHOUT ROWID;
CREATE TABLE processes(pid INTEGER PRIMARY KEY, first_id INTEGER NOT NULL);
CREATE TABLE calls(
    row INTEGER PRIMARY KEY, shown INTEGER NOT NULL, id INTEGER NOT NULL, pid INTEGER NOT NULL,
    thread INTEGER NOT NULL, session INTEGER NOT NULL, kind INTEGER NOT NULL, status INTEGER NOT NULL,
    duration REAL NOT NULL, seconds INTEGER NOT NULL, fraction REAL NOT NULL, elapsed REAL NOT NULL,
    address BLOB NOT NULL, command BLOB NOT NULL,
    call_kind INTEGER, call_status INTEGER, call_duration REAL, call_seconds INTEGER, call_fraction REAL,
    call_elapsed REAL, call_session INTEGER, call_address BLOB, call_command BLOB);
CREATE INDEX calls_failed ON calls(row) WHERE status < 0;
)";

// The columns a reader takes, in this order, from every row it fetches.
inline constexpr char s_RowColumns[]
    = "row, shown, id, pid, thread, session, kind, status, duration, seconds, fraction, elapsed, "
      "substr(address, 1, 132), substr(command, 1, 1024), call_kind, call_status, call_duration, call_seconds, "
      "call_fraction, call_elapsed, call_session, substr(call_address, 1, 132), substr(call_command, 1, 1024)";
enum RowColumn
{
    RowNumber,
    Shown,
    Id,
    Pid,
    Thread,
    Session,
    Kind,
    Status,
    Duration,
    Seconds,
    Fraction,
    Elapsed,
    Address,
    Command,
    CallKind,
    CallStatus,
    CallDuration,
    CallSeconds,
    CallFraction,
    CallElapsed,
    CallSession,
    CallAddress,
    CallCommand,
    RowColumnCount
};

// Names of the facts.
namespace fact {
inline constexpr char s_Version[] = "tool version";
inline constexpr char s_Host[] = "host";
inline constexpr char s_User[] = "user";
inline constexpr char s_Start[] = "start";
inline constexpr char s_Stop[] = "stop";
inline constexpr char s_PidFilter[] = "record filter pid";
inline constexpr char s_MessageFilter[] = "record filter message";
inline constexpr char s_ViewFilter[] = "view filter file";
inline constexpr char s_Source[] = "converted from";
inline constexpr char s_Rows[] = "rows";
inline constexpr char s_Dropped[] = "records dropped";
inline constexpr char s_Lost[] = "records lost";
} // namespace fact

} // namespace capture::zelcap
