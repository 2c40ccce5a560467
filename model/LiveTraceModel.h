#pragma once

#include "LossCounter.h"
#include "ModelFilters.h"
#include "RingBuffer.h"
#include "RingBufferSharedMem.h"
#include "RowAnnouncer.h"
#include "RowVisibility.h"
#include "TraceChannelControl.h"
#include "ValueFormat.h"

#include <QAbstractTableModel>
#include <QHash>
#include <QMutex>
#include <QTimer>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <vector>

class QItemSelectionModel;
class QTableView;

// The table behind the live view. On a 50 ms timer one record travels:
//   trace segment --copySharedMemory--> channel snapshot
//   snapshot --updateSharedData--> shared ring (one ring for every running copy of the tool)
//   shared ring --updateInternalData--> localRing (numbered in the record's reserved word)
//   localRing --updateDisplayData (every 4th tick)--> displayRing: paired, filtered, collapsed rows
//   displayRing --data()--> cells
class LiveTraceModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column
    {
        IdColumn,
        TimestampColumn,
        ElapsedTimeColumn,
        PidColumn,
        ThreadColumn,
        SessionColumn,
        AddressColumn,
        DurationColumn,
        StatusColumn,
        CommandColumn,
        ColumnCount
    };
    // What the display stage made of a row, kept in the row's displayKind.
    enum DisplayKind
    {
        CallKind = 0,
        ReturnKind = 1,
        CompletedKind = 2,
        PlainKind = 3
    };

    using Entry = ZelTracer::FullEntry;
    using Row = ZelTracer::RingBufferIterator<Entry>;

    LiveTraceModel(QObject* parent, ZelTracer::TraceChannelControl& control,
                   QString sharedRingName = defaultSharedRingName());
    ~LiveTraceModel() override;

    static QString defaultSharedRingName();

    static QString timestamp2string(const long& seconds, const double& fraction)
    {
        return ValueFormat::timestamp2string(seconds, fraction);
    }
    static QString duration2string(double seconds) { return ValueFormat::duration2string(seconds); }
    static QString status2string(int status) { return ValueFormat::status2string(status); }
    static QString filterStrings(const QString& command) { return ValueFormat::filterStrings(command); }

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

    void updateSharedData();
    void updateInternalData();
    void updateDisplayData();
    void updateInternalAndDipslay();
    void refresh();
    void selectionChanged();
    void clear();
    void setPause(bool pause);
    void setCollapseSameCommands(bool collapse);
    void setShowOnlyStringParameters(bool only);
    void addFilter(const SingleFilter& filter);
    void setFilter(const ModelFilters& newFilters);
    std::set<std::uint32_t> getPids();
    bool detachSharedRingBuffer();

    bool isRunning() const { return running; }
    bool isPaused() const { return paused; }
    bool isCollapseSameCommands() const { return collapseSameCommands; }
    bool isShowOnlyStringParameters() const { return showOnlyStringParameters; }
    const ModelFilters& getFilters() const { return filters; }
    const ZelTracer::RingBufferLocalMem<Row>& getDisplayRing() const { return displayRing; }
    // The records taken so far, oldest first; each local copy carries its sequence number in reserved.
    const ZelTracer::RingBufferLocalMem<Entry>& getLocalRing() const { return localRing; }
    // The display row shown at position row, or null outside the table or when the record the row was
    // built for has been overwritten since the last display stage.
    const Row* displayRow(int row) const;
    // The record of the row at position row, under the same conditions as displayRow().
    const Entry* recordAt(int row) const;
    // The row that shows the record with this sequence number (or the first later one), -1 if none.
    int rowOfSequence(std::uint64_t sequence) const;
    // Visits every row the view shows, in order, each with its record. Records taken since the last
    // display stage may have overwritten the local slots of the oldest rows, so the rows are brought
    // up to date first: an export holds every row the view shows, never a row without its record.
    // The visitor runs under the model's lock and must not call back into a locking member.
    void forEachShownRow(const std::function<void(const Row&)>& visit);
    // The same with every collapsed row expanded into the calls it stands for, each a row of its own.
    void forEachShownCall(const std::function<void(const Row&)>& visit);

    // Records that traced processes wrote and that never arrived, since the last clear().
    const LossCounter& getLossCounter() const { return lossCounter; }

    // An option beside the pause, which otherwise starts afresh when it ends: while paused the rows on
    // screen stay as they are and capture goes on beside them; resuming shows them together with what
    // arrived, as much as the view holds. The caller then leaves the pause without clearing.
    void setKeepRecordsWhilePaused(bool keep);
    bool isKeepRecordsWhilePaused() const { return keepRecordsWhilePaused; }
    // Records of the last pause that did not fit in the view when it ended.
    std::uint64_t getRecordsNotShown() const { return recordsNotShown; }

    // Keeps only rows whose status is negative; an option beside the view filters.
    void setOnlyErrors(bool only);
    bool isOnlyErrors() const { return onlyErrors; }

    // Shows a fixed set of records instead of live ones, for a capture read back from a file. The model
    // must not have been started; at most s_MaxCaptureRecords of the newest records are kept.
    void loadRecords(const std::vector<Entry>& records);
    static constexpr std::size_t s_MaxCaptureRecords = 100000;
    // Tests ask for small shared rings; the product keeps the default.
    void setSharedRingSize(int bytes) { sharedRingSize = bytes; }

    // Milliseconds since the epoch, as the shared ring's last-update stamp counts them. The shared
    // stage decides by it whether another copy fed the ring within the last tick; tests set a clock
    // of their own so that they never race the timer.
    using Clock = std::function<qint64()>;
    void setClock(Clock newClock) { clock = std::move(newClock); }

    // Called after each internal stage that took records into the local ring (each numbered in its
    // reserved word), once the stage has released its locks. A recorder takes every record from there.
    // A plain callback, so that the model's signals and slots stay those of its public face.
    void onRecordsTaken(std::function<void()> handler) { recordsTaken = std::move(handler); }

    static constexpr int s_TimerInterval = 50;
    static constexpr int s_DefaultSharedRingSize = 0xA00000;

