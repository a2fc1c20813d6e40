#pragma once

#include <memory>
#include <string>

class CNode;
class CResult;
class CShellCommandSet;
class CommandOutcome;
class NodeCall;

// What one worker thread does for one target of a command: it checks that the node at the
// configured address is the configured machine, has the command set carry out the command, and
// hands the outcome back if it was ready in time.
//
// Cheap to copy (boost::thread copies it). It works on its own copies of the request and the node,
// taken when it is made, since it may run on after the engine has given it up; the command set must
// live until it ends. No exception leaves it.
//
// It ends by its own clock: at the time-out every wait for the node ends, and nothing further is
// begun there. Only once it has begun what must not be cut short does it go on.
class CThreadWrapperOfCommand {
public:
    // commandRequest  the command line, as the set's execute takes it
    // commandSet      the set that owns the command; not owned
    // target          null for a command of the master; copied
    // callersResult   not owned; must live until the run ends. Written once, at the end, and only
    //                 when the run took less than the time-out
    // limit           the time-out in milliseconds; 0 means none
    CThreadWrapperOfCommand(std::string commandRequest, CShellCommandSet& commandSet, CNode* target,
                            CResult* callersResult, unsigned int limit);
    // The engine's form, with a place for the outcome that outlives both sides: where the run is
    // too late, or the place is closed, the outcome is dropped. announce() must have been called
    // for each thread that runs such an object.
    //   theCall  travels with every request to the node; never null
    CThreadWrapperOfCommand(std::string commandRequest, CShellCommandSet& commandSet, CNode* target,
                            std::shared_ptr<CommandOutcome> outcome,
                            std::shared_ptr<NodeCall> theCall, unsigned int limit);

    // The thread's body.
    void operator()();

    // The engine's count of workers that have not ended. announce() comes before a thread is
    // started, withdraw() when it could not be; the worker itself counts down as its last act, so
    // that 0 means that no worker will touch a command set again.
    static void announce();
    static void withdraw();
    static unsigned int running();

private:
    void runCommand(CResult& outcome);
    void runOnTarget(CResult& outcome);

    std::string request;
    CShellCommandSet* set;
    std::shared_ptr<const CNode> node;
    CResult* result;
    std::shared_ptr<CommandOutcome> sharedOutcome;
    std::shared_ptr<NodeCall> call;
    unsigned int timeOut;
};
