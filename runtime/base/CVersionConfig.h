#pragma once

#include <string>

// The version file: lines "VERSION=text" and "BUILD=text"; comment lines begin with "#", keys are
// case-insensitive, other keys are ignored. Read once, at construction; immutable afterwards.
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
