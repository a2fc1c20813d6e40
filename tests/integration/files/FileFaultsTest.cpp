// Files between a real kelsh and a real kelnode, while one of them is killed and while the disk,
// the target and the names are not as one would wish. Master and node see their own directories
// under one path.

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <random>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LocalAgent.h"
#include "MasterShell.h"
#include "QuotaDisk.h"
#include "RefusedCall.h"
#include "ScopedEnvironment.h"

namespace {

using testing::HasSubstr;

constexpr std::uint64_t kMebi = 1024 * 1024;
constexpr std::uint64_t kFileBytes = 64 * kMebi;

// Points per case; a long run asks for more.
int killPoints() {
    const char* wanted = std::getenv("KELSH_TEST_KILL_POINTS");
    return wanted != nullptr ? std::atoi(wanted) : 5;
}

unsigned int startValue() {
    const char* wanted = std::getenv("KELSH_TEST_SEED");
    return wanted != nullptr ? static_cast<unsigned int>(std::strtoul(wanted, nullptr, 10))
                             : std::random_device{}();
}

// A disk would have to take hundreds of these files.
const char* fastDirectory() {
    return ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
}

void fill(const std::string& path, char letter, std::uint64_t size) {
    std::ofstream file(path, std::ios::binary);
    const std::string piece(kMebi, letter);
    for (std::uint64_t at = 0; at < size; at += piece.size()) {
        file << piece;
    }
    ASSERT_TRUE(file.flush());
}

// The letter of which the file is made; '\0' for a mixture, or another size.
char letterOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string piece(kMebi, '\0');
    std::string expected;
    std::uint64_t size = 0;
    while (file.read(piece.data(), static_cast<std::streamsize>(piece.size()))) {
        if (expected.empty()) {
            expected.assign(piece.size(), piece.front());
        }
        if (piece != expected) {
            return '\0';
        }
        size += piece.size();
    }
    return size == kFileBytes && file.gcount() == 0 ? expected.front() : '\0';
}

class FileFaults : public testing::Test {
protected:
    FileFaults()
        : inMemory("TMPDIR", fastDirectory()),
          directory(std::make_unique<TempDir>()),
          agent(optionsFor(*directory)),
          master(agent) {
        // The shell knows one port: the agent that is started anew must have it again.
        agent.writeConfiguration();
    }
    ~FileFaults() override {
        if (mounted) {
            ::umount2(path("").c_str(), MNT_DETACH);
        }
    }

    // The path that both know, and where the two files of that path are.
    std::string path(const std::string& name) const { return directory->file("exchange/" + name); }
    std::string onMaster(const std::string& name) const { return path(name); }
    std::string onNode(const std::string& name) const { return directory->file("node/" + name); }

    std::vector<std::string> line(const std::string& word, const std::string& name) const {
        return {word, "file", "-f", name, "-n", "node", "-t", "120000"};
    }
    int save(const std::string& name) { return master.run(line("save", path(name))); }
    int get(const std::string& name) { return master.run(line("get", path(name))); }

    bool isTidy(const std::string& where, const std::vector<std::string>& names = {"f"}) const {
        return waitFor([&] { return LocalAgent::list(where) == names; }, std::chrono::seconds(30));
    }

    // The agent was forked before: it does not see this.
    void mountOnMaster(const char* options, unsigned long flags = 0) {
        ASSERT_EQ(0, ::mount("tmpfs", path("").c_str(), "tmpfs", flags, options))
            << "the agent's tests need root";
        mounted = true;
    }

    ScopedEnvironment inMemory;
    std::unique_ptr<TempDir> directory;
    LocalAgent agent;
    MasterShell master;
    bool mounted = false;

private:
    static LocalAgent::Options optionsFor(const TempDir& root) {
        std::filesystem::create_directory(root.file("exchange"));
        std::filesystem::create_directory(root.file("node"));
        LocalAgent::Options options;
        options.settings["MAC_ADDRESS"] = MasterShell::kMac;
        options.mounts[root.file("exchange")] = root.file("node");
        return options;
    }
};

