#pragma once

#include <QString>

#include <functional>

namespace capture {

// Turns an exported table, a saved view or a trace log into a capture file, reading the source once
// from start to end, so that a file of any size opens whole and fast afterwards. The rows are made
// as a recording makes them: every call a row of its own, a return right behind its call merged
// with it. progress is asked now and then with the bytes read and the source's size; false cancels.
// Returns false with the reason in error; the target is then removed.
bool convertToZelcap(QString const& source, QString const& target,
                     std::function<bool(qint64 done, qint64 total)> const& progress, QString& error);

} // namespace capture
