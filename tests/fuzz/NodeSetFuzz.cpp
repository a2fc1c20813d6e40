// The grammar of node sets, alone and against nodes and groups. Whatever is typed: it is refused
// with a message that can be shown, or it gives names that are all there, each once, no more than
// allowed, and what they are folded to gives the same names again.

#include <algorithm>
#include <set>
#include <string>

#include "NodeNames.h"
#include "NodeSet.h"
#include "NodeSetError.h"
#include "Require.h"
#include "Text.h"

namespace {

// Larger sets are the same over again, only slower.
constexpr std::size_t kMost = 500;

class Site : public NodeNames {
public:
    bool hasNode(const std::string& name) const override { return nodes.count(name) != 0; }
    std::vector<std::string> allNodes() const override { return {nodes.begin(), nodes.end()}; }
    bool hasGroup(const std::string& name) const override { return name == "g" || name == "g1"; }
    std::vector<std::string> nodesOf(const std::string& group) const override {
        return group == "g" ? std::vector<std::string>{"n1", "n01", "n1"}
                            : std::vector<std::string>{"x[1]"};
    }

private:
    std::set<std::string> nodes{"n1", "n2", "n3", "n01", "n02", "r1n1", "x[1]", "a!b", "[", "@g"};
};

std::set<std::string> sorted(const NodeSet& set) {
    return {set.getNames().begin(), set.getNames().end()};
}

void check(const std::string& text, const NodeNames* known) {
    try {
        const NodeSet set = NodeSet::parse(text, known, kMost);
        const std::set<std::string> names = sorted(set);
        require(names.size() == set.size() && set.size() <= kMost);
        if (known != nullptr) {
            require(std::all_of(names.begin(), names.end(),
                                [&](const std::string& name) { return known->hasNode(name); }));
        }
        if (!set.empty()) {
            require(sorted(NodeSet::parse(set.fold(), known)) == names);
        }
    } catch (const NodeSetError& fault) {
        const std::string message = fault.getErrMsg();
        require(std::all_of(message.begin(), message.end(), Text::isPlain));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Site site;
    const std::string text(reinterpret_cast<const char*>(data), size);
    check(text, nullptr);
    check(text, &site);
    return 0;
}
