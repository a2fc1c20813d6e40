#pragma once

#include <string>

#include "CShellCommandSet.h"

// The level "mem": a node's memory usage, read through its agent. execute may run on several
// threads at once.
//
// The shell does not register it at its start: programs that link the library add it,
// docs/compatibility.md.
class CShellCommandSet_Mem : public CShellCommandSet {
public:
    CShellCommandSet_Mem();

    // Always gives the node kReadTimeOutMs, whatever timeOutMs says: a node that takes longer to
    // tell its memory usage is in trouble, and the command is there to say so quickly;
    // docs/compatibility.md.
    void execute(std::string commandLine, CNode* node, CResult& result,
                 unsigned int timeOutMs) override;

    static constexpr unsigned int kReadTimeOutMs = 5000;
};
