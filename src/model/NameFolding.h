#pragma once

#include <string>
#include <vector>

// Names of nodes or groups as people read and type them: "node_[0001-0003,0007]" for four names.
// Every place that prints several names uses this, so that users can type again what they see.
//
// Only the last number of a name is folded, and ranges have no steps, so that other tools of the
// field can read them. A single number has no brackets. Leading zeros belong to the name: "n1" and
// "n01" are two nodes. A name that contains a character of the grammar stays as it is. Names are
// sorted by text, then by number, and each appears once.
std::string foldNames(const std::vector<std::string>& names);
