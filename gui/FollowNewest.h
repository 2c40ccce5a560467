#pragma once

#include <QObject>

class QAbstractItemView;
class QToolButton;

namespace gui {

// Whether "Scroll to bottom" may move the view now. A row the user made current (a click, the
// keyboard, Find or the next error) is where they look: following the newest records pauses until
// they press the "Follow newest" button over the table's corner, or End. Rows made current by the
// program alone (a filter change keeping the current call) do not pause it.
class FollowNewest : public QObject
{
    Q_OBJECT

public:
    explicit FollowNewest(QAbstractItemView& view);

    bool isPaused() const { return paused; }
    // The user chose a row outside the table's own input (Find, next error).
    void rowChosen();
    // Pauses whenever the widget shows (the find bar: its matches are where the reader looks).
    void pauseWhenShown(QWidget& widget);
    // Whether the button may show at all: only while "Scroll to bottom" is on.
    void setScrolling(bool on);

signals:
    // Following resumes: the view should go to its newest row now.
    void resumed();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void pause();
    void resume();
    void place();

    QAbstractItemView& view;
    QToolButton* button;
    bool paused = false;
    bool scrolling = false;
};

} // namespace gui
