#pragma once

#include "RowSearch.h"
#include "TraceRows.h"

#include <QFrame>

class QCheckBox;
class QLabel;
class QLineEdit;
class QTableView;

namespace gui {

// A find bar floating over the top right corner of a trace table, live or of a capture: searches command,
// address and status name (a text without regard to case, or a regular expression), frames the
// matching cells and moves the current row from match to match, also to the next failed call.
// It keeps working while records arrive and while the view is paused: every move starts from the
// current row as it stands.
class FindBar : public QFrame
{
    Q_OBJECT

public:
    FindBar(TraceRows& rows, QTableView* view);

    const RowSearch& search() const { return rowSearch; }
    // What the bar reports: "3 matches", "No match", or why the expression is not valid.
    QString statusText() const;
    // Makes the row current, selects it and scrolls it into the middle of the view; -1 does nothing.
    void showRow(int row);

public slots:
    // Shows the bar and puts the cursor into its text.
    void activate();
    void findNext();
    void findPrevious();
    void nextError();
    void previousError();
    // Recounts the matches after the rows changed.
    void rowsChanged();

signals:
    // A move made a row current (find, next error): the reader looks there now.
    void rowShown(int row);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void patternChanged();
    void place();

    TraceRows& rows;
    QTableView* view;
    // Answers that come later belong to the newest question only.
    quint64 countAsked = 0;
    RowSearch rowSearch;
    QLineEdit* edit;
    QCheckBox* regex;
    QLabel* status;
};

} // namespace gui
