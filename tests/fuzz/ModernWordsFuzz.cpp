// The words of the modern interface: a line is a request that the dispatcher takes, or it is
// refused with a reason.
#include <memory>
#include <optional>

#include "CNode.h"
#include "CNodeGroup.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "CShellCommandSet_Basic.h"
#include "CShellExecutionContext.h"
#include "ConfigFuzz.h"
#include "ModernParser.h"

namespace {

CShellExecutionContext& shell() {
    static auto* context = [] {
        silenceStandardOutput();
        auto* made = new CShellExecutionContext(CShellExecutionContext::Temporary{});
        made->addCommandSet(new CShellCommandSet_Basic(made));
        auto* tools = new CShellCommandSet("t", "");
        auto* below = new CShellCommandSet("d", "");
        tools->addChildCommand(below);
        auto* df = new CShellCommand("df", "", "df", SCRIPT_OPT, SLAVE);
        df->addOption(new CCommandOption("h", "hh", 0, 0, ""));
        df->addOption(new CCommandOption("x", "fold", 0, 1, ""));
        tools->addSupportedCommand(df);
        below->addSupportedCommand(new CShellCommand("a b", "", "x", SCRIPT, SLAVE));
        made->addCommandSet(tools);
        made->addCommandSet(below);
        made->getNodeMap()["n"] = new CNode("n", "", "");
        made->getNodeGroupList().push_back(new CNodeGroup("g"));
        return made;
    }();
    return *context;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CShellExecutionContext& context = shell();
    const std::string line(reinterpret_cast<const char*>(data), size);
    const std::list<std::string> words = ModernParser::split(line);
    for (const std::string& word : words) {
        require(!word.empty());
    }
    ConfigErrorCollector errors;
    const std::optional<ModernParser::Request> request =
        ModernParser(context).parse(words, &errors);
    require(request.has_value() == (errors.getSize() == 0));
    checkErrors(errors, 0, 0);
    if (request) {
        require(!request->command.getCommandRequest().empty());
    }
    return 0;
}
