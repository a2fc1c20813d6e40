#include <gtest/gtest.h>

#include "CResult.h"
#include "CShellCommandSet_FlashBIOS.h"
#include "CommandChecklist.h"
#include "NodeSetFixture.h"

namespace {

std::vector<ExpectedOption> fileOption(const std::string& description) {
    return {{"f", "file", true, true, description}};
}

ExpectedCommand row(const std::string& name, const std::string& description,
                    const std::vector<ExpectedOption>& options, unsigned int timeOutMs,
                    const std::string& confirmMessage, const std::string& example) {
    return {name,     description, options.empty() ? BUILTIN : BUILTIN_OPT, SLAVE,
            options,  timeOutMs,   confirmMessage.empty() ? NO : ONCE,      confirmMessage,
            {example}};
}

using CShellCommandSet_FlashBIOSTest = NodeSetFixture<CShellCommandSet_FlashBIOS>;

}  // namespace

TEST_F(CShellCommandSet_FlashBIOSTest, HoldsEveryRowOfItsTable) {
    EXPECT_EQ("biosfw", set.getCommandSetName());
    EXPECT_EQ("Commands for BIOS firmware.", set.getDescription());
    EXPECT_EQ(0U, set.getTimeOut());
    EXPECT_EQ(NO, set.getCommandSetConfirmType());
    expectCommands(
        set,
        {
            row("check bios memory chip", "Check and show the memory chip used for BIOS.", {},
                30000, "", "check bios memory chip -n node_0000"),
            row("clear cmos checksum", "Clear the CMOS checksum.", {}, 30000,
                "Do you really want to clear the CMOS checksum?",
                "clear cmos checksum -n node_0000"),
            row("flash cmos memory", "Read the content of CMOS memory from a file and flash it",
                fileOption("The file for flashing the CMOS."), 30000,
                "Do you really want to flash the CMOS?", "flash cmos memory -f file -n node_0000"),
            row("check bios layout", "Display the layout of the BIOS ROM file.",
                fileOption("The BIOS ROM file to check."), 120000, "",
                "check bios layout -f file -n node_0000"),
            row("save cmos memory", "Save the content of the current CMOS memory to file.",
                fileOption("The file to save the content of the current CMOS memory."), 30000, "",
                "save cmos memory -f file -n node_0000"),
            row("validate bios id",
                "Validate the BIOS ID in the BIOS ROM file to see if it is valid to flash on "
                "Orvane mother board.",
                fileOption("The BIOS ROM file to validate."), 120000, "",
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
                fileOption("The file to save the content of the current BIOS."), 300000, "",
                "save bios fw -f file -n node_0000"),
            row("check bios info", "Check BIOS information.", {}, 30000, "",
                "check bios info -n node_0000"),
        });
}

TEST_F(CShellCommandSet_FlashBIOSTest, UnknownLineLeavesTheResultUntouched) {
    CResult result;
    result.setRunSummary("untouched");
    set.execute("clear cmos", nullptr, result, 1000);
    set.execute("flash bios fw -f", nullptr, result, 1000);
    set.execute("dump cmos memory -x", nullptr, result, 1000);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ("untouched", result.getRunSummary());
}

TEST_F(CShellCommandSet_FlashBIOSTest, OnlyOnePlatformIsServed) {
    for (const char* platform : {"unknown\n", "i386\n", "", "x86_64 x\n"}) {
        agent.requests.clear();
        agent.answer("uname -i", platform);
        for (const char* line : {"check bios info", "clear cmos checksum", "dump cmos memory",
                                 "flash bios fw -f /no/such", "save bios fw -f /x"}) {
            expectFailure(execute(line), "Unknown hardware-platform of slave node.");
        }
        EXPECT_TRUE(requestsAfterOpening().empty()) << platform;
    }
}

TEST_F(CShellCommandSet_FlashBIOSTest, OpeningFindsTheNodePathAndThePlatform) {
    execute("dump cmos memory", 1234);
    EXPECT_EQ((std::vector<std::string>{
                  "run: echo $KELNODE_PATH", "run: uname -i",
                  "tool: romtool.x86_64.enc in /opt/kelnode/: | -D > /var/tmp/dump_cmos_memory.log",
                  "run: cat /var/tmp/dump_cmos_memory.log"}),
              agent.requests);
    EXPECT_EQ(1234U, agent.timeOutsMs.front());
    EXPECT_EQ(1234U, agent.timeOutsMs.back());
    agent.answer("echo $KELNODE_PATH", "/srv/kel\n");
    execute("dump cmos memory");
    EXPECT_EQ("tool: romtool.x86_64.enc in /srv/kel/: | -D > /var/tmp/dump_cmos_memory.log",
              requestsAfterOpening()[2]);
}

