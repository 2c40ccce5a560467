#include "LiveTraceModel.h"

#include "RowBuilder.h"
#include "RowCells.h"
#include "ZelVersion.h"

#include <QDateTime>
#include <QFont>
#include <QItemSelectionModel>
#include <QMutexLocker>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>

QMutex LiveTraceModel::s_mutex;

namespace {

constexpr int s_InitialRecordCapacity = 10000;
constexpr int s_InitialRowCapacity = 100;

// Holds the shared ring's cross-process lock for one batch of operations. The wait is bounded by one
// tick: a lock that another process keeps skips the batch instead of freezing the window, and the
// ring's semaphore repairs itself when it stays taken (RingSemaphore).
class SharedRingLocker
{
public:
    explicit SharedRingLocker(ZelTracer::RingBufferSharedMem<ZelTracer::FullEntry>& ring)
        : ring(ring)
        , locked(ring.lockWithin())
    { }
    ~SharedRingLocker()
    {
        if (locked)
            ring.unlock();
    }
    bool isLocked() const { return locked; }

private:
    ZelTracer::RingBufferSharedMem<ZelTracer::FullEntry>& ring;
    bool locked;
};

std::uint32_t previous(std::uint32_t index, std::uint32_t capacity)
{
    return index == 0 ? capacity - 1 : index - 1;
}

// The display ring as the row builder fills it.
struct DisplayRows
{
    ZelTracer::RingBufferLocalMem<LiveTraceModel::Row>& ring;

    bool empty() const { return ring.empty(); }
    LiveTraceModel::Row& last() { return ring(previous(ring.end, ring.numberOfElements())); }
    void popLast() { ring.pop_back(); }
    void push(LiveTraceModel::Row const& row) { ring.push_back(row); }
};

bool sameRecord(const ZelTracer::FullEntry& a, const ZelTracer::FullEntry& b)
{
    return a.kind == b.kind && a.id == b.id && a.pid == b.pid && a.timestamp == b.timestamp;
}

// Every field but the reserved word, which only the local copies carry, and the text up to its end:
// two calls of different threads may share kind, id, pid and timestamp, and then the thread or the
// text tells them apart.
bool identicalRecord(const ZelTracer::FullEntry& a, const ZelTracer::FullEntry& b)
{
    constexpr std::size_t afterReserved = offsetof(ZelTracer::FullEntry, reserved) + sizeof a.reserved;
    constexpr std::size_t text = offsetof(ZelTracer::FullEntry, text);
    const char* x = reinterpret_cast<const char*>(&a);
    const char* y = reinterpret_cast<const char*>(&b);
    return sameRecord(a, b) && std::memcmp(x, y, offsetof(ZelTracer::FullEntry, reserved)) == 0
        && std::memcmp(x + afterReserved, y + afterReserved, text - afterReserved) == 0
        && std::strncmp(a.text, b.text, sizeof a.text) == 0;
}

// Wall-clock milliseconds of another process may lie anywhere: differences saturate instead of overflowing.
qint64 saturatedDifference(qint64 a, qint64 b)
{
    qint64 result = 0;
    if (__builtin_sub_overflow(a, b, &result))
        return b < 0 ? std::numeric_limits<qint64>::max() : std::numeric_limits<qint64>::min();
    return result;
}

// A map of first ids grows with every new pid; beyond this many it keeps only the pids still in the ring.
constexpr int s_MaxRememberedPids = 4096;

} // namespace

LiveTraceModel::LiveTraceModel(QObject* parent, ZelTracer::TraceChannelControl& control, QString sharedRingName)
    : QAbstractTableModel(parent)
    , channelControl(control)
    , localRing(s_InitialRecordCapacity)
    , displayRing(s_InitialRowCapacity)
    , verdicts(s_InitialRecordCapacity, 0)
    , announcer(*this)
    , sharedRingName(std::move(sharedRingName))
{
    clock = &QDateTime::currentMSecsSinceEpoch;
    std::memset(&lastTakenEntry, 0, sizeof lastTakenEntry);
    updateInternalData();
    timer.setInterval(s_TimerInterval);
    connect(&timer, &QTimer::timeout, this, &LiveTraceModel::timerHit);
}

LiveTraceModel::~LiveTraceModel() = default;

QString LiveTraceModel::defaultSharedRingName()
{
    return QStringLiteral("ZelTraceTool%1_0").arg(QLatin1String(ZelTracer::s_VersionString));
}

