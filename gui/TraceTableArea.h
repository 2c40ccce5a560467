#pragma once

#include <QObject>

#include <memory>

class LiveRows;
class QAbstractItemModel;
class LiveTraceModel;
class TraceRows;
class QAction;
class QMainWindow;
class QMenu;
class QSettings;
class QSignalMapper;
class QWidget;

namespace gui {

class DetailsPane;
class FindBar;
class LiveTableView;
class StatisticsPane;
class TimelineDock;

// The table of calls and all that goes with it, built once for the live window and for every capture
// window alike: the view on its model with the row header, column widths and tool tips on cut cells,
// the find bar, the timeline and the details and statistics panes docked below, the header menu that
// shows and hides columns, and the Analysis actions (find, errors, only errors, the panes). Each window places the view
// and keeps its own menus, status bar and commands, and holds the area while its model lives: the
// area takes its panes and find bar with it.
class TraceTableArea : public QObject
{
    Q_OBJECT

public:
    TraceTableArea(QMainWindow& window, LiveTableView& view, LiveTraceModel& model);
    // The same for rows held elsewhere (a capture file); a timeline shows rows held in memory only.
    TraceTableArea(QMainWindow& window, LiveTableView& view, TraceRows& rows);
    ~TraceTableArea() override;

    // Room for typical values in every column, against the width the window is about to take; on a
    // narrow window the long columns give way alike so that the Command column keeps two fifths.
    void sizeColumns(int windowWidth);
    // Find, find next and previous, next and previous error, only errors, and the two panes.
    void addAnalysisActions(QMenu& menu);
    // A header menu of the columns but the last (the Command column always shows), each checked while
    // shown; an entry is mapped to its column through mapper, whose receiver calls toggleColumn().
    std::unique_ptr<QMenu> headerMenu(QWidget* parent, QSignalMapper& mapper) const;
    void toggleColumn(int column);
    // For a window without a header menu of its own.
    void offerHeaderMenu();

    // Which panes show; a window that keeps them in the settings reads and writes them here.
    void restorePanes(QSettings& settings, bool detailsByDefault, bool statisticsByDefault);
    void savePanes(QSettings& settings) const;

    FindBar& findBar() const { return *finder; }
    DetailsPane& detailsPane() const { return *details; }
    StatisticsPane& statisticsPane() const { return *statistics; }
    // Null for rows held in a capture file.
    TimelineDock* timelinePane() const { return timeline; }
    QAction& onlyErrorsAction() const { return *onlyErrors; }

private:
    TraceTableArea(QMainWindow& window, LiveTableView& view, TraceRows& rows, LiveTraceModel* liveModel);

    QMainWindow& window;
    LiveTableView& view;
    std::unique_ptr<LiveRows> liveRows;
    TraceRows& rows;
    QAbstractItemModel& model;
    FindBar* finder;
    DetailsPane* details;
    StatisticsPane* statistics;
    TimelineDock* timeline = nullptr;
    QAction* onlyErrors;
    // Only for offerHeaderMenu().
    QSignalMapper* ownHeaderMapper = nullptr;
    std::unique_ptr<QMenu> ownHeaderMenu;
};

} // namespace gui
