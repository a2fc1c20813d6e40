#pragma once

#include <string>

#include "CShellCommandSet.h"

// The level "node": adds, removes and queries node definitions of the provisioning system by its
// scripts on this machine. Nothing here touches the shell's own node file.
//
// The options are taken from the line by their short names with one blank behind them; long names
// are accepted when the line is checked but find no value here. Values are checked before a script
// line is built, so that nothing a user types reaches a shell as anything but an argument.
//
// execute may run on several threads at once.
//
// The shell does not register it at its start: programs that link the library add it,
// docs/compatibility.md.
class CShellCommandSet_Node : public CShellCommandSet {
public:
    // scriptDirectory ends in "/".
    explicit CShellCommandSet_Node(std::string scriptDirectory = "/opt/orvhpc/scripts/perceus/");

    // The result gets the script's exit code and output and, whatever the exit code, run status 0;
    // a value that is not well formed gives run status 2 and no script runs. node is not used, and
    // a script is not ended at the time-out: the caller stops waiting.
    void execute(std::string commandLine, CNode* node, CResult& result,
                 unsigned int timeOutMs) override;

private:
    void addNode(const std::string& options, CResult& result) const;
    void addNodeAndDeploy(const std::string& options, CResult& result) const;
    void addNodes(const std::string& options, CResult& result) const;
    void addNodesFromFile(const std::string& options, CResult& result) const;
    void deleteNode(const std::string& options, CResult& result) const;
    void listNodeStatus(const std::string& options, CResult& result) const;
    void runScript(const std::string& line, CResult& result) const;

    std::string scriptDirectory;
};
