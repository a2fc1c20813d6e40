// The controller sets inside the node, the firmware of two makers, memory and monitoring.
#include "CShellCommandSet_HALO.h"
#include "CShellCommandSet_IPMIKCS.h"
#include "CShellCommandSet_Mem.h"
#include "CShellCommandSet_ipmifw.h"
#include "NodeSetContract.h"

namespace {

class KcsContract : public NodeRunFixture<CShellCommandSet_IPMIKCS> {};

TEST_P(KcsContract, AsksAndTells) {
    check();
}

NodeRun plain(const std::string& name, const std::string& nodeLine) {
    return {
        name, {{nodeLine, " as the node says \n"}}, {"run: " + nodeLine}, " as the node says \n"};
}

NodeRun led(const std::string& name, const std::string& state, const std::string& request) {
    NodeRun run{name,
                {{"ipmitool raw 0x30 0x10", state}, {request, "done"}},
                {"run: ipmitool raw 0x30 0x10"},
                "UID LED is not available."};
    if (state == "01") {
        run.requests.push_back("run: " + request);
        run.summary = "done";
    }
    return run;
}

NodeRun device(const std::string& answer, const std::string& label) {
    return {"check device type",
            {{"ipmitool raw 0x06 0x37", answer}},
            {"run: ipmitool raw 0x06 0x37"},
            label};
}

INSTANTIATE_TEST_SUITE_P(
    Runs, KcsContract,
    ::testing::Values(
        plain("check driver status", "service ipmi status"),
        plain("start driver", "service ipmi start"), plain("stop driver", "service ipmi stop"),
        plain("check ipmi info", "ipmitool mc info"), plain("check fru info", "ipmitool fru"),
        plain("selftest", "ipmitool mc selftest"), plain("power status", "ipmitool power status"),
        plain("power off", "ipmitool power off"), plain("power cycle", "ipmitool power cycle"),
        plain("power reset", "ipmitool power reset"), plain("power soft", "ipmitool power soft"),
        plain("cold reset", "ipmitool mc reset cold"),
        NodeRun{"cold reset",
                {{"ipmitool mc reset cold", " Sent cold reset command to MC\n"}},
                {"run: ipmitool mc reset cold"},
                "The cold reset request has been sent to the IPMI device."},
        led("set uid led on", "01", "ipmitool raw 0x30 0x0d"),
        led("set uid led off", "01", "ipmitool raw 0x30 0x0e"), led("set uid led on", " 01", ""),
        led("set uid led on", "01\n", ""), led("set uid led off", "00", ""),
        led("set uid led off", "", ""), device(" 20 00 0e 40 02 7f 78 08\n", "Chassis module A"),
        device("02 00 00 FF FE 00 00 00 08 09 0A 0B 0C 0D 0E 0F", "Module type 1 with KVM"),
        device(" 30 30 30 31 5a 51 00 00 08 09 0a 0b 0c 0d 0e 0f\n", "Unknown IPMI device"),
        device("32 30 30 31 5a 51 00 00 01", "Module type 1 for blade"),
        device("31 30 30 31 5A 51 00 00", "Management module of blade type 1"),
        device("33 30 30 31 5A 51 00 00", "Management module of blade type 2"),
        device("38 30 30 31 5A 51 00 00", "Management module of blade type 3"),
        device("34 30 30 31 5A 51 00 00", "Module type 2 add-on"),
        device("34 30 30 31 5A 51 00 01", "Unknown IPMI device"),
        device("35 30 30 31 5A 51 ff", "Module type 2 on-board"),
        device("36 30 30 31 5A 51", "Module type 2 blade on-board"),
        device("37 30 30 31 5A 51", "Module type 3"), device("", "No IPMI device"),
        device(" \n", "No IPMI device"), device("0 37 30 30 31 5A 51", "Unknown IPMI device")));

class KcsFlash : public NodeRunFixture<CShellCommandSet_IPMIKCS> {
protected:
    void is(const std::string& guid) { agent.answer("ipmitool raw 0x06 0x37", guid); }
    const std::string log = "/var/tmp/image.bin.atenflashlog";
    const std::string question = "cat " + log + " | grep \"Update Complete\"";
};

TEST_F(KcsFlash, RefusesWhatItDoesNotKnow) {
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"34 30 30 31 5A 51 00 00", "Does not support AMI yet."},
        {"35 30 30 31 5A 51", "Does not support AMI yet."},
        {"36 30 30 31 5A 51", "Does not support AMI yet."},
        {"20 00 0E 40 02 7F 78 08", "Does not support Chassis module A yet."},
        {"31 30 30 31 5A 51 00 00", "Does not support CMM yet."},
        {"33 30 30 31 5A 51 00 00", "Does not support CMM yet."},
        {"38 30 30 31 5A 51 00 00", "Does not support CMM yet."},
        {"02 00 00 FF FE 00 00 00 08 09 0A 0B 0C 0D 0E 0F", "Does not support MT1 yet."},
        {"32 30 30 31 5A 51 00 00", "Does not support MT1 yet."},
        {"", "No IPMI device"},
        {"77", "Unknown IPMI device"}};
    for (const auto& [guid, text] : rows) {
        agent.requests.clear();
        is(guid);
        expectFailure(execute("flash ipmi -f " + file), text);
        for (const std::string& request : agent.requests) {
            EXPECT_EQ(request.find("lUpdate"), std::string::npos);
            EXPECT_EQ(request.find("savefile"), std::string::npos);
        }
    }
}

