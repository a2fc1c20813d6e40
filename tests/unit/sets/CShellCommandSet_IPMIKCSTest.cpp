#include <gtest/gtest.h>

#include "CResult.h"
#include "CShellCommandSet_IPMIKCS.h"
#include "CommandChecklist.h"
#include "NodeSetFixture.h"

namespace {

ExpectedCommand row(const std::string& name, const std::string& description,
                    const std::string& question = "") {
    return {name, description, BUILTIN, SLAVE, {}, 0, question.empty() ? NO : ONCE, question, {}};
}

TEST(CShellCommandSet_IPMIKCS, HoldsItsCommands) {
    CShellCommandSet_IPMIKCS set;
    EXPECT_EQ("ipmikcs", set.getCommandSetName());
    EXPECT_EQ("Commands for IPMI firmware.", set.getDescription());
    expectCommands(
        set,
        {row("cold reset", "Cold reset the IPMI device through KCS.",
             "Do you really want to cold reset the IPMI device through KCS?"),
         row("check driver status", "Check the status of ipmi related drivers."),
         row("start driver", "Start ipmi related drivers."),
         row("stop driver", "Stop ipmi related drivers."),
         row("check device type", "Check the type of IPMI device through KCS."),
         row("check ipmi info", "Check IPMI information through KCS."),
         row("check fru info", "Check FRU information through KCS."),
         row("selftest", "Ask the IPMI device to do a self-test through KCS."),
         row("set uid led on", "Set IPMI's UID LED on through KCS."),
         row("set uid led off", "Set IPMI's UID LED off through KCS."),
         row("power status", "Check the status of system power through KCS."),
         row("power off", "Power off the system through IPMI/KCS.",
             "Do you really want to power off the system through IPMI/KCS?"),
         row("power cycle", "Power off and then power on the system through IPMI/KCS.",
             "Do you really want to power off and then power on the system through IPMI/KCS?"),
         row("power reset", "Reset the system power through IPMI/KCS.",
             "Do you really want to reset the system power through IPMI/KCS?"),
         row("power soft", "Inform the OS to prepare for a restart or shutdown through KCS.",
             "Do you really want to inform the OS to prepare for a restart or shutdown through "
             "KCS?"),
         {"flash ipmi",
          "Flash the IPMI firmware with specified firmware file.",
          BUILTIN_OPT,
          SLAVE,
          {{"f", "file", true, true, "The IPMI firmware file to flash."}},
          360000,
          ONCE,
          "WARNING: This can overwrite your IPMI firmware!\nDo you really want to flash the IPMI "
          "firmware?",
          {}}});
}

using KcsSet = NodeSetFixture<CShellCommandSet_IPMIKCS>;

constexpr char kAskType[] = "ipmitool raw 0x06 0x37";
constexpr char kAten[] = " 37 30 30 31 5a 51 00 00 08 09 0a 0b 0c 0d 0e 0f\n";

TEST_F(KcsSet, SendsEachLineExactly) {
    const std::pair<const char*, const char*> lines[] = {
        {"check driver status", "service ipmi status"},
        {"start driver", "service ipmi start"},
        {"stop driver", "service ipmi stop"},
        {"check ipmi info", "ipmitool mc info"},
        {"check fru info", "ipmitool fru"},
        {"selftest", "ipmitool mc selftest"},
        {"power status", "ipmitool power status"},
        {"power off", "ipmitool power off"},
        {"power cycle", "ipmitool power cycle"},
        {"power reset", "ipmitool power reset"},
        {"power soft", "ipmitool power soft"}};
    for (const auto& [command, line] : lines) {
        agent.requests.clear();
        agent.answer(line, std::string(command) + " done\n");
        expectSuccess(execute(command), std::string(command) + " done\n");
        EXPECT_EQ(std::vector<std::string>{"run: " + std::string(line)}, requestsAfterOpening());
    }
}

TEST_F(KcsSet, KeepsTheStatusOfAFailedLine) {
    agent.answer("ipmitool power off", "no driver\n", 1);
    expectFailure(execute("power off"), "no driver\n");
}

TEST_F(KcsSet, TellsAColdResetFromOtherWords) {
    agent.answer("ipmitool mc reset cold", " Sent cold reset command to MC\n");
    expectSuccess(execute("cold reset"),
                  "The cold reset request has been sent to the IPMI device.");
    agent.answer("ipmitool mc reset cold", "Sent cold reset command to MC twice\n");
    expectSuccess(execute("cold reset"), "Sent cold reset command to MC twice\n");
}

TEST_F(KcsSet, TellsTheDeviceType) {
    agent.answer(kAskType, kAten);
    expectSuccess(execute("check device type"), "Module type 3");
    agent.answer(kAskType, "");
    expectSuccess(execute("check device type"), "No IPMI device");
    agent.answer(kAskType, "Could not open device at /dev/ipmi0\n", 1);
    expectFailure(execute("check device type"), "No IPMI device");
    agent.answer(kAskType, " 37 30\n");
    expectSuccess(execute("check device type"), "Unknown IPMI device");
}

TEST_F(KcsSet, SwitchesTheLedOnlyAfterTheBareAnswer) {
    for (const char* state : {"on", "off"}) {
        const std::string line =
            std::string("ipmitool raw 0x30 ") + (state == std::string("on") ? "0x0d" : "0x0e");
        agent.requests.clear();
        agent.answer("ipmitool raw 0x30 0x10", "01");
        agent.answer(line, "lit\n");
        EXPECT_EQ("lit\n", execute(std::string("set uid led ") + state).getRunSummary());
        const std::vector<std::string> expected = {"run: ipmitool raw 0x30 0x10", "run: " + line};
        EXPECT_EQ(expected, requestsAfterOpening());
        for (const char* answer : {" 01", "01\n", " 01\n", "00", ""}) {
            agent.requests.clear();
            agent.answer("ipmitool raw 0x30 0x10", answer);
            EXPECT_EQ("UID LED is not available.",
                      execute(std::string("set uid led ") + state).getRunSummary());
            EXPECT_EQ(1U, requestsAfterOpening().size());
        }
    }
}

class KcsFlash : public KcsSet {
protected:
    void SetUp() override {
        KcsSet::SetUp();
        agent.answer(kAskType, kAten);
        log = "/var/tmp/image.bin.atenflashlog";
        flashLine =
            "service ipmi stop && /opt/kelnode/tools/FWHelper/IPMI_TOOL/ATEN/lUpdate -i "
            "kcs -f " +
            file + " > " + log + " && service ipmi start";
        readLine = "cat " + log + " | grep \"Update Complete\"";
    }
    CResult flash() { return execute("flash ipmi -f " + file); }
    std::string failure() const {
        return "Failed to flash IPMI firmware " + file + "!\nPlease check flash log file " + log +
               " for detail.";
    }

