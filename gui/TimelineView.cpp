#include "TimelineView.h"

#include "FindBar.h"
#include "LiveTraceModel.h"
#include "TimelineAxis.h"
#include "ValueFormat.h"

#include <QApplication>
#include <QHelpEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QTableView>
#include <QTextDocument>
#include <QToolTip>

#include <algorithm>
#include <cmath>

namespace gui {

using namespace timeline;

namespace {

const QColor s_CallColour(100, 149, 237);
// The light red of a failed call's row in the table.
const QColor s_ErrorColour(255, 128, 128);
const QColor s_ErrorMark(200, 0, 0);
// A command longer than this is cut in a tool tip; the details pane has it whole.
constexpr int s_ToolTipCommand = 300;
constexpr double s_ZoomStep = 1.25;

double seconds(Nanoseconds length)
{
    return static_cast<double>(length) / static_cast<double>(s_NanosecondsPerSecond);
}

} // namespace

TimelineView::TimelineView(TimelineSource& source, QTableView& table, FindBar& finder, QWidget* parent)
    : QAbstractScrollArea(parent)
    , source(source)
    , table(table)
    , finder(finder)
{
    setObjectName(QStringLiteral("timelineView"));
    setFocusPolicy(Qt::StrongFocus);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    viewport()->setAttribute(Qt::WA_OpaquePaintEvent);
    growTimer.setInterval(s_GrowInterval);
    connect(&growTimer, &QTimer::timeout, this, &TimelineView::advance);
    connect(table.selectionModel(), &QItemSelectionModel::currentChanged, this, &TimelineView::currentRowChanged);
    measure();
}

// Lanes and labels follow the font.
void TimelineView::measure()
{
    const QFontMetrics metrics(font());
    TimelineLayout::Metrics sizes;
    sizes.laneHeight = metrics.height() + 8;
    sizes.axisHeight = metrics.height() + 8;
    sizes.labelWidth = std::min(metrics.horizontalAdvance(QStringLiteral("Pid 0000000, thread 0000000")) + 16,
                                std::max(60, viewport()->width() / 3));
    geometry.setMetrics(sizes);
    view.setWidth(viewport()->width() - sizes.labelWidth);
}

QSize TimelineView::sizeHint() const
{
    const TimelineLayout::Metrics& sizes = geometry.sizes();
    return {sizes.labelWidth + 400, sizes.axisHeight + 5 * sizes.laneHeight + 2 * frameWidth()};
}

QSize TimelineView::minimumSizeHint() const
{
    const TimelineLayout::Metrics& sizes = geometry.sizes();
    return {sizes.labelWidth + 100, sizes.axisHeight + 2 * sizes.laneHeight + 2 * frameWidth()};
}

void TimelineView::relayout()
{
    visible.clear();
    source.calls(view.range(), static_cast<Nanoseconds>(std::ceil(view.pixelSize())), visible);
    geometry.place(view, visible);
    updateScrollRange();
    viewport()->update();
    emit viewMoved();
}

void TimelineView::updateScrollRange()
{
    const TimelineLayout::Metrics& sizes = geometry.sizes();
    const int shown = std::max(0, viewport()->height() - sizes.axisHeight);
    QScrollBar* bar = verticalScrollBar();
    bar->setRange(0, std::max(0, source.laneCount() * sizes.laneHeight - shown));
    bar->setPageStep(std::max(1, shown));
    bar->setSingleStep(sizes.laneHeight);
    geometry.setScroll(bar->value());
}

void TimelineView::sourceChanged()
{
    const TimeRange extent = source.extent();
    if (source.isLive()) {
        follow();
    } else if (source.laneCount() > 0 && (!placed || !view.range().overlaps(extent))) {
        // A capture, or another part of it, shown whole; a paused view whose rows changed stays.
        view.show({extent.begin - extent.length() / 50, extent.end + extent.length() / 50});
        placed = true;
    }
    relayout();
    updateGrowth();
}

void TimelineView::updateGrowth()
{
    if (!source.isGrowing() || !isVisible()) {
        growTimer.stop();
        return;
    }
    // An open call grows by a pixel at most this often: zoomed out far, the view repaints seldom.
    const double interval
        = std::clamp(view.pixelSize() / 1e6, static_cast<double>(s_GrowInterval), static_cast<double>(s_SlowestGrowth));
    // A new interval restarts a running timer: it is set only when it changes.
    if (growTimer.interval() != static_cast<int>(interval))
        growTimer.setInterval(static_cast<int>(interval));
    if (!growTimer.isActive())
        growTimer.start();
}

void TimelineView::advance()
{
    if (source.isGrowing() && isVisible()) {
        follow();
        relayout();
    }
    updateGrowth();
}

// The newest calls at the right edge, with a little room after them.
void TimelineView::follow()
{
    if (!following || source.laneCount() == 0)
        return;
    const TimeRange extent = source.extent();
    if (ownSpan)
        view.show({0, std::min(extent.length() + extent.length() / 20, s_FollowSpan)});
    view.endAt(extent.end + view.span() / 40);
    placed = true;
}

void TimelineView::setFollowing(bool follow)
{
    if (follow == following)
        return;
    following = follow;
    if (following) {
        this->follow();
        relayout();
    }
    emit followingChanged(following);
}

void TimelineView::movedByUser()
{
    placed = true;
    if (following) {
        following = false;
        emit followingChanged(false);
    }
}

int TimelineView::currentRow() const
{
    const QModelIndex current = table.currentIndex();
    return current.isValid() ? current.row() : -1;
}

void TimelineView::zoomToSelection()
{
    const std::optional<TimelineCall> call = source.callOfRow(currentRow());
    if (!call)
        return;
    const Nanoseconds margin = (call->end - call->start) / 8;
    view.show({call->start - margin, call->end + margin});
    ownSpan = false;
    movedByUser();
    revealLane(call->lane);
    relayout();
}

void TimelineView::showAll()
{
    if (source.laneCount() == 0)
        return;
    const TimeRange extent = source.extent();
    view.show({extent.begin - extent.length() / 50, extent.end + extent.length() / 50});
    ownSpan = false;
    movedByUser();
    relayout();
}

// The current row's bar comes into view; while it is in view already nothing moves.
void TimelineView::currentRowChanged()
{
    const std::optional<TimelineCall> call = source.callOfRow(currentRow());
    if (call) {
        const Nanoseconds span = view.span();
        if (view.reveal({call->start, call->end})) {
            ownSpan = ownSpan && view.span() == span;
            movedByUser();
            relayout();
        }
        revealLane(call->lane);
    }
    viewport()->update();
}

void TimelineView::revealLane(int lane)
{
    const TimelineLayout::Metrics& sizes = geometry.sizes();
    const int shown = viewport()->height() - sizes.axisHeight;
    const int top = lane * sizes.laneHeight;
    QScrollBar* bar = verticalScrollBar();
    if (top < bar->value())
        bar->setValue(top);
    else if (top + sizes.laneHeight > bar->value() + shown)
        bar->setValue(top + sizes.laneHeight - shown);
}

QPoint TimelineView::centreOf(const TimelineBar& bar) const
{
    return geometry.rectOf(bar).center().toPoint();
}

QString TimelineView::toolTipOf(const TimelineBar& bar) const
{
    const QString span = TimelineAxis::timeOfDay(bar.call.start) + QString::fromUtf8(" \xE2\x80\x93 ")
        + TimelineAxis::timeOfDay(bar.call.end);
    if (bar.call.merged) {
        QString text = tr("%n calls", nullptr, static_cast<int>(std::min<std::uint32_t>(bar.call.count, INT32_MAX)));
        if (bar.call.errors > 0)
            text += tr(", %n failed", nullptr, static_cast<int>(std::min<std::uint32_t>(bar.call.errors, INT32_MAX)));
        return text + QLatin1Char('\n') + span + QLatin1Char('\n')
            + (bar.call.errors > 0 ? tr("Zoom in to tell them apart; a click selects the first failed call.")
                                   : tr("Zoom in to tell them apart; a click selects the first call."));
    }
    const QAbstractItemModel* model = table.model();
    auto cell = [model, &bar](int column) { return model->index(bar.call.row, column).data().toString(); };
    QString command = cell(LiveTraceModel::CommandColumn);
    if (command.size() > s_ToolTipCommand)
        command = command.left(s_ToolTipCommand) + QChar(0x2026);
    const QString result = bar.call.open
        ? tr("Not returned yet, open for %1").arg(ValueFormat::duration2string(seconds(bar.call.end - bar.call.start)))
        : cell(LiveTraceModel::StatusColumn) + QStringLiteral(", ") + cell(LiveTraceModel::DurationColumn);
    return command + QLatin1Char('\n') + result + QLatin1Char('\n') + span;
}

// ---- Painting ----

void TimelineView::paintEvent(QPaintEvent*)
{
    QPainter painter(viewport());
    painter.fillRect(viewport()->rect(), palette().base());
    const TimelineLayout::Metrics& sizes = geometry.sizes();
    const int lanes = source.laneCount();
    if (lanes == 0) {
        painter.setPen(palette().color(QPalette::Disabled, QPalette::Text));
        painter.drawText(viewport()->rect(), Qt::AlignCenter, tr("No calls to show"));
        return;
    }
    const int firstLane = std::max(0, geometry.laneAt(sizes.axisHeight));
    const int lastLane = std::min(lanes - 1, geometry.laneAt(viewport()->height()));
    paintLanes(painter, firstLane, lastLane);
    painter.setClipRect(QRect(sizes.labelWidth, sizes.axisHeight, viewport()->width() - sizes.labelWidth,
                              viewport()->height() - sizes.axisHeight));
    paintBars(painter);
    paintCurrent(painter);
    painter.setClipping(false);
    paintAxis(painter);
}

void TimelineView::paintLanes(QPainter& painter, int firstLane, int lastLane) const
{
    const TimelineLayout::Metrics& sizes = geometry.sizes();
    const int width = viewport()->width();
    painter.setPen(palette().color(QPalette::Text));
    for (int lane = firstLane; lane <= lastLane; ++lane) {
        const QRect row(0, geometry.laneTop(lane), width, sizes.laneHeight);
        if (lane % 2)
            painter.fillRect(row, palette().alternateBase());
        const QRect label
            = row.adjusted(6, 0, -6, 0).intersected(QRect(0, row.top(), sizes.labelWidth - 6, row.height()));
        painter.drawText(label, Qt::AlignVCenter | Qt::AlignLeft,
                         fontMetrics().elidedText(source.laneLabel(lane), Qt::ElideMiddle, label.width()));
    }
    painter.setPen(palette().color(QPalette::Mid));
    painter.drawLine(sizes.labelWidth - 1, 0, sizes.labelWidth - 1, viewport()->height());
}

void TimelineView::paintAxis(QPainter& painter) const
{
    const TimelineLayout::Metrics& sizes = geometry.sizes();
    const QRect band(0, 0, viewport()->width(), sizes.axisHeight);
    painter.fillRect(band, palette().window());
    painter.setPen(palette().color(QPalette::Mid));
    painter.drawLine(band.bottomLeft(), band.bottomRight());
    painter.setPen(palette().color(QPalette::WindowText));
    // The time at the left edge, so that ticks labelled by their offset can be placed.
    painter.drawText(QRect(6, 0, sizes.labelWidth - 12, sizes.axisHeight), Qt::AlignVCenter | Qt::AlignLeft,
                     TimelineAxis::timeOfDay(view.start()));
    const double spacing = fontMetrics().horizontalAdvance(QStringLiteral("00:00:00.000")) + 24;
    const QColor grid = palette().color(QPalette::Midlight);
    for (const TimelineTick& tick : TimelineAxis::ticks(view, spacing)) {
        const int x = sizes.labelWidth + static_cast<int>(std::lround(tick.x));
        if (x < sizes.labelWidth)
            continue;
        painter.setPen(grid);
        painter.drawLine(x, sizes.axisHeight, x, viewport()->height());
        painter.setPen(palette().color(QPalette::WindowText));
        painter.drawLine(x, sizes.axisHeight - 5, x, sizes.axisHeight);
        // A label cut at the right edge reads as another time.
        if (x + 3 + fontMetrics().horizontalAdvance(tick.label) <= viewport()->width())
            painter.drawText(QRect(x + 3, 0, static_cast<int>(spacing), sizes.axisHeight - 2),
                             Qt::AlignVCenter | Qt::AlignLeft, tick.label);
    }
}

void TimelineView::paintBars(QPainter& painter) const
{
    const int top = geometry.sizes().axisHeight;
    const int bottom = viewport()->height();
    const QFontMetrics metrics(font());
    for (const TimelineBar& bar : geometry.bars()) {
        const QRectF rect = geometry.rectOf(bar);
        if (rect.bottom() < top || rect.top() > bottom)
            continue;
        // As in the table: a highlight wins over the error colour.
        const QColor fill = bar.call.highlighted ? QColor::fromRgba(bar.call.highlight)
            : bar.call.errors > 0                ? s_ErrorColour
                                                 : s_CallColour;
        painter.fillRect(rect, fill);
        if (rect.width() >= 4) {
            painter.setPen(fill.darker(bar.call.merged ? 200 : 150));
            painter.setBrush(Qt::NoBrush);
            painter.drawRect(rect.adjusted(0.5, 0.5, -0.5, -0.5));
        }
        if (bar.call.open) {
            // Still running: hatched, with its open end drawn as an arrow head.
            painter.fillRect(rect, QBrush(fill.darker(170), Qt::BDiagPattern));
            const double x = rect.right();
            const QPointF head[] = {{x, rect.top()}, {x + 6, rect.center().y()}, {x, rect.bottom()}};
            painter.setPen(Qt::NoPen);
            painter.setBrush(fill.darker(170));
            painter.drawPolygon(head, 3);
        }
        if (bar.call.errors > 0 && bar.call.highlighted)
            painter.fillRect(QRectF(rect.left(), rect.bottom() - 2, rect.width(), 2), s_ErrorMark);
        if (bar.call.count > 1) {
            const QString count = QString::number(bar.call.count) + QChar(0x00D7);
            if (metrics.horizontalAdvance(count) + 6 <= rect.width()) {
                painter.setPen(qGray(fill.rgb()) > 127 ? Qt::black : Qt::white);
                painter.drawText(rect, Qt::AlignCenter, count);
            }
        }
    }
}

void TimelineView::paintCurrent(QPainter& painter) const
{
    const std::optional<TimelineCall> call = source.callOfRow(currentRow());
    if (!call)
        return;
    const double limit = view.width() + 10;
    const double x0 = std::clamp(view.x(call->start), -10.0, limit);
    const double x1 = std::clamp(view.x(call->end), x0, limit);
    painter.setPen(QPen(palette().color(QPalette::Highlight), 2));
    painter.setBrush(Qt::NoBrush);
    painter.drawRect(geometry.rectOf(call->lane, x0, x1).adjusted(-2, -2, 2, 2));
}

// ---- Input ----

void TimelineView::resizeEvent(QResizeEvent* event)
{
    QAbstractScrollArea::resizeEvent(event);
    measure();
    if (source.isLive())
        follow();
    relayout();
}

void TimelineView::changeEvent(QEvent* event)
{
    QAbstractScrollArea::changeEvent(event);
    if (event->type() == QEvent::FontChange) {
        measure();
        relayout();
    }
}

void TimelineView::hideEvent(QHideEvent* event)
{
    QAbstractScrollArea::hideEvent(event);
    growTimer.stop();
}

void TimelineView::scrollContentsBy(int, int)
{
    geometry.setScroll(verticalScrollBar()->value());
    viewport()->update();
}

void TimelineView::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton)
        return QAbstractScrollArea::mousePressEvent(event);
    pressedAt = lastAt = event->pos();
    dragging = false;
}

