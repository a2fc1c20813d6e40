#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "JournalRecord.h"
#include "SqliteDatabase.h"

// Writes what this shell does into the journal, each result as soon as it is known: a shell that is
// killed leaves what was known, and the rest reads "not_known".
//
// Nothing here throws, and nothing costs a command: where the journal cannot be written the command
// is not recorded, and the first time in the life of this object there is a warning for the user.
// Any number of shells write at once. Used by one thread.
class JournalWriter {
public:
    // Of a result; what comes after it is counted as truncated.
    static constexpr std::size_t kMaxOutputBytes = std::size_t{1024} * 1024;

    struct Settings {
        bool keepOutput = true;
        unsigned int days = 90;                                   // 0: for ever
        std::uint64_t bytes = std::uint64_t{1024} * 1024 * 1024;  // 0: no bound
    };

    JournalWriter(std::string fileName, const Settings& settings);
    JournalWriter(const JournalWriter&) = delete;
    JournalWriter& operator=(const JournalWriter&) = delete;
    ~JournalWriter();

    // Records the command and its targets before anything is sent; their results are not known yet.
    // The command's id is not looked at. Returns its key in the journal; 0 when it is not recorded.
    std::int64_t begin(const JournalCommand& command, const std::vector<JournalResult>& targets);
    // The result of one target of the command that was begun last.
    //   secret  something in the command's line was masked: of the output only its length and an
    //           HMAC are kept, so that two outputs can be compared and none can be read
    void note(const JournalResult& result, bool secret);
    // The command has ended. Also takes a small step of what retention asks for.
    void end(const std::string& time);

    // Takes the warning, once; empty when there is none.
    std::string takeWarning();

    // Now, in the form of the journal.
    static std::string now();

private:
    void fault(const std::string& reason);
    bool open();
    void prune();
    bool pruneOnce();
    std::string digestOf(const std::string& output);

    const std::string file;
    const Settings settings;
    std::unique_ptr<SqliteDatabase> database;
    std::optional<SqliteStatement> noting;
    std::int64_t current = 0;
    bool hadFault = false;
    std::string warning;
    std::string key;  // of the HMAC; made anew by every shell
};
