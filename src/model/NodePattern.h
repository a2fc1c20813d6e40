#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// One pattern of the node set grammar: text with any number of brackets in it, as in
// "r[1-2]n[01-40,50]". A range has two ends of one width if either of them is padded, and may have
// a step: [1-9/2]. Several brackets make the product, the last one running fastest.
class NodePattern {
public:
    NodePattern() = delete;

    static constexpr std::size_t kMostNames = 100000;

    // The names that the pattern stands for, each once, in the order written. Throws NodeSetError;
    // more names than most are refused before any is made.
    static std::vector<std::string> expand(std::string_view pattern, std::size_t most = kMostNames);
};
