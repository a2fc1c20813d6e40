#include <gtest/gtest.h>

#include "CResult.h"
#include "CShellCommandSet_ipmifw.h"
#include "CUtil.h"
#include "CommandChecklist.h"
#include "NodeSetFixture.h"

namespace {

TEST(CShellCommandSet_ipmifw, HoldsItsCommands) {
    CShellCommandSet_ipmifw set;
    EXPECT_EQ("ipmifw", set.getCommandSetName());
    EXPECT_EQ("Commands for IPMI Firmware Flash.", set.getDescription());
    expectCommands(set,
                   {{"get ipmi fw revision",
                     "get ipmi fw revision on system",
                     BUILTIN_OPT,
                     SLAVE,
                     {},
                     30000,
                     NO,
                     "",
                     {"get ipmi fw revision -n node_0000"}},
                    {"flash ipmi fw",
                     "flash ipmi firmware",
                     BUILTIN_OPT,
                     SLAVE,
                     {{"f", "file", true, true, "this is ipmi fw image file that will be flashed"}},
                     1200000,
                     ONCE,
                     "Do you really want to flash the IPMI firmware?",
                     {"flash ipmi fw -f fwFile -n node_0000"}}});
}

using FirmwareSet = NodeSetFixture<CShellCommandSet_ipmifw>;

constexpr char kAten[] = " 37 30 30 31 5a 51 00 00 08 09 0a 0b 0c 0d 0e 0f\n";
constexpr char kAmi[] = " 39 30 30 31 5A 51 00 00 08 09 0a 0b 0c 0d 0e 0f\n";
constexpr char kOtherAmi[] = " 35 30 30 31 5A 51 00 00\n";
constexpr char kReadGuid[] = "cat /var/tmp/get_ipmi_id.txt";
constexpr char kTool[] = "tool: bmcconf-linux.x86_64.enc in /opt/kelnode/: |";

TEST_F(FirmwareSet, FlashesNothingWhileTheTestFlagIsSet) {
    EXPECT_FALSE(CShellCommandSet_ipmifw::getTestFlag());
    CShellCommandSet_ipmifw::setTestFlag(true);
    agent.connectFailure = "a node was contacted";
    const CResult flash = execute("flash ipmi fw -f x.bin");
    const CResult revision = execute("get ipmi fw revision");
    CShellCommandSet_ipmifw::setTestFlag(false);
    expectSuccess(flash,
                  "IPMI firmware image file x.bin has been [Test]successfully flashed.\nPlease "
                  "wait about 1 minute for BMC reboot.");
    expectFailure(revision, "a node was contacted");
}

class Revision : public FirmwareSet {
protected:
    void SetUp() override {
        FirmwareSet::SetUp();
        agent.answer("tail /var/tmp/ipmifwver.txt | grep \"Firmware Revision:\"",
                     "Firmware Revision: 1.23\n");
        agent.answer("cat /var/tmp/ipmiauxver.txt",
                     " 00 03 09 08 02 9f 91 12 00 02 0f 00 0a 0b 0c\n");
        agent.answer("cat /var/tmp/get_ipmivendor.txt", kAten);
    }
    std::string revision() { return execute("get ipmi fw revision").getRunSummary(); }
};

TEST_F(Revision, JoinsMakerRevisionAndAuxiliaryRevision) {
    expectSuccess(execute("get ipmi fw revision"), "ATEN IPMI Firmware Revision: 1.23 00 0a 0b 0c");
    const std::vector<std::string> expected = {
        kTool + std::string("-ver 2>&1 > /var/tmp/ipmifwver.txt"),
        "run: tail /var/tmp/ipmifwver.txt | grep \"Firmware Revision:\"",
        kTool + std::string("-raw 0x06 0x01 2>&1 > /var/tmp/ipmiauxver.txt"),
        "run: cat /var/tmp/ipmiauxver.txt",
        kTool + std::string("-raw 0x06 0x37 2>&1 > /var/tmp/get_ipmivendor.txt"),
        "run: cat /var/tmp/get_ipmivendor.txt"};
    EXPECT_EQ(expected, requestsAfterOpening());
}

TEST_F(Revision, NamesTheOtherMakerOrNone) {
    for (const char* guid : {kAmi, kOtherAmi}) {
        agent.answer("cat /var/tmp/get_ipmivendor.txt", guid);
        EXPECT_EQ("AMI IPMI Firmware Revision: 1.23 00 0a 0b 0c", revision());
    }
    agent.answer("cat /var/tmp/get_ipmivendor.txt", " 11 22\n");
    EXPECT_EQ("Firmware Revision: 1.23 00 0a 0b 0c", revision());
}

TEST_F(Revision, LeavesOutAnAuxiliaryRevisionThatIsNotThere) {
    for (const char* answer : {"", " 00 03 09 08 02 9f 91 12 00 02 0f\n", "cut sh"}) {
        agent.answer("cat /var/tmp/ipmiauxver.txt", answer);
        EXPECT_EQ("ATEN IPMI Firmware Revision: 1.23", revision());
    }
}

TEST_F(Revision, SaysThatItCanNotBeRead) {
    agent.answer("tail /var/tmp/ipmifwver.txt | grep \"Firmware Revision:\"", "");
    expectFailure(execute("get ipmi fw revision"), "Can not get IPMI firmware revioson!!");
    EXPECT_EQ(2U, requestsAfterOpening().size());
}

TEST_F(Revision, DoesNotReadALogOfAnEarlierRun) {
    agent.toolFailures["bmcconf-linux.x86_64.enc"] = "package is damaged";
    expectFailure(execute("get ipmi fw revision"), "package is damaged");
    EXPECT_EQ(1U, requestsAfterOpening().size());
}

class Flash : public FirmwareSet {
protected:
    CResult flash() { return execute("flash ipmi fw -f " + file); }
    std::string flashed() const {
        return "IPMI firmware image file " + file +
               " has been successfully flashed.\nPlease wait about 1 minute for BMC reboot.";
    }
    std::vector<std::string> opening() const {
        return {kTool + std::string("-raw 0x06 0x37 2>&1 > /var/tmp/get_ipmi_id.txt"),
                "run: " + std::string(kReadGuid), "run: [savefile]" + file, "exists: " + file};
    }
    void expectRequests(const std::vector<std::string>& behindOpening) {
        std::vector<std::string> expected = opening();
        expected.insert(expected.end(), behindOpening.begin(), behindOpening.end());
        EXPECT_EQ(expected, requestsAfterOpening());
    }
};

class AtenFlash : public Flash {
protected:
    void SetUp() override {
        Flash::SetUp();
        agent.answer(kReadGuid, kAten);
    }
    const std::string verdict = "tail /var/tmp/image.bin.log | grep \"Update Complete\"";
};

TEST_F(AtenFlash, Flashes) {
    agent.answer(verdict, "Update Complete\n");
    expectSuccess(flash(), flashed());
    expectRequests(
        {"tool uninterruptibly: "
         "lUpdate.sh.enc+lUpdate.enc+load_ipmi_driver.enc+bmc_driver_off.enc with "
         "kcs.cfg in /opt/kelnode/: |-i kcs -f " +
             file + " 2>&1 > /var/tmp/image.bin.log",
         "run: " + verdict});
    EXPECT_EQ(
        "IPMI GUID: 37 30 30 31 5a 51 00 00 08 09 0a 0b 0c 0d 0e 0f\n"
        "ATEN IPMI Firmware [node_0000]\n"
        "Please wait for flashing IPMI firmware....\n"
        "Don't power off the system or remove AC power! [node_0000]\n",
        printed);
}

TEST_F(AtenFlash, ShowsTheLogFromItsFifthLineOnFailure) {
    agent.answer("tail -n +5 /var/tmp/image.bin.log", "verify error\n");
    expectFailure(flash(), "verify error\n");
}

TEST_F(AtenFlash, ShowsAShortLogWhole) {
    agent.answer("cat /var/tmp/image.bin.log", "no driver\n");
    expectFailure(flash(), "Failed to flash IPMI firmware image file " + file + ".\nno driver\n");
}

TEST_F(AtenFlash, ComesFirstWhenBothMarksAreThere) {
    agent.answer(kReadGuid, std::string(kAmi) + kAten);
    agent.answer(verdict, "Update Complete\n");
    expectSuccess(flash(), flashed());
}

TEST_F(AtenFlash, NamesAMissingImage) {
    agent.missingFiles.insert(file);
    expectFailure(flash(), "IPMI firmware image file \"" + file + "\" does not exist!");
}

class AmiFlash : public Flash {
protected:
    void SetUp() override {
        Flash::SetUp();
        agent.answer(kReadGuid, kAmi);
    }
    const std::string verdict =
        "tail -1 /var/tmp/ipmi_flash_log.log | grep \"Resetting the firmware..........\"";
};

TEST_F(AmiFlash, Flashes) {
    agent.answer(verdict, "Resetting the firmware..........\n");
    expectSuccess(flash(), flashed());
    expectRequests(
        {"run: echo \"y\">/opt/kelnode/tools/y.txt;",
         "tool uninterruptibly: bmcconf-linux.x86_64.enc in /opt/kelnode/: |-raw 0x30 0x70 0xb 0",
         "tool uninterruptibly: bmcflash64.enc with libipmi.so.1+libipmi.so.1.0 in /opt/kelnode/: "
         "|-cd " +
             file + " < /opt/kelnode/tools/y.txt 2>&1 > /var/tmp/ipmi_flash_log.log",
         "run: " + verdict, "run: rm -f /opt/kelnode/tools/y.txt"});
    EXPECT_EQ(
        "IPMI GUID: 39 30 30 31 5A 51 00 00 08 09 0a 0b 0c 0d 0e 0f\n"
        "AMI IPMI Firmware [node_0000]\n"
        "Please wait for flashing IPMI firmware....\n"
        "Don't power off the system or remove AC power![node_0000]\n",
        printed);
}

TEST_F(AmiFlash, KnowsBothMarks) {
    agent.answer(kReadGuid, kOtherAmi);
    agent.answer(verdict, "Resetting the firmware..........\n");
    expectSuccess(flash(), flashed());
}

TEST_F(AmiFlash, RemovesTheAnswerFileInEveryOutcome) {
    const std::string removal = "run: rm -f /opt/kelnode/tools/y.txt";
    agent.answer("tail -n +5 /var/tmp/ipmi_flash_log.log", "rejected\n");
    expectFailure(flash(), "rejected\n");
    EXPECT_EQ(removal, agent.requests.back());
    agent.toolFailures["bmcflash64.enc"] = "another firmware job is running";
    expectFailure(flash(), "another firmware job is running");
    EXPECT_EQ(removal, agent.requests.back());
}

TEST_F(AmiFlash, EndsBeforeThePreparationWithoutItsAnswerFile) {
    agent.answer("echo \"y\">/opt/kelnode/tools/y.txt;", "sh: cannot create y.txt\n", 2);
    expectFailure(flash(),
                  "The answer file /opt/kelnode/tools/y.txt cannot be written at the node. "
                  "sh: cannot create y.txt");
    expectRequests(
        {"run: echo \"y\">/opt/kelnode/tools/y.txt;", "run: rm -f /opt/kelnode/tools/y.txt"});
}

TEST_F(AmiFlash, NamesNoLogOfAPreparationThatTimesOut) {
    CResult late;
    late.setRunStatus(EXEC_TIMED_OUT);
    agent.toolAnswers["bmcconf-linux.x86_64.enc -raw 0x30 0x70 0xb 0"] = late;
    const CResult result = execute("flash ipmi fw -f " + file, 1200000);
    EXPECT_EQ(EXEC_TIMED_OUT, result.getRunStatus());
    EXPECT_EQ(
        "bmcconf-linux.x86_64 did not end within its time-out of 1200000 ms. It is not "
        "interrupted and goes on at the node.",
        result.getRunSummary());
}

TEST_F(Flash, RefusesOtherControllers) {
    for (const char* guid : {"", " 20 00 0E 40 02 7F 78 08\n", " 37 30 30 31 5A\n"}) {
        agent.requests.clear();
        agent.answer(kReadGuid, guid);
        expectFailure(flash(), "Can not support this IPMI device type....");
        EXPECT_EQ(2U, requestsAfterOpening().size());
        std::string shown = guid;
        CUtil::removeTailNewline(&shown);
        EXPECT_EQ("IPMI GUID:" + shown + "\n", printed);
    }
}

}  // namespace
