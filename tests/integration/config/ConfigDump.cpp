// Reads configuration files with the shell's readers and prints all that came of them, for a
// comparison with another reader. Standard input: one "kind<TAB>file name" per line, kind being
// node, cmd or ssl. Agents are not contacted: what a node's agent says follows from its port.

#include <cstdio>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

#include "CNodeGroup.h"
#include "CSSLConfig.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "CShellConfigReader.h"
#include "CShellExecutionContext.h"
#include "ConfigErrorCollector.h"
#include "NodeConfigFile.h"

namespace {

// Standard output of the readers is no part of what is compared.
class Silence {
public:
    Silence() : before(std::cout.rdbuf(nowhere.rdbuf())) {}
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;
    ~Silence() { std::cout.rdbuf(before); }

private:
    std::ostringstream nowhere;
    std::streambuf* before;
};

std::string quoted(const std::string& text) {
    std::string result = "\"";
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte >= 0x20 && byte < 0x7f && byte != '"' && byte != '\\') {
            result += character;
        } else {
            constexpr char digits[] = "0123456789abcdef";
            result += {'\\', 'x', digits[byte >> 4U], digits[byte & 15U]};
        }
    }
    return result + '"';
}

NodeAgentAnswer answerByPort(const CNode& node) {
    switch (node.getPort() % 4) {
        case 0:
            return {false, ""};
        case 1:
            return {true, node.getMac()};
        case 2:
            return {true, ""};
        default:
            return {true, "OTHER"};
    }
}

void printErrors(const ConfigErrorCollector& errors) {
    for (const ConfigError* error : errors.getErrorList()) {
        std::cout << "error " << error->getLine() << ' ' << error->getLevel() << ' '
                  << quoted(error->getErrorMessage()) << '\n';
    }
}

void printNodes(CShellExecutionContext& context) {
    for (const auto& entry : context.getNodeMap()) {
        const CNode& node = *entry.second;
        std::cout << "node " << quoted(entry.first) << ' ' << quoted(node.getName()) << ' '
                  << quoted(node.getMac()) << ' ' << quoted(node.getIp()) << ' ' << node.getPort()
                  << '\n';
    }
    for (CNodeGroup* group : context.getNodeGroupList()) {
        std::cout << "group " << quoted(group->getName());
        for (CNode* node : group->getNodes()) {
            std::cout << " node " << quoted(node->getName());
        }
        for (CNodeGroup* inner : group->getNodeGroups()) {
            std::cout << " group " << quoted(inner->getName());
        }
        std::cout << '\n';
    }
}

void printCommand(const CShellCommand& command) {
    std::cout << "command " << quoted(command.getName()) << ' ' << quoted(command.getDescription())
              << ' ' << quoted(command.getCommand()) << ' ' << quoted(command.get32Command()) << ' '
              << quoted(command.get64Command()) << ' ' << command.getType() << ' '
              << command.getDestination() << ' ' << command.getCommandConfirmType() << ' '
              << quoted(command.getCommandConfirmMessage()) << ' ' << command.getTimeOut() << '\n';
    for (const std::string& example : command.getExamples()) {
        std::cout << "example " << quoted(example) << '\n';
    }
    for (const CCommandOption* option : command.getOptions()) {
        std::cout << "option " << quoted(option->getShortOptName()) << ' '
                  << quoted(option->getLongOptName()) << ' ' << option->getIsCompulsory() << ' '
                  << option->getHasOptValue() << ' ' << quoted(option->getDescription()) << '\n';
    }
}

void printSets(const std::list<CShellCommandSet*>& sets, int depth) {
    for (CShellCommandSet* set : sets) {
        std::cout << "set " << depth << ' ' << quoted(set->getCommandSetName()) << ' '
                  << quoted(set->getDescription()) << ' ' << set->getCommandSetConfirmType() << ' '
                  << quoted(set->getCommandSetConfirmMessage()) << ' ' << set->getTimeOut() << '\n';
        for (const auto& entry : set->getSupportedCommands()) {
            printCommand(*entry.second);
        }
        printSets(set->getChildCommands(), depth + 1);
    }
}

void dumpNodeFile(FILE* file) {
    CShellExecutionContext context;
    ConfigErrorCollector errors;
    NodeConfigFile(context, &errors, answerByPort, 1).read(file);
    printErrors(errors);
    printNodes(context);
}

void dumpCmdFile(FILE* file) {
    CShellExecutionContext context;
    ConfigErrorCollector errors;
    {
        const Silence quiet;
        CShellConfigReader::readCmdConfig(file, context, &errors);
    }
    printErrors(errors);
    printSets(context.getRootCommandSetList(), 0);
}

void dumpSslFile(FILE* file) {
    { const CSSLConfig discardsTheInstance; }
    ConfigErrorCollector errors;
    CShellConfigReader::readSslConfig(file, &errors);
    printErrors(errors);
    const CSSLConfig& config = *CSSLConfig::getInstance();
    std::cout << "ssl " << quoted(config.getPrivateKeyFile()) << ' '
              << quoted(config.getPublicKeyFile()) << ' ' << quoted(config.getCertificateFile())
              << '\n';
}

}  // namespace

int main() {
    std::unique_ptr<CShellExecutionContext> versionComplaint;
    {
        const Silence quiet;
        versionComplaint = std::make_unique<CShellExecutionContext>();
    }
    std::string request;
    while (std::getline(std::cin, request)) {
        const std::string::size_type tab = request.find('\t');
        const std::string kind = request.substr(0, tab);
        const std::string name = tab == std::string::npos ? "" : request.substr(tab + 1);
        const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(name.c_str(), "re"),
                                                         &std::fclose);
        if (!file) {
            std::cerr << "cannot open " << name << '\n';
            return 1;
        }
        std::cout << "file " << name << '\n';
        if (kind == "node") {
            dumpNodeFile(file.get());
        } else if (kind == "cmd") {
            dumpCmdFile(file.get());
        } else {
            dumpSslFile(file.get());
        }
    }
    return 0;
}
