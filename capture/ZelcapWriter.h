#pragma once

#include "LiveTraceModel.h"
#include "Sqlite.h"

#include <QElapsedTimer>
#include <QHash>
#include <QString>

#include <cstdint>

namespace capture {

// Writes rows into a new capture file (see ZelcapFormat.h) as a recording or a conversion makes
// them. Rows go into a transaction that is committed once it holds s_MaxRows rows or is
// s_MaxAgeMs old, so memory stays bounded and a killed writer loses at most the open transaction.
class ZelcapWriter
{
public:
    static constexpr int s_MaxRows = 50000;
    static constexpr qint64 s_MaxAgeMs = 500;

    ZelcapWriter() = default;
    ~ZelcapWriter();
    ZelcapWriter(ZelcapWriter const&) = delete;
    ZelcapWriter& operator=(ZelcapWriter const&) = delete;

    // Replaces whatever fileName held by an empty capture. False with the reason in error.
    bool create(QString const& fileName, QString& error);
    // A fact about the capture, written with the next commit.
    void setFact(const char* name, QString const& value);
    void setFact(const char* name, std::int64_t value);

    // One row with its record; call is the call record of a completed row, else null.
    void write(LiveTraceModel::Row const& row, LiveTraceModel::Entry const* call);
    // Commits when the open transaction is old enough; for a caller that writes in ticks.
    void commitIfDue();
    // Commits everything and leaves a single file behind. The writer is closed afterwards.
    bool finish();

    bool ok() const { return !failed; }
    QString errorString() const { return error; }
    std::int64_t rows() const { return rowCount; }

private:
    bool commit();
    void fail();

    sqlite::Database db;
    sqlite::Statement insert;
    sqlite::Statement insertProcess;
    sqlite::Statement insertFact;
    QHash<QByteArray, QVariant> facts;
    QHash<std::uint32_t, bool> knownPids;
    QElapsedTimer age;
    std::int64_t rowCount = 0;
    int pending = 0;
    bool inTransaction = false;
    bool failed = false;
    QString error;
};

} // namespace capture
