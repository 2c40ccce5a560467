#include "CaptureTableModel.h"

#include "RowBuilder.h"
#include "RowCells.h"
#include "RowSearch.h"
#include "ValueFormat.h"
#include "ZelcapFormat.h"

#include <QFont>
#include <QItemSelectionModel>
#include <QSaveFile>
#include <QTimer>

#include <algorithm>
#include <cstring>

namespace capture {

namespace {

constexpr std::int64_t s_BlockRows = 128;
constexpr std::size_t s_CachedBlocks = 32;

// One background task on a connection of its own; cancelled and joined when it goes.
struct JobState
{
    std::atomic<bool> cancelled {false};
    std::atomic<int> percent {0};
};

// The view's rows as the live model makes them, from the records of the file in order. The builder
// takes back at most two rows for a record (the call its return completes, then the row the
// completed call collapses with), so two rows wait here until later ones come.
struct PendingRows
{
    struct Slot
    {
        LiveTraceModel::Entry entry;
        LiveTraceModel::Row row;
        std::uint32_t fileRow;
    };
    ViewRows& out;
    Slot waiting[3] {};
    int first = 0;
    int count = 0;
    std::uint32_t currentFileRow = 0;

    bool empty() const { return count == 0; }
    LiveTraceModel::Row& last() { return waiting[(first + count - 1) % 3].row; }
    void popLast() { --count; }
    void push(LiveTraceModel::Row const& r)
    {
        if (count == 2)
            emitFirst();
        Slot& slot = waiting[(first + count) % 3];
        slot.entry = *r.entry;
        slot.row = r;
        slot.row.entry = &slot.entry;
        slot.fileRow = currentFileRow;
        ++count;
    }
    void flush()
    {
        while (count > 0)
            emitFirst();
    }
    void emitFirst()
    {
        // A row that survives is always of the record its file row holds: the call of a completed
        // row is taken back by its return, which follows it at once.
        Slot const& slot = waiting[first];
        LiveTraceModel::Row const& row = slot.row;
        std::uint32_t bits
            = static_cast<std::uint32_t>(std::min<std::uint64_t>(row.repeatCount, ViewRows::s_RepeatMask));
        if (row.displayKind == LiveTraceModel::CompletedKind)
            bits |= ViewRows::s_Completed;
        if (slot.entry.status < 0)
            bits |= ViewRows::s_Failed;
        out.rows.push_back({row.repeatCount != 0 ? row.summedDuration : slot.entry.duration, slot.fileRow, bits});
        first = (first + 1) % 3;
        --count;
    }
};

QString numbers(QList<SingleFilter> const& rules, int type)
{
    QStringList values;
    for (SingleFilter const& f : rules) {
        if (f.type == type)
            values << QString::number(f.value);
    }
    return values.join(QLatin1Char(','));
}

// What the file can leave out before the view's rows are built: only rows whose records the view
// hides whatever comes before or after them. Numbers of a call and its return are the same, so a
// rule on the process or the thread hides both; a failed call's return carries the failure.
QByteArray pushedCondition(ModelFilters const& filters, bool onlyErrors)
{
    QStringList parts;
    if (onlyErrors)
        parts << QStringLiteral("status < 0");
    const auto& rules = filters.filters;
    auto numeric = [](SingleFilter const& f, int first) {
        return f.type >= first && f.type < first + SingleFilter::AddressField;
    };
    if (filters.showOnly) {
        const bool allNumeric = std::all_of(rules.begin(), rules.end(), [&](SingleFilter const& f) {
            return !f.showonly() || numeric(f, SingleFilter::IncludeThread);
        });
        if (allNumeric) {
            QStringList any;
            const QString threads = numbers(rules, SingleFilter::IncludeThread);
            const QString pids = numbers(rules, SingleFilter::IncludeProcess);
            const QString sessions = numbers(rules, SingleFilter::IncludeSession);
            if (!threads.isEmpty())
                any << QStringLiteral("thread IN (%1)").arg(threads);
            if (!pids.isEmpty())
                any << QStringLiteral("pid IN (%1)").arg(pids);
            if (!sessions.isEmpty())
                any << QStringLiteral("session IN (%1) OR call_session IN (%1)").arg(sessions);
            parts << QLatin1Char('(') + any.join(QStringLiteral(" OR ")) + QLatin1Char(')');
        }
    } else {
        QStringList none;
        const QString threads = numbers(rules, SingleFilter::ExcludeThread);
        const QString pids = numbers(rules, SingleFilter::ExcludeProcess);
        if (!threads.isEmpty())
            none << QStringLiteral("thread IN (%1)").arg(threads);
        if (!pids.isEmpty())
            none << QStringLiteral("pid IN (%1)").arg(pids);
        if (!none.isEmpty())
            parts << QStringLiteral("NOT (") + none.join(QStringLiteral(" OR ")) + QLatin1Char(')');
    }
    return parts.join(QStringLiteral(" AND ")).toUtf8();
}

QByteArray likePattern(QByteArray const& needle)
{
    QByteArray pattern = "'%";
    for (const char c : needle) {
        if (c == '%' || c == '_' || c == '\\')
            pattern += '\\';
        pattern += c == '\'' ? QByteArray("''") : QByteArray(1, c);
    }
    return pattern + "%' ESCAPE '\\'";
}

// Rows that may match a search: for a plain ASCII text, those whose command or address hold it (as
// LIKE finds it: ASCII letters in any case, bytes as they are) or whose status is named with it.
// Every row found is checked again as the live table checks it.
QByteArray candidates(RowSearch const& search)
{
    if (!search.isPlainAscii())
        return QByteArray();
    const QByteArray like = likePattern(search.asciiNeedle());
    QByteArray where = "CAST(command AS TEXT) LIKE " + like + " OR CAST(address AS TEXT) LIKE " + like;
    QStringList matching;
    QStringList named;
    for (const int code : ValueFormat::namedStatuses()) {
        named << QString::number(code);
        if (search.matchesText(ValueFormat::status2string(code)))
            matching << QString::number(code);
    }
    if (!matching.isEmpty())
        where += " OR status IN (" + matching.join(QLatin1Char(',')).toUtf8() + ')';
    if (search.matchesText(ValueFormat::status2string(0x3FFF0001)))
        where += " OR status NOT IN (" + named.join(QLatin1Char(',')).toUtf8() + ')';
    return where;
}

// A row of the view from the file's row and, when the view's rows differ from the file's, the view's.
LiveTraceModel::Row viewRow(StoredRow const& r, ViewRows::Shown const* shown)
{
    LiveTraceModel::Row row {};
    row.entry = const_cast<LiveTraceModel::Entry*>(&r.record);
    if (!shown) {
        row.displayKind = r.shown;
        row.summedDuration = r.record.duration;
        return row;
    }
    row.displayKind = (shown->bits & ViewRows::s_Completed) ? std::uint64_t(LiveTraceModel::CompletedKind)
                                                            : std::uint64_t(r.record.kind);
    row.repeatCount = shown->bits & ViewRows::s_RepeatMask;
    row.summedDuration = shown->summedDuration;
    return row;
}

// Reports how far a pass over the file has come, now and then.
void note(JobState& job, std::int64_t done, std::int64_t total)
{
    if ((done & 0xFFF) == 0)
        job.percent = static_cast<int>(done * 100 / std::max<std::int64_t>(total, 1));
}

// Runs the search over the file's rows first to last (or back), calling matched with each view row
// that matches until it returns false.
bool searchRows(ZelcapFile& file, RowSearch const& search, ViewRows const* shownRows, QByteArray const& where,
                std::int64_t first, std::int64_t last, bool descending, JobState& job, std::int64_t total,
                std::int64_t& seen, const std::function<bool(int)>& matched)
{
    return file.scan(
        first, last,
        [&](StoredRow const& r) {
            note(job, ++seen, total);
            const int at
                = shownRows ? shownRows->rowOf(static_cast<std::uint32_t>(r.number)) : static_cast<int>(r.number - 1);
            if (at >= 0
                && search.matches(viewRow(r, shownRows ? &shownRows->rows[static_cast<std::size_t>(at)] : nullptr))
                && !matched(at))
                return false;
            return !job.cancelled.load(std::memory_order_relaxed);
        },
        where.isEmpty() ? nullptr : where.constData(), descending);
}

} // namespace

struct CaptureTableModel::Block
{
    std::vector<StoredRow> rows;
};

class CaptureTableModel::Job : public JobState
{
public:
    Job(quint64 id, QString what, std::function<void(Job&)> work)
        : id(id)
        , what(std::move(what))
        , thread([this, work = std::move(work)] { work(*this); })
    { }
    ~Job()
    {
        cancelled = true;
        thread.join();
    }
    bool goOn() const { return !cancelled.load(std::memory_order_relaxed); }

