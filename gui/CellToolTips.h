#pragma once

#include <QObject>

class QAbstractItemView;
class QFontMetrics;

namespace gui {

// Shows the whole text of a table cell as its tool tip when the cell is too narrow for it, and no
// tool tip when the text fits. Long texts are broken into lines so that the tip stays on screen.
class CellToolTips : public QObject
{
    Q_OBJECT

public:
    explicit CellToolTips(QAbstractItemView* view);

    // Whether the text is wider than the room a cell of that width leaves for it.
    static bool isCut(const QString& text, const QFontMetrics& metrics, int cellWidth);
    // The text broken into lines of at most width characters.
    static QString wrapped(const QString& text, int width = 100);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QAbstractItemView* view;
};

} // namespace gui
