#include <gtest/gtest.h>

#include "CShellCommandSet_FlashBIOS.h"
#include "FirmwareFixture.h"

namespace {

using R2FirmwareTest = FirmwareFixture<CShellCommandSet_FlashBIOS>;
using Calls = std::vector<std::string>;

std::string notFlashed(const std::string& file) {
    return "Failed to flash BIOS ROM file " + file + ".";
}

}  // namespace

TEST_F(R2FirmwareTest, OnlyOnePlatformIsServed) {
    for (const char* platform : {"unknown\n", "i386\n"}) {
        node.setHardware("platform", platform);
        expectFailure(execute("clear cmos checksum"), "Unknown hardware-platform of slave node.");
        expectFailure(execute("check bios info"), "Unknown hardware-platform of slave node.");
    }
    EXPECT_EQ(calls(), Calls{});
}

TEST_F(R2FirmwareTest, ShowsChipAndInformation) {
    const std::string chip =
        "Found chip \"Winbond W25X64\" (8192 KB, SPI) at physical address 0xff800000.\n";
    expectSuccess(execute("check bios memory chip"), chip);
    EXPECT_EQ(calls(), Calls{"flashrom"});
    expectSuccess(execute("check bios info"),
                  "\tVendor: American Megatrends Inc.\n\tVersion: R2A01\n"
                  "\tRelease Date: 05/27/2011\n\tROM Size: 8192 kB\n\tBIOS Revision: 8.15\n");
    EXPECT_EQ(calls(), Calls{"dmidecode [-t] [bios]"});
}

TEST_F(R2FirmwareTest, ChecksumIsCleared) {
    expectSuccess(execute("clear cmos checksum"), "Successfully clear the CMOS checksum.");
    EXPECT_EQ(calls(), Calls{"romtool [-C]"});
    EXPECT_EQ("0000\n", node.hardware("cmos.checksum"));
    node.tell("romtool", "fail");
    expectFailure(execute("clear cmos checksum"), "Failed to clear the CMOS checksum.");
    node.tell("romtool", "exit 17");
    expectFailure(execute("clear cmos checksum"), "17\n");
}

TEST_F(R2FirmwareTest, CmosIsDumpedSavedAndFlashed) {
    const std::string content = node.hardware("cmos");
    expectSuccess(execute("dump cmos memory"), content);
    EXPECT_EQ(calls(), Calls{"romtool [-D]"});

    const std::string file = cluster.file("cmos.bin");
    EXPECT_EQ(EXEC_SUCCESS, execute("save cmos memory -f " + file).getRunStatus());
    EXPECT_EQ(calls(), Calls{"romtool [-D]"});
    EXPECT_EQ(content, LocalAgent::read(file));

    const std::string changed = image("CMOS");
    cluster.write("cmos.bin", changed);
    expectSuccess(execute("flash cmos memory -f " + file), "Flash CMOS successfully.");
    EXPECT_EQ(calls(), Calls{"romtool [-F] [" + file + "]"});
    EXPECT_TRUE(node.hardware("cmos") == changed);
}

TEST_F(R2FirmwareTest, FailedCmosToolLeavesTheOlderCopyAlone) {
    const std::string file = cluster.write("cmos.bin", "older copy");
    node.tell("romtool", "fail");
    EXPECT_EQ(EXEC_FAILURE, execute("save cmos memory -f " + file).getRunStatus());
    EXPECT_EQ("older copy", LocalAgent::read(file));
    expectFailure(execute("flash cmos memory -f " + file), "Failed to flash CMOS.");
    node.tell("romtool", "garbage");
    expectFailure(execute("flash cmos memory -f " + file), "Failed to flash CMOS.");
}

TEST_F(R2FirmwareTest, LayoutIsShownOrSaidToBeEmpty) {
    const std::string file = cluster.write("rom.bin", "R2BIOS\narea1 00000:1ffff\nx\n");
    expectSuccess(execute("check bios layout -f " + file), "area1 00000:1ffff\n");
    EXPECT_EQ(calls(), Calls{"romlayout [" + file + "]"});
    cluster.write("rom.bin", "R2BIOS\n");
    expectSuccess(execute("check bios layout -f " + file), "No detected reserved area!!");
}

TEST_F(R2FirmwareTest, IdIsValidated) {
    const std::string file = cluster.write("rom.bin", "R2BIOS");
    expectSuccess(execute("validate bios id -f " + file), "The BIOS ID is valid.");
    EXPECT_EQ(calls(), Calls{"chipprobe [-i] [-f] [" + file + "]"});
    cluster.write("rom.bin", "another board");
    expectFailure(execute("validate bios id -f " + file), "The BIOS ID is invalid!");
    node.tell("chipprobe", "exit 9");
    expectFailure(execute("validate bios id -f " + file), "9\n");
}

