#include "CNodeGroup.h"

#include <algorithm>
#include <utility>

#include "CAlreadyExistException.h"

namespace {

template <class Member>
bool holdsName(const std::list<Member*>& members, const std::string& name) {
    return std::any_of(members.begin(), members.end(),
                       [&](const Member* member) { return member->getName() == name; });
}

}  // namespace

CNodeGroup::CNodeGroup(std::string groupName) : name(std::move(groupName)) {}

CNodeGroup::~CNodeGroup() = default;

std::string CNodeGroup::getName() const {
    return name;
}

std::list<CNode*>& CNodeGroup::getNodes() {
    return nodes;
}

const std::list<CNode*>& CNodeGroup::getNodes() const {
    return nodes;
}

std::list<CNodeGroup*>& CNodeGroup::getNodeGroups() {
    return groups;
}

const std::list<CNodeGroup*>& CNodeGroup::getNodeGroups() const {
    return groups;
}

void CNodeGroup::addNode(CNode* node) {
    if (holdsName(nodes, node->getName())) {
        throw CAlreadyExistException("The node " + node->getName() + " already exists!");
    }
    nodes.push_back(node);
}

void CNodeGroup::addGroup(CNodeGroup* group) {
    if (holdsName(groups, group->getName())) {
        throw CAlreadyExistException("The group " + group->getName() + " already exists!");
    }
    groups.push_back(group);
}

void CNodeGroup::removeNode(CNode* node) {
    nodes.remove(node);
}

void CNodeGroup::removeGroup(CNodeGroup* group) {
    groups.remove(group);
}

void CNodeGroup::removeAllNodes() {
    nodes.clear();
}

void CNodeGroup::removeAllGroups() {
    groups.clear();
}

void CNodeGroup::checkRecursiveReference(CNodeGroup* target) {
    for (CNodeGroup* group : groups) {
        if (group == target) {
            throw CAlreadyExistException("Error! group \"" + target->getName() +
                                         "\" has recursive reference.");
        }
        group->checkRecursiveReference(target);
    }
}

void CNodeGroup::startCheckingRecursiveReference() {
    if (!groups.empty()) {
        checkRecursiveReference(this);
    }
}
