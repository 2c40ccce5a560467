#include "TraceWarning.h"

#include "SharedFile.h"
#include "TraceApplication.h"

namespace gui {

TraceWarning::TraceWarning(TraceApplication& app, QWidget* parent)
    : QLabel(parent)
    , app(app)
{
    setObjectName(QStringLiteral("traceWarning"));
    setStyleSheet(QStringLiteral("color: #b00000"));
    connect(&poll, &QTimer::timeout, this, &TraceWarning::refresh);
    poll.start(1000);
    refresh();
}

void TraceWarning::refresh()
{
    ZelTracer::TraceChannelControl& control = app.getChannelControl();
    QString text;
    if (!control.hasLock()) {
        text = tr("The trace segment's lock is not usable (%1): no calls can be traced.")
                   .arg(QString::fromStdString(control.lockProblem()));
    } else if (const std::string problem = control.segmentProblem(); !problem.empty()) {
        text = QString::fromStdString(problem);
    } else {
        text = recordingProblem();
    }
    if (text == this->text() && isHidden() == text.isEmpty())
        return;
    setText(text);
    setToolTip(text);
    setHidden(text.isEmpty());
}

QString TraceWarning::recordingProblem() const
{
    ZelTracer::TraceChannelControl& control = app.getChannelControl();
    control.tracingActive(); // reads the header: the recording flag and the name are fresh
    if (!control.isTracingToFile())
        return QString();
    const std::string name = control.getFileName();
    if (name != app.getStartedLogFile())
        return tr("Recording to file goes to \"%1\", which another program named: this window wrote no header "
                  "there, and the traced programs write only into a log that the tool started.")
            .arg(QString::fromLocal8Bit(name.c_str()));
    const std::string why = ZelTracer::SharedFile::appendProblem(name);
    return why.empty() ? QString() : QString::fromLocal8Bit(why.c_str()) + tr(" Lines are being lost.");
}

} // namespace gui
