#include <gtest/gtest.h>

#include "CShellCommandSet_Mem.h"
#include "CommandChecklist.h"
#include "NodeSetFixture.h"

namespace {

TEST(CShellCommandSet_Mem, HoldsItsCommand) {
    CShellCommandSet_Mem set;
    EXPECT_EQ("mem", set.getCommandSetName());
    EXPECT_EQ("Commands for checking memory information.", set.getDescription());
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

using MemSet = NodeSetFixture<CShellCommandSet_Mem>;

TEST_F(MemSet, ShowsWhatTopSaysWithinItsOwnTimeOut) {
    agent.answer("top -bn 1 | grep Mem:", "Mem: 1 total\n");
    expectSuccess(execute("mem", 600000), "Mem: 1 total\n");
    expectSuccess(execute("mem", 1000), "Mem: 1 total\n");
    EXPECT_EQ(std::vector<std::string>(2, "run: top -bn 1 | grep Mem:"), requestsAfterOpening());
    EXPECT_EQ((std::vector<unsigned int>{5000, 5000}), agent.timeOutsMs);
}

TEST_F(MemSet, AsksAgainWhereTopWritesTheNameApart) {
    agent.answer("top -bn 1 | grep Mem:", "", 1);
    agent.answer("top -bn 1 | grep \"Mem :\"", "MiB Mem :   7946.5 total\n");
    expectSuccess(execute("mem"), "MiB Mem :   7946.5 total\n");
    EXPECT_EQ(std::vector<unsigned int>({5000, 5000}), agent.timeOutsMs);
}

TEST_F(MemSet, ShowsAFailureThatSaysSomethingAsItIs) {
    agent.answer("top -bn 1 | grep Mem:", "sh: top: not found\n", 127);
    expectFailure(execute("mem"), "sh: top: not found\n");
    EXPECT_EQ(1U, requestsAfterOpening().size());
}

TEST_F(MemSet, ReportsANodeThatCanNotBeReached) {
    agent.connectFailure = "no route to n";
    expectFailure(execute("mem"), "no route to n");
}

}  // namespace
