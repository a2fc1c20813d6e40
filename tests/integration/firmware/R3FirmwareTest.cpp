#include <thread>

#include <gtest/gtest.h>

#include "CShellCommandSet_BIOSFW.h"
#include "FirmwareFixture.h"

namespace {

using R3FirmwareTest = FirmwareFixture<CShellCommandSet_BIOSFW>;
using Calls = std::vector<std::string>;

constexpr char kFlashLog[] = "r3_flash_bios_log.log";

std::string flashed(const std::string& file) {
    return "BIOS firmware image file " + file + " has been successfully flashed.\n";
}

std::string notFlashed(const std::string& file) {
    return "Failed to flash BIOS firmware image file " + file + ".";
}

}  // namespace

TEST_F(R3FirmwareTest, ReadsIdentifierAndBuildDate) {
    expectSuccess(execute("get bios id from system"), "R3ABC012\n");
    EXPECT_EQ(calls(), Calls{"romutil [-IdFromSystem]"});
    expectSuccess(execute("get bios built date from system"), "05/27/2013\n");
    EXPECT_EQ(calls(), Calls{"romutil [-BuiltDateFromSystem]"});
}

TEST_F(R3FirmwareTest, ReadingThatFailsSaysWhy) {
    node.tell("romutil", "fail");
    const CResult result = execute("get bios id from system");
    expectFailure(result,
                  "romutil ended with exit code 1 and without an answer.\n"
                  "romutil: cannot access the hardware");
    EXPECT_EQ(1, result.getExitCode());
}

TEST_F(R3FirmwareTest, FlashedChipEqualsTheImage) {
    const std::string content = image("R3BIOS");
    const std::string file = cluster.write("image.bin", content);
    expectSuccess(execute("flash bios fw -f " + file), flashed(file));
    EXPECT_EQ(calls(), (Calls{"insmod [" + module() + "]", "romflash [-w] [" + file + "]"}));
    EXPECT_TRUE(node.hardware("chip") == content);
    EXPECT_EQ(
        "Please wait for flashing BIOS firmware....\n"
        "Don't power off the system or remove AC power! [node_0000]\n",
        printed);
}

TEST_F(R3FirmwareTest, BlocksAndRebootReachTheTools) {
    const std::string file = cluster.write("image.bin", "R3BIOS");
    expectSuccess(execute("flash bios fw -nv -b -r -f " + file),
                  "BIOS firmware image file " + file +
                      " has been successfully flashed. node_0000 is rebooting....");
    EXPECT_EQ(calls(), (Calls{"insmod [" + module() + "]", "romflash [-w] [-n] [-b] [" + file + "]",
                              "reboot"}));
}

TEST_F(R3FirmwareTest, SecondFlashFindsTheDriverLoaded) {
    const std::string file = cluster.write("image.bin", "R3BIOS one");
    EXPECT_EQ(EXEC_SUCCESS, execute("flash bios fw -f " + file).getRunStatus());
    cluster.write("image.bin", "R3BIOS two");
    expectSuccess(execute("flash bios fw -f " + file), flashed(file));
    EXPECT_EQ("R3BIOS two", node.hardware("chip"));
}

TEST_F(R3FirmwareTest, OddNameReachesTheToolUnchanged) {
    const std::string content = image("R3BIOS");
    const std::string file = cluster.write("it's \"my\" $(image) \xc3\xbc.bin", content);
    expectSuccess(execute("flash bios fw -f \"" + file + "\""), flashed(file));
    EXPECT_EQ("romflash [-w] [" + file + "]", calls().back());
    EXPECT_TRUE(node.hardware("chip") == content);
}

TEST_F(R3FirmwareTest, ImageWithoutIdentifierIsNotFlashed) {
    const std::string file = cluster.write("image.bin", "something else");
    const std::string before = node.hardware("chip");
    expectFailure(execute("flash bios fw -r -f " + file), "ID of bios fw image not found");
    EXPECT_EQ(before, node.hardware("chip"));
}

TEST_F(R3FirmwareTest, FlashToolThatFailsOrPrintsGarbageIsAFailure) {
    const std::string file = cluster.write("image.bin", "R3BIOS");
    for (const auto& [order, exitCode] :
         std::vector<std::pair<std::string, int>>{{"fail", 1}, {"garbage", 7}, {"exit 0", 0}}) {
        node.tell("romflash", order);
        const CResult result = execute("flash bios fw -r -f " + file);
        expectFailure(result, notFlashed(file));
        EXPECT_EQ(exitCode, result.getExitCode());
        for (const std::string& call : calls()) {
            EXPECT_NE(call, "reboot") << order;
        }
    }
}

