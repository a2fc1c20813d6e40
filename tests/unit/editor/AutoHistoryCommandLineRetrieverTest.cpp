#include <functional>
#include <memory>

#include <gtest/gtest.h>

#include "AutoHistoryCommandLineRetriever.h"
#include "CCmdHistory.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "CShellExecutionContext.h"
#include "CShellExecutionContextAutoCompleteAdapter.h"
#include "EditorKeys.h"
#include "StandardStreams.h"

namespace {

using keys::bell;
using keys::blankBack;
using keys::left;
using keys::right;
using keys::times;
using keys::typed;

const std::string kPrompt = "[master]$ ";

// A line of n characters blanked from its end.
std::string erased(std::size_t n) {
    return times(n, left + blankBack);
}

class Editor : public AutoHistoryCommandLineRetriever {
public:
    using AutoHistoryCommandLineRetriever::AutoHistoryCommandLineRetriever;
    using AutoHistoryCommandLineRetriever::cursorIndex;
    using AutoHistoryCommandLineRetriever::cursorPos;
    using AutoHistoryCommandLineRetriever::historyIndex;
    using AutoHistoryCommandLineRetriever::line;
};

class AutoHistoryCommandLineRetrieverTest : public ::testing::Test {
protected:
    AutoHistoryCommandLineRetrieverTest() {
        const CapturedOutput versionFileMissing;
        context = std::make_unique<CShellExecutionContext>();
        context->setHostName("master");
        adapter = std::make_unique<CShellExecutionContextAutoCompleteAdapter>(context.get());
        editor = std::make_unique<Editor>(context.get(), &history, adapter.get());
    }
    void SetUp() override {
        rowNum = 25;
        colNum = 80;
    }

    static void addCommands(CShellCommandSet* set, const std::list<std::string>& names) {
        for (const std::string& name : names) {
            set->addSupportedCommand(new CShellCommand(name, "", "true", SCRIPT, MASTER));
        }
    }
    // The context owns the set.
    CShellCommandSet* addSet(const std::string& name, const std::list<std::string>& commands = {}) {
        auto* set = new CShellCommandSet(name, "");
        addCommands(set, commands);
        context->addCommandSet(set);
        return set;
    }
    void remember(const std::list<std::string>& lines) {
        for (const std::string& line : lines) {
            history.add(line);
        }
    }

    std::string edit(const std::string& symbols) {
        const TypedInput input(typed(symbols));
        CapturedOutput output;
        std::string text = editor->getCommandLine();
        drawn = output.text();
        return text;
    }

