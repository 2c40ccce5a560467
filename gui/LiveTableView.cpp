#include "LiveTableView.h"

namespace gui {

LiveTableView::LiveTableView(QWidget* parent)
    : QTableView(parent)
{ }

void LiveTableView::dataChanged(const QModelIndex& topLeft, const QModelIndex& bottomRight, const QVector<int>& roles)
{
    if (!topLeft.isValid() && model() && model()->rowCount() == 0)
        return;
    QTableView::dataChanged(topLeft, bottomRight, roles);
}

} // namespace gui
