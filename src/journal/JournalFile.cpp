#include "JournalFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <sqlite3.h>

#include "Posix.h"

namespace {

constexpr char kSchema[] =
    "CREATE TABLE commands ("
    " id INTEGER PRIMARY KEY AUTOINCREMENT, number INTEGER NOT NULL, who TEXT NOT NULL,"
    " host TEXT NOT NULL, line TEXT NOT NULL, started TEXT NOT NULL, ended TEXT,"
    " timeout_ms INTEGER NOT NULL, retry_of INTEGER REFERENCES commands(id));"
    "CREATE INDEX commands_by_number ON commands(number);"
    "CREATE INDEX commands_by_ancestor ON commands(retry_of) WHERE retry_of IS NOT NULL;"
    "CREATE TABLE results ("
    " command_id INTEGER NOT NULL REFERENCES commands(id), node TEXT NOT NULL,"
    " address TEXT NOT NULL, mac TEXT NOT NULL, cause TEXT NOT NULL, status INTEGER NOT NULL,"
    " exit_code INTEGER, ms INTEGER NOT NULL, output TEXT, truncated INTEGER NOT NULL);"
    "CREATE UNIQUE INDEX results_by_command ON results(command_id, node);"
    "CREATE INDEX results_by_node ON results(node, command_id);"
    "PRAGMA user_version=1;";

// Shared memory, which the write-ahead log needs, does not reach other machines.
bool isOnNetwork(int fd) {
    struct statfs found {};
    if (::fstatfs(fd, &found) != 0) {
        return false;
    }
    switch (static_cast<unsigned long>(found.f_type) & 0xFFFFFFFFUL) {
        case 0x6969UL:      // NFS
        case 0x517BUL:      // SMB
        case 0xFF534D42UL:  // CIFS
        case 0xFE534D42UL:  // SMB 2
        case 0x01021997UL:  // 9P
        case 0x5346414FUL:  // AFS
        case 0x6B414653UL:  // AFS of the kernel
        case 0x00C36400UL:  // Ceph
        case 0x0BD00BD0UL:  // Lustre
        case 0x47504653UL:  // GPFS
            return true;
        default:
            return false;
    }
}

std::string directoryOf(const std::string& fileName) {
    const std::string::size_type slash = fileName.rfind('/');
    return slash == std::string::npos ? "." : fileName.substr(0, slash + 1);
}

// A group that may write the directory is meant to share what is in it.
void shareWithGroup(int fd, const std::string& fileName) {
    constexpr mode_t kShared = 0660;
    struct stat directory {};
    if (::stat(directoryOf(fileName).c_str(), &directory) != 0 ||
        (directory.st_mode & S_IWGRP) == 0) {
        return;
    }
    // A group that it cannot be given to cannot share it; the journal works all the same.
    if (::fchown(fd, static_cast<uid_t>(-1), directory.st_gid) == 0) {
        static_cast<void>(::fchmod(fd, kShared));
    }
}

void examine(int fd, const std::string& fileName) {
    struct stat found {};
    if (::fstat(fd, &found) != 0) {
        Posix::throwErrno("cannot examine " + fileName);
    }
    if (!S_ISREG(found.st_mode)) {
        throw CException(fileName + " is not a regular file");
    }
    if ((found.st_mode & S_IWOTH) != 0) {
        throw CException(fileName + " can be written by everybody: chmod o-rwx " + fileName);
    }
    if (isOnNetwork(fd)) {
        throw CException(fileName +
                         " lies on a network file system, where shells cannot share it safely");
    }
}

// An own descriptor only to look at the file: closing it would drop locks that this process holds
// on the same file, so it comes before the database is opened.
bool lookAt(const std::string& fileName, bool mayMake) {
    constexpr mode_t kOwn = 0600;
    if (mayMake) {
        const UniqueFd made = Posix::open(fileName, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, kOwn);
        if (made) {
            shareWithGroup(made.get(), fileName);
            examine(made.get(), fileName);
            return true;
        }
        if (errno != EEXIST) {
            Posix::throwErrno("cannot make " + fileName);
        }
    }
    struct stat found {};
    if (::lstat(fileName.c_str(), &found) != 0) {
        if (errno == ENOENT && !mayMake) {
            return false;
        }
        Posix::throwErrno("cannot open " + fileName);
    }
    const UniqueFd there = Posix::open(fileName, O_PATH | O_NOFOLLOW);
    if (!there) {
        Posix::throwErrno("cannot open " + fileName);
    }
    examine(there.get(), fileName);
    return true;
}

std::int64_t pragma(SqliteDatabase& database, const char* sql) {
    SqliteStatement statement = database.prepare(sql);
    return statement.step() ? statement.number(0) : 0;
}

void expectSchema(SqliteDatabase& database, const std::string& fileName) {
    const std::int64_t version = pragma(database, "PRAGMA user_version");
    if (version != JournalFile::kSchemaVersion) {
        throw CException(fileName + " has version " + std::to_string(version) +
                         " of its schema, and this kelsh knows version " +
                         std::to_string(JournalFile::kSchemaVersion));
    }
}

void makeSchema(SqliteDatabase& database) {
    if (pragma(database, "PRAGMA user_version") != 0) {
        return;
    }
    // Another shell may be doing the same: whoever comes second finds it made.
    SqliteTransaction transaction(database);
    if (pragma(database, "PRAGMA user_version") == 0) {
        database.execute(kSchema);
    }
    transaction.commit();
}

}  // namespace

