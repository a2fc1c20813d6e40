#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>

namespace boost {
class thread;
}
class CCommandExecutionContext;
class CNode;
class CShellCommand;
class CShellExecutionContext;
class CThreadWrapperOfCommand;
class CommandProgress;
class CommandSequence;
class ConfigErrorCollector;
class ResultSink;
class ShellLogging;

// Runs one command on its targets: finds it, asks for confirmation, starts one worker thread for
// each target, waits for them and has the results shown and logged.
//
// Everything happens on the calling thread but for the workers. A worker that did not finish in
// time is left running, and whoever owns the tree of commands keeps it for as long as
// CThreadWrapperOfCommand::running() is not 0. Owns nothing of what it is made with.
class CommandEngine {
public:
    // Starts a worker thread. Throws boost::thread_resource_error when there is no room for one.
    using ThreadStarter =
        std::function<std::unique_ptr<boost::thread>(const CThreadWrapperOfCommand&)>;

    //   numbers        names the dump file, by the number last taken
    //   dumpDirectory  where the dump files go, with a "/" at its end
    CommandEngine(CShellExecutionContext& shellContext, const CommandSequence& numbers,
                  ShellLogging& shellLog, std::string dumpDirectory);
    CommandEngine(CShellExecutionContext& shellContext, const CommandSequence& numbers,
                  ShellLogging& shellLog, std::string dumpDirectory, ThreadStarter startThread);
    CommandEngine(const CommandEngine&) = delete;
    CommandEngine& operator=(const CommandEngine&) = delete;

    // Hands the outcome of each target to results, which settles the exit status; 7 for an unknown
    // command, of which results hears nothing. Never throws.
    int execute(CCommandExecutionContext& request, ResultSink& results,
                ConfigErrorCollector* errors);

    // The same for a command that is not looked for: it is run with that line, which its set gets
    // as it is.
    int execute(CShellCommand& command, const std::string& line, CCommandExecutionContext& request,
                ResultSink& results);

    // How far the command is that runs, or ran last; null before the first. Safe from any thread.
    std::shared_ptr<CommandProgress> progress() const;

    // Workers given up at their time-out, of all engines of the process, since it started.
    static unsigned int abandonedWorkers();

private:
    struct Job;
    struct Worker;

    // Makes a failure of the engine itself a message and a status.
    static int guarded(const std::function<int()>& work);
    int executeJob(Job& job, CCommandExecutionContext& request);
    int executeOnMaster(const Job& job);
    int executeOnNodes(const Job& job, CCommandExecutionContext& request);
    std::list<Worker> startNodes(const Job& job);
    Worker startWorker(const Job& job, CNode* node);
    static void awaitWorker(Worker& worker, unsigned int timeOut);
    int reportNodes(const Job& job, std::list<Worker>& workers, long elapsed);

    CShellExecutionContext& context;
    const CommandSequence& sequence;
    ShellLogging& log;
    const std::string dumps;
    const ThreadStarter starter;
    mutable std::mutex mutex;
    std::shared_ptr<CommandProgress> current;  // guarded by mutex
};
