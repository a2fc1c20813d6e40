#include <fstream>
#include <ostream>
#include <set>
#include <thread>
#include <unistd.h>

#include "CAlreadyExistException.h"
#include "CCannotOpenFileException.h"
#include "CDoesNotExistException.h"
#include "CResult.h"
#include "CSystemEnvironment.h"
#include "CUtil.h"
#include "CVersionConfig.h"
#include "Contract.h"
#include "ScopedEnvironment.h"
#include "StopWatch.h"
#include "TempDir.h"

namespace {

struct Path {
    const char* value;
    const char* kelsh;
    const char* kelnode;
    bool isDefault;
};

void PrintTo(const Path& path, std::ostream* out) {
    *out << (path.value == nullptr ? "unset" : path.value);
}

}  // namespace

class InstallPath : public testing::TestWithParam<Path> {};

TEST_P(InstallPath, EndsWithASlashAndKnowsWhetherItIsTheDefault) {
    const ScopedEnvironment kelsh("KELSH_PATH", GetParam().value);
    const ScopedEnvironment kelnode("KELNODE_PATH", GetParam().value);
    const CSystemEnvironment environment;
    EXPECT_EQ(environment.getKelshPath(), GetParam().kelsh);
    EXPECT_EQ(environment.getKelnodePath(), GetParam().kelnode);
    EXPECT_EQ(environment.isDefaultKelshPathUsed(), GetParam().isDefault);
    EXPECT_EQ(environment.isDefaultKelnodePathUsed(), GetParam().isDefault);
}

INSTANTIATE_TEST_SUITE_P(CSystemEnvironmentContract, InstallPath,
                         testing::Values(Path{nullptr, "/opt/kelsh/", "/opt/kelnode/", true},
                                         Path{"", "/opt/kelsh/", "/opt/kelnode/", true},
                                         Path{"/srv/k", "/srv/k/", "/srv/k/", false},
                                         Path{"/srv/k/", "/srv/k/", "/srv/k/", false},
                                         Path{"rel", "rel/", "rel/", false},
                                         Path{"/", "/", "/", false},
                                         Path{"//a//b//", "//a//b//", "//a//b//", false},
                                         Path{" ", " /", " /", false},
                                         Path{"/opt/kelsh/", "/opt/kelsh/", "/opt/kelsh/", false}));

TEST(CSystemEnvironmentContract, StateBelongsToTheProcessAndChangesOnlyByReload) {
    const ScopedEnvironment kelnode("KELNODE_PATH", nullptr);
    const ScopedEnvironment before("KELSH_PATH", "/one");
    CSystemEnvironment first;
    const ScopedEnvironment after("KELSH_PATH", "/two");
    EXPECT_EQ(first.getKelshPath(), "/one/");
    {
        const CSystemEnvironment second;
        EXPECT_EQ(second.getKelshPath(), "/two/");
    }
    EXPECT_EQ(first.getKelshPath(), "/two/");
    EXPECT_TRUE(first.isDefaultKelnodePathUsed());
    EXPECT_FALSE(first.isDefaultKelshPathUsed());
    const ScopedEnvironment unset("KELSH_PATH", nullptr);
    first.reload();
    EXPECT_EQ(first.getKelshPath(), "/opt/kelsh/");
    EXPECT_TRUE(first.isDefaultKelshPathUsed());
}

TEST(CResultContract, StartsAsAnEmptySuccessAndIsAValue) {
    CResult result;
    EXPECT_EQ(result.getRunStatus(), 0);
    EXPECT_EQ(result.getExitCode(), 0);
    EXPECT_EQ(result.getRunTime(), 0L);
    EXPECT_EQ(result.getRunSummary() + result.getExitOutput(), "");
    result.setRunStatus(5);
    result.setExitCode(-3);
    result.setRunTime(70000000000L);
    result.setRunSummary("summary");
    result.setExitOutput("output");
    CResult copy;
    CResult& returned = (copy = result);
    EXPECT_EQ(&returned, &copy);
    result = CResult();
    EXPECT_EQ(copy.getRunStatus(), 5);
    EXPECT_EQ(copy.getExitCode(), -3);
    EXPECT_EQ(copy.getRunTime(), 70000000000L);
    EXPECT_EQ(copy.getRunSummary(), "summary");
    EXPECT_EQ(copy.getExitOutput(), "output");
    EXPECT_EQ(result.getRunSummary(), "");
    copy.setRunStatus(static_cast<EXEC_STATUS_ENUM>(1));
    EXPECT_EQ(copy.getRunStatus(), 1);
}

