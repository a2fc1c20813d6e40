// The sets that reach a controller from inside its node, against a real agent and stand-in tools.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CShellCommandSet_IPMIKCS.h"
#include "CShellCommandSet_Mem.h"
#include "CShellCommandSet_ipmifw.h"
#include "FirmwareFixture.h"

namespace {

using Calls = std::vector<std::string>;

constexpr char kAten[] = " 37 30 30 31 5a 51 00 00 08 09 0a 0b 0c 0d 0e 0f\n";
constexpr char kAmi[] = " 39 30 30 31 5a 51 00 00 08 09 0a 0b 0c 0d 0e 0f\n";

std::string flashed(const std::string& file) {
    return "IPMI firmware image file " + file +
           " has been successfully flashed.\nPlease wait about 1 minute for BMC reboot.";
}

class KcsOnNode : public FirmwareFixture<CShellCommandSet_IPMIKCS> {};

TEST_F(KcsOnNode, CommandsReachTheirTools) {
    const std::pair<const char*, const char*> expected[] = {
        {"check driver status", "service [ipmi] [status]"},
        {"start driver", "service [ipmi] [start]"},
        {"stop driver", "service [ipmi] [stop]"},
        {"check ipmi info", "ipmitool [mc] [info]"},
        {"check fru info", "ipmitool [fru]"},
        {"selftest", "ipmitool [mc] [selftest]"},
        {"power status", "ipmitool [power] [status]"},
        {"power off", "ipmitool [power] [off]"},
        {"power cycle", "ipmitool [power] [cycle]"},
        {"power reset", "ipmitool [power] [reset]"},
        {"power soft", "ipmitool [power] [soft]"},
        {"cold reset", "ipmitool [mc] [reset] [cold]"},
        {"check device type", "ipmitool [raw] [0x06] [0x37]"}};
    for (const auto& [command, call] : expected) {
        EXPECT_EQ(EXEC_SUCCESS, execute(command).getRunStatus()) << command;
        EXPECT_EQ(calls(), Calls{call});
    }
    EXPECT_EQ("off\n", node.hardware("power"));
    EXPECT_EQ("stopped\n", node.hardware("driver"));
}

TEST_F(KcsOnNode, LightsTheLedAfterTheBareAnswerOnly) {
    expectSuccess(execute("set uid led on"), "UID LED is not available.");
    EXPECT_EQ("", node.hardware("led"));
    node.setHardware("led_state", "01");
    expectSuccess(execute("set uid led on"), "\n");
    EXPECT_EQ("on\n", node.hardware("led"));
    expectSuccess(execute("set uid led off"), "\n");
    EXPECT_EQ("off\n", node.hardware("led"));
}

TEST_F(KcsOnNode, NamesNoDeviceWhenIpmitoolFails) {
    node.tell("ipmitool", "fail");
    EXPECT_EQ("No IPMI device", execute("check device type").getRunSummary());
}

TEST_F(KcsOnNode, FlashedControllerEqualsTheImage) {
    const std::string content = image("ATEN");
    const std::string file = cluster.write("bmc image.bin", content);
    expectSuccess(execute("flash ipmi -f \"" + file + "\""),
                  "Successfully flash IPMI firmware " + file +
                      ". Please wait about 1 minute for IPMI to restart.");
    EXPECT_TRUE(node.hardware("bmc") == content);
    EXPECT_EQ(calls(), (Calls{"ipmitool [raw] [0x06] [0x37]", "service [ipmi] [stop]",
                              "lUpdate [-i] [kcs] [-f] [" + file + "]", "service [ipmi] [start]"}));
    EXPECT_FALSE(std::filesystem::exists(node.varTmp("bmc image.bin.atenflashlog")));
}

TEST_F(KcsOnNode, FailedFlashKeepsItsLog) {
    const std::string file = cluster.write("bmc.bin", "image");
    node.tell("lUpdate", "fail");
    expectFailure(execute("flash ipmi -f " + file),
                  "Failed to flash IPMI firmware " + file +
                      "!\nPlease check flash log file /var/tmp/bmc.bin.atenflashlog for detail.");
    EXPECT_TRUE(std::filesystem::exists(node.varTmp("bmc.bin.atenflashlog")));
}

TEST_F(KcsOnNode, DriverThatDoesNotStopLeavesTheControllerAlone) {
    const std::string file = cluster.write("bmc.bin", "image");
    std::ofstream(node.varTmp("bmc.bin.atenflashlog")) << "Update Complete\n";
    node.tell("service", "fail");
    EXPECT_EQ(EXEC_FAILURE, execute("flash ipmi -f " + file).getRunStatus());
    EXPECT_EQ("", node.hardware("bmc"));
}

class FirmwareOnNode : public FirmwareFixture<CShellCommandSet_ipmifw> {};

TEST_F(FirmwareOnNode, ReadsTheRevision) {
    expectSuccess(execute("get ipmi fw revision"), "ATEN IPMI Firmware Revision: 1.23 00 0a 0b 0c");
    node.setHardware("guid", kAmi);
    node.setHardware("device_id", " 00 03\n");
    expectSuccess(execute("get ipmi fw revision"), "AMI IPMI Firmware Revision: 1.23");
    node.tell("bmcconf", "fail");
    expectFailure(execute("get ipmi fw revision"), "Can not get IPMI firmware revioson!!");
}

TEST_F(FirmwareOnNode, FlashesAnAtenController) {
    const std::string content = image("ATEN");
    const std::string file = cluster.write("bmc.bin", content);
    expectSuccess(execute("flash ipmi fw -f " + file), flashed(file));
    EXPECT_TRUE(node.hardware("bmc") == content);
    EXPECT_EQ(calls(), (Calls{"bmcconf [-raw] [0x06] [0x37]", "bmc_driver_off",
                              "lUpdate [-i] [kcs] [-f] [" + file + "]", "load_ipmi_driver"}));
    EXPECT_EQ("IPMI GUID:" + std::string(kAten) +
                  "ATEN IPMI Firmware [node_0000]\n"
                  "Please wait for flashing IPMI firmware....\n"
                  "Don't power off the system or remove AC power! [node_0000]\n",
              printed);
}

TEST_F(FirmwareOnNode, FlashesAnAmiController) {
    node.setHardware("guid", kAmi);
    const std::string content = image("AMI");
    const std::string file = cluster.write("bmc.bin", content);
    expectSuccess(execute("flash ipmi fw -f " + file), flashed(file));
    EXPECT_TRUE(node.hardware("bmc") == content);
    EXPECT_EQ(calls(),
              (Calls{"bmcconf [-raw] [0x06] [0x37]", "bmcconf [-raw] [0x30] [0x70] [0xb] [0]",
                     "bmcflash64 [-cd] [" + file + "]"}));
    EXPECT_FALSE(std::filesystem::exists(node.kelnode().toolsPath() + "y.txt"));
}

TEST_F(FirmwareOnNode, FailedFlashShowsTheLogFromItsFifthLine) {
    const std::string file = cluster.write("bmc.bin", "image");
    node.setHardware("guid", kAmi);
    std::filesystem::remove(node.kelnode().toolsPath() + "libipmi.so.1.0");
    std::ofstream(node.varTmp("ipmi_flash_log.log")) << "Resetting the firmware..........\n";
    const CResult refused = execute("flash ipmi fw -f " + file);
    EXPECT_EQ(EXEC_FAILURE, refused.getRunStatus());
    EXPECT_NE(refused.getRunSummary().find("libipmi.so.1.0"), std::string::npos)
        << refused.getRunSummary();
    EXPECT_EQ("", node.hardware("bmc"));

    std::ofstream(node.kelnode().toolsPath() + "libipmi.so.1.0") << "library";
    std::filesystem::remove(cluster.file("bmc.bin"));
    expectFailure(execute("flash ipmi fw -f " + file),
                  "IPMI firmware image file \"" + file + "\" does not exist!");
}

TEST_F(FirmwareOnNode, LeavesAnUnknownControllerAlone) {
    node.setHardware("guid", " 20 00 0e 40 02 7f 78 08\n");
    const std::string file = cluster.write("bmc.bin", "image");
    expectFailure(execute("flash ipmi fw -f " + file), "Can not support this IPMI device type....");
    EXPECT_EQ("", node.hardware("bmc"));
}

class MemOnNode : public FirmwareFixture<CShellCommandSet_Mem> {};

TEST_F(MemOnNode, ShowsTheLineForTheMemory) {
    expectSuccess(execute("mem"), "Mem:  24105600k total,  1000000k used, 23105600k free\n");
}

TEST_F(MemOnNode, GivesUpAfterItsOwnTimeOut) {
    node.tell("top", "hang");
    const CResult late = execute("mem", 600000);
    EXPECT_EQ(EXEC_TIMED_OUT, late.getRunStatus());
}

}  // namespace
