#pragma once

#include <string>

#include "CShellCommandSet.h"

// The level "mem": a node's memory usage, read through its agent. execute may run on several
// threads at once.
class CShellCommandSet_Mem : public CShellCommandSet {
public:
    CShellCommandSet_Mem();

    // Always gives the node kReadTimeOutMs, whatever timeOutMs says: a node that takes longer to
    // tell its memory usage is in trouble, and saying so quickly is the point of the command.
    void execute(std::string commandLine, CNode* node, CResult& result,
                 unsigned int timeOutMs) override;

    static constexpr unsigned int kReadTimeOutMs = 5000;
};
