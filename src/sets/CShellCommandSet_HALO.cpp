#include "CShellCommandSet_HALO.h"

#include "CResult.h"
#include "CShellCommand.h"
#include "CommandTable.h"

namespace {

struct Row {
    const char* name;
    const char* description;
    const char* example;
    const char* answer;
};

constexpr Row kRows[] = {
    {"check fan", "Check status of fan speeds.", "check fan -n node_0000", "Status of fan speeds."},
    {"check temperature", "Check status of CPU and system temperatures.",
     "check temperature -n node_0000", "Status of temperatures."},
    {"check voltage", "Check status of voltage levels.", "check voltage -n node_0000",
     "Status of voltages."},
    {"check intrusion", "Check status of chassis intrusion.", "check intrusion -n node_0000",
     "Status of chassis intrusion."},
};

CommandTable commandTable() {
    CommandTable table;
    for (const Row& row : kRows) {
        CommandRow command{row.name, row.description, SCRIPT, SLAVE, {}};
        command.example = row.example;
        table.push_back(command);
    }
    return table;
}

}  // namespace

CShellCommandSet_HALO::CShellCommandSet_HALO()
    : CShellCommandSet("halo", "Commands for accessing HALO.") {
    addCommands(*this, commandTable());
}

void CShellCommandSet_HALO::execute(std::string commandLine, CNode* /*node*/, CResult& result,
                                    unsigned int /*timeOutMs*/) {
    const CShellCommand* command = findCommand(*this, commandLine);
    if (command == nullptr) {
        return;
    }
    for (const Row& row : kRows) {
        if (command->getName() == row.name) {
            result.setRunStatus(EXEC_SUCCESS);
            result.setRunSummary(row.answer);
            return;
        }
    }
}
