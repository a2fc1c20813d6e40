#include "JournalWriter.h"

#include <chrono>
#include <ctime>
#include <utility>

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <sqlite3.h>

#include "CException.h"
#include "JournalFile.h"
#include "Text.h"

namespace {

// A step of retention must not be felt at the prompt.
constexpr int kPruneSteps = 8;
constexpr int kRowsPerStep = 64;
constexpr std::size_t kKeyBytes = 32;

std::string timeText(std::chrono::system_clock::time_point time) {
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
    const std::time_t seconds = static_cast<std::time_t>(ms / 1000);
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    char text[40];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    std::string fraction = std::to_string(1000 + ms % 1000);
    return std::string(text, length) + "." + fraction.substr(1) + "Z";
}

// Text where it is text: other programs then show it as such.
void bindOutput(SqliteStatement& statement, int parameter, const std::string& output) {
    if (Text::isUtf8(output) && output.find('\0') == std::string::npos) {
        statement.bind(parameter, output);
    } else {
        statement.bindBlob(parameter, output);
    }
}

}  // namespace

JournalWriter::JournalWriter(std::string fileName, const Settings& wanted)
    : file(std::move(fileName)), settings(wanted) {}

JournalWriter::~JournalWriter() = default;

std::string JournalWriter::now() {
    return timeText(std::chrono::system_clock::now());
}

void JournalWriter::fault(const std::string& reason) {
    if (!hadFault) {
        warning = "The journal is not written: " + reason + ". See \"results check\".";
    }
    hadFault = true;
    current = 0;
    noting.reset();
    database.reset();
}

std::string JournalWriter::takeWarning() {
    return std::exchange(warning, std::string());
}

bool JournalWriter::open() {
    if (database) {
        return true;
    }
    // Whoever had to wait once does not wait again at every command.
    database = JournalFile::openForWriting(file, hadFault ? 0 : JournalFile::kBusyTimeOutMs);
    return true;
}

std::int64_t JournalWriter::begin(const JournalCommand& command,
                                  const std::vector<JournalResult>& targets) {
    current = 0;
    try {
        open();
        SqliteTransaction transaction(*database);
        SqliteStatement row = database->prepare(
            "INSERT INTO commands(number,who,host,line,started,timeout_ms,retry_of)"
            " VALUES(?,?,?,?,?,?,?)");
        row.bind(0, static_cast<std::int64_t>(command.number))
            .bind(1, command.who)
            .bind(2, command.host)
            .bind(3, command.line)
            .bind(4, command.started)
            .bind(5, static_cast<std::int64_t>(command.timeOutMs));
        if (command.retryOf) {
            row.bind(6, *command.retryOf);
        } else {
            row.bindNull(6);
        }
        row.run();
        const std::int64_t id = database->lastRowId();
        SqliteStatement target = database->prepare(
            "INSERT INTO results(command_id,node,address,mac,cause,status,ms,truncated)"
            " VALUES(?,?,?,?,'not_known',0,0,0)");
        for (const JournalResult& result : targets) {
            target.bind(0, id).bind(1, result.node).bind(2, result.address).bind(3, result.mac);
            target.run();
        }
        transaction.commit();
        current = id;
    } catch (const CException& problem) {
        fault(problem.getErrMsg());
    }
    return current;
}

void JournalWriter::note(const JournalResult& result, bool secret) {
    if (current == 0) {
        return;
    }
    try {
        if (!noting) {
            noting.emplace(database->prepare(
                "UPDATE results SET cause=?,status=?,exit_code=?,ms=?,output=?,truncated=?"
                " WHERE command_id=? AND node=?"));
        }
        SqliteStatement& row = *noting;
        row.bind(0, result.cause).bind(1, static_cast<std::int64_t>(result.status));
        if (result.exitCode) {
            row.bind(2, static_cast<std::int64_t>(*result.exitCode));
        } else {
            row.bindNull(2);
        }
        row.bind(3, static_cast<std::int64_t>(result.ms));
        bool truncated = result.truncated;
        std::string kept;
        if (!settings.keepOutput || !result.output) {
            row.bindNull(4);
        } else {
            truncated = truncated || result.output->size() > kMaxOutputBytes;
            kept = secret ? digestOf(*result.output) : result.output->substr(0, kMaxOutputBytes);
            bindOutput(row, 4, kept);
        }
        row.bind(5, std::int64_t{truncated ? 1 : 0}).bind(6, current).bind(7, result.node);
        row.run();
    } catch (const CException& problem) {
        fault(problem.getErrMsg());
    }
}

