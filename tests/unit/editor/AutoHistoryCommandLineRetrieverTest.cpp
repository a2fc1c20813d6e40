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
    EXPECT_EQ(writtenBy([&] { editor->printCommandPrompt(); }), "[master]$ ");
    addSet("tools")->addChildCommand(new CShellCommandSet("disk", ""));
    context->toLowerLevel("tools");
    context->toLowerLevel("disk");
    EXPECT_EQ(writtenBy([&] { editor->printCommandPrompt(); }), "[master/tools/disk]$ ");
    EXPECT_EQ(writtenBy([&] { editor->printCommandPrompt(17); }), "[master/tools/disk(17)]$ ");
}

TEST_F(AutoHistoryCommandLineRetrieverTest, AdjustingShowsTheTextAsTheWholeLine) {
    editor->keyIn("before");
    EXPECT_EQ(writtenBy([&] { editor->adjustCursorIndexAndPosition("list"); }), "list");
    EXPECT_EQ(editor->line.str(), "list");
    EXPECT_EQ(editor->line.tellp(), 4);
    EXPECT_EQ(editor->cursorIndex, 4);
    EXPECT_EQ(editor->cursorPos, 4U);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, UpOnAnEmptyHistoryBeepsAndKeepsTheLine) {
    EXPECT_EQ(edit("abc<up><lf>"), "abc");
    EXPECT_EQ(drawn, "abc" + bell);
    EXPECT_EQ(edit("abc<up><up><down>d<lf>"), "abcd");
    EXPECT_EQ(drawn, "abc" + bell + bell + bell + "d");
}

TEST_F(AutoHistoryCommandLineRetrieverTest, UpUpDownShowsThirdSecondThird) {
    remember({"one", "second", "third"});
    EXPECT_EQ(edit("<up><up><down><lf>"), "third");
    EXPECT_EQ(drawn, "third" + erased(5) + "second" + erased(6) + "third");
}

TEST_F(AutoHistoryCommandLineRetrieverTest, UpErasesFromTheEndOfWhatWasTyped) {
    remember({"old"});
    EXPECT_EQ(edit("abc<left><left><up><lf>"), "old");
    EXPECT_EQ(drawn, "abc" + left + left + right + right + erased(3) + "old");
}

TEST_F(AutoHistoryCommandLineRetrieverTest, UpAtTheOldestEntryBeeps) {
    remember({"one", "two"});
    EXPECT_EQ(edit("<up><up><up><lf>"), "one");
    EXPECT_EQ(drawn, "two" + erased(3) + "one" + bell);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, FirstDownMovesToTheFreshLineAndTheSecondBeeps) {
    remember({"one", "two"});
    EXPECT_EQ(edit("abc<down><lf>"), "");
    EXPECT_EQ(drawn, "abc" + erased(3));
    EXPECT_EQ(edit("abc<down>d<down><lf>"), "d");
    EXPECT_EQ(drawn, "abc" + erased(3) + "d" + bell);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, DownWithoutAnyHistoryFollowsTheSameRule) {
    EXPECT_EQ(edit("abc<down><down><lf>"), "");
    EXPECT_EQ(drawn, "abc" + erased(3) + bell);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, DownPastTheNewestEntryIsTheFreshLine) {
    remember({"one", "two"});
    EXPECT_EQ(edit("<up><down>x<lf>"), "x");
    EXPECT_EQ(drawn, "two" + erased(3) + "x");
    EXPECT_EQ(edit("<up><down><down><down><up><lf>"), "two");
    EXPECT_EQ(drawn, "two" + erased(3) + bell + bell + "two");
}

TEST_F(AutoHistoryCommandLineRetrieverTest, EachLineStartsBelowTheNewestEntry) {
    remember({"one", "two"});
    EXPECT_EQ(edit("<up><up><lf>"), "one");
    EXPECT_EQ(editor->historyIndex, 0U);
    EXPECT_EQ(edit("<up><lf>"), "two");
}

TEST_F(AutoHistoryCommandLineRetrieverTest, EntriesCanBeEdited) {
    remember({"list -n a"});
    EXPECT_EQ(edit("<up><bs>b<lf>"), "list -n b");
    EXPECT_EQ(history.getCmd(1), "list -n a");
}

TEST_F(AutoHistoryCommandLineRetrieverTest, TabWithoutCandidatesBeepsTwice) {
    addSet("BASIC", {"list"});
    EXPECT_EQ(edit("zz<tab><lf>"), "zz");
    EXPECT_EQ(drawn, "zz" + bell + bell);
    EXPECT_EQ(edit("zzyy<left><left><tab>x<lf>"), "zzxyy");
    EXPECT_EQ(drawn, "zzyy" + left + left + right + right + bell + left + left + bell + "xyy" +
                         left + left);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, TabOnUniquePrefixCompletesWord) {
    addSet("BASIC", {"list", "version"});
    EXPECT_EQ(edit("li<tab><lf>"), "list");
    EXPECT_EQ(drawn, "li" + erased(2) + "list" + bell);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, CompletionInsideTheLineKeepsTheTail) {
    addSet("BASIC", {"list", "version"});
    EXPECT_EQ(edit("li -n a<left><left><left><left><left><tab>!<lf>"), "list! -n a");
    EXPECT_EQ(drawn, "li -n a" + times(5, left) + times(5, right) + erased(7) + "list -n a" +
                         times(5, left) + bell + "! -n a" + times(5, left));
}