    const quint64 id;
    const QString what;

private:
    std::thread thread;
};

int ViewRows::rowOf(std::uint32_t fileRow) const
{
    const auto it = std::lower_bound(rows.begin(), rows.end(), fileRow,
                                     [](Shown const& s, std::uint32_t f) { return s.fileRow < f; });
    return it != rows.end() && it->fileRow == fileRow ? static_cast<int>(it - rows.begin()) : -1;
}

CaptureTableModel::CaptureTableModel(QObject* parent)
    : QAbstractTableModel(parent)
{
    auto* ticker = new QTimer(this);
    connect(ticker, &QTimer::timeout, this, &CaptureTableModel::reportProgress);
    ticker->start(200);
}

CaptureTableModel::~CaptureTableModel() = default;

bool CaptureTableModel::open(QString const& fileName, QString& error)
{
    beginResetModel();
    const bool opened = capture.open(fileName, error);
    path = fileName;
    fileRows = opened ? capture.rowCount() : 0;
    blocks.clear();
    view.reset();
    endResetModel();
    if (opened)
        startStatistics();
    return opened;
}

// ---- Rows and cells ----

int CaptureTableModel::rowCount(const QModelIndex& parent) const
{
    if (parent.isValid())
        return 0;
    return view ? static_cast<int>(view->rows.size()) : static_cast<int>(fileRows);
}

int CaptureTableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : LiveTraceModel::ColumnCount;
}

