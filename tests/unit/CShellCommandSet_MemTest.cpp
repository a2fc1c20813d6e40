#include <gtest/gtest.h>

#include "CNode.h"
#include "CResult.h"
#include "CShellCommandSet_Mem.h"
#include "CommandChecklist.h"

namespace {

TEST(CShellCommandSet_Mem, HoldsItsCommand) {
    CShellCommandSet_Mem set;
    EXPECT_EQ(set.getCommandSetName(), "mem");
    EXPECT_EQ(set.getDescription(), "Commands for checking memory information.");
    expectCommands(set, {{"mem",
                          "Check the memory usage by using top.",
                          SCRIPT,
                          SLAVE,
                          {},
                          0,
                          NO,
                          "",
                          {"mem -n node_0000"}}});
}

TEST(CShellCommandSet_Mem, ReportsANodeThatCanNotBeReached) {
    CShellCommandSet_Mem set;
    CNode node("n", "02:00:00:00:00:01", "127.0.0.1", 1);
    CResult result;
    set.execute("mem", &node, result, 1000);
    EXPECT_EQ(result.getRunStatus(), EXEC_FAILURE);
    EXPECT_NE(result.getRunSummary(), "");
}

}  // namespace
