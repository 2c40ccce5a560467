#pragma once

#include "CaptureTableModel.h"

#include <QMainWindow>

#include <memory>

class QLabel;
class QProgressBar;
class QTableView;
class QTemporaryDir;
class TraceApplication;

namespace gui {

class CaptureSummaryPane;
class FindBar;
class LiveTableView;
class TraceTableArea;

// A capture file of any size in a window of its own: the same table, view filters, options, find,
// details and statistics as the live window, over all its rows at once, with a summary beside it.
// The table reads the rows it shows from the file; what needs every row is worked out in the
// background while the progress shows in the status bar. Live tracing goes on undisturbed.
class CaptureFileWindow : public QMainWindow
{
    Q_OBJECT

public:
    // shownName is the file the user opened (a table or log converted into fileName, kept in folder
    // while the window lives).
    CaptureFileWindow(QString const& shownName, std::shared_ptr<QTemporaryDir> folder = nullptr,
                      QWidget* parent = nullptr);
    ~CaptureFileWindow() override;

    bool open(QString const& fileName, QString& error);
    capture::CaptureTableModel& model() { return captureModel; }
    QTableView* table() const;
    FindBar* findBar() const;
    CaptureSummaryPane* summaryPane() const { return summary; }
    // Makes the row of the file (from 1) current, or the first shown after it.
    void showFileRow(std::int64_t fileRow);

    // Opens any capture the tool reads in a new window that deletes itself when closed: a capture
    // file as it is, an exported table, a saved view or a trace log converted first, in the
    // background, with a progress dialog that can be cancelled. Null (after a message) when it
    // cannot be opened or the user cancelled.
    static CaptureFileWindow* openAny(QString const& fileName, QWidget* parent = nullptr);

private:
    void setupMenus();
    void updateStatus();
    void askAndExport();

    capture::CaptureTableModel captureModel;
    QString shownName;
    std::shared_ptr<QTemporaryDir> folder;
    LiveTableView* view;
    std::unique_ptr<TraceTableArea> area;
    CaptureSummaryPane* summary;
    QLabel* statusLabel;
    QLabel* workLabel;
    QProgressBar* workBar;
};

} // namespace gui