StoredRow const* CaptureTableModel::stored(std::int64_t fileRow) const
{
    const std::int64_t block = (fileRow - 1) / s_BlockRows;
    for (auto it = blocks.begin(); it != blocks.end(); ++it) {
        if (it->first != block)
            continue;
        if (std::next(it) != blocks.end()) {
            blocks.push_back(*it);
            blocks.erase(it);
        }
        auto const& rows = blocks.back().second->rows;
        const auto at = static_cast<std::size_t>(fileRow - 1 - block * s_BlockRows);
        return at < rows.size() && rows[at].number == fileRow ? &rows[at] : nullptr;
    }
    auto fresh = std::make_shared<Block>();
    std::vector<StoredRow> read;
    const_cast<ZelcapFile&>(capture).fetch(block * s_BlockRows + 1, (block + 1) * s_BlockRows, read);
    // A file with gaps in its numbering keeps each row at its number.
    fresh->rows.resize(s_BlockRows);
    for (StoredRow& row : read)
        fresh->rows[static_cast<std::size_t>(row.number - 1 - block * s_BlockRows)] = row;
    if (blocks.size() >= s_CachedBlocks)
        blocks.pop_front();
    blocks.emplace_back(block, fresh);
    auto const& rows = fresh->rows;
    const auto at = static_cast<std::size_t>(fileRow - 1 - block * s_BlockRows);
    return rows[at].number == fileRow ? &rows[at] : nullptr;
}

bool CaptureTableModel::rowAt(int row, Row& out) const
{
    if (row < 0 || row >= rowCount())
        return false;
    std::int64_t fileRow = row + 1;
    ViewRows::Shown const* shown = nullptr;
    if (view) {
        shown = &view->rows[static_cast<std::size_t>(row)];
        fileRow = shown->fileRow;
    }
    StoredRow const* s = stored(fileRow);
    if (!s)
        return false;
    out = viewRow(*s, shown);
    out.firstId = capture.firstIds().value(s->record.pid, s->record.id);
    return true;
}

