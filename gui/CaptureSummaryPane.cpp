#include "CaptureSummaryPane.h"

#include "ValueFormat.h"

#include <QDateTime>
#include <QTextBrowser>
#include <QUrl>

namespace gui {

namespace {

QString when(std::int64_t seconds, double fraction)
{
    return QDateTime::fromSecsSinceEpoch(seconds).date().toString(Qt::ISODate) + QLatin1Char(' ')
        + ValueFormat::timestamp2string(static_cast<long>(seconds), fraction);
}

QString span(double seconds)
{
    const auto whole = static_cast<qint64>(seconds);
    return QString::asprintf("%lld:%02lld:%02lld.%03d", whole / 3600, whole / 60 % 60, whole % 60,
                             static_cast<int>((seconds - static_cast<double>(whole)) * 1000));
}

QString escaped(QString const& text)
{
    return text.toHtmlEscaped();
}

} // namespace

CaptureSummaryPane::CaptureSummaryPane(QWidget* parent)
    : QDockWidget(tr("Summary"), parent)
    , browser(new QTextBrowser(this))
{
    setObjectName(QStringLiteral("summaryPane"));
    browser->setOpenLinks(false);
    browser->setHtml(tr("<p>Counting the calls of the capture...</p>"));
    setWidget(browser);
    connect(browser, &QTextBrowser::anchorClicked, this, [this](QUrl const& url) {
        if (url.scheme() == QLatin1String("row"))
            emit fileRowAsked(url.path().toLongLong());
    });
}

QString CaptureSummaryPane::html(capture::CaptureSummary const& s, QString const& fileName)
{
    QString h = QStringLiteral("<h3>%1</h3><table>").arg(escaped(fileName));
    auto line = [&h](QString const& name, QString const& value) {
        h += QStringLiteral("<tr><td><b>%1</b></td><td>%2</td></tr>").arg(name, value);
    };
    if (s.any) {
        line(tr("From"), when(s.firstSeconds, s.firstFraction));
        line(tr("To"), when(s.lastSeconds, s.lastFraction));
        line(tr("Duration"),
             span(static_cast<double>(s.lastSeconds - s.firstSeconds) + s.lastFraction - s.firstFraction));
    }
    line(tr("Rows"), QString::number(s.rows));
    line(tr("Calls"), QString::number(s.calls));
    line(tr("Failed calls"), QString::number(s.failedCalls));
    auto failure = [&](QString const& name, std::int64_t row) {
        if (row > 0)
            line(name, QStringLiteral("<a href=\"row:%1\">%2 %1</a>").arg(row).arg(tr("row")));
    };
    failure(tr("First failure"), s.firstFailedRow);
    failure(tr("Last failure"), s.lastFailedRow);
    for (auto const& [name, value] : s.facts) {
        if (name != QLatin1String("rows"))
            line(escaped(name), escaped(value));
    }
    h += QStringLiteral("</table>");
    if (!s.failuresByStatus.empty()) {
        h += tr("<h4>Failures by status</h4><table>");
        for (auto const& [status, count] : s.failuresByStatus)
            h += QStringLiteral("<tr><td>%1</td><td align=right>%2</td></tr>")
                     .arg(escaped(ValueFormat::status2string(status)))
                     .arg(count);
        h += QStringLiteral("</table>");
    }
    auto figures = [&h](QString const& title, QString const& key, std::vector<CallStatistics::Figures> const& list) {
        if (list.empty())
            return;
        h += QStringLiteral("<h4>%1</h4><table><tr><th align=left>%2</th><th>%3</th><th>%4</th><th>%5</th><th>%6</th>"
                            "</tr>")
                 .arg(title, key, tr("Calls"), tr("Errors"), tr("P95"), tr("Max"));
        for (CallStatistics::Figures const& f : list)
            h += QStringLiteral("<tr><td>%1</td><td align=right>%2</td><td align=right>%3</td><td align=right>%4</td>"
                                "<td align=right>%5</td></tr>")
                     .arg(escaped(f.key), QString::number(f.calls), QString::number(f.errors),
                          ValueFormat::duration2string(f.p95), ValueFormat::duration2string(f.max));
    };
    figures(tr("Slowest operations"), tr("Operation"), s.slowest);
    figures(tr("Busiest resources"), tr("Address"), s.busiest);
    return h;
}

void CaptureSummaryPane::show(capture::CaptureSummary const& summary, QString const& fileName)
{
    browser->setHtml(html(summary, fileName));
}

QString CaptureSummaryPane::text() const
{
    return browser->toPlainText();
}

} // namespace gui