TEST_F(CShellCommandSet_FlashBIOSTest, UnreachableNodeIsAFailureWithItsReason) {
    agent.connectFailure = "node 127.0.0.1:4422: connection refused";
    expectFailure(execute("dump cmos memory"), "node 127.0.0.1:4422: connection refused");
}

TEST_F(CShellCommandSet_FlashBIOSTest, MemoryChipIsWhatTheProbeFound) {
    agent.answer("cat /var/tmp/check_bios_mem_chip.txt", "Found chip \"Winbond W25X64\".\n");
    expectSuccess(execute("check bios memory chip"), "Found chip \"Winbond W25X64\".\n");
    EXPECT_EQ(
        "tool: flashrom.x86_64.enc in /opt/kelnode/: || grep -i \"found chip\" > "
        "/var/tmp/check_bios_mem_chip.txt",
        requestsAfterOpening().front());
}

TEST_F(CShellCommandSet_FlashBIOSTest, MemoryChipThatIsNotFoundIsAFailure) {
    agent.answerTool("flashrom.x86_64.enc", 1);
    expectFailure(execute("check bios memory chip"),
                  "flashrom.x86_64 ended with exit code 1 and without an answer.");
}

TEST_F(CShellCommandSet_FlashBIOSTest, ChecksumIsClearedByTheExitCode) {
    const std::string readBack = "cat /var/tmp/clear_cmos_checksum.log";
    agent.answer(readBack, "0\n");
    expectSuccess(execute("clear cmos checksum"), "Successfully clear the CMOS checksum.");
    EXPECT_EQ((std::vector<std::string>{
                  "tool uninterruptibly: romtool.x86_64.enc in /opt/kelnode/: | -C;echo $? > "
                  "/var/tmp/clear_cmos_checksum.log",
                  "run: " + readBack}),
              requestsAfterOpening());
    agent.answer(readBack, "255\n");
    expectFailure(execute("clear cmos checksum"), "Failed to clear the CMOS checksum.");
    agent.answer(readBack, "17\n");
    expectFailure(execute("clear cmos checksum"), "17\n");
    agent.answer(readBack, "2550\n");
    expectFailure(execute("clear cmos checksum"), "2550\n");
    agent.answer(readBack, "00\n");
    expectFailure(execute("clear cmos checksum"), "00\n");
}

TEST_F(CShellCommandSet_FlashBIOSTest, LogOfAnEarlierRunNeverCounts) {
    agent.answer("cat /var/tmp/clear_cmos_checksum.log", "0\n");
    agent.toolFailures["romtool.x86_64.enc"] = "another firmware job is running";
    expectFailure(execute("clear cmos checksum"), "another firmware job is running");
    agent.toolFailures.clear();
    agent.silentTools = {"romtool.x86_64.enc"};
    expectFailure(execute("clear cmos checksum"),
                  "romtool.x86_64 left no output in /var/tmp/clear_cmos_checksum.log.");
}

TEST_F(CShellCommandSet_FlashBIOSTest, LogThatCannotBeReadIsAFailure) {
    agent.answer("cat /var/tmp/dump_cmos_memory.log", "cat: Input/output error\n", 1);
    expectFailure(execute("dump cmos memory"),
                  "The output of the run cannot be read back.\ncat: Input/output error");
}

TEST_F(CShellCommandSet_FlashBIOSTest, DumpIsWhatTheToolLeft) {
    agent.answer("cat /var/tmp/dump_cmos_memory.log", "00: 01 02\n");
    expectSuccess(execute("dump cmos memory"), "00: 01 02\n");
}

TEST_F(CShellCommandSet_FlashBIOSTest, IdIsValidatedByTheExitCode) {
    const std::string readBack = "cat /var/tmp/validate_bios_id.txt";
    agent.answer(readBack, "0\n");
    expectSuccess(execute("validate bios id -f " + file), "The BIOS ID is valid.");
    EXPECT_EQ((std::vector<std::string>{"run: [savefile]" + file, "exists: " + file,
                                        "tool: chipprobe.x86_64.enc in /opt/kelnode/: | -i -f " +
                                            file + ";echo $? 2>&1 > /var/tmp/validate_bios_id.txt",
                                        "run: " + readBack}),
              requestsAfterOpening());
    agent.answer(readBack, "255\n");
    expectFailure(execute("validate bios id -f " + file), "The BIOS ID is invalid!");
    agent.answer(readBack, "127\n");
    expectFailure(execute("validate bios id -f " + file), "127\n");
}

