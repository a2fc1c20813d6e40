#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CUtil.h"
#include "TempDir.h"
#include "TestPaths.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr int kDone = 0;
constexpr int kEmpty = 1;
constexpr int kWrong = 2;

// Drives the program itself.
class Kelnodes : public testing::Test {
protected:
    void SetUp() override {
        std::ofstream(directory.file("node.cfg"))
            << "[node]\nn1=00:11:22:33:44:01,127.0.0.1:4422\n"
               "n2=00:11:22:33:44:02,127.0.0.1:4423\nm1=00:11:22:33:44:03,127.0.0.1:4424\n"
               "[group]\nrack=n1,n2\nall=rack,m1\n";
    }

    int run(const std::string& arguments, const std::string& input = "/dev/null") {
        output.clear();
        return CUtil::exec_cmd("cd " + directory.path() + " && KELSH_PATH=" + directory.path() +
                                   " " KELSH_BINARY_DIR "/bin/kelnodes " + arguments + " <" + input,
                               &output, &output);
    }

    TempDir directory;
    std::string output;
};

TEST_F(Kelnodes, FoldsExpandsAndCounts) {
    EXPECT_EQ(kDone, run("fold n1 n2 n3 n07"));
    EXPECT_EQ("n[1-3,07]\n", output);
    EXPECT_EQ(kDone, run("expand 'r[1-2]n[01-02]!r2n01'"));
    EXPECT_EQ("r1n01\nr1n02\nr2n02\n", output);
    EXPECT_EQ(kDone, run("count 'n[1-1000]' 'n[500-2000]'"));
    EXPECT_EQ("2000\n", output);
}

TEST_F(Kelnodes, ReadsSetsFromStandardInput) {
    std::ofstream(directory.file("list")) << "n3 n1\nn[1-2]\n";
    EXPECT_EQ(kDone, run("fold", "list"));
    EXPECT_EQ("n[1-3]\n", output);
}

TEST_F(Kelnodes, TakesGroupsFromTheNodeFile) {
    EXPECT_EQ(kDone, run("expand @all"));
    EXPECT_EQ("m1\nn1\nn2\n", output);
    EXPECT_EQ(kDone, run("expand '@all!@rack,x'"));
    EXPECT_EQ("m1\nx\n", output);
    std::ofstream(directory.file("other")) << "[node]\nz=00:11:22:33:44:03,127.0.0.1:4424\n";
    EXPECT_EQ(kDone, run("expand --config other '@*'"));
    EXPECT_EQ("z\n", output);
}

TEST_F(Kelnodes, NeedsANodeFileForGroupsOnly) {
    EXPECT_EQ(kDone, run("fold --config missing n1"));
    EXPECT_EQ(kWrong, run("fold --config missing @rack"));
    EXPECT_EQ("kelnodes: \"missing\" cannot be opened: No such file or directory\n", output);
    std::ofstream(directory.file("bad")) << "stray\n";
    EXPECT_EQ(kWrong, run("fold --config bad @rack"));
    EXPECT_EQ("kelnodes: \"bad\" is faulty; kelsh-lint says more\n", output);
}

TEST_F(Kelnodes, TellsAnEmptySetByItsStatus) {
    EXPECT_EQ(kEmpty, run("count 'n1!n1'"));
    EXPECT_EQ("0\n", output);
    EXPECT_EQ(kEmpty, run("expand"));
    EXPECT_EQ("", output);
}

TEST_F(Kelnodes, NamesAWrongSetAndItsRightForm) {
    EXPECT_EQ(kWrong, run("fold 'n[5-1]'"));
    EXPECT_EQ("kelnodes: n[5-1]: the range 5-1 goes down; write n[1-5]\n", output);
    EXPECT_EQ(kWrong, run("fold @none"));
    EXPECT_EQ("kelnodes: @none: there is no such group\n", output);
}

TEST_F(Kelnodes, CompletesItsWordsInBash) {
    const auto completed = [](const std::string& words) {
        std::string shown;
        EXPECT_EQ(0, CUtil::exec_cmd("bash -c 'source " KELSH_SOURCE_DIR
                                     "/completions/kelnodes.bash; COMP_WORDS=(kelnodes " +
                                         words +
                                         "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _kelnodes; "
                                         "echo \"${COMPREPLY[*]}\"'",
                                     &shown));
        return shown;
    };
    EXPECT_EQ("fold\n", completed("f"));
    EXPECT_EQ("fold expand count --help --version\n", completed("\"\""));
    EXPECT_EQ("--config\n", completed("fold --c"));
    EXPECT_EQ(directory.file("node.cfg") + "\n",
              completed("fold --config " + directory.file("node.c")));
}

TEST_F(Kelnodes, RefusesWrongUsage) {
    for (const char* words : {"", "sort n1", "fold --quick n1", "fold --config"}) {
        EXPECT_EQ(kWrong, run(words)) << words;
        EXPECT_THAT(output, StartsWith("kelnodes: ")) << words;
        EXPECT_THAT(output, HasSubstr("Usage: kelnodes")) << words;
    }
    EXPECT_EQ(kDone, run("--version"));
    EXPECT_THAT(output, StartsWith("kelnodes 1"));
    EXPECT_EQ(kWrong, run("fold n1 >/dev/full"));
    EXPECT_EQ("kelnodes: cannot write to standard output\n", output);
}

}  // namespace
