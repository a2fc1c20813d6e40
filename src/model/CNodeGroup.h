#pragma once

#include <list>
#include <string>

#include "CNode.h"

// A named collection of nodes and of other groups, each in the order added. Owns none of its
// members: they belong to the execution context and must outlive the group's use of them.
// Main thread only while it is built; read-only afterwards.
class CNodeGroup {
public:
    explicit CNodeGroup(std::string groupName);
    virtual ~CNodeGroup();

    std::string getName() const;
    // The live lists: not to be kept past the group's life.
    std::list<CNode*>& getNodes();
    const std::list<CNode*>& getNodes() const;
    std::list<CNodeGroup*>& getNodeGroups();
    const std::list<CNodeGroup*>& getNodeGroups() const;

    // Both throw CAlreadyExistException when a member of that name is there already (names are
    // compared byte for byte, whatever object bears them); the list is then unchanged.
    void addNode(CNode* node);
    void addGroup(CNodeGroup* group);

    // Every entry equal to the pointer goes; a pointer that is no member is no fault.
    void removeNode(CNode* node);
    void removeGroup(CNodeGroup* group);
    void removeAllNodes();
    void removeAllGroups();

    // Throws CAlreadyExistException when target is reachable from this group. Only a cycle through
    // target is found; no set of visited groups is kept, so a cycle elsewhere below must be ruled
    // out first by starting on its own members.
    void checkRecursiveReference(CNodeGroup* target);
    // The same with this group as the target.
    void startCheckingRecursiveReference();

private:
    std::string name;
    std::list<CNode*> nodes;
    std::list<CNodeGroup*> groups;
};
