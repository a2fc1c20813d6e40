#pragma once

#include <string>

// Where the shell's own files (KELSH_PATH) and the node agent's files (KELNODE_PATH) are
// installed. Every path ends in "/"; nothing else about a value is checked.
// The state belongs to the process, not to the object, and is guarded by a lock, so objects may be
// made on any thread. reload() reads the environment: nobody may change it at the same time.
class CSystemEnvironment {
public:
    // Reads the environment anew, as reload() does.
    CSystemEnvironment();

    void reload();

    std::string getKelshPath() const;
    std::string getKelnodePath() const;

    // True when the variable is unset or empty, so that the path is the built-in one.
    bool isDefaultKelshPathUsed() const;
    bool isDefaultKelnodePathUsed() const;
};