TEST_F(CShellCommandSet_FlashBIOSTest, CmosIsSavedIntoTheNamedFileAndFetched) {
    agent.answer("[getfile]" + file, "fetched");
    expectSuccess(execute("save cmos memory -f " + file),
                  "File \"" + file +
                      "\" already exists in local site!\nfetched\n"
                      "Over write the original file.\n");
    EXPECT_EQ((std::vector<std::string>{"run: mkdir -p " + directory.path(),
                                        "tool: romtool.x86_64.enc in /opt/kelnode/: |-D > " + file,
                                        "run: [getfile]" + file}),
              requestsAfterOpening());
}

TEST_F(CShellCommandSet_FlashBIOSTest, FailedSaveOfTheCmosFetchesNothing) {
    agent.answerTool("romtool.x86_64.enc", 255, "romtool: no access\n");
    expectFailure(execute("save cmos memory -f " + file),
                  "Failed to save the content of the current CMOS memory to " + file +
                      ".\nromtool: no access\n");
    EXPECT_EQ(2U, requestsAfterOpening().size());
}

TEST_F(CShellCommandSet_FlashBIOSTest, CmosIsFlashedByTheExitCode) {
    const std::string readBack = "cat /var/tmp/flash_cmos_mem.txt";
    agent.answer(readBack, "0\n");
    expectSuccess(execute("flash cmos memory -f " + file), "Flash CMOS successfully.");
    EXPECT_EQ((std::vector<std::string>{
                  "run: [savefile]" + file, "exists: " + file,
                  "tool uninterruptibly: romtool.x86_64.enc in /opt/kelnode/: | -F " + file +
                      ";echo $? > /var/tmp/flash_cmos_mem.txt",
                  "run: " + readBack}),
              requestsAfterOpening());
    for (const char* answer : {"255\n", "1\n", ""}) {
        agent.answer(readBack, answer);
        expectFailure(execute("flash cmos memory -f " + file), "Failed to flash CMOS.");
    }
}

TEST_F(CShellCommandSet_FlashBIOSTest, LayoutIsWhatTheToolFound) {
    const std::string readBack = "cat /var/tmp/layoutcfg.txt";
    agent.answer(readBack, "00000000:0001ffff area1\n");
    expectSuccess(execute("check bios layout -f " + file), "00000000:0001ffff area1\n");
    EXPECT_EQ((std::vector<std::string>{"run: [savefile]" + file, "exists: " + file,
                                        "tool: romlayout.x86_64.enc in /opt/kelnode/: |" + file +
                                            " 2>&1 > /var/tmp/layoutcfg.txt",
                                        "run: " + readBack}),
              requestsAfterOpening());
    agent.answer(readBack, "");
    expectSuccess(execute("check bios layout -f " + file), "No detected reserved area!!");
    agent.answerTool("romlayout.x86_64.enc", 139, "Segmentation fault\n");
    expectFailure(execute("check bios layout -f " + file), "Segmentation fault\n");
}

TEST_F(CShellCommandSet_FlashBIOSTest, MissingFileHasTheMessageOfItsCommand) {
    const std::vector<std::pair<std::string, std::string>> messages = {
        {"validate bios id", "BIOS ROM file"},
        {"flash bios fw", "BIOS ROM file"},
        {"flash cmos memory", "CMOS file"},
        {"check bios layout", "BIOS FW file"},
    };
    for (const auto& [command, what] : messages) {
        expectFailure(execute(command + " -f /no/such"), what + ", /no/such, does not exist!");
        expectFailure(execute(command + " -f /"), what + ", /, does not exist!");
        agent.missingFiles = {file};
        expectFailure(execute(command + " -f " + file), what + ", " + file + ", does not exist!");
        EXPECT_EQ("exists: " + file, agent.requests.back());
    }
    EXPECT_EQ("", printed);
}

TEST_F(CShellCommandSet_FlashBIOSTest, FailedCopyRunsNothing) {
    agent.answer("[savefile]" + file, "no space left on the node", 1);
    for (const char* command :
         {"validate bios id", "flash bios fw", "flash cmos memory", "check bios layout"}) {
        expectFailure(execute(std::string(command) + " -f " + file), "no space left on the node");
        EXPECT_EQ("run: [savefile]" + file, agent.requests.back());
    }
}

