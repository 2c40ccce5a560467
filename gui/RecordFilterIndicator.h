#pragma once

#include <QTimer>
#include <QWidget>

class QLabel;
class TraceApplication;

namespace gui {

// The record filter in force, in the status bar, with a button that clears it. The filter holds for
// every copy of the tool and every traced program, and outlives whoever set it: a zel-record killed
// outright leaves its filter behind, and every later window would show no calls without a hint.
// Hidden while no filter is set; follows changes made elsewhere once a second.
class RecordFilterIndicator : public QWidget
{
    Q_OBJECT

public:
    explicit RecordFilterIndicator(TraceApplication& app, QWidget* parent = nullptr);

    void refresh();
    void clearFilter();

private:
    TraceApplication& app;
    QLabel* label;
    QTimer poll;
};

} // namespace gui
