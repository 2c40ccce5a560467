#pragma once

#include "CallStatistics.h"
#include "CaptureExport.h"
#include "CaptureSummary.h"
#include "ModelFilters.h"
#include "TraceRows.h"
#include "ZelcapFile.h"

#include <QAbstractTableModel>
#include <QHash>
#include <QPointer>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

class QItemSelectionModel;

namespace capture {

// The rows of the view when view filters, collapsing or only errors make them others than the file's.
struct ViewRows
{
    struct Shown
    {
        double summedDuration;
        std::uint32_t fileRow;
        // The repeat count below, then whether the row is a completed call and whether it failed.
        std::uint32_t bits;
    };
    static constexpr std::uint32_t s_RepeatMask = (1u << 29) - 1;
    static constexpr std::uint32_t s_Completed = 1u << 29;
    static constexpr std::uint32_t s_Failed = 1u << 30;
    std::vector<Shown> rows;
    // The view row showing a file row, or -1.
    int rowOf(std::uint32_t fileRow) const;
};

// A capture file shown whole: the same table as the live view (columns, cells, colours, row icons),
// with the row count known at once and the rows a view asks for read from the file in blocks. What
// needs all rows (view filters, collapsing, only errors, find, statistics, the summary) is worked out
// by background threads on connections of their own, with progress reported, while the table stays
// usable; their results replace the former ones in one step.
class CaptureTableModel : public QAbstractTableModel, public TraceRows
{
    Q_OBJECT

public:
    explicit CaptureTableModel(QObject* parent = nullptr);
    ~CaptureTableModel() override;

    bool open(QString const& fileName, QString& error);
    ZelcapFile& file() { return capture; }
    QString fileName() const { return path; }

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

    // The options of the live view.
    void setFilter(ModelFilters const& newFilters);
    ModelFilters const& getFilters() const { return filters; }
    void setCollapseSameCommands(bool collapse);
    bool isCollapseSameCommands() const { return collapse; }
    void setShowOnlyStringParameters(bool only);
    bool isShowOnlyStringParameters() const { return onlyStrings; }
    void setOnlyErrors(bool only) override;
    bool isOnlyErrors() const { return onlyErrors; }

    // The row at a position; its record stays valid until a few more rows have been read.
    bool rowAt(int row, Row& out) const;
    // The view row that shows a row of the file (from 1), or the first one after it; -1 if none.
    int rowOfFileRow(std::int64_t fileRow) const;
    // Whether the view's rows are still being worked out.
    bool isBusy() const { return viewJob != nullptr; }

    // Every row the view shows into a file, in the background; done gets the error, empty on success.
    void exportView(QString const& fileName, Format format, QObject* context, std::function<void(QString)> done);

    // Counted in the background from the moment the file is opened.
    CaptureSummary const* summary() const { return summaryResult.get(); }

    // TraceRows
    QAbstractItemModel& itemModel() override { return *this; }
    void onRowsChanged(QObject* context, std::function<void()> changed) override;
    int count() const override { return rowCount(); }
    bool call(int row, Call& out) override;
    void find(RowSearch const* search, int from, bool forward, QObject* context,
              std::function<void(int)> found) override;
    void countMatches(RowSearch const& search, QObject* context, std::function<void(int)> counted) override;
    void updateStatistics(CallStatistics& stats, QObject* context, std::function<void()> done) override;
    void setSelectionModel(QItemSelectionModel* selection) override { selectionModel = selection; }

signals:
    // Background work: what is being done and how far (0 to 100); an empty text when all is done.
    void progress(QString const& what, int percent);
    void summaryReady();

private:
    class Job;
    struct Block;

    StoredRow const* stored(std::int64_t fileRow) const;
    bool ofCurrentCall(Row const& row) const;
    void rebuildView();
    void startStatistics();
    std::unique_ptr<Job> startJob(QString const& what, std::function<void(Job&)> work);
    void reportProgress();

    ZelcapFile capture;
    QString path;
    std::int64_t fileRows = 0;
    ModelFilters filters;
    bool collapse = false;
    bool onlyStrings = false;
    bool onlyErrors = false;
    QItemSelectionModel* selectionModel = nullptr;
    std::shared_ptr<const ViewRows> view; // null: the file's rows as they are

    // Blocks of rows read from the file, the most recently used last.
    mutable std::deque<std::pair<std::int64_t, std::shared_ptr<Block>>> blocks;

    std::unique_ptr<Job> viewJob;
    std::unique_ptr<Job> statisticsJob;
    std::unique_ptr<Job> findJob;
    std::unique_ptr<Job> countJob;
    std::vector<std::unique_ptr<Job>> exportJobs;
    std::shared_ptr<const CallStatistics> statisticsResult;
    std::shared_ptr<const CaptureSummary> summaryResult;
    struct StatisticsWaiter
    {
        QPointer<QObject> context;
        CallStatistics* stats;
        std::function<void()> done;
    };
    std::vector<StatisticsWaiter> statisticsWaiters;
};

} // namespace capture
