#include "ClassicResults.h"

#include <iostream>

#include "CNode.h"
#include "CResult.h"
#include "ResultBlock.h"
#include "ShellLogging.h"

namespace {

constexpr int kEachDeclinedStatus = 7;
constexpr int kNotStarted = 1;

}  // namespace

void ClassicResults::local(const CResult& result) {
    const ResultBlock block("local", result, false);
    block.print();
    log.result(block.shown());
    status = result.getRunStatus();
}

void ClassicResults::node(const CNode& node, const CResult& result) {
    const ResultBlock block(node.getName(), result, true);
    block.print();
    log.result(block.shown());
    status = result.getRunStatus();
}

int ClassicResults::finish(long) {
    return status;
}

int ClassicResults::nothingRun(NothingRun why, const std::string& request) {
    if (why == NothingRun::kNoTargets) {
        std::cout << "Please specify node(s) or group(s) for executing command \"" << request
                  << "\"." << std::endl;
    }
    return why == NothingRun::kEachDeclined ? kEachDeclinedStatus : kNotStarted;
}
