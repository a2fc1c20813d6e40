#pragma once

#include <string>
#include <vector>

#include "NodeOutcome.h"

// The line that ends a command on nodes: how many nodes, how long, how many of each cause, and who
// they are where they are not ok. Causes without nodes are left out; failures with different exit
// codes stand apart. Without a newline.
//     #42  64 nodes in 4.2 s: 61 ok, 2 failed (exit 3) node_[0002,0017], 1 timed out node_0040
//   ms  of the whole command
std::string digestOf(unsigned int number, long ms, const std::vector<NodeOutcome>& outcomes);

// "4.2 s"; from a minute on "2 m 5 s", from an hour on "1 h 2 m".
std::string durationText(long ms);
