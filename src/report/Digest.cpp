#include "Digest.h"

#include <cstdio>
#include <map>
#include <utility>

#include "NameFolding.h"

namespace {

using Nodes = std::vector<std::string>;

std::string headOf(unsigned int number, long ms, std::size_t count) {
    return "#" + std::to_string(number) + "  " + std::to_string(count) +
           (count == 1 ? " node in " : " nodes in ") + durationText(ms) + ":";
}

}  // namespace

std::string durationText(long ms) {
    constexpr long kMinute = 60000;
    constexpr long kHour = 60 * kMinute;
    if (ms < kMinute) {
        // Rounded down, so that 59.96 s is not shown as a minute's 60.0 s.
        const long tenths = ms / 100;
        return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s";
    }
    if (ms < kHour) {
        return std::to_string(ms / kMinute) + " m " + std::to_string(ms % kMinute / 1000) + " s";
    }
    return std::to_string(ms / kHour) + " h " + std::to_string(ms % kHour / kMinute) + " m";
}

std::string digestOf(unsigned int number, long ms, const std::vector<NodeOutcome>& outcomes) {
    // By cause, then by what tells failures apart.
    std::map<std::pair<Cause, std::string>, Nodes> groups;
    for (const NodeOutcome& outcome : outcomes) {
        const bool hasCode = outcome.cause == Cause::kFailed && outcome.exitCode;
        groups[{outcome.cause, hasCode ? " (exit " + std::to_string(*outcome.exitCode) + ")" : ""}]
            .push_back(outcome.node);
    }
    std::string line = headOf(number, ms, outcomes.size());
    const char* separator = " ";
    for (const auto& [group, nodes] : groups) {
        line +=
            separator + std::to_string(nodes.size()) + " " + causeWords(group.first) + group.second;
        if (group.first != Cause::kOk) {
            line += " " + foldNames(nodes);
        }
        separator = ", ";
    }
    return line;
}
