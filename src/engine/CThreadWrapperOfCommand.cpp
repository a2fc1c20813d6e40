#include "CThreadWrapperOfCommand.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <utility>

#include <boost/thread/exceptions.hpp>

#include "CException.h"
#include "CNode.h"
#include "CResult.h"
#include "CSSLConfig.h"
#include "CShellCommandSet.h"
#include "CommandOutcome.h"
#include "NodeResult.h"
#include "SSLClient.h"
#include "StopWatch.h"
#include "TlsChannel.h"

namespace {

// Never destroyed, since workers may outlive main.
std::atomic<unsigned int> liveWorkers{0};

// A dead node must be reported with the reason, so the check may take a third of the command's time
// at most; 0 is the client's own limit.
unsigned int connectTimeOut(unsigned int timeOut) {
    return timeOut == 0 ? 0 : std::clamp(timeOut / 3, 1U, SSLClient::kConnectTimeOutMs);
}

// What the agent at the node's address says about itself.
struct Identity {
    std::string mac;      // empty when it cannot tell or cannot be reached
    std::string silence;  // set when it took the connection and then did not answer in time
};

// That the agent cannot be reached is for the command itself to report, if it needs the agent at
// all.
Identity askIdentity(const CNode& node, unsigned int timeOut) {
    Identity identity;
    try {
        SSLClient client(node.getIp(), static_cast<int>(node.getPort()),
                         CSSLConfig::getInstance()->getCertificateFile());
        client.initAndConnect(connectTimeOut(timeOut));
        identity.mac = client.getKelNodeMacAddress(node.getIp());
    } catch (const ChannelError& failure) {
        if (failure.kind() == ChannelError::Kind::kTimedOut) {
            identity.silence = failure.getErrMsg();
        }
    } catch (const CException&) {
        // As above: no answer counts as a match.
    }
    return identity;
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
      timeOut(limit) {}

CThreadWrapperOfCommand::CThreadWrapperOfCommand(std::string commandRequest,
                                                 CShellCommandSet& commandSet, CNode* target,
                                                 std::shared_ptr<CommandOutcome> outcome,
                                                 unsigned int limit)
    : request(std::move(commandRequest)),
      set(&commandSet),
      node(target != nullptr ? std::make_shared<const CNode>(*target) : nullptr),
      result(nullptr),
      sharedOutcome(std::move(outcome)),
      timeOut(limit) {}

void CThreadWrapperOfCommand::operator()() {
    const bool counted = sharedOutcome != nullptr;
    try {
        StopWatch watch;
        watch.start();
        CResult outcome;
        runCommand(outcome);
        watch.stop();
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
}

void CThreadWrapperOfCommand::runOnTarget(CResult& outcome) {
    if (!node) {
        set->execute(request, nullptr, outcome, timeOut);
        return;
    }
    CNode target(*node);
    const Identity identity = askIdentity(target, timeOut);
    if (!identity.mac.empty() && identity.mac != target.getMac()) {
        outcome.setRunStatus(EXEC_REJECTED);
        outcome.setRunEnd(RunEnd::kWrongMachine);
        outcome.setRunSummary("Node " + target.getName() + ": IP(" + target.getIp() + ") and MAC(" +
                              target.getMac() + ") are not matched!");
        return;
    }
    set->execute(request, &target, outcome, timeOut);
    // A node that hangs, and hung again when the command tried, has not failed the command: it was
    // out of time. Unlike a run that uses up the whole time-out, this one can say why.
    if (outcome.getRunStatus() == EXEC_FAILURE && !identity.silence.empty() &&
        outcome.getRunSummary() == identity.silence) {
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
