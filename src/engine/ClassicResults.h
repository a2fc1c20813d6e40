#pragma once

#include <string>

class CResult;
class ShellLogging;

// Shows the result of each target as a block: one after the other on standard output, and in the
// result log. On a terminal and in the log the control characters of a node's text are made
// visible; a pipe or a file gets the text as it is.
// Belongs to the thread that runs the command; the log is not owned.
class ClassicResults {
public:
    explicit ClassicResults(ShellLogging& shellLog) : log(shellLog) {}

    // The result of the command on this machine, and on the node of that name.
    void showLocal(const CResult& result) { show("local", result, false); }
    void showNode(const std::string& name, const CResult& result) { show(name, result, true); }

private:
    void show(const std::string& name, const CResult& result, bool fromNode);

    ShellLogging& log;
};