int CaptureTableModel::rowOfFileRow(std::int64_t fileRow) const
{
    if (fileRow < 1)
        return -1;
    if (!view)
        return fileRow <= fileRows ? static_cast<int>(fileRow - 1) : -1;
    const auto it = std::lower_bound(view->rows.begin(), view->rows.end(), fileRow,
                                     [](ViewRows::Shown const& s, std::int64_t f) { return s.fileRow < f; });
    return it != view->rows.end() ? static_cast<int>(it - view->rows.begin()) : -1;
}

bool CaptureTableModel::ofCurrentCall(Row const& row) const
{
    if (!selectionModel || !selectionModel->hasSelection())
        return false;
    Row current;
    return rowAt(selectionModel->currentIndex().row(), current) && current.entry->pid == row.entry->pid
        && current.entry->id == row.entry->id;
}

QVariant CaptureTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal)
        return role == Qt::DisplayRole ? RowCells::columnTitle(section) : QVariant();
    Row row;
    if ((role != Qt::DisplayRole && role != Qt::DecorationRole) || !rowAt(section, row))
        return QVariant();
    const std::uint64_t pid = row.entry->pid, id = row.entry->id;
    if (role == Qt::DisplayRole)
        return RowCells::headerLabel(row);
    const bool current = ofCurrentCall(row);
    // ofCurrentCall may have read another block; the row is read again.
    if (!rowAt(section, row) || row.entry->pid != pid || row.entry->id != id)
        return QVariant();
    return RowCells::icon(row, current);
}

QVariant CaptureTableModel::data(const QModelIndex& index, int role) const
{
    Row row;
    if (index.column() < 0 || index.column() >= LiveTraceModel::ColumnCount || !rowAt(index.row(), row))
        return QVariant();
    switch (role) {
    case Qt::DisplayRole:
        return RowCells::text(row, index.column(), onlyStrings);
    case Qt::BackgroundRole:
        return RowCells::background(filters, *row.entry);
    case Qt::ForegroundRole:
        return RowCells::foreground(RowCells::background(filters, *row.entry));
    case Qt::FontRole:
        if (ofCurrentCall(row)) {
            QFont bold;
            bold.setWeight(QFont::Bold);
            return bold;
        }
        return QVariant();
    default:
        return QVariant();
    }
}

// ---- Options ----

void CaptureTableModel::setFilter(ModelFilters const& newFilters)
{
    filters = newFilters;
    rebuildView();
}

void CaptureTableModel::setCollapseSameCommands(bool on)
{
    if (on == collapse)
        return;
    collapse = on;
    rebuildView();
}

void CaptureTableModel::setShowOnlyStringParameters(bool only)
{
    if (only == onlyStrings)
        return;
    onlyStrings = only;
    if (rowCount() > 0)
        emit dataChanged(index(0, 0), index(rowCount() - 1, LiveTraceModel::ColumnCount - 1));
}

void CaptureTableModel::setOnlyErrors(bool only)
{
    if (only == onlyErrors)
        return;
    onlyErrors = only;
    rebuildView();
}

std::unique_ptr<CaptureTableModel::Job> CaptureTableModel::startJob(QString const& what, std::function<void(Job&)> work)
{
    static quint64 lastId = 0;
    auto job = std::make_unique<Job>(++lastId, what, std::move(work));
    reportProgress();
    return job;
}

void CaptureTableModel::reportProgress()
{
    for (Job const* job : {viewJob.get(), statisticsJob.get(), findJob.get(), countJob.get()}) {
        if (job) {
            emit progress(job->what, job->percent);
            return;
        }
    }
    for (auto const& job : exportJobs) {
        emit progress(job->what, job->percent);
        return;
    }
    emit progress(QString(), 100);
}

