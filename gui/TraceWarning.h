#pragma once

#include <QLabel>
#include <QTimer>

class TraceApplication;

namespace gui {

// Says in the status bar why calls are not traced or log lines not written, where the tool would
// otherwise look as if all were well: no usable lock, a foreign segment under the key, a log that
// another program named, or one the traced programs cannot append to (not a log the tool started,
// a full disk). Hidden while all is well; looks again once a second.
class TraceWarning : public QLabel
{
    Q_OBJECT

public:
    explicit TraceWarning(TraceApplication& app, QWidget* parent = nullptr);

    void refresh();

private:
    QString recordingProblem() const;

    TraceApplication& app;
    QTimer poll;
};

} // namespace gui
