#pragma once

#include "ExternalEvents.h"

#include <QColor>
#include <QMainWindow>
#include <QModelIndex>

#include <cstdint>
#include <memory>

class QLabel;
class QMenu;
class QSignalMapper;
class QAction;
class TraceApplication;
class Ui_MainWindow;

namespace gui {

class RecordFilterIndicator;
class TraceWarning;

// The tool's only window: the live table, the log-file row, menus, tool bar and status bar. It owns
// no trace data; every command goes to the application or to its model.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    MainWindow(QWidget* parent, TraceApplication& app);
    ~MainWindow() override;

    static QString getDefaultSaveFilename();

protected:
    void closeEvent(QCloseEvent* event) override;

private slots:
    void tracingChanged();
    void startFileTracing();
    void pauseChanged(bool checked);
    void collapsedCommandChanged(bool checked);
    void onlyStringParametersChanged(bool checked);
    void changeFileName(bool);
    void showFilterDialog();
    void showViewFilterDialog();
    void selectionChanged(QModelIndex const& current, QModelIndex const& previous);
    void saveBufferToFile();
    void tablePopupMenu(QPoint pos);
    void headerPopupMenu(QPoint pos);
    void popupmenuTriggered(int i);
    void headerpopupmenuTriggered(int i);
    void doubleClickedListView(QModelIndex const& index);
    void newDataCollected();
    void scrollToggled(bool checked);
    void viewLogFile();
    void delLogFile();
    void logFileeditingFinished();

private:
    void setupUi();
    void setupConnections();
    void updateStatusBar();
    void updateMenuItemsStatus();
    void restoreWindowSettings();
    void saveWindowSettings() const;
    void applyCommandLine();
    // Details, find, errors and statistics beside the window's fixed parts; one place for their wiring.
    void setupAnalysis();
    // Export, Open capture and About, beside the fixed actions of the form.
    void setupCaptureActions();
    void setupKeys();
    void saveAnalysisSettings() const;
    // The log name as it goes into the header: absolute, its folders without symbolic links.
    static QString resolvedLogFile(QString const& name);

    std::unique_ptr<Ui_MainWindow> ui;
    TraceApplication& app;
    std::unique_ptr<QLabel> statusLabel;
    std::unique_ptr<QSignalMapper> tableMenuMapper;
    std::unique_ptr<QSignalMapper> headerMenuMapper;
    QColor defaultFilterColor;
    std::uint64_t filterColorIndex;
    bool scrollToBottom;
    ExternalEvents externalEvents;
    std::unique_ptr<QMenu> tableMenu;
    std::unique_ptr<QMenu> headerMenu;
    // Menus beside the fixed ones: analysis and capture actions after "View", then help.
    QMenu* analysisMenu = nullptr;
    class LossIndicator* lossIndicator = nullptr;
    QMenu* helpMenu = nullptr;
    std::unique_ptr<class TraceTableArea> area;
    std::unique_ptr<class FollowNewest> follow;
    QAction* keepWhilePaused = nullptr;
    RecordFilterIndicator* recordFilterIndicator = nullptr;
    TraceWarning* traceWarning = nullptr;
    // The log file the user chose in this window (typed, picked, restored from the user's settings or
    // given on the command line: every text of the file name field but the header's), resolved. The
    // field also shows names that another program wrote into the header; the tool writes its header
    // only into the chosen one.
    QString chosenLogFile;
};

} // namespace gui