void CaptureTableModel::rebuildView()
{
    viewJob.reset();
    if (filters.filters.isEmpty() && !collapse && !onlyErrors) {
        beginResetModel();
        view.reset();
        endResetModel();
        return;
    }
    const QByteArray where = pushedCondition(filters, onlyErrors);
    viewJob = startJob(tr("Applying the view options"),
                       [this, where, fileName = path, rules = filters, collapseRows = collapse, errors = onlyErrors,
                        total = fileRows](Job& job) {
                           ZelcapFile file;
                           QString error;
                           auto rows = std::make_shared<ViewRows>();
                           if (!file.open(fileName, error))
                               return;
                           file.interruptOn(&job.cancelled);
                           QHash<std::uint32_t, std::uint64_t> firstIds;
                           RowBuilder builder(firstIds, collapseRows, errors);
                           PendingRows pending {*rows};
                           auto add = [&](Entry const& e) {
                               Row row {};
                               row.entry = const_cast<Entry*>(&e);
                               builder.add(pending, row,
                                           rules.isFiltered(e)          ? RowVisibility::HiddenByFilters
                                               : errors && e.status >= 0 ? RowVisibility::HiddenAsSuccess
                                                                          : RowVisibility::Shown);
                           };
                           const bool done = file.scan(
                               1, total,
                               [&](StoredRow const& r) {
                                   pending.currentFileRow = static_cast<std::uint32_t>(r.number);
                                   if (r.hasCall)
                                       add(r.call);
                                   add(r.record);
                                   note(job, r.number, total);
                                   return job.goOn();
                               },
                               where.isEmpty() ? nullptr : where.constData());
                           pending.flush();
                           if (!done || !job.goOn())
                               return;
                           QMetaObject::invokeMethod(
                               this,
                               [this, id = job.id, rows] {
                                   if (!viewJob || viewJob->id != id)
                                       return;
                                   viewJob.reset();
                                   beginResetModel();
                                   view = rows;
                                   endResetModel();
                                   reportProgress();
                               },
                               Qt::QueuedConnection);
                       });
}

// ---- What the panes and the find bar read ----

void CaptureTableModel::onRowsChanged(QObject* context, std::function<void()> changed)
{
    connect(this, &QAbstractItemModel::modelReset, context, changed);
}

bool CaptureTableModel::call(int row, Call& out)
{
    Row shown;
    if (!rowAt(row, shown))
        return false;
    out.row = shown;
    out.record = *shown.entry;
    out.row.entry = &out.record;
    StoredRow const* s = stored(rowCount() > 0 && view ? view->rows[static_cast<std::size_t>(row)].fileRow : row + 1);
    out.hasPartner = false;
    // The call a return completed is kept with it; a call record shown as completed (its return came
    // first) looks for a later return, as the live table does.
    if (s && s->hasCall && s->record.kind != 0) {
        out.partner = s->call;
        out.hasPartner = true;
    } else if (s) {
        out.hasPartner = capture.partnerOf(*s, out.partner);
    }
    return true;
}