TEST_F(R3FirmwareTest, PhraseOfAnEarlierRunNeverCounts) {
    const std::string file = cluster.write("image.bin", "R3BIOS");
    ASSERT_EQ(EXEC_SUCCESS, execute("flash bios fw -f " + file).getRunStatus());
    ASSERT_NE(LocalAgent::read(node.varTmp(kFlashLog)).find("Writing finished"), std::string::npos);
    calls();

    const std::string package = node.kelnode().toolsPath() + "romflash.enc";
    const std::string content = LocalAgent::read(package);
    std::filesystem::remove(package);
    const CResult missing = execute("flash bios fw -r -f " + file);
    EXPECT_EQ(EXEC_FAILURE, missing.getRunStatus());
    EXPECT_NE(missing.getRunSummary().find("romflash.enc"), std::string::npos);

    std::string tampered = content;
    tampered[tampered.size() / 2] = static_cast<char>(tampered[tampered.size() / 2] ^ 1);
    std::ofstream(package, std::ios::binary) << tampered;
    EXPECT_EQ(EXEC_FAILURE, execute("flash bios fw -r -f " + file).getRunStatus());

    std::ofstream(package, std::ios::binary) << content;
    std::filesystem::remove(module());
    const CResult alone = execute("flash bios fw -r -f " + file);
    EXPECT_EQ(EXEC_FAILURE, alone.getRunStatus());
    EXPECT_NE(alone.getRunSummary().find("romio.ko"), std::string::npos);
    EXPECT_EQ(calls(), Calls{}) << "nothing may have been started";
}

TEST_F(R3FirmwareTest, LogThatCannotBeWrittenIsAFailure) {
    const std::string file = cluster.write("image.bin", "R3BIOS");
    // Nothing can be made in a directory that is gone, nor is anything there that could be removed.
    std::filesystem::remove_all(node.varTmp(""));
    const CResult result = execute("flash bios fw -f " + file);
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_EQ(0U, result.getRunSummary().rfind(
                      std::string("romflash left no output in /var/tmp/") + kFlashLog, 0))
        << result.getRunSummary();
}

TEST_F(R3FirmwareTest, PlantInPlaceOfTheLogIsNeitherFollowedNorBelieved) {
    const std::string file = cluster.write("image.bin", "R3BIOS");
    const std::string victim = node.varTmp("victim");
    std::ofstream(victim) << "precious";
    std::filesystem::create_symlink(victim, node.varTmp(kFlashLog));
    EXPECT_EQ(EXEC_SUCCESS, execute("flash bios fw -f " + file).getRunStatus());
    EXPECT_EQ("precious", LocalAgent::read(victim));
    EXPECT_TRUE(
        std::filesystem::is_regular_file(std::filesystem::symlink_status(node.varTmp(kFlashLog))));
    std::filesystem::remove(node.varTmp(kFlashLog));
    std::filesystem::create_directory(node.varTmp(kFlashLog));
    EXPECT_EQ(EXEC_SUCCESS, execute("flash bios fw -r -f " + file).getRunStatus());
}

TEST_F(R3FirmwareTest, ImageMissingOnTheMasterFlashesNothing) {
    const std::string file = cluster.file("image.bin");
    // Left on the node by an earlier command: not the image that was named.
    std::ofstream(node.onNode(file)) << "R3BIOS old";
    expectFailure(execute("flash bios fw -f " + file),
                  "BIOS firmware image file \"" + file + "\" does not exist!");
    EXPECT_EQ(calls(), Calls{});
}

TEST_F(R3FirmwareTest, FullDiskOnTheNodeFlashesNothing) {
    FirmwareNode small(cluster, "node_0001", "tmpfs:size=64k");
    const std::string file = cluster.write("image.bin", image("R3BIOS"));
    CResult result;
    set.execute("flash bios fw -f " + file, small.target(), result, 30000);
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_NE(result.getRunSummary().find("No space left on device"), std::string::npos)
        << result.getRunSummary();
    EXPECT_EQ(small.takeCalls(), Calls{});
}

TEST_F(R3FirmwareTest, FlashGoesOnPastItsTimeOutAndRefusesASecondOne) {
    const std::string content = image("R3BIOS");
    const std::string file = cluster.write("image.bin", content);
    node.tell("romflash", "hang");
    const CResult late = execute("flash bios fw -r -f " + file, 1500);
    EXPECT_EQ(EXEC_TIMED_OUT, late.getRunStatus());
    EXPECT_NE(late.getRunSummary().find("It is not interrupted and goes on at the node"),
              std::string::npos)
        << late.getRunSummary();

    const CResult second = execute("flash bios fw -f " + file, 2000);
    EXPECT_EQ(EXEC_FAILURE, second.getRunStatus());
    EXPECT_EQ(std::string::npos, second.getRunSummary().find("left no output"));
    EXPECT_NE(second.getRunSummary(), "");

    node.release();
    EXPECT_TRUE(waitFor([&] { return node.hardware("chip") == content; }));
    EXPECT_TRUE(waitFor([&] { return node.plainTools().empty(); }));
    EXPECT_EQ(calls(), (Calls{"insmod [" + module() + "]", "romflash [-w] [" + file + "]"}));
}

