#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CUtil.h"
#include "TempDir.h"
#include "TestPaths.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::UnorderedElementsAre;

namespace {

using Words = std::multiset<std::string>;

// Drives the helper of both completions, and bash itself, over a configuration of its own.
class ShellCompletion : public testing::Test {
protected:
    void SetUp() override {
        std::ofstream(directory.file("node.cfg"))
            << "# n=1\n[node]\nnode01=02:00:00:AA:BB:01,127.0.0.1:1\n"
               "node02=02:00:00:AA:BB:02,127.0.0.1:2\n[group]\nall=node01,node02\n";
        std::ofstream(directory.file("other.cfg"))
            << "[node]\nspare=02:00:00:AA:BB:03,127.0.0.1:3\n";
        std::ofstream(directory.file("cmd.cfg"))
            << "[cmdset]\nname=tools\ndescription=d\n[cmd]\nname=show space\n"
               "option=[-h|--human|00]x\noption=[|--type|01]y\n"
               "[cmd]\nname=uptime\n[cmdset]\nname=tools/disk\n[cmd]\nname=sync\n";
    }

    static Words linesOf(const std::string& text) {
        Words found;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            found.insert(line);
        }
        return found;
    }

    // words: as a shell passes them, the last one being typed.
    Words complete(const std::string& words) const {
        std::string output;
        EXPECT_EQ(0, CUtil::exec_cmd("KELSH_PATH=" + directory.path() + " " + kHelper + " " + words,
                                     &output, &output))
            << output;
        return linesOf(output);
    }

    // What bash would put in COMPREPLY.
    Words completeInBash(const std::string& words, int count) const {
        const std::string script = "source " KELSH_SOURCE_DIR
                                   "/completions/kelsh.bash; COMP_WORDS=(kelsh " +
                                   words + "); COMP_CWORD=" + std::to_string(count) +
                                   "; _kelsh; printf \"%s\\n\" \"${COMPREPLY[@]}\"";
        std::string output;
        EXPECT_EQ(0,
                  CUtil::exec_cmd("cd " + directory.path() + " && KELSH_PATH=" + directory.path() +
                                      " KELSH_COMPLETE=" + kHelper + " bash -c '" + script + "'",
                                  &output, &output))
            << output;
        return linesOf(output);
    }

    static constexpr const char* kHelper = KELSH_SOURCE_DIR "/completions/kelsh-complete";
    TempDir directory;
};

}  // namespace

TEST_F(ShellCompletion, OffersSetsCommandsAndProgramOptionsFirst) {
    const Words first = complete("''");
    EXPECT_THAT(first, IsSupersetOf({"tools", "biosfw", "r3biosfw", "ipmifw", "list", "save",
                                     "-cfg", "--validate"}));
    EXPECT_THAT(first, Not(Contains("disk")));
    EXPECT_THAT(first, Not(Contains("tools/disk")));
}

TEST_F(ShellCompletion, FollowsTheTreeWordByWord) {
    EXPECT_THAT(complete("tools ''"), IsSupersetOf({"show", "uptime", "disk"}));
    EXPECT_THAT(complete("tools show ''"), ElementsAre("space"));
    EXPECT_THAT(complete("tools disk ''"), Contains("sync"));
    EXPECT_THAT(complete("tools disk ''"), Not(Contains("uptime")));
    EXPECT_THAT(complete("biosfw flash ''"), UnorderedElementsAre("bios", "cmos"));
    EXPECT_THAT(complete("nonsense ''"), IsEmpty());
}

TEST_F(ShellCompletion, OffersTheOptionsOfACompleteCommand) {
    EXPECT_THAT(complete("tools show space ''"),
                UnorderedElementsAre("-h", "--human", "--type", "-n", "--node", "-g", "--group",
                                     "-t", "--timeout"));
    EXPECT_THAT(complete("tools show space --type ext4 ''"), Contains("-h"));
}

