#pragma once

#include <string>

#include "CShellCommandSet.h"

// The level "ipmikcs": the node's management controller from inside the node, over its KCS
// interface: power, UID LED, drivers, self-test, and flashing one maker's firmware.
//
// execute may run on several threads at once.
//
// The shell does not register it at its start: programs that link the library add it,
// docs/compatibility.md.
class CShellCommandSet_IPMIKCS : public CShellCommandSet {
public:
    CShellCommandSet_IPMIKCS();

    void execute(std::string commandLine, CNode* node, CResult& result,
                 unsigned int timeOutMs) override;
};
