// The command file: whatever stands in it, the tree is well formed, every command can be carried
// out, and the help text can be made of it.
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "CShellConfigReader.h"
#include "ConfigFuzz.h"

namespace {

void checkCommand(const CShellCommandSet& set, const std::string& name,
                  const CShellCommand& command) {
    require(command.getName() == name);
    require(command.getCommandSet() == &set);
    require(command.getType() >= BUILTIN && command.getType() <= DLLFUNCTION_OPT);
    require(command.getDestination() == MASTER || command.getDestination() == SLAVE);
    require(command.getCommand().empty() || !command.needToCheck32Or64BitCommand());
    for (const CCommandOption* option : command.getOptions()) {
        require(!option->getShortOptName().empty() || !option->getLongOptName().empty());
    }
}

void checkSets(const std::list<CShellCommandSet*>& sets, const CShellCommandSet* parent) {
    for (CShellCommandSet* set : sets) {
        require(set->getParentCommand() == parent);
        require(!set->getCommandSetName().empty() && !set->getDescription().empty());
        require(set->getCommandSetName().find('/') == std::string::npos);
        for (const auto& entry : set->getSupportedCommands()) {
            checkCommand(*set, entry.first, *entry.second);
        }
        checkSets(set->getChildCommands(), set);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    silenceStandardOutput();
    const FuzzStream stream(data, size);
    if (stream.get() == nullptr) {
        return 0;
    }
    CShellExecutionContext context;
    ConfigErrorCollector errors;
    CShellConfigReader::readCmdConfig(stream.get(), context, &errors);
    checkErrors(errors, 1, stream.mostLines());
    checkSets(context.getRootCommandSetList(), nullptr);
    require(!context.getUsage().empty());
    return 0;
}
