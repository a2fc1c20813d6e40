#include "CommandRun.h"

#include <algorithm>

#include "CNodeSession.h"
#include "CResult.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"

void executeOnNode(CShellCommandSet& set, const CommandTable& table, const std::string& commandLine,
                   CNode* node, CResult& result, unsigned int timeOut,
                   void (*prepare)(CShellCommandSet& set, CNodeSession& session)) {
    CShellCommand* command = findCommand(set, commandLine);
    if (command == nullptr) {
        return;
    }
    const std::string name = command->getName();
    const auto row = std::find_if(table.begin(), table.end(),
                                  [&](const CommandRow& each) { return each.name == name; });
    if (row == table.end() || row->run == nullptr) {
        return;
    }
    try {
        CNodeSession session(node, timeOut);
        session.nodePath();
        if (prepare != nullptr) {
            prepare(set, session);
        }
        row->run(session, TypedLine(*command, commandLine), result);
    } catch (const CException& failure) {
        reportFailure(failure, result);
    }
}