    std::unique_ptr<CShellExecutionContext> context;
    CCmdHistory history;
    std::unique_ptr<CShellExecutionContextAutoCompleteAdapter> adapter;
    std::unique_ptr<Editor> editor;
    std::string drawn;
};

TEST_F(AutoHistoryCommandLineRetrieverTest, PromptShowsHostAndLevel) {
    EXPECT_EQ("[master]$ ", writtenBy([&] { editor->printCommandPrompt(); }));
    addSet("tools")->addChildCommand(new CShellCommandSet("disk", ""));
    context->toLowerLevel("tools");
    context->toLowerLevel("disk");
    EXPECT_EQ("[master/tools/disk]$ ", writtenBy([&] { editor->printCommandPrompt(); }));
    EXPECT_EQ("[master/tools/disk(17)]$ ", writtenBy([&] { editor->printCommandPrompt(17); }));
    EXPECT_EQ("[master/tools/disk(0)]$ ", writtenBy([&] { editor->printCommandPrompt(0); }));
}

TEST_F(AutoHistoryCommandLineRetrieverTest, AdjustingShowsTheTextAsTheWholeLine) {
    editor->keyIn("before");
    EXPECT_EQ("list", writtenBy([&] { editor->adjustCursorIndexAndPosition("list"); }));
    EXPECT_EQ("list", editor->line.str());
    EXPECT_EQ(4, editor->line.tellp());
    EXPECT_EQ(4, editor->cursorIndex);
    EXPECT_EQ(4U, editor->cursorPos);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, UpOnAnEmptyHistoryBeepsAndKeepsTheLine) {
    EXPECT_EQ("abc", edit("abc<up><lf>"));
    EXPECT_EQ("abc" + bell, drawn);
    EXPECT_EQ("abcd", edit("abc<up><up><down>d<lf>"));
    EXPECT_EQ("abc" + bell + bell + bell + "d", drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, UpUpDownShowsThirdSecondThird) {
    remember({"one", "second", "third"});
    EXPECT_EQ("third", edit("<up><up><down><lf>"));
    EXPECT_EQ("third" + erased(5) + "second" + erased(6) + "third", drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, UpErasesFromTheEndOfWhatWasTyped) {
    remember({"old"});
    EXPECT_EQ("old", edit("abc<left><left><up><lf>"));
    EXPECT_EQ("abc" + left + left + right + right + erased(3) + "old", drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, UpAtTheOldestEntryBeeps) {
    remember({"one", "two"});
    EXPECT_EQ("one", edit("<up><up><up><lf>"));
    EXPECT_EQ("two" + erased(3) + "one" + bell, drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, FirstDownMovesToTheFreshLineAndTheSecondBeeps) {
    remember({"one", "two"});
    EXPECT_EQ("", edit("abc<down><lf>"));
    EXPECT_EQ("abc" + erased(3), drawn);
    EXPECT_EQ("d", edit("abc<down>d<down><lf>"));
    EXPECT_EQ("abc" + erased(3) + "d" + bell, drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, DownWithoutAnyHistoryFollowsTheSameRule) {
    EXPECT_EQ("", edit("abc<down><down><lf>"));
    EXPECT_EQ("abc" + erased(3) + bell, drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, DownPastTheNewestEntryIsTheFreshLine) {
    remember({"one", "two"});
    EXPECT_EQ("x", edit("<up><down>x<lf>"));
    EXPECT_EQ("two" + erased(3) + "x", drawn);
    EXPECT_EQ("two", edit("<up><down><down><down><up><lf>"));
    EXPECT_EQ("two" + erased(3) + bell + bell + "two", drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, EachLineStartsBelowTheNewestEntry) {
    remember({"one", "two"});
    EXPECT_EQ("one", edit("<up><up><lf>"));
    EXPECT_EQ(0U, editor->historyIndex);
    EXPECT_EQ("two", edit("<up><lf>"));
}

TEST_F(AutoHistoryCommandLineRetrieverTest, EntriesCanBeEdited) {
    remember({"list -n a"});
    EXPECT_EQ("list -n b", edit("<up><bs>b<lf>"));
    EXPECT_EQ("list -n a", history.getCmd(1));
}

TEST_F(AutoHistoryCommandLineRetrieverTest, TabWithoutCandidatesBeepsTwice) {
    addSet("BASIC", {"list"});
    EXPECT_EQ("zz", edit("zz<tab><lf>"));
    EXPECT_EQ("zz" + bell + bell, drawn);
    EXPECT_EQ("zzxyy", edit("zzyy<left><left><tab>x<lf>"));
    EXPECT_EQ(
        "zzyy" + left + left + right + right + bell + left + left + bell + "xyy" + left + left,
        drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, TabOnUniquePrefixCompletesWord) {
    addSet("BASIC", {"list", "version"});
    EXPECT_EQ("list", edit("li<tab><lf>"));
    EXPECT_EQ("li" + erased(2) + "list" + bell, drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, CompletionInsideTheLineKeepsTheTail) {
    addSet("BASIC", {"list", "version"});
    EXPECT_EQ("list! -n a", edit("li -n a<left><left><left><left><left><tab>!<lf>"));
    EXPECT_EQ("li -n a" + times(5, left) + times(5, right) + erased(7) + "list -n a" +
                  times(5, left) + bell + "! -n a" + times(5, left),
              drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, SeveralCandidatesExtendAndAreListed) {
    addSet("BASIC", {"version", "verify", "list"});
    EXPECT_EQ("ver", edit("v<tab><lf>"));
    EXPECT_EQ("v" + erased(1) + "ver\n" + "verify    version\n" + kPrompt + "ver" + bell, drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, SeveralCandidatesInsideTheLineKeepTheTail) {
    addSet("BASIC", {"version", "verify"});
    EXPECT_EQ("vers -a", edit("v -a<left><left><left><tab>s<lf>"));
    EXPECT_EQ("v -a" + times(3, left) + times(3, right) + erased(4) + "ver -a\n" +
                  "verify    version\n" + kPrompt + "ver -a" + times(3, left) + bell + "s -a" +
                  times(3, left),
              drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, OneCandidateThatIsAPrefixOfAnotherStopsTheExtension) {
    addSet("BASIC", {"list", "listing"});
    EXPECT_EQ("listx", edit("li<tab>x<lf>"));
}

TEST_F(AutoHistoryCommandLineRetrieverTest, TabOnTheEmptyLineListsAllCommands) {
    addSet("BASIC", {"list", "version"});
    EXPECT_EQ("", edit("<tab><lf>"));
    EXPECT_EQ("\nlist    version\n" + kPrompt + bell, drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, LevelNamesAreCompletedBehindCd) {
    addSet("BASIC", {"list"});
    addSet("FlashBIOS");
    EXPECT_EQ("cd FlashBIOS", edit("cd F<tab><lf>"));
    EXPECT_EQ("cd F" + erased(4) + "cd FlashBIOS" + bell, drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, CompletedLevelNameDropsTheTail) {
    addSet("BASIC", {"list"});
    addSet("FlashBIOS");
    EXPECT_EQ("cd FlashBIOS!", edit("cd Fxyz<left><left><left><tab>!<lf>"));
    EXPECT_EQ(
        "cd Fxyz" + times(3, left) + times(3, right) + erased(7) + "cd FlashBIOS" + bell + "!",
        drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, SeveralLevelsExtendFromTheirOwnStart) {
    addSet("BASIC", {"list"});
    addSet("tools_a");
    addSet("tools_b");
    EXPECT_EQ("cd tools_", edit("cd t<tab><lf>"));
    EXPECT_EQ(
        "cd t" + erased(4) + "cd tools_\n" + "tools_a    tools_b\n" + kPrompt + "cd tools_" + bell,
        drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, LevelExtensionStartsAtLineLengthMinusThree) {
    addSet("BASIC", {"list"});
    addSet("tools_a");
    addSet("tools_b");
    // The cursor stands behind "cd to", the line holds "cd tools": five characters of names.
    EXPECT_EQ("cd to_ols", edit("cd tools<left><left><left><tab><lf>"));
}

TEST_F(AutoHistoryCommandLineRetrieverTest, CdAloneWithNothingOfferedBecomesCdBlank) {
    addSet("BASIC", {"list"});
    addSet("FlashBIOS");
    EXPECT_EQ("cd FlashBIOS", edit("cd<tab><lf>"));
    EXPECT_EQ("cd " + erased(3) + "cd FlashBIOS" + bell, drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, CdAloneWithSeveralLevelsListsThem) {
    addSet("BASIC", {"list"});
    addSet("tools");
    addSet("power");
    EXPECT_EQ("cd ", edit("cd<tab><lf>"));
    EXPECT_EQ("cd " + erased(3) + "cd \n" + "tools    power\n" + kPrompt + "cd " + bell, drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, CdAloneWithoutLevelsBeeps) {
    addSet("BASIC", {"list"});
    EXPECT_EQ("cd ", edit("cd<tab><lf>"));
    EXPECT_EQ("cd " + bell + bell, drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, CommandsThatBeginWithCdAreNoLevels) {
    addSet("BASIC", {"cdrom"});
    addSet("tools");
    EXPECT_EQ("cdrom", edit("cd<tab><lf>"));
    EXPECT_EQ("cdrom", edit("cdr<tab><lf>"));
    EXPECT_EQ("cd tools", edit("cd <tab><lf>"));
}

TEST_F(AutoHistoryCommandLineRetrieverTest, CompleteLevelNameOffersNothing) {
    addSet("BASIC", {"list"});
    addSet("tools");
    EXPECT_EQ("cd tools", edit("cd tools<tab><lf>"));
    EXPECT_EQ("cd tools" + bell + bell, drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, ReplacedLineCountsItsColumns) {
    const std::string entry(79, 'e');
    remember({entry});
    EXPECT_EQ(entry + "x", edit("<up>x<lf>"));
    EXPECT_EQ(entry + "x" + times(80, left) + keys::down, drawn);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, EndOfInputEndsTheBrowsingToo) {
    remember({"one"});
    EXPECT_EQ("one", edit("<up>"));
    EXPECT_TRUE(editor->isEndOfInput());
    EXPECT_EQ(0U, editor->historyIndex);
}

}  // namespace
