#pragma once

#include <vector>

// For processes just forked, which must not hold what is not theirs.
namespace descriptors {

// Closes every descriptor above 2 that is not named; -1 may be among the names.
void closeAllBut(std::vector<int> kept);

}  // namespace descriptors
