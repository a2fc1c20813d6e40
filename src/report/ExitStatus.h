#pragma once

#include <vector>

#include "NodeOutcome.h"

// The exit status of a command on nodes, by precedence and not by time: one failed node among a
// thousand decides, whichever answered last.
//   interrupted  the user cancelled it with Ctrl+C
// 130 interrupted; 0 every node ok; 2 any failed; 1 any wrong machine, refused or not started;
// 5 any timed out or running; 3 any unreachable. A node that was cancelled without an interrupt
// counts as not started. No node at all is 0.
int exitStatusOf(const std::vector<NodeOutcome>& outcomes, bool interrupted);
