#include "CShellCommandSet_Node.h"

#include <utility>

#include "CException.h"
#include "CResult.h"
#include "CShellCommand.h"
#include "CUtil.h"
#include "CommandTable.h"
#include "Console.h"

namespace {

constexpr char kNodeName[] = "The slave node name.";
constexpr char kNodeMac[] = "The slave node MAC address.";
constexpr char kNodeIp[] = "The slave node IP address.";
constexpr char kNodeImage[] = "The image file for the slave node.";

OptionRow compulsory(const char* shortName, const char* longName, const char* description) {
    return {shortName, longName, OPTION_COMPULSORY, OPTION_WITH_VALUE, description};
}

OptionRow optional(const char* shortName, const char* longName, const char* description) {
    return {shortName, longName, OPTION_MAY_BE_OMITTED, OPTION_WITH_VALUE, description};
}

const CommandTable& commandTable() {
    static const CommandTable table = {
        {"add nodes",
         "add new slave nodes configuration on Perceus.",
         BUILTIN_OPT,
         MASTER,
         {compulsory("c", "counts", "The slave node number."),
          compulsory("h", "hostname", "The slave node names."),
          compulsory("m", "mac", "The slave node MAC addresses."),
          optional("i", "ip", "The slave node IP addresses."),
          compulsory("I", "image", "The image file for the slave nodes.")},
         90000},
        {"add nodes from file",
         "add new slave nodes configuration from list file on Perceus.",
         BUILTIN_OPT,
         MASTER,
         {compulsory("f", "listfile", "The list file of slave nodes.")},
         90000},
        {"add node and deploy",
         "add a new slave node configuration on Perceus and wait till slave deploy.",
         BUILTIN_OPT,
         MASTER,
         {compulsory("t1", "timeout1", "The timeout of DHCP"),
          compulsory("t2", "timeout2", "The timeout of deploy"),
          compulsory("h", "hostname", kNodeName), compulsory("m", "mac", kNodeMac),
          optional("i", "ip", kNodeIp), compulsory("I", "image", kNodeImage)},
         600000},
        {"add node",
         "add a new slave node configuration on Perceus.",
         BUILTIN_OPT,
         MASTER,
         {compulsory("h", "hostname", kNodeName), compulsory("m", "mac", kNodeMac),
          optional("i", "ip", kNodeIp), compulsory("I", "image", kNodeImage)},
         30000},
        {"del node",
         "delete a slave node configuration on Perceus.",
         BUILTIN_OPT,
         MASTER,
         {compulsory("h", "hostname", "The list file of slave nodes.")},
         30000},
        {"list node status",
         "get slave node status",
         BUILTIN_OPT,
         MASTER,
         {optional("h", "hostname", kNodeName),
          {"a", "all", OPTION_MAY_BE_OMITTED, OPTION_WITHOUT_VALUE, "show status of all nodes"}},
         30000},
    };
    return table;
}

// Stops the command before anything is run; the message is on the console.
class InvalidValue : public CException {
public:
    InvalidValue(const std::string& complaint, const std::string& value)
        : CException(complaint + value) {}
};

// The value of an option, by its short name: the text behind the name and one blank, up to the next
// blank.
std::string valueOf(const std::string& option, const std::string& options) {
    const std::string name = option + " ";
    const std::string::size_type at = options.find(name);
    if (at == std::string::npos) {
        return "";
    }
    const std::string::size_type begin = at + name.size();
    return options.substr(begin, options.find(' ', begin) - begin);
}

// A shell runs the scripts. Only values that may hold a range may have brackets.
bool holdsShellCharacter(const std::string& text, const std::string& alsoForbidden) {
    return text.find_first_of("|&;<>()$`\\\"'*?#~{}!\n\r\t\v\f" + alsoForbidden) !=
           std::string::npos;
}

void checkHostname(const std::string& value) {
    if (!CUtil::validateHostnameFormat(value)) {
        throw InvalidValue("Invalid hostname format!! ", value);
    }
}

void checkMac(const std::string& value) {
    if (!CUtil::validateMACaddr(value, ":")) {
        throw InvalidValue("Invalid MAC format!! ", value);
    }
}

void checkIp(const std::string& value) {
    if (!CUtil::validateIPAddrFormat(value, 0)) {
        throw InvalidValue("Invalid IP format!! ", value);
    }
}

void checkEach(const std::string& list, void (*check)(const std::string&)) {
    std::string::size_type begin = 0;
    for (;;) {
        const std::string::size_type comma = list.find(',', begin);
        check(list.substr(begin, comma - begin));
        if (comma == std::string::npos) {
            return;
        }
        begin = comma + 1;
    }
}

void checkArgument(const std::string& value) {
    if (value.empty() || holdsShellCharacter(value, "[]")) {
        throw InvalidValue("Invalid argument!! ", value);
    }
}

void checkCount(const std::string& value) {
    const bool number = value.find_first_not_of("0123456789") == std::string::npos;
    if (!number || value.find_first_not_of('0') == std::string::npos) {
        throw InvalidValue("Invalid argument!! ", value);
    }
}

// The arguments that describe one node, checked and in the order of the scripts. Without an IP
// address there are two blanks in a row; the provisioning system then finds the address itself.
// docs/compatibility.md.
std::string nodeArguments(const std::string& options) {
    const std::string host = valueOf("-h", options);
    const std::string mac = valueOf("-m", options);
    const std::string ip = valueOf("-i", options);
    const std::string image = valueOf("-I", options);
    checkHostname(host);
    checkMac(mac);
    if (!ip.empty()) {
        checkIp(ip);
    }
    checkArgument(image);
    return host + " " + mac + " " + ip + " " + image;
}

}  // namespace

