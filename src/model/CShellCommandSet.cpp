#include "CShellCommandSet.h"

#include <algorithm>
#include <iostream>
#include <sys/utsname.h>
#include <utility>

#include "CAlreadyExistException.h"
#include "CNode.h"
#include "CResult.h"
#include "CUtil.h"
#include "CommandText.h"
#include "ConfigErrorCollector.h"
#include "NodeAccess.h"
#include "NodeResult.h"
#include "SSLClient.h"
#include "Text.h"

namespace {

const char kDefaultConfirmMessage[] = "Do you really want to execute this command?";

// Enough for "uname -i", which answers at once or not at all.
constexpr unsigned kPlatformQueryTimeOutMs = 5000;

enum Platform { k32Bit = 0, k64Bit = 1, kUnknownPlatform = 2 };

void fail(CResult& result, const std::string& summary) {
    result.setRunStatus(EXEC_FAILURE);
    result.setRunSummary(summary);
}

int localPlatform() {
    struct utsname names {};
    if (uname(&names) != 0) {
        return kUnknownPlatform;
    }
    const std::string machine = names.machine;
    if (machine == "x86_64") {
        return k64Bit;
    }
    const bool is32Bit = machine.size() == 4 && machine[0] == 'i' && machine.substr(2) == "86";
    return is32Bit ? k32Bit : kUnknownPlatform;
}

// The line for that platform; false, with the reason in the result, when there is none.
bool chooseLine(const CShellCommand& cmd, int platform, const std::string& unknownPlatform,
                std::string& line, CResult& result) {
    if (platform != k32Bit && platform != k64Bit) {
        fail(result, unknownPlatform);
        return false;
    }
    line = platform == k32Bit ? cmd.get32Command() : cmd.get64Command();
    if (line.empty()) {
        fail(result, std::string("Command for ") + (platform == k32Bit ? "i386" : "x86_64") +
                         " hardware platform is not defined!");
        return false;
    }
    return true;
}

std::string withOptions(const std::string& line, const std::string& options) {
    return options.empty() ? line : line + " " + options;
}

void runHere(const CShellCommand& cmd, const std::string& options, CResult& result) {
    std::string line = cmd.getCommand();
    if (cmd.needToCheck32Or64BitCommand() &&
        !chooseLine(cmd, localPlatform(), "Unknown hardware-platform of this machine.", line,
                    result)) {
        return;
    }
    std::string output;
    const int exitCode = CUtil::exec_cmd(withOptions(line, options), &output, &output);
    result.setRunStatus(exitCode == 0 ? EXEC_SUCCESS : EXEC_FAILURE);
    result.setExitCode(exitCode);
    result.setRunSummary(output);
}

}  // namespace

CShellCommandSet::CShellCommandSet(std::string setName, std::string text)
    : name(std::move(setName)), description(std::move(text)) {}

CShellCommandSet::~CShellCommandSet() {
    if (owner != nullptr) {
        owner->removeChildCommand(this);
    }
    for (CShellCommandSet* child : children) {
        child->parent = nullptr;
        child->owner = nullptr;
        delete child;
    }
    for (const auto& entry : supportedCommands) {
        delete entry.second;
    }
}

void CShellCommandSet::execute(std::string command, CNode* node, CResult& result,
                               unsigned timeOutMs) {
    if (command.empty()) {
        fail(result, "Command is empty.");
        return;
    }
    const CShellCommand* cmd = findStoredCommand(command);
    if (cmd == nullptr) {
        fail(result, "Command \"" + command + "\" is not supported.");
        return;
    }
    runCommand(*cmd, "", node, result, timeOutMs);
}

std::string CShellCommandSet::getCommandSetName() const {
    return name;
}

std::string CShellCommandSet::getDescription() const {
    return description;
}

void CShellCommandSet::setDescription(std::string text) {
    description = std::move(text);
}

CShellCommandSet* CShellCommandSet::getParentCommand() const {
    return parent;
}

void CShellCommandSet::setParentCommand(CShellCommandSet* set) {
    parent = set;
}

bool CShellCommandSet::hasParentCommandSet() const {
    return parent != nullptr;
}

std::list<CShellCommandSet*>& CShellCommandSet::getChildCommands() {
    return children;
}

