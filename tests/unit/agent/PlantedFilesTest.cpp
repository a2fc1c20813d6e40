#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "CException.h"
#include "OwnMounts.h"
#include "PlantedFiles.h"
#include "TempDir.h"

namespace {

namespace fs = std::filesystem;

// Each test works on a directory of its own that stands in place of /var/tmp, in a child process.
class PlantedFiles : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directory(temp("vartmp"));
        std::ofstream(temp("victim")) << "precious";
    }
    std::string temp(const std::string& name) const { return directory.file(name); }
    std::string planted(const std::string& name) const { return temp("vartmp/" + name); }
    static std::string read(const std::string& name) {
        std::ifstream file(name);
        std::string line;
        std::getline(file, line);
        return line;
    }

    // What is said of each removal; "refused: ..." where the job must not run.
    std::vector<std::string> removeFor(const std::string& line) const {
        const OwnMounts mounts({{"/var/tmp", temp("vartmp")}});
        const std::string report = temp("report");
        const pid_t pid = ::fork();
        if (pid == 0) {
            // Names below the mount are the child's alone.
            std::ofstream said(report);
            if (!mounts.enter()) {
                ::_exit(126);
            }
            try {
                plantedfiles::remove(line, [&](const std::string& text) { said << text << "\n"; });
            } catch (const CException& refused) {
                said << "refused: " << refused.getErrMsg() << "\n";
            }
            said.close();
            ::_exit(0);
        }
        int status = 0;
        EXPECT_EQ(pid, ::waitpid(pid, &status, 0));
        EXPECT_EQ(0, status);
        std::vector<std::string> lines;
        std::ifstream told(report);
        for (std::string text; std::getline(told, text);) {
            lines.push_back(text);
        }
        return lines;
    }

    TempDir directory;
};

using Lines = std::vector<std::string>;

}  // namespace

TEST_F(PlantedFiles, FilesOfRootStay) {
    std::ofstream(planted("ipmifwver.txt")) << "answer";
    EXPECT_EQ(Lines{}, removeFor(""));
    EXPECT_EQ("answer", read(planted("ipmifwver.txt")));
}

TEST_F(PlantedFiles, LinksAreRemovedAndNotFollowed) {
    fs::create_symlink(temp("victim"), planted("ipmifwver.txt"));
    fs::create_symlink("/no/such", planted("layoutcfg.txt"));
    EXPECT_EQ(2U, removeFor("").size());
    EXPECT_FALSE(fs::is_symlink(planted("ipmifwver.txt")));
    EXPECT_FALSE(fs::is_symlink(planted("layoutcfg.txt")));
    EXPECT_EQ("precious", read(temp("victim")));
}

TEST_F(PlantedFiles, WhatRootWouldWriteIntoOrBelieveIsRemoved) {
    fs::create_hard_link(temp("victim"), planted("validate_bios_id.txt"));
    ASSERT_EQ(0, ::mkfifo(planted("flashing_bios.txt").c_str(), 0600));
    std::ofstream(planted("get_ipmi_id.txt")) << "mine";
    ASSERT_EQ(0, ::chmod(planted("get_ipmi_id.txt").c_str(), 0666));
    fs::create_directories(planted("ipmi_flash_log.log/full"));
    EXPECT_EQ(4U, removeFor("").size());
    for (const char* const name :
         {"validate_bios_id.txt", "flashing_bios.txt", "get_ipmi_id.txt", "ipmi_flash_log.log"}) {
        EXPECT_FALSE(fs::exists(planted(name))) << name;
    }
    EXPECT_EQ("precious", read(temp("victim")));
}

TEST_F(PlantedFiles, FileOfAUserIsRemoved) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    std::ofstream(planted("get_bios_id_from_sys.txt")) << "forged";
    ASSERT_EQ(0, ::chown(planted("get_bios_id_from_sys.txt").c_str(), 65534, 65534));
    EXPECT_EQ(Lines{"/var/tmp/get_bios_id_from_sys.txt was a file that others could write of the "
                    "user 65534 and is removed"},
              removeFor(""));
    EXPECT_FALSE(fs::exists(planted("get_bios_id_from_sys.txt")));
}

TEST_F(PlantedFiles, NamesThatALineWritesToAreFreedToo) {
    for (const char* const name : {"image.rom.log", "b.txt", "read.txt"}) {
        fs::create_symlink(temp("victim"), planted(name));
    }
    EXPECT_EQ(2U, removeFor("tool -f /var/tmp/read.txt 2>&1 > /var/tmp/image.rom.log; "
                            "x | tee /var/tmp/b.txt")
                      .size());
    EXPECT_FALSE(fs::is_symlink(planted("image.rom.log")));
    EXPECT_FALSE(fs::is_symlink(planted("b.txt")));
    // Only read: what an administrator names there is his own business.
    EXPECT_TRUE(fs::is_symlink(planted("read.txt")));
}

TEST_F(PlantedFiles, OtherFilesAreNobodysBusiness) {
    fs::create_symlink(temp("victim"), planted("link-of-a-user"));
    EXPECT_EQ(Lines{}, removeFor("tool > /var/tmp/../var/tmp/x > /var/tmp/. > /var/tmp/"));
    EXPECT_TRUE(fs::is_symlink(planted("link-of-a-user")));
}
