#pragma once

#include <string>

#include "CShellCommandSet.h"

// The level "ipmi": power, UID LED, ACPI state, cold reset and free raw requests through the
// node's management controller, by ipmitool on this machine over the network (lanplus). No agent
// is contacted: the node may be switched off.
//
// The user and password options are handed to ipmitool as typed, and so is everything else behind
// the command's name. The run status is 0 whatever ipmitool says; its exit code stands in the
// result, and its words (standard error included) are the summary.
//
// execute may run on several threads at once.
//
// The shell does not register it at its start: programs that link the library add it,
// docs/compatibility.md.
class CShellCommandSet_IPMI : public CShellCommandSet {
public:
    CShellCommandSet_IPMI();

    void execute(std::string commandLine, CNode* node, CResult& result,
                 unsigned int timeOutMs) override;
};