// The receiving end may not write as much as it is sent: the node of a save, the master of a get.
class FileLimit : public FileFaults, public testing::WithParamInterface<bool> {
protected:
    FileLimit() : isSave(GetParam()), target(isSave ? onNode("") : onMaster("")) {
        if (isSave) {
            agent.signal(SIGTERM);
            EXPECT_TRUE(agent.waitForExit());
        }
    }

    // Before the receiver is started.
    void prepareFiles() {
        std::ofstream(target + "f") << "old";
        fill(isSave ? onMaster("f") : onNode("f"), 'n', 16 * kMebi);
    }
    void startReceiver() {
        if (isSave) {
            agent.start();
        } else {
            master.start(line("get", path("f")));
        }
    }
    void expectRefusal(const std::string& reason) {
        EXPECT_EQ(2, isSave ? save("f") : master.wait());
        EXPECT_THAT(master.output(), HasSubstr(reason));
        EXPECT_EQ("old", LocalAgent::read(target + "f"));
        EXPECT_TRUE(isTidy(target)) << testing::PrintToString(LocalAgent::list(target));
    }

    bool isSave;
    std::string target;
};

enum class Victim { kSession, kMaster, kListener };

std::string nameOf(Victim victim) {
    return victim == Victim::kSession  ? "Session"
           : victim == Victim::kMaster ? "Master"
                                       : "Listener";
}

class FileKill : public FileFaults, public testing::WithParamInterface<std::tuple<bool, Victim>> {
protected:
    void SetUp() override {
        fill(directory->file("older"), 'o', kFileBytes);
        fill(directory->file("newer"), 'n', kFileBytes);
        isSave = std::get<0>(GetParam());
        const std::string source = isSave ? onMaster("f") : onNode("f");
        std::filesystem::create_hard_link(directory->file("newer"), source);
        targetDirectory = directory->file(isSave ? "node" : "exchange");
    }

    // Another name of the older file: writing into it instead of replacing it would show as well.
    void resetTarget() const {
        std::filesystem::remove(targetDirectory + "/f");
        std::filesystem::create_hard_link(directory->file("older"), targetDirectory + "/f");
    }

    std::vector<std::string> words() const { return line(isSave ? "save" : "get", path("f")); }

    void strike() {
        switch (std::get<1>(GetParam())) {
            case Victim::kSession:
                for (const pid_t session : agent.processes("kelnode-session")) {
                    ::kill(session, SIGKILL);
                }
                break;
            case Victim::kMaster:
                master.kill();
                break;
            case Victim::kListener:
                agent.signal(SIGKILL);
                ASSERT_TRUE(agent.waitForExit());
                break;
        }
    }

    // How long it takes when nobody disturbs it.
    std::chrono::microseconds undisturbed() {
        resetTarget();
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(0, master.run(words())) << master.output();
        EXPECT_EQ('n', letterOf(targetDirectory + "/f"));
        return std::chrono::duration_cast<std::chrono::microseconds>(
            std::chrono::steady_clock::now() - begin);
    }

    void round(std::chrono::microseconds delay) {
        resetTarget();
        master.start(words());
        // The point in time is what this is about.
        std::this_thread::sleep_for(delay);
        strike();
        const int status = master.wait();
        if (std::get<1>(GetParam()) == Victim::kListener) {
            // A session that is still at work is not the new listener's, and may end later.
            agent.start();
        }
        const char found = letterOf(targetDirectory + "/f");
        EXPECT_TRUE(found == 'o' || found == 'n') << "the target is torn";
        if (status == 0) {
            EXPECT_EQ('n', found) << "reported as done: " << master.output();
        }
        EXPECT_TRUE(isTidy(targetDirectory))
            << testing::PrintToString(LocalAgent::list(targetDirectory));
        EXPECT_EQ('o', letterOf(directory->file("older"))) << "written in place";
    }

    bool isSave = false;
    std::string targetDirectory;
};

}  // namespace

