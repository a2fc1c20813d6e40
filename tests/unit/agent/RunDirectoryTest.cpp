#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "CException.h"
#include "RunDirectory.h"
#include "TempDir.h"

namespace {

class RunDirectoryTest : public testing::Test {
protected:
    RunDirectoryTest() : run(directory.path() + "/run/") { run.create(); }

    int sweep() {
        return run.sweep([this](const std::string& text) { told.push_back(text); });
    }
    void makeFile(const std::string& name) const { std::ofstream(directory.file(name)) << "x"; }
    bool has(const std::string& name) const {
        return std::filesystem::exists(directory.file(name));
    }
    std::size_t recordCount() const {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(run.getPath())) {
            count += entry.path().filename().string().rfind("job-", 0) == 0 ? 1 : 0;
        }
        return count;
    }

    TempDir directory;
    RunDirectory run;
    std::vector<std::string> told;
};

}  // namespace

TEST_F(RunDirectoryTest, IsMadeForItsOwnerOnlyAndKept) {
    struct stat made {};
    ASSERT_EQ(0, ::stat(run.getPath().c_str(), &made));
    EXPECT_EQ(0700U, made.st_mode & 0777U);
    EXPECT_NO_THROW(run.create());
}

TEST_F(RunDirectoryTest, OthersMayNotWriteToIt) {
    ASSERT_EQ(0, ::chmod(run.getPath().c_str(), 0777));
    EXPECT_THROW(run.create(), CException);
    EXPECT_THROW(RunDirectory(directory.path() + "/no/such/").create(), CException);
}

TEST_F(RunDirectoryTest, LockIsHeldByOneAndCarriesANote) {
    RunLock first = run.tryLock("a.lock");
    ASSERT_TRUE(first);
    first.note("who holds it");
    EXPECT_EQ("who holds it", run.noteOf("a.lock"));
    EXPECT_FALSE(run.tryLock("a.lock"));
    EXPECT_TRUE(run.tryLock("b.lock"));
    first.release();
    EXPECT_EQ("", run.noteOf("a.lock"));
    EXPECT_TRUE(run.tryLock("a.lock"));
}

TEST_F(RunDirectoryTest, RecordOfALivingOwnerIsLeftAlone) {
    makeFile("file");
    RunDirectory::Record record = run.openRecord(RunDirectory::Kind::kOrdinary);
    record.addFile(directory.file("file"));
    EXPECT_EQ(0, sweep());
    EXPECT_TRUE(has("file"));
    EXPECT_TRUE(run.hasOwned(RunDirectory::Kind::kOrdinary));
    EXPECT_FALSE(run.hasOwned(RunDirectory::Kind::kUninterruptible));
    record.finish();
    EXPECT_EQ(0U, recordCount());
    EXPECT_TRUE(has("file"));
    EXPECT_TRUE(told.empty());
}

TEST_F(RunDirectoryTest, RecordOfADeadOwnerIsDealtWith) {
    makeFile("file with\nnewline");
    makeFile("tool");
    makeFile("tool in use");
    {
        RunDirectory::Record record = run.openRecord(RunDirectory::Kind::kOrdinary);
        record.addFile(directory.file("file with\nnewline"));
        record.addFile(directory.file("never made"));
        record.addTool("tool.lock", directory.file("tool"));
        record.addTool("used.lock", directory.file("tool in use"));
    }
    const RunLock used = run.tryLock("used.lock");
    EXPECT_EQ(0, sweep());
    EXPECT_FALSE(has("file with\nnewline"));
    EXPECT_FALSE(has("tool"));
    EXPECT_TRUE(has("tool in use")) << "it belongs to another run by now";
    EXPECT_EQ(0U, recordCount());
    EXPECT_EQ(1U, told.size());
}

TEST_F(RunDirectoryTest, FieldCutOffByADeathIsIgnored) {
    makeFile("file");
    std::string name;
    {
        RunDirectory::Record record = run.openRecord(RunDirectory::Kind::kOrdinary);
        name = record.name();
    }
    std::ofstream(run.getPath() + name, std::ios::app) << "f" << directory.file("file");
    EXPECT_EQ(0, sweep());
    EXPECT_TRUE(has("file"));
}

TEST_F(RunDirectoryTest, GarbageInARecordDoesNoHarm) {
    std::ofstream(run.getPath() + "job-garbage", std::ios::binary)
        << std::string("\0\0t\0tno-slash\0\xff\0f\0", 17);
    EXPECT_EQ(0, sweep());
    EXPECT_EQ(0U, recordCount());
}

TEST_F(RunDirectoryTest, MarkedProcessesOfADeadOwnerAreEnded) {
    std::string marker;
    { marker = run.openRecord(RunDirectory::Kind::kOrdinary).marker(); }
    const pid_t child = ::fork();
    if (child == 0) {
        char* const arguments[] = {const_cast<char*>("sleep"), const_cast<char*>("600"), nullptr};
        char* const environment[] = {marker.data(), nullptr};
        ::execve("/bin/sleep", arguments, environment);
        ::_exit(127);
    }
    // The marker counts once the program runs.
    std::string name;
    while (name != "sleep") {
        std::ifstream comm("/proc/" + std::to_string(child) + "/comm");
        std::getline(comm, name);
        ASSERT_EQ(0, ::waitpid(child, nullptr, WNOHANG));
    }
    while (sweep() != 0) {
    }
    int status = 0;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(SIGKILL, WTERMSIG(status));
}

TEST_F(RunDirectoryTest, RecordInheritedByALivingJobIsLeftAlone) {
    makeFile("file");
    int ends[2];
    ASSERT_EQ(0, ::pipe(ends));
    pid_t child = 0;
    {
        RunDirectory::Record record = run.openRecord(RunDirectory::Kind::kUninterruptible);
        record.addFile(directory.file("file"));
        child = ::fork();
        if (child == 0) {
            char byte = 0;
            ::close(ends[1]);
            ::_exit(::read(ends[0], &byte, 1) == 0 ? 0 : 1);
        }
    }
    EXPECT_EQ(0, sweep());
    EXPECT_TRUE(has("file"));
    EXPECT_TRUE(run.hasOwned(RunDirectory::Kind::kUninterruptible));
    ::close(ends[0]);
    ::close(ends[1]);
    ASSERT_EQ(child, ::waitpid(child, nullptr, 0));
    EXPECT_EQ(0, sweep());
    EXPECT_FALSE(has("file"));
    ASSERT_EQ(1U, told.size());
    EXPECT_NE(told.front().find("uninterruptible"), std::string::npos);
}
