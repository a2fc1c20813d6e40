#include <gtest/gtest.h>

#include "CNode.h"
#include "CResult.h"
#include "CShellCommandSet_ipmifw.h"
#include "CommandChecklist.h"

namespace {

TEST(CShellCommandSet_ipmifw, HoldsItsCommands) {
    CShellCommandSet_ipmifw set;
    EXPECT_EQ(set.getCommandSetName(), "ipmifw");
    EXPECT_EQ(set.getDescription(), "Commands for IPMI Firmware Flash.");
    expectCommands(set,
                   {{"get ipmi fw revision",
                     "get ipmi fw revision on system",
                     BUILTIN_OPT,
                     SLAVE,
                     {},
                     30000,
                     NO,
                     "",
                     {"get ipmi fw revision -n node_0000"}},
                    {"flash ipmi fw",
                     "flash ipmi firmware",
                     BUILTIN_OPT,
                     SLAVE,
                     {{"f", "file", true, true, "this is ipmi fw image file that will be flashed"}},
                     1200000,
                     ONCE,
                     "Do you really want to flash the IPMI firmware?",
                     {"flash ipmi fw -f fwFile -n node_0000"}}});
}

TEST(CShellCommandSet_ipmifw, FlashesNothingWhileTheTestFlagIsSet) {
    CShellCommandSet_ipmifw set;
    CNode nobody("n", "02:00:00:00:00:01", "127.0.0.1", 1);
    EXPECT_FALSE(CShellCommandSet_ipmifw::getTestFlag());
    CShellCommandSet_ipmifw::setTestFlag(true);
    CResult flash;
    set.execute("flash ipmi fw -f x.bin", &nobody, flash, 1000);
    CResult revision;
    set.execute("get ipmi fw revision", &nobody, revision, 1000);
    CShellCommandSet_ipmifw::setTestFlag(false);

    EXPECT_EQ(flash.getRunStatus(), EXEC_SUCCESS);
    EXPECT_EQ(flash.getRunSummary(),
              "IPMI firmware image file x.bin has been [Test]successfully flashed.\nPlease wait "
              "about 1 minute for BMC reboot.");
    EXPECT_EQ(revision.getRunStatus(), EXEC_FAILURE);
}

TEST(CShellCommandSet_ipmifw, ReportsANodeThatCanNotBeReached) {
    CShellCommandSet_ipmifw set;
    CNode nobody("n", "02:00:00:00:00:01", "127.0.0.1", 1);
    CResult result;
    set.execute("flash ipmi fw -f x.bin", &nobody, result, 1000);
    EXPECT_EQ(result.getRunStatus(), EXEC_FAILURE);
}

}  // namespace