TEST_P(FileKill, TargetIsTheOldFileOrTheNewOneAndNothingElseStays) {
    const unsigned int seed = startValue();
    std::cout << "KELSH_TEST_SEED=" << seed << " repeats these points\n";
    std::mt19937 random(seed);
    const auto whole = undisturbed();
    for (int i = 0; i < killPoints(); ++i) {
        const std::chrono::microseconds delay(random() % static_cast<unsigned long>(whole.count()));
        SCOPED_TRACE("killed after " + std::to_string(delay.count()) + " us of " +
                     std::to_string(whole.count()));
        round(delay);
    }
    EXPECT_TRUE(waitFor([&] { return agent.records().empty(); }));
    // All the same, everything still works.
    undisturbed();
}

INSTANTIATE_TEST_SUITE_P(Points, FileKill,
                         testing::Combine(testing::Bool(),
                                          testing::Values(Victim::kSession, Victim::kMaster,
                                                          Victim::kListener)),
                         [](const testing::TestParamInfo<FileKill::ParamType>& of) {
                             return std::string(std::get<0>(of.param) ? "Save" : "Get") +
                                    nameOf(std::get<1>(of.param));
                         });

TEST_F(FileFaults, FullDiskOnTheMasterKeepsTheOldFile) {
    mountOnMaster("size=4m");
    std::ofstream(onMaster("f")) << "old";
    fill(onNode("f"), 'n', 16 * kMebi);
    EXPECT_EQ(2, get("f"));
    // The size is known before the first byte.
    EXPECT_THAT(master.output(), HasSubstr("There is no room for \"" + onMaster("f") + "\""));
    EXPECT_EQ("old", LocalAgent::read(onMaster("f")));
    EXPECT_TRUE(isTidy(path("")));
}

TEST_P(FileLimit, QuotaKeepsTheOldFile) {
    const QuotaDisk disk(directory->path(), target, 4 * kMebi);
    if (!disk.missing().empty()) {
        GTEST_SKIP() << disk.missing();
    }
    prepareFiles();
    startReceiver();
    expectRefusal("Disk quota exceeded");
}

// The same where no such file system is to be had. Some report it only when the file is synced.
TEST_P(FileLimit, QuotaReportedByAnyCallKeepsTheOldFile) {
    for (const long call : {SYS_pwrite64, SYS_fsync}) {
        SCOPED_TRACE("system call " + std::to_string(call));
        prepareFiles();
        bool allowed = false;
        std::thread([&] {
            allowed = refuseCall(static_cast<unsigned int>(call), EDQUOT);
            startReceiver();
        }).join();
        expectRefusal("Disk quota exceeded");
        EXPECT_TRUE(allowed);
        if (isSave) {
            agent.signal(SIGTERM);
            EXPECT_TRUE(agent.waitForExit());
        }
    }
}

TEST_P(FileLimit, LimitOnTheSizeOfFilesKeepsTheOldFile) {
    prepareFiles();
    rlimit before{};
    ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &before));
    const rlimit small{kMebi, before.rlim_max};
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &small));
    startReceiver();
    ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &before));
    expectRefusal("File too large");
}

INSTANTIATE_TEST_SUITE_P(Ends, FileLimit, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& isSave) {
                             return isSave.param ? "OfTheNode" : "OfTheMaster";
                         });

TEST_F(FileFaults, ReadOnlyFileSystemOnTheMasterIsReported) {
    mountOnMaster("size=4m", MS_RDONLY);
    std::ofstream(onNode("f")) << "new";
    EXPECT_EQ(2, get("f"));
    EXPECT_THAT(master.output(), HasSubstr("Read-only file system"));
}

TEST_F(FileFaults, MissingParentIsReportedByWhoMissesIt) {
    std::filesystem::create_directory(onMaster("only-here"));
    std::ofstream(onMaster("only-here/f")) << "new";
    EXPECT_EQ(2, save("only-here/f"));
    EXPECT_THAT(master.output(), HasSubstr("No such file or directory"));
    std::filesystem::create_directory(onNode("only-there"));
    std::ofstream(onNode("only-there/f")) << "new";
    EXPECT_EQ(2, get("only-there/f"));
    EXPECT_THAT(master.output(), HasSubstr("No such file or directory"));
    EXPECT_TRUE(LocalAgent::list(onMaster("only-here")) == std::vector<std::string>{"f"});
}

