#pragma once

#include "KelshConfig.h"
#include "ShellInterface.h"

// The interface of kelsh.cfg's INTERFACE=modern; kelsh(1) describes it.
class ModernInterface : public ShellInterface {
public:
    ModernInterface(const ShellParts& shellParts, const KelshConfig& settings)
        : shell(shellParts), config(settings) {}

    // Standard input is read only when there are no words on the command line, so that the shell
    // can stand in a loop that reads a list.
    std::list<std::string> words(int argc, char** argv) const override;
    // --version, -h and --help.
    std::optional<int> answer(const std::list<std::string>& words) const override;
    int runCommand(std::list<std::string>& words) override;
    int runLoop() override;

private:
    ShellParts shell;
    KelshConfig config;
};