CShellCommandSet_Node::CShellCommandSet_Node(std::string directory)
    : CShellCommandSet("node", "Commands for node management."),
      scriptDirectory(std::move(directory)) {
    addCommands(*this, commandTable());
}

void CShellCommandSet_Node::execute(std::string commandLine, CNode* /*node*/, CResult& result,
                                    unsigned int /*timeOutMs*/) {
    struct Branch {
        const char* name;
        void (CShellCommandSet_Node::*run)(const std::string& options, CResult& result) const;
    };
    static constexpr Branch kBranches[] = {
        {"add nodes", &CShellCommandSet_Node::addNodes},
        {"add nodes from file", &CShellCommandSet_Node::addNodesFromFile},
        {"add node and deploy", &CShellCommandSet_Node::addNodeAndDeploy},
        {"add node", &CShellCommandSet_Node::addNode},
        {"del node", &CShellCommandSet_Node::deleteNode},
        {"list node status", &CShellCommandSet_Node::listNodeStatus},
    };
    const CShellCommand* command = findCommand(*this, commandLine);
    if (command == nullptr) {
        return;
    }
    for (const Branch& branch : kBranches) {
        const std::string commandName = branch.name;
        if (command->getName() != commandName) {
            continue;
        }
        // The options are the text behind the name and its blank.
        const std::string options = commandLine.size() > commandName.size()
                                        ? commandLine.substr(commandName.size() + 1)
                                        : "";
        try {
            (this->*branch.run)(options, result);
        } catch (const InvalidValue& invalid) {
            console::printLine(invalid.getErrMsg());
            result.setRunStatus(EXEC_FAILURE);
            result.setRunSummary(invalid.getErrMsg());
        }
        return;
    }
}

void CShellCommandSet_Node::addNode(const std::string& options, CResult& result) const {
    runScript("add_perceus_slave_node.sh " + nodeArguments(options), result);
}

void CShellCommandSet_Node::addNodeAndDeploy(const std::string& options, CResult& result) const {
    const std::string dhcpTimeOut = valueOf("-t1", options);
    const std::string deployTimeOut = valueOf("-t2", options);
    const std::string arguments = nodeArguments(options);
    checkArgument(dhcpTimeOut);
    checkArgument(deployTimeOut);
    const std::string line = "add_perceus_slave_node_and_deploy.sh " + arguments + " " +
                             dhcpTimeOut + " " + deployTimeOut;
    console::printLine(scriptDirectory + line);
    runScript(line, result);
}

void CShellCommandSet_Node::addNodes(const std::string& options, CResult& result) const {
    const std::string hosts = valueOf("-h", options);
    if (!CUtil::validateHostnameRangeFormat(hosts)) {
        throw InvalidValue("Invalid hostname format!! ", hosts);
    }
    checkEach(valueOf("-m", options), &checkMac);
    const std::string addresses = valueOf("-i", options);
    if (!addresses.empty()) {
        checkEach(addresses, &checkIp);
    }
    checkCount(valueOf("-c", options));
    checkArgument(valueOf("-I", options));
    // The script gets the whole text, so words that belong to no option are checked too.
    if (holdsShellCharacter(options, "")) {
        throw InvalidValue("Invalid argument!! ", options);
    }
    runScript("add_perceus_slave_nodes.sh " + options, result);
}

void CShellCommandSet_Node::addNodesFromFile(const std::string& options, CResult& result) const {
    checkArgument(valueOf("-f", options));
    checkArgument(options);
    runScript("add_perceus_slave_nodes.sh " + options, result);
}

void CShellCommandSet_Node::deleteNode(const std::string& options, CResult& result) const {
    const std::string host = valueOf("-h", options);
    checkArgument(host);
    const std::string line = "delete_perceus_slave_node.sh " + host;
    console::printLine(scriptDirectory + line);
    runScript(line, result);
}

void CShellCommandSet_Node::listNodeStatus(const std::string& options, CResult& result) const {
    std::string which = valueOf("-h", options);
    if (which.empty()) {
        which = "-a";
    }
    checkArgument(which);
    runScript("list_perceus_slave_node_status.sh " + which, result);
}

void CShellCommandSet_Node::runScript(const std::string& line, CResult& result) const {
    std::string output;
    const int exitCode = CUtil::exec_cmd(scriptDirectory + line, &output, &output);
    result.setExitCode(exitCode);
    result.setExitOutput(output);
    result.setRunSummary(output);
    result.setRunStatus(EXEC_SUCCESS);
}
