#pragma once

#include <string>

// Where the shell's own files (KELSH_PATH) and the node agent's files (KELNODE_PATH) are installed.
// The state belongs to the process and is guarded by a lock; CSystemEnvironment is its public face.
namespace installpaths {

struct Place {
    std::string path;       // ends in "/"; nothing else about it is checked
    bool isDefault = true;  // the variable is unset or empty, so the path is the built-in one
};

// Reads the environment: nobody may change it at the same time.
void reload();
// As of the last reload(); without a path before the first.
Place kelsh();
Place kelnode();

}  // namespace installpaths
