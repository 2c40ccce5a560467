#pragma once

#include "TimelineModelSource.h"

#include <QDockWidget>

class LiveTraceModel;
class QComboBox;
class QLabel;
class QSettings;
class QTableView;
class QToolButton;

namespace gui {

class FindBar;
class TimelineView;

// The timeline of a table's calls in a dock: a header row with the choice of lanes (per process and
// thread, per session, per resource address), "Follow newest", "Zoom to selection" and "Show all",
// and the timeline itself. It takes the model's rows after each display stage while it shows; a
// hidden dock costs nothing.
class TimelineDock : public QDockWidget
{
    Q_OBJECT

public:
    TimelineDock(LiveTraceModel& model, QTableView& table, FindBar& finder, QWidget* parent = nullptr);

    TimelineView& timelineView() const { return *view; }
    timeline::TimelineModelSource& source() { return calls; }

    // Whether it shows and its lanes, in the settings group the caller opened.
    void restore(QSettings& settings, bool visibleByDefault);
    void save(QSettings& settings) const;

public slots:
    // Takes the model's rows as they stand now.
    void refresh();

private:
    void setGrouping(int index);
    void updateHeader();

    timeline::TimelineModelSource calls;
    TimelineView* view;
    QComboBox* lanes;
    QToolButton* follow;
    QLabel* span;
    // The rows changed while the dock was hidden.
    bool stale = true;
};

} // namespace gui