const std::list<CShellCommandSet*>& CShellCommandSet::getChildCommands() const {
    return children;
}

std::map<std::string, CShellCommand*>& CShellCommandSet::getSupportedCommands() {
    return supportedCommands;
}

const std::map<std::string, CShellCommand*>& CShellCommandSet::getSupportedCommands() const {
    return supportedCommands;
}

unsigned CShellCommandSet::getTimeOut() const {
    return timeOut;
}

void CShellCommandSet::setTimeOut(unsigned milliseconds) {
    timeOut = milliseconds;
}

void CShellCommandSet::setCommandSetConfirmType(CONFIRM_TYPE_ENUM confirmation) {
    confirmType = confirmation;
}

void CShellCommandSet::setCommandSetConfirmMessage(std::string message) {
    confirmMessage = std::move(message);
}

CONFIRM_TYPE_ENUM CShellCommandSet::getCommandSetConfirmType() const {
    if (confirmType == INHERITANCE && parent != nullptr) {
        return parent->getCommandSetConfirmType();
    }
    return confirmType;
}

std::string CShellCommandSet::getCommandSetConfirmMessage() const {
    if (confirmType == ONCE || confirmType == EACH) {
        return confirmMessage.empty() ? kDefaultConfirmMessage : confirmMessage;
    }
    if (confirmType == INHERITANCE && parent != nullptr) {
        return parent->getCommandSetConfirmMessage();
    }
    return "";
}

bool CShellCommandSet::equal(std::string other) const {
    return name == other;
}

bool CShellCommandSet::equal(const CShellCommandSet& other) const {
    return name == other.name;
}

bool CShellCommandSet::operator==(const CShellCommandSet& other) const {
    return equal(other);
}

void CShellCommandSet::addChildCommand(CShellCommandSet* child) {
    const CShellCommandSet* root = this;
    while (root->parent != nullptr) {
        root = root->parent;
    }
    if (child->parent != nullptr || child == root) {
        throw CException("Command " + child->name + " can only be added to a command group!");
    }
    const bool known =
        std::any_of(children.begin(), children.end(),
                    [child](const CShellCommandSet* present) { return present->equal(*child); });
    if (known) {
        throw CAlreadyExistException("The command " + child->name + " already exists!");
    }
    children.push_back(child);
    child->parent = this;
    child->owner = this;
}

void CShellCommandSet::removeChildCommand(CShellCommandSet* child) {
    const auto found = std::find(children.begin(), children.end(), child);
    if (found == children.end()) {
        return;
    }
    children.remove(child);
    child->parent = nullptr;
    child->owner = nullptr;
}

void CShellCommandSet::removeAllChildCommands() {
    for (CShellCommandSet* child : children) {
        child->parent = nullptr;
        child->owner = nullptr;
    }
    children.clear();
}

void CShellCommandSet::addSupportedCommand(CShellCommand* cmd) {
    if (!supportedCommands.emplace(cmd->getName(), cmd).second) {
        throw CAlreadyExistException(cmd->getName() + " already exists!");
    }
    cmd->setCommandSet(this);
}

void CShellCommandSet::removeSupportedCommand(std::string commandName) {
    const auto found = supportedCommands.find(commandName);
    if (found != supportedCommands.end()) {
        found->second->setCommandSet(nullptr);
        supportedCommands.erase(found);
    }
}

bool CShellCommandSet::isSupported(std::string commandName) const {
    CUtil::makeNeatString(&commandName);
    return findStoredCommand(commandName) != nullptr;
}

bool CShellCommandSet::hasDuplicateSupportedCommand(const CShellCommandSet* other) const {
    return other != nullptr &&
           std::any_of(other->supportedCommands.begin(), other->supportedCommands.end(),
                       [this](const auto& entry) { return isSupported(entry.first); });
}

CShellCommand* CShellCommandSet::findPossibleSupportedCommand(std::string line,
                                                              ConfigErrorCollector* errors) const {
    for (const auto& entry : supportedCommands) {
        if (entry.second->validateCommand(line, errors)) {
            return entry.second;
        }
    }
    return nullptr;
}

bool CShellCommandSet::matchCommand(std::string line, std::string commandName) const {
    if (!Text::startsWith(line, commandName)) {
        return false;
    }
    std::string rest = line.substr(commandName.size());
    Text::trim(rest);
    return rest.empty() || rest.front() == '-';
}

