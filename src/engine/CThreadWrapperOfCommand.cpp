#include "CThreadWrapperOfCommand.h"

#include <atomic>
#include <exception>
#include <optional>
#include <utility>

#include <boost/thread/exceptions.hpp>

#include "CException.h"
#include "CNode.h"
#include "CResult.h"
#include "CShellCommandSet.h"
#include "ChannelError.h"
#include "CommandOutcome.h"
#include "NodeAccess.h"
#include "NodeCall.h"
#include "NodeResult.h"
#include "SSLClient.h"
#include "StopWatch.h"

namespace {

// Never destroyed, since workers may outlive main.
std::atomic<unsigned int> liveWorkers{0};

// What the agent at the node's address says about itself; empty when it cannot tell or cannot be
// reached. That it cannot be reached is for the command itself to report, if it needs the agent at
// all: no answer counts as a match.
std::string askIdentity(const CNode& node, unsigned int timeOut) {
    try {
        return nodeaccess::connect(node, timeOut)->getKelNodeMacAddress(node.getIp());
    } catch (const CException&) {
        return "";
    }
}

void reject(CResult& outcome, const CNode& node) {
    outcome = CResult();
    outcome.setRunStatus(EXEC_REJECTED);
    outcome.setRunEnd(RunEnd::kWrongMachine);
    outcome.setRunSummary("Node " + node.getName() + ": IP(" + node.getIp() + ") and MAC(" +
                          node.getMac() + ") are not matched!");
}

void fail(CResult& outcome, const std::string& reason) {
    outcome.setRunStatus(EXEC_FAILURE);
    outcome.setRunSummary(reason);
}

}  // namespace

CThreadWrapperOfCommand::CThreadWrapperOfCommand(std::string commandRequest,
                                                 CShellCommandSet& commandSet, CNode* target,
                                                 CResult* callersResult, unsigned int limit)
    : request(std::move(commandRequest)),
      set(&commandSet),
      node(target != nullptr ? std::make_shared<const CNode>(*target) : nullptr),
      result(callersResult),
      call(std::make_shared<NodeCall>(0)),
      timeOut(limit) {}

CThreadWrapperOfCommand::CThreadWrapperOfCommand(std::string commandRequest,
                                                 CShellCommandSet& commandSet, CNode* target,
                                                 std::shared_ptr<CommandOutcome> outcome,
                                                 std::shared_ptr<NodeCall> theCall,
                                                 unsigned int limit)
    : request(std::move(commandRequest)),
      set(&commandSet),
      node(target != nullptr ? std::make_shared<const CNode>(*target) : nullptr),
      result(nullptr),
      sharedOutcome(std::move(outcome)),
      call(std::move(theCall)),
      timeOut(limit) {}

void CThreadWrapperOfCommand::operator()() {
    const bool counted = sharedOutcome != nullptr;
    try {
        StopWatch watch;
        watch.start();
        call->endAfter(timeOut);
        CResult outcome;
        runCommand(outcome);
        watch.stop();
        call->enter(NodeCall::Phase::kEnded);
        const long elapsed = watch.getTime();
        if (timeOut == 0 || elapsed < static_cast<long>(timeOut)) {
            outcome.setRunTime(elapsed);
            if (sharedOutcome) {
                sharedOutcome->publish(std::move(outcome));
            } else if (result != nullptr) {
                *result = outcome;
            }
        }
    } catch (const boost::thread_interrupted&) {
        // Whoever interrupts a worker has no use for its outcome.
    }
    sharedOutcome.reset();
    if (counted) {
        withdraw();
    }
}

void CThreadWrapperOfCommand::runCommand(CResult& outcome) {
    try {
        runOnTarget(outcome);
    } catch (const CException& failure) {
        noderesult::fail(outcome, failure);
    } catch (const boost::thread_interrupted&) {
        throw;
    } catch (const std::exception& failure) {
        fail(outcome, failure.what());
    } catch (...) {
        fail(outcome, "The command failed for an unknown reason.");
    }
    if (call->foundOtherNode()) {
        // Not the identity check but a later connection led to it.
        reject(outcome, *node);
    }
}

void CThreadWrapperOfCommand::runOnTarget(CResult& outcome) {
    if (!node) {
        call->enter(NodeCall::Phase::kRunning);
        set->execute(request, nullptr, outcome, timeOut);
        return;
    }
    CNode target(*node);
    target.setCall(call);
    call->expect(target.getMac());
    const std::string mac = askIdentity(target, timeOut);
    if (!mac.empty() && mac != target.getMac()) {
        reject(outcome, target);
        return;
    }
    // Who the node is may be known from before, and then nothing has been asked yet.
    const bool hung = call->lastDialFailure()
                          ? *call->lastDialFailure() == ChannelError::Kind::kTimedOut
                          : !call->wasHeard();
    call->noteDial(std::nullopt);
    set->execute(request, &target, outcome, timeOut);
    // A node that hangs, and hung again when the command tried, has not failed the command: it was
    // out of time. Unlike a run that uses up the whole time-out, this one can say why.
    if (outcome.getRunStatus() == EXEC_FAILURE && hung &&
        call->lastDialFailure() == ChannelError::Kind::kTimedOut) {
        outcome.setRunStatus(EXEC_TIMED_OUT);
    }
}

void CThreadWrapperOfCommand::announce() {
    liveWorkers.fetch_add(1, std::memory_order_relaxed);
}

void CThreadWrapperOfCommand::withdraw() {
    // Release, so that who reads 0 sees everything that the worker has done.
    liveWorkers.fetch_sub(1, std::memory_order_release);
}

unsigned int CThreadWrapperOfCommand::running() {
    return liveWorkers.load(std::memory_order_acquire);
}
