#pragma once

#include <vector>

// For a process that was just forked and must not keep the descriptors of its parent.
namespace descriptors {

// Closes every descriptor above 2 that is not named; -1 may be among the names.
void closeAllBut(std::vector<int> kept);

}  // namespace descriptors
