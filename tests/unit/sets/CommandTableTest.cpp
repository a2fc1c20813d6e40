#include <gtest/gtest.h>

#include "CResult.h"
#include "CShellCommand.h"
#include "CommandChecklist.h"
#include "CommandRun.h"
#include "CommandTable.h"

namespace {

const CommandTable& sampleTable() {
    static const CommandTable table = {
        {"flash it",
         "Flashes.",
         BUILTIN_OPT,
         SLAVE,
         {valueOption("f", "file", "The file."), flagOption("x", "skip", "Skips.")},
         700,
         "Really?",
         "flash it -f x"},
        {"show it", "Shows.", BUILTIN, MASTER, {}},
    };
    return table;
}

struct SampleSet : CShellCommandSet {
    SampleSet() : CShellCommandSet("sample", "Sample.") { addCommands(*this, sampleTable()); }
};

}  // namespace

TEST(CommandTable, RowsBecomeCommands) {
    SampleSet set;
    set.setTimeOut(9000);
    expectCommands(
        set, {{"flash it",
               "Flashes.",
               BUILTIN_OPT,
               SLAVE,
               {{"f", "file", true, true, "The file."}, {"x", "skip", false, false, "Skips."}},
               700,
               ONCE,
               "Really?",
               {"flash it -f x"}},
              {"show it", "Shows.", BUILTIN, MASTER, {}, 9000, NO, "", {}}});
}

TEST(CommandTable, FindsTheCommandThatALineNames) {
    SampleSet set;
    ASSERT_NE(findCommand(set, "flash it -x -f y"), nullptr);
    EXPECT_EQ("flash it", findCommand(set, "flash it -x -f y")->getName());
    EXPECT_EQ("show it", findCommand(set, "show it")->getName());
    EXPECT_EQ(nullptr, findCommand(set, "flash it"));
    EXPECT_EQ(nullptr, findCommand(set, "show it now"));
}

TEST(CommandTable, OptionThatIsNotGivenHasAnEmptyValue) {
    SampleSet set;
    CShellCommand& command = *set.getSupportedCommands().at("flash it");
    EXPECT_EQ("", TypedLine(command, "flash it -x").value("f"));
    EXPECT_EQ("", TypedLine(command, "flash it -x").path("f"));
    EXPECT_EQ("a b", TypedLine(command, "flash it -f a b -x").value("f"));
    EXPECT_EQ("\"a b\"", TypedLine(command, "flash it -f \"a b\" -x").value("f"));
    EXPECT_EQ("a b", TypedLine(command, "flash it --file \"a b\" -x").path("f"));
}

TEST(CommandTable, TextIsFoundAnywhereInTheLineWithOneBlankBehindIt) {
    SampleSet set;
    CShellCommand& command = *set.getSupportedCommands().at("flash it");
    EXPECT_TRUE(TypedLine(command, "flash it -f /tmp/my-rom.bin").holds("-r"));
    EXPECT_TRUE(TypedLine(command, "flash it -f a -x").holds("-x "));
    EXPECT_TRUE(TypedLine(command, "flash it -f a-x").holds("-x "));
    EXPECT_FALSE(TypedLine(command, "flash it -f a-x.bin").holds("-x "));
    EXPECT_FALSE(TypedLine(command, "flash it -f a --skipid").holds("-x "));
}

TEST(CommandTable, RowWithoutANodeCommandLeavesTheResultUntouched) {
    SampleSet set;
    CResult result;
    result.setRunSummary("untouched");
    executeOnNode(set, sampleTable(), "flash it -f x", nullptr, result, 1000);
    executeOnNode(set, sampleTable(), "no such thing", nullptr, result, 1000);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ("untouched", result.getRunSummary());
}
