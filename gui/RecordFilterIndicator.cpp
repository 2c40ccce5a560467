#include "RecordFilterIndicator.h"

#include "TraceApplication.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>

namespace gui {

RecordFilterIndicator::RecordFilterIndicator(TraceApplication& app, QWidget* parent)
    : QWidget(parent)
    , app(app)
    , label(new QLabel(this))
{
    setObjectName(QStringLiteral("recordFilterIndicator"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* clear = new QToolButton(this);
    clear->setObjectName(QStringLiteral("clearRecordFilter"));
    clear->setText(tr("Clear"));
    clear->setToolTip(tr("Record every call again, for every copy of the tool"));
    clear->setAutoRaise(true);
    layout->addWidget(label);
    layout->addWidget(clear);
    connect(clear, &QToolButton::clicked, this, &RecordFilterIndicator::clearFilter);
    connect(&poll, &QTimer::timeout, this, &RecordFilterIndicator::refresh);
    poll.start(1000);
    refresh();
}

void RecordFilterIndicator::refresh()
{
    std::string message;
    unsigned int pid = 0;
    app.getChannelControl().getFilter(message, pid);
    QStringList parts;
    if (pid != 0)
        parts << tr("process %1").arg(pid);
    if (!message.empty())
        parts << tr("text \"%1\"").arg(QString::fromLatin1(message.c_str()));
    const QString text = parts.isEmpty() ? QString() : tr("Record filter: %1").arg(parts.join(QStringLiteral(", ")));
    if (text == label->text() && isHidden() == text.isEmpty())
        return;
    label->setText(text);
    label->setToolTip(tr("The traced programs record only these calls, for every copy of the tool."));
    setHidden(text.isEmpty());
}

void RecordFilterIndicator::clearFilter()
{
    app.getChannelControl().setPidFilter(0);
    app.getChannelControl().setMessageFilter(std::string());
    refresh();
}

} // namespace gui
