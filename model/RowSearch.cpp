#include "RowSearch.h"

#include "LiveTraceModel.h"

#include <algorithm>
#include <cstring>

namespace {

char fold(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

} // namespace

bool RowSearch::setPattern(const QString& text, bool regularExpression)
{
    active = false;
    error.clear();
    statusMatches.clear();
    regex = regularExpression;
    if (text.isEmpty())
        return true;
    needle = text;
    if (regex) {
        expression = QRegularExpression(text, QRegularExpression::CaseInsensitiveOption);
        if (!expression.isValid()) {
            error = expression.errorString();
            return false;
        }
        expression.optimize();
    } else {
        // An ASCII text is found in the record's bytes as they are, whatever their encoding, without
        // decoding every record; any other text in the decoded record.
        const QString lower = text.toLower();
        ascii = std::all_of(lower.begin(), lower.end(), [](QChar c) { return c.unicode() < 0x80; });
        folded = ascii ? lower.toLatin1() : QByteArray();
    }
    active = true;
    return true;
}

bool RowSearch::containsFolded(const char* text, std::size_t length) const
{
    const std::size_t n = static_cast<std::size_t>(folded.size());
    if (n > length)
        return false;
    for (std::size_t i = 0; i + n <= length; ++i) {
        std::size_t k = 0;
        while (k < n && fold(text[i + k]) == folded[static_cast<int>(k)])
            ++k;
        if (k == n)
            return true;
    }
    return false;
}

bool RowSearch::matchesText(const QString& text) const
{
    if (!active)
        return false;
    return regex ? expression.match(text).hasMatch() : text.contains(needle, Qt::CaseInsensitive);
}

bool RowSearch::matches(const LiveTraceModel& model, int row) const
{
    const LiveTraceModel::Row* r = model.displayRow(row);
    return r && matches(*r);
}

bool RowSearch::matches(const LiveTraceModel::Row& row) const
{
    const LiveTraceModel::Row* r = &row;
    if (!active)
        return false;
    const LiveTraceModel::Entry& e = *r->entry;
    const std::size_t textLength = strnlen(e.text, sizeof e.text);
    const std::size_t addressLength = strnlen(e.address, sizeof e.address);
    // The status name shows only on rows with a result.
    const bool hasStatus = r->displayKind != LiveTraceModel::CallKind && r->displayKind != LiveTraceModel::PlainKind;
    auto statusMatch = [this, &e](auto test) {
        const auto cached = statusMatches.constFind(e.status);
        if (cached != statusMatches.constEnd())
            return *cached;
        return *statusMatches.insert(e.status, test(ValueFormat::status2string(e.status)));
    };
    auto decodedMatch = [&](auto test) {
        return test(ValueFormat::recordText(e.text, textLength))
            || test(ValueFormat::recordText(e.address, addressLength)) || (hasStatus && statusMatch(test));
    };
    if (regex)
        return decodedMatch([this](const QString& s) { return expression.match(s).hasMatch(); });
    if (!ascii)
        return decodedMatch([this](const QString& s) { return s.contains(needle, Qt::CaseInsensitive); });
    auto test = [this](const QString& s) {
        const QByteArray bytes = s.toLatin1();
        return containsFolded(bytes.constData(), static_cast<std::size_t>(bytes.size()));
    };
    return containsFolded(e.text, textLength) || containsFolded(e.address, addressLength)
        || (hasStatus && statusMatch(test));
}

template<class Pred> int RowSearch::step(const LiveTraceModel& model, int from, bool forward, Pred matches)
{
    const int rows = model.rowCount();
    if (rows <= 0)
        return -1;
    if (from < 0 || from >= rows)
        from = forward ? rows - 1 : 0;
    for (int n = 1; n <= rows; ++n) {
        const int row = forward ? (from + n) % rows : (from - n + rows) % rows;
        if (matches(row))
            return row;
    }
    return -1;
}

int RowSearch::find(const LiveTraceModel& model, int from, bool forward) const
{
    if (!active)
        return -1;
    return step(model, from, forward, [this, &model](int row) { return matches(model, row); });
}

int RowSearch::countMatches(const LiveTraceModel& model) const
{
    int count = 0;
    for (int row = 0; active && row < model.rowCount(); ++row)
        count += matches(model, row) ? 1 : 0;
    return count;
}

int RowSearch::findError(const LiveTraceModel& model, int from, bool forward)
{
    return step(model, from, forward, [&model](int row) {
        const LiveTraceModel::Row* r = model.displayRow(row);
        return r && r->entry->status < 0;
    });
}
