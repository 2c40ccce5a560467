#include "FindBar.h"

#include <QCheckBox>
#include <QEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QStyledItemDelegate>
#include <QTableView>
#include <QToolButton>

namespace gui {

namespace {

// Frames the searched cells whose text matches while the bar is open; the row colours stay as they are.
class MatchDelegate : public QStyledItemDelegate
{
public:
    MatchDelegate(const RowSearch& search, const QWidget& bar, QObject* parent)
        : QStyledItemDelegate(parent)
        , search(search)
        , bar(bar)
    { }

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override
    {
        QStyledItemDelegate::paint(painter, option, index);
        const int column = index.column();
        if (!search.isActive() || !bar.isVisible()
            || (column != LiveTraceModel::AddressColumn && column != LiveTraceModel::StatusColumn
                && column != LiveTraceModel::CommandColumn))
            return;
        if (!search.matchesText(index.data(Qt::DisplayRole).toString()))
            return;
        painter->save();
        painter->setPen(QPen(QColor(255, 140, 0), 2));
        painter->setBrush(Qt::NoBrush);
        painter->drawRect(option.rect.adjusted(1, 1, -1, -1));
        painter->restore();
    }

private:
    const RowSearch& search;
    const QWidget& bar;
};

} // namespace

FindBar::FindBar(TraceRows& rows, QTableView* view)
    : QFrame(view)
    , rows(rows)
    , view(view)
{
    setObjectName(QStringLiteral("findBar"));
    setFrameShape(QFrame::StyledPanel);
    setAutoFillBackground(true);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(4, 2, 4, 2);
    edit = new QLineEdit(this);
    edit->setObjectName(QStringLiteral("findEdit"));
    edit->setPlaceholderText(tr("Find in command, address, status"));
    edit->setClearButtonEnabled(true);
    edit->setMinimumWidth(220);
    regex = new QCheckBox(tr("Regular expression"), this);
    status = new QLabel(this);
    // Room for a count or a short reason, so that the bar does not jump while records arrive.
    status->setMinimumWidth(status->fontMetrics().horizontalAdvance(QStringLiteral("00000 matches")));
    auto addButton = [this, layout](const QString& text, const QString& tip, void (FindBar::*slot)()) {
        auto* button = new QToolButton(this);
        button->setText(text);
        button->setToolTip(tip);
        button->setAutoRaise(true);
        connect(button, &QToolButton::clicked, this, slot);
        layout->addWidget(button);
    };
    layout->addWidget(edit);
    layout->addWidget(regex);
    layout->addWidget(status);
    addButton(QStringLiteral("\u2191"), tr("Previous match (Shift+F3)"), &FindBar::findPrevious);
    addButton(QStringLiteral("\u2193"), tr("Next match (F3)"), &FindBar::findNext);
    addButton(QStringLiteral("\u00D7"), tr("Close (Esc)"), &QWidget::hide);

    view->setItemDelegate(new MatchDelegate(rowSearch, *this, view));
    view->installEventFilter(this);
    edit->installEventFilter(this);
    connect(edit, &QLineEdit::textChanged, this, &FindBar::patternChanged);
    connect(regex, &QCheckBox::toggled, this, &FindBar::patternChanged);
    rows.onRowsChanged(this, [this] { rowsChanged(); });
    hide();
}

QString FindBar::statusText() const
{
    return status->text();
}

void FindBar::activate()
{
    show();
    place();
    raise();
    edit->setFocus(Qt::ShortcutFocusReason);
    edit->selectAll();
}

void FindBar::patternChanged()
{
    const bool valid = rowSearch.setPattern(edit->text(), regex->isChecked());
    edit->setStyleSheet(valid ? QString() : QStringLiteral("QLineEdit { color: #c00000; }"));
    rowsChanged();
    view->viewport()->update();
}

void FindBar::rowsChanged()
{
    // A closed bar keeps its text for F3 but neither counts nor marks.
    if (isHidden())
        return;
    if (!rowSearch.errorString().isEmpty()) {
        status->setText(rowSearch.errorString());
        if (isVisible())
            place();
        return;
    }
    if (!rowSearch.isActive()) {
        status->clear();
        return;
    }
    const quint64 asked = ++countAsked;
    bool answered = false;
    rows.countMatches(rowSearch, this, [this, asked, &answered](int count) {
        answered = true;
        if (asked != countAsked)
            return;
        status->setText(count == 0 ? tr("No match") : count == 1 ? tr("1 match") : tr("%1 matches").arg(count));
        if (isVisible())
            place();
    });
    // A large capture counts in the background.
    if (!answered)
        status->setText(tr("Counting..."));
}

void FindBar::showRow(int row)
{
    if (row < 0)
        return;
    int column = view->currentIndex().column();
    QAbstractItemModel& model = rows.itemModel();
    for (int c = 0; column < 0 && c < model.columnCount(); ++c) {
        if (!view->isColumnHidden(c))
            column = c;
    }
    const QModelIndex index = model.index(row, std::max(column, 0));
    view->selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    view->scrollTo(index, QAbstractItemView::PositionAtCenter);
    emit rowShown(row);
}

void FindBar::findNext()
{
    if (!rowSearch.isActive()) {
        activate();
        return;
    }
    rows.find(&rowSearch, view->currentIndex().row(), true, this, [this](int row) { showRow(row); });
}

void FindBar::findPrevious()
{
    if (!rowSearch.isActive()) {
        activate();
        return;
    }
    rows.find(&rowSearch, view->currentIndex().row(), false, this, [this](int row) { showRow(row); });
}

void FindBar::nextError()
{
    rows.find(nullptr, view->currentIndex().row(), true, this, [this](int row) { showRow(row); });
}

void FindBar::previousError()
{
    rows.find(nullptr, view->currentIndex().row(), false, this, [this](int row) { showRow(row); });
}

void FindBar::place()
{
    layout()->activate();
    const QRect area = view->viewport()->geometry();
    const int width = std::min(sizeHint().width(), area.width());
    setGeometry(area.right() - width - 8, area.top() + 4, width, sizeHint().height());
}

bool FindBar::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == view && event->type() == QEvent::Resize && isVisible())
        place();
    if (watched == edit && event->type() == QEvent::KeyPress) {
        const auto* key = static_cast<QKeyEvent*>(event);
        if (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) {
            if (key->modifiers() & Qt::ShiftModifier)
                findPrevious();
            else
                findNext();
            return true;
        }
    }
    return QFrame::eventFilter(watched, event);
}

void FindBar::showEvent(QShowEvent* event)
{
    QFrame::showEvent(event);
    rowsChanged();
    view->viewport()->update();
}

void FindBar::hideEvent(QHideEvent* event)
{
    QFrame::hideEvent(event);
    view->viewport()->update();
}

void FindBar::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Escape) {
        hide();
        view->setFocus();
        return;
    }
    QFrame::keyPressEvent(event);
}

} // namespace gui