// ---- Capture ----

bool LiveTraceModel::start()
{
    try {
        sharedRing.reset();
        sharedRing = std::make_unique<ZelTracer::RingBufferSharedMem<Entry>>(sharedRingName, sharedRingSize);
        const std::uint32_t capacity = sharedRing->numberOfElements();
        localRing.reset(capacity);
        verdicts.assign(localRing.numberOfElements(), 0);
        displayRing.reset(capacity);
        announcer.resetNext();
        announcer.announce(displayRing);
        announcer.reserve(capacity);
        refresh();
        firstIdByPid.clear();
        displayStale = true;
        if (channelControl.tracingActive()) {
            displayTick = 0;
            running = true;
            timer.start();
        }
        return true;
    } catch (const std::bad_alloc&) {
        running = false;
        timer.stop();
        return false;
    }
}

void LiveTraceModel::stop()
{
    // The next tick still drains what arrived, then stops the timer and leaves the shared ring.
    running = false;
}

void LiveTraceModel::timerHit()
{
    updateSharedData();
    if (!paused) {
        updateInternalData();
        if (displayTick == 0)
            updateDisplayData();
        displayTick = (displayTick + 1) & 3;
    } else if (keepRecordsWhilePaused) {
        updateInternalData(); // into the held records: the rows on screen stay as they are
    }
    if (!running) {
        timer.stop();
        sharedRing.reset();
    }
}

// Moves what the channel copied out of the trace segment into the shared ring. Only one copy of
// the tool does this per tick: the copy that fed it last, or whoever finds it older than one tick.
void LiveTraceModel::updateSharedData()
{
    QMutexLocker locker(&s_mutex);
    if (!sharedRing)
        return;
    SharedRingLocker ringLocker(*sharedRing);
    if (!ringLocker.isLocked())
        return;
    const qint64 now = clock();
    sharedRing->readHeader();
    if (fedByAnotherWithinTick(now))
        return;

    // Right after this drain the segment is empty: nothing seen later can prove another drain.
    segmentFreeAtLastLook = std::numeric_limits<unsigned long>::max();
    channelControl.copySharedMemory(true);
    if (channelControl.countCopy() == 0)
        return;

    // Start behind the newest record the shared ring already holds, if the snapshot has it. The
    // lookup matches four fields only; a new record of another thread can share them, so the match
    // must be the very record.
    const ZelTracer::BufferEntryIterator end = channelControl.end();
    ZelTracer::BufferEntryIterator it = channelControl.begin();
    if (!sharedRing->empty()) {
        const Entry& newest = (*sharedRing)(previous(sharedRing->end, sharedRing->numberOfElements()));
        const ZelTracer::BufferEntryIterator found
            = channelControl.find(newest.id, newest.pid, newest.kind, newest.timestamp);
        if (found != end && *found && identicalRecord(**found, newest)) {
            it = found;
            ++it;
        }
    }
    for (; it != end; ++it) {
        if (const Entry* e = *it)
            sharedRing->push_back(*e);
    }

    sharedRing->readHeader();
    sharedRing->lastUpdate = clock();
    ownLastUpdate = sharedRing->lastUpdate;
    sharedRing->writeHeader();
}

// With one copy of the tool its own stamp is always 49-50 ms old at the next tick; a plain age test
// would skip every other tick and halve the drain rate. A stamp in the future or far in the past (a
// wall-clock step, suspend and resume, a hostile writer) counts as stale, so capture never stops.
//
// Any local user can write the stamp, and one who kept it fresh without draining would stop every
// tool from taking records. So a fresh stamp of another copy is believed only while the segment
// shows that someone really drains it: on this copy's first look, and then only while it has more
// free slots at each look than at the one before (producers only fill it; a drain empties it). Once
// this copy has drained the segment itself it keeps draining on every tick: two copies that both do
// so lose nothing, since each pushes what it took behind the ring's newest record.
bool LiveTraceModel::fedByAnotherWithinTick(qint64 now)
{
    if (sharedRing->lastUpdate == ownLastUpdate)
        return false;
    const qint64 age = saturatedDifference(now, sharedRing->lastUpdate);
    if (age < 0 || age > static_cast<qint64>(timer.interval()))
        return false;
    const unsigned long free = channelControl.freeEntries();
    const bool believed = !segmentFreeAtLastLook || free > *segmentFreeAtLastLook;
    segmentFreeAtLastLook = free;
    return believed;
}

