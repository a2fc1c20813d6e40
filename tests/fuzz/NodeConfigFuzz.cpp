// The node file: whatever stands in it, nodes have the names they are known by, groups hold only
// members of the context, and no group reaches itself.

#include <set>

#include "CNodeGroup.h"
#include "ConfigFuzz.h"
#include "NodeConfigFile.h"

namespace {

void checkGroups(CShellExecutionContext& context) {
    std::set<const CNodeGroup*> above;
    for (CNodeGroup* group : context.getNodeGroupList()) {
        for (CNode* node : group->getNodes()) {
            const auto known = context.getNodeMap().find(node->getName());
            require(known != context.getNodeMap().end() && known->second == node);
        }
        for (CNodeGroup* inner : group->getNodeGroups()) {
            require(above.count(inner) == 1);
        }
        group->startCheckingRecursiveReference();
        above.insert(group);
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
    const auto byPort = [](const CNode& node) {
        return NodeAgentAnswer{node.getPort() % 2 == 0, "02:00:00:00:00:01"};
    };
    // Starting threads would cost more than all the reading.
    NodeConfigFile(context, &errors, byPort, 1).read(stream.get());
    checkErrors(errors, 1, stream.mostLines());
    for (const auto& entry : context.getNodeMap()) {
        require(entry.first == entry.second->getName());
    }
    checkGroups(context);
    return 0;
}
