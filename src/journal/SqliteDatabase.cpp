#include "SqliteDatabase.h"

#include <utility>

#include <sqlite3.h>

SqliteError::SqliteError(int sqliteCode, std::string text)
    : CException(std::move(text)), resultCode(sqliteCode & 0xFF) {}

SqliteDatabase::SqliteDatabase(const std::string& fileName, int flags) : file(fileName) {
    sqlite3* opened = nullptr;
    const int code = sqlite3_open_v2(fileName.c_str(), &opened, flags, nullptr);
    // There is a handle after most failures too, and it holds the reason.
    handle.reset(opened);
    if (code != SQLITE_OK) {
        fail(code, "cannot open");
    }
    sqlite3_extended_result_codes(handle.get(), 1);
}

SqliteDatabase::~SqliteDatabase() = default;

void SqliteDatabase::close(sqlite3* handle) {
    // The v2 form frees the memory even while a statement is left.
    static_cast<void>(sqlite3_close_v2(handle));
}

void SqliteDatabase::setBusyTimeout(int ms) {
    const int code = sqlite3_busy_timeout(handle.get(), ms);
    if (code != SQLITE_OK) {
        fail(code, "cannot set up");
    }
}

void SqliteDatabase::execute(const char* sql) {
    const int code = sqlite3_exec(handle.get(), sql, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) {
        fail(code, "cannot use");
    }
}

SqliteStatement SqliteDatabase::prepare(std::string_view sql) {
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v2(handle.get(), sql.data(), static_cast<int>(sql.size()),
                                        &statement, nullptr);
    if (code != SQLITE_OK) {
        fail(code, "cannot read");
    }
    return SqliteStatement(*this, statement);
}

std::int64_t SqliteDatabase::lastRowId() const {
    return sqlite3_last_insert_rowid(handle.get());
}

int SqliteDatabase::changes() const {
    return sqlite3_changes(handle.get());
}

void SqliteDatabase::fail(int code, const char* doing) const {
    const char* reason = handle ? sqlite3_errmsg(handle.get()) : sqlite3_errstr(code);
    throw SqliteError(code, std::string(doing) + " " + file + ": " + reason);
}

SqliteStatement::SqliteStatement(SqliteDatabase& owner, sqlite3_stmt* prepared)
    : database(&owner), statement(prepared) {}

void SqliteStatement::finalize(sqlite3_stmt* statement) {
    // Returns what the last step returned, and that was looked at.
    static_cast<void>(sqlite3_finalize(statement));
}

void SqliteStatement::check(int code, const char* doing) const {
    if (code != SQLITE_OK) {
        database->fail(code, doing);
    }
}

SqliteStatement& SqliteStatement::bind(int parameter, std::string_view text) {
    check(sqlite3_bind_text64(statement.get(), parameter + 1, text.data(), text.size(),
                              SQLITE_STATIC, SQLITE_UTF8),
          "cannot fill in for");
    return *this;
}

SqliteStatement& SqliteStatement::bindBlob(int parameter, std::string_view bytes) {
    check(sqlite3_bind_blob64(statement.get(), parameter + 1, bytes.data(), bytes.size(),
                              SQLITE_STATIC),
          "cannot fill in for");
    return *this;
}

SqliteStatement& SqliteStatement::bind(int parameter, std::int64_t number) {
    check(sqlite3_bind_int64(statement.get(), parameter + 1, number), "cannot fill in for");
    return *this;
}

SqliteStatement& SqliteStatement::bindNull(int parameter) {
    check(sqlite3_bind_null(statement.get(), parameter + 1), "cannot fill in for");
    return *this;
}

bool SqliteStatement::step() {
    const int code = sqlite3_step(statement.get());
    if (code == SQLITE_ROW) {
        return true;
    }
    if (code != SQLITE_DONE) {
        database->fail(code, "cannot use");
    }
    return false;
}

void SqliteStatement::run() {
    while (step()) {
    }
    reset();
}

void SqliteStatement::reset() {
    // Returns what the last step returned, and that was looked at.
    static_cast<void>(sqlite3_reset(statement.get()));
}

std::string SqliteStatement::text(int column) const {
    // The bytes first: asking for the length afterwards is what the library wants.
    const void* bytes = sqlite3_column_blob(statement.get(), column);
    const int length = sqlite3_column_bytes(statement.get(), column);
    return bytes == nullptr
               ? std::string()
               : std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(length));
}

std::int64_t SqliteStatement::number(int column) const {
    return sqlite3_column_int64(statement.get(), column);
}

bool SqliteStatement::isNull(int column) const {
    return sqlite3_column_type(statement.get(), column) == SQLITE_NULL;
}

SqliteTransaction::SqliteTransaction(SqliteDatabase& target) : database(target) {
    database.execute("BEGIN IMMEDIATE");
}

SqliteTransaction::~SqliteTransaction() {
    if (!open) {
        return;
    }
    try {
        database.execute("ROLLBACK");
    } catch (const SqliteError&) {
        // After some faults SQLite has undone it already.
    }
}

void SqliteTransaction::commit() {
    database.execute("COMMIT");
    open = false;
}
