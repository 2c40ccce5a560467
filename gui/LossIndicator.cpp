#include "LossIndicator.h"

#include "LossCounter.h"

namespace gui {

LossIndicator::LossIndicator(QWidget* parent)
    : QLabel(parent)
{ }

void LossIndicator::showLoss(const LossCounter& counter)
{
    // Called on every display stage: an unchanged figure must not repaint the status bar.
    const std::uint64_t total = counter.total();
    if (total == shownTotal)
        return;
    shownTotal = total;
    if (total == 0) {
        clear();
        setToolTip(QString());
        return;
    }
    setText(tr("%1 lost").arg(static_cast<qulonglong>(total)));
    QStringList lines {tr("Records written by traced processes that never reached the tool:")};
    for (const auto& [pid, lost] : counter.lossByProcess())
        lines << tr("process %1: %2").arg(pid).arg(static_cast<qulonglong>(lost));
    setToolTip(lines.join(QLatin1Char('\n')));
}

} // namespace gui
