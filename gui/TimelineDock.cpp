#include "TimelineDock.h"

#include "LiveTraceModel.h"
#include "SettingsKeys.h"
#include "TimelineView.h"
#include "ValueFormat.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QSettings>
#include <QToolButton>

#include <iterator>

namespace gui {

using timeline::LaneGrouping;

namespace {

// The lane choices in the order of the combo box.
constexpr LaneGrouping s_Groupings[] = {LaneGrouping::Thread, LaneGrouping::Session, LaneGrouping::Address};

} // namespace

TimelineDock::TimelineDock(LiveTraceModel& model, QTableView& table, FindBar& finder, QWidget* parent)
    : QDockWidget(tr("Timeline"), parent)
    , calls(model)
{
    setObjectName(QStringLiteral("timelinePane"));
    auto* content = new QWidget(this);
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(4, 2, 4, 4);
    layout->setSpacing(2);
    auto* header = new QHBoxLayout;
    header->addWidget(new QLabel(tr("Lanes:"), content));
    lanes = new QComboBox(content);
    lanes->setObjectName(QStringLiteral("timelineLanes"));
    lanes->addItems({tr("Process and thread"), tr("Session"), tr("Resource address")});
    header->addWidget(lanes);
    auto addButton = [content, header](const QString& text, const QString& tip) {
        auto* button = new QToolButton(content);
        button->setText(text);
        button->setToolTip(tip);
        button->setAutoRaise(true);
        header->addWidget(button);
        return button;
    };
    follow = addButton(tr("Follow newest"), tr("Keep the newest calls in view while they arrive (End)"));
    follow->setObjectName(QStringLiteral("timelineFollow"));
    follow->setCheckable(true);
    QToolButton* zoom = addButton(tr("Zoom to selection"), tr("Show the current row's call across the timeline"));
    QToolButton* all = addButton(tr("Show all"), tr("Show every call the table holds (Home)"));
    header->addStretch(1);
    span = new QLabel(content);
    header->addWidget(span);
    layout->addLayout(header);
    view = new TimelineView(calls, table, finder, content);
    layout->addWidget(view, 1);
    setWidget(content);

    connect(lanes, qOverload<int>(&QComboBox::currentIndexChanged), this, &TimelineDock::setGrouping);
    connect(follow, &QToolButton::clicked, view, &TimelineView::setFollowing);
    connect(zoom, &QToolButton::clicked, view, &TimelineView::zoomToSelection);
    connect(all, &QToolButton::clicked, view, &TimelineView::showAll);
    connect(view, &TimelineView::followingChanged, this, &TimelineDock::updateHeader);
    connect(view, &TimelineView::viewMoved, this, &TimelineDock::updateHeader);
    connect(&model, &LiveTraceModel::newDataCollected, this, &TimelineDock::refresh);
    connect(this, &QDockWidget::visibilityChanged, this, [this](bool visible) {
        if (visible && stale)
            refresh();
    });
    updateHeader();
}

void TimelineDock::refresh()
{
    // A hidden dock takes the rows when it shows again.
    if (isHidden()) {
        stale = true;
        return;
    }
    const bool wasStale = stale;
    stale = false;
    // Nothing new and nothing growing: nothing to paint, so an idle window stays idle.
    if (calls.rebuild() || wasStale || calls.isGrowing())
        view->sourceChanged();
}

void TimelineDock::setGrouping(int index)
{
    if (index < 0 || index >= static_cast<int>(std::size(s_Groupings)))
        return;
    calls.setGrouping(s_Groupings[index]);
    view->sourceChanged();
}

void TimelineDock::updateHeader()
{
    // Only a live table has newest calls to follow.
    follow->setEnabled(calls.isLive());
    follow->setChecked(view->isFollowing() && calls.isLive());
    span->setText(tr("%1 across")
                      .arg(ValueFormat::duration2string(static_cast<double>(view->timeView().span())
                                                        / timeline::s_NanosecondsPerSecond)));
}

void TimelineDock::restore(QSettings& settings, bool visibleByDefault)
{
    setVisible(settings.value(QLatin1String(SettingsKeys::s_TimelineVisible), visibleByDefault).toBool());
    // Whatever the store holds, only a known choice is taken.
    const int index = settings.value(QLatin1String(SettingsKeys::s_TimelineLanes), 0).toInt();
    if (index >= 0 && index < lanes->count())
        lanes->setCurrentIndex(index);
}

void TimelineDock::save(QSettings& settings) const
{
    settings.setValue(QLatin1String(SettingsKeys::s_TimelineVisible), !isHidden());
    settings.setValue(QLatin1String(SettingsKeys::s_TimelineLanes), lanes->currentIndex());
}

} // namespace gui
