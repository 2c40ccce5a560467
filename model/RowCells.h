#pragma once

#include "LiveTraceModel.h"

#include <QVariant>

class ModelFilters;

// What a row of the trace table shows, cell by cell: the one presentation of the live table and of
// every capture, whatever model holds the rows.
namespace RowCells {

using Row = LiveTraceModel::Row;
using Entry = LiveTraceModel::Entry;

QVariant columnTitle(int column);
// The text (or number) of a cell; with onlyStringArguments the command shows its strings only.
QVariant text(Row const& row, int column, bool onlyStringArguments);
// A highlight filter's colour wins over the light red of a failed call.
QVariant background(ModelFilters const& filters, Entry const& entry);
// Dark or light text on a row colour of its own.
QVariant foreground(QVariant const& background);
// The row's position within its process, "-1" for an id below the process's first.
QString headerLabel(Row const& row);
// Arrow, collapsed or empty icon; the yellow arrows for the current call's rows.
QVariant icon(Row const& row, bool ofCurrentCall);

} // namespace RowCells
