#include "RowHeaderView.h"

#include <QStyle>

namespace gui {

RowHeaderView::RowHeaderView(QWidget* parent)
    : QHeaderView(Qt::Vertical, parent)
{
    setSectionResizeMode(QHeaderView::Fixed);
    setDefaultSectionSize(fontMetrics().height() + 6);
    setHighlightSections(true);
    setSectionsClickable(true);
}

QSize RowHeaderView::sizeHint() const
{
    if (model()) {
        const int rows = count();
        // The first and last rows and the visible ones: labels grow towards the end of the table.
        for (int row : {0, rows - 1, logicalIndexAt(0), logicalIndexAt(viewport()->height() - 1)}) {
            if (row >= 0 && row < rows) {
                const QString label = model()->headerData(row, Qt::Vertical).toString();
                widestLabel = qMax(widestLabel, fontMetrics().horizontalAdvance(label));
            }
        }
    }
    const int margin = style()->pixelMetric(QStyle::PM_HeaderMargin, nullptr, this);
    const int icon = style()->pixelMetric(QStyle::PM_SmallIconSize, nullptr, this);
    return QSize(widestLabel + icon + 4 * margin, defaultSectionSize());
}

} // namespace gui
