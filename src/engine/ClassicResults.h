#pragma once

#include <string>

#include "ResultSink.h"

class ShellLogging;

// Shows the result of each target as a block: one after the other on standard output, and in the
// result log. On a terminal and in the log the control characters of a node's text are made
// visible; a pipe or a file gets the text as it is. The exit status is the run status of the last
// target. The log is not owned.
class ClassicResults : public ResultSink {
public:
    explicit ClassicResults(ShellLogging& shellLog) : log(shellLog) {}

    void local(const CResult& result) override;
    void node(const CNode& node, const CResult& result) override;
    int finish(long ms) override;
    // 7 when each node was declined, else 1.
    int nothingRun(NothingRun why, const std::string& request) override;

private:
    ShellLogging& log;
    int status = 0;
};