void TimelineView::mouseMoveEvent(QMouseEvent* event)
{
    if (!(event->buttons() & Qt::LeftButton))
        return QAbstractScrollArea::mouseMoveEvent(event);
    if (!dragging && (event->pos() - pressedAt).manhattanLength() < QApplication::startDragDistance())
        return;
    dragging = true;
    const QPoint moved = event->pos() - lastAt;
    lastAt = event->pos();
    view.pan(moved.x());
    verticalScrollBar()->setValue(verticalScrollBar()->value() - moved.y());
    movedByUser();
    relayout();
}

void TimelineView::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton)
        return QAbstractScrollArea::mouseReleaseEvent(event);
    if (!dragging) {
        const int hit = geometry.barAt(event->pos());
        if (hit >= 0)
            finder.showRow(geometry.bars()[static_cast<std::size_t>(hit)].call.row);
    }
    dragging = false;
}

void TimelineView::mouseDoubleClickEvent(QMouseEvent* event)
{
    const int hit = geometry.barAt(event->pos());
    if (event->button() != Qt::LeftButton || hit < 0)
        return QAbstractScrollArea::mouseDoubleClickEvent(event);
    finder.showRow(geometry.bars()[static_cast<std::size_t>(hit)].call.row);
    zoomToSelection();
}

