#include <gtest/gtest.h>

#include "CNode.h"
#include "CResult.h"
#include "CShellCommandSet_BIOSFW.h"
#include "CommandChecklist.h"

namespace {

ExpectedOption fileOption(const std::string& description) {
    return {"f", "file", true, true, description};
}

}  // namespace

TEST(CShellCommandSet_BIOSFW, HoldsEveryRowOfItsTable) {
    CShellCommandSet_BIOSFW set;
    EXPECT_EQ(set.getCommandSetName(), "r3biosfw");
    EXPECT_EQ(set.getDescription(), "Commands for BIOS FW.");
    EXPECT_EQ(set.getTimeOut(), 0U);
    EXPECT_EQ(set.getCommandSetConfirmType(), NO);
    expectCommands(
        set,
        {
            {"get bios id from system",
             "Get BIOS ID from current system",
             BUILTIN,
             SLAVE,
             {},
             30000,
             NO,
             "",
             {"get bios id from system -n node_0000"}},
            {"get bios built date from system",
             "Get BIOS built date from current system",
             BUILTIN,
             SLAVE,
             {},
             30000,
             NO,
             "",
             {"get bios built date from system -n node_0000"}},
            {"flash bios fw",
             "Flash BIOS firmware",
             BUILTIN_OPT,
             SLAVE,
             {fileOption("The BIOS firmware image file"),
              {"nv", "nvblock", false, false, "flash nv block when flash BIOS firmware"},
              {"b", "bootblock", false, false, "flash boot block when flash BIOS firmware"},
              {"r", "reboot", false, false, "reboot system after flash BIOS"}},
             900000,
             ONCE,
             "Do you really want to flash the BIOS?",
             {"flash bios fw -f file -n node_0000"}},
            {"save bios fw",
             "Save BIOS firmware",
             BUILTIN_OPT,
             SLAVE,
             {fileOption("The BIOS firmware image file")},
             300000,
             NO,
             "",
             {"save bios fw -f file -n node_0000"}},
            {"backup bios config",
             "Backup BIOS configuration",
             BUILTIN_OPT,
             SLAVE,
             {fileOption("The BIOS configuration file"),
              {"m", "mode", true, true, "Backup BIOS configuration by raw mode or script mode"}},
             300000,
             NO,
             "",
             {"backup bios config -f file -m raw -n node_0000"}},
            {"restore bios config",
             "Restore BIOS configuration to slave node",
             BUILTIN_OPT,
             SLAVE,
             {fileOption("The BIOS Configuration file"),
              {"m", "mode", true, true, "Restore BIOS configuration by raw mode or script mode"}},
             300000,
             ONCE,
             "Do you really want to restore BIOS config?",
             {"restore bios config -f file -m raw -n node_0000"}},
        });
}

TEST(CShellCommandSet_BIOSFW, UnknownLineLeavesTheResultUntouched) {
    CShellCommandSet_BIOSFW set;
    CResult result;
    result.setRunSummary("untouched");
    set.execute("flash bios", nullptr, result, 1000);
    set.execute("flash bios fw", nullptr, result, 1000);  // the compulsory file is missing
    EXPECT_EQ(result.getRunStatus(), EXEC_SUCCESS);
    EXPECT_EQ(result.getRunSummary(), "untouched");
}

TEST(CShellCommandSet_BIOSFW, UnreachableNodeIsAFailureWithItsReason) {
    CShellCommandSet_BIOSFW set;
    CNode node("n1", "", "127.0.0.1", 1);
    CResult result;
    set.execute("get bios id from system", &node, result, 3000);
    EXPECT_EQ(result.getRunStatus(), EXEC_FAILURE);
    EXPECT_NE(result.getRunSummary(), "");
}
