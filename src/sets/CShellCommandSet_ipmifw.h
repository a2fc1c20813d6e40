#pragma once

#include <string>

#include "CShellCommandSet.h"

// The level "ipmifw": reads the revision of a controller's firmware and flashes it, for the two
// makers whose controllers are known, with their packaged tools on the node. Flashing is never cut
// short: not by the time-out, not by the end of this process.
//
// execute may run on several threads at once.
class CShellCommandSet_ipmifw : public CShellCommandSet {
public:
    CShellCommandSet_ipmifw();

    void execute(std::string commandLine, CNode* node, CResult& result,
                 unsigned int timeOutMs) override;

    // While the flag is set, "flash ipmi fw" flashes nothing, contacts no node, and reports a test
    // success. Process-wide, false at first; safe from any thread. Nothing in the shell sets it: it
    // is there for programs that link the library, docs/compatibility.md.
    static void setTestFlag(bool on);
    static bool getTestFlag();
};
