#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "AuditLog.h"
#include "TempDir.h"

namespace {

class AuditFile : public testing::Test {
protected:
    std::string file() const { return directory.file("audit.log"); }
    std::string headFile() const { return file() + ".head"; }
    AuditLog log() const { return AuditLog(file()); }

    static AuditEntry entry(const std::string& what = "echo \"hello\"") {
        AuditEntry made;
        made.certificate = "master";
        made.address = "127.0.0.1";
        made.user = "root";
        made.number = 42;
        made.request = "EXEC";
        made.what = what;
        made.id = "1-1";
        return made;
    }
    void write(int requests) const {
        for (int i = 0; i < requests; ++i) {
            log().append(entry(), "start", "", 0);
            log().append(entry(), "end", "exit code 0", 12);
        }
    }
    static std::string read(const std::string& name) {
        std::ifstream stream(name, std::ios::binary);
        std::stringstream content;
        content << stream.rdbuf();
        return content.str();
    }
    static void replace(const std::string& name, const std::string& content) {
        std::ofstream(name, std::ios::binary | std::ios::trunc) << content;
    }
    std::vector<std::string> lines() const {
        std::vector<std::string> all;
        std::istringstream stream(read(file()));
        for (std::string line; std::getline(stream, line);) {
            all.push_back(line + "\n");
        }
        return all;
    }
    static std::string join(const std::vector<std::string>& parts) {
        std::string all;
        for (const std::string& part : parts) {
            all += part;
        }
        return all;
    }
    long firstBad() const { return AuditLog::verifyFile(file()).line; }
    std::string verdict() const { return AuditLog::verifyFile(file()).text; }

    TempDir directory;
};

}  // namespace

TEST_F(AuditFile, LinesSayWhoDidWhat) {
    write(1);
    const std::vector<std::string> all = lines();
    ASSERT_EQ(2U, all.size());
    EXPECT_EQ(0U,
              all[0].rfind("{\"n\":1,\"prev\":\"" + std::string(64, '0') + "\",\"time\":\"", 0));
    EXPECT_NE(all[0].find("\"event\":\"start\",\"id\":\"1-1\",\"certificate\":\"master\","
                          "\"address\":\"127.0.0.1\",\"user\":\"root\",\"command\":42,"
                          "\"request\":\"EXEC\",\"what\":\"echo \\\"hello\\\"\",\"hash\":\""),
              std::string::npos)
        << all[0];
    EXPECT_NE(all[1].find("\"outcome\":\"exit code 0\",\"ms\":12,\"hash\":\""), std::string::npos);
    EXPECT_EQ("", verdict());
    EXPECT_EQ(2, AuditLog::verifyFile(file()).lines);
}

TEST_F(AuditFile, WritesStartAndEndTogether) {
    log().appendWhole(entry(), "02:00:00:00:00:01", 3);
    const std::vector<std::string> all = lines();
    ASSERT_EQ(2U, all.size());
    EXPECT_NE(all[0].find("\"event\":\"start\""), std::string::npos) << all[0];
    EXPECT_NE(all[1].find("\"event\":\"end\""), std::string::npos) << all[1];
    EXPECT_NE(all[1].find("\"outcome\":\"02:00:00:00:00:01\",\"ms\":3"), std::string::npos)
        << all[1];
    write(1);
    EXPECT_EQ("", verdict());
    EXPECT_EQ(4, AuditLog::verifyFile(file()).lines);
}

// Around the size of what is read of the end at first.
TEST_F(AuditFile, GoesOnBehindLinesOfEveryLength) {
    for (std::size_t length = 3500; length < 4300; length += 7) {
        log().append(entry(std::string(length, 'x')), "start", "", 0);
    }
    EXPECT_EQ("", verdict());
}