void CaptureTableModel::find(RowSearch const* search, int from, bool forward, QObject* context,
                             std::function<void(int)> found)
{
    const int rows = rowCount();
    if (rows <= 0) {
        found(-1);
        return;
    }
    if (from < 0 || from >= rows)
        from = forward ? rows - 1 : 0;
    if (!search) {
        // Failed calls: the file's index of them, or the view's own marks.
        if (!view) {
            std::int64_t next = capture.nextFailed(from + 1, forward);
            if (next == 0)
                next = capture.nextFailed(forward ? 0 : fileRows + 1, forward);
            found(next > 0 ? static_cast<int>(next - 1) : -1);
            return;
        }
        for (int n = 1; n <= rows; ++n) {
            const int r = forward ? (from + n) % rows : (from - n + rows) % rows;
            if (view->rows[static_cast<std::size_t>(r)].bits & ViewRows::s_Failed) {
                found(r);
                return;
            }
        }
        found(-1);
        return;
    }
    if (!search->isActive()) {
        found(-1);
        return;
    }
    const std::int64_t fromFile = view ? view->rows[static_cast<std::size_t>(from)].fileRow : from + 1;
    const QByteArray where = candidates(*search);
    findJob
        = startJob(tr("Finding"),
                   [this, where, search = *search, fileName = path, shownRows = view, total = fileRows, fromFile,
                    forward, context = QPointer<QObject>(context), found](Job& job) {
                       ZelcapFile file;
                       QString error;
                       if (!file.open(fileName, error))
                           return;
                       file.interruptOn(&job.cancelled);
                       int result = -1;
                       std::int64_t seen = 0;
                       auto take = [&result](int at) {
                           result = at;
                           return false;
                       };
                       const ViewRows* shown = shownRows.get();
                       if (forward) {
                           searchRows(file, search, shown, where, fromFile + 1, total, false, job, total, seen, take);
                           if (result < 0 && job.goOn())
                               searchRows(file, search, shown, where, 1, fromFile, false, job, total, seen, take);
                       } else {
                           searchRows(file, search, shown, where, 1, fromFile - 1, true, job, total, seen, take);
                           if (result < 0 && job.goOn())
                               searchRows(file, search, shown, where, fromFile, total, true, job, total, seen, take);
                       }
                       if (!job.goOn())
                           return;
                       QMetaObject::invokeMethod(
                           this,
                           [this, id = job.id, context, found, result] {
                               if (findJob && findJob->id == id)
                                   findJob.reset();
                               reportProgress();
                               if (context)
                                   found(result);
                           },
                           Qt::QueuedConnection);
                   });
}

void CaptureTableModel::countMatches(RowSearch const& search, QObject* context, std::function<void(int)> counted)
{
    if (!search.isActive() || rowCount() == 0) {
        countJob.reset();
        counted(0);
        return;
    }
    const QByteArray where = candidates(search);
    countJob = startJob(tr("Counting matches"),
                        [this, where, search, fileName = path, shownRows = view, total = fileRows,
                         context = QPointer<QObject>(context), counted](Job& job) {
                            ZelcapFile file;
                            QString error;
                            if (!file.open(fileName, error))
                                return;
                            file.interruptOn(&job.cancelled);
                            int count = 0;
                            std::int64_t seen = 0;
                            const bool done = searchRows(file, search, shownRows.get(), where, 1, total, false, job,
                                                         total, seen, [&count](int) {
                                                             ++count;
                                                             return true;
                                                         });
                            if (!done || !job.goOn())
                                return;
                            QMetaObject::invokeMethod(
                                this,
                                [this, id = job.id, context, counted, count] {
                                    if (!countJob || countJob->id != id)
                                        return;
                                    countJob.reset();
                                    reportProgress();
                                    if (context)
                                        counted(count);
                                },
                                Qt::QueuedConnection);
                        });
}

void CaptureTableModel::startStatistics()
{
    statisticsResult.reset();
    summaryResult.reset();
    statisticsJob = startJob(tr("Counting calls"), [this, fileName = path, total = fileRows](Job& job) {
        ZelcapFile file;
        QString error;
        if (!file.open(fileName, error))
            return;
        file.interruptOn(&job.cancelled);
        auto stats = std::make_shared<CallStatistics>();
        auto summary = std::make_shared<CaptureSummary>();
        summary->rows = total;
        const bool done = file.scan(1, total, [&](StoredRow const& r) {
            note(job, r.number, total);
            Entry const& e = r.record;
            if (r.hasCall)
                stats->count(r.call);
            stats->count(e);
            if (!summary->any) {
                Entry const& first = r.hasCall ? r.call : e;
                summary->firstSeconds = first.timestamp;
                summary->firstFraction = first.timestampFraction;
                summary->any = true;
            }
            summary->lastSeconds = e.timestamp;
            summary->lastFraction = e.timestampFraction;
            for (Entry const* part : {r.hasCall ? &r.call : nullptr, &e}) {
                if (part && part->kind != 0) {
                    ++summary->calls;
                    if (part->status < 0) {
                        ++summary->failedCalls;
                        ++summary->failuresByStatus[part->status];
                    }
                }
            }
            if (e.status < 0) {
                if (summary->firstFailedRow == 0)
                    summary->firstFailedRow = r.number;
                summary->lastFailedRow = r.number;
            }
            return job.goOn();
        });
        if (!done || !job.goOn())
            return;
        summary->rank(*stats);
        summary->facts = file.facts();
        QMetaObject::invokeMethod(
            this,
            [this, id = job.id, stats, summary] {
                if (!statisticsJob || statisticsJob->id != id)
                    return;
                statisticsJob.reset();
                statisticsResult = stats;
                summaryResult = summary;
                reportProgress();
                for (StatisticsWaiter& waiter : statisticsWaiters) {
                    if (waiter.context) {
                        *waiter.stats = *stats;
                        waiter.done();
                    }
                }
                statisticsWaiters.clear();
                emit summaryReady();
            },
            Qt::QueuedConnection);
    });
}

