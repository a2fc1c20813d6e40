#include "ModernResults.h"

#include <algorithm>
#include <iostream>
#include <unistd.h>

#include "CNode.h"
#include "CResult.h"
#include "Digest.h"
#include "ExitStatus.h"
#include "FoldedBlocks.h"
#include "ResultBlock.h"
#include "ShellLogging.h"

namespace {

constexpr int kDeclinedStatus = 1;
constexpr int kEachDeclinedByLast = 7;

// Of what never ran on the node there is no exit code, nor of a failure that the shell has found
// in an answer.
bool hasExitCode(const NodeOutcome& outcome, const CResult& result) {
    return outcome.cause == Cause::kOk ||
           (outcome.cause == Cause::kFailed && result.getExitCode() != 0);
}

NodeOutcome outcomeOf(const CNode& node, const CResult& result) {
    NodeOutcome outcome;
    outcome.node = node.getName();
    outcome.address = node.getIp();
    outcome.mac = node.getMac();
    outcome.cause = ModernResults::causeOf(result);
    outcome.status = result.getRunStatus();
    if (hasExitCode(outcome, result)) {
        outcome.exitCode = result.getExitCode();
    }
    outcome.ms = result.getRunTime();
    outcome.text =
        failureHead(result.getRunStatus(), result.getExitCode(), result.getStatusEnumString()) +
        result.summary();
    return outcome;
}

}  // namespace

Cause ModernResults::causeOf(const CResult& result) {
    if (result.getRunStatus() == EXEC_SUCCESS) {
        return Cause::kOk;
    }
    switch (result.getRunEnd()) {
        case RunEnd::kUnreachable:
            return Cause::kUnreachable;
        case RunEnd::kSilent:
            return Cause::kTimedOut;
        case RunEnd::kRefused:
            return Cause::kRefused;
        case RunEnd::kNotStarted:
            return Cause::kNotStarted;
        case RunEnd::kWrongMachine:
            return Cause::kWrongMachine;
        case RunEnd::kByStatus:
            break;
    }
    switch (result.getRunStatus()) {
        case EXEC_TIMED_OUT:
            return Cause::kTimedOut;
        case EXEC_REJECTED:
            return Cause::kNotStarted;
        default:
            return Cause::kFailed;
    }
}

void ModernResults::local(const CResult& result) {
    const ResultBlock block("local", result, false);
    block.print();
    log.result(block.shown());
    lastStatus = result.getRunStatus();
}

void ModernResults::node(const CNode& node, const CResult& result) {
    const ResultBlock block(node.getName(), result, true);
    if (!settings.fold) {
        block.print();
    }
    log.result(block.shown());
    outcomes.push_back(outcomeOf(node, result));
    lastStatus = result.getRunStatus();
}

int ModernResults::finish(long ms) {
    if (outcomes.empty()) {
        return lastStatus;
    }
    if (settings.fold) {
        printWhole(foldedBlocks(outcomes));
    }
    showDigest(ms);
    return settings.exitStatus == KelshConfig::ExitStatus::kLast ? lastStatus
                                                                 : exitStatusOf(outcomes, false);
}

void ModernResults::showDigest(long ms) const {
    const bool allOk =
        std::all_of(outcomes.begin(), outcomes.end(),
                    [](const NodeOutcome& outcome) { return outcome.cause == Cause::kOk; });
    const bool shown =
        settings.digest == KelshConfig::Choice::kAlways ||
        (settings.digest == KelshConfig::Choice::kAuto && (!allOk || ::isatty(STDERR_FILENO) == 1));
    if (shown) {
        std::cout.flush();
        std::cerr << digestOf(number, ms, outcomes) << std::endl;
    }
}

int ModernResults::nothingRun(NothingRun why, const std::string& request) {
    const bool byLast = settings.exitStatus == KelshConfig::ExitStatus::kLast;
    switch (why) {
        case NothingRun::kNoTargets:
            std::cerr << "Please specify node(s) or group(s) for executing command \"" << request
                      << "\"." << std::endl;
            return byLast ? kDeclinedStatus : kNothingRunStatus;
        case NothingRun::kEachDeclined:
            return byLast ? kEachDeclinedByLast : kDeclinedStatus;
        case NothingRun::kDeclined:
            break;
    }
    return kDeclinedStatus;
}