TEST_F(AutoHistoryCommandLineRetrieverTest, SeveralCandidatesExtendAndAreListed) {
    addSet("BASIC", {"version", "verify", "list"});
    EXPECT_EQ(edit("v<tab><lf>"), "ver");
    EXPECT_EQ(drawn, "v" + erased(1) + "ver\n" + "verify    version\n" + kPrompt + "ver" + bell);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, SeveralCandidatesInsideTheLineKeepTheTail) {
    addSet("BASIC", {"version", "verify"});
    EXPECT_EQ(edit("v -a<left><left><left><tab>s<lf>"), "vers -a");
    EXPECT_EQ(drawn, "v -a" + times(3, left) + times(3, right) + erased(4) + "ver -a\n" +
                         "verify    version\n" + kPrompt + "ver -a" + times(3, left) + bell +
                         "s -a" + times(3, left));
}

TEST_F(AutoHistoryCommandLineRetrieverTest, OneCandidateThatIsAPrefixOfAnotherStopsTheExtension) {
    addSet("BASIC", {"list", "listing"});
    EXPECT_EQ(edit("li<tab>x<lf>"), "listx");
}

TEST_F(AutoHistoryCommandLineRetrieverTest, TabOnTheEmptyLineListsAllCommands) {
    addSet("BASIC", {"list", "version"});
    EXPECT_EQ(edit("<tab><lf>"), "");
    EXPECT_EQ(drawn, "\nlist    version\n" + kPrompt + bell);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, LevelNamesAreCompletedBehindCd) {
    addSet("BASIC", {"list"});
    addSet("FlashBIOS");
    EXPECT_EQ(edit("cd F<tab><lf>"), "cd FlashBIOS");
    EXPECT_EQ(drawn, "cd F" + erased(4) + "cd FlashBIOS" + bell);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, CompletedLevelNameDropsTheTail) {
    addSet("BASIC", {"list"});
    addSet("FlashBIOS");
    EXPECT_EQ(edit("cd Fxyz<left><left><left><tab>!<lf>"), "cd FlashBIOS!");
    EXPECT_EQ(drawn, "cd Fxyz" + times(3, left) + times(3, right) + erased(7) + "cd FlashBIOS" +
                         bell + "!");
}

TEST_F(AutoHistoryCommandLineRetrieverTest, SeveralLevelsExtendFromTheirOwnStart) {
    addSet("BASIC", {"list"});
    addSet("tools_a");
    addSet("tools_b");
    EXPECT_EQ(edit("cd t<tab><lf>"), "cd tools_");
    EXPECT_EQ(drawn, "cd t" + erased(4) + "cd tools_\n" + "tools_a    tools_b\n" + kPrompt +
                         "cd tools_" + bell);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, LevelExtensionStartsAtLineLengthMinusThree) {
    addSet("BASIC", {"list"});
    addSet("tools_a");
    addSet("tools_b");
    // The cursor stands behind "cd to", the line holds "cd tools": five characters of names.
    EXPECT_EQ(edit("cd tools<left><left><left><tab><lf>"), "cd to_ols");
}

TEST_F(AutoHistoryCommandLineRetrieverTest, CdAloneWithNothingOfferedBecomesCdBlank) {
    addSet("BASIC", {"list"});
    addSet("FlashBIOS");
    EXPECT_EQ(edit("cd<tab><lf>"), "cd FlashBIOS");
    EXPECT_EQ(drawn, "cd " + erased(3) + "cd FlashBIOS" + bell);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, CdAloneWithSeveralLevelsListsThem) {
    addSet("BASIC", {"list"});
    addSet("tools");
    addSet("power");
    EXPECT_EQ(edit("cd<tab><lf>"), "cd ");
    EXPECT_EQ(drawn, "cd " + erased(3) + "cd \n" + "tools    power\n" + kPrompt + "cd " + bell);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, CdAloneWithoutLevelsBeeps) {
    addSet("BASIC", {"list"});
    EXPECT_EQ(edit("cd<tab><lf>"), "cd ");
    EXPECT_EQ(drawn, "cd " + bell + bell);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, CommandsThatBeginWithCdAreNoLevels) {
    addSet("BASIC", {"cdrom"});
    addSet("tools");
    EXPECT_EQ(edit("cd<tab><lf>"), "cdrom");
    EXPECT_EQ(edit("cdr<tab><lf>"), "cdrom");
    EXPECT_EQ(edit("cd <tab><lf>"), "cd tools");
}

TEST_F(AutoHistoryCommandLineRetrieverTest, CompleteLevelNameOffersNothing) {
    addSet("BASIC", {"list"});
    addSet("tools");
    EXPECT_EQ(edit("cd tools<tab><lf>"), "cd tools");
    EXPECT_EQ(drawn, "cd tools" + bell + bell);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, ReplacedLineCountsItsColumns) {
    const std::string entry(79, 'e');
    remember({entry});
    EXPECT_EQ(edit("<up>x<lf>"), entry + "x");
    EXPECT_EQ(drawn, entry + "x" + times(80, left) + keys::down);
}

TEST_F(AutoHistoryCommandLineRetrieverTest, EndOfInputEndsTheBrowsingToo) {
    remember({"one"});
    EXPECT_EQ(edit("<up>"), "one");
    EXPECT_TRUE(editor->isEndOfInput());
    EXPECT_EQ(editor->historyIndex, 0U);
}

}  // namespace
