#include <gtest/gtest.h>

#include "CResult.h"
#include "CShellCommandSet_HALO.h"
#include "CommandChecklist.h"

namespace {

TEST(CShellCommandSet_HALO, HoldsItsCommands) {
    CShellCommandSet_HALO set;
    EXPECT_EQ("halo", set.getCommandSetName());
    EXPECT_EQ("Commands for accessing HALO.", set.getDescription());
    const auto row = [](const std::string& name, const std::string& description) {
        return ExpectedCommand{
            name, description, SCRIPT, SLAVE, {}, 0, NO, "", {name + " -n node_0000"}};
    };
    expectCommands(set, {row("check fan", "Check status of fan speeds."),
                         row("check temperature", "Check status of CPU and system temperatures."),
                         row("check voltage", "Check status of voltage levels."),
                         row("check intrusion", "Check status of chassis intrusion.")});
}

TEST(CShellCommandSet_HALO, AnswersWithFixedTexts) {
    CShellCommandSet_HALO set;
    const std::pair<const char*, const char*> answers[] = {
        {"check fan", "Status of fan speeds."},
        {"check temperature", "Status of temperatures."},
        {"check voltage", "Status of voltages."},
        {"check intrusion", "Status of chassis intrusion."}};
    for (const auto& [command, answer] : answers) {
        CResult result;
        result.setRunStatus(EXEC_TIMED_OUT);
        set.execute(command, nullptr, result, 1000);
        EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
        EXPECT_EQ(answer, result.getRunSummary());
    }
}

TEST(CShellCommandSet_HALO, LeavesTheResultOfAnUnknownNameUntouched) {
    CShellCommandSet_HALO set;
    CResult result;
    result.setRunStatus(EXEC_TIMED_OUT);
    result.setRunSummary("as before");
    set.execute("check doors", nullptr, result, 1000);
    set.execute("check fan -x", nullptr, result, 1000);
    EXPECT_EQ(EXEC_TIMED_OUT, result.getRunStatus());
    EXPECT_EQ("as before", result.getRunSummary());
}

}  // namespace
