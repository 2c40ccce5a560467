#pragma once

#include "ModelFilters.h"
#include "RingBuffer.h"
#include "RingBufferSharedMem.h"
#include "TraceChannelControl.h"
#include "ValueFormat.h"

#include <QAbstractTableModel>
#include <QHash>
#include <QMutex>
#include <QPixmap>
#include <QTimer>

#include <cstdint>
#include <memory>
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
    // The display row shown at position row, or null outside the table.
    const Row* displayRow(int row) const;
    // Tests ask for small shared rings; the product keeps the default.
    void setSharedRingSize(int bytes) { sharedRingSize = bytes; }

    static constexpr int s_TimerInterval = 50;
    static constexpr int s_DefaultSharedRingSize = 0xA00000;

signals:
    void newDataCollected();

public slots:
    bool start();
    void stop();
    void timerHit();

private:
    QVariant cellText(const Row& row, int column) const;
    QVariant rowIcon(const Row& row) const;
    bool isOfCurrentCall(const Row& row) const;
    void announceRowChanges();

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
    std::uint64_t sequenceCounter = 0;
    QHash<std::uint32_t, std::uint64_t> firstIdByPid;
    bool collapseSameCommands = true;
    bool showOnlyStringParameters = false;
    static QMutex s_mutex;

    QString sharedRingName;
    // The sequence numbers of the rows the view was last told about, to announce what changed.
    std::vector<std::uint64_t> announcedRows;
    mutable std::vector<QPixmap> icons;
};