TEST(CResultContract, NamesEachRunStatusDifferently) {
    std::set<std::string> names;
    for (const int status : {0, 1, 2, 5}) {
        CResult result;
        result.setRunStatus(status);
        names.insert(result.getStatusEnumString());
    }
    EXPECT_EQ(names.size(), 4U);
    EXPECT_EQ(names.count(""), 0U);
}

TEST(CExceptionContract, WholeFamilyIsCaughtAsItsRootWithItsMessage) {
    const auto root = [](const std::function<void()>& work) -> std::string {
        try {
            work();
        } catch (CException& fault) {
            return fault.getErrMsg();
        }
        return "nothing";
    };
    EXPECT_EQ(root([] { throw CException("a"); }), "a");
    EXPECT_EQ(root([] { throw CAlreadyExistException("b"); }), "b");
    EXPECT_EQ(root([] { throw CDoesNotExistException(std::string("c")); }), "c");
    EXPECT_EQ(root([] { throw CCannotOpenFileException("d"); }), "d");
    EXPECT_NE(printedBy([] { CException("shown").dump(); }).find("shown"), std::string::npos);
}

TEST(CVersionConfigContract, CannotReadAMissingFile) {
    const TempDir directory;
    EXPECT_THROW(CVersionConfig(directory.file("none").c_str()), CException);
}

TEST(StopWatchContract, MeasuresMillisecondsFromStartToStop) {
    StopWatch watch;
    watch.start();
    CUtil::sleep(30);
    watch.stop();
    const long elapsed = watch.getTime();
    EXPECT_GE(elapsed, 30L);
    EXPECT_EQ(watch.getTime(), elapsed);
    watch.start();
    watch.stop();
    EXPECT_LT(watch.getTime(), elapsed);
}

TEST(CUtilContract, RunsAShellCommandAndKeepsItsNewline) {
    std::string output = "old";
    EXPECT_EQ(CUtil::exec_cmd("echo one; echo two", &output), 0);
    EXPECT_EQ(output, "one\ntwo\n");
    EXPECT_EQ(CUtil::exec_cmd("printf x; exit 7", &output), 7);
    EXPECT_EQ(output, "x");
    EXPECT_EQ(CUtil::exec_cmd("true", &output), 0);
    EXPECT_EQ(output, "");
    EXPECT_EQ(CUtil::exec_cmd("kill -TERM $$", &output), 128 + 15);
    EXPECT_EQ(CUtil::exec_cmd("printf '%s' \"a|b\" | tr a c", &output), 0);
    EXPECT_EQ(output, "c|b");
}

