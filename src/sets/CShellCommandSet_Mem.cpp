#include "CShellCommandSet_Mem.h"

#include "CNodeSession.h"
#include "CResult.h"
#include "CommandTable.h"

namespace {

const CommandTable& commandTable() {
    static const CommandTable table = {{"mem",
                                        "Check the memory usage by using top.",
                                        SCRIPT,
                                        SLAVE,
                                        {},
                                        0,
                                        "",
                                        "mem -n node_0000"}};
    return table;
}

}  // namespace

CShellCommandSet_Mem::CShellCommandSet_Mem()
    : CShellCommandSet("mem", "Commands for checking memory information.") {
    addCommands(*this, commandTable());
}

void CShellCommandSet_Mem::execute(std::string commandLine, CNode* node, CResult& result,
                                   unsigned int /*timeOutMs*/) {
    if (findCommand(*this, commandLine) == nullptr) {
        return;
    }
    try {
        CNodeSession session(node, kReadTimeOutMs);
        result = session.execute("top -bn 1 | grep Mem:");
        if (result.getRunStatus() != EXEC_SUCCESS && result.getRunSummary().empty()) {
            // The top of procps 4 has nothing like it but "MiB Mem :".
            result = session.execute("top -bn 1 | grep \"Mem :\"");
        }
    } catch (const CException& failure) {
        reportFailure(failure, result);
    }
}