void CaptureTableModel::updateStatistics(CallStatistics& stats, QObject* context, std::function<void()> done)
{
    if (statisticsResult) {
        if (stats.callCount() != statisticsResult->callCount())
            stats = *statisticsResult;
        done();
        return;
    }
    statisticsWaiters.push_back({context, &stats, std::move(done)});
}

void CaptureTableModel::exportView(QString const& fileName, Format format, QObject* context,
                                   std::function<void(QString)> done)
{
    exportJobs.push_back(
        startJob(tr("Exporting"),
                 [this, fileName, format, source = path, shownRows = view, total = fileRows,
                  firstIds = capture.firstIds(), context = QPointer<QObject>(context), done](Job& job) {
                     QString error;
                     ZelcapFile file;
                     QSaveFile out(fileName);
                     if (!file.open(source, error)) {
                         // error says why
                     } else if (!out.open(QIODevice::WriteOnly)) {
                         error = QStringLiteral("Cannot write %1: %2").arg(fileName, out.errorString());
                     } else {
                         file.interruptOn(&job.cancelled);
                         CaptureWriter writer(out, format);
                         writer.begin();
                         std::size_t next = 0;
                         const bool read = file.scan(1, total, [&](StoredRow const& r) {
                             note(job, r.number, total);
                             ViewRows::Shown const* shown = nullptr;
                             if (shownRows) {
                                 if (next >= shownRows->rows.size() || shownRows->rows[next].fileRow != r.number)
                                     return job.goOn();
                                 shown = &shownRows->rows[next++];
                             }
                             Row row = viewRow(r, shown);
                             row.firstId = firstIds.value(r.record.pid, r.record.id);
                             writer.write(row);
                             return job.goOn();
                         });
                         writer.finish();
                         if (!job.goOn())
                             error = QStringLiteral("The export was cancelled.");
                         else if (!read || !writer.ok() || !out.commit())
                             error = QStringLiteral("Cannot write %1: %2").arg(fileName, out.errorString());
                     }
                     QMetaObject::invokeMethod(
                         this,
                         [this, id = job.id, context, done, error] {
                             for (auto it = exportJobs.begin(); it != exportJobs.end(); ++it) {
                                 if ((*it)->id == id) {
                                     exportJobs.erase(it);
                                     break;
                                 }
                             }
                             reportProgress();
                             if (context)
                                 done(error);
                         },
                         Qt::QueuedConnection);
                 }));
}

void CaptureSummary::rank(CallStatistics const& stats)
{
    slowest = stats.figures(CallStatistics::ByOperation);
    std::sort(slowest.begin(), slowest.end(),
              [](CallStatistics::Figures const& a, CallStatistics::Figures const& b) { return a.max > b.max; });
    if (slowest.size() > s_Top)
        slowest.resize(s_Top);
    busiest = stats.figures(CallStatistics::ByAddress);
    std::sort(busiest.begin(), busiest.end(),
              [](CallStatistics::Figures const& a, CallStatistics::Figures const& b) { return a.calls > b.calls; });
    if (busiest.size() > s_Top)
        busiest.resize(s_Top);
}

} // namespace capture
