#pragma once

#include "LiveTraceModel.h"
#include "Sqlite.h"

#include <QHash>
#include <QString>
#include <QStringList>

#include <atomic>
#include <cstdint>
#include <utility>
#include <vector>

namespace capture {

// One row of a capture file as it was recorded: its display kind and its record, and for a
// completed row the call record as well.
struct StoredRow
{
    std::int64_t number = 0; // from 1
    std::uint64_t shown = 0;
    LiveTraceModel::Entry record;
    bool hasCall = false;
    LiveTraceModel::Entry call;
};

// A capture file opened for reading. The file comes from outside: opening checks that it is a
// capture of a format this tool reads and says clearly what else it is; nothing read from it is
// trusted further than the checks below, and a query that runs too long can be interrupted.
// One connection per thread: a worker opens the file again.
class ZelcapFile
{
public:
    // The most rows a view shows of a file; row numbers beyond it are not asked for.
    static constexpr std::int64_t s_MaxRows = 50'000'000;

    bool open(QString const& fileName, QString& error);
    bool isOpen() const { return bool(db); }
    QString fileName() const { return name; }

    // Rows are numbered 1 to rowCount(); known at once.
    std::int64_t rowCount() const { return rows; }
    QHash<std::uint32_t, std::uint64_t> const& firstIds() const { return firstIdByPid; }
    // Name and value of every fact, in name order.
    std::vector<std::pair<QString, QString>> facts() const;
    QString fact(const char* name) const;

    // The rows first to last (from 1) that the file holds, in order; false when the file failed.
    bool fetch(std::int64_t first, std::int64_t last, std::vector<StoredRow>& out);
    // The first failed row (negative status) after the row (before it, when not forward), or 0.
    std::int64_t nextFailed(std::int64_t after, bool forward);
    // A row whose record matches pid, thread and id, nearest to the row within the window, or 0.
    bool partnerOf(StoredRow const& row, LiveTraceModel::Entry& partner);

    // Runs through rows first to last in order (last to first when descending), those only that meet
    // the SQL condition where if one is given; visit returns false to stop. False when the file
    // failed or the query was interrupted.
    bool scan(std::int64_t first, std::int64_t last, const std::function<bool(StoredRow const&)>& visit,
              const char* where = nullptr, bool descending = false);
    // A flag another thread sets to end the running query of this connection at its next step.
    void interruptOn(std::atomic<bool> const* flag) { interruptFlag = flag; }
    QString errorString() const { return sqlite::lastError(db.get()); }

    static void readRow(sqlite::Statement const& statement, StoredRow& row);

private:
    sqlite::Database db;
    sqlite::Statement fetchRows;
    sqlite::Statement failedAfter;
    sqlite::Statement failedBefore;
    QString name;
    std::int64_t rows = 0;
    QHash<std::uint32_t, std::uint64_t> firstIdByPid;
    std::atomic<bool> const* interruptFlag = nullptr;
};

} // namespace capture
