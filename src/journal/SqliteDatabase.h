#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "CException.h"
#include "FreedBy.h"

struct sqlite3;
struct sqlite3_stmt;

// What the database said when it could not do something. The text names the file.
class SqliteError : public CException {
public:
    SqliteError(int sqliteCode, std::string text);
    // The primary result code of SQLite, SQLITE_BUSY and so on.
    int code() const { return resultCode; }

private:
    int resultCode;
};

class SqliteStatement;

// One connection to a database file. Owned by one thread. Throws SqliteError.
class SqliteDatabase {
public:
    // flags: SQLITE_OPEN_..., as sqlite3_open_v2 takes them.
    SqliteDatabase(const std::string& fileName, int flags);
    SqliteDatabase(const SqliteDatabase&) = delete;
    SqliteDatabase& operator=(const SqliteDatabase&) = delete;
    ~SqliteDatabase();

    // How long a call waits for another process that writes, in milliseconds.
    void setBusyTimeout(int ms);
    // One or more statements without results.
    void execute(const char* sql);
    SqliteStatement prepare(std::string_view sql);
    std::int64_t lastRowId() const;
    // Rows that the last statement has changed.
    int changes() const;

    [[noreturn]] void fail(int code, const char* doing) const;

private:
    static void close(sqlite3* handle);

    const std::string file;
    FreedBy<sqlite3, &SqliteDatabase::close> handle;
};

// One prepared statement; the database must outlive it. Parameters and columns count from 0.
class SqliteStatement {
public:
    SqliteStatement(SqliteDatabase& owner, sqlite3_stmt* prepared);

    // The text must live until the statement has been run.
    SqliteStatement& bind(int parameter, std::string_view text);
    SqliteStatement& bind(int parameter, std::int64_t number);
    SqliteStatement& bindNull(int parameter);
    SqliteStatement& bindBlob(int parameter, std::string_view bytes);

    // Goes to the next row; false when there is none.
    bool step();
    // Runs a statement that has no rows, and makes it ready for other parameters.
    void run();
    void reset();

    std::string text(int column) const;
    std::int64_t number(int column) const;
    bool isNull(int column) const;

private:
    static void finalize(sqlite3_stmt* statement);
    void check(int code, const char* doing) const;

    SqliteDatabase* database;
    FreedBy<sqlite3_stmt, &SqliteStatement::finalize> statement;
};

// BEGIN IMMEDIATE until commit(); the destructor undoes what was not committed.
class SqliteTransaction {
public:
    explicit SqliteTransaction(SqliteDatabase& target);
    SqliteTransaction(const SqliteTransaction&) = delete;
    SqliteTransaction& operator=(const SqliteTransaction&) = delete;
    ~SqliteTransaction();
    void commit();

private:
    SqliteDatabase& database;
    bool open = true;
};
