#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "CException.h"
#include "JournalFile.h"
#include "JournalReader.h"
#include "JournalWriter.h"
#include "NodeOutcome.h"
#include "TempDir.h"

namespace {

JournalResult target(const std::string& node) {
    JournalResult result;
    result.node = node;
    result.address = "127.1.0.1";
    result.mac = "02:00:00:00:00:01";
    return result;
}

JournalResult answer(const std::string& node, Cause cause, const std::string& output = "") {
    JournalResult result = target(node);
    result.cause = causeName(cause);
    result.status = cause == Cause::kOk ? 0 : 2;
    result.exitCode = cause == Cause::kOk ? 0 : 3;
    result.ms = 12;
    result.output = output;
    return result;
}

class JournalTest : public testing::Test {
protected:
    JournalCommand command(unsigned int number) const {
        JournalCommand made;
        made.number = number;
        made.who = "root";
        made.host = "master";
        made.line = "uptime -g all";
        made.started = JournalWriter::now();
        made.timeOutMs = 30000;
        return made;
    }
    std::int64_t record(unsigned int number, const std::vector<JournalResult>& results,
                        std::optional<std::int64_t> retryOf = std::nullopt) {
        JournalWriter writer(file, {});
        JournalCommand made = command(number);
        made.retryOf = retryOf;
        const std::int64_t id = writer.begin(made, results);
        for (const JournalResult& result : results) {
            writer.note(result, false);
        }
        writer.end(JournalWriter::now());
        EXPECT_EQ("", writer.takeWarning());
        return id;
    }
    mode_t modeOf(const std::string& name) const {
        struct stat found {};
        return ::stat(name.c_str(), &found) == 0 ? found.st_mode & 07777U : 0;
    }
    std::string sql(const std::string& question) const {
        SqliteDatabase database(file, SQLITE_OPEN_READWRITE);
        SqliteStatement row = database.prepare(question);
        return row.step() ? row.text(0) : "";
    }

