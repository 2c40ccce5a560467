#include "LiveTableView.h"

#include <QHeaderView>
#include <QScrollBar>

namespace gui {

LiveTableView::LiveTableView(QWidget* parent)
    : QTableView(parent)
{ }

void LiveTableView::setModel(QAbstractItemModel* newModel)
{
    QTableView::setModel(newModel);
    if (!newModel)
        return;
    // Every item view on the model, the two headers included, lays itself out again on a header data
    // change. What is kept is a repaint of the row labels and arrows in sight (the model names one
    // row past the end, which Qt's header would ignore).
    disconnect(newModel, &QAbstractItemModel::headerDataChanged, this, nullptr);
    for (QHeaderView* header : {horizontalHeader(), verticalHeader()}) {
        disconnect(newModel, &QAbstractItemModel::headerDataChanged, header, nullptr);
        connect(newModel, &QAbstractItemModel::headerDataChanged, header, [header](Qt::Orientation orientation) {
            if (orientation == header->orientation() && header->count() > 0)
                header->viewport()->update();
        });
    }
    // After the view's own handling of the removal, which is connected before.
    connect(newModel, &QAbstractItemModel::rowsRemoved, this, [this] {
        if (leavingHeight == 0)
            return;
        verticalScrollBar()->setValue(verticalScrollBar()->value() - leavingHeight);
        leavingHeight = 0;
    });
}

void LiveTableView::rowsAboutToBeRemoved(const QModelIndex& parent, int start, int end)
{
    leavingHeight = start == 0 ? rowViewportPosition(end) + rowHeight(end) - rowViewportPosition(0) : 0;
    QTableView::rowsAboutToBeRemoved(parent, start, end);
}

void LiveTableView::dataChanged(const QModelIndex& topLeft, const QModelIndex& bottomRight, const QVector<int>& roles)
{
    if (!topLeft.isValid() && model() && model()->rowCount() == 0)
        return;
    QTableView::dataChanged(topLeft, bottomRight, roles);
}

} // namespace gui