// Copies the records that are new in the shared ring into the local ring and numbers them.
// Where the new records begin is remembered as a position and checked against a copy of the whole
// record there: the four identifying fields alone can repeat, and a pid of 0 is a legal pid.
void LiveTraceModel::updateInternalData()
{
    // Announced once both locks are released: a recorder writes to disk from there, and the shared
    // ring's lock holds every other copy of the tool.
    if (takeNewRecords() && recordsTaken)
        recordsTaken();
}

bool LiveTraceModel::takeNewRecords()
{
    QMutexLocker locker(&s_mutex);
    if (!sharedRing)
        return false;
    SharedRingLocker ringLocker(*sharedRing);
    if (!ringLocker.isLocked())
        return false;
    sharedRing->readHeader();
    const std::uint32_t capacity = sharedRing->numberOfElements();
    if (capacity == 0)
        return false;
    const std::uint32_t readIndex = sharedRing->begin;
    std::uint32_t writeIndex = sharedRing->end;
    std::uint32_t start = findTakeStart(readIndex, writeIndex, capacity);

    // A batch in which the view filters hide every record is left for the next tick; the very first
    // batch is taken as it is.
    bool anyShown = !takenAny;
    for (std::uint32_t i = start; i != writeIndex && !anyShown; i = (i + 1) % capacity)
        anyShown = !filters.isFiltered((*sharedRing)(i));
    if (!anyShown || localRing.numberOfElements() == 0)
        return false;

    bool took = false;
    // Bounded by the capacity even if another copy of the tool keeps moving the write index.
    for (std::uint32_t copied = 0; start != writeIndex && copied < capacity; ++copied) {
        takeRecord((*sharedRing)(start));
        took = true;
        lastTakenIndex = start;
        start = (start + 1) % capacity;
        sharedRing->readHeader();
        writeIndex = sharedRing->end;
    }
    return took;
}

std::uint32_t LiveTraceModel::findTakeStart(std::uint32_t readIndex, std::uint32_t writeIndex,
                                            std::uint32_t capacity) const
{
    if (!takenAny)
        return readIndex;
    const auto holds = [&](std::uint32_t i) {
        return (readIndex <= writeIndex) ? (i >= readIndex && i < writeIndex) : (i >= readIndex || i < writeIndex);
    };
    if (lastTakenIndex < capacity && holds(lastTakenIndex)
        && identicalRecord((*sharedRing)(lastTakenIndex), lastTakenEntry))
        return (lastTakenIndex + 1) % capacity;
    // The ring turned or was replaced since: look for the record among those still there, oldest first.
    for (std::uint32_t i = readIndex; i != writeIndex; i = (i + 1) % capacity) {
        if (identicalRecord((*sharedRing)(i), lastTakenEntry))
            return (i + 1) % capacity;
    }
    return readIndex;
}

void LiveTraceModel::takeRecord(const Entry& record)
{
    // The producer's own numbering, before the local copy carries the model's.
    lossCounter.add(record.pid, record.reserved);
    lastTakenEntry = record;
    takenAny = true;
    if (paused && keepRecordsWhilePaused) {
        // The rows on screen keep their records; what arrives waits beside them.
        if (!heldRing)
            heldRing = std::make_unique<ZelTracer::RingBufferLocalMem<Entry>>(localRing.numberOfElements());
        if (heldRing->size() + 1 >= heldRing->numberOfElements())
            ++heldOverflow;
        heldRing->push_back(record);
        return;
    }
    appendTaken(record);
}

void LiveTraceModel::appendTaken(const Entry& record)
{
    const std::uint32_t localCapacity = localRing.numberOfElements();
    localRing.push_back(record);
    const std::uint32_t slot = previous(localRing.end, localCapacity);
    localRing(slot).reserved = ++sequenceCounter;
    if (slot < verdicts.size())
        verdicts[slot] = 0;
    displayStale = true;
}

