#include "FollowNewest.h"

#include <QAbstractItemView>
#include <QKeyEvent>
#include <QScrollBar>
#include <QToolButton>

namespace gui {

FollowNewest::FollowNewest(QAbstractItemView& view)
    : QObject(&view)
    , view(view)
    , button(new QToolButton(&view))
{
    button->setObjectName(QStringLiteral("followNewestButton"));
    button->setText(tr("Follow newest"));
    button->setToolTip(tr("Scroll to the newest calls again as they arrive (End)"));
    button->setToolButtonStyle(Qt::ToolButtonTextOnly);
    button->setAutoRaise(false);
    button->hide();
    connect(button, &QToolButton::clicked, this, &FollowNewest::resume);
    view.installEventFilter(this);
    view.viewport()->installEventFilter(this);
}

void FollowNewest::rowChosen()
{
    pause();
}

void FollowNewest::pauseWhenShown(QWidget& widget)
{
    widget.installEventFilter(this);
}

void FollowNewest::setScrolling(bool on)
{
    scrolling = on;
    button->setVisible(scrolling && paused);
    place();
}

void FollowNewest::pause()
{
    paused = true;
    button->setVisible(scrolling);
    place();
    button->raise();
}

void FollowNewest::resume()
{
    paused = false;
    button->hide();
    emit resumed();
}

// Over the bottom right corner of the rows, clear of the scroll bar.
void FollowNewest::place()
{
    const QSize size = button->sizeHint();
    const QWidget* rows = view.viewport();
    const QPoint corner = rows->geometry().bottomRight();
    button->setGeometry(corner.x() - size.width() - 8, corner.y() - size.height() - 8, size.width(), size.height());
}

bool FollowNewest::eventFilter(QObject* watched, QEvent* event)
{
    switch (event->type()) {
    case QEvent::MouseButtonPress:
        if (watched == view.viewport())
            pause();
        break;
    case QEvent::KeyPress: {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (watched != &view)
            break;
        // End goes to the newest rows, and stays there as they come (the table would only go to the
        // last column of the current row).
        if (key == Qt::Key_End) {
            resume();
            return true;
        }
        if (key == Qt::Key_Up || key == Qt::Key_Down || key == Qt::Key_PageUp || key == Qt::Key_PageDown
            || key == Qt::Key_Home)
            pause();
        break;
    }
    case QEvent::Show:
        if (watched != button && watched != &view && watched != view.viewport())
            pause();
        break;
    case QEvent::Resize:
        place();
        break;
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}

} // namespace gui