TEST_F(AuditFile, OnlyTheOwnerMayReadIt) {
    write(1);
    for (const std::string& name : {file(), headFile()}) {
        EXPECT_EQ(std::filesystem::status(name).permissions(),
                  std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    }
}

TEST_F(AuditFile, WithoutANameNothingIsWritten) {
    AuditLog("").append(entry(), "start", "", 0);
    EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST_F(AuditFile, EverySingleBitFlipIsFound) {
    log().append(entry("echo \"hello\"\n"), "start", "", 0);
    log().append(entry(), "refused", "not allowed", 0);
    log().append(entry(), "end", "exit code 0", 12345);
    const std::string good = read(file());
    const std::string head = read(headFile());
    ASSERT_EQ("", AuditLog::verify(good, head).text);
    std::vector<long> lineOf;
    long line = 1;
    for (const char c : good) {
        lineOf.push_back(line);
        line += c == '\n' ? 1 : 0;
    }
    for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
        std::string changed = good;
        changed[bit / 8] = static_cast<char>(changed[bit / 8] ^ (1 << (bit % 8)));
        const AuditLog::Finding found = AuditLog::verify(changed, head);
        ASSERT_NE(found.text, "") << "bit " << bit;
        ASSERT_EQ(found.line, lineOf[bit / 8]) << "bit " << bit;
    }
    for (std::size_t bit = 0; bit < head.size() * 8; ++bit) {
        std::string changed = head;
        changed[bit / 8] = static_cast<char>(changed[bit / 8] ^ (1 << (bit % 8)));
        ASSERT_NE(AuditLog::verify(good, changed).text, "") << "bit " << bit;
    }
}

// One bit makes "8" a "0".
TEST_F(AuditFile, HeadThatClaimsAnEmptyAuditIsFound) {
    write(4);
    std::string head = read(headFile());
    const std::string::size_type digit = head.find('8');
    ASSERT_EQ(19U, digit);
    head[digit] = '0';
    EXPECT_NE(AuditLog::verify(read(file()), head).text, "");
    EXPECT_NE(AuditLog::verify("", head).text, "");
}

TEST_F(AuditFile, RemovedMovedAndRepeatedLinesAreFound) {
    write(4);
    const std::vector<std::string> good = lines();
    for (std::size_t i = 0; i < good.size(); ++i) {
        std::vector<std::string> changed = good;
        changed.erase(changed.begin() + static_cast<long>(i));
        replace(file(), join(changed));
        EXPECT_EQ(static_cast<long>(i) + 1, firstBad()) << "removed";
        changed = good;
        changed.insert(changed.begin() + static_cast<long>(i), good[i]);
        replace(file(), join(changed));
        EXPECT_EQ(static_cast<long>(i) + 2, firstBad()) << "repeated";
        if (i > 0) {
            changed = good;
            std::swap(changed[i - 1], changed[i]);
            replace(file(), join(changed));
            EXPECT_EQ(static_cast<long>(i), firstBad()) << "moved";
        }
    }
    replace(file(), join(good));
    EXPECT_EQ("", verdict());
}

TEST_F(AuditFile, EveryTruncationIsFound) {
    write(2);
    const std::string good = read(file());
    const std::string head = read(headFile());
    for (std::size_t length = 0; length < good.size(); ++length) {
        ASSERT_NE(AuditLog::verify(good.substr(0, length), head).text, "") << length;
    }
}

TEST_F(AuditFile, GapStaysToBeSeenWhenTheAuditGoesOn) {
    write(2);
    std::vector<std::string> cut = lines();
    cut.pop_back();
    replace(file(), join(cut));
    write(1);
    EXPECT_EQ(4, firstBad());
    std::filesystem::remove(file());
    write(1);
    EXPECT_EQ(1, firstBad());
}

TEST_F(AuditFile, ChangedLineStaysToBeSeenWhenTheAuditGoesOn) {
    write(1);
    std::string changed = read(file());
    changed[changed.size() - 2] = 'x';
    replace(file(), changed);
    write(1);
    EXPECT_EQ(2, firstBad());
}

TEST_F(AuditFile, MissingHeadIsNotTakenForGood) {
    write(1);
    std::filesystem::remove(headFile());
    EXPECT_THROW(AuditLog::verifyFile(file()), CException);
    replace(headFile(), "");
    EXPECT_NE(verdict(), "");
}

TEST_F(AuditFile, CrashBetweenLineAndHeadIsNoFault) {
    write(1);
    const std::string head = read(headFile());
    write(1);
    replace(headFile(), head);
    EXPECT_EQ("", verdict());
    write(1);
    EXPECT_EQ("", verdict());
    EXPECT_EQ(6, AuditLog::verifyFile(file()).lines);
}

TEST_F(AuditFile, LineThatACrashLeftTornIsTakenBack) {
    write(1);
    std::ofstream(file(), std::ios::app) << "{\"n\":3,\"prev\":\"12";
    EXPECT_EQ(3, firstBad());
    write(1);
    EXPECT_EQ("", verdict());
    EXPECT_EQ(4U, lines().size());
}

TEST_F(AuditFile, TailCutWithinALineStaysToBeSeen) {
    write(2);
    const std::string good = read(file());
    replace(file(), good.substr(0, good.size() - 10));
    write(1);
    EXPECT_EQ(4, firstBad());
}

TEST_F(AuditFile, LongTextIsCutAndItsDigestKept) {
    log().append(entry(std::string(200000, '\x01')), "start", "", 0);
    log().append(entry(std::string(200000, '"')), "end", std::string(100000, '\n'), 1);
    EXPECT_LT(lines()[0].size(), 60000U);
    EXPECT_NE(lines()[0].find("\"what_bytes\":200000,\"what_sha256\":\""), std::string::npos);
    EXPECT_EQ("", verdict());
}

TEST_F(AuditFile, TextIsEscaped) {
    EXPECT_EQ("a\\\"b\\\\c\\u000a\\u007f\\u00ff", AuditLog::escape("a\"b\\c\n\x7f\xff", 100));
    EXPECT_EQ("ab", AuditLog::escape("abc", 2));
}

TEST_F(AuditFile, ProcessesAppendAtTheSameTime) {
    constexpr int kProcesses = 8;
    constexpr int kRequests = 25;
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
        const pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            try {
                write(kRequests);
            } catch (const CException&) {
                ::_exit(1);
            }
            ::_exit(0);
        }
        children.push_back(pid);
    }
    for (const pid_t child : children) {
        int status = 0;
        ASSERT_EQ(child, ::waitpid(child, &status, 0));
        EXPECT_EQ(0, status);
    }
    EXPECT_EQ("", verdict());
    EXPECT_EQ(AuditLog::verifyFile(file()).lines, kProcesses * kRequests * 2);
}

TEST_F(AuditFile, FailuresAreTold) {
    EXPECT_THROW(AuditLog("/no/such/audit").append(entry(), "start", "", 0), CException);
    EXPECT_NE(AuditLog("/no/such/audit").tryAppend(entry(), "end", "", 0), "");
    EXPECT_THROW(AuditLog("/no/such/audit").check(), CException);
    std::filesystem::create_symlink(directory.file("elsewhere"), file());
    EXPECT_THROW(log().append(entry(), "start", "", 0), CException);
    EXPECT_FALSE(std::filesystem::exists(directory.file("elsewhere")));
}

TEST_F(AuditFile, LockHeldForTooLongIsAnError) {
    write(1);
    FILE* const holder = std::fopen(file().c_str(), "re");
    ASSERT_NE(holder, nullptr);
    ASSERT_EQ(0, ::flock(::fileno(holder), LOCK_EX));
    EXPECT_THROW(AuditLog(file(), std::chrono::milliseconds(20)).append(entry(), "start", "", 0),
                 CException);
    std::fclose(holder);
    write(1);
    EXPECT_EQ("", verdict());
}