// Rebuilds every row from the local ring: pairs calls with their returns, drops what the view
// filters hide and collapses repeats. Bounded by the ring's capacity, every fourth tick; a stage with
// nothing taken and nothing changed since the last one does no work, and a record's filter verdict is
// kept until the filters change.
void LiveTraceModel::updateDisplayData()
{
    QMutexLocker locker(&s_mutex);
    const std::uint32_t rowCapacity = displayRing.numberOfElements();
    auto lastRow = [this, rowCapacity]() -> Row& { return displayRing(previous(displayRing.end, rowCapacity)); };
    const bool wasEmpty = displayRing.empty();
    if (!wasEmpty && !displayStale)
        return;
    // What the view was last told about, not what the old rows point at: their slots may hold newer
    // records by now.
    const std::uint64_t lastSequence = announcer.lastSequence();

    displayRing.clear();
    errorInDisplay = false;
    displayStale = false;
    pruneFirstIds();
    const std::uint32_t capacity = localRing.numberOfElements();
    const std::uint32_t count = localRing.size();
    RowBuilder builder(firstIdByPid, collapseSameCommands, onlyErrors);
    DisplayRows rows {displayRing};
    for (std::uint32_t n = 0; n < count && rowCapacity > 0; ++n) {
        const std::uint32_t slot = (localRing.begin + n) % capacity;
        Entry& e = localRing(slot);
        Row row {};
        row.begin = localRing.begin;
        row.end = localRing.end;
        row.capacity = capacity;
        row.current = slot;
        row.ring = &localRing;
        row.entry = &e;
        if (builder.add(rows, row, visibility(slot)) && e.status < 0)
            errorInDisplay = true;
    }

    // Rows are told to the view here and nowhere else, once per stage that changed them.
    announcer.announce(displayRing);
    if (!displayRing.empty() && !wasEmpty && lastRow().entry->reserved == lastSequence)
        return;
    refresh();
    emit newDataCollected();
}

RowVisibility LiveTraceModel::visibility(std::uint32_t slot)
{
    const Entry& e = localRing(slot);
    const auto verdict = [this, &e] {
        if (filters.isFiltered(e))
            return RowVisibility::HiddenByFilters;
        return onlyErrors && e.status >= 0 ? RowVisibility::HiddenAsSuccess : RowVisibility::Shown;
    };
    if (slot >= verdicts.size())
        return verdict();
    std::uint8_t& known = verdicts[slot];
    if (known == 0)
        known = static_cast<std::uint8_t>(static_cast<int>(verdict()) + 1);
    return static_cast<RowVisibility>(known - 1);
}

void LiveTraceModel::forgetVerdicts()
{
    std::fill(verdicts.begin(), verdicts.end(), 0);
    displayStale = true;
    announcer.resetNext();
}

// Bounded memory whatever pids arrive: past the limit only the pids still in the ring are kept.
void LiveTraceModel::pruneFirstIds()
{
    if (firstIdByPid.size() <= s_MaxRememberedPids)
        return;
    QHash<std::uint32_t, std::uint64_t> kept;
    const std::uint32_t capacity = localRing.numberOfElements();
    for (std::uint32_t i = localRing.begin; i != localRing.end; i = (i + 1) % capacity) {
        const std::uint32_t pid = localRing(i).pid;
        const auto it = firstIdByPid.constFind(pid);
        if (it != firstIdByPid.constEnd())
            kept.insert(pid, it.value());
    }
    firstIdByPid.swap(kept);
}

void LiveTraceModel::updateInternalAndDipslay()
{
    updateInternalData();
    updateDisplayData();
}

void LiveTraceModel::clear()
{
    localRing.clear();
    displayRing.clear();
    firstIdByPid.clear();
    sequenceCounter = 0;
    lossCounter.clear();
    heldRing.reset();
    heldOverflow = 0;
    displayStale = true;
    // Numbering starts again, so the rows the view knows can no longer be matched by their numbers.
    announcer.invalidate();
    // Only what arrives from now on is taken; the shared ring stays, the other copies use it.
    if (sharedRing) {
        // Read unlocked if another process keeps the lock: the newest record is wanted either way.
        SharedRingLocker ringLocker(*sharedRing);
        sharedRing->readHeader();
        if (!sharedRing->empty()) {
            lastTakenIndex = previous(sharedRing->end, sharedRing->numberOfElements());
            lastTakenEntry = (*sharedRing)(lastTakenIndex);
            takenAny = true;
        }
    }
}

void LiveTraceModel::setOnlyErrors(bool only)
{
    if (only == onlyErrors)
        return;
    onlyErrors = only;
    forgetVerdicts();
    displayRing.clear();
    updateDisplayData();
    refresh();
}

