#pragma once

#include <list>
#include <memory>
#include <string>
#include <utility>

#include "CException.h"
#include "CResult.h"

class CNode;
class SSLClient;

// Stops a command with a run status of its own; a plain CException means status 2.
class CommandStopped : public CException {
public:
    CommandStopped(int status, std::string summary)
        : CException(std::move(summary)), runStatus(status) {}
    int getRunStatus() const { return runStatus; }

private:
    int runStatus;
};

// One run of a packaged tool whose outcome is read back from a file.
struct PackagedRun {
    std::list<std::string> packagedFiles;  // the first is the program
    std::string arguments;                 // redirections included
    // The file that the run writes and that is read back afterwards; empty when there is none.
    std::string log;
    std::string preCommand = "";  // shell text before the tool, ending in ";"
    std::list<std::string> companionFiles = {};
    // What writes firmware, CMOS or BIOS configuration must not be cut short.
    bool uninterruptible = false;
};

// What the built-in sets do on one node, with SSLClient: find the node's install directory, copy
// files, run packaged tools, read their logs. Belongs to one worker and one command.
//
// The connection is opened on first use and closed while files are copied, so that a node never
// serves more than one connection of a command. Every member that talks to the node throws
// CException when that fails, and CommandStopped when the command must end with another status.
class CNodeSession {
public:
    // The node must outlive the session; null throws. The time-out, in milliseconds, applies to
    // each agent call; 0 means no limit.
    CNodeSession(CNode* target, unsigned int timeOut);
    CNodeSession(const CNodeSession&) = delete;
    CNodeSession& operator=(const CNodeSession&) = delete;
    ~CNodeSession();

    // The session's own connection. Do not keep it beyond the next call of a member.
    SSLClient& agent();
    std::string nodeName() const;

    // The node's install directory, with a trailing "/".
    const std::string& nodePath();
    // A path below it, quoted for a shell line.
    std::string shellPath(const std::string& below);

    // Runs a shell line on the node and returns its outcome. With uninterruptible the agent does
    // not cut it short, and refuses it while another such job runs.
    CResult execute(const std::string& commandLine, bool uninterruptible = false);

    // Runs a shell line that writes a log and must not be cut short. A line that outlives its
    // time-out throws CommandStopped with status 5.
    struct LoggedJob {
        CResult outcome;
        bool logIsNew;  // false: what lies there, if anything, was left by an earlier run
    };
    LoggedJob executeLogged(const std::string& commandLine, const std::string& log);

    // Runs a packaged tool. Throws when nothing was run or when the log was not written by this
    // run, so that a phrase of an earlier run never counts. A run that takes longer than its
    // time-out throws CommandStopped with status 5.
    CResult run(const PackagedRun& run);
    // Runs the line that reads a log back and returns what it prints.
    std::string readBack(const std::string& commandLine);

    // The same, and whether the phrase is found in it.
    bool readsBack(const std::string& commandLine, const std::string& phrase);
    // Reads a whole file; throws CommandStopped when it cannot be read.
    std::string readFile(const std::string& file);

    // Copies a file of the master to the node, to the same path. Throws CommandStopped: with
    // missingMessage when the master has no such file, and with the reason when the copy failed.
    void saveFile(const std::string& path, const std::string& missingMessage);
    // Copies a file of the node to the master; the outcome is that of the Basic set's "get file".
    CResult getFile(const std::string& path);
    // Makes the directory for a file that a tool will write. Throws CommandStopped for a path that
    // is not absolute, since such a file could not be fetched.
    void makeDirectoryOf(const std::string& path);

    // Asks the node to reboot. The outcome of that does not change the command's.
    void reboot();

private:
    std::string identityOf(const std::string& file);
    CResult transfer(const std::string& command, const std::string& path);

    CNode& node;
    unsigned int timeOutMs;
    std::string installPath;
    std::unique_ptr<SSLClient> client;
};

// Sets the outcome of a command that ran a tool: the set's status and message, with the exit code
// and the output of the run.
void conclude(CResult& result, const CResult& run, int status, const std::string& summary);

// Runs a tool whose whole log is the answer. Status 2 only when the run failed without output.
void showAnswer(CNodeSession& session, const PackagedRun& run, CResult& result);

// Sets run status and summary for an exception that stopped the command.
void reportFailure(const CException& failure, CResult& result);
