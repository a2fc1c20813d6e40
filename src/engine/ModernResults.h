#pragma once

#include <vector>

#include "KelshConfig.h"
#include "NodeOutcome.h"
#include "ResultSink.h"

class ShellLogging;

// The results of one command in the modern interface: the blocks, folded where that is wanted, the
// digest on standard error, and an exit status in which any node counts. The log, which gets a
// block for each target as ever, is not owned.
class ModernResults : public ResultSink {
public:
    // What was nothing but wrong words, nodes or files.
    static constexpr int kNothingRunStatus = 64;

    struct Settings {
        bool fold;
        KelshConfig::Choice digest;
        KelshConfig::ExitStatus exitStatus;
    };

    //   commandNumber  as the digest names it
    ModernResults(ShellLogging& shellLog, unsigned int commandNumber, Settings chosen)
        : log(shellLog), number(commandNumber), settings(chosen) {}

    void local(const CResult& result) override;
    void node(const CNode& node, const CResult& result) override;
    int finish(long ms) override;
    int nothingRun(NothingRun why, const std::string& request) override;

    // Why the command ended as it did, by values alone.
    static Cause causeOf(const CResult& result);

private:
    void showDigest(long ms) const;

    ShellLogging& log;
    unsigned int number;
    Settings settings;
    std::vector<NodeOutcome> outcomes;  // of nodes
    int lastStatus = 0;
};