void LiveTraceModel::loadRecords(const std::vector<Entry>& records)
{
    const std::size_t count = std::min(records.size(), s_MaxCaptureRecords);
    const auto capacity = static_cast<std::uint32_t>(count + 1);
    localRing.reset(capacity);
    verdicts.assign(localRing.numberOfElements(), 0);
    displayRing.reset(capacity);
    clear();
    for (auto it = records.end() - static_cast<std::ptrdiff_t>(count); it != records.end(); ++it)
        takeRecord(*it);
    updateDisplayData();
}

void LiveTraceModel::setPause(bool pause)
{
    if (paused && !pause)
        releaseHeldRecords();
    paused = pause;
    displayTick = 0;
}

void LiveTraceModel::setKeepRecordsWhilePaused(bool keep)
{
    keepRecordsWhilePaused = keep;
    if (!keep)
        releaseHeldRecords();
}

// What arrived during the pause joins the rows the view held, as much as the view holds; the number
// that did not fit is kept for the window to say.
void LiveTraceModel::releaseHeldRecords()
{
    recordsNotShown = 0;
    if (!heldRing)
        return;
    const std::uint64_t kept = localRing.size();
    const std::uint64_t arrived = heldRing->size() + heldOverflow;
    const std::uint64_t room = localRing.numberOfElements() > 0 ? localRing.numberOfElements() - 1 : 0;
    recordsNotShown = kept + arrived > room ? kept + arrived - room : 0;
    const std::uint32_t capacity = heldRing->numberOfElements();
    for (std::uint32_t i = heldRing->begin; i != heldRing->end; i = (i + 1) % capacity)
        appendTaken((*heldRing)(i));
    heldRing.reset();
    heldOverflow = 0;
}

void LiveTraceModel::setCollapseSameCommands(bool collapse)
{
    if (collapse == collapseSameCommands)
        return;
    collapseSameCommands = collapse;
    displayStale = true;
    announcer.resetNext();
    updateDisplayData();
    refresh();
}

void LiveTraceModel::setShowOnlyStringParameters(bool only)
{
    if (only == showOnlyStringParameters)
        return;
    showOnlyStringParameters = only;
    displayStale = true;
    updateDisplayData();
    refresh();
}

void LiveTraceModel::addFilter(const SingleFilter& filter)
{
    filters.add(filter);
    forgetVerdicts();
    displayRing.clear();
    updateDisplayData();
    refresh();
}

void LiveTraceModel::setFilter(const ModelFilters& newFilters)
{
    filters = newFilters;
    forgetVerdicts();
    displayRing.clear();
    updateDisplayData();
    refresh();
}

std::set<std::uint32_t> LiveTraceModel::getPids()
{
    std::set<std::uint32_t> pids;
    QMutexLocker locker(&s_mutex);
    if (!sharedRing)
        return pids;
    SharedRingLocker ringLocker(*sharedRing);
    if (!ringLocker.isLocked())
        return pids;
    sharedRing->readHeader();
    const std::uint32_t capacity = sharedRing->numberOfElements();
    for (std::uint32_t i = sharedRing->begin; i != sharedRing->end; i = (i + 1) % capacity)
        pids.insert((*sharedRing)(i).pid);
    return pids;
}

bool LiveTraceModel::detachSharedRingBuffer()
{
    if (!sharedRing)
        return true;
    QSharedMemory& block = sharedRing->block();
    if (!block.isAttached())
        return false;
    std::uint32_t remaining = 0;
    {
        // Without the lock the kernel's count, which readHeader() takes, still says who remains.
        SharedRingLocker ringLocker(*sharedRing);
        sharedRing->readHeader();
        remaining = --sharedRing->attachCount;
        if (ringLocker.isLocked())
            sharedRing->writeHeader();
    }
    block.detach();
    // The ring is gone for this copy; its destructor finds it detached and does not count again.
    timer.stop();
    sharedRing.reset();
    return remaining > 0;
}

// ---- Notifications ----

void LiveTraceModel::selectionChanged()
{
    refresh();
}

void LiveTraceModel::refresh()
{
    // Qt tells the selection while rows are being removed; a repaint asked for then waits until the
    // view knows the new row count.
    if (announcer.putOffRefresh())
        return;
    // One past the last row and column on purpose: views repaint the whole table.
    emit dataChanged(index(0, 0), createIndex(rowCount(), columnCount()), {});
    emit headerDataChanged(Qt::Vertical, 0, rowCount());
}

