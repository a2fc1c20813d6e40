#include "CShellCommandSet_IPMI.h"

#include <algorithm>

#include "CNode.h"
#include "CResult.h"
#include "CShellCommand.h"
#include "ChildProcess.h"
#include "CommandTable.h"
#include "IpmiDeviceType.h"

namespace {

constexpr char kRawCommand[] = "raw command";
constexpr char kCheckDeviceType[] = "check device type";

struct Row {
    const char* name;
    const char* description;
    const char* request;  // nullptr: the user's own bytes
    const char* confirmation;
};

constexpr Row kRows[] = {
    {"cold reset", "Cold reset the IPMI device.", "raw 0x06 0x02",
     "Do you really want to cold reset the IPMI device?"},
    {kCheckDeviceType, "Check the type of IPMI device.", "raw 0x06 0x37", ""},
    {"set uid led on", "Set IPMI's UID LED on.", "raw 0x30 0x0d", ""},
    {"set uid led off", "Set IPMI's UID LED off.", "raw 0x30 0x0e", ""},
    {"acpi status", "Check the ACPI status of system power.", "raw 0x06 0x07", ""},
    {"power on", "Power on the system through IPMI.", "raw 0x00 0x02 0x01",
     "Do you really want to power on the system through IPMI?"},
    {"power off", "Power off the system through IPMI.", "raw 0x00 0x02 0x00",
     "Do you really want to power off the system through IPMI?"},
    {"power cycle", "Power off and then power on the system through IPMI.", "raw 0x00 0x02 0x02",
     "Do you really want to power off and then power on the system through IPMI?"},
    {"power reset", "Reset the system power through IPMI.", "raw 0x00 0x02 0x03",
     "Do you really want to reset the system power through IPMI?"},
    {"power soft", "Inform the OS to prepare for a restart or shutdown.", "raw 0x00 0x02 0x05",
     "Do you really want to inform the OS to prepare for a restart or shutdown?"},
    {kRawCommand, "Execute specific IPMI raw command.", nullptr,
     "Do you really want to execute the specified IPMI raw command?"},
};

CommandTable commandTable() {
    CommandTable table;
    for (const Row& row : kRows) {
        CommandRow command{row.name, row.description, BUILTIN_OPT, SLAVE, {}};
        command.options = {
            {"U", "user", OPTION_COMPULSORY, OPTION_WITH_VALUE, "The IPMI user ID."},
            {"P", "password", OPTION_COMPULSORY, OPTION_WITH_VALUE, "The IPMI user password."}};
        if (row.request == nullptr) {
            command.options.push_back({"rc", "raw-command", OPTION_COMPULSORY, OPTION_WITH_VALUE,
                                       "The IPMI raw command."});
        }
        command.confirmation = row.confirmation;
        table.push_back(command);
    }
    return table;
}

// Raw bytes are several words. Without quotes the option check takes them for unknown words, so a
// line that the check refuses still counts when it begins with a command's name.
const Row* rowOf(CShellCommandSet& set, const std::string& line) {
    const CShellCommand* command = findCommand(set, line);
    for (const Row& row : kRows) {
        if (command != nullptr ? command->getName() == row.name
                               : set.matchCommand(line, row.name)) {
            return &row;
        }
    }
    return nullptr;
}

void replaceFirst(std::string& text, const std::string& from, const std::string& to) {
    const std::string::size_type at = text.find(from);
    if (at != std::string::npos) {
        text.replace(at, from.size(), to);
    }
}

// The user's option becomes ipmitool's own subcommand, and the quotes are removed.
std::string rawCommandLine(const std::string& prefix, std::string remainder) {
    if (remainder.find("-rc") != std::string::npos) {
        replaceFirst(remainder, "-rc", "raw");
    } else {
        replaceFirst(remainder, "--raw-command", "raw");
    }
    std::string line = prefix + remainder;
    const std::string::size_type raw = line.find(" raw ");
    if (raw != std::string::npos) {
        std::replace(line.begin() + static_cast<std::string::difference_type>(raw), line.end(), '"',
                     ' ');
    }
    return line;
}

std::string ipmitoolLine(const Row& row, const std::string& typed, const CNode& node) {
    const std::string prefix = "ipmitool -I lanplus -H " + node.getIp() + " ";
    const std::string::size_type behindName = std::string(row.name).size() + 1;
    const std::string remainder = typed.size() > behindName ? typed.substr(behindName) : "";
    return row.request == nullptr ? rawCommandLine(prefix, remainder)
                                  : prefix + row.request + " " + remainder;
}

}  // namespace

CShellCommandSet_IPMI::CShellCommandSet_IPMI()
    : CShellCommandSet("ipmi", "Commands for IPMI firmware.") {
    addCommands(*this, commandTable());
}

void CShellCommandSet_IPMI::execute(std::string commandLine, CNode* node, CResult& result,
                                    unsigned int /*timeOutMs*/) {
    const Row* row = rowOf(*this, commandLine);
    if (row == nullptr) {
        return;
    }
    if (node == nullptr) {
        result.setRunStatus(EXEC_FAILURE);
        result.setRunSummary("The command needs a node.");
        return;
    }
    const bool askForType = row->name == std::string(kCheckDeviceType);
    std::string output;
    std::string errors;
    ChildProcess::Request request;
    // exec, so that ipmitool is the only process with the password in its arguments.
    request.commandLine = "exec " + ipmitoolLine(*row, commandLine, *node);
    // ipmitool must not ask for a password on the terminal, and must accept options behind the
    // bytes.
    request.input = ChildProcess::Input::kNull;
    request.withoutVariable = "POSIXLY_CORRECT";
    request.output = &output;
    request.errorOutput = askForType ? &errors : &output;
    const ChildProcess::Outcome outcome = ChildProcess::run(request);
    if (outcome.state == ChildProcess::Outcome::State::kNotStarted) {
        result.setRunStatus(EXEC_FAILURE);
        result.setRunSummary("ipmitool could not be started: " + outcome.reason);
        return;
    }
    result.setExitCode(outcome.exitCode());
    result.setRunStatus(EXEC_SUCCESS);
    result.setRunSummary(askForType ? IpmiDeviceType::identify(output).label : output);
}
