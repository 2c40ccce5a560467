#pragma once

#include <QHeaderView>

namespace gui {

// The live table's row header: every row has the same height, and its width is measured from a few
// labels instead of hundreds. Qt's own header measures up to 200 labels each time rows are
// inserted, which under load costs more than painting the table.
class RowHeaderView : public QHeaderView
{
    Q_OBJECT

public:
    explicit RowHeaderView(QWidget* parent);

    QSize sizeHint() const override;

private:
    // Grows only, so that the table does not shift sideways as numbers come and go.
    mutable int widestLabel = 0;
};

} // namespace gui
