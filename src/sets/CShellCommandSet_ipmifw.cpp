#include "CShellCommandSet_ipmifw.h"

#include <atomic>

#include "CNodeSession.h"
#include "CResult.h"
#include "CShellCommand.h"
#include "CUtil.h"
#include "CommandRun.h"
#include "Console.h"
#include "PathText.h"
#include "Text.h"

namespace {

std::atomic<bool> testFlag{false};

constexpr char kFlashCommand[] = "flash ipmi fw";
constexpr char kConfigTool[] = "bmcconf-linux.x86_64.enc";
constexpr char kFlashedText[] = "successfully flashed.\nPlease wait about 1 minute for BMC reboot.";

enum class Maker { kAten, kAmi, kOther };

// The GUID begins with ASCII text of the maker. A GUID with both marks is ATEN's.
Maker makerOf(std::string guid) {
    CUtil::toUpper(guid);
    const auto holds = [&guid](const char* mark) { return guid.find(mark) != std::string::npos; };
    if (holds("37 30 30 31 5A 51")) {
        return Maker::kAten;
    }
    return holds("39 30 30 31 5A 51") || holds("35 30 30 31 5A 51") ? Maker::kAmi : Maker::kOther;
}

// Runs the controller's configuration tool and returns what it wrote.
std::string askController(CNodeSession& session, const std::string& arguments,
                          const std::string& log) {
    PackagedRun run;
    run.packagedFiles = {kConfigTool};
    run.arguments = arguments;
    run.log = log;
    session.run(run);
    return session.readBack("cat " + log);
}

std::string readRevision(CNodeSession& session) {
    PackagedRun run;
    run.packagedFiles = {kConfigTool};
    run.log = "/var/tmp/ipmifwver.txt";
    run.arguments = "-ver 2>&1 > " + run.log;
    session.run(run);
    std::string revision = session.readBack("tail " + run.log + " | grep \"Firmware Revision:\"");
    if (revision.find("Firmware Revision:") == std::string::npos) {
        // The spelling stays; docs/compatibility.md.
        throw CException("Can not get IPMI firmware revioson!!");
    }
    CUtil::removeTailNewline(&revision);
    return revision;
}

// The answer of Get Device ID has eleven bytes, three characters each, before the four of the
// auxiliary firmware revision. A controller without that revision answers no more.
std::string auxiliaryRevision(std::string deviceId) {
    constexpr std::string::size_type kBegin = 33;
    constexpr std::string::size_type kFourPairs = 11;
    CUtil::trim(deviceId);
    if (deviceId.size() <= kBegin) {
        return "";
    }
    std::string bytes = deviceId.substr(kBegin, kFourPairs);
    CUtil::trim(bytes);
    return " " + bytes;
}

void getRevision(CNodeSession& session, const TypedLine& /*typed*/, CResult& result) {
    std::string summary = readRevision(session);
    summary += auxiliaryRevision(askController(
        session, "-raw 0x06 0x01 2>&1 > /var/tmp/ipmiauxver.txt", "/var/tmp/ipmiauxver.txt"));
    const std::string guid =
        askController(session, "-raw 0x06 0x37 2>&1 > /var/tmp/get_ipmivendor.txt",
                      "/var/tmp/get_ipmivendor.txt");
    switch (makerOf(guid)) {
        case Maker::kAten:
            summary = "ATEN IPMI " + summary;
            break;
        case Maker::kAmi:
            summary = "AMI IPMI " + summary;
            break;
        case Maker::kOther:
            break;
    }
    result.setRunStatus(EXEC_SUCCESS);
    result.setRunSummary(summary);
}

std::string powerWarning(const std::string& behind) {
    return "Please wait for flashing IPMI firmware....\n"
           "Don't power off the system or remove AC power!" +
           behind;
}

// Reads from the log whether the flash succeeded. A maker's log begins with a banner, so a failure
// shows it from the fifth line on; a shorter log is shown whole.
void concludeFlash(CNodeSession& session, const CResult& outcome, const std::string& image,
                   const std::string& log, const std::string& verdictLine,
                   const std::string& phrase, CResult& result) {
    if (session.readBack(verdictLine).find(phrase) != std::string::npos) {
        conclude(result, outcome, EXEC_SUCCESS,
                 "IPMI firmware image file " + image + " has been " + kFlashedText);
        return;
    }
    std::string told = session.readBack("tail -n +5 " + log);
    if (told.empty()) {
        told = "Failed to flash IPMI firmware image file " + image + ".\n" +
               session.readBack("cat " + log);
    }
    conclude(result, outcome, EXEC_FAILURE, told);
}

void flashAten(CNodeSession& session, const std::string& image, CResult& result) {
    console::printLine("ATEN IPMI Firmware [" + session.nodeName() + "]");
    PackagedRun run;
    run.packagedFiles = {"lUpdate.sh.enc", "lUpdate.enc", "load_ipmi_driver.enc",
                         "bmc_driver_off.enc"};
    run.companionFiles = {"kcs.cfg"};
    run.log = "/var/tmp/" + pathtext::baseNameOf(image) + ".log";
    const std::string log = pathtext::shellWord(run.log);
    run.arguments = "-i kcs -f " + pathtext::shellWord(image) + " 2>&1 > " + log;
    run.uninterruptible = true;
    console::printLine(powerWarning(" [" + session.nodeName() + "]"));
    const CResult outcome = session.run(run);
    concludeFlash(session, outcome, image, log, "tail " + log + " | grep \"Update Complete\"",
                  "Update Complete", result);
}

// The answer that the AMI tool reads instead of asking. From write() on it lies on the node, until
// this object ends.
class AnswerFile {
public:
    explicit AnswerFile(CNodeSession& node) : session(node), file(node.shellPath("tools/y.txt")) {}
    AnswerFile(const AnswerFile&) = delete;
    AnswerFile& operator=(const AnswerFile&) = delete;
    ~AnswerFile() {
        try {
            session.execute("rm -f " + file);
        } catch (const CException&) {
            // The node cannot be reached. The next flash writes the same file again.
        }
    }
    void write() const {
        const CResult written = session.execute("echo \"y\">" + file + ";");
        if (written.getRunStatus() != EXEC_SUCCESS) {
            throw CommandStopped(written.getRunStatus(),
                                 "The answer file " + file + " cannot be written at the node. " +
                                     Text::trimmed(written.getRunSummary()));
        }
    }
    const std::string& path() const { return file; }

private:
    CNodeSession& session;
    std::string file;
};

void flashAmi(CNodeSession& session, const std::string& image, CResult& result) {
    console::printLine("AMI IPMI Firmware [" + session.nodeName() + "]");
    const AnswerFile answer(session);
    answer.write();

    PackagedRun preparation;
    preparation.packagedFiles = {kConfigTool};
    preparation.arguments = "-raw 0x30 0x70 0xb 0";
    preparation.uninterruptible = true;
    session.run(preparation);

    PackagedRun run;
    run.packagedFiles = {"bmcflash64.enc"};
    run.companionFiles = {"libipmi.so.1", "libipmi.so.1.0"};
    run.log = "/var/tmp/ipmi_flash_log.log";
    run.arguments =
        "-cd " + pathtext::shellWord(image) + " < " + answer.path() + " 2>&1 > " + run.log;
    run.uninterruptible = true;
    console::printLine(powerWarning("[" + session.nodeName() + "]"));
    const CResult outcome = session.run(run);
    const std::string phrase = "Resetting the firmware..........";
    concludeFlash(session, outcome, image, run.log,
                  "tail -1 " + run.log + " | grep \"" + phrase + "\"", phrase, result);
}

void flash(CNodeSession& session, const TypedLine& typed, CResult& result) {
    const std::string image = typed.path("f");
    // The blank before ">" matters: dash takes "2>&1>" for a syntax error.
    std::string guid = askController(session, "-raw 0x06 0x37 2>&1 > /var/tmp/get_ipmi_id.txt",
                                     "/var/tmp/get_ipmi_id.txt");
    CUtil::removeTailNewline(&guid);
    console::printLine("IPMI GUID:" + guid);
    const Maker maker = makerOf(guid);
    if (maker == Maker::kOther) {
        throw CException("Can not support this IPMI device type....");
    }
    session.saveFile(image, "IPMI firmware image file \"" + image + "\" does not exist!");
    if (maker == Maker::kAten) {
        flashAten(session, image, result);
    } else {
        flashAmi(session, image, result);
    }
}

const CommandTable& commandTable() {
    static const CommandTable table = {
        {"get ipmi fw revision",
         "get ipmi fw revision on system",
         BUILTIN_OPT,
         SLAVE,
         {},
         30000,
         "",
         "get ipmi fw revision -n node_0000",
         &getRevision},
        {kFlashCommand,
         "flash ipmi firmware",
         BUILTIN_OPT,
         SLAVE,
         {{"f", "file", OPTION_COMPULSORY, OPTION_WITH_VALUE,
           "this is ipmi fw image file that will be flashed"}},
         1200000,
         "Do you really want to flash the IPMI firmware?",
         "flash ipmi fw -f fwFile -n node_0000",
         &flash},
    };
    return table;
}

}  // namespace

CShellCommandSet_ipmifw::CShellCommandSet_ipmifw()
    : CShellCommandSet("ipmifw", "Commands for IPMI Firmware Flash.") {
    addCommands(*this, commandTable());
}

void CShellCommandSet_ipmifw::setTestFlag(bool on) {
    testFlag = on;
}

bool CShellCommandSet_ipmifw::getTestFlag() {
    return testFlag;
}

void CShellCommandSet_ipmifw::execute(std::string commandLine, CNode* node, CResult& result,
                                      unsigned int timeOutMs) {
    if (getTestFlag()) {
        CShellCommand* command = findCommand(*this, commandLine);
        if (command != nullptr && command->getName() == kFlashCommand) {
            result.setRunStatus(EXEC_SUCCESS);
            result.setRunSummary("IPMI firmware image file " +
                                 TypedLine(*command, commandLine).path("f") + " has been [Test]" +
                                 kFlashedText);
            return;
        }
    }
    executeOnNode(*this, commandTable(), commandLine, node, result, timeOutMs);
}
