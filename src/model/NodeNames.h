#pragma once

#include <string>
#include <vector>

// What the grammar of node sets may name. Implementations are asked by one thread at a time.
class NodeNames {
public:
    NodeNames() = default;
    NodeNames(const NodeNames&) = delete;
    NodeNames& operator=(const NodeNames&) = delete;
    virtual ~NodeNames() = default;

    virtual bool hasNode(const std::string& name) const = 0;
    // Every node, in the order in which they are to be worked on.
    virtual std::vector<std::string> allNodes() const = 0;

    virtual bool hasGroup(const std::string& name) const = 0;
    // The nodes of a group that is there, those of the groups in it included. A node may come more
    // than once.
    virtual std::vector<std::string> nodesOf(const std::string& group) const = 0;
};
