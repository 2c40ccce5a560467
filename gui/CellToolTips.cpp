#include "CellToolTips.h"

#include <QAbstractItemView>
#include <QFont>
#include <QFontMetrics>
#include <QHelpEvent>
#include <QStyle>
#include <QToolTip>

namespace gui {

CellToolTips::CellToolTips(QAbstractItemView* view)
    : QObject(view)
    , view(view)
{
    view->viewport()->installEventFilter(this);
}

bool CellToolTips::isCut(const QString& text, const QFontMetrics& metrics, int cellWidth)
{
    // The item view's text margins, left and right, plus the focus frame.
    const int room = cellWidth - 2 * 3 - 2;
    return metrics.horizontalAdvance(text) > room;
}

QString CellToolTips::wrapped(const QString& text, int width)
{
    QString out;
    for (int i = 0; i < text.size(); i += width) {
        if (i > 0)
            out += QLatin1Char('\n');
        out += text.mid(i, width);
    }
    return out;
}

bool CellToolTips::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() != QEvent::ToolTip || watched != view->viewport())
        return QObject::eventFilter(watched, event);
    const auto* help = static_cast<QHelpEvent*>(event);
    const QModelIndex index = view->indexAt(help->pos());
    const QVariant value = index.data(Qt::DisplayRole);
    const QString text = value.toString();
    if (!index.isValid() || value.type() != QVariant::String || text.isEmpty()) {
        QToolTip::hideText();
        return true;
    }
    QFont font = view->font();
    const QVariant cellFont = index.data(Qt::FontRole);
    if (cellFont.canConvert<QFont>())
        font = cellFont.value<QFont>();
    if (isCut(text, QFontMetrics(font), view->visualRect(index).width()))
        QToolTip::showText(help->globalPos(), wrapped(text), view->viewport(), view->visualRect(index));
    else
        QToolTip::hideText();
    return true;
}

} // namespace gui
