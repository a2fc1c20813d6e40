#include <string>

#include <gtest/gtest.h>

#include "CNode.h"
#include "CResult.h"
#include "CShellCommandSet_IPMI.h"
#include "CommandChecklist.h"
#include "ToolDirectory.h"

namespace {

constexpr char kUser[] = " -U admin -P secret";

ExpectedCommand row(const std::string& name, const std::string& description,
                    const std::string& question) {
    return {name,
            description,
            BUILTIN_OPT,
            SLAVE,
            {{"U", "user", true, true, "The IPMI user ID."},
             {"P", "password", true, true, "The IPMI user password."}},
            0,
            question.empty() ? NO : ONCE,
            question,
            {}};
}

TEST(CShellCommandSet_IPMI, HoldsItsCommands) {
    CShellCommandSet_IPMI set;
    EXPECT_EQ("ipmi", set.getCommandSetName());
    EXPECT_EQ("Commands for IPMI firmware.", set.getDescription());
    ExpectedCommand raw = row("raw command", "Execute specific IPMI raw command.",
                              "Do you really want to execute the specified IPMI raw command?");
    raw.options.push_back({"rc", "raw-command", true, true, "The IPMI raw command."});
    expectCommands(
        set, {row("cold reset", "Cold reset the IPMI device.",
                  "Do you really want to cold reset the IPMI device?"),
              row("check device type", "Check the type of IPMI device.", ""),
              row("set uid led on", "Set IPMI's UID LED on.", ""),
              row("set uid led off", "Set IPMI's UID LED off.", ""),
              row("acpi status", "Check the ACPI status of system power.", ""),
              row("power on", "Power on the system through IPMI.",
                  "Do you really want to power on the system through IPMI?"),
              row("power off", "Power off the system through IPMI.",
                  "Do you really want to power off the system through IPMI?"),
              row("power cycle", "Power off and then power on the system through IPMI.",
                  "Do you really want to power off and then power on the system through IPMI?"),
              row("power reset", "Reset the system power through IPMI.",
                  "Do you really want to reset the system power through IPMI?"),
              row("power soft", "Inform the OS to prepare for a restart or shutdown.",
                  "Do you really want to inform the OS to prepare for a restart or shutdown?"),
              raw});
}

class IpmiSet : public testing::Test {
protected:
    CResult run(const std::string& line) {
        CResult result;
        set.execute(line, &node, result, 30000);
        return result;
    }

