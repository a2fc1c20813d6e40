#include <gtest/gtest.h>

#include "CNode.h"
#include "CResult.h"
#include "CShellCommandSet_IPMIKCS.h"
#include "CommandChecklist.h"

namespace {

ExpectedCommand row(const std::string& name, const std::string& description,
                    const std::string& question = "") {
    return {name, description, BUILTIN, SLAVE, {}, 0, question.empty() ? NO : ONCE, question, {}};
}

TEST(CShellCommandSet_IPMIKCS, HoldsItsCommands) {
    CShellCommandSet_IPMIKCS set;
    EXPECT_EQ(set.getCommandSetName(), "ipmikcs");
    EXPECT_EQ(set.getDescription(), "Commands for IPMI firmware.");
    expectCommands(
        set,
        {row("cold reset", "Cold reset the IPMI device through KCS.",
             "Do you really want to cold reset the IPMI device through KCS?"),
         row("check driver status", "Check the status of ipmi related drivers."),
         row("start driver", "Start ipmi related drivers."),
         row("stop driver", "Stop ipmi related drivers."),
         row("check device type", "Check the type of IPMI device through KCS."),
         row("check ipmi info", "Check IPMI information through KCS."),
         row("check fru info", "Check FRU information through KCS."),
         row("selftest", "Ask the IPMI device to do a self-test through KCS."),
         row("set uid led on", "Set IPMI's UID LED on through KCS."),
         row("set uid led off", "Set IPMI's UID LED off through KCS."),
         row("power status", "Check the status of system power through KCS."),
         row("power off", "Power off the system through IPMI/KCS.",
             "Do you really want to power off the system through IPMI/KCS?"),
         row("power cycle", "Power off and then power on the system through IPMI/KCS.",
             "Do you really want to power off and then power on the system through IPMI/KCS?"),
         row("power reset", "Reset the system power through IPMI/KCS.",
             "Do you really want to reset the system power through IPMI/KCS?"),
         row("power soft", "Inform the OS to prepare for a restart or shutdown through KCS.",
             "Do you really want to inform the OS to prepare for a restart or shutdown through "
             "KCS?"),
         {"flash ipmi",
          "Flash the IPMI firmware with specified firmware file.",
          BUILTIN_OPT,
          SLAVE,
          {{"f", "file", true, true, "The IPMI firmware file to flash."}},
          360000,
          ONCE,
          "WARNING: This can overwrite your IPMI firmware!\nDo you really want to flash the IPMI "
          "firmware?",
          {}}});
}

TEST(CShellCommandSet_IPMIKCS, ReportsANodeThatCanNotBeReached) {
    CShellCommandSet_IPMIKCS set;
    CNode node("n", "02:00:00:00:00:01", "127.0.0.1", 1);
    CResult result;
    set.execute("power status", &node, result, 1000);
    EXPECT_EQ(result.getRunStatus(), EXEC_FAILURE);
    EXPECT_NE(result.getRunSummary(), "");
}

}  // namespace
