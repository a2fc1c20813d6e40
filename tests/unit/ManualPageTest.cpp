#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CUtil.h"

using testing::Contains;
using testing::IsSupersetOf;

namespace {

using Words = std::set<std::string>;

const std::string kPages = KELSH_SOURCE_DIR "/docs/man/";

std::string readFile(const std::string& name) {
    std::ifstream file(name);
    EXPECT_TRUE(file) << name;
    return {std::istreambuf_iterator<char>(file), {}};
}

// As a reader sees it, without line breaks inside of paragraphs being of any importance.
std::string rendered(const std::string& page) {
    std::string text;
    EXPECT_EQ(CUtil::exec_cmd("LC_ALL=C MANWIDTH=200 man -l " + kPages + page + " 2>&1", &text), 0);
    return text;
}

// The first group of every match.
Words matches(const std::string& text, const std::string& pattern) {
    Words found;
    const std::regex expression(pattern);
    for (std::sregex_iterator it(text.begin(), text.end(), expression), end; it != end; ++it) {
        found.insert((*it)[1]);
    }
    return found;
}

Words optionsIn(const std::string& text) {
    return matches(text, "(?:^|[\\s\\[|(,\"])(-{1,2}[a-z][a-z-]*)");
}

std::string helpOf(const std::string& program) {
    std::string text;
    EXPECT_EQ(CUtil::exec_cmd(program + " --help </dev/null 2>&1", &text), 0);
    return text;
}

// The text between two headings of a rendered page.
std::string sectionOf(const std::string& page, const std::string& heading) {
    const std::string::size_type begin = page.find("\n" + heading + "\n");
    EXPECT_NE(begin, std::string::npos) << heading;
    std::smatch next;
    const std::string rest = page.substr(begin + heading.size() + 2);
    return std::regex_search(rest, next, std::regex("\n[A-Z]")) ? next.prefix().str() : rest;
}

Words statusesOn(const std::string& page) {
    return matches(sectionOf(page, "EXIT STATUS"), "(?:^|\n) +([0-9])  ");
}

// Programs and their pages.
struct Program {
    const char* command;
    const char* page;
};

class ManualPageOfProgram : public testing::TestWithParam<Program> {};

TEST_P(ManualPageOfProgram, NamesExactlyTheOptionsOfItsHelp) {
    const Words taken = optionsIn(helpOf(GetParam().command));
    const std::string page = rendered(GetParam().page);
    ASSERT_FALSE(taken.empty());
    EXPECT_THAT(optionsIn(page), IsSupersetOf(taken));
    Words documented = optionsIn(sectionOf(page, "OPTIONS"));
    // A help text need not name itself.
    documented.erase("-h");
    documented.erase("--help");
    EXPECT_THAT(taken, IsSupersetOf(documented));
}

TEST_P(ManualPageOfProgram, NamesEveryExitStatus) {
    EXPECT_EQ(statusesOn(rendered(GetParam().page)), (Words{"0", "1", "2"}));
}

INSTANTIATE_TEST_SUITE_P(
    All, ManualPageOfProgram,
    testing::Values(Program{KELSH_BINARY_DIR "/bin/kelnode", "kelnode.8"},
                    Program{KELSH_BINARY_DIR "/bin/kelpack", "kelpack.1"},
                    Program{KELSH_BINARY_DIR "/bin/kelsh-lint", "kelsh-lint.1"},
                    Program{KELSH_SOURCE_DIR "/scripts/kelsh-pki", "kelsh-pki.1"}));

TEST(ManualPage, RendersWithoutAWarning) {
    int pages = 0;
    for (const auto& entry : std::filesystem::directory_iterator(kPages)) {
        std::string warnings;
        EXPECT_EQ(CUtil::exec_cmd("LC_ALL=C.UTF-8 MANWIDTH=80 man -l --warnings -Tutf8 " +
                                      entry.path().string() + " 2>&1 >/dev/null",
                                  &warnings),
                  0);
        EXPECT_EQ(warnings, "") << entry.path();
        ++pages;
    }
    EXPECT_EQ(pages, 9);
}

TEST(ManualPage, SaysMillisecondsWhereverItSaysTimeOut) {
    for (const auto& entry : std::filesystem::directory_iterator(kPages)) {
        std::string text = rendered(entry.path().filename());
        const auto lower = [](char c) {
            return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        };
        std::transform(text.begin(), text.end(), text.begin(), lower);
        if (text.find("time-out") != std::string::npos) {
            EXPECT_NE(text.find("milliseconds"), std::string::npos) << entry.path();
        }
    }
}

// The shell has no help text of its own for its options: the tables in its source are the measure.
TEST(ManualPage, OfTheShellNamesExactlyItsOptions) {
    Words taken = matches(readFile(KELSH_SOURCE_DIR "/src/CShellRequest.cpp"), "\"(--?[a-z]+)\"");
    taken.insert("--validate");
    const std::string page = rendered("kelsh.1");
    EXPECT_THAT(taken, Contains("--configuration"));
    EXPECT_EQ(optionsIn(sectionOf(page, "OPTIONS")), taken);
}

TEST(ManualPage, OfTheShellNamesItsExitStatusesAndCommands) {
    const std::string page = rendered("kelsh.1");
    EXPECT_EQ(statusesOn(page), (Words{"0", "1", "2", "5", "7"}));
    const Words commands = matches(readFile(KELSH_SOURCE_DIR "/src/CShellCommandSet_Basic.cpp"),
                                   "\\{\"([a-z?-][a-z ?-]*)\",");
    EXPECT_GE(commands.size(), 12U);
    const std::string section = sectionOf(page, "INTERACTIVE MODE");
    for (const std::string& command : commands) {
        EXPECT_NE(section.find(command), std::string::npos) << command;
    }
}

// Pages of files against the words that their readers know.
struct File {
    const char* page;
    const char* source;
    const char* keyInSource;
    const char* keyOnPage;
};

class ManualPageOfFile : public testing::TestWithParam<File> {};

TEST_P(ManualPageOfFile, NamesEveryKeyOfItsReader) {
    const Words known = matches(readFile(std::string(KELSH_SOURCE_DIR "/") + GetParam().source),
                                GetParam().keyInSource);
    const Words named = matches(rendered(GetParam().page), GetParam().keyOnPage);
    ASSERT_GE(known.size(), 3U);
    EXPECT_THAT(named, IsSupersetOf(known));
}

INSTANTIATE_TEST_SUITE_P(All, ManualPageOfFile,
                         testing::Values(File{"kelnode.cfg.5", "agent/AgentConfig.cpp",
                                              "(?:\\{|== )\"([A-Z]+(?:_[A-Z]+)*)\"",
                                              "\n +([A-Z_]+)\\b"},
                                         File{"cmd.cfg.5", "src/CmdConfigFile.cpp",
                                              "\"([a-z][a-z0-9]+)\"", "[\n,] +([a-z0-9]+)\\b"},
                                         File{"ssl_master.cfg.5", "src/CShellConfigReader.cpp",
                                              "key == \"([A-Z_]+)\"", "\n +([A-Z_]+)\\b"}));

}  // namespace
