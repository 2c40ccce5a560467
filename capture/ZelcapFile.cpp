#include "ZelcapFile.h"

#include "ZelcapFormat.h"

#include <QFile>
#include <QFileInfo>

#include <cstring>

namespace capture {

namespace {

// Far enough for any call and its return: the recorder writes a return within a few rows of its call
// unless thousands of calls of other threads came between.
constexpr std::int64_t s_PartnerWindow = 20000;

std::int64_t singleInteger(sqlite3* db, const char* sql, bool* ok = nullptr)
{
    sqlite::Statement statement;
    const bool prepared = statement.prepare(db, sql);
    const int stepped = prepared ? statement.step() : SQLITE_ERROR;
    if (ok)
        *ok = stepped == SQLITE_ROW || stepped == SQLITE_DONE;
    return stepped == SQLITE_ROW ? statement.integer(0) : 0;
}

std::string rowQuery(const char* tail)
{
    return std::string("SELECT ") + zelcap::s_RowColumns + " FROM calls " + tail;
}

} // namespace

void ZelcapFile::readRow(sqlite::Statement const& s, StoredRow& row)
{
    using namespace zelcap;
    LiveTraceModel::Entry& e = row.record;
    std::memset(&e, 0, sizeof e);
    row.number = s.integer(RowNumber);
    row.shown = static_cast<std::uint64_t>(s.integer(Shown));
    e.id = static_cast<std::uint64_t>(s.integer(Id));
    e.pid = static_cast<std::uint32_t>(s.integer(Pid));
    e.threadId = static_cast<std::uint32_t>(s.integer(Thread));
    e.session = static_cast<std::uint32_t>(s.integer(Session));
    e.kind = static_cast<std::uint32_t>(s.integer(Kind));
    e.status = static_cast<std::int32_t>(s.integer(Status));
    e.duration = s.real(Duration);
    e.timestamp = s.integer(Seconds);
    e.timestampFraction = s.real(Fraction);
    e.elapsedTime = s.real(Elapsed);
    s.copyBytes(Address, e.address);
    s.copyBytes(Command, e.text);
    row.hasCall = !s.isNull(CallKind);
    if (!row.hasCall)
        return;
    LiveTraceModel::Entry& c = row.call;
    c = e;
    c.kind = static_cast<std::uint32_t>(s.integer(CallKind));
    c.status = static_cast<std::int32_t>(s.integer(CallStatus));
    c.duration = s.real(CallDuration);
    c.timestamp = s.integer(CallSeconds);
    c.timestampFraction = s.real(CallFraction);
    c.elapsedTime = s.real(CallElapsed);
    c.session = static_cast<std::uint32_t>(s.integer(CallSession));
    if (!s.isNull(CallAddress))
        s.copyBytes(CallAddress, c.address);
    if (!s.isNull(CallCommand))
        s.copyBytes(CallCommand, c.text);
}

bool ZelcapFile::open(QString const& fileName, QString& error)
{
    db.reset();
    name = QFileInfo(fileName).fileName();
    const QString refused = QStringLiteral("%1 cannot be opened as a capture: ").arg(name);
    if (!QFileInfo(fileName).isFile()) {
        error = refused + QStringLiteral("there is no such file.");
        return false;
    }
    sqlite3* raw = nullptr;
    const QByteArray path = QFile::encodeName(fileName);
    const int opened = sqlite3_open_v2(path.constData(), &raw, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
    db.reset(raw);
    if (opened != SQLITE_OK) {
        error = refused + sqlite::lastError(raw) + QLatin1Char('.');
        db.reset();
        return false;
    }
    // A file from elsewhere may carry a schema made to do harm: no triggers or views of its own run,
    // no value is larger than a record holds, and nothing writes.
    sqlite3_db_config(raw, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(raw, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(raw, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(raw, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    sqlite3_limit(raw, SQLITE_LIMIT_LENGTH, 1 << 20);
    sqlite3_progress_handler(
        raw, 4096,
        [](void* self) -> int {
            const auto* flag = static_cast<ZelcapFile*>(self)->interruptFlag;
            return flag && flag->load(std::memory_order_relaxed) ? 1 : 0;
        },
        this);

    bool ok = false;
    const std::int64_t application = singleInteger(raw, "PRAGMA application_id", &ok);
    if (!ok) {
        error = refused + QStringLiteral("it is not a database (%1).").arg(sqlite::lastError(raw));
        db.reset();
        return false;
    }
    if (application != zelcap::s_ApplicationId) {
        error = refused + QStringLiteral("it is a database of another program, not a capture of this tool.");
        db.reset();
        return false;
    }
    const std::int64_t version = singleInteger(raw, "PRAGMA user_version");
    if (version > zelcap::s_FormatVersion || version < 1) {
        error = refused
            + QStringLiteral("it was written in capture format %1 by another version of the tool; this version "
                             "reads format %2.")
                  .arg(version)
                  .arg(zelcap::s_FormatVersion);
        db.reset();
        return false;
    }
    if (singleInteger(raw,
                      "SELECT count(*) FROM sqlite_schema WHERE type = 'table' AND name IN ('calls', "
                      "'processes', 'facts')")
            != 3
        || !fetchRows.prepare(raw, rowQuery("WHERE row BETWEEN ?1 AND ?2 ORDER BY row").c_str())
        || !failedAfter.prepare(raw, "SELECT row FROM calls WHERE status < 0 AND row > ?1 ORDER BY row LIMIT 1")
        || !failedBefore.prepare(raw,
                                 "SELECT row FROM calls WHERE status < 0 AND row < ?1 ORDER BY row DESC LIMIT 1")) {
        error = refused + QStringLiteral("its tables are not those of a capture (%1).").arg(sqlite::lastError(raw));
        db.reset();
        return false;
    }
    rows = std::clamp<std::int64_t>(singleInteger(raw, "SELECT max(row) FROM calls", &ok), 0, s_MaxRows);
    sqlite::Statement pids;
    if (!ok || !pids.prepare(raw, "SELECT pid, first_id FROM processes LIMIT 100000")) {
        error = refused + QStringLiteral("it cannot be read (%1).").arg(sqlite::lastError(raw));
        db.reset();
        return false;
    }
    firstIdByPid.clear();
    while (pids.step() == SQLITE_ROW)
        firstIdByPid.insert(static_cast<std::uint32_t>(pids.integer(0)), static_cast<std::uint64_t>(pids.integer(1)));
    return true;
}

std::vector<std::pair<QString, QString>> ZelcapFile::facts() const
{
    std::vector<std::pair<QString, QString>> list;
    sqlite::Statement statement;
    if (!db || !statement.prepare(db.get(), "SELECT name, value FROM facts ORDER BY name LIMIT 100"))
        return list;
    while (statement.step() == SQLITE_ROW)
        list.emplace_back(statement.text(0).left(200), statement.text(1).left(1000));
    return list;
}

QString ZelcapFile::fact(const char* wanted) const
{
    for (auto const& [key, value] : facts()) {
        if (key == QLatin1String(wanted))
            return value;
    }
    return QString();
}

bool ZelcapFile::fetch(std::int64_t first, std::int64_t last, std::vector<StoredRow>& out)
{
    out.clear();
    if (!db)
        return false;
    fetchRows.bind(1, first);
    fetchRows.bind(2, last);
    int stepped = SQLITE_ROW;
    while ((stepped = fetchRows.step()) == SQLITE_ROW) {
        out.emplace_back();
        readRow(fetchRows, out.back());
    }
    fetchRows.reset();
    return stepped == SQLITE_DONE;
}

std::int64_t ZelcapFile::nextFailed(std::int64_t from, bool forward)
{
    if (!db)
        return 0;
    sqlite::Statement& statement = forward ? failedAfter : failedBefore;
    statement.bind(1, from);
    const std::int64_t row = statement.step() == SQLITE_ROW ? statement.integer(0) : 0;
    statement.reset();
    return row;
}

bool ZelcapFile::partnerOf(StoredRow const& row, LiveTraceModel::Entry& partner)
{
    if (!db)
        return false;
    LiveTraceModel::Entry const& e = row.record;
    const bool isCall = e.kind == 0;
    sqlite::Statement statement;
    const std::string sql
        = rowQuery(isCall ? "WHERE row > ?1 AND row <= ?1 + ?2 AND pid = ?3 AND thread = ?4 AND id = ?5 "
                            "AND kind != 0 ORDER BY row LIMIT 1"
                          : "WHERE row < ?1 AND row >= ?1 - ?2 AND pid = ?3 AND thread = ?4 AND id = ?5 "
                            "AND kind = 0 AND shown = 0 ORDER BY row DESC LIMIT 1");
    if (!statement.prepare(db.get(), sql.c_str()))
        return false;
    statement.bind(1, row.number);
    statement.bind(2, s_PartnerWindow);
    statement.bind(3, std::int64_t(e.pid));
    statement.bind(4, std::int64_t(e.threadId));
    statement.bind(5, static_cast<std::int64_t>(e.id));
    if (statement.step() != SQLITE_ROW)
        return false;
    StoredRow found;
    readRow(statement, found);
    partner = found.record;
    return true;
}

bool ZelcapFile::scan(std::int64_t first, std::int64_t last, const std::function<bool(StoredRow const&)>& visit,
                      const char* where, bool descending)
{
    if (!db)
        return false;
    sqlite::Statement statement;
    const std::string sql = rowQuery("WHERE row BETWEEN ?1 AND ?2") + (where ? std::string(" AND (") + where + ")" : "")
        + (descending ? " ORDER BY row DESC" : " ORDER BY row");
    if (!statement.prepare(db.get(), sql.c_str()))
        return false;
    statement.bind(1, first);
    statement.bind(2, last);
    StoredRow row;
    int stepped = SQLITE_ROW;
    while ((stepped = statement.step()) == SQLITE_ROW) {
        readRow(statement, row);
        if (!visit(row))
            return true;
    }
    return stepped == SQLITE_DONE;
}

} // namespace capture