TEST_F(R2FirmwareTest, MissingFilesAreNamed) {
    const std::string file = cluster.file("none.bin");
    std::ofstream(node.onNode(file)) << "R2BIOS old";
    expectFailure(execute("validate bios id -f " + file),
                  "BIOS ROM file, " + file + ", does not exist!");
    expectFailure(execute("flash bios fw -f " + file),
                  "BIOS ROM file, " + file + ", does not exist!");
    expectFailure(execute("flash cmos memory -f " + file),
                  "CMOS file, " + file + ", does not exist!");
    expectFailure(execute("check bios layout -f " + file),
                  "BIOS FW file, " + file + ", does not exist!");
    EXPECT_EQ(calls(), Calls{});
}

TEST_F(R2FirmwareTest, SavedImageEqualsTheChip) {
    const std::string content = image("R2BIOS");
    node.setHardware("chip", content);
    const std::string file = cluster.file("saved.bin");
    expectSuccess(execute("save bios fw -f " + file),
                  "Successfully save the content of current BIOS into " + file + ".");
    EXPECT_EQ(calls(), (Calls{"romwrite.sh [-y] [-B] [" + file + "]",
                              "flashrom [-r] [" + file + "]", "flashrom [-v] [" + file + "]"}));
    EXPECT_TRUE(LocalAgent::read(file) == content);
    node.tell("flashrom", "fail");
    expectFailure(execute("save bios fw -f " + file),
                  "Failed to save current BIOS into " + file + ".");
    EXPECT_TRUE(LocalAgent::read(file) == content);
}

TEST_F(R2FirmwareTest, FlashedChipEqualsTheImage) {
    const std::string content = image("R2BIOS");
    const std::string file = cluster.write("rom.bin", content);
    expectSuccess(execute("flash bios fw -f " + file),
                  "BIOS ROM file " + file +
                      " has been successfully flashed.\n"
                      "You must reboot the system for the changes to take effect!");
    EXPECT_EQ(calls(),
              (Calls{"chipprobe [-i] [-f] [" + file + "]", "romwrite.sh [-y] [-F] [" + file + "]",
                     "chipprobe [-i] [-f] [" + file + "]", "flashrom [-w] [" + file + "]"}));
    EXPECT_TRUE(node.hardware("chip") == content);
    EXPECT_EQ("Please wait for flashing BIOS....[node_0000]\n", printed);
}

TEST_F(R2FirmwareTest, WrongIdFlashesNothingUnlessItIsSkipped) {
    const std::string file = cluster.write("rom.bin", "another board");
    const std::string before = node.hardware("chip");
    expectFailure(execute("flash bios fw -f " + file),
                  "The BIOS ID is invalid! Please use correct BIOS ROM file.");
    EXPECT_EQ(calls(), Calls{"chipprobe [-i] [-f] [" + file + "]"});
    EXPECT_EQ(before, node.hardware("chip"));
    EXPECT_EQ(EXEC_SUCCESS, execute("flash bios fw -x -f " + file).getRunStatus());
    EXPECT_EQ(calls(),
              (Calls{"romwrite.sh [-y] [-x] [-F] [" + file + "]", "flashrom [-w] [" + file + "]"}));
    EXPECT_EQ("another board", node.hardware("chip"));
}

TEST_F(R2FirmwareTest, AnyDashRInTheLineReboots) {
    const std::string file = cluster.write("my-rom.bin", "R2BIOS");
    expectSuccess(
        execute("flash bios fw -f " + file),
        "BIOS ROM file " + file + " has been successfully flashed.\nThe system is rebooting");
    EXPECT_EQ("reboot", calls().back());
}

TEST_F(R2FirmwareTest, FailedOrUnverifiedFlashIsAFailureAndDoesNotReboot) {
    const std::string file = cluster.write("rom.bin", "R2BIOS");
    for (const char* tool : {"flashrom", "romwrite.sh"}) {
        for (const char* order : {"fail", "garbage", "exit 0"}) {
            node.tell(tool, order);
            expectFailure(execute("flash bios fw -r -f " + file), notFlashed(file));
            EXPECT_NE(calls().back(), "reboot");
        }
        node.tell(tool, "");
    }
}

TEST_F(R2FirmwareTest, PackageThatIsMissingOrChangedStartsNothing) {
    const std::string file = cluster.write("rom.bin", "R2BIOS");
    ASSERT_EQ(EXEC_SUCCESS, execute("flash bios fw -x -f " + file).getRunStatus());
    calls();
    const std::string package = node.kelnode().toolsPath() + "flashrom.x86_64.enc";
    std::string content = LocalAgent::read(package);
    content[content.size() - 1] = static_cast<char>(content[content.size() - 1] ^ 1);
    std::ofstream(package, std::ios::binary) << content;
    EXPECT_EQ(EXEC_FAILURE, execute("flash bios fw -x -r -f " + file).getRunStatus());
    std::filesystem::remove(package);
    EXPECT_EQ(EXEC_FAILURE, execute("flash bios fw -x -r -f " + file).getRunStatus());
    EXPECT_EQ(calls(), Calls{});
}
