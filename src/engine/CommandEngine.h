#pragma once

#include <functional>
#include <list>
#include <memory>
#include <string>

#include "ClassicResults.h"

namespace boost {
class thread;
}
class CCommandExecutionContext;
class CNode;
class CShellExecutionContext;
class CThreadWrapperOfCommand;
class CommandSequence;
class ConfigErrorCollector;
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

    // Returns the run status of the last target; 7 for an unknown command or when every node was
    // declined; 1 when there is no target or the user cancelled. Never throws.
    int execute(CCommandExecutionContext& request, ConfigErrorCollector* errors);

    // Workers given up at their time-out, of all engines of the process, since it started.
    static unsigned int abandonedWorkers();

private:
    struct Job;
    struct Worker;

    int executeJob(CCommandExecutionContext& request, ConfigErrorCollector* errors);
    int executeOnMaster(const Job& job);
    int executeOnNodes(const Job& job, CCommandExecutionContext& request);
    std::list<Worker> startNodes(const Job& job);
    Worker startWorker(const Job& job, CNode* node);
    static void awaitWorker(Worker& worker, unsigned int timeOut);
    int reportNodes(std::list<Worker>& workers, long elapsed, unsigned int timeOut);

    CShellExecutionContext& context;
    const CommandSequence& sequence;
    ShellLogging& log;
    const std::string dumps;
    const ThreadStarter starter;
    ClassicResults results;
};
