// The road of a typed line through dispatcher, sets, commands and options. The input's first line
// is the working level, the rest the typed line.
#include <cstdint>
#include <string>

#include "CCommandDispatcher.h"
#include "CShellCommandSet.h"
#include "CmdStrWithOption.h"
#include "ConfigErrorCollector.h"
#include "Require.h"

namespace {

CShellCommand* command(const char* name, COMMAND_TYPE type) {
    auto* cmd = new CShellCommand(name, "", "true", type, SLAVE);
    cmd->addOption(new CCommandOption("n", "node", type == SCRIPT_OPT ? 1 : 0, 1));
    cmd->addOption(new CCommandOption("f", "", 0, 0));
    cmd->addOption(new CCommandOption("", "path", 0, 1));
    return cmd;
}

struct Tree {
    Tree() : basic("BASIC", ""), tools("my-tools", "") {
        basic.addSupportedCommand(command("list node", BUILTIN_OPT));
        basic.addSupportedCommand(command("quit", BUILTIN));
        auto* ipmi = new CShellCommandSet("ipmi", "");
        ipmi->addSupportedCommand(command("reset", SCRIPT_OPT));
        basic.addChildCommand(ipmi);
        tools.addSupportedCommand(command("fw -show", SCRIPT));
        tools.addSupportedCommand(command("up", DLLFUNCTION_OPT));
        auto* disk = new CShellCommandSet("disk", "");
        disk->addSupportedCommand(command("up", BUILTIN_OPT));
        tools.addChildCommand(disk);
        for (CShellCommandSet* set : {&basic, ipmi, &tools, disk}) {
            dispatcher.registerCommand(set);
        }
    }

    CShellCommandSet basic;
    CShellCommandSet tools;
    CCommandDispatcher dispatcher;
};

void checkLookUp(Tree& tree, const std::string& level, const std::string& typed) {
    ConfigErrorCollector errors;
    std::string line = typed;
    const CShellCommand* found = tree.dispatcher.findExeCommand(level, line, &errors);
    if (found == nullptr) {
        require(line == typed);
        return;
    }
    require(errors.getSize() == 0);
    require(line.compare(0, found->getName().size(), found->getName()) == 0);
    require(found->validateCommand(line, &errors));
    require(found->getCommandSet()->findPossibleSupportedCommand(line, &errors) == found);
    if (found->getType() == SCRIPT || found->getType() == BUILTIN) {
        return;
    }
    std::string rest = line;
    for (const CCommandOption* option : found->getOptions()) {
        const std::string before = rest;
        const bool present = option->processOption(&rest);
        require(present ? rest.size() < before.size() : !option->getIsCompulsory());
        require(option->getOptionValue(line).size() <= line.size());
    }
    require(rest == found->getName());
}

void checkTextHelpers(const std::string& level, const std::string& typed) {
    const std::string whole = CCommandDispatcher::getCommandAndOptionPart(typed);
    require(CCommandDispatcher::getCommandAndOptionPart(whole) == whole);
    require(CCommandDispatcher::getCommandPart(typed).size() <= whole.size());
    ConfigErrorCollector errors;
    const CmdStrWithOption synopsis(level);
    if (synopsis.isExecutableCommand2(typed, &errors)) {
        require(errors.getSize() == 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Tree tree;
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::string::size_type end = input.find('\n');
    const std::string level = end == std::string::npos ? "" : input.substr(0, end);
    const std::string typed = end == std::string::npos ? input : input.substr(end + 1);
    checkLookUp(tree, level, typed);
    checkTextHelpers(level, typed);
    return 0;
}
