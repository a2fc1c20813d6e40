#pragma once

#include <list>
#include <memory>
#include <string>

#include "CCommandExecutionContext.h"
#include "CResult.h"
#include "RequestParser.h"  // removeOneArg
#include "ShellSignals.h"   // signalHandler
#include "StartUpWarnings.h"

class CShellExecutionContext;
class CommandEngine;
class CommandSequence;
class ConfigErrorCollector;
class ShellInterface;
class ShellLogging;

// The shell: start-up and its three modes (validation, one command, interactive). It keeps what
// they share; requests are made by RequestParser, run by CommandEngine and, at a prompt, read by
// InteractiveLoop.
//
// Make one, call run once, destroy it. Everything runs on the calling thread, but for the workers
// that execute() starts, one per target. A worker that did not finish in time is left running; if
// one still runs when the shell is destroyed, what it refers to is left in place, and the process
// must end without running exit handlers (see abandonedWorkers()).
class CShell {
public:
    // Throws boost::interprocess::interprocess_exception when the sequence semaphore cannot be
    // opened.
    CShell();
    CShell(const CShell&) = delete;
    CShell& operator=(const CShell&) = delete;
    virtual ~CShell();

    // The whole program; returns the process's exit status.
    int run(int argc, char** argv);

    // Logging and configuration start-up of the two modes that run commands. False when the
    // configuration has errors, which are then printed.
    bool init(std::list<std::string>& args, CShellExecutionContext& ctx);

    // Registers the built-in command sets, then reads all configuration files. What is wrong goes
    // into the collector.
    void buildContext(CShellExecutionContext& ctx, ConfigErrorCollector* errors);

    // Reads one node configuration file into a context of its own, for its errors only.
    void validate(ConfigErrorCollector* errors, const char* file);

    // Takes the program options out of the words. Returns 0; any other value makes run end with 0.
    int processProgramOption(std::list<std::string>& args, CShellExecutionContext& ctx,
                             ConfigErrorCollector* errors);

    // Builds the request of one command from a line, or from words, of which the target and
    // time-out options are taken out. The caller owns the result, which is never null; unknown
    // nodes and groups and bad time-outs go into the collector.
    CCommandExecutionContext* processCommandOption(std::string line, CShellExecutionContext& ctx,
                                                   ConfigErrorCollector* errors);
    CCommandExecutionContext* processCommandOption(std::list<std::string>& words,
                                                   CShellExecutionContext& ctx,
                                                   ConfigErrorCollector* errors);

    // Marks the request valid when it names a known command, see RequestParser.
    void validateCommand(CCommandExecutionContext* cmd);

    // Runs one command on its targets and reports each result on standard output and in the logs.
    // Returns the run status of the last target; 7 for an unknown command or when every node was
    // declined; 1 when there is no target or the user cancelled. Never throws.
    int execute(CCommandExecutionContext* cmd, ConfigErrorCollector* errors);

    // The sequence counter file; neither of these two takes a lock.
    unsigned int readCmdSeqFromFile();
    void writeCmdSeqToFile(unsigned int n);
    // Takes the next command sequence number, which becomes the current one.
    unsigned int getNextCmdSeq();

    // The state of the shell; lives as long as the shell.
    CShellExecutionContext& getExecutionContext();

    // Workers that have not ended yet, of all shells of the process.
    static unsigned int runningWorkers();
    // Workers given up at their time-out, of all shells of the process, since it started. Unless 0,
    // the process must end by _exit: a thread of them may still be at work inside a library whose
    // exit handler would free what it uses.
    static unsigned int abandonedWorkers();

    // The locks for OpenSSL versions that need them from the program. OpenSSL 3 does not and
    // ignores them; they are part of the interface, docs/compatibility.md. May be called
    // repeatedly: each init_locks needs its kill_locks.
    static void init_locks();
    static void kill_locks();
    static void lock_callback(int mode, int type, const char* file, int line);
    static unsigned long thread_id();

private:
    struct Locks {
        Locks() { init_locks(); }
        Locks(const Locks&) = delete;
        Locks& operator=(const Locks&) = delete;
        ~Locks() { kill_locks(); }
    };

    int runValidation(const std::list<std::string>& words);
    int runOneCommand(ShellInterface& interface, std::list<std::string>& words);
    int runInteractive(ShellInterface& interface, std::list<std::string>& words);
    // By kelsh.cfg, whose findings go to standard error; null when it has errors.
    std::unique_ptr<ShellInterface> makeInterface() const;
    bool start(std::list<std::string>& words);
    void validateInto(CShellExecutionContext& scratch, ConfigErrorCollector* errors,
                      const char* file);

    Locks locks;
    std::unique_ptr<CShellExecutionContext> context;
    std::string installPath;
    std::unique_ptr<CommandSequence> sequence;
    std::unique_ptr<ShellLogging> log;
    std::unique_ptr<CommandEngine> engine;
    StartUpWarnings warnings;
};