void TimelineView::wheelEvent(QWheelEvent* event)
{
    const QPoint delta = event->angleDelta();
    if (event->modifiers() & Qt::ShiftModifier) {
        const int lanes = (delta.y() != 0 ? delta.y() : delta.x()) / 120;
        verticalScrollBar()->setValue(verticalScrollBar()->value() - lanes * geometry.sizes().laneHeight);
        return;
    }
    if (delta.y() == 0) {
        // A sideways swipe pans.
        view.pan(delta.x() / 4.0);
    } else {
        view.zoom(event->position().x() - geometry.sizes().labelWidth, std::pow(s_ZoomStep, delta.y() / 120.0));
        ownSpan = false;
    }
    movedByUser();
    relayout();
}

void TimelineView::keyPressEvent(QKeyEvent* event)
{
    const double middle = view.width() / 2.0;
    switch (event->key()) {
    case Qt::Key_Plus:
    case Qt::Key_Equal:
        view.zoom(middle, s_ZoomStep * s_ZoomStep);
        ownSpan = false;
        break;
    case Qt::Key_Minus:
        view.zoom(middle, 1 / (s_ZoomStep * s_ZoomStep));
        ownSpan = false;
        break;
    case Qt::Key_Left:
    case Qt::Key_Right:
        view.pan((event->key() == Qt::Key_Left ? 1 : -1) * view.width() / 8.0);
        break;
    case Qt::Key_Home:
        showAll();
        return;
    case Qt::Key_End:
        setFollowing(true);
        return;
    // Where the window's error keys do not reach, as in a floating dock.
    case Qt::Key_F8:
        if (event->modifiers() & Qt::ShiftModifier)
            finder.previousError();
        else
            finder.nextError();
        return;
    default:
        QAbstractScrollArea::keyPressEvent(event);
        return;
    }
    movedByUser();
    relayout();
}

bool TimelineView::viewportEvent(QEvent* event)
{
    if (event->type() == QEvent::ToolTip) {
        const auto* help = static_cast<QHelpEvent*>(event);
        const int hit = geometry.barAt(help->pos());
        if (hit < 0) {
            QToolTip::hideText();
            event->ignore();
            return true;
        }
        const TimelineBar& bar = geometry.bars()[static_cast<std::size_t>(hit)];
        QToolTip::showText(help->globalPos(), Qt::convertFromPlainText(toolTipOf(bar), Qt::WhiteSpacePre), viewport(),
                           geometry.rectOf(bar).toAlignedRect());
        return true;
    }
    return QAbstractScrollArea::viewportEvent(event);
}

} // namespace gui