int LiveTraceModel::rowOfSequence(std::uint64_t sequence) const
{
    return announcer.rowOfSequence(sequence);
}

// ---- Cells ----

// A flat table: rows have no children.
int LiveTraceModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : announcer.rowCount();
}

int LiveTraceModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

const LiveTraceModel::Row* LiveTraceModel::displayRow(int row) const
{
    const int shift = announcer.shift();
    const int position = row - shift;
    if (row < shift || row >= rowCount() || static_cast<std::uint32_t>(position) >= displayRing.size())
        return nullptr;
    const Row* shown
        = &displayRing((displayRing.begin + static_cast<std::uint32_t>(position)) % displayRing.numberOfElements());
    // The internal stage refills local slots between display stages; a row whose record was
    // overwritten shows nothing rather than another call.
    if (shown->entry->reserved != announcer.sequence(row))
        return nullptr;
    return shown;
}

void LiveTraceModel::forEachShownRow(const std::function<void(const Row&)>& visit)
{
    updateDisplayData();
    QMutexLocker locker(&s_mutex);
    const int rows = rowCount();
    for (int r = 0; r < rows; ++r) {
        if (const Row* row = displayRow(r))
            visit(*row);
    }
}

void LiveTraceModel::forEachShownCall(const std::function<void(const Row&)>& visit)
{
    updateDisplayData();
    QMutexLocker locker(&s_mutex);
    struct Calls
    {
        std::vector<Row> rows;
        bool empty() const { return rows.empty(); }
        Row& last() { return rows.back(); }
        void popLast() { rows.pop_back(); }
        void push(Row const& row) { rows.push_back(row); }
    } calls;
    calls.rows.reserve(localRing.size());
    QHash<std::uint32_t, std::uint64_t> firstIds = firstIdByPid;
    RowBuilder builder(firstIds, false, onlyErrors);
    const std::uint32_t capacity = localRing.numberOfElements();
    for (std::uint32_t n = 0; n < localRing.size(); ++n) {
        const std::uint32_t slot = (localRing.begin + n) % capacity;
        Row row {};
        row.entry = &localRing(slot);
        builder.add(calls, row, visibility(slot));
    }
    for (const Row& row : calls.rows)
        visit(row);
}

const LiveTraceModel::Entry* LiveTraceModel::recordAt(int row) const
{
    const Row* shown = displayRow(row);
    return shown ? shown->entry : nullptr;
}

QVariant LiveTraceModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal)
        return role == Qt::DisplayRole ? RowCells::columnTitle(section) : QVariant();
    const Row* row = displayRow(section);
    if (!row)
        return QVariant();
    if (role == Qt::DisplayRole)
        return RowCells::headerLabel(*row);
    if (role == Qt::DecorationRole)
        return rowIcon(*row);
    return QVariant();
}

QVariant LiveTraceModel::data(const QModelIndex& index, int role) const
{
    const Row* row = displayRow(index.row());
    if (!row || index.column() < 0 || index.column() >= ColumnCount)
        return QVariant();
    switch (role) {
    case Qt::DisplayRole:
        return cellText(*row, index.column());
    case Qt::BackgroundRole:
        return RowCells::background(filters, *row->entry);
    case Qt::FontRole:
        if (isOfCurrentCall(*row)) {
            QFont bold;
            bold.setWeight(QFont::Bold);
            return bold;
        }
        return QVariant();
    case Qt::ForegroundRole:
        return RowCells::foreground(data(index, Qt::BackgroundRole));
    default:
        return QVariant();
    }
}

QVariant LiveTraceModel::cellText(const Row& row, int column) const
{
    return RowCells::text(row, column, showOnlyStringParameters);
}

bool LiveTraceModel::isOfCurrentCall(const Row& row) const
{
    if (!selectionModel || !selectionModel->hasSelection())
        return false;
    const Row* current = displayRow(selectionModel->currentIndex().row());
    return current && current->entry->pid == row.entry->pid && current->entry->id == row.entry->id;
}

QVariant LiveTraceModel::rowIcon(const Row& row) const
{
    return RowCells::icon(row, isOfCurrentCall(row));
}
