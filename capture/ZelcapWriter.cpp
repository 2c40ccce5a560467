#include "ZelcapWriter.h"

#include "ZelcapFormat.h"

#include <QFile>
#include <QVariant>

#include <cstring>

namespace capture {

namespace {

std::size_t textLength(const char* field, std::size_t capacity)
{
    return strnlen(field, capacity);
}

bool sameText(const char* a, const char* b, std::size_t capacity)
{
    return std::strncmp(a, b, capacity) == 0;
}

} // namespace

ZelcapWriter::~ZelcapWriter()
{
    if (db)
        finish();
}

bool ZelcapWriter::create(QString const& fileName, QString& why)
{
    db.reset();
    for (const char* suffix : {"", "-wal", "-shm", "-journal"})
        QFile::remove(fileName + QLatin1String(suffix));
    sqlite3* raw = nullptr;
    const QByteArray path = QFile::encodeName(fileName);
    const int opened = sqlite3_open_v2(path.constData(), &raw,
                                       SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    db.reset(raw);
    const QString pragmas = QStringLiteral("PRAGMA application_id = %1; PRAGMA user_version = %2; "
                                           "PRAGMA page_size = 8192; PRAGMA journal_mode = WAL; "
                                           "PRAGMA synchronous = FULL;")
                                .arg(zelcap::s_ApplicationId)
                                .arg(zelcap::s_FormatVersion);
    if (opened != SQLITE_OK || !sqlite::execute(raw, pragmas.toUtf8().constData())
        || !sqlite::execute(raw, zelcap::s_Schema)
        || !insert.prepare(raw,
                           "INSERT INTO calls VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, "
                           "?15, ?16, ?17, ?18, ?19, ?20, ?21, ?22, ?23)")
        || !insertProcess.prepare(raw, "INSERT OR IGNORE INTO processes VALUES(?1, ?2)")
        || !insertFact.prepare(raw, "INSERT OR REPLACE INTO facts VALUES(?1, ?2)")) {
        why = QStringLiteral("Cannot write %1: %2").arg(fileName, sqlite::lastError(raw));
        db.reset();
        return false;
    }
    failed = false;
    rowCount = 0;
    pending = 0;
    knownPids.clear();
    setFact(zelcap::fact::s_Rows, std::int64_t(0));
    return commit();
}

void ZelcapWriter::setFact(const char* name, QString const& value)
{
    facts.insert(name, value);
}

void ZelcapWriter::setFact(const char* name, std::int64_t value)
{
    facts.insert(name, QVariant::fromValue<qlonglong>(value));
}

void ZelcapWriter::fail()
{
    if (!failed)
        error = sqlite::lastError(db.get());
    failed = true;
}

void ZelcapWriter::write(LiveTraceModel::Row const& row, LiveTraceModel::Entry const* call)
{
    if (!db || failed || !row.entry)
        return;
    if (!inTransaction) {
        if (!sqlite::execute(db.get(), "BEGIN"))
            return fail();
        inTransaction = true;
        age.start();
    }
    LiveTraceModel::Entry const& e = *row.entry;
    if (!knownPids.contains(e.pid)) {
        knownPids.insert(e.pid, true);
        insertProcess.bind(1, std::int64_t(e.pid));
        insertProcess.bind(2, static_cast<std::int64_t>(row.firstId));
        if (insertProcess.step() != SQLITE_DONE)
            fail();
        insertProcess.reset();
    }
    insert.bind(1, ++rowCount);
    insert.bind(2, static_cast<std::int64_t>(row.displayKind));
    insert.bind(3, static_cast<std::int64_t>(e.id)); // the bits of an unsigned id, read back alike
    insert.bind(4, std::int64_t(e.pid));
    insert.bind(5, std::int64_t(e.threadId));
    insert.bind(6, std::int64_t(e.session));
    insert.bind(7, std::int64_t(e.kind));
    insert.bind(8, std::int64_t(e.status));
    insert.bind(9, e.duration);
    insert.bind(10, static_cast<std::int64_t>(e.timestamp));
    insert.bind(11, e.timestampFraction);
    insert.bind(12, e.elapsedTime);
    insert.bindBytes(13, e.address, textLength(e.address, sizeof e.address));
    // A text without its terminator is no text, as everywhere in the tool.
    insert.bindBytes(14, e.text, ZelTracer::hasTerminator(e.text) ? textLength(e.text, sizeof e.text) : 0);
    if (call) {
        insert.bind(15, std::int64_t(call->kind));
        insert.bind(16, std::int64_t(call->status));
        insert.bind(17, call->duration);
        insert.bind(18, static_cast<std::int64_t>(call->timestamp));
        insert.bind(19, call->timestampFraction);
        insert.bind(20, call->elapsedTime);
        insert.bind(21, std::int64_t(call->session));
        if (!sameText(call->address, e.address, sizeof e.address))
            insert.bindBytes(22, call->address, textLength(call->address, sizeof call->address));
        const std::size_t callText
            = ZelTracer::hasTerminator(call->text) ? textLength(call->text, sizeof call->text) : 0;
        if (callText != (ZelTracer::hasTerminator(e.text) ? textLength(e.text, sizeof e.text) : 0)
            || std::memcmp(call->text, e.text, callText) != 0)
            insert.bindBytes(23, call->text, callText);
    }
    if (insert.step() != SQLITE_DONE)
        fail();
    insert.reset();
    if (++pending >= s_MaxRows)
        commit();
}

void ZelcapWriter::commitIfDue()
{
    if (inTransaction && age.elapsed() >= s_MaxAgeMs)
        commit();
}

bool ZelcapWriter::commit()
{
    if (!db)
        return false;
    if (!inTransaction && !sqlite::execute(db.get(), "BEGIN")) {
        fail();
        return false;
    }
    inTransaction = true;
    facts.insert(zelcap::fact::s_Rows, QVariant::fromValue<qlonglong>(rowCount));
    for (auto it = facts.cbegin(); it != facts.cend(); ++it) {
        insertFact.bindText(1, it.key());
        if (it.value().userType() == QMetaType::QString)
            insertFact.bindText(2, it.value().toString());
        else
            insertFact.bind(2, static_cast<std::int64_t>(it.value().toLongLong()));
        if (insertFact.step() != SQLITE_DONE)
            fail();
        insertFact.reset();
    }
    facts.clear();
    if (!sqlite::execute(db.get(), "COMMIT"))
        fail();
    inTransaction = false;
    pending = 0;
    return !failed;
}

bool ZelcapWriter::finish()
{
    if (!db)
        return !failed;
    commit();
    // A finished capture is one file that can be mailed or copied as it is.
    if (!sqlite::execute(db.get(), "PRAGMA journal_mode = DELETE"))
        fail();
    insert = sqlite::Statement();
    insertProcess = sqlite::Statement();
    insertFact = sqlite::Statement();
    db.reset();
    return !failed;
}

} // namespace capture