namespace {

constexpr char kVerified[] = "Reading flash... done.\nVerifying flash... VERIFIED.\n";
constexpr char kWriteTools[] = "romwrite.sh.enc+chipprobe.x86_64.enc+flashrom.x86_64.enc";
constexpr char kFlashReadBack[] = "cat /var/tmp/flashing_bios.txt";
constexpr char kIdReadBack[] = "cat /var/tmp/r2_flash_bios.txt";

std::string flashRun(const std::string& options, const std::string& image) {
    return std::string("tool uninterruptibly: ") + kWriteTools + " in /opt/kelnode/: | " + options +
           image + " 2>&1 > /var/tmp/flashing_bios.txt";
}

}  // namespace

TEST_F(CShellCommandSet_FlashBIOSTest, SaveReadsTheChipAndFetchesTheImage) {
    agent.answer("cat /var/tmp/save_current_bios.txt", kVerified);
    expectSuccess(execute("save bios fw -f " + file),
                  "Successfully save the content of current BIOS into " + file + ".");
    EXPECT_EQ((std::vector<std::string>{
                  "run: mkdir -p " + directory.path(),
                  std::string("tool: ") + kWriteTools + " in /opt/kelnode/: | -y -B " + file +
                      " 2>&1 > /var/tmp/save_current_bios.txt"
                      ";rm -f /opt/kelnode/tools/flashrom.x86_64",
                  "run: cat /var/tmp/save_current_bios.txt", "run: [getfile]" + file}),
              requestsAfterOpening());
    EXPECT_EQ("", printed);
}

TEST_F(CShellCommandSet_FlashBIOSTest, SaveWithoutThePhraseOrTheFileIsAFailure) {
    agent.answer("cat /var/tmp/save_current_bios.txt", "Verifying flash... FAILED\n");
    expectFailure(execute("save bios fw -f " + file),
                  "Failed to save current BIOS into " + file + ".");
    agent.answer("cat /var/tmp/save_current_bios.txt", kVerified);
    const std::string fresh = directory.file("fresh.bin");
    agent.answer("[getfile]" + fresh, "damaged", 1);
    expectFailure(execute("save bios fw -f " + fresh),
                  "Failed to save current BIOS into " + fresh + ".\ndamaged\n");
}

TEST_F(CShellCommandSet_FlashBIOSTest, FlashChecksTheIdFirst) {
    agent.answer(kIdReadBack, "0\n");
    agent.answer(kFlashReadBack, kVerified);
    expectSuccess(execute("flash bios fw -f " + file),
                  "BIOS ROM file " + file +
                      " has been successfully flashed.\n"
                      "You must reboot the system for the changes to take effect!");
    EXPECT_EQ(
        (std::vector<std::string>{"run: [savefile]" + file, "exists: " + file,
                                  "tool: chipprobe.x86_64.enc in /opt/kelnode/: | -i -f " + file +
                                      ";echo $? 2>&1 > /var/tmp/r2_flash_bios.txt",
                                  std::string("run: ") + kIdReadBack, flashRun("-y -F ", file),
                                  std::string("run: ") + kFlashReadBack}),
        requestsAfterOpening());
    EXPECT_EQ("Please wait for flashing BIOS....[node_0000]\n", printed);
}

TEST_F(CShellCommandSet_FlashBIOSTest, WrongIdFlashesNothing) {
    agent.answer(kIdReadBack, "255\n");
    expectFailure(execute("flash bios fw -f " + file),
                  "The BIOS ID is invalid! Please use correct BIOS ROM file.");
    for (const char* answer : {"1\n", "", "127\n"}) {
        agent.answer(kIdReadBack, answer);
        expectFailure(execute("flash bios fw -f " + file),
                      "Failed to flash BIOS ROM file " + file + ".");
    }
    EXPECT_EQ(std::string("run: ") + kIdReadBack, agent.requests.back());
    EXPECT_EQ("", printed);
}

