#include <gtest/gtest.h>

#include "CResult.h"
#include "CShellCommandSet_BIOSFW.h"
#include "CommandChecklist.h"
#include "NodeSetFixture.h"

namespace {

ExpectedOption fileOption(const std::string& description) {
    return {"f", "file", true, true, description};
}

using CShellCommandSet_BIOSFWTest = NodeSetFixture<CShellCommandSet_BIOSFW>;

}  // namespace

TEST_F(CShellCommandSet_BIOSFWTest, HoldsEveryRowOfItsTable) {
    EXPECT_EQ("r3biosfw", set.getCommandSetName());
    EXPECT_EQ("Commands for BIOS FW.", set.getDescription());
    EXPECT_EQ(0U, set.getTimeOut());
    EXPECT_EQ(NO, set.getCommandSetConfirmType());
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

TEST_F(CShellCommandSet_BIOSFWTest, UnknownLineLeavesTheResultUntouched) {
    CResult result;
    result.setRunSummary("untouched");
    set.execute("flash bios", nullptr, result, 1000);
    set.execute("flash bios fw", nullptr, result, 1000);  // the compulsory file is missing
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ("untouched", result.getRunSummary());
}

TEST_F(CShellCommandSet_BIOSFWTest, BiosIdIsWhatTheToolLeft) {
    agent.answer("cat /var/tmp/get_bios_id_from_sys.txt", "R3ABC012\n");
    expectSuccess(execute("get bios id from system", 1234), "R3ABC012\n");
    EXPECT_EQ((std::vector<std::string>{"run: echo $KELNODE_PATH",
                                        "tool: romutil.enc in /opt/kelnode/: |-IdFromSystem 2>&1 > "
                                        "/var/tmp/get_bios_id_from_sys.txt",
                                        "run: cat /var/tmp/get_bios_id_from_sys.txt"}),
              agent.requests);
    EXPECT_EQ((std::vector<unsigned int>{1234, 1234, 1234}), agent.timeOutsMs);
    EXPECT_EQ("", printed);
}

TEST_F(CShellCommandSet_BIOSFWTest, BuiltDateIsWhatTheToolLeft) {
    agent.answer("cat /var/tmp/get_bios_builtdate.txt", "05/27/2013\n");
    expectSuccess(execute("get bios built date from system"), "05/27/2013\n");
    EXPECT_EQ((std::vector<std::string>{
                  "tool: romutil.enc in /opt/kelnode/: |-BuiltDateFromSystem 2>&1 > "
                  "/var/tmp/get_bios_builtdate.txt",
                  "run: cat /var/tmp/get_bios_builtdate.txt"}),
              requestsAfterOpening());
}

TEST_F(CShellCommandSet_BIOSFWTest, NodePathWithoutASlashGetsOne) {
    agent.answer("echo $KELNODE_PATH", "/srv/node\n");
    execute("get bios id from system");
    EXPECT_EQ(
        "tool: romutil.enc in /srv/node/: |-IdFromSystem 2>&1 > "
        "/var/tmp/get_bios_id_from_sys.txt",
        requestsAfterOpening().front());
    agent.requests.clear();
    agent.answer("echo $KELNODE_PATH", "\n");
    execute("get bios id from system");
    EXPECT_NE(requestsAfterOpening().front().find(" in /: |"), std::string::npos);
}

TEST_F(CShellCommandSet_BIOSFWTest, ToolThatCannotBeStartedIsAFailureAndNothingIsReadBack) {
    agent.toolFailures["romutil.enc"] = "the packaged tool romutil.enc is not on this node";
    agent.answer("cat /var/tmp/get_bios_id_from_sys.txt", "R3OLD\n");
    expectFailure(execute("get bios id from system"),
                  "the packaged tool romutil.enc is not on this node");
    EXPECT_EQ(1U, requestsAfterOpening().size());
}

TEST_F(CShellCommandSet_BIOSFWTest, ToolThatFailsWithoutAWordIsAFailure) {
    agent.answerTool("romutil.enc", 127, "sh: 1: romutil: not found\n");
    expectFailure(execute("get bios id from system"),
                  "romutil ended with exit code 127 and without an answer.\n"
                  "sh: 1: romutil: not found");
}

TEST_F(CShellCommandSet_BIOSFWTest, UnreachableNodeIsAFailureWithItsReason) {
    agent.connectFailure = "node 127.0.0.1:4422: connection refused";
    expectFailure(execute("get bios id from system"), "node 127.0.0.1:4422: connection refused");
}

namespace {

constexpr char kFlashLog[] = "/var/tmp/r3_flash_bios_log.log";
constexpr char kFlashIdCheck[] =
    "tail /var/tmp/r3_flash_bios_log.log | grep \"ID not found in file\"";
constexpr char kFlashCheck[] =
    "cd /opt/kelnode/;tail /var/tmp/r3_flash_bios_log.log | grep \"Writing finished\"";

std::string flashRun(const std::string& options, const std::string& image) {
    return "tool uninterruptibly: romflash.enc with romio.ko in /opt/kelnode/: "
           "insmod /opt/kelnode/tools/romio.ko;|-w" +
           options + " " + image + " 2>&1 > " + kFlashLog;
}

}  // namespace

TEST_F(CShellCommandSet_BIOSFWTest, FlashCopiesRunsAndReadsBack) {
    agent.answer(kFlashCheck, "Writing finished\n");
    expectSuccess(execute("flash bios fw -f " + file, 900000),
                  "BIOS firmware image file " + file + " has been successfully flashed.\n");
    EXPECT_EQ((std::vector<std::string>{"run: echo $KELNODE_PATH", "run: [savefile]" + file,
                                        "exists: " + file, flashRun("", file),
                                        std::string("run: ") + kFlashIdCheck,
                                        std::string("run: ") + kFlashCheck}),
              agent.requests);
    EXPECT_EQ(std::vector<unsigned int>(5, 900000), agent.timeOutsMs);
    EXPECT_EQ(
        "Please wait for flashing BIOS firmware....\n"
        "Don't power off the system or remove AC power! [node_0000]\n",
        printed);
}

TEST_F(CShellCommandSet_BIOSFWTest, PhraseCountsWhereverItStandsInWhatIsReadBack) {
    for (const char* log : {"Writing finished", "[ 100%] Writing finished, verifying: ok",
                            "erased\n\tWriting finished\nok\n", "xWriting finishedx"}) {
        agent.answer(kFlashCheck, log);
        EXPECT_EQ(EXEC_SUCCESS, execute("flash bios fw -f " + file).getRunStatus()) << log;
    }
    for (const char* log : {"", "Writing  finished", "writing finished", "Writing finish"}) {
        agent.answer(kFlashCheck, log);
        EXPECT_EQ(EXEC_FAILURE, execute("flash bios fw -f " + file).getRunStatus()) << log;
    }
}

TEST_F(CShellCommandSet_BIOSFWTest, BlockOptionsAreFoundAnywhereInTheLine) {
    agent.answer(kFlashCheck, "Writing finished\n");
    const std::string block = directory.file("new-bios.bin");
    std::ofstream(block) << "image";
    const std::vector<std::pair<std::string, std::string>> lines = {
        {"flash bios fw -nv -f " + file, flashRun(" -n ", file)},
        {"flash bios fw --nvblock -f " + file, flashRun(" -n ", file)},
        {"flash bios fw -f " + file + " -b", flashRun(" -b ", file)},
        {"flash bios fw -f " + file + " --bootblock", flashRun(" -b ", file)},
        {"flash bios fw -b -nv -f " + file, flashRun(" -n  -b ", file)},
        {"flash bios fw -f " + block, flashRun(" -b ", block)},
    };
    for (const auto& [line, expected] : lines) {
        agent.requests.clear();
        EXPECT_EQ(EXEC_SUCCESS, execute(line).getRunStatus()) << line;
        EXPECT_EQ(expected, requestsAfterOpening().at(2)) << line;
    }
}

TEST_F(CShellCommandSet_BIOSFWTest, FlashWithRebootKeepsItsSummary) {
    agent.answer(kFlashCheck, "Writing finished\n");
    agent.answer("reboot", "Failed to talk to init daemon.\n", 1);
    for (const char* option : {" -r", " --reboot"}) {
        agent.requests.clear();
        expectSuccess(execute("flash bios fw -f " + file + option, 900000),
                      "BIOS firmware image file " + file +
                          " has been successfully flashed. node_0000 is rebooting....");
        EXPECT_EQ("run: reboot", agent.requests.back());
        EXPECT_EQ(30000U, agent.timeOutsMs.back());
    }
}

TEST_F(CShellCommandSet_BIOSFWTest, RebootThatTakesTheConnectionAwayIsNoFailure) {
    agent.answer(kFlashCheck, "Writing finished\n");
    agent.lineFailures["reboot"] = "connection lost";
    expectSuccess(execute("flash bios fw -f " + file + " -r", 1000),
                  "BIOS firmware image file " + file +
                      " has been successfully flashed. node_0000 is rebooting....");
    EXPECT_EQ(1000U, agent.timeOutsMs.back());
}

TEST_F(CShellCommandSet_BIOSFWTest, ImageWithoutAnIdIsAFailure) {
    agent.answer(kFlashIdCheck, "ID not found in file\n");
    agent.answer(kFlashCheck, "Writing finished\n");
    expectFailure(execute("flash bios fw -r -f " + file), "ID of bios fw image not found");
    EXPECT_EQ(std::string("run: ") + kFlashIdCheck, agent.requests.back());
}

TEST_F(CShellCommandSet_BIOSFWTest, FlashWithoutThePhraseIsAFailureAndDoesNotReboot) {
    agent.answer(kFlashCheck, "", 1);
    agent.answerTool("romflash.enc", 3, "Segmentation fault\n");
    const CResult result = execute("flash bios fw -r -f " + file);
    expectFailure(result, "Failed to flash BIOS firmware image file " + file + ".");
    EXPECT_EQ(3, result.getExitCode());
    EXPECT_EQ("Segmentation fault\n", result.getExitOutput());
    EXPECT_EQ(std::string("run: ") + kFlashCheck, agent.requests.back());
}

TEST_F(CShellCommandSet_BIOSFWTest, PhraseOfAnEarlierRunNeverCounts) {
    agent.answer(kFlashCheck, "Writing finished\n");
    agent.silentTools = {"romflash.enc"};
    agent.answerTool("romflash.enc", 2, "sh: 1: cannot create the log\n");
    expectFailure(
        execute("flash bios fw -f " + file),
        std::string("romflash left no output in ") + kFlashLog + ".\nsh: 1: cannot create the log");
    EXPECT_EQ(requestsAfterOpening().back(), flashRun("", file));
}

TEST_F(CShellCommandSet_BIOSFWTest, FlashThatOutlivesItsTimeOutGoesOnAndSaysSo) {
    agent.answer(kFlashCheck, "Writing finished\n");
    CResult late;
    late.setRunStatus(EXEC_TIMED_OUT);
    late.setRunSummary("Writing...\n");
    agent.toolAnswers["romflash.enc"] = late;
    const CResult result = execute("flash bios fw -r -f " + file, 900000);
    EXPECT_EQ(EXEC_TIMED_OUT, result.getRunStatus());
    EXPECT_EQ(
        "romflash did not end within its time-out of 900000 ms. It is not interrupted and "
        "goes on at the node; its log is /var/tmp/r3_flash_bios_log.log there.\nWriting...",
        result.getRunSummary());
    EXPECT_EQ(requestsAfterOpening().back(), flashRun("", file));
}

TEST_F(CShellCommandSet_BIOSFWTest, NodeLostDuringTheFlashIsAFailureWithTheReason) {
    agent.toolFailures["romflash.enc"] = "connection lost; the job goes on at the node";
    expectFailure(execute("flash bios fw -f " + file),
                  "connection lost; the job goes on at the node");
}

TEST_F(CShellCommandSet_BIOSFWTest, NodeLostBeforeTheReadBackIsAFailureWithTheReason) {
    agent.lineFailures[kFlashCheck] = "connection lost";
    expectFailure(execute("flash bios fw -f " + file), "connection lost");
}

TEST_F(CShellCommandSet_BIOSFWTest, ImageMissingOnTheMasterIsNamed) {
    expectFailure(execute("flash bios fw -f /no/such/image"),
                  "BIOS firmware image file \"/no/such/image\" does not exist!");
    EXPECT_TRUE(requestsAfterOpening().empty());
    EXPECT_EQ("", printed);
}

TEST_F(CShellCommandSet_BIOSFWTest, ImageMissingOnTheNodeIsNamed) {
    agent.missingFiles = {file};
    expectFailure(execute("flash bios fw -f " + file),
                  "BIOS firmware image file \"" + file + "\" does not exist!");
    EXPECT_EQ("exists: " + file, requestsAfterOpening().back());
}

// An image of that name from an earlier flash may still lie on the node.
TEST_F(CShellCommandSet_BIOSFWTest, FailedCopyFlashesNothing) {
    agent.answer("[savefile]" + file, "no space left on the node", 1);
    expectFailure(execute("flash bios fw -f " + file), "no space left on the node");
    EXPECT_EQ("run: [savefile]" + file, requestsAfterOpening().back());
    agent.lineFailures["[savefile]" + file] = "connection lost";
    expectFailure(execute("flash bios fw -f " + file), "connection lost");
}

TEST_F(CShellCommandSet_BIOSFWTest, OddNamesAreQuotedWhereTheyMustBe) {
    agent.answer(kFlashCheck, "Writing finished\n");
    const std::string odd = directory.file("my image's.bin");
    std::ofstream(odd) << "image";
    expectSuccess(execute("flash bios fw -f \"" + odd + "\""),
                  "BIOS firmware image file " + odd + " has been successfully flashed.\n");
    EXPECT_EQ((std::vector<std::string>{
                  "run: [savefile]" + odd, "exists: " + odd,
                  flashRun("", "'" + directory.file("my image'\\''s.bin") + "'"),
                  std::string("run: ") + kFlashIdCheck, std::string("run: ") + kFlashCheck}),
              requestsAfterOpening());
}

TEST_F(CShellCommandSet_BIOSFWTest, SaveReadsTheChipAndFetchesTheImage) {
    agent.answer("tail /var/tmp/r3_Save_bios_fw.log | grep \"Reading finished\"",
                 "Reading finished\n");
    expectSuccess(execute("save bios fw -f " + file, 300000),
                  "BIOS firmware image file " + file + " has been successfully exported.\n");
    EXPECT_EQ((std::vector<std::string>{
                  "run: mkdir -p " + directory.path(),
                  "tool: romflash.enc with romio.ko in /opt/kelnode/: "
                  "insmod /opt/kelnode/tools/romio.ko;|-r " +
                      file + " 2>&1 > /var/tmp/r3_Save_bios_fw.log",
                  "run: tail /var/tmp/r3_Save_bios_fw.log | grep \"Reading finished\"",
                  "run: [getfile]" + file}),
              requestsAfterOpening());
    EXPECT_EQ(
        "Please wait for saving BIOS firmware....\n"
        "Don't power off the system or remove AC power!\n",
        printed);
}

TEST_F(CShellCommandSet_BIOSFWTest, SaveThatCannotBeFetchedIsAFailure) {
    agent.answer("tail /var/tmp/r3_Save_bios_fw.log | grep \"Reading finished\"",
                 "Reading finished\n");
    agent.answer("[getfile]" + file, "damaged", 1);
    const CResult result = execute("save bios fw -f " + file);
    expectFailure(result, "Failed to get BIOS firmware....");
    EXPECT_NE(result.getExitOutput().find("damaged"), std::string::npos);
}

TEST_F(CShellCommandSet_BIOSFWTest, SaveWithoutThePhraseIsAFailure) {
    expectFailure(execute("save bios fw -f " + file),
                  "Failed to saving BIOS firmware image file " + file);
}

TEST_F(CShellCommandSet_BIOSFWTest, FileThatCouldNotBeFetchedIsRefusedBeforeTheRun) {
    expectFailure(execute("save bios fw -f image.bin"),
                  "File \"image.bin\": the path must be absolute.");
    agent.answer("mkdir -p " + directory.path(), "mkdir: read-only file system\n", 1);
    expectFailure(execute("save bios fw -f " + file), "The directory of \"" + file +
                                                          "\" cannot be made at the node.\n"
                                                          "mkdir: read-only file system");
    EXPECT_EQ("run: mkdir -p " + directory.path(), requestsAfterOpening().back());
}

namespace {

constexpr char kExportCheck[] =
    "cat /var/tmp/export_bios_conf.txt | grep \"Script file exported successfully\"";
constexpr char kImportCheck[] =
    "cat /var/tmp/import_bios_conf.txt | grep \"Script file imported successfully\"";
constexpr char kExported[] = "Script file exported successfully.\n";
constexpr char kImported[] = "Script file imported successfully.\n";

}  // namespace

TEST_F(CShellCommandSet_BIOSFWTest, RawBackupFetchesThreeFiles) {
    agent.answer(kExportCheck, kExported);
    for (const char* suffix : {"", ".list", ".hii"}) {
        agent.answer("[getfile]" + file + suffix, "fetched");
    }
    const CResult result = execute("backup bios config -f " + file + " -m raw");
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ((std::vector<std::string>{
                  "run: mkdir -p " + directory.path(),
                  "tool: SCELNX_64.enc in /opt/kelnode/: |/o /c /l " + file + ".list /n " + file +
                      " /h " + file + ".hii 2>&1 | tee /var/tmp/export_bios_conf.txt",
                  std::string("run: ") + kExportCheck, "run: [getfile]" + file,
                  "run: [getfile]" + file + ".list", "run: [getfile]" + file + ".hii"}),
              requestsAfterOpening());
    EXPECT_EQ("Please wait for backing up BIOS configuration....\n", printed);
}

TEST_F(CShellCommandSet_BIOSFWTest, ScriptBackupFetchesOneFile) {
    agent.answer(kExportCheck, kExported);
    EXPECT_EQ(EXEC_SUCCESS,
              execute("backup bios config --mode script --file " + file).getRunStatus());
    EXPECT_EQ(
        (std::vector<std::string>{"run: mkdir -p " + directory.path(),
                                  "tool: SCELNX_64.enc in /opt/kelnode/: |/o /s " + file +
                                      " /q 2>&1 | tee /var/tmp/export_bios_conf.txt",
                                  std::string("run: ") + kExportCheck, "run: [getfile]" + file}),
        requestsAfterOpening());
}

TEST_F(CShellCommandSet_BIOSFWTest, BackupWithoutThePhraseOrAFileIsAFailure) {
    expectFailure(execute("backup bios config -m raw -f " + file),
                  "Failed to get BIOS configuration....");
    agent.answer(kExportCheck, kExported);
    agent.answer("[getfile]" + file + ".hii", "no such file", 1);
    expectFailure(execute("backup bios config -m raw -f " + file),
                  "Failed to get BIOS configuration....");
}

TEST_F(CShellCommandSet_BIOSFWTest, ModesAreComparedExactly) {
    for (const std::string mode : {"RAW", "Raw", "SCRIPT", "both", "raw script"}) {
        const std::string message = "command error, unknown option:" + mode;
        expectFailure(execute("restore bios config -f " + file + " -m \"" + mode + "\""),
                      "command error, unknown option:\"" + mode + "\"");
        if (mode.find(' ') == std::string::npos) {
            expectFailure(execute("backup bios config -f " + file + " -m " + mode), message);
        }
    }
    EXPECT_TRUE(requestsAfterOpening().empty());
    EXPECT_EQ("", printed);
}

TEST_F(CShellCommandSet_BIOSFWTest, RawRestoreCopiesThreeFilesFirst) {
    agent.answer(kImportCheck, kImported);
    for (const char* suffix : {".list", ".hii"}) {
        std::ofstream(file + suffix) << "x";
    }
    expectSuccess(execute("restore bios config -f " + file + " -m raw"),
                  "BIOS configuration file " + file + " is restored.");
    EXPECT_EQ((std::vector<std::string>{
                  "run: [savefile]" + file, "exists: " + file, "run: [savefile]" + file + ".list",
                  "exists: " + file + ".list", "run: [savefile]" + file + ".hii",
                  "exists: " + file + ".hii",
                  "tool uninterruptibly: SCELNX_64.enc in /opt/kelnode/: |/i /l " + file +
                      ".list /n " + file + " /q 2>&1 | tee /var/tmp/import_bios_conf.txt",
                  std::string("run: ") + kImportCheck}),
              requestsAfterOpening());
    EXPECT_EQ("Please wait for restoring BIOS configuration....\n", printed);
}

TEST_F(CShellCommandSet_BIOSFWTest, ScriptRestoreCopiesOneFile) {
    agent.answer(kImportCheck, kImported);
    expectSuccess(execute("restore bios config -f " + file + " -m script"),
                  "BIOS configuration file " + file + " is restored.");
    EXPECT_EQ("tool uninterruptibly: SCELNX_64.enc in /opt/kelnode/: |/i /s " + file +
                  " /q 2>&1 | tee /var/tmp/import_bios_conf.txt",
              requestsAfterOpening().at(2));
}

TEST_F(CShellCommandSet_BIOSFWTest, RestoreNeedsEveryFile) {
    expectFailure(execute("restore bios config -f " + file + " -m raw"),
                  "BIOS configuration file does not exist");
    EXPECT_EQ("exists: " + file, requestsAfterOpening().back());
    agent.missingFiles = {file};
    expectFailure(execute("restore bios config -f " + file + " -m script"),
                  "BIOS configuration file does not exist");
}

TEST_F(CShellCommandSet_BIOSFWTest, RestoreWithoutThePhraseIsAFailure) {
    expectFailure(execute("restore bios config -f " + file + " -m script"),
                  "Failed to restore BIOS configuration.");
}
