#include "DetailsPane.h"

#include "LiveRows.h"
#include "RecordDetails.h"

#include <QClipboard>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSplitter>
#include <QTableView>
#include <QVBoxLayout>

namespace gui {

namespace {

QPlainTextEdit* makeText(QWidget* parent)
{
    auto* text = new QPlainTextEdit(parent);
    text->setReadOnly(true);
    text->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    text->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    text->setLineWrapMode(QPlainTextEdit::WidgetWidth);
    text->setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    return text;
}

// Replacing the text drops the reader's selection and scroll position: only do it on a change.
void setIfChanged(QPlainTextEdit* edit, const QString& text)
{
    if (edit->toPlainText() != text)
        edit->setPlainText(text);
}

} // namespace

DetailsPane::DetailsPane(TraceRows& rows, QTableView* view, QWidget* parent)
    : QDockWidget(tr("Details"), parent)
    , rows(rows)
    , view(view)
{
    setObjectName(QStringLiteral("detailsPane"));
    auto* content = new QWidget(this);
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(4, 4, 4, 4);
    auto* top = new QHBoxLayout;
    summary = new QLabel(content);
    summary->setTextInteractionFlags(Qt::TextSelectableByMouse);
    summary->setWordWrap(true);
    auto* copy = new QPushButton(tr("Copy details"), content);
    top->addWidget(summary, 1);
    top->addWidget(copy, 0);
    layout->addLayout(top);
    auto* splitter = new QSplitter(Qt::Horizontal, content);
    callText = makeText(splitter);
    returnText = makeText(splitter);
    callText->setObjectName(QStringLiteral("detailsCall"));
    returnText->setObjectName(QStringLiteral("detailsReturn"));
    splitter->addWidget(callText);
    splitter->addWidget(returnText);
    layout->addWidget(splitter, 1);
    setWidget(content);

    connect(copy, &QPushButton::clicked, this, &DetailsPane::copyToClipboard);
    connect(view->selectionModel(), &QItemSelectionModel::currentChanged, this, &DetailsPane::refresh);
    rows.onRowsChanged(this, [this] { refresh(); });
    connect(this, &QDockWidget::visibilityChanged, this, [this](bool visible) {
        if (visible)
            refresh();
    });
    refresh();
}

QStringList DetailsPane::rowLines(LiveTraceModel& model, int row)
{
    LiveRows rows(model);
    return rowLines(rows, row);
}

QStringList DetailsPane::rowLines(TraceRows& rows, int row, QStringList* callLines, QStringList* returnLines)
{
    TraceRows::Call call;
    if (!rows.call(row, call))
        return {};
    const LiveTraceModel::Row* shown = &call.row;
    QStringList lines
        = RecordDetails::callLines(call.record, call.hasPartner ? &call.partner : nullptr, callLines, returnLines);
    // A collapsed row stands for several calls; the records shown are the last one's.
    if (shown->repeatCount > 0)
        lines.insert(1,
                     tr("This row stands for %1 identical calls in a row, %2 in all; below is the last.")
                         .arg(static_cast<qulonglong>(shown->repeatCount) + 1)
                         .arg(ValueFormat::duration2string(shown->summedDuration)));
    return lines;
}

void DetailsPane::refresh()
{
    // Hidden panes cost nothing while records pour in.
    if (isHidden())
        return;
    QStringList callLines;
    QStringList returnLines;
    const QStringList lines = rowLines(rows, view->currentIndex().row(), &callLines, &returnLines);
    // The lines before the first blank one say what the call did.
    summary->setText(lines.isEmpty() ? tr("Select a row to see its call whole.")
                                     : lines.mid(0, lines.indexOf(QString())).join(QLatin1Char('\n')));
    setIfChanged(callText, callLines.join(QLatin1Char('\n')));
    setIfChanged(returnText, returnLines.join(QLatin1Char('\n')));
}

QString DetailsPane::text() const
{
    return rowLines(rows, view->currentIndex().row()).join(QLatin1Char('\n'));
}

void DetailsPane::copyToClipboard() const
{
    QGuiApplication::clipboard()->setText(text());
}

} // namespace gui