    TempDir dir;
    const std::string file = dir.path() + "/journal.db";
};

TEST_F(JournalTest, HoldsCommandsAndResultsUnderItsVersion) {
    const std::int64_t id =
        record(42, {answer("n1", Cause::kOk, "up"), answer("n2", Cause::kFailed)});
    JournalReader reader(file);
    const std::optional<JournalCommand> found = reader.withNumber(42);
    ASSERT_TRUE(found);
    EXPECT_EQ(id, found->id);
    EXPECT_EQ("uptime -g all", found->line);
    EXPECT_EQ("root", found->who);
    EXPECT_EQ("master", found->host);
    EXPECT_EQ(30000U, found->timeOutMs);
    EXPECT_FALSE(found->ended.empty());
    const std::vector<JournalResult> results = reader.results(id, true);
    ASSERT_EQ(2U, results.size());
    EXPECT_EQ("n1", results[0].node);
    EXPECT_EQ("ok", results[0].cause);
    EXPECT_EQ("up", results[0].output);
    EXPECT_EQ("failed", results[1].cause);
    EXPECT_EQ(3, results[1].exitCode);
    EXPECT_EQ("1", sql("PRAGMA user_version"));
    EXPECT_EQ("wal", sql("PRAGMA journal_mode"));
}

TEST_F(JournalTest, SaysNotKnownOfWhatWasNotWritten) {
    JournalWriter writer(file, {});
    const std::int64_t id = writer.begin(command(1), {target("n1"), target("n2")});
    writer.note(answer("n1", Cause::kOk), false);
    JournalReader reader(file);
    const std::vector<JournalResult> results = reader.results(id, false);
    ASSERT_EQ(2U, results.size());
    EXPECT_EQ("ok", results[0].cause);
    EXPECT_EQ("not_known", results[1].cause);
    EXPECT_EQ("", reader.withId(id)->ended);
}

TEST_F(JournalTest, TakesTheNewestWhereANumberRepeats) {
    record(7, {answer("n1", Cause::kOk)});
    const std::int64_t second = record(7, {answer("n2", Cause::kOk)});
    EXPECT_EQ(second, JournalReader(file).withNumber(7)->id);
}

TEST_F(JournalTest, IsClosedToOthers) {
    record(1, {});
    EXPECT_EQ(0600U, modeOf(file));
}

TEST_F(JournalTest, IsSharedWithTheGroupThatMayWriteTheDirectory) {
    ASSERT_EQ(0, ::chmod(dir.path().c_str(), 0770));
    record(1, {});
    EXPECT_EQ(0660U, modeOf(file));
}

TEST_F(JournalTest, CutsLongOutputsAndSaysSo) {
    const std::string longOutput(JournalWriter::kMaxOutputBytes + 1, 'x');
    const std::int64_t id = record(1, {answer("n1", Cause::kOk, longOutput)});
    const std::vector<JournalResult> results = JournalReader(file).results(id, true);
    EXPECT_EQ(JournalWriter::kMaxOutputBytes, results.at(0).output->size());
    EXPECT_TRUE(results.at(0).truncated);
}

TEST_F(JournalTest, KeepsBytesThatAreNoText) {
    const std::string bytes("\xff\0\x01", 3);
    const std::int64_t id = record(1, {answer("n1", Cause::kOk, bytes)});
    EXPECT_EQ(bytes, JournalReader(file).results(id, true).at(0).output);
}

TEST_F(JournalTest, KeepsOfASecretLinesOutputOnlyLengthAndDigest) {
    JournalWriter writer(file, {});
    const std::int64_t id = writer.begin(command(1), {target("n1"), target("n2"), target("n3")});
    writer.note(answer("n1", Cause::kOk, "hunter2"), true);
    writer.note(answer("n2", Cause::kOk, "hunter2"), true);
    writer.note(answer("n3", Cause::kOk, "hunter3"), true);
    const std::vector<JournalResult> results = JournalReader(file).results(id, true);
    EXPECT_EQ(0U, results[0].output->find("7 bytes, HMAC "));
    EXPECT_EQ(14U + 64U, results[0].output->size());
    EXPECT_EQ(results[0].output, results[1].output);
    EXPECT_NE(results[0].output, results[2].output);
}

TEST_F(JournalTest, KeepsNoOutputWhereNoneIsWanted) {
    JournalWriter::Settings settings;
    settings.keepOutput = false;
    JournalWriter writer(file, settings);
    const std::int64_t id = writer.begin(command(1), {target("n1")});
    writer.note(answer("n1", Cause::kOk, "text"), false);
    const std::vector<JournalResult> results = JournalReader(file).results(id, true);
    EXPECT_EQ("ok", results.at(0).cause);
    EXPECT_EQ(std::nullopt, results.at(0).output);
}

TEST_F(JournalTest, AnswersAreEmptyWhereThereIsNone) {
    JournalReader reader(file);
    EXPECT_TRUE(reader.recent(20).empty());
    EXPECT_FALSE(reader.withNumber(1));
    EXPECT_TRUE(reader.leftOver(1).empty());
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(JournalTest, CountsCausesOfTheLastCommandsNewestFirst) {
    record(1,
           {answer("n1", Cause::kUnreachable), answer("n2", Cause::kOk), answer("n3", Cause::kOk)});
    record(2, {answer("n1", Cause::kOk)});
    const std::vector<JournalSummary> recent = JournalReader(file).recent(20);
    ASSERT_EQ(2U, recent.size());
    EXPECT_EQ(2U, recent[0].command.number);
    const std::vector<std::pair<std::string, std::size_t>> counts{{"ok", 2}, {"unreachable", 1}};
    EXPECT_EQ(counts, recent[1].counts);
    EXPECT_EQ(1U, JournalReader(file).recent(1).size());
}

TEST_F(JournalTest, RetriesAreOneFamilyUntilNothingIsLeft) {
    const std::int64_t first =
        record(1, {answer("n1", Cause::kOk), answer("n2", Cause::kUnreachable),
                   answer("n3", Cause::kFailed)});
    const std::int64_t second =
        record(2, {answer("n2", Cause::kOk), answer("n3", Cause::kTimedOut)}, first);
    JournalReader reader(file);
    for (const std::int64_t member : {first, second}) {
        const std::vector<JournalResult> left = reader.leftOver(member);
        ASSERT_EQ(1U, left.size());
        EXPECT_EQ("n3", left[0].node);
        EXPECT_EQ("timed_out", left[0].cause);
        EXPECT_EQ(first, reader.ancestorOf(member));
    }
    const std::int64_t third = record(3, {answer("n3", Cause::kOk)}, second);
    EXPECT_TRUE(reader.leftOver(third).empty());
    EXPECT_EQ(first, reader.ancestorOf(third));
}

TEST_F(JournalTest, TellsWhatANodeHasDone) {
    record(1, {answer("n1", Cause::kOk), answer("n2", Cause::kOk)});
    record(2, {answer("n1", Cause::kFailed)});
    const std::vector<JournalReader::NodeEntry> entries = JournalReader(file).historyOf("n1", 10);
    ASSERT_EQ(2U, entries.size());
    EXPECT_EQ(2U, entries[0].command.number);
    EXPECT_EQ("failed", entries[0].result.cause);
    EXPECT_EQ(1U, entries[1].command.number);
}

TEST_F(JournalTest, FindsTheLastCommandOfAUser) {
    record(1, {answer("n1", Cause::kOk)});
    EXPECT_EQ(1U, JournalReader(file).lastOf("root")->number);
    EXPECT_FALSE(JournalReader(file).lastOf("nobody"));
}

// What can be wrong with the file.

class BrokenJournalTest : public JournalTest {
protected:
    // The warning of a shell that runs two commands.
    std::string warningOfACommand() {
        JournalWriter writer(file, {});
        EXPECT_EQ(0, writer.begin(command(1), {target("n1")}));
        writer.note(answer("n1", Cause::kOk), false);
        writer.end(JournalWriter::now());
        const std::string warning = writer.takeWarning();
        EXPECT_EQ(0, writer.begin(command(2), {target("n1")}));
        EXPECT_EQ("", writer.takeWarning()) << "the second warning of one shell";
        return warning;
    }
};

TEST_F(BrokenJournalTest, DamagedFileCostsAWarning) {
    std::ofstream(file) << std::string(8192, 'x');
    ASSERT_EQ(0, ::chmod(file.c_str(), 0600));
    EXPECT_EQ("The journal is not written: cannot use " + file +
                  ": file is not a database. See \"results check\".",
              warningOfACommand());
    EXPECT_NE(std::string::npos, JournalFile::check(file).find("mv " + file));
}

TEST_F(BrokenJournalTest, NewerSchemaIsLeftAlone) {
    record(1, {});
    {
        SqliteDatabase database(file, SQLITE_OPEN_READWRITE);
        database.execute("PRAGMA user_version=2");
    }
    EXPECT_EQ("The journal is not written: " + file +
                  " has version 2 of its schema, and this kelsh knows version 1. See \"results "
                  "check\".",
              warningOfACommand());
    EXPECT_THROW(JournalReader reader(file), CException);
}

TEST_F(BrokenJournalTest, LockedFileIsGivenUpAfterItsTimeAndNotWaitedForTwice) {
    record(1, {});
    SqliteDatabase other(file, SQLITE_OPEN_READWRITE);
    other.execute("BEGIN IMMEDIATE");
    EXPECT_NE(std::string::npos, warningOfACommand().find("database is locked"));
}

TEST_F(BrokenJournalTest, LinkIsNotFollowed) {
    std::ofstream(dir.path() + "/elsewhere") << "";
    std::filesystem::create_symlink(dir.path() + "/elsewhere", file);
    EXPECT_NE("", warningOfACommand());
    EXPECT_EQ(0U, std::filesystem::file_size(dir.path() + "/elsewhere"));
}

TEST_F(BrokenJournalTest, FileThatEverybodyMayWriteIsNotBelieved) {
    record(1, {});
    ASSERT_EQ(0, ::chmod(file.c_str(), 0666));
    EXPECT_NE(std::string::npos, warningOfACommand().find("chmod o-rwx " + file));
}

TEST_F(BrokenJournalTest, MissingDirectoryCostsAWarning) {
    JournalWriter writer(dir.path() + "/none/journal.db", {});
    EXPECT_EQ(0, writer.begin(command(1), {}));
    EXPECT_NE("", writer.takeWarning());
}

TEST_F(JournalTest, CheckIsContentWithAWholeJournal) {
    EXPECT_NE("", JournalFile::check(file));
    record(1, {answer("n1", Cause::kOk)});
    EXPECT_EQ("", JournalFile::check(file));
}

// Retention.

TEST_F(JournalTest, DropsWhatIsOlderThanItsDays) {
    record(1, {answer("n1", Cause::kOk)});
    {
        SqliteDatabase database(file, SQLITE_OPEN_READWRITE);
        database.execute("UPDATE commands SET started='2020-01-01T00:00:00.000Z'");
    }
    record(2, {answer("n1", Cause::kOk)});
    EXPECT_FALSE(JournalReader(file).withNumber(1));
    EXPECT_EQ("1", sql("SELECT count(*) FROM results"));
}

TEST_F(JournalTest, DropsOutputsBeforeRowsWhereItIsTooLarge) {
    const std::string text(100000, 'x');
    for (unsigned int number = 1; number <= 20; ++number) {
        record(number, {answer("n1", Cause::kOk, text)});
    }
    JournalWriter::Settings settings;
    settings.bytes = 1000000;
    for (int i = 0; i < 50; ++i) {
        JournalWriter writer(file, settings);
        writer.begin(command(100), {target("n1")});
        writer.note(answer("n1", Cause::kOk, "new"), false);
        writer.end(JournalWriter::now());
    }
    EXPECT_TRUE(JournalReader(file).withNumber(1)) << "rows go last";
    EXPECT_NE("20", sql("SELECT count(output) FROM results WHERE length(output)=100000"));
    EXPECT_EQ("new", sql("SELECT output FROM results ORDER BY rowid DESC LIMIT 1"));
    EXPECT_EQ("1", sql("SELECT (SELECT page_count FROM pragma_page_count)*(SELECT page_size FROM "
                       "pragma_page_size)<=1000000"));
    EXPECT_EQ("ok", sql("PRAGMA integrity_check"));
}

// Several shells.

TEST_F(JournalTest, LosesNothingOfEightShellsThatWriteAtOnce) {
    constexpr unsigned int kShells = 8;
    constexpr unsigned int kCommands = 25;
    std::vector<std::thread> shells;
    std::atomic<unsigned int> faults{0};
    for (unsigned int shell = 0; shell < kShells; ++shell) {
        shells.emplace_back([&, shell] {
            JournalWriter writer(file, {});
            for (unsigned int i = 0; i < kCommands; ++i) {
                writer.begin(command(shell * 1000 + i), {target("n1"), target("n2")});
                writer.note(answer("n1", Cause::kOk, "a"), false);
                writer.note(answer("n2", Cause::kFailed, "b"), false);
                writer.end(JournalWriter::now());
            }
            faults += writer.takeWarning().empty() ? 0 : 1;
        });
    }
    for (std::thread& shell : shells) {
        shell.join();
    }
    EXPECT_EQ(0U, faults);
    EXPECT_EQ(std::to_string(kShells * kCommands), sql("SELECT count(*) FROM commands"));
    EXPECT_EQ("0", sql("SELECT count(*) FROM results WHERE cause='not_known'"));
    EXPECT_EQ("ok", sql("PRAGMA integrity_check"));
}

TEST_F(JournalTest, IsWholeAfterAShellWasKilledAtAnyMoment) {
    for (int round = 0; round < 20; ++round) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            JournalWriter writer(file, {});
            for (unsigned int i = 0;; ++i) {
                writer.begin(command(i), {target("n1"), target("n2")});
                writer.note(answer("n1", Cause::kOk, std::string(3000, 'x')), false);
                writer.note(answer("n2", Cause::kFailed, "b"), false);
                writer.end(JournalWriter::now());
            }
        }
        // Random enough: what the child has done by then depends on the machine.
        ::usleep(static_cast<useconds_t>(1000 + round * 700));
        ASSERT_EQ(0, ::kill(child, SIGKILL));
        int status = 0;
        ASSERT_EQ(child, ::waitpid(child, &status, 0));
    }
    record(1000000, {answer("n1", Cause::kOk)});
    EXPECT_EQ("ok", sql("PRAGMA integrity_check"));
    EXPECT_EQ("0", sql("SELECT count(*) FROM commands c WHERE (SELECT count(*) FROM results r"
                       " WHERE r.command_id=c.id)=0"));
}

}  // namespace
