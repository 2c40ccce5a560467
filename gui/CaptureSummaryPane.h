#pragma once

#include "CaptureSummary.h"

#include <QDockWidget>

class QTextBrowser;

namespace gui {

// The summary of a capture beside its table: duration, calls, failures by status name, the slowest
// operations, the busiest resources, the first and last failure as links to their rows.
class CaptureSummaryPane : public QDockWidget
{
    Q_OBJECT

public:
    explicit CaptureSummaryPane(QWidget* parent = nullptr);

    void show(capture::CaptureSummary const& summary, QString const& fileName);
    QString text() const;
    static QString html(capture::CaptureSummary const& summary, QString const& fileName);

signals:
    // A link to a row of the file (from 1) was followed.
    void fileRowAsked(qint64 fileRow);

private:
    QTextBrowser* browser;
};

} // namespace gui