void JournalWriter::end(const std::string& time) {
    if (current == 0) {
        return;
    }
    try {
        SqliteStatement row = database->prepare("UPDATE commands SET ended=? WHERE id=?");
        row.bind(0, time).bind(1, current);
        row.run();
        prune();
    } catch (const CException& problem) {
        fault(problem.getErrMsg());
    }
    current = 0;
}

void JournalWriter::prune() {
    for (int step = 0; step < kPruneSteps && pruneOnce(); ++step) {
    }
}

// The oldest first, outputs before rows. False when nothing is left to be done.
bool JournalWriter::pruneOnce() {
    const auto changed = [this](const char* sql, std::string_view limit) {
        SqliteStatement statement = database->prepare(sql);
        if (!limit.empty()) {
            statement.bind(0, limit);
        }
        statement.run();
        return database->changes() > 0;
    };
    static_assert(kRowsPerStep == 64, "the statements name the number");
    if (settings.days != 0) {
        const std::string oldest =
            timeText(std::chrono::system_clock::now() -
                     std::chrono::hours(24) * static_cast<int>(settings.days));
        if (changed("DELETE FROM results WHERE rowid IN (SELECT r.rowid FROM results r JOIN"
                    " commands c ON c.id=r.command_id WHERE c.started<? LIMIT 64)",
                    oldest) ||
            changed("DELETE FROM commands WHERE id IN (SELECT id FROM commands c WHERE c.started<?"
                    " AND NOT EXISTS (SELECT 1 FROM commands d WHERE d.retry_of=c.id) LIMIT 64)",
                    oldest)) {
            return true;
        }
    }
    if (settings.bytes == 0) {
        return false;
    }
    SqliteStatement size = database->prepare(
        "SELECT (SELECT page_count FROM pragma_page_count)*(SELECT page_size FROM"
        " pragma_page_size), (SELECT freelist_count FROM pragma_freelist_count)*(SELECT page_size"
        " FROM pragma_page_size)");
    if (!size.step() || size.number(0) <= static_cast<std::int64_t>(settings.bytes)) {
        return false;
    }
    const bool hasFreePages = size.number(1) > 0;
    size.reset();
    if (hasFreePages) {
        SqliteStatement giveBack = database->prepare("PRAGMA incremental_vacuum(1024)");
        giveBack.run();
        return true;
    }
    return changed(
               "UPDATE results SET output=NULL WHERE rowid IN (SELECT rowid FROM results WHERE"
               " output IS NOT NULL AND command_id<>(SELECT max(id) FROM commands)"
               " ORDER BY rowid LIMIT 64)",
               "") ||
           changed(
               "DELETE FROM results WHERE rowid IN (SELECT rowid FROM results WHERE"
               " command_id<>(SELECT max(id) FROM commands) ORDER BY rowid LIMIT 64)",
               "") ||
           changed(
               "DELETE FROM commands WHERE id IN (SELECT id FROM commands c WHERE"
               " id<>(SELECT max(id) FROM commands) AND NOT EXISTS (SELECT 1 FROM commands d"
               " WHERE d.retry_of=c.id) ORDER BY id LIMIT 64)",
               "");
}

std::string JournalWriter::digestOf(const std::string& output) {
    if (key.empty()) {
        key.resize(kKeyBytes);
        if (RAND_bytes(reinterpret_cast<unsigned char*>(key.data()), kKeyBytes) != 1) {
            key.clear();
            return std::to_string(output.size()) + " bytes";
        }
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
             reinterpret_cast<const unsigned char*>(output.data()), output.size(), digest,
             &length) == nullptr) {
        length = 0;
    }
    std::string text = std::to_string(output.size()) + " bytes, HMAC ";
    for (unsigned int i = 0; i < length; ++i) {
        Text::appendHex(text, static_cast<char>(digest[i]));
    }
    return text;
}