    ToolDirectory tools;
    CShellCommandSet_IPMI set;
    CNode node{"n", "02:00:00:00:00:01", "127.2.0.9", 4422};
};

TEST_F(IpmiSet, SendsEachRequestExactly) {
    const std::pair<const char*, const char*> requests[] = {
        {"cold reset", "[0x06] [0x02]"},         {"check device type", "[0x06] [0x37]"},
        {"set uid led on", "[0x30] [0x0d]"},     {"set uid led off", "[0x30] [0x0e]"},
        {"acpi status", "[0x06] [0x07]"},        {"power on", "[0x00] [0x02] [0x01]"},
        {"power off", "[0x00] [0x02] [0x00]"},   {"power cycle", "[0x00] [0x02] [0x02]"},
        {"power reset", "[0x00] [0x02] [0x03]"}, {"power soft", "[0x00] [0x02] [0x05]"}};
    tools.add("ipmitool", "echo done");
    std::string expected;
    for (const auto& [name, bytes] : requests) {
        run(name + std::string(kUser));
        expected += "ipmitool [-I] [lanplus] [-H] [127.2.0.9] [raw] " + std::string(bytes) +
                    " [-U] [admin] [-P] [secret]\n";
    }
    EXPECT_EQ(expected, tools.calls());
}

TEST_F(IpmiSet, HandsTheRemainderOnAsTyped) {
    tools.add("ipmitool", "echo done");
    run("power on --user 'a b' --password secret");
    EXPECT_EQ(
        "ipmitool [-I] [lanplus] [-H] [127.2.0.9] [raw] [0x00] [0x02] [0x01] [--user] [a b] "
        "[--password] [secret]\n",
        tools.calls());
}

TEST_F(IpmiSet, RunsRawCommands) {
    const std::string expected =
        "ipmitool [-I] [lanplus] [-H] [127.2.0.9] [raw] [0x06] [0x01] [-U] [u] [-P] [p]\n";
    for (const char* line :
         {"raw command -rc 0x06 0x01 -U u -P p", "raw command -rc \"0x06 0x01\" -U u -P p",
          "raw command --raw-command \"0x06 0x01\" -U u -P p"}) {
        tools.add("ipmitool", "echo done");
        const std::string before = tools.calls();
        const CResult result = run(line);
        EXPECT_EQ(before + expected, tools.calls()) << line;
        EXPECT_EQ("done\n", result.getRunSummary());
    }
    const std::string before = tools.calls();
    run("raw command -U u -P p -rc \"0x06 0x01\"");
    EXPECT_EQ(
        tools.calls(),
        before +
            "ipmitool [-I] [lanplus] [-H] [127.2.0.9] [-U] [u] [-P] [p] [raw] [0x06] [0x01]\n");
}

TEST_F(IpmiSet, KeepsRunStatusZeroAndRecordsTheExitCode) {
    tools.add("ipmitool", "echo part; echo 'Error: no session' >&2; exit 1");
    const CResult result = run("power on" + std::string(kUser));
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ(1, result.getExitCode());
    EXPECT_EQ("part\nError: no session\n", result.getRunSummary());
}

TEST_F(IpmiSet, TellsTheDeviceTypeFromStandardOutputOnly) {
    tools.add("ipmitool", "echo 'Error: Unable to establish' >&2; exit 1");
    EXPECT_EQ("No IPMI device", run("check device type" + std::string(kUser)).getRunSummary());
    tools.add("ipmitool", "echo noise >&2; echo ' 37 30 30 31 5a 51 00 00'");
    EXPECT_EQ("Module type 3", run("check device type" + std::string(kUser)).getRunSummary());
    tools.add("ipmitool", "printf ' 02 00 00 ff fe 00 00 00 08 09 0a 0b 0c 0d 0e 0f\\n'");
    EXPECT_EQ("Module type 1 with KVM",
              run("check device type" + std::string(kUser)).getRunSummary());
    tools.add("ipmitool", "printf ' 37 30 30'");
    EXPECT_EQ("Unknown IPMI device", run("check device type" + std::string(kUser)).getRunSummary());
}

TEST_F(IpmiSet, ShowsThatIpmitoolIsMissing) {
    const ScopedEnvironment nowhere("PATH", tools.path().c_str());
    const CResult result = run("power on" + std::string(kUser));
    EXPECT_EQ(127, result.getExitCode());
    EXPECT_NE(result.getRunSummary().find("ipmitool: not found"), std::string::npos);
    EXPECT_EQ("No IPMI device", run("check device type" + std::string(kUser)).getRunSummary());
}

TEST_F(IpmiSet, GivesIpmitoolNoTerminalAndNoPosixMode) {
    const ScopedEnvironment posix("POSIXLY_CORRECT", "1");
    tools.add("ipmitool", "readlink /proc/$$/fd/0; echo \"posix=${POSIXLY_CORRECT-unset}\"");
    EXPECT_EQ("/dev/null\nposix=unset\n", run("power on" + std::string(kUser)).getRunSummary());
}

TEST_F(IpmiSet, LeavesNoShellWithThePasswordWaiting) {
    // The program sees its parent: this test, not a shell that was given the line.
    tools.add("ipmitool", "tr '\\0' ' ' < /proc/$PPID/cmdline");
    const std::string parent = run("power on" + std::string(kUser)).getRunSummary();
    EXPECT_NE(parent, "");
    EXPECT_EQ(std::string::npos, parent.find("secret")) << parent;
}

TEST_F(IpmiSet, LeavesTheResultOfAnUnknownNameUntouched) {
    CResult result;
    result.setRunSummary("as before");
    set.execute("power up -U a -P b", &node, result, 1000);
    EXPECT_EQ("as before", result.getRunSummary());
}

}  // namespace
