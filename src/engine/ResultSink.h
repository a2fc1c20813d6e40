#pragma once

#include <string>

class CNode;
class CResult;

// Where the engine hands what became of one command, a value for each target, and what settles the
// exit status. Made for one command. Used by the thread that runs the command.
class ResultSink {
public:
    enum class NothingRun {
        kNoTargets,     // the command wants nodes, and none was named
        kDeclined,      // the one question for all nodes was answered with No
        kEachDeclined,  // so was the question for each node
    };

    ResultSink() = default;
    ResultSink(const ResultSink&) = delete;
    ResultSink& operator=(const ResultSink&) = delete;
    virtual ~ResultSink() = default;

    // The result of the command on this machine.
    virtual void local(const CResult& result) = 0;
    // The result of the command on a node, in the order of the nodes' names.
    virtual void node(const CNode& node, const CResult& result) = 0;
    // All results have been handed over. Returns the exit status.
    //   ms  of the whole command
    virtual int finish(long ms) = 0;
    // In place of all of these. Returns the exit status.
    virtual int nothingRun(NothingRun why, const std::string& request) = 0;
};
