#include "RowCells.h"

#include "ModelFilters.h"
#include "ValueFormat.h"

#include <QBrush>
#include <QColor>
#include <QPixmap>

#include <vector>

namespace RowCells {

QVariant columnTitle(int column)
{
    static const char* const titles[LiveTraceModel::ColumnCount]
        = {"Id", "Timestamp", "Elapsed time", "Pid", "Thread", "Session", "Address", "Duration", "Status", "Command"};
    if (column >= 0 && column < LiveTraceModel::ColumnCount)
        return QString::fromLatin1(titles[column]);
    return QVariant();
}

QVariant text(Row const& row, int column, bool onlyStringArguments)
{
    const Entry& e = *row.entry;
    const bool withoutResult
        = row.displayKind == LiveTraceModel::CallKind || row.displayKind == LiveTraceModel::PlainKind;
    switch (static_cast<LiveTraceModel::Column>(column)) {
    case LiveTraceModel::IdColumn:
        return QVariant::fromValue<quint64>(e.id);
    case LiveTraceModel::TimestampColumn:
        return ValueFormat::timestamp2string(static_cast<long>(e.timestamp), e.timestampFraction);
    case LiveTraceModel::ElapsedTimeColumn:
        return QStringLiteral("%1 s").arg(e.elapsedTime, 0, 'f', 6);
    case LiveTraceModel::PidColumn:
        return QVariant::fromValue<quint32>(e.pid);
    case LiveTraceModel::ThreadColumn:
        return QVariant::fromValue<quint32>(e.threadId);
    case LiveTraceModel::SessionColumn:
        return QVariant::fromValue<quint32>(e.session);
    case LiveTraceModel::AddressColumn:
        return ValueFormat::recordText(e.address);
    case LiveTraceModel::DurationColumn:
        return withoutResult ? QString()
                             : ValueFormat::duration2string(row.repeatCount != 0 ? row.summedDuration : e.duration);
    case LiveTraceModel::StatusColumn:
        return withoutResult ? QString() : ValueFormat::status2string(e.status);
    case LiveTraceModel::CommandColumn: {
        QString command;
        if (row.repeatCount != 0)
            command = QStringLiteral("%1 x ").arg(static_cast<qulonglong>(row.repeatCount) + 1, 0, 10);
        command += ValueFormat::recordText(e.text);
        return onlyStringArguments ? ValueFormat::filterStrings(command) : command;
    }
    case LiveTraceModel::ColumnCount:
        break;
    }
    return QVariant();
}

QVariant background(ModelFilters const& filters, Entry const& entry)
{
    QColor highlight;
    if (filters.isHighlighted(entry, &highlight))
        return highlight;
    if (entry.status < 0)
        return QBrush(QColor(255, 128, 128, 255));
    return QVariant();
}

QVariant foreground(QVariant const& background)
{
    // Text on a row colour of its own (the light red of errors, a highlight) stays readable when a
    // dark theme would draw it light.
    if (!background.isValid())
        return QVariant();
    const QColor colour
        = background.userType() == QMetaType::QColor ? background.value<QColor>() : background.value<QBrush>().color();
    return QColor(qGray(colour.rgb()) > 127 ? Qt::black : Qt::white);
}

QString headerLabel(Row const& row)
{
    if (row.entry->id >= row.firstId)
        return QStringLiteral("%1").arg(static_cast<qulonglong>(row.entry->id - row.firstId), 0, 10);
    return QStringLiteral("-1");
}

QVariant icon(Row const& row, bool ofCurrentCall)
{
    // Loaded once, on first use, from the compiled-in resources (the GUI thread only).
    static std::vector<QPixmap> icons;
    if (icons.empty()) {
        for (const char* name : {"empty", "MessageTre50f401bc0a26b", "DownArrow", "UpArrow", "DownArrowY", "UpArrowY"})
            icons.emplace_back(QStringLiteral(":/icons/%1.ico").arg(QLatin1String(name)));
    }
    enum
    {
        Empty,
        Collapsed,
        Down,
        Up,
        DownCurrent,
        UpCurrent
    };
    if (row.displayKind == LiveTraceModel::CallKind)
        return icons[ofCurrentCall ? DownCurrent : Down];
    if (row.displayKind == LiveTraceModel::ReturnKind)
        return icons[ofCurrentCall ? UpCurrent : Up];
    return icons[row.repeatCount == 0 ? Empty : Collapsed];
}

} // namespace RowCells