signals:
    void newDataCollected();

public slots:
    bool start();
    void stop();
    void timerHit();

private:
    // It announces rows, a reset and removals in the model's name.
    friend class RowAnnouncer;

    QVariant cellText(const Row& row, int column) const;
    QVariant rowIcon(const Row& row) const;
    bool isOfCurrentCall(const Row& row) const;
    RowVisibility visibility(std::uint32_t slot);
    bool fedByAnotherWithinTick(qint64 now);
    bool takeNewRecords();
    std::uint32_t findTakeStart(std::uint32_t readIndex, std::uint32_t writeIndex, std::uint32_t capacity) const;
    void takeRecord(const Entry& record);
    void appendTaken(const Entry& record);
    void releaseHeldRecords();
    void pruneFirstIds();
    void forgetVerdicts();

    QTimer timer;

public:
    QItemSelectionModel* selectionModel = nullptr;
    QTableView* tableView = nullptr;

private:
    ZelTracer::TraceChannelControl& channelControl;
    bool running = false;
    bool paused = false;
    std::uint64_t displayTick = 0;
    ModelFilters filters;
    int sharedRingSize = s_DefaultSharedRingSize;
    ZelTracer::RingBufferLocalMem<Entry> localRing;
    std::unique_ptr<ZelTracer::RingBufferSharedMem<Entry>> sharedRing;
    ZelTracer::RingBufferLocalMem<Row> displayRing;

public:
    bool errorInDisplay = false;

private:
    Entry lastTakenEntry;
    // Whether anything was taken, and where the newest taken record stood in the shared ring: a
    // producer may legally write pid 0, and records may repeat every field the ring search compares.
    bool takenAny = false;
    std::uint32_t lastTakenIndex = 0;
    // The last-update stamp this copy wrote: a ring fed last by this copy is drained on every tick.
    qint64 ownLastUpdate = 0;
    // Free slots of the trace segment when this copy last looked at it, before draining it or leaving
    // that to another copy.
    std::optional<unsigned long> segmentFreeAtLastLook;
    Clock clock;
    std::function<void()> recordsTaken;
    std::uint64_t sequenceCounter = 0;
    // The filter verdict of each local slot, kept until the filters change: 0 unknown, else its
    // RowVisibility plus 1.
    std::vector<std::uint8_t> verdicts;
    // Something changed since the last display stage (records taken, options, filters).
    bool displayStale = true;
    bool onlyErrors = false;
    bool keepRecordsWhilePaused = false;
    // Records taken during a pause that keeps them, and how many of those the held ring dropped.
    std::unique_ptr<ZelTracer::RingBufferLocalMem<Entry>> heldRing;
    std::uint64_t heldOverflow = 0;
    std::uint64_t recordsNotShown = 0;
    LossCounter lossCounter;
    // What the views were last told about the rows.
    RowAnnouncer announcer;
    QHash<std::uint32_t, std::uint64_t> firstIdByPid;
    bool collapseSameCommands = true;
    bool showOnlyStringParameters = false;
    static QMutex s_mutex;

    QString sharedRingName;
};
