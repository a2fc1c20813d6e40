#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "NodePattern.h"

class NodeNames;

// Names of nodes, each once, in the order in which they came. A value.
//
// The grammar, which reads from left to right without precedence:
//     set  = term { op term }      op = "," union, "!" minus, "&" intersection, "^" difference of
//                                  both sides; blanks around a term do not count
//     term = pattern               NodePattern
//          | "@" pattern           the nodes of these groups
//          | "@*"                  every node
// A node whose own name holds characters of the grammar is found by that name first.
class NodeSet {
public:
    NodeSet() = default;
    explicit NodeSet(const std::vector<std::string>& nodeNames);

    // Reads a set. Every node and group must be among the names, also behind "!", so that a typing
    // error does not widen the set. With null any name is a node, and there are no groups.
    // Throws NodeSetError, for more names than most too, those of all terms counted together.
    static NodeSet parse(std::string_view text, const NodeNames* known,
                         std::size_t most = NodePattern::kMostNames);

    const std::vector<std::string>& getNames() const { return names; }
    std::size_t size() const { return names.size(); }
    bool empty() const { return names.empty(); }
    bool contains(const std::string& name) const { return members.count(name) != 0; }

    // The order of this set stays, what is new is appended.
    void unite(const NodeSet& other);
    void subtract(const NodeSet& other);
    void intersect(const NodeSet& other);
    // Keeps what is in one of the two only.
    void exclude(const NodeSet& other);

    // As it can be typed again; see foldNames().
    std::string fold() const;

private:
    void add(const std::string& name);
    template <typename Condition>
    void keepIf(Condition condition);

    std::vector<std::string> names;
    std::unordered_set<std::string> members;
};
