#include "CShellCommandSet_IPMIKCS.h"

#include "CNode.h"
#include "CNodeSession.h"
#include "CResult.h"
#include "CShellCommand.h"
#include "CUtil.h"
#include "CommandTable.h"
#include "Console.h"
#include "IpmiDeviceType.h"
#include "PathText.h"

namespace {

using Family = IpmiDeviceType::Family;

constexpr char kAskType[] = "ipmitool raw 0x06 0x37";
constexpr char kAskLed[] = "ipmitool raw 0x30 0x10";
constexpr char kUpdateTool[] = "tools/FWHelper/IPMI_TOOL/ATEN/lUpdate";

void sendLine(const std::string& line, CNodeSession& session, CResult& result) {
    result = session.execute(line);
}

void coldReset(const std::string& line, CNodeSession& session, CResult& result) {
    result = session.execute(line);
    std::string output = result.getRunSummary();
    CUtil::trim(output);
    if (output == "Sent cold reset command to MC") {
        result.setRunSummary("The cold reset request has been sent to the IPMI device.");
    }
}

// When ipmitool fails it prints nothing on standard output, and its error message is no GUID.
IpmiDeviceType typeFrom(const CResult& answer) {
    return IpmiDeviceType::identify(answer.getExitCode() == 0 ? answer.getRunSummary() : "");
}

void checkDeviceType(const std::string& line, CNodeSession& session, CResult& result) {
    result = session.execute(line);
    result.setRunSummary(typeFrom(result).label);
}

void setLed(const std::string& line, CNodeSession& session, CResult& result) {
    result = session.execute(kAskLed);
    // Compared exactly and untrimmed, so an answer with a newline switches nothing. Only
    // controllers that answer with the bare digits are known to accept the requests below;
    // docs/compatibility.md.
    if (result.getRunSummary() == "01") {
        result = session.execute(line);
    } else {
        result.setRunSummary("UID LED is not available.");
    }
}

struct Row {
    const char* name;
    const char* description;
    const char* line;
    const char* confirmation;
    void (*run)(const std::string& line, CNodeSession& session, CResult& result);
};

constexpr Row kRows[] = {
    {"cold reset", "Cold reset the IPMI device through KCS.", "ipmitool mc reset cold",
     "Do you really want to cold reset the IPMI device through KCS?", &coldReset},
    {"check driver status", "Check the status of ipmi related drivers.", "service ipmi status", "",
     &sendLine},
    {"start driver", "Start ipmi related drivers.", "service ipmi start", "", &sendLine},
    {"stop driver", "Stop ipmi related drivers.", "service ipmi stop", "", &sendLine},
    {"check device type", "Check the type of IPMI device through KCS.", kAskType, "",
     &checkDeviceType},
    {"check ipmi info", "Check IPMI information through KCS.", "ipmitool mc info", "", &sendLine},
    {"check fru info", "Check FRU information through KCS.", "ipmitool fru", "", &sendLine},
    {"selftest", "Ask the IPMI device to do a self-test through KCS.", "ipmitool mc selftest", "",
     &sendLine},
    {"set uid led on", "Set IPMI's UID LED on through KCS.", "ipmitool raw 0x30 0x0d", "", &setLed},
    {"set uid led off", "Set IPMI's UID LED off through KCS.", "ipmitool raw 0x30 0x0e", "",
     &setLed},
    {"power status", "Check the status of system power through KCS.", "ipmitool power status", "",
     &sendLine},
    {"power off", "Power off the system through IPMI/KCS.", "ipmitool power off",
     "Do you really want to power off the system through IPMI/KCS?", &sendLine},
    {"power cycle", "Power off and then power on the system through IPMI/KCS.",
     "ipmitool power cycle",
     "Do you really want to power off and then power on the system through IPMI/KCS?", &sendLine},
    {"power reset", "Reset the system power through IPMI/KCS.", "ipmitool power reset",
     "Do you really want to reset the system power through IPMI/KCS?", &sendLine},
    {"power soft", "Inform the OS to prepare for a restart or shutdown through KCS.",
     "ipmitool power soft",
     "Do you really want to inform the OS to prepare for a restart or shutdown through KCS?",
     &sendLine},
};

const CommandRow& flashRow() {
    static const CommandRow row{
        "flash ipmi",
        "Flash the IPMI firmware with specified firmware file.",
        BUILTIN_OPT,
        SLAVE,
        {{"f", "file", OPTION_COMPULSORY, OPTION_WITH_VALUE, "The IPMI firmware file to flash."}},
        360000,
        "WARNING: This can overwrite your IPMI firmware!\n"
        "Do you really want to flash the IPMI firmware?"};
    return row;
}

CommandTable commandTable() {
    CommandTable table;
    for (const Row& row : kRows) {
        CommandRow command{row.name, row.description, BUILTIN, SLAVE, {}};
        command.confirmation = row.confirmation;
        table.push_back(command);
    }
    table.push_back(flashRow());
    return table;
}

// Stops the command unless the tool can flash this kind of controller.
void requireFlashable(const IpmiDeviceType& type) {
    switch (type.family) {
        case Family::kModuleType3:
            return;
        case Family::kModuleType2:
            throw CException("Does not support AMI yet.");
        case Family::kChassisModule:
            throw CException("Does not support Chassis module A yet.");
        case Family::kManagementModule:
            throw CException("Does not support CMM yet.");
        case Family::kModuleType1:
            throw CException("Does not support MT1 yet.");
        case Family::kNone:
        case Family::kUnknown:
            break;
    }
    throw CException(type.label);
}

void flash(const std::string& image, CNodeSession& session, CResult& result) {
    requireFlashable(typeFrom(session.execute(kAskType)));
    session.saveFile(image, "IPMI firmware image file, " + image + ", does not exist!");
    console::printLine("Please wait for flashing IPMI firmware....");

    const std::string log = "/var/tmp/" + pathtext::baseNameOf(image) + ".atenflashlog";
    const std::string logWord = pathtext::shellWord(log);
    const CNodeSession::LoggedJob job = session.executeLogged(
        "service ipmi stop && " + session.shellPath(kUpdateTool) + " -i kcs -f " +
            pathtext::shellWord(image) + " > " + logWord + " && service ipmi start",
        log);
    // The log is written only after the driver was stopped; before that it may be an old one.
    const bool complete =
        job.logIsNew && session.readBack("cat " + logWord + " | grep \"Update Complete\"")
                                .find("Update Complete") != std::string::npos;
    if (!complete) {
        conclude(result, job.outcome, EXEC_FAILURE,
                 "Failed to flash IPMI firmware " + image + "!\nPlease check flash log file " +
                     log + " for detail.");
        return;
    }
    session.execute("rm -f " + logWord);
    conclude(result, job.outcome, EXEC_SUCCESS,
             "Successfully flash IPMI firmware " + image +
                 ". Please wait about 1 minute for IPMI to restart.");
}

}  // namespace

CShellCommandSet_IPMIKCS::CShellCommandSet_IPMIKCS()
    : CShellCommandSet("ipmikcs", "Commands for IPMI firmware.") {
    addCommands(*this, commandTable());
}

void CShellCommandSet_IPMIKCS::execute(std::string commandLine, CNode* node, CResult& result,
                                       unsigned int timeOutMs) {
    CShellCommand* command = findCommand(*this, commandLine);
    if (command == nullptr) {
        return;
    }
    try {
        CNodeSession session(node, timeOutMs);
        if (command->getName() == flashRow().name) {
            flash(TypedLine(*command, commandLine).path("f"), session, result);
            return;
        }
        for (const Row& row : kRows) {
            if (command->getName() == row.name) {
                row.run(row.line, session, result);
                return;
            }
        }
    } catch (const CException& failure) {
        reportFailure(failure, result);
    }
}
