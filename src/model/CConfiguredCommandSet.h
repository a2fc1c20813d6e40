#pragma once

#include <string>

#include "CShellCommandSet.h"

// A command set of the command configuration file. Options typed behind one of its commands are
// appended to the configured command line as they were typed. Ownership and threads as in the base.
class CConfiguredCommandSet : public CShellCommandSet {
public:
    CConfiguredCommandSet(std::string setName, std::string text);
    ~CConfiguredCommandSet() override;

    // As the base, where command may also be a command name and its options.
    void execute(std::string command, CNode* node, CResult& result, unsigned timeOut) override;
};
