// The two BIOS sets: what reaches the node and what the user reads.
#include "CShellCommandSet_BIOSFW.h"
#include "CShellCommandSet_FlashBIOS.h"
#include "NodeSetContract.h"

namespace {

// --- the newer boards

class R3Contract : public NodeRunFixture<CShellCommandSet_BIOSFW> {};

TEST_P(R3Contract, AsksAndTells) {
    check();
}

const std::string romflash = "romflash.enc with romio.ko in $N: insmod $Tromio.ko;|";
const std::string r3Log = " 2>&1 > /var/tmp/r3_flash_bios_log.log";
const std::string idQuestion =
    "tail /var/tmp/r3_flash_bios_log.log | grep \"ID not found in file\"";
const std::string doneQuestion =
    "cd $N;tail /var/tmp/r3_flash_bios_log.log | grep \"Writing finished\"";
const std::string r3Wait =
    "Please wait for flashing BIOS firmware....\n"
    "Don't power off the system or remove AC power! [node_0000]\n";

Words r3Flash(const std::string& arguments) {
    return {"run: [savefile]$F", "exists: $F", "tool uninterruptibly: " + romflash + arguments,
            "run: " + idQuestion, "run: " + doneQuestion};
}

Words with(Words words, const std::string& further) {
    words.push_back(further);
    return words;
}

const std::string exportQuestion =
    "cat /var/tmp/export_bios_conf.txt | grep \"Script file exported successfully\"";
const std::string importQuestion =
    "cat /var/tmp/import_bios_conf.txt | grep \"Script file imported successfully\"";

INSTANTIATE_TEST_SUITE_P(
    Runs, R3Contract,
    ::testing::Values(
        NodeRun{"get bios id from system",
                {{"cat /var/tmp/get_bios_id_from_sys.txt", "ORV-R3-0042"}},
                {"tool: romutil.enc in $N: |-IdFromSystem 2>&1 > /var/tmp/get_bios_id_from_sys.txt",
                 "run: cat /var/tmp/get_bios_id_from_sys.txt"},
                "ORV-R3-0042"},
        NodeRun{"get bios built date from system",
                {{"cat /var/tmp/get_bios_builtdate.txt", "05/11/2012"}},
                {"tool: romutil.enc in $N: |-BuiltDateFromSystem 2>&1 > "
                 "/var/tmp/get_bios_builtdate.txt",
                 "run: cat /var/tmp/get_bios_builtdate.txt"},
                "05/11/2012"},
        NodeRun{"flash bios fw -f $F",
                {{doneQuestion, "...Writing finished...\n"}},
                r3Flash("-w $F" + r3Log),
                "BIOS firmware image file $F has been successfully flashed.\n",
                0,
                r3Wait},
        NodeRun{"flash bios fw -b --nvblock --file $F",
                {{doneQuestion, "Writing finished\n"}},
                r3Flash("-w -n  -b  $F" + r3Log),
                "BIOS firmware image file $F has been successfully flashed.\n",
                0,
                r3Wait},
        NodeRun{"flash bios fw -f $F -nv -r",
                {{doneQuestion, "Writing finished\n"}},
                with(r3Flash("-w -n  $F" + r3Log), "run: reboot"),
                "BIOS firmware image file $F has been successfully flashed. node_0000 is "
                "rebooting....",
                0,
                r3Wait},
        NodeRun{"flash bios fw --bootblock -f $F --reboot",
                {},
                r3Flash("-w -b  $F" + r3Log),
                "Failed to flash BIOS firmware image file $F.",
                2,
                r3Wait},
        NodeRun{
            "save bios fw -f $F",
            {{"tail /var/tmp/r3_Save_bios_fw.log | grep \"Reading finished\"",
              "Reading finished\n"}},
            {"run: mkdir -p $D", "tool: " + romflash + "-r $F 2>&1 > /var/tmp/r3_Save_bios_fw.log",
             "run: tail /var/tmp/r3_Save_bios_fw.log | grep \"Reading finished\"",
             "run: [getfile]$F"},
            "BIOS firmware image file $F has been successfully exported.\n",
            0,
            "Please wait for saving BIOS firmware....\n"
            "Don't power off the system or remove AC power!\n"},
        NodeRun{
            "save bios fw -f $F",
            {},
            {"run: mkdir -p $D", "tool: " + romflash + "-r $F 2>&1 > /var/tmp/r3_Save_bios_fw.log",
             "run: tail /var/tmp/r3_Save_bios_fw.log | grep \"Reading finished\""},
            "Failed to saving BIOS firmware image file $F",
            2,
            "Please wait for saving BIOS firmware....\n"
            "Don't power off the system or remove AC power!\n"},
        NodeRun{"backup bios config -f $F -m RAW", {}, {}, "command error, unknown option:RAW", 2},
        NodeRun{
            "restore bios config -m scrip -f $F", {}, {}, "command error, unknown option:scrip", 2},
        NodeRun{"restore bios config -m script -f $F",
                {{importQuestion, "Script file imported successfully.\n"}},
                {"run: [savefile]$F", "exists: $F",
                 "tool uninterruptibly: SCELNX_64.enc in $N: |/i /s $F /q 2>&1 | tee "
                 "/var/tmp/import_bios_conf.txt",
                 "run: " + importQuestion},
                "BIOS configuration file $F is restored.",
                0,
                "Please wait for restoring BIOS configuration....\n"},
        NodeRun{"restore bios config -f $F -m script",
                {},
                {"run: [savefile]$F", "exists: $F",
                 "tool uninterruptibly: SCELNX_64.enc in $N: |/i /s $F /q 2>&1 | tee "
                 "/var/tmp/import_bios_conf.txt",
                 "run: " + importQuestion},
                "Failed to restore BIOS configuration.",
                2,
                "Please wait for restoring BIOS configuration....\n"}));

class R3Faults : public NodeRunFixture<CShellCommandSet_BIOSFW> {};

TEST_F(R3Faults, IdentifierNotFound) {
    agent.answer(filled(idQuestion), "ID not found in file\n");
    agent.answer(filled(doneQuestion), "Writing finished\n");
    expectFailure(execute("flash bios fw -f " + file + " -r"), "ID of bios fw image not found");
    for (const std::string& request : agent.requests) {
        EXPECT_NE(request, "run: reboot");
    }
}

TEST_F(R3Faults, ImageThatDidNotArrive) {
    agent.missingFiles.insert(file);
    expectFailure(execute("flash bios fw -f " + file),
                  "BIOS firmware image file \"" + file + "\" does not exist!");
    expectFailure(execute("restore bios config -m script -f " + file),
                  "BIOS configuration file does not exist");
}

TEST_F(R3Faults, FetchThatFails) {
    agent.answer("tail /var/tmp/r3_Save_bios_fw.log | grep \"Reading finished\"",
                 "Reading finished\n");
    agent.answer("[getfile]" + file, "no room", 1);
    expectFailure(execute("save bios fw -f " + file), "Failed to get BIOS firmware....");
}

TEST_F(R3Faults, RawModeMovesThreeFiles) {
    for (const char* further : {".list", ".hii"}) {
        std::ofstream(file + further) << "x";
    }
    agent.answer(importQuestion, "Script file imported successfully");
    expectSuccess(execute("restore bios config -f " + file + " -m raw"),
                  "BIOS configuration file " + file + " is restored.");
    const std::vector<std::string> restored = requestsAfterOpening();
    std::vector<std::string> sent;
    for (const std::string& request : restored) {
        if (request.rfind("run: [savefile]", 0) == 0) {
            sent.push_back(request);
        }
    }
    EXPECT_EQ(sent, (Words{"run: [savefile]" + file, "run: [savefile]" + file + ".list",
                           "run: [savefile]" + file + ".hii"}));
    EXPECT_NE(std::find(restored.begin(), restored.end(),
                        filled("tool uninterruptibly: SCELNX_64.enc in $N: |/i /l $F.list /n $F /q "
                               "2>&1 | tee /var/tmp/import_bios_conf.txt")),
              restored.end());

    agent.requests.clear();
    agent.answer(exportQuestion, "Script file exported successfully");
    EXPECT_EQ(execute("backup bios config -m raw -f " + file).getRunStatus(), EXEC_SUCCESS);
    EXPECT_EQ(printed, "Please wait for backing up BIOS configuration....\n");
    EXPECT_EQ(requestsAfterOpening(),
              (Words{"run: mkdir -p " + directory.path(),
                     filled("tool: SCELNX_64.enc in $N: |/o /c /l $F.list /n $F /h $F.hii 2>&1 | "
                            "tee /var/tmp/export_bios_conf.txt"),
                     "run: " + exportQuestion, "run: [getfile]" + file,
                     "run: [getfile]" + file + ".list", "run: [getfile]" + file + ".hii"}));
}

TEST_F(R3Faults, BackupWithoutThePhrase) {
    expectFailure(execute("backup bios config -m script -f " + file),
                  "Failed to get BIOS configuration....");
}

// --- the older boards

class R2Contract : public NodeRunFixture<CShellCommandSet_FlashBIOS> {};

TEST_P(R2Contract, AsksAndTells) {
    check();
}

const std::string idCheck =
    "tool: chipprobe.x86_64.enc in $N: | -i -f $F;echo $? 2>&1 > /var/tmp/r2_flash_bios.txt";
const std::string romwrite =
    "romwrite.sh.enc+chipprobe.x86_64.enc+flashrom.x86_64.enc in $N: | -y ";
const std::string flashed = "Erasing...\nVerifying flash... VERIFIED.\n";
const std::string r2Wait = "Please wait for flashing BIOS....[node_0000]\n";

INSTANTIATE_TEST_SUITE_P(
    Runs, R2Contract,
    ::testing::Values(
        NodeRun{"check bios memory chip",
                {{"cat /var/tmp/check_bios_mem_chip.txt", "Found chip X\n"}},
                {"tool: flashrom.x86_64.enc in $N: || grep -i \"found chip\" > "
                 "/var/tmp/check_bios_mem_chip.txt",
                 "run: cat /var/tmp/check_bios_mem_chip.txt"},
                "Found chip X\n"},
        NodeRun{"clear cmos checksum",
                {{"cat /var/tmp/clear_cmos_checksum.log", "0\n"}},
                {"tool uninterruptibly: romtool.x86_64.enc in $N: | -C;echo $? > "
                 "/var/tmp/clear_cmos_checksum.log",
                 "run: cat /var/tmp/clear_cmos_checksum.log"},
                "Successfully clear the CMOS checksum."},
        NodeRun{"dump cmos memory",
                {{"cat /var/tmp/dump_cmos_memory.log", "00 01\n02 03\n"}},
                {"tool: romtool.x86_64.enc in $N: | -D > /var/tmp/dump_cmos_memory.log",
                 "run: cat /var/tmp/dump_cmos_memory.log"},
                "00 01\n02 03\n"},
        NodeRun{"validate bios id -f $F",
                {{"cat /var/tmp/validate_bios_id.txt", "255\n"}},
                {"run: [savefile]$F", "exists: $F",
                 "tool: chipprobe.x86_64.enc in $N: | -i -f $F;echo $? 2>&1 > "
                 "/var/tmp/validate_bios_id.txt",
                 "run: cat /var/tmp/validate_bios_id.txt"},
                "The BIOS ID is invalid!",
                2},
        NodeRun{"flash cmos memory -f $F",
                {{"cat /var/tmp/flash_cmos_mem.txt", "0\n"}},
                {"run: [savefile]$F", "exists: $F",
                 "tool uninterruptibly: romtool.x86_64.enc in $N: | -F $F;echo $? > "
                 "/var/tmp/flash_cmos_mem.txt",
                 "run: cat /var/tmp/flash_cmos_mem.txt"},
                "Flash CMOS successfully."},
        NodeRun{"check bios layout -f $F",
                {},
                {"run: [savefile]$F", "exists: $F",
                 "tool: romlayout.x86_64.enc in $N: |$F 2>&1 > /var/tmp/layoutcfg.txt",
                 "run: cat /var/tmp/layoutcfg.txt"},
                "No detected reserved area!!"},
        NodeRun{"check bios info",
                {},
                {"run: dmidecode -t bios | grep -i -e \"Vendor:\\|Version:\\|Release Date:\\|ROM "
                 "Size:\\|BIOS Revision:\""},
                ""},
        NodeRun{"save bios fw -f $F",
                {{"cat /var/tmp/save_current_bios.txt", flashed}},
                {"run: mkdir -p $D",
                 "tool: " + romwrite +
                     "-B $F 2>&1 > /var/tmp/save_current_bios.txt;rm -f $Tflashrom.x86_64",
                 "run: cat /var/tmp/save_current_bios.txt", "run: [getfile]$F"},
                "Successfully save the content of current BIOS into $F."},
        NodeRun{"save bios fw -f $F",
                {{"cat /var/tmp/save_current_bios.txt", "Verifying flash... FAILED\n"}},
                {"run: mkdir -p $D",
                 "tool: " + romwrite +
                     "-B $F 2>&1 > /var/tmp/save_current_bios.txt;rm -f $Tflashrom.x86_64",
                 "run: cat /var/tmp/save_current_bios.txt"},
                "Failed to save current BIOS into $F.",
                2},
        NodeRun{"flash bios fw -f $F",
                {{"cat /var/tmp/r2_flash_bios.txt", "0\n"},
                 {"cat /var/tmp/flashing_bios.txt", flashed}},
                {"run: [savefile]$F", "exists: $F", idCheck, "run: cat /var/tmp/r2_flash_bios.txt",
                 "tool uninterruptibly: " + romwrite + "-F $F 2>&1 > /var/tmp/flashing_bios.txt",
                 "run: cat /var/tmp/flashing_bios.txt"},
                "BIOS ROM file $F has been successfully flashed.\nYou must reboot the system for "
                "the changes to take effect!",
                0,
                r2Wait},
        NodeRun{"flash bios fw -f $F -x",
                {{"cat /var/tmp/flashing_bios.txt", flashed}},
                {"run: [savefile]$F", "exists: $F",
                 "tool uninterruptibly: " + romwrite + "-x -F $F 2>&1 > /var/tmp/flashing_bios.txt",
                 "run: cat /var/tmp/flashing_bios.txt"},
                "BIOS ROM file $F has been successfully flashed.\nYou must reboot the system for "
                "the changes to take effect!",
                0,
                r2Wait},
        NodeRun{"flash bios fw -x --reboot -f $F",
                {{"cat /var/tmp/flashing_bios.txt", flashed}},
                {"run: [savefile]$F", "exists: $F",
                 "tool uninterruptibly: " + romwrite + "-x -F $F 2>&1 > /var/tmp/flashing_bios.txt",
                 "run: cat /var/tmp/flashing_bios.txt", "run: reboot"},
                "BIOS ROM file $F has been successfully flashed.\nThe system is rebooting",
                0,
                r2Wait},
        NodeRun{"flash bios fw -f $F",
                {{"cat /var/tmp/r2_flash_bios.txt", "255\n"}},
                {"run: [savefile]$F", "exists: $F", idCheck, "run: cat /var/tmp/r2_flash_bios.txt"},
                "The BIOS ID is invalid! Please use correct BIOS ROM file.",
                2},
        NodeRun{"flash bios fw -x -f $F",
                {{"cat /var/tmp/flashing_bios.txt", "Verifying flash... VERIFIED\n"}},
                {"run: [savefile]$F", "exists: $F",
                 "tool uninterruptibly: " + romwrite + "-x -F $F 2>&1 > /var/tmp/flashing_bios.txt",
                 "run: cat /var/tmp/flashing_bios.txt"},
                "Failed to flash BIOS ROM file $F.",
                2,
                r2Wait}));

class R2Faults : public NodeRunFixture<CShellCommandSet_FlashBIOS> {};

TEST_F(R2Faults, OnlyOnePlatformIsServed) {
    for (const char* platform : {"i386\n", "unknown\n", ""}) {
        agent.requests.clear();
        agent.answer("uname -i", platform);
        agent.answer("uname -m", platform);
        expectFailure(execute("clear cmos checksum"), "Unknown hardware-platform of slave node.");
        for (const std::string& request : agent.requests) {
            EXPECT_NE(request.rfind("tool", 0), 0u) << request;
        }
    }
}

struct CodeText {
    std::string line;
    std::string readBack;
    std::string answer;
    std::string summary;
    int status;
};

TEST_F(R2Faults, ExitCodesBecomeWords) {
    const std::vector<CodeText> rows = {
        {"clear cmos checksum", "/var/tmp/clear_cmos_checksum.log", "255",
         "Failed to clear the CMOS checksum.", 2},
        {"clear cmos checksum", "/var/tmp/clear_cmos_checksum.log", "17", "17", 2},
        {"validate bios id -f $F", "/var/tmp/validate_bios_id.txt", "0", "The BIOS ID is valid.",
         0},
        {"validate bios id -f $F", "/var/tmp/validate_bios_id.txt", "3", "3", 2},
        {"flash cmos memory -f $F", "/var/tmp/flash_cmos_mem.txt", "255", "Failed to flash CMOS.",
         2},
        {"flash cmos memory -f $F", "/var/tmp/flash_cmos_mem.txt", "", "Failed to flash CMOS.", 2},
        {"check bios layout -f $F", "/var/tmp/layoutcfg.txt", "0-4095 boot\n", "0-4095 boot\n", 0}};
    for (const CodeText& row : rows) {
        SCOPED_TRACE(row.line + " " + row.answer);
        agent.answer("cat " + row.readBack, row.answer);
        const CResult result = execute(filled(row.line));
        EXPECT_EQ(result.getRunSummary(), row.summary);
        EXPECT_EQ(result.getRunStatus(), row.status);
    }
}

TEST_F(R2Faults, FileThatDidNotArrive) {
    agent.missingFiles.insert(file);
    const std::string gone = ", " + file + ", does not exist!";
    expectFailure(execute("validate bios id -f " + file), "BIOS ROM file" + gone);
    expectFailure(execute("flash bios fw -f " + file), "BIOS ROM file" + gone);
    expectFailure(execute("flash cmos memory -f " + file), "CMOS file" + gone);
    expectFailure(execute("check bios layout -f " + file), "BIOS FW file" + gone);
}

TEST_F(R2Faults, DashRInTheFileNameReboots) {
    const std::string rom = directory.file("my-rom.bin");
    std::ofstream(rom) << "image";
    agent.answer("cat /var/tmp/r2_flash_bios.txt", "0");
    agent.answer("cat /var/tmp/flashing_bios.txt", flashed);
    expectSuccess(execute("flash bios fw -f " + rom), "BIOS ROM file " + rom +
                                                          " has been successfully flashed.\n"
                                                          "The system is rebooting");
    EXPECT_EQ(agent.requests.back(), "run: reboot");
}

TEST_F(R2Faults, SkippingByTheLongNameStillChecks) {
    agent.answer("cat /var/tmp/r2_flash_bios.txt", "255");
    expectFailure(execute("flash bios fw --skipid -f " + file),
                  "The BIOS ID is invalid! Please use correct BIOS ROM file.");
}

TEST_F(R2Faults, NodePathGetsItsSlash) {
    agent.answer("echo $KELNODE_PATH", "/srv/kel\n");
    execute("dump cmos memory");
    EXPECT_EQ(requestsAfterOpening().front(),
              "tool: romtool.x86_64.enc in /srv/kel/: | -D > /var/tmp/dump_cmos_memory.log");
}

TEST_F(R2Faults, UnknownNameLeavesTheResult) {
    const CResult result = execute("no such command");
    EXPECT_EQ(result.getRunStatus(), 0);
    EXPECT_EQ(result.getRunSummary(), "");
    EXPECT_TRUE(agent.requests.empty());
}

}  // namespace
