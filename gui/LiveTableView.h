#pragma once

#include <QTableView>

namespace gui {

// The live table. The model tells its views on every display stage that all header data changed,
// and announces an empty table again every time. Qt answers the first with a layout pass over the
// whole table and the second with a repaint; neither shows anything new (row changes come with their
// own signals, and the row header repaints its labels itself), so this view does neither. Together
// they were most of what an idle window cost, and a tenth of the time under load.
class LiveTableView : public QTableView
{
    Q_OBJECT

public:
    explicit LiveTableView(QWidget* parent = nullptr);

    void setModel(QAbstractItemModel* model) override;

protected slots:
    void dataChanged(const QModelIndex& topLeft, const QModelIndex& bottomRight,
                     const QVector<int>& roles = QVector<int>()) override;
};

} // namespace gui
