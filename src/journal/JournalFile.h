#pragma once

#include <memory>
#include <string>

#include "SqliteDatabase.h"

// The file of the journal: where it lies, who may read it, what is in it.
//
// The schema is an interface with a version, see docs/journal.md: "PRAGMA user_version" is 1.
// Opening throws CException, with a text that says what is wrong, for a file that is damaged, has
// a newer schema, lies on a network file system, is a link, or can be written by others.
class JournalFile {
public:
    static constexpr int kSchemaVersion = 1;
    // How long a call waits for another shell that writes.
    static constexpr int kBusyTimeOutMs = 2000;

    // For shells, which write: made where there is none, with mode 0600, or 0660 and the
    // directory's group where that group may write the directory.
    static std::unique_ptr<SqliteDatabase> openForWriting(const std::string& fileName,
                                                          int busyTimeOutMs = kBusyTimeOutMs);
    // For questions. Null where there is no journal.
    static std::unique_ptr<SqliteDatabase> openForReading(const std::string& fileName);

    // What is wrong with the journal and what to do about it, for "results check"; empty when all
    // is well. Reads the whole file. Throws nothing.
    static std::string check(const std::string& fileName);
};