TEST_F(KcsFlash, FlashesTheOneItKnows) {
    is("37 30 30 31 5A 51");
    agent.answer(question, "Update Complete\n");
    expectSuccess(execute("flash ipmi -f " + file),
                  "Successfully flash IPMI firmware " + file +
                      ". Please wait about 1 minute for IPMI to restart.");
    EXPECT_EQ(printed, "Please wait for flashing IPMI firmware....\n");
    const std::vector<std::string> asked = requestsAfterOpening();
    EXPECT_NE(std::find(asked.begin(), asked.end(),
                        "run uninterruptibly: service ipmi stop && "
                        "/opt/kelnode/tools/FWHelper/IPMI_TOOL/ATEN/lUpdate -i kcs -f " +
                            file + " > " + log + " && service ipmi start"),
              asked.end())
        << ::testing::PrintToString(asked);
    EXPECT_EQ(asked.back(), "run: rm -f " + log);
}

TEST_F(KcsFlash, KeepsTheLogOfAFailure) {
    is("37 30 30 31 5A 51");
    expectFailure(execute("flash ipmi -f " + file), "Failed to flash IPMI firmware " + file +
                                                        "!\nPlease check flash log file " + log +
                                                        " for detail.");
    EXPECT_EQ(requestsAfterOpening().back(), "run: " + question);
    agent.missingFiles.insert(file);
    expectFailure(execute("flash ipmi -f " + file),
                  "IPMI firmware image file, " + file + ", does not exist!");
}

// --- firmware of two makers

class FirmwareContract : public NodeRunFixture<CShellCommandSet_ipmifw> {
protected:
    const std::string success = "IPMI firmware image file " + file +
                                " has been successfully flashed.\n"
                                "Please wait about 1 minute for BMC reboot.";
    const std::string wait =
        "Please wait for flashing IPMI firmware....\n"
        "Don't power off the system or remove AC power!";
    void is(const std::string& guid) { agent.answer("cat /var/tmp/get_ipmi_id.txt", guid); }
    bool asked(const std::string& request) {
        return std::find(agent.requests.begin(), agent.requests.end(), request) !=
               agent.requests.end();
    }
};

TEST_F(FirmwareContract, TestFlagFlashesNothing) {
    EXPECT_FALSE(CShellCommandSet_ipmifw::getTestFlag());
    CShellCommandSet_ipmifw::setTestFlag(true);
    EXPECT_TRUE(CShellCommandSet_ipmifw::getTestFlag());
    const CResult result = execute("flash ipmi fw -f x.bin");
    CShellCommandSet_ipmifw::setTestFlag(false);
    expectSuccess(result,
                  "IPMI firmware image file x.bin has been [Test]successfully flashed.\n"
                  "Please wait about 1 minute for BMC reboot.");
    EXPECT_TRUE(agent.requests.empty());
}

TEST_F(FirmwareContract, UnknownControllerIsNotTouched) {
    is("36 30 30 31 5A 51\n");
    expectFailure(execute("flash ipmi fw -f " + file), "Can not support this IPMI device type....");
    EXPECT_EQ(printed, "IPMI GUID:36 30 30 31 5A 51\n");
    EXPECT_EQ(requestsAfterOpening().size(), 2u);
}

TEST_F(FirmwareContract, OneMakersWay) {
    is("37 30 30 31 5A 51 35 30 30 31 5A 51");
    const std::string log = "/var/tmp/image.bin.log";
    agent.answer("tail " + log + " | grep \"Update Complete\"", "Update Complete\n");
    expectSuccess(execute("flash ipmi fw -f " + file), success);
    EXPECT_EQ(printed,
              "IPMI GUID:37 30 30 31 5A 51 35 30 30 31 5A 51\n"
              "ATEN IPMI Firmware [node_0000]\n" +
                  wait + " [node_0000]\n");
    EXPECT_TRUE(asked("run: [savefile]" + file));
    EXPECT_TRUE(
        asked("tool uninterruptibly: "
              "lUpdate.sh.enc+lUpdate.enc+load_ipmi_driver.enc+bmc_driver_off.enc with "
              "kcs.cfg in /opt/kelnode/: |-i kcs -f " +
              file + " 2>&1 > " + log))
        << ::testing::PrintToString(agent.requests);

    agent.answer("tail " + log + " | grep \"Update Complete\"", "");
    agent.answer("tail -n +5 " + log, "line five\n");
    expectFailure(execute("flash ipmi fw -f " + file), "line five\n");
}

