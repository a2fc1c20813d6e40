#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex.h>

#include "CUtil.h"
#include "TestPaths.h"

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
    EXPECT_EQ(0, CUtil::exec_cmd("LC_ALL=C MANWIDTH=200 man -l " + kPages + page + " 2>&1", &text));
    return text;
}

// What the group of that number holds in every match; "^" is the begin of a line.
Words matches(const std::string& text, const std::string& pattern, std::size_t group) {
    regex_t expression;
    EXPECT_EQ(0, ::regcomp(&expression, pattern.c_str(), REG_EXTENDED | REG_NEWLINE)) << pattern;
    Words found;
    std::array<regmatch_t, 4> match{};
    const char* at = text.c_str();
    int flags = 0;
    while (::regexec(&expression, at, match.size(), match.data(), flags) == 0) {
        found.emplace(at + match[group].rm_so, at + match[group].rm_eo);
        // No pattern here matches nothing, so this always goes on.
        at += match[0].rm_eo;
        flags = at[-1] == '\n' ? 0 : REG_NOTBOL;
    }
    ::regfree(&expression);
    return found;
}

Words optionsIn(const std::string& text) {
    return matches(text, "(^|[][ \t|(,\"])(--?[a-z][a-z-]*)", 2);
}

std::string helpOf(const std::string& program) {
    std::string text;
    EXPECT_EQ(0, CUtil::exec_cmd(program + " --help </dev/null 2>&1", &text));
    return text;
}

// The text between two headings of a rendered page.
std::string sectionOf(const std::string& page, const std::string& heading) {
    const std::string::size_type begin = page.find("\n" + heading + "\n");
    EXPECT_NE(begin, std::string::npos) << heading;
    const std::string rest = page.substr(begin + heading.size() + 2);
    std::string::size_type next = rest.find("\n\n");
    while (next != std::string::npos && next + 2 < rest.size() && rest[next + 2] == ' ') {
        next = rest.find("\n\n", next + 2);
    }
    return rest.substr(0, next);
}

Words statusesOn(const std::string& page) {
    return matches(sectionOf(page, "EXIT STATUS"), "^ +([0-9])  ", 1);
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
    EXPECT_EQ((Words{"0", "1", "2"}), statusesOn(rendered(GetParam().page)));
}

INSTANTIATE_TEST_SUITE_P(
    All, ManualPageOfProgram,
    testing::Values(Program{KELSH_BINARY_DIR "/bin/kelnode", "kelnode.8"},
                    Program{KELSH_BINARY_DIR "/bin/kelnodes", "kelnodes.1"},
                    Program{KELSH_BINARY_DIR "/bin/kelpack", "kelpack.1"},
                    Program{KELSH_BINARY_DIR "/bin/kelsh-lint", "kelsh-lint.1"},
                    Program{KELSH_SOURCE_DIR "/scripts/kelsh-pki", "kelsh-pki.1"}));

TEST(ManualPage, RendersWithoutAWarning) {
    int pages = 0;
    for (const auto& entry : std::filesystem::directory_iterator(kPages)) {
        std::string warnings;
        EXPECT_EQ(0, CUtil::exec_cmd("LC_ALL=C.UTF-8 MANWIDTH=80 man -l --warnings -Tutf8 " +
                                         entry.path().string() + " 2>&1 >/dev/null",
                                     &warnings));
        EXPECT_EQ("", warnings) << entry.path();
        ++pages;
    }
    EXPECT_EQ(11, pages);
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
    Words taken =
        matches(readFile(KELSH_SOURCE_DIR "/src/engine/RequestParser.cpp"), "\"(--?[a-z]+)\"", 1);
    taken.insert("--validate");
    const std::string page = rendered("kelsh.1");
    EXPECT_THAT(taken, Contains("--configuration"));
    EXPECT_EQ(taken, optionsIn(sectionOf(page, "OPTIONS")));
}

TEST(ManualPage, OfTheShellNamesItsExitStatusesAndCommands) {
    const std::string page = rendered("kelsh.1");
    EXPECT_EQ((Words{"0", "1", "2", "5", "7"}), statusesOn(page));
    const Words commands =
        matches(readFile(KELSH_SOURCE_DIR "/src/sets/CShellCommandSet_Basic.cpp"),
                "[{]\"([a-z?-][a-z ?-]*)\",", 1);
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
    std::size_t groupInSource;
    const char* keyOnPage;
};

class ManualPageOfFile : public testing::TestWithParam<File> {};

TEST_P(ManualPageOfFile, NamesEveryKeyOfItsReader) {
    const Words known = matches(readFile(std::string(KELSH_SOURCE_DIR "/") + GetParam().source),
                                GetParam().keyInSource, GetParam().groupInSource);
    const std::string page = rendered(GetParam().page);
    // An example alone explains nothing.
    const std::string described = page.substr(0, page.find("\nEXAMPLE\n"));
    const Words named = matches(described, GetParam().keyOnPage, 2);
    ASSERT_GE(known.size(), 3U);
    EXPECT_THAT(named, IsSupersetOf(known));
}

INSTANTIATE_TEST_SUITE_P(
    All, ManualPageOfFile,
    testing::Values(File{"kelnode.cfg.5", "agent/AgentConfig.cpp",
                         "([{]|== )\"([A-Z]+(_[A-Z]+)*)\"", 2, "^( +)([A-Z_]+)"},
                    File{"cmd.cfg.5", "src/config/CmdConfigFile.cpp", "\"([a-z][a-z0-9]+)\"", 1,
                         "(^|,) +([a-z0-9]+)"},
                    File{"kelsh.cfg.5", "src/config/KelshConfig.cpp", "[{]\"([A-Z_]+)\",", 1,
                         "^( +)([A-Z_]+)="},
                    File{"ssl_master.cfg.5", "src/config/CShellConfigReader.cpp",
                         "key == \"([A-Z_]+)\"", 1, "^( +)([A-Z_]+)"}));

}  // namespace
