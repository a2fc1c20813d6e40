#pragma once

#include <string>

// Reads the version file: lines "VERSION=text" and "BUILD=text". Lines that begin with "#" are
// comments, keys may be in lower case, other keys are ignored. Does not change after construction.
class CVersionConfig {
public:
    // Throws CCannotOpenFileException when the file cannot be read, and CException when it holds no
    // version or no build.
    explicit CVersionConfig(const char* fileName);

    std::string getVersion() const;
    std::string getBuild() const;

private:
    std::string version;
    std::string build;
};