TEST_F(FileFaults, TargetThatKeepsChangingItsKindIsNeverWrittenThrough) {
    for (const bool isSave : {true, false}) {
        SCOPED_TRACE(isSave ? "save" : "get");
        std::ofstream(isSave ? onMaster("f") : onNode("f")) << "new";
        const std::string targets = isSave ? onNode("") : onMaster("");
        std::ofstream(targets + "precious") << "precious";
        std::atomic<bool> stop{false};
        std::thread changer([&] {
            std::error_code ignored;
            while (!stop) {
                std::filesystem::remove_all(targets + "f", ignored);
                std::filesystem::create_symlink("precious", targets + "f", ignored);
                std::filesystem::remove(targets + "f", ignored);
                std::filesystem::create_directory(targets + "f", ignored);
            }
        });
        for (int i = 0; i < 20; ++i) {
            const int status = isSave ? save("f") : get("f");
            EXPECT_TRUE(status == 0 || status == 2) << master.output();
        }
        stop = true;
        changer.join();
        EXPECT_EQ("precious", LocalAgent::read(targets + "precious"));
        for (const std::string& name : LocalAgent::list(targets)) {
            EXPECT_TRUE(name == "precious" || name == "f") << name;
        }
        std::filesystem::remove_all(targets + "f");
    }
}

TEST_F(FileFaults, FileThatChangesWhileItIsReadIsNeverTakenForWhole) {
    for (const bool isSave : {true, false}) {
        for (const bool grows : {true, false}) {
            SCOPED_TRACE(std::string(isSave ? "save" : "get") + (grows ? " grows" : " shrinks"));
            const std::string source = isSave ? onMaster("f") : onNode("f");
            const std::string target = isSave ? onNode("f") : onMaster("f");
            fill(source, 'n', kFileBytes);
            std::ofstream(target) << "old";
            std::atomic<bool> stop{false};
            std::thread changer([&] {
                while (!stop) {
                    if (grows) {
                        std::ofstream(source, std::ios::app) << "more";
                    } else {
                        std::error_code ignored;
                        const std::uint64_t size = std::filesystem::file_size(source, ignored);
                        std::filesystem::resize_file(source, size - std::min(size, kMebi / 16),
                                                     ignored);
                    }
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
            });
            const int status = isSave ? save("f") : get("f");
            stop = true;
            changer.join();
            // Shrunk to nothing before it was opened, it is a whole and empty file.
            if (status == 0) {
                EXPECT_EQ(0U, std::filesystem::file_size(target)) << master.output();
            } else {
                EXPECT_THAT(master.output(), HasSubstr("while it was being read"));
                EXPECT_EQ("old", LocalAgent::read(target));
            }
        }
    }
}

// The command line joins runs of blanks and ends at a newline; names with those, and with double
// quotes, are for callers of the runtime.
TEST_F(FileFaults, OddNamesTravelFromTheCommandLine) {
    for (const std::string& name :
         {std::string(255, 'n'), std::string("with two blanks"), std::string("it's"),
          std::string("gr\xc3\xbc\xc3\x9f"), std::string("$(reboot)"), std::string("a;b&c|d"),
          std::string("star*")}) {
        SCOPED_TRACE(name);
        std::ofstream(onMaster(name)) << name;
        EXPECT_EQ(0, master.run(line("save", "\"" + path(name) + "\""))) << master.output();
        EXPECT_EQ(name, LocalAgent::read(onNode(name)));
        std::filesystem::remove(onMaster(name));
        EXPECT_EQ(0, master.run(line("get", "\"" + path(name) + "\""))) << master.output();
        EXPECT_EQ(name, LocalAgent::read(onMaster(name)));
    }
}

TEST_F(FileFaults, EmptyFileTravelsBothWays) {
    std::ofstream(onMaster("f")).flush();
    std::ofstream(onNode("f")) << "old";
    EXPECT_EQ(0, save("f")) << master.output();
    EXPECT_EQ(0U, std::filesystem::file_size(onNode("f")));
    std::ofstream(onMaster("f")) << "old";
    EXPECT_EQ(0, get("f")) << master.output();
    EXPECT_EQ(0U, std::filesystem::file_size(onMaster("f")));
}
