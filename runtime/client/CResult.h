#pragma once

#include <string>

// What became of one command on one target. The numbers are part of the interface: they are the
// exit status of a command run from the command line.
enum EXEC_STATUS_ENUM : int {
    EXEC_SUCCESS = 0,
    EXEC_REJECTED =
        1,  // found unfit before running, for example a node that is not the one configured
    EXEC_FAILURE = 2,    // reported by the command set
    EXEC_TIMED_OUT = 5,  // not finished in its time
};

// Why a command came to nothing, where the run status alone does not say it.
enum class RunEnd {
    kByStatus,      // the run status says it all
    kUnreachable,   // no connection to the node was made
    kSilent,        // the agent took the connection and did not answer in time
    kRefused,       // the agent, or one end of the connection, would not have it
    kNotStarted,    // the agent could not start it
    kWrongMachine,  // another machine than the configured one answers there
};

// The record of one command on one target: a plain value, owned by whoever declares it.
// Used by one thread at a time.
class CResult {
public:
    CResult();
    CResult(const CResult&) = default;
    CResult& operator=(const CResult&) = default;
    CResult(CResult&&) = default;
    CResult& operator=(CResult&&) = default;
    ~CResult();

    EXEC_STATUS_ENUM getRunStatus() const;
    void setRunStatus(EXEC_STATUS_ENUM status);
    void setRunStatus(int status);

    RunEnd getRunEnd() const { return runEnd; }
    void setRunEnd(RunEnd end) { runEnd = end; }

    // The exit code of the program run for the command; 128 + n for one ended by signal n.
    int getExitCode() const;
    void setExitCode(int code);

    // Milliseconds.
    long getRunTime() const;
    void setRunTime(long milliseconds);

    // The text shown to the user: the command's output or a message.
    std::string getRunSummary() const;
    // The same without a copy, until it is set again.
    const std::string& summary() const { return runSummary; }
    void setRunSummary(std::string summary);

    // Raw output kept beside the summary.
    std::string getExitOutput() const;
    void setExitOutput(std::string output);

    // The name of the run status, as result blocks show it between brackets.
    std::string getStatusEnumString() const;

private:
    EXEC_STATUS_ENUM runStatus = EXEC_SUCCESS;
    RunEnd runEnd = RunEnd::kByStatus;
    int exitCode = 0;
    long runTime = 0;
    std::string runSummary;
    std::string exitOutput;
};