TEST_F(ShellCompletion, OffersNodesAndGroupsOfTheNodeFileInUse) {
    EXPECT_THAT(complete("tools uptime -n ''"), UnorderedElementsAre("node01", "node02"));
    EXPECT_THAT(complete("tools uptime --node node01,"),
                UnorderedElementsAre("node01,node01", "node01,node02"));
    EXPECT_THAT(complete("tools uptime -g ''"), ElementsAre("all"));
    EXPECT_THAT(complete("-cfg other.cfg tools uptime -n ''"), ElementsAre("spare"));
    EXPECT_THAT(complete("-n node01 tools disk ''"), Contains("sync"));
}

TEST_F(ShellCompletion, OffersFilesWhereAFileIsNamed) {
    EXPECT_THAT(complete("--validate ''"), ElementsAre("@files"));
    EXPECT_THAT(complete("biosfw flash bios fw -f ''"), ElementsAre("@files"));
    EXPECT_THAT(complete("-cfg ''"), UnorderedElementsAre("cmd.cfg", "node.cfg", "other.cfg"));
}

TEST_F(ShellCompletion, WorksWithoutAConfiguration) {
    std::string output;
    EXPECT_EQ(0, CUtil::exec_cmd("KELSH_PATH=/nonexistent " + std::string(kHelper) + " ''", &output,
                                 &output));
    EXPECT_THAT(linesOf(output), Contains("biosfw"));
}

TEST_F(ShellCompletion, BashTakesWhatBeginsAsTyped) {
    EXPECT_THAT(completeInBash("to", 1), ElementsAre("tools"));
    EXPECT_THAT(completeInBash("tools uptime -n node01,node02", 4), ElementsAre("node01,node02"));
    EXPECT_THAT(completeInBash("--validate nod", 2), ElementsAre("node.cfg"));
}

// The built-in commands stand in the helper, so that completing does not start a shell and with it
// a question to every node.
TEST_F(ShellCompletion, KnowsTheBuiltInCommandsOfTheShell) {
    std::ofstream(directory.file("node.cfg")) << "[node]\n";
    std::ofstream(directory.file("cmd.cfg")) << "";
    std::ofstream(directory.file("ssl_master.cfg")) << "";
    std::ofstream(directory.file("kelsh_version.cfg")) << "VERSION=1\nBUILD=1\n";
    std::ofstream(directory.file("log4cxx.properties")) << "log4j.rootLogger=OFF\n";
    std::string help;
    ASSERT_EQ(0, CUtil::exec_cmd("KELSH_PATH=" + directory.path() +
                                     " " KELSH_BINARY_DIR "/bin/kelsh help </dev/null",
                                 &help, &help))
        << help;
    // "[set]  ...", "command:  ...", then lines with "-f, --file:" behind blanks.
    std::set<std::string> inShell;
    std::istringstream lines(help);
    std::string set;
    std::string command;
    bool begun = false;
    for (std::string line; std::getline(lines, line);) {
        const std::string::size_type colon = line.find(":  ");
        begun = begun || line.compare(0, 7, "--help:") == 0;
        if (!begun || line.empty()) {
            continue;
        }
        if (line[0] == '[') {
            set = line.substr(1, line.find(']') - 1);
        } else if (line[0] != ' ' && colon != std::string::npos) {
            command = set + "|" + line.substr(0, colon);
            inShell.insert(command);
        } else if (line.find("  Example: ") != 0) {
            std::istringstream words(line.substr(line.find('-')));
            for (std::string word; words >> word && word[0] == '-';) {
                inShell.insert(command + "|" + word.substr(0, word.find_first_of(",:")));
            }
        }
    }
    std::string table;
    ASSERT_EQ(
        0, CUtil::exec_cmd(
               std::string("sed -n \"/^builtIn/,/^END/p\" ") + kHelper + " | grep \"|\"", &table));
    std::set<std::string> inHelper;
    for (const std::string& line : linesOf(table)) {
        const std::string::size_type bar = line.rfind('|');
        inHelper.insert(line.substr(0, bar));
        std::istringstream options(line.substr(bar + 1));
        for (std::string option; options >> option;) {
            inHelper.insert(line.substr(0, bar) + "|" + option);
        }
    }
    EXPECT_EQ(inHelper, inShell);
}
