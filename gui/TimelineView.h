#pragma once

#include "TimelineLayout.h"
#include "TimelineSource.h"
#include "TimelineViewport.h"

#include <QAbstractScrollArea>
#include <QTimer>

class QTableView;

namespace gui {

class FindBar;

// The calls of a source over time, one lane a row, linked with a table both ways: a click on a bar
// makes its row current, and the current row's bar is outlined and brought into view. The wheel
// zooms around the pointer, dragging pans; while the source is live the view follows the newest calls
// until the user zooms or pans. Geometry comes from TimelineLayout; this only paints it and reacts.
class TimelineView : public QAbstractScrollArea
{
    Q_OBJECT

public:
    // How much a live view shows while it follows on its own: everything, up to this much.
    static constexpr timeline::Nanoseconds s_FollowSpan = 10 * timeline::s_NanosecondsPerSecond;
    // How often open calls grow while nothing arrives: the display stage's pace, or as often as they
    // grow by a pixel when that is less often, but at least every s_SlowestGrowth ms.
    static constexpr int s_GrowInterval = 200;
    static constexpr int s_SlowestGrowth = 5000;

    TimelineView(timeline::TimelineSource& source, QTableView& table, FindBar& finder, QWidget* parent = nullptr);

    const timeline::TimelineLayout& layout() const { return geometry; }
    const timeline::TimelineViewport& timeView() const { return view; }
    bool isFollowing() const { return following; }
    // Where the centre of a bar is, in the coordinates of viewport().
    QPoint centreOf(const timeline::TimelineBar& bar) const;
    // The text the pointer shows over a bar.
    QString toolTipOf(const timeline::TimelineBar& bar) const;
    // Whether the timer that lets open calls grow runs.
    bool isGrowing() const { return growTimer.isActive(); }

    // Room for the axis and a few lanes.
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

public slots:
    // The source took new rows or other lanes.
    void sourceChanged();
    void setFollowing(bool follow);
    void zoomToSelection();
    void showAll();
    // One step of the timer while open calls grow; tests call it instead of waiting.
    void advance();

signals:
    void followingChanged(bool following);
    // The stretch of time shown changed.
    void viewMoved();

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    bool viewportEvent(QEvent* event) override;
    void changeEvent(QEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void measure();
    void relayout();
    void follow();
    void updateGrowth();
    // The user moved the view: it no longer follows.
    void movedByUser();
    void currentRowChanged();
    void revealLane(int lane);
    void updateScrollRange();
    void paintLanes(QPainter& painter, int firstLane, int lastLane) const;
    void paintAxis(QPainter& painter) const;
    void paintBars(QPainter& painter) const;
    void paintCurrent(QPainter& painter) const;
    int currentRow() const;

    timeline::TimelineSource& source;
    QTableView& table;
    FindBar& finder;
    timeline::TimelineViewport view;
    timeline::TimelineLayout geometry;
    timeline::CallList visible;
    QTimer growTimer;
    bool following = true;
    // Following with a span of its own choosing (all, up to s_FollowSpan), until the user zooms.
    bool ownSpan = true;
    // The view was put somewhere: a source that is not live is shown whole until then.
    bool placed = false;
    QPoint pressedAt;
    QPoint lastAt;
    bool dragging = false;
};

} // namespace gui
