#pragma once

#include <string>

#include "CShellCommandSet.h"

// The level "halo": the commands of the hardware monitor. They answer with fixed texts; nothing
// runs on the node. execute may run on several threads at once.
//
// The shell does not register it at its start: programs that link the library add it,
// docs/compatibility.md.
class CShellCommandSet_HALO : public CShellCommandSet {
public:
    CShellCommandSet_HALO();

    // A line that is none of the commands leaves the result untouched.
    void execute(std::string commandLine, CNode* node, CResult& result,
                 unsigned int timeOutMs) override;
};