TEST(CUtilContract, RunsCommandsOnManyThreadsAtOnce) {
    std::vector<std::string> outputs(8);
    std::vector<std::thread> threads;
    for (std::size_t at = 0; at < outputs.size(); ++at) {
        threads.emplace_back(
            [&outputs, at] { CUtil::exec_cmd("echo " + std::to_string(at), &outputs[at]); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (std::size_t at = 0; at < outputs.size(); ++at) {
        EXPECT_EQ(outputs[at], std::to_string(at) + "\n");
    }
}

TEST(CUtilContract, SeesDataThatWaits) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_FALSE(CUtil::isDataAvailable(ends[0]));
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    EXPECT_TRUE(CUtil::isDataAvailable(ends[0]));
    close(ends[0]);
    close(ends[1]);
}

namespace {

struct Edit {
    const char* from;
    const char* trimmed;
    const char* single;
    const char* withoutNewline;
    const char* withoutMark;
    const char* neat;
};

void PrintTo(const Edit& edit, std::ostream* out) {
    *out << testing::PrintToString(std::string(edit.from));
}

}  // namespace

class TextEdit : public testing::TestWithParam<Edit> {};

TEST_P(TextEdit, ChangesOnlyWhatItIsNamedAfter) {
    const Edit& edit = GetParam();
    std::string text = edit.from;
    CUtil::trim(text);
    EXPECT_EQ(text, edit.trimmed);
    text = edit.from;
    CUtil::trimTwoSpace(text);
    EXPECT_EQ(text, edit.single);
    text = edit.from;
    CUtil::removeTailNewline(&text);
    EXPECT_EQ(text, edit.withoutNewline);
    text = edit.from;
    CUtil::removeTailQuestionMark(&text);
    EXPECT_EQ(text, edit.withoutMark);
    text = edit.from;
    CUtil::makeNeatString(&text);
    EXPECT_EQ(text, edit.neat);
}

INSTANTIATE_TEST_SUITE_P(
    CUtilContract, TextEdit,
    testing::Values(Edit{"", "", "", "", "", ""}, Edit{"a", "a", "a", "a", "a", "a"},
                    Edit{"   ", "", " ", "   ", "   ", ""},
                    Edit{"  a   b  ", "a   b", " a b ", "  a   b  ", "  a   b  ", "a b"},
                    Edit{"\t a\n\n", "a", "\t a\n\n", "\t a", "\t a\n\n", "a"},
                    Edit{"\n\n", "", "\n\n", "", "\n\n", ""},
                    Edit{"a\nb\n", "a\nb", "a\nb\n", "a\nb", "a\nb\n", "a b"},
                    Edit{"what?", "what?", "what?", "what?", "what", "what?"},
                    Edit{"a?b", "a?b", "a?b", "a?b", "a?b", "a?b"},
                    Edit{"a? ", "a?", "a? ", "a? ", "a? ", "a?"}));

TEST(CUtilContract, ChangesCaseInPlace) {
    std::string text = "aZ-0:\xc3\xa9";
    CUtil::toUpper(text);
    EXPECT_EQ(text, "AZ-0:\xc3\xa9");
    CUtil::toLower(text);
    EXPECT_EQ(text, "az-0:\xc3\xa9");
}

namespace {

struct Tokens {
    const char* text;
    const char* separators;
    Words words;
};

void PrintTo(const Tokens& tokens, std::ostream* out) {
    *out << tokens.text;
}

}  // namespace

class TokenSplit : public testing::TestWithParam<Tokens> {};

TEST_P(TokenSplit, GivesTheSameListInBothForms) {
    const std::string text = GetParam().text;
    EXPECT_EQ(asVector(CUtil::splitForTokens(text, std::string(GetParam().separators))),
              GetParam().words);
    std::list<std::string> tokens{"before"};
    CUtil::splitForTokens(tokens, std::string(GetParam().separators), text);
    Words expected{"before"};
    expected.insert(expected.end(), GetParam().words.begin(), GetParam().words.end());
    EXPECT_EQ(asVector(tokens), expected);
}

INSTANTIATE_TEST_SUITE_P(
    CUtilContract, TokenSplit,
    testing::Values(Tokens{"", " ", {}}, Tokens{"   ", " ", {}}, Tokens{" a  b ", " ", {"a", "b"}},
                    Tokens{"a,b;c", ",;", {"a", "b", "c"}}, Tokens{",a,,b,", ",", {"a", "b"}},
                    Tokens{"x \"a b\" y", " ", {"x", "a b", "y"}},
                    Tokens{"\"a,b\",c", ",", {"a,b", "c"}},
                    Tokens{"a \"b c", " ", {"a", "\"b", "c"}}, Tokens{"a\tb", " ", {"a\tb"}}));

TEST(CUtilContract, KnowsWhetherAFileExists) {
    const TempDir directory;
    EXPECT_FALSE(CUtil::isFileExisted(directory.file("f")));
    std::ofstream(directory.file("f")) << "";
    EXPECT_TRUE(CUtil::isFileExisted(directory.file("f")));
    EXPECT_FALSE(CUtil::isFileExisted(""));
}
