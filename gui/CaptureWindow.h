#pragma once

#include "CaptureExport.h"
#include "CaptureReader.h"
#include "LiveTraceModel.h"

#include <QMainWindow>

#include <memory>
#include <utility>

class QLabel;
class QTableView;
class TraceApplication;

namespace gui {

class FindBar;
class LiveTableView;
class TraceTableArea;

// A capture read back from a file, in a window of its own: the same table, view filters, options,
// find, details and statistics as the live window, and nothing that traces. It has its own model,
// which is never started, so the live view and tracing go on undisturbed beside it.
class CaptureWindow : public QMainWindow
{
    Q_OBJECT

public:
    CaptureWindow(TraceApplication& app, QString const& fileName, capture::Capture const& capture,
                  QWidget* parent = nullptr);
    ~CaptureWindow() override;

    LiveTraceModel& model() { return captureModel; }
    QTableView* table() const;
    FindBar* findBar() const;

    // Reads fileName and shows it in a new window that deletes itself when closed; a file that
    // cannot be read is refused with a message box and gives null.
    static CaptureWindow* open(TraceApplication& app, QString const& fileName, QWidget* parent = nullptr);
    // The whole view of model into fileName; a failure is shown in a message box.
    static bool exportView(QWidget* parent, LiveTraceModel& model, QString const& fileName, capture::Format format);
    // Asks for a file name and a format, then exports.
    static void askAndExport(QWidget* parent, LiveTraceModel& model);
    // The file and format of an export: a suffix the user typed wins over the filter chosen.
    static std::pair<QString, capture::Format> exportTarget(QString name, QString const& selectedFilter);
    // Asks for a capture file, then opens it.
    static void askAndOpen(TraceApplication& app, QWidget* parent);

    static QString fileDialogFilters();

    // A capture longer than a view is shown a part at a time: the part from record from on (0-based),
    // and then, if asked, the first failed call in it made current.
    bool showPart(std::uint64_t from, bool toFirstError = false);
    std::uint64_t partStart() const { return first; }

private:
    void setupMenus();
    void updateStatus();

    LiveTraceModel captureModel;
    QString fileName;
    QString note;
    std::uint64_t total;
    std::uint64_t first;
    std::int64_t firstError;
    QList<QAction*> partActions;
    LiveTableView* view;
    std::unique_ptr<TraceTableArea> area;
    QLabel* statusLabel;
};

} // namespace gui
