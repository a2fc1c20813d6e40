#include "ContextNodeNames.h"

#include <set>

#include "CNode.h"
#include "CNodeGroup.h"
#include "CShellExecutionContext.h"

namespace {

// A group that was entered before adds nothing, so that a circle ends.
void appendNodes(const CNodeGroup& group, std::set<const CNodeGroup*>& entered,
                 std::vector<std::string>& names) {
    if (!entered.insert(&group).second) {
        return;
    }
    for (const CNode* node : group.getNodes()) {
        names.push_back(node->getName());
    }
    for (const CNodeGroup* inner : group.getNodeGroups()) {
        appendNodes(*inner, entered, names);
    }
}

}  // namespace

bool ContextNodeNames::hasNode(const std::string& name) const {
    return context.getNodeMap().count(name) != 0;
}

std::vector<std::string> ContextNodeNames::allNodes() const {
    std::vector<std::string> names;
    for (const auto& entry : context.getNodeMap()) {
        names.push_back(entry.first);
    }
    return names;
}

bool ContextNodeNames::hasGroup(const std::string& name) const {
    return findGroup(name) != nullptr;
}

std::vector<std::string> ContextNodeNames::nodesOf(const std::string& group) const {
    std::vector<std::string> names;
    std::set<const CNodeGroup*> entered;
    if (const CNodeGroup* found = findGroup(group)) {
        appendNodes(*found, entered, names);
    }
    return names;
}

const CNodeGroup* ContextNodeNames::findGroup(const std::string& name) const {
    for (const CNodeGroup* group : context.getNodeGroupList()) {
        if (group->getName() == name) {
            return group;
        }
    }
    return nullptr;
}