TEST_F(R3FirmwareTest, LostConnectionDuringTheFlashIsSaidAndTheFlashCompletes) {
    const std::string content = image("R3BIOS");
    const std::string file = cluster.write("image.bin", content);
    node.tell("romflash", "hang");
    CResult result;
    std::thread worker(
        [&] { set.execute("flash bios fw -f " + file, node.target(), result, 60000); });
    EXPECT_TRUE(node.waitUntilHanging("romflash"));
    for (const pid_t session : node.kelnode().processes("kelnode-session")) {
        ::kill(session, SIGKILL);
    }
    worker.join();
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_NE(result.getRunSummary().find("lost"), std::string::npos) << result.getRunSummary();
    EXPECT_NE(result.getRunSummary().find("goes on"), std::string::npos) << result.getRunSummary();
    node.release();
    EXPECT_TRUE(waitFor([&] { return node.hardware("chip") == content; }));
}

TEST_F(R3FirmwareTest, ReadingThatHangsIsEndedAtItsTimeOut) {
    node.tell("romutil", "hang");
    const CResult result = execute("get bios id from system", 1000);
    EXPECT_EQ(EXEC_TIMED_OUT, result.getRunStatus());
    EXPECT_EQ("romutil did not end within its time-out of 1000 ms. It was ended.",
              result.getRunSummary());
}

TEST_F(R3FirmwareTest, SavedImageEqualsTheChip) {
    const std::string content = image("R3BIOS");
    node.setHardware("chip", content);
    const std::string file = cluster.file("saved.bin");
    expectSuccess(execute("save bios fw -f " + file),
                  "BIOS firmware image file " + file + " has been successfully exported.\n");
    EXPECT_EQ(calls(), (Calls{"insmod [" + module() + "]", "romflash [-r] [" + file + "]"}));
    EXPECT_TRUE(LocalAgent::read(file) == content);
    EXPECT_EQ(
        "Please wait for saving BIOS firmware....\n"
        "Don't power off the system or remove AC power!\n",
        printed);
}

TEST_F(R3FirmwareTest, SaveThatFailsOrCannotBeFetchedIsAFailure) {
    node.tell("romflash", "fail");
    const std::string file = cluster.file("saved.bin");
    expectFailure(execute("save bios fw -f " + file),
                  "Failed to saving BIOS firmware image file " + file);
    EXPECT_FALSE(std::filesystem::exists(file));
    node.tell("romflash", "");
    // The directory is made on the node and missing on the master.
    expectFailure(execute("save bios fw -f " + cluster.file("sub/saved.bin")),
                  "Failed to get BIOS firmware....");
}

TEST_F(R3FirmwareTest, RawBackupAndRestoreMoveThreeFiles) {
    const std::string file = cluster.file("config");
    EXPECT_EQ(EXEC_SUCCESS, execute("backup bios config -m raw -f " + file).getRunStatus());
    EXPECT_EQ(calls(), Calls{"SCELNX_64 [/o] [/c] [/l] [" + file + ".list] [/n] [" + file +
                             "] [/h] [" + file + ".hii]"});
    EXPECT_EQ("nvram", LocalAgent::read(file));
    EXPECT_EQ("list", LocalAgent::read(file + ".list"));
    EXPECT_EQ("hii", LocalAgent::read(file + ".hii"));
    EXPECT_EQ("Please wait for backing up BIOS configuration....\n", printed);

    cluster.write("config", "changed");
    expectSuccess(execute("restore bios config -m raw -f " + file),
                  "BIOS configuration file " + file + " is restored.");
    EXPECT_EQ(calls(), Calls{"SCELNX_64 [/i] [/l] [" + file + ".list] [/n] [" + file + "] [/q]"});
    EXPECT_EQ("changed", node.hardware("nvram"));
    EXPECT_EQ("Please wait for restoring BIOS configuration....\n", printed);
}

TEST_F(R3FirmwareTest, ScriptBackupAndRestoreMoveOneFile) {
    const std::string file = cluster.file("setup script");
    EXPECT_EQ(EXEC_SUCCESS,
              execute("backup bios config -m script -f \"" + file + "\"").getRunStatus());
    EXPECT_EQ(calls(), Calls{"SCELNX_64 [/o] [/s] [" + file + "] [/q]"});
    EXPECT_EQ(LocalAgent::read(file), node.hardware("setup"));
    cluster.write("setup script", "changed");
    expectSuccess(execute("restore bios config -m script -f \"" + file + "\""),
                  "BIOS configuration file " + file + " is restored.");
    EXPECT_EQ(calls(), Calls{"SCELNX_64 [/i] [/s] [" + file + "] [/q]"});
    EXPECT_EQ("changed", node.hardware("setup"));
}

TEST_F(R3FirmwareTest, ConfigurationToolThatFailsIsAFailure) {
    node.tell("SCELNX_64", "fail");
    const std::string file = cluster.write("config", "x");
    expectFailure(execute("backup bios config -m script -f " + file),
                  "Failed to get BIOS configuration....");
    EXPECT_EQ("x", LocalAgent::read(file)) << "the older copy must outlast a failure";
    expectFailure(execute("restore bios config -m script -f " + file),
                  "Failed to restore BIOS configuration.");
    expectFailure(execute("restore bios config -m raw -f " + file),
                  "BIOS configuration file does not exist");
    expectFailure(execute("backup bios config -m RAW -f " + file),
                  "command error, unknown option:RAW");
}
