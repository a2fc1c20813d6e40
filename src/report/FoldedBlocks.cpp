#include "FoldedBlocks.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "NameFolding.h"
#include "OutputFilter.h"

namespace {

struct Block {
    const NodeOutcome* first;  // in the order of names
    std::vector<std::string> nodes;
    long shortest;
    long longest;
};

std::string headOf(const Block& block) {
    const std::string times =
        block.shortest == block.longest
            ? std::to_string(block.longest) + "ms"
            : std::to_string(block.shortest) + "-" + std::to_string(block.longest) + "ms";
    if (block.nodes.size() == 1) {
        return "[" + block.nodes.front() + "] (" + times + ")\n";
    }
    return "[" + foldNames(block.nodes) + "] (" + std::to_string(block.nodes.size()) + " nodes, " +
           times + ")\n";
}

struct Same {
    Cause cause;
    std::string_view text;
    bool operator==(const Same& other) const { return cause == other.cause && text == other.text; }
};

struct HashOfSame {
    std::size_t operator()(const Same& same) const {
        return std::hash<std::string_view>()(same.text) * 31 + static_cast<std::size_t>(same.cause);
    }
};

}  // namespace

std::string foldedBlocks(const std::vector<NodeOutcome>& outcomes) {
    std::vector<const NodeOutcome*> byName;
    byName.reserve(outcomes.size());
    for (const NodeOutcome& outcome : outcomes) {
        byName.push_back(&outcome);
    }
    std::sort(byName.begin(), byName.end(), [](const NodeOutcome* left, const NodeOutcome* right) {
        return left->node < right->node;
    });
    std::vector<Block> blocks;
    std::unordered_map<Same, std::size_t, HashOfSame> places;
    for (const NodeOutcome* outcome : byName) {
        const auto [place, isNew] =
            places.emplace(Same{outcome->cause, outcome->text}, blocks.size());
        if (isNew) {
            blocks.push_back({outcome, {}, outcome->ms, outcome->ms});
        }
        Block& block = blocks[place->second];
        block.nodes.push_back(outcome->node);
        block.shortest = std::min(block.shortest, outcome->ms);
        block.longest = std::max(block.longest, outcome->ms);
    }
    std::string text;
    for (const Block& block : blocks) {
        text += headOf(block) + escapeForTerminal(block.first->text) + "\n";
    }
    return text;
}

std::string failureHead(int status, int exitCode, const std::string& statusName) {
    if (status == 0) {
        return std::string();
    }
    return "ExitCode:" + std::to_string(status) + "/" + std::to_string(exitCode) + "[" +
           statusName + "], summary: ";
}
