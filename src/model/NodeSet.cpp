#include "NodeSet.h"

#include <algorithm>

#include "NameFolding.h"
#include "NodeNames.h"
#include "NodeSetError.h"
#include "Text.h"

namespace {

constexpr char kOperators[] = ",!&^";
// A name with one of these may be taken for something else.
constexpr char kSpecial[] = "[]!&^@/";
constexpr char kBlanks[] = " \t";

bool isOperator(char c) {
    return std::string_view(kOperators).find(c) != std::string_view::npos;
}

class Expression {
public:
    Expression(std::string_view wholeText, const NodeNames* knownNames, std::size_t mostNames)
        : text(wholeText), known(knownNames), most(mostNames) {
        if (known != nullptr) {
            specialNames = known->allNodes();
            specialNames.erase(std::remove_if(specialNames.begin(), specialNames.end(),
                                              [](const std::string& name) {
                                                  return name.find_first_of(kSpecial) ==
                                                         std::string::npos;
                                              }),
                               specialNames.end());
        }
    }

    NodeSet value() {
        NodeSet set = term();
        while (at < text.size()) {
            const char op = text[at++];
            const NodeSet other = term();
            switch (op) {
                case '!':
                    set.subtract(other);
                    break;
                case '&':
                    set.intersect(other);
                    break;
                case '^':
                    set.exclude(other);
                    break;
                default:
                    set.unite(other);
            }
        }
        return set;
    }

private:
    // Reads a term and leaves "at" at the operator behind it.
    NodeSet term() {
        at = std::min(text.find_first_not_of(kBlanks, at), text.size());
        std::size_t end = endOfExactName();
        if (end != at) {
            const std::string name = trimmed(end);
            at = end;
            return NodeSet({name});
        }
        end = endOfTerm();
        const std::string written = trimmed(end);
        if (written.empty()) {
            throw NodeSetError(Text::printable(text, kShownBytes) + ": a name is missing " +
                               (end < text.size() ? std::string("in front of \"") + text[end] + "\""
                                                  : "at the end"));
        }
        at = end;
        NodeSet found = written.front() == '@' ? groups(written) : nodes(written);
        count += found.size();
        if (count > most) {
            throw NodeSetError(Text::printable(written, kShownBytes) + ": more than " +
                               std::to_string(most) + " names in all");
        }
        return found;
    }

    std::string trimmed(std::size_t end) const {
        return Text::trimmed(std::string(text.substr(at, end - at)));
    }

    // The end of the longest node name with special characters that stands here as a whole term;
    // "at" when there is none.
    std::size_t endOfExactName() const {
        std::size_t longest = at;
        const std::string_view rest = text.substr(at);
        for (const std::string& name : specialNames) {
            const std::size_t next =
                std::min(rest.find_first_not_of(kBlanks, name.size()), rest.size());
            if (Text::startsWith(rest, name) && (next == rest.size() || isOperator(rest[next]))) {
                longest = std::max(longest, at + next);
            }
        }
        return longest;
    }

    std::size_t endOfTerm() const {
        bool inside = false;
        std::size_t end = at;
        while (end < text.size() && (inside || !isOperator(text[end]))) {
            inside = text[end] == '[' || (inside && text[end] != ']');
            ++end;
        }
        return end;
    }

    NodeSet nodes(const std::string& pattern) const {
        const std::vector<std::string> names = NodePattern::expand(pattern, most);
        for (const std::string& name : names) {
            if (known != nullptr && !known->hasNode(name)) {
                refuse(name, pattern, "node");
            }
        }
        return NodeSet(names);
    }

    NodeSet groups(const std::string& written) const {
        const std::string pattern = written.substr(1);
        if (known != nullptr && pattern == "*") {
            return NodeSet(known->allNodes());
        }
        if (known == nullptr) {
            throw NodeSetError(Text::printable(written, kShownBytes) +
                               ": no groups are known here");
        }
        NodeSet found;
        if (known->hasGroup(pattern)) {
            return NodeSet(known->nodesOf(pattern));
        }
        for (const std::string& group : NodePattern::expand(pattern, most)) {
            if (!known->hasGroup(group)) {
                refuse("@" + group, written, "group");
            }
            found.unite(NodeSet(known->nodesOf(group)));
        }
        return found;
    }

    [[noreturn]] static void refuse(const std::string& name, const std::string& written,
                                    const char* what) {
        const std::string missing = name == written ? std::string("such ") + what
                                                    : what + (" \"" + Text::printable(name) + "\"");
        throw NodeSetError(Text::printable(written, kShownBytes) + ": there is no " + missing);
    }

    static constexpr std::size_t kShownBytes = 200;

    std::string_view text;
    const NodeNames* known;
    std::size_t most;
    std::vector<std::string> specialNames;  // nodes that the grammar would take apart
    std::size_t at = 0;
    std::size_t count = 0;  // of the names of all terms
};

}  // namespace

NodeSet::NodeSet(const std::vector<std::string>& nodeNames) {
    names.reserve(nodeNames.size());
    for (const std::string& name : nodeNames) {
        add(name);
    }
}

NodeSet NodeSet::parse(std::string_view text, const NodeNames* known, std::size_t most) {
    return Expression(text, known, most).value();
}

void NodeSet::unite(const NodeSet& other) {
    for (const std::string& name : other.names) {
        add(name);
    }
}

void NodeSet::subtract(const NodeSet& other) {
    keepIf([&](const std::string& name) { return !other.contains(name); });
}

void NodeSet::intersect(const NodeSet& other) {
    keepIf([&](const std::string& name) { return other.contains(name); });
}

void NodeSet::exclude(const NodeSet& other) {
    NodeSet added = other;
    added.subtract(*this);
    subtract(other);
    unite(added);
}

std::string NodeSet::fold() const {
    return foldNames(names);
}

void NodeSet::add(const std::string& name) {
    if (members.insert(name).second) {
        names.push_back(name);
    }
}

template <typename Condition>
void NodeSet::keepIf(Condition condition) {
    names.erase(std::remove_if(names.begin(), names.end(),
                               [&](const std::string& name) {
                                   if (condition(name)) {
                                       return false;
                                   }
                                   members.erase(name);
                                   return true;
                               }),
                names.end());
}
