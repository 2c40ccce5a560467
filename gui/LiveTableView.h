#pragma once

#include <QTableView>

namespace gui {

// The live table. The model announces an empty table again on every display stage; repainting an
// empty viewport five times a second was most of what the idle program cost, so such an
// announcement is not painted.
class LiveTableView : public QTableView
{
    Q_OBJECT

public:
    explicit LiveTableView(QWidget* parent = nullptr);

protected slots:
    void dataChanged(const QModelIndex& topLeft, const QModelIndex& bottomRight,
                     const QVector<int>& roles = QVector<int>()) override;
};

} // namespace gui
