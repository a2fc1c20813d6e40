#include <gtest/gtest.h>

#include "CNode.h"
#include "CResult.h"
#include "CShellCommandSet_FlashBIOS.h"
#include "CommandChecklist.h"

namespace {

std::vector<ExpectedOption> file(const std::string& description) {
    return {{"f", "file", true, true, description}};
}

ExpectedCommand row(const std::string& name, const std::string& description,
                    const std::vector<ExpectedOption>& options, unsigned int timeOutMs,
                    const std::string& confirmMessage, const std::string& example) {
    return {name,     description, options.empty() ? BUILTIN : BUILTIN_OPT, SLAVE,
            options,  timeOutMs,   confirmMessage.empty() ? NO : ONCE,      confirmMessage,
            {example}};
}

}  // namespace

TEST(CShellCommandSet_FlashBIOS, HoldsEveryRowOfItsTable) {
    CShellCommandSet_FlashBIOS set;
    EXPECT_EQ(set.getCommandSetName(), "biosfw");
    EXPECT_EQ(set.getDescription(), "Commands for BIOS firmware.");
    EXPECT_EQ(set.getTimeOut(), 0U);
    EXPECT_EQ(set.getCommandSetConfirmType(), NO);
    expectCommands(
        set,
        {
            row("check bios memory chip", "Check and show the memory chip used for BIOS.", {},
                30000, "", "check bios memory chip -n node_0000"),
            row("clear cmos checksum", "Clear the CMOS checksum.", {}, 30000,
                "Do you really want to clear the CMOS checksum?",
                "clear cmos checksum -n node_0000"),
            row("flash cmos memory", "Read the content of CMOS memory from a file and flash it",
                file("The file for flashing the CMOS."), 30000,
                "Do you really want to flash the CMOS?", "flash cmos memory -f file -n node_0000"),
            row("check bios layout", "Display the layout of the BIOS ROM file.",
                file("The BIOS ROM file to check."), 120000, "",
                "check bios layout -f file -n node_0000"),
            row("save cmos memory", "Save the content of the current CMOS memory to file.",
                file("The file to save the content of the current CMOS memory."), 30000, "",
                "save cmos memory -f file -n node_0000"),
            row("validate bios id",
                "Validate the BIOS ID in the BIOS ROM file to see if it is valid to flash on "
                "Orvane mother board.",
                file("The BIOS ROM file to validate."), 120000, "",
                "validate bios id -f -n node_0000"),
            row("flash bios fw", "Flash the file contents into the BIOS ROM chip.",
                {{"f", "file", true, true, "The BIOS ROM file to flash."},
                 {"x", "skipid", false, false, "Disable Orvane BIOS ID checking during flash."},
                 {"r", "reboot", false, false, "Reboot system after flash BIOS."}},
                900000,
                "WARNING: This can overwrite your current BIOS and CMOS!\nDo you really want to "
                "flash the BIOS?",
                "flash bios fw -f file -n node_0000"),
            row("dump cmos memory", "Dump the content of the current CMOS memory.", {}, 30000, "",
                "dump cmos memory -n node_0000"),
            row("save bios fw", "Save the current BIOS ROM chip contents to file.",
                file("The file to save the content of the current BIOS."), 300000, "",
                "save bios fw -f file -n node_0000"),
            row("check bios info", "Check BIOS information.", {}, 30000, "",
                "check bios info -n node_0000"),
        });
}

TEST(CShellCommandSet_FlashBIOS, UnknownLineLeavesTheResultUntouched) {
    CShellCommandSet_FlashBIOS set;
    CResult result;
    result.setRunSummary("untouched");
    set.execute("clear cmos", nullptr, result, 1000);
    set.execute("flash bios fw -f", nullptr, result, 1000);
    set.execute("dump cmos memory -x", nullptr, result, 1000);
    EXPECT_EQ(result.getRunStatus(), EXEC_SUCCESS);
    EXPECT_EQ(result.getRunSummary(), "untouched");
}

TEST(CShellCommandSet_FlashBIOS, UnreachableNodeIsAFailureWithItsReason) {
    CShellCommandSet_FlashBIOS set;
    CNode node("n1", "", "127.0.0.1", 1);
    CResult result;
    set.execute("dump cmos memory", &node, result, 3000);
    EXPECT_EQ(result.getRunStatus(), EXEC_FAILURE);
    EXPECT_NE(result.getRunSummary(), "");
}