std::unique_ptr<SqliteDatabase> JournalFile::openForWriting(const std::string& fileName,
                                                            int busyTimeOutMs) {
    lookAt(fileName, true);
    auto database = std::make_unique<SqliteDatabase>(
        fileName, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_NOMUTEX);
    database->setBusyTimeout(busyTimeOutMs);
    // Must come before the first table; without it nothing deleted makes the file smaller.
    database->execute("PRAGMA auto_vacuum=INCREMENTAL");
    database->execute("PRAGMA journal_mode=WAL");
    // A crash of the machine may lose the last results, never the file.
    database->execute("PRAGMA synchronous=NORMAL");
    makeSchema(*database);
    expectSchema(*database, fileName);
    return database;
}

std::unique_ptr<SqliteDatabase> JournalFile::openForReading(const std::string& fileName) {
    if (!lookAt(fileName, false)) {
        return nullptr;
    }
    // Reading a journal in use needs to write beside it; where that is not allowed it is read as a
    // file that nobody changes.
    constexpr int kCommon = SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_NOMUTEX;
    const bool mayWrite =
        ::access(directoryOf(fileName).c_str(), W_OK) == 0 && ::access(fileName.c_str(), W_OK) == 0;
    auto database = std::make_unique<SqliteDatabase>(
        fileName, kCommon | (mayWrite ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY));
    database->setBusyTimeout(kBusyTimeOutMs);
    expectSchema(*database, fileName);
    return database;
}

std::string JournalFile::check(const std::string& fileName) {
    constexpr char kSetAside[] = "Set it aside, and the next command begins a new one: mv ";
    try {
        const std::unique_ptr<SqliteDatabase> database = openForReading(fileName);
        if (!database) {
            return "There is no journal yet: " + fileName + " is made with the next command.";
        }
        SqliteStatement integrity = database->prepare("PRAGMA integrity_check(1)");
        if (integrity.step() && integrity.text(0) != "ok") {
            return fileName + " is damaged: " + integrity.text(0) + ". " + kSetAside + fileName +
                   " " + fileName + ".damaged";
        }
        return std::string();
    } catch (const SqliteError& fault) {
        const bool damaged = fault.code() == SQLITE_CORRUPT || fault.code() == SQLITE_NOTADB;
        return fault.getErrMsg() + ". " +
               (damaged ? kSetAside + fileName + " " + fileName + ".damaged"
                        : "Nothing is lost; commands go on without the journal.");
    } catch (const CException& fault) {
        return fault.getErrMsg() + ".";
    }
}
