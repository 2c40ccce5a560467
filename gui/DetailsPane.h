#pragma once

#include <QDockWidget>
#include <QStringList>

class LiveTraceModel;
class TraceRows;
class QLabel;
class QPlainTextEdit;
class QTableView;

namespace gui {

// A dock that shows the call of the table's current row whole: its call record and its return
// record side by side (found wherever they are in the model's records, not only when adjacent),
// every field, the whole command text taken apart, and dumps. Works for any table view of a
// trace table, live or of a capture.
class DetailsPane : public QDockWidget
{
    Q_OBJECT

public:
    DetailsPane(TraceRows& rows, QTableView* view, QWidget* parent = nullptr);

    // What the pane shows, as the copy button puts it on the clipboard.
    QString text() const;
    // The lines for one row of the model: a summary, then the call record, then the return record.
    static QStringList rowLines(TraceRows& rows, int row, QStringList* callLines = nullptr,
                                QStringList* returnLines = nullptr);
    static QStringList rowLines(LiveTraceModel& model, int row);

public slots:
    // Follows the view's current row; also called when new records may have brought a partner.
    void refresh();
    void copyToClipboard() const;

private:
    TraceRows& rows;
    QTableView* view;
    QLabel* summary;
    QPlainTextEdit* callText;
    QPlainTextEdit* returnText;
};

} // namespace gui