TEST_F(CShellCommandSet_FlashBIOSTest, IdIsNotCheckedOnlyWhereTheLineHoldsTheShortOption) {
    agent.answer(kIdReadBack, "0\n");
    agent.answer(kFlashReadBack, kVerified);
    for (const std::string& line :
         {"flash bios fw -x -f " + file, "flash bios fw -f " + file + " -x"}) {
        agent.requests.clear();
        EXPECT_EQ(EXEC_SUCCESS, execute(line).getRunStatus());
        EXPECT_EQ(requestsAfterOpening().at(2), flashRun("-y -x -F ", file)) << line;
    }
    agent.requests.clear();
    EXPECT_EQ(EXEC_SUCCESS, execute("flash bios fw --skipid -f " + file).getRunStatus());
    EXPECT_EQ(requestsAfterOpening().at(4), flashRun("-y -F ", file));
}

TEST_F(CShellCommandSet_FlashBIOSTest, FlashThatIsNotVerifiedIsAFailureAndDoesNotReboot) {
    agent.answer(kIdReadBack, "0\n");
    agent.answer(kFlashReadBack, "Verifying flash... FAILED at 0x0!\n");
    expectFailure(execute("flash bios fw -r -f " + file),
                  "Failed to flash BIOS ROM file " + file + ".");
    EXPECT_EQ(std::string("run: ") + kFlashReadBack, agent.requests.back());
}

TEST_F(CShellCommandSet_FlashBIOSTest, AnyDashRAsksForTheReboot) {
    agent.answer(kIdReadBack, "0\n");
    agent.answer(kFlashReadBack, kVerified);
    const std::string named = directory.file("my-rom.bin");
    std::ofstream(named) << "image";
    for (const auto& [line, image] : std::vector<std::pair<std::string, std::string>>{
             {"flash bios fw -f " + file + " -r", file},
             {"flash bios fw --reboot -f " + file, file},
             {"flash bios fw -f " + named, named}}) {
        agent.requests.clear();
        expectSuccess(execute(line), "BIOS ROM file " + image +
                                         " has been successfully flashed.\n"
                                         "The system is rebooting");
        EXPECT_EQ("run: reboot", agent.requests.back()) << line;
    }
}

TEST_F(CShellCommandSet_FlashBIOSTest, NameWithADashXAndABlankSkipsTheIdCheck) {
    agent.answer(kFlashReadBack, kVerified);
    const std::string named = directory.file("my-x image");
    std::ofstream(named) << "image";
    EXPECT_EQ(EXEC_SUCCESS, execute("flash bios fw -f \"" + named + "\"").getRunStatus());
    EXPECT_EQ(requestsAfterOpening().at(2), flashRun("-y -x -F ", "'" + named + "'"));
}

TEST_F(CShellCommandSet_FlashBIOSTest, FlashThatOutlivesItsTimeOutGoesOnAndSaysSo) {
    agent.answer(kIdReadBack, "0\n");
    agent.answer(kFlashReadBack, kVerified);
    CResult late;
    late.setRunStatus(EXEC_TIMED_OUT);
    agent.toolAnswers["romwrite.sh.enc"] = late;
    const CResult result = execute("flash bios fw -f " + file, 700);
    EXPECT_EQ(EXEC_TIMED_OUT, result.getRunStatus());
    EXPECT_EQ(
        "romwrite.sh did not end within its time-out of 700 ms. It is not interrupted and "
        "goes on at the node; its log is /var/tmp/flashing_bios.txt there.",
        result.getRunSummary());
}

TEST_F(CShellCommandSet_FlashBIOSTest, ReadingRunThatOutlivesItsTimeOutWasEnded) {
    CResult late;
    late.setRunStatus(EXEC_TIMED_OUT);
    agent.toolAnswers["romtool.x86_64.enc"] = late;
    const CResult result = execute("dump cmos memory", 700);
    EXPECT_EQ(EXEC_TIMED_OUT, result.getRunStatus());
    EXPECT_EQ("romtool.x86_64 did not end within its time-out of 700 ms. It was ended.",
              result.getRunSummary());
}

TEST_F(CShellCommandSet_FlashBIOSTest, BiosInformationIsWhatTheNodeAnswers) {
    const std::string line =
        "dmidecode -t bios | grep -i -e "
        "\"Vendor:\\|Version:\\|Release Date:\\|ROM Size:\\|BIOS Revision:\"";
    agent.answer(line, "\tVendor: AMI\n");
    expectSuccess(execute("check bios info"), "\tVendor: AMI\n");
    EXPECT_EQ(std::vector<std::string>{"run: " + line}, requestsAfterOpening());
    agent.answer(line, "");
    expectSuccess(execute("check bios info"), "");
    agent.answer(line, "sh: 1: dmidecode: not found\n", 1);
    expectFailure(execute("check bios info"), "sh: 1: dmidecode: not found\n");
}
