#pragma once

#include <QByteArray>
#include <QString>

#include <sqlite3.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

// The few handles of the SQLite C library that captures use, closed and finalised by their owners.
namespace capture::sqlite {

struct CloseDatabase
{
    void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
struct FinalizeStatement
{
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;

// A prepared statement: bind from 1, step, read columns from 0, reset for the next use.
class Statement
{
public:
    Statement() = default;
    bool prepare(sqlite3* db, const char* sql)
    {
        sqlite3_stmt* raw = nullptr;
        const bool ok = sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &raw, nullptr) == SQLITE_OK;
        handle.reset(raw);
        return ok && raw;
    }
    explicit operator bool() const { return bool(handle); }
    sqlite3_stmt* get() const { return handle.get(); }

    void bind(int at, std::int64_t value) { sqlite3_bind_int64(get(), at, value); }
    void bind(int at, double value) { sqlite3_bind_double(get(), at, value); }
    void bindNull(int at) { sqlite3_bind_null(get(), at); }
    // The bytes must stay until the statement is stepped.
    void bindBytes(int at, const char* bytes, std::size_t size)
    {
        sqlite3_bind_blob(get(), at, bytes, static_cast<int>(size), SQLITE_STATIC);
    }
    void bindText(int at, QByteArray const& utf8)
    {
        sqlite3_bind_text(get(), at, utf8.constData(), utf8.size(), SQLITE_TRANSIENT);
    }
    void bindText(int at, QString const& text)
    {
        const QByteArray utf8 = text.toUtf8();
        sqlite3_bind_text(get(), at, utf8.constData(), utf8.size(), SQLITE_TRANSIENT);
    }
    int step() { return sqlite3_step(get()); }
    void reset()
    {
        sqlite3_reset(get());
        sqlite3_clear_bindings(get());
    }

    std::int64_t integer(int column) const { return sqlite3_column_int64(get(), column); }
    double real(int column) const { return sqlite3_column_double(get(), column); }
    bool isNull(int column) const { return sqlite3_column_type(get(), column) == SQLITE_NULL; }
    QString text(int column) const
    {
        const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(get(), column));
        return QString::fromUtf8(bytes, sqlite3_column_bytes(get(), column));
    }
    // Copies a text or blob column into a record's field: at most N - 1 bytes and the terminator.
    template<std::size_t N> void copyBytes(int column, char (&field)[N]) const
    {
        const void* bytes = sqlite3_column_blob(get(), column);
        const auto size = static_cast<std::size_t>(sqlite3_column_bytes(get(), column));
        const std::size_t n = bytes ? std::min(size, N - 1) : 0;
        if (n)
            std::memcpy(field, bytes, n);
        field[n] = '\0';
    }

private:
    std::unique_ptr<sqlite3_stmt, FinalizeStatement> handle;
};

inline QString lastError(sqlite3* db)
{
    return db ? QString::fromUtf8(sqlite3_errmsg(db)) : QStringLiteral("out of memory");
}

inline bool execute(sqlite3* db, const char* sql)
{
    return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

} // namespace capture::sqlite
