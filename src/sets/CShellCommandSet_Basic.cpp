#include "CShellCommandSet_Basic.h"

#include <iostream>
#include <sstream>

#include "CException.h"
#include "CNode.h"
#include "CNodeGroup.h"
#include "CResult.h"
#include "CShellCommand.h"
#include "CShellExecutionContext.h"
#include "CUtil.h"
#include "ChildProcess.h"
#include "CommandTable.h"
#include "NodeAccess.h"
#include "NodeResult.h"
#include "SSLClient.h"

namespace {

constexpr unsigned int kTransferTimeOutMs = 5000;

void saveFile(CNode& node, const std::string& path, CResult& result, unsigned int timeOut) {
    if (!CUtil::isFileExisted(path)) {
        result.setRunStatus(EXEC_FAILURE);
        result.setRunSummary("File \"" + path + "\" does not exist!");
        return;
    }
    try {
        nodeaccess::connect(node, timeOut)->execute("[savefile]" + path, timeOut, &result);
    } catch (const CException& failure) {
        noderesult::fail(result, failure);
    }
}

void getFile(CNode& node, const std::string& path, CResult& result, unsigned int timeOut) {
    const bool existed = CUtil::isFileExisted(path);
    try {
        nodeaccess::connect(node, timeOut)->execute("[getfile]" + path, timeOut, &result);
    } catch (const CException& failure) {
        noderesult::fail(result, failure);
    }
    std::string text;
    if (existed) {
        text = "File \"" + path + "\" already exists in local site!\n";
    }
    text += result.getRunSummary() + "\n";
    if (existed && result.getRunStatus() == EXEC_SUCCESS) {
        text += "Over write the original file.\n";
    }
    result.setRunSummary(text);
}

void clearConsole() {
    std::cout.flush();
    ChildProcess::Request request;
    request.commandLine = "clear";
    // "clear" has reported a failure itself; nothing else depends on it.
    (void)ChildProcess::run(request);
}

const CommandTable& basicTable() {
    static const CommandTable table = {
        {"list node", "List all available nodes.", BUILTIN, MASTER, {}},
        {"list group", "List all available groups.", BUILTIN, MASTER, {}},
        {"help", "Display all information about usage.", BUILTIN, MASTER, {}},
        {"--help", "Display all information about usage.", BUILTIN, MASTER, {}},
        {"??", "Display all information about usage.", BUILTIN, MASTER, {}},
        {"?", "Display information about usage in the current level.", BUILTIN, MASTER, {}},
        {"list", "List all available commands in the current level.", BUILTIN, MASTER, {}},
        {"clear", "Clear the console.", BUILTIN, MASTER, {}},
        {"quit", "Quit the kelsh.", BUILTIN, MASTER, {}},
        {"history", "Show the history of command execution.", BUILTIN, MASTER, {}},
        {"save file",
         "Save specified file into slave node(s).",
         BUILTIN_OPT,
         SLAVE,
         {valueOption("f", "file", "The file to be saved in slave node.")},
         kTransferTimeOutMs},
        {"get file",
         "Get specified file from a slave node.",
         BUILTIN_OPT,
         SLAVE,
         {valueOption("f", "file", "The file to be got from slave node.")},
         kTransferTimeOutMs},
    };
    return table;
}

}  // namespace

CShellCommandSet_Basic::CShellCommandSet_Basic(CShellExecutionContext* shellContext)
    : CShellCommandSet("BASIC", "Basic commands for kelsh."), context(shellContext) {
    addCommands(*this, basicTable());
}

void CShellCommandSet_Basic::execute(std::string commandLine, CNode* node, CResult& result,
                                     unsigned int timeOutMs) {
    CShellCommand* command = findCommand(*this, commandLine);
    if (command == nullptr) {
        return;
    }
    const std::string word = command->getName();
    if (command->getDestination() == SLAVE) {
        copyFile(word, TypedLine(*command, commandLine).path("f"), node, result, timeOutMs);
    } else if (word == "clear") {
        clearConsole();
        result.setRunStatus(EXEC_SUCCESS);
    } else if (const auto text = textOf(word)) {
        result.setRunStatus(EXEC_SUCCESS);
        result.setRunSummary(*text);
    }
}

void CShellCommandSet_Basic::copyFile(const std::string& word, const std::string& path, CNode* node,
                                      CResult& result, unsigned int timeOutMs) {
    if (node == nullptr) {
        result.setRunStatus(EXEC_FAILURE);
        result.setRunSummary("The command needs a node.");
    } else if (word == "save file") {
        saveFile(*node, path, result, timeOutMs);
    } else {
        getFile(*node, path, result, timeOutMs);
    }
}

std::optional<std::string> CShellCommandSet_Basic::textOf(const std::string& word) {
    if (word == "list node") {
        return listNodes();
    }
    if (word == "list group") {
        return listGroups();
    }
    if (word == "help" || word == "--help" || word == "??") {
        return context->getUsage();
    }
    if (word == "?") {
        return context->getCWLUsage();
    }
    if (word == "list") {
        return context->listWorkingCommandSet();
    }
    return std::nullopt;
}

std::string CShellCommandSet_Basic::listNodes() const {
    std::ostringstream text;
    for (const auto& [key, node] : context->getNodeMap()) {
        text << key << " (MAC: " << node->getMac() << ", IP: " << node->getIp()
             << ", Port: " << node->getPort() << ")\n";
    }
    text << "Total: " << context->getNodeMap().size();
    return text.str();
}

std::string CShellCommandSet_Basic::listGroups() const {
    std::ostringstream text;
    for (CNodeGroup* group : context->getNodeGroupList()) {
        text << group->getName() << " [" << group->getNodes().size() << "]\n";
    }
    text << "Total: " << context->getNodeGroupList().size();
    return text.str();
}
