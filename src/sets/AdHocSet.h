#pragma once

#include "CShellCommandSet.h"

// The set behind the command "run": a line as it was typed, run by the shell of each node. It is in
// no tree of commands; whoever reads a line with "run" in it hands it to the engine.
class AdHocSet : public CShellCommandSet {
public:
    static constexpr char kCommandName[] = "run";

    AdHocSet();

    // The one command of the set.
    CShellCommand& command() const;

    // Runs the line, byte for byte, on the node. Every outcome is in the result.
    void execute(std::string line, CNode* node, CResult& result, unsigned timeOutMs) override;
};
