#include "CConfiguredCommandSet.h"

#include <utility>

#include "CUtil.h"
#include "ConfigErrorCollector.h"

CConfiguredCommandSet::CConfiguredCommandSet(std::string setName, std::string text)
    : CShellCommandSet(std::move(setName), std::move(text)) {}

CConfiguredCommandSet::~CConfiguredCommandSet() = default;

void CConfiguredCommandSet::execute(std::string command, CNode* node, CResult& result,
                                    unsigned timeOutMs) {
    ConfigErrorCollector unwanted;
    const CShellCommand* cmd = nullptr;
    if (findStoredCommand(command) == nullptr) {
        cmd = findPossibleSupportedCommand(command, &unwanted);
    }
    if (cmd == nullptr) {
        CShellCommandSet::execute(std::move(command), node, result, timeOutMs);
        return;
    }
    std::string options = command.substr(cmd->getName().size());
    CUtil::trim(options);
    runCommand(*cmd, options, node, result, timeOutMs);
}
