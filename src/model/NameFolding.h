#pragma once

#include <string>
#include <vector>

// Names of nodes or groups as people read and type them: "node_[0001-0003,0007]" for four names.
// Every place that prints several names uses this, so that what is printed can be typed again.
//
// Only the last number of a name is folded, and ranges never have steps, so that the other tools of
// the field can read them too. A single number stands without brackets. Leading zeros belong to the
// name: "n1" and "n01" are two nodes. A name that holds a character of the grammar itself is left
// as it is. Names come sorted by their text, then by their number; each is named once.
std::string foldNames(const std::vector<std::string>& names);
