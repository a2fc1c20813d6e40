#pragma once

#include <list>
#include <string>

#include "CNode.h"

// A named list of nodes and of other groups, each in the order added. It owns none of them: they
// belong to the execution context and must outlive the group's use of them. Built on the main
// thread, only read afterwards.
class CNodeGroup {
public:
    explicit CNodeGroup(std::string groupName);
    virtual ~CNodeGroup();

    std::string getName() const;
    // The lists themselves. Do not keep them beyond the life of the group.
    std::list<CNode*>& getNodes();
    const std::list<CNode*>& getNodes() const;
    std::list<CNodeGroup*>& getNodeGroups();
    const std::list<CNodeGroup*>& getNodeGroups() const;

    // Both throw CAlreadyExistException when a member of that name is there (names are compared
    // byte for byte); the list is then unchanged.
    void addNode(CNode* node);
    void addGroup(CNodeGroup* group);

    // Removes every entry equal to the pointer. A pointer that is no member is ignored.
    void removeNode(CNode* node);
    void removeGroup(CNodeGroup* group);
    void removeAllNodes();
    void removeAllGroups();

    // Throws CAlreadyExistException when target can be reached from this group. It does not
    // remember the groups it has visited and finds only a circle through target: check the members
    // first to rule out other circles.
    void checkRecursiveReference(CNodeGroup* target);
    // The same with this group as the target.
    void startCheckingRecursiveReference();

private:
    std::string name;
    std::list<CNode*> nodes;
    std::list<CNodeGroup*> groups;
};
