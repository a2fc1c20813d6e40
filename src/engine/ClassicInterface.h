#pragma once

#include "ShellInterface.h"

// The interface that scripts of the sites rely on, byte for byte; docs/compatibility.md.
class ClassicInterface : public ShellInterface {
public:
    explicit ClassicInterface(const ShellParts& shellParts) : shell(shellParts) {}

    // A line that is piped in is appended to the words of the command line.
    std::list<std::string> words(int argc, char** argv) const override;
    std::optional<int> answer(const std::list<std::string>& words) const override;
    int runCommand(std::list<std::string>& words) override;
    int runLoop() override;

private:
    void descend(std::list<std::string>& words);

    ShellParts shell;
};
