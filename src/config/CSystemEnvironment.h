#pragma once

#include <string>

// Where the files of the shell (KELSH_PATH) and of the agent (KELNODE_PATH) are installed. Every
// path ends in "/"; nothing else about a value is checked. The state belongs to the process and is
// guarded by a lock, so any thread may make objects. reload() reads the environment; nobody may
// change that at the same time.
class CSystemEnvironment {
public:
    // Reads the environment, as reload() does.
    CSystemEnvironment();

    void reload();

    std::string getKelshPath() const;
    std::string getKelnodePath() const;

    // True when the variable is unset or empty, so that the path is the built-in one.
    bool isDefaultKelshPathUsed() const;
    bool isDefaultKelnodePathUsed() const;
};