TEST_F(FirmwareContract, OtherMakersWay) {
    for (const char* guid : {"39 30 30 31 5A 51", "35 30 30 31 5A 51"}) {
        agent.requests.clear();
        is(guid);
        const std::string log = "/var/tmp/ipmi_flash_log.log";
        const std::string question =
            "tail -1 " + log + " | grep \"Resetting the firmware..........\"";
        agent.answer(question, "Resetting the firmware..........\n");
        expectSuccess(execute("flash ipmi fw -f " + file), success);
        EXPECT_EQ(printed, std::string("IPMI GUID:") + guid + "\nAMI IPMI Firmware [node_0000]\n" +
                               wait + "[node_0000]\n");
        EXPECT_TRUE(
            asked("tool uninterruptibly: bmcflash64.enc with libipmi.so.1+libipmi.so.1.0 in "
                  "/opt/kelnode/: |-cd " +
                  file + " < /opt/kelnode/tools/y.txt 2>&1 > " + log))
            << ::testing::PrintToString(agent.requests);
        EXPECT_TRUE(asked("run: rm -f /opt/kelnode/tools/y.txt"));
        agent.answer(question, "");
        agent.answer("tail -n +5 " + log, "no\n");
        expectFailure(execute("flash ipmi fw -f " + file), "no\n");
        EXPECT_EQ(agent.requests.back(), "run: rm -f /opt/kelnode/tools/y.txt");
    }
}

TEST_F(FirmwareContract, ImageThatDidNotArrive) {
    is("37 30 30 31 5A 51");
    agent.missingFiles.insert(file);
    expectFailure(execute("flash ipmi fw -f " + file),
                  "IPMI firmware image file \"" + file + "\" does not exist!");
}

TEST_F(FirmwareContract, RevisionThatCannotBeRead) {
    expectFailure(execute("get ipmi fw revision"), "Can not get IPMI firmware revioson!!");
    EXPECT_EQ(requestsAfterOpening(),
              (Words{"tool: bmcconf-linux.x86_64.enc in /opt/kelnode/: |-ver 2>&1 > "
                     "/var/tmp/ipmifwver.txt",
                     "run: tail /var/tmp/ipmifwver.txt | grep \"Firmware Revision:\""}));
}

TEST_F(FirmwareContract, RevisionNamesTheMaker) {
    agent.answer("tail /var/tmp/ipmifwver.txt | grep \"Firmware Revision:\"",
                 "Firmware Revision: 3.16\n");
    for (const auto& [guid, maker] :
         std::map<std::string, std::string>{{"37 30 30 31 5A 51", "ATEN IPMI "},
                                            {"x 39 30 30 31 5A 51", "AMI IPMI "},
                                            {"35 30 30 31 5A 51 00", "AMI IPMI "},
                                            {"36 30 30 31 5A 51", ""}}) {
        agent.answer("cat /var/tmp/get_ipmivendor.txt", guid);
        const CResult result = execute("get ipmi fw revision");
        EXPECT_EQ(result.getRunStatus(), 0);
        EXPECT_EQ(result.getRunSummary().rfind(maker + "Firmware Revision: 3.16", 0), 0u)
            << result.getRunSummary();
    }
    // 16 bytes: the last four stand behind position 33.
    agent.answer("cat /var/tmp/ipmiauxver.txt", "20 01 03 16 02 bf 7c 2a 00 01 0a aa bb cc dd\n");
    EXPECT_NE(execute("get ipmi fw revision").getRunSummary().find("aa bb cc dd"),
              std::string::npos);
}

// --- memory and monitoring

class MemContract : public NodeRunFixture<CShellCommandSet_Mem> {};

TEST_F(MemContract, AlwaysGivesFiveSeconds) {
    for (const unsigned int given : {1000u, 30000u}) {
        agent.requests.clear();
        agent.timeOutsMs.clear();
        agent.answer("top -bn 1 | grep Mem:", "Mem: 1 total\n");
        expectSuccess(execute("mem", given), "Mem: 1 total\n");
        EXPECT_EQ(agent.requests, (Words{"run: top -bn 1 | grep Mem:"}));
        EXPECT_EQ(agent.timeOutsMs, (std::vector<unsigned int>{5000}));
    }
}

class HaloContract : public NodeRunFixture<CShellCommandSet_HALO> {};

TEST_P(HaloContract, AnswersWithAFixedText) {
    check();
}

INSTANTIATE_TEST_SUITE_P(
    Runs, HaloContract,
    ::testing::Values(NodeRun{"check fan", {}, {}, "Status of fan speeds."},
                      NodeRun{"check temperature", {}, {}, "Status of temperatures."},
                      NodeRun{"check voltage", {}, {}, "Status of voltages."},
                      NodeRun{"check intrusion", {}, {}, "Status of chassis intrusion."},
                      NodeRun{"check fans", {}, {}, ""}));

}  // namespace
