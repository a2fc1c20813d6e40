#pragma once

#include <string>
#include <vector>

#include "NodeOutcome.h"

// The result blocks of a command for a terminal: nodes with the same text and the same cause are
// one block, in the order of their first names.
//     [node_[0000-0003,0007]] (5 nodes, 12-45ms)
//     ...
// A block of one node has the classic head, "[node_0000] (12ms)". Control characters of nodes are
// shown as \xNN and not obeyed. Each block ends in a newline.
std::string foldedBlocks(const std::vector<NodeOutcome>& outcomes);

// The words that stand in front of the text of anything but a success:
// "ExitCode:2/3[name], summary: ". Empty for status 0.
std::string failureHead(int status, int exitCode, const std::string& statusName);