    std::string log;
    std::string flashLine;
    std::string readLine;
};

TEST_F(KcsFlash, FlashesAndRemovesItsLog) {
    agent.answer(readLine, "Update Complete\n");
    expectSuccess(flash(), "Successfully flash IPMI firmware " + file +
                               ". Please wait about 1 minute for IPMI to restart.");
    const std::vector<std::string> expected = {
        "run: " + std::string(kAskType),     "run: [savefile]" + file, "exists: " + file,
        "run uninterruptibly: " + flashLine, "run: " + readLine,       "run: rm -f " + log};
    EXPECT_EQ(expected, requestsAfterOpening());
    EXPECT_EQ("Please wait for flashing IPMI firmware....\n", printed);
}

TEST_F(KcsFlash, FailsWithoutThePhrase) {
    agent.answer(readLine, "");
    expectFailure(flash(), failure());
}

TEST_F(KcsFlash, DoesNotTakeAnOldLogForSuccess) {
    agent.silentTools.insert(flashLine);
    agent.answer(flashLine, "ipmi: unrecognized service\n", 1);
    agent.answer(readLine, "Update Complete\n");
    expectFailure(flash(), failure());
}

TEST_F(KcsFlash, NamesAMissingImage) {
    agent.missingFiles.insert(file);
    expectFailure(flash(), "IPMI firmware image file, " + file + ", does not exist!");
    expectFailure(execute("flash ipmi -f /nonexistent/x.bin"),
                  "IPMI firmware image file, /nonexistent/x.bin, does not exist!");
}

TEST_F(KcsFlash, FlashesNoOtherController) {
    const std::pair<const char*, const char*> others[] = {
        {"20 00 0E 40 02 7F 78 08", "Does not support Chassis module A yet."},
        {"02 00 00 FF FE 00 00 00 08 09 0A 0B 0C 0D 0E 0F", "Does not support MT1 yet."},
        {"32 30 30 31 5A 51 00 00", "Does not support MT1 yet."},
        {"31 30 30 31 5A 51 00 00", "Does not support CMM yet."},
        {"33 30 30 31 5A 51 00 00", "Does not support CMM yet."},
        {"38 30 30 31 5A 51 00 00", "Does not support CMM yet."},
        {"34 30 30 31 5A 51 00 00", "Does not support AMI yet."},
        {"35 30 30 31 5A 51", "Does not support AMI yet."},
        {"36 30 30 31 5A 51", "Does not support AMI yet."},
        {"", "No IPMI device"},
        {"11 22", "Unknown IPMI device"}};
    for (const auto& [guid, message] : others) {
        agent.requests.clear();
        agent.answer(kAskType, guid);
        expectFailure(flash(), message);
        EXPECT_EQ(std::vector<std::string>{"run: " + std::string(kAskType)},
                  requestsAfterOpening());
    }
}

TEST_F(KcsFlash, ReportsALostNode) {
    agent.lineFailures[flashLine] = "connection lost; the job goes on at the node";
    expectFailure(flash(), "connection lost; the job goes on at the node");
}

TEST_F(KcsSet, ReportsANodeThatCanNotBeReached) {
    agent.connectFailure = "no route to n";
    expectFailure(execute("power status"), "no route to n");
}

}  // namespace
