#pragma once

#include <QTableView>

namespace gui {

// The live table. The model tells its views on every display stage that all header data changed,
// and announces an empty table again every time. Qt answers the first with a layout pass over the
// whole table and the second with a repaint; neither shows anything new (row changes come with their
// own signals, and the row header repaints its labels itself), so this view does neither. Together
// they were most of what an idle window cost, and a tenth of the time under load.
//
// A full table loses its oldest rows at the top on every display stage. The view scrolls per pixel and
// would let the text slide up under a reader, so its scroll position moves up by the rows that went.
class LiveTableView : public QTableView
{
    Q_OBJECT

public:
    explicit LiveTableView(QWidget* parent = nullptr);

    void setModel(QAbstractItemModel* model) override;

protected slots:
    void dataChanged(const QModelIndex& topLeft, const QModelIndex& bottomRight,
                     const QVector<int>& roles = QVector<int>()) override;
    void rowsAboutToBeRemoved(const QModelIndex& parent, int start, int end) override;

private:
    // Height of the rows leaving at the top, taken before they go.
    int leavingHeight = 0;
};

} // namespace gui