std::string CShellCommandSet::getPath() const {
    if (parent != nullptr) {
        return parent->getPath() + "/" + name;
    }
    return name == "BASIC" ? "" : name;
}

std::string CShellCommandSet::getUsage() const {
    static const std::string kIndent(9, ' ');
    const std::string path = getPath();
    std::string text;
    if (!path.empty()) {
        text += "[" + path + "]  " + description + "\n";
    }
    for (const auto& entry : supportedCommands) {
        const CShellCommand& cmd = *entry.second;
        text += cmd.getName() + ":  " + cmd.getDescription() + "\n";
        // No blank behind it, and the first example begins two columns further right than the
        // others: programs cut the text by columns, docs/compatibility.md.
        std::string lead = "  Option:";
        for (const CCommandOption* option : cmd.getOptions()) {
            text += lead + option->toString() + "\n";
            lead = kIndent;
        }
        lead = "  Example: ";
        for (const std::string& example : cmd.getExamples()) {
            text += lead + example + "\n";
            lead = kIndent;
        }
    }
    for (const CShellCommandSet* child : children) {
        text += child->getUsage();
    }
    return text;
}

CONFIRM_TYPE_ENUM CShellCommandSet::getCommandConfirmType(std::string typed) const {
    const CShellCommand* cmd = findTypedCommand(typed);
    return cmd == nullptr ? NO : cmd->getCommandConfirmType();
}

std::string CShellCommandSet::getCommandConfirmMessage(std::string typed) const {
    const CShellCommand* cmd = findTypedCommand(typed);
    return cmd == nullptr ? "" : cmd->getCommandConfirmMessage();
}

unsigned CShellCommandSet::getCommandTimeOut(std::string typed) const {
    const CShellCommand* cmd = findTypedCommand(typed);
    if (cmd == nullptr) {
        return 0;
    }
    const unsigned own = cmd->getTimeOut();
    return own != 0 ? own : timeOut;
}

EXECUTE_DESTINATION CShellCommandSet::getExecuteDestination(std::string typed) const {
    const CShellCommand* cmd = findTypedCommand(typed);
    if (cmd == nullptr) {
        std::cout << "Warning!!! Can not find the EXECUTE_DESTINATION for " << typed << " in "
                  << name << std::endl;
        return MASTER;
    }
    return cmd->getDestination();
}

int CShellCommandSet::checkHardwarePlatformOnSlaveNode(SSLClient* client) {
    if (client == nullptr) {
        return kUnknownPlatform;
    }
    CResult answer;
    client->execute("uname -i", kPlatformQueryTimeOutMs, &answer);
    std::string platform = answer.getRunSummary();
    Text::trim(platform);
    if (platform == "i386") {
        return k32Bit;
    }
    return platform == "x86_64" ? k64Bit : kUnknownPlatform;
}

CShellCommand* CShellCommandSet::findStoredCommand(const std::string& commandName) const {
    const auto found = supportedCommands.find(commandName);
    return found == supportedCommands.end() ? nullptr : found->second;
}

void CShellCommandSet::runCommand(const CShellCommand& cmd, const std::string& options, CNode* node,
                                  CResult& result, unsigned timeOutMs) {
    try {
        if (node == nullptr) {
            runHere(cmd, options, result);
            return;
        }
        const std::unique_ptr<SSLClient> client = nodeaccess::connect(*node, timeOutMs);
        std::string line = cmd.getCommand();
        if (cmd.needToCheck32Or64BitCommand() &&
            !chooseLine(cmd, checkHardwarePlatformOnSlaveNode(client.get()),
                        "Unknown hardware-platform of slave node.", line, result)) {
            return;
        }
        client->execute(withOptions(line, options), timeOutMs, &result);
    } catch (const CException& fault) {
        noderesult::fail(result, fault);
    }
}

CShellCommand* CShellCommandSet::findTypedCommand(const std::string& typed) const {
    if (CShellCommand* stored = findStoredCommand(typed)) {
        return stored;
    }
    ConfigErrorCollector unwanted;
    return findPossibleSupportedCommand(commandtext::withoutPath(typed), &unwanted);
}
