#include "CommandEngine.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <iostream>
#include <map>
#include <utility>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/thread.hpp>

#include "CCmdThreadResult.h"
#include "CCommandExecutionContext.h"
#include "CNode.h"
#include "CResult.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "CShellExecutionContext.h"
#include "CThreadWrapperOfCommand.h"
#include "CUtil.h"
#include "CommandOutcome.h"
#include "CommandProgress.h"
#include "CommandSequence.h"
#include "Confirmation.h"
#include "ResultSink.h"
#include "ShellLogging.h"
#include "StopWatch.h"
#include "Terminal.h"

// One thread, the caller's, finds the command, asks, starts one worker for each target, waits for
// them in turn and reports. A worker shares nothing with it but the place for its outcome; when it
// is late it is left alone, since what it does on the node may be a flash that nobody may cut
// short. Ctrl+C reaches the command run on this machine, if there is one, and otherwise has no
// effect but a message: all waits here go on after it.

namespace {

constexpr int kNothingRun = 7;
constexpr unsigned long kThreadRetryMs = 500;
constexpr char kMasterTarget[] = "local";

// Never destroyed, since the launcher reads it last of all.
std::atomic<unsigned int> abandoned{0};

unsigned int firstNonZero(std::initializer_list<unsigned int> candidates) {
    const auto found =
        std::find_if(candidates.begin(), candidates.end(), [](unsigned int t) { return t != 0; });
    return found != candidates.end() ? *found : 0;
}

}  // namespace

// What one call of execute() works on.
struct CommandEngine::Job {
    std::string request;  // as the set's execute takes it
    CShellCommand* command;
    CShellCommandSet* set;
    unsigned int timeOut;
    const std::map<std::string, CNode*>* nodes;
    ResultSink* results;
};

// One started target. Its result reads as timed out until a worker that was in time has said
// otherwise.
struct CommandEngine::Worker {
    Worker() = default;
    Worker(Worker&&) = default;
    Worker& operator=(Worker&&) = delete;
    ~Worker() {
        // Destroying the thread object detaches the thread.
        if (thread && thread->joinable()) {
            abandoned.fetch_add(1);
        }
    }
    CCmdThreadResult record() const { return {node, thread.get(), result.get()}; }

    CNode* node = nullptr;
    std::unique_ptr<CResult> result;
    std::shared_ptr<CommandOutcome> outcome;
    std::unique_ptr<boost::thread> thread;
};

CommandEngine::CommandEngine(CShellExecutionContext& shellContext, const CommandSequence& numbers,
                             ShellLogging& shellLog, std::string dumpDirectory)
    : CommandEngine(shellContext, numbers, shellLog, std::move(dumpDirectory),
                    [](const CThreadWrapperOfCommand& body) {
                        return std::make_unique<boost::thread>(body);
                    }) {}

CommandEngine::CommandEngine(CShellExecutionContext& shellContext, const CommandSequence& numbers,
                             ShellLogging& shellLog, std::string dumpDirectory,
                             ThreadStarter startThread)
    : context(shellContext),
      sequence(numbers),
      log(shellLog),
      dumps(std::move(dumpDirectory)),
      starter(std::move(startThread)) {}

std::shared_ptr<CommandProgress> CommandEngine::progress() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return current;
}

unsigned int CommandEngine::abandonedWorkers() {
    return abandoned.load();
}

int CommandEngine::execute(CCommandExecutionContext& request, ResultSink& results,
                           ConfigErrorCollector* errors) {
    return guarded([&] {
        Job job{request.getCommandRequest(), nullptr, nullptr, 0, &request.getNodeMap(), &results};
        job.command =
            context.findExeCommand(context.getPathToWorkingCommandSet(), job.request, errors);
        return job.command != nullptr ? executeJob(job, request) : kNothingRun;
    });
}

int CommandEngine::execute(CShellCommand& command, const std::string& line,
                           CCommandExecutionContext& request, ResultSink& results) {
    return guarded([&] {
        Job job{line, &command, nullptr, 0, &request.getNodeMap(), &results};
        return executeJob(job, request);
    });
}

int CommandEngine::guarded(const std::function<int()>& work) {
    try {
        return work();
    } catch (const boost::thread_interrupted&) {
        std::cout << "Thread interrupted in CShell::execute()...." << std::endl;
    } catch (const std::exception& failure) {
        std::cout << "std::exception in serve_a_request:" << failure.what() << std::endl;
    }
    return EXEC_FAILURE;
}

int CommandEngine::executeJob(Job& job, CCommandExecutionContext& request) {
    request.setValidCommand(true);
    Terminal::standard().release();
    log.pointResultsAt(dumps + "cmd_" + std::to_string(sequence.current()) + ".log");
    {
        const std::lock_guard<std::mutex> lock(mutex);
        current = std::make_shared<CommandProgress>(sequence.current());
    }
    job.set = job.command->getCommandSet();
    job.timeOut = firstNonZero({request.getTimeOut(), job.command->getTimeOut(),
                                job.set->getTimeOut(), request.getDefaultTimeOut()});
    if (job.command->getDestination() != MASTER) {
        return executeOnNodes(job, request);
    }
    const int status = executeOnMaster(job);
    request.setExecuted(true);
    return status;
}

int CommandEngine::executeOnMaster(const Job& job) {
    StopWatch watch;
    watch.start();
    Worker worker = startWorker(job, nullptr);
    awaitWorker(worker, job.timeOut);
    watch.stop();
    job.results->local(*worker.result);
    return job.results->finish(watch.getTime());
}

int CommandEngine::executeOnNodes(const Job& job, CCommandExecutionContext& request) {
    if (job.nodes->empty()) {
        return job.results->nothingRun(ResultSink::NothingRun::kNoTargets, job.request);
    }
    if (job.command->getCommandConfirmType() == ONCE &&
        !Confirmation(job.request, job.command->getCommandConfirmMessage())
             .askOnce(job.nodes->size())) {
        return job.results->nothingRun(ResultSink::NothingRun::kDeclined, job.request);
    }
    std::list<Worker> workers = startNodes(job);
    StopWatch watch;
    watch.start();
    for (Worker& worker : workers) {
        awaitWorker(worker, job.timeOut);
    }
    watch.stop();
    const int status = reportNodes(job, workers, watch.getTime());
    request.setExecuted(true);
    return status;
}

std::list<CommandEngine::Worker> CommandEngine::startNodes(const Job& job) {
    std::list<Worker> workers;
    const bool askEach = job.command->getCommandConfirmType() == EACH;
    const Confirmation confirmation(job.request, job.command->getCommandConfirmMessage());
    for (const auto& [name, node] : *job.nodes) {
        if (askEach) {
            const Confirmation::Answer answer =
                confirmation.askForNode(name, job.nodes->size() - workers.size());
            if (answer == Confirmation::Answer::kCancel) {
                break;
            }
            if (answer == Confirmation::Answer::kNo) {
                continue;
            }
        }
        workers.push_back(startWorker(job, node));
    }
    return workers;
}

CommandEngine::Worker CommandEngine::startWorker(const Job& job, CNode* node) {
    Worker worker;
    worker.node = node;
    worker.result = std::make_unique<CResult>();
    worker.result->setRunStatus(EXEC_TIMED_OUT);
    worker.outcome = std::make_shared<CommandOutcome>();
    const CThreadWrapperOfCommand body(
        job.request, *job.set, node, worker.outcome,
        progress()->add(node != nullptr ? node->getName() : kMasterTarget), job.timeOut);
    while (!worker.thread) {
        CThreadWrapperOfCommand::announce();
        try {
            worker.thread = starter(body);
        } catch (const boost::thread_resource_error&) {
            CThreadWrapperOfCommand::withdraw();
            std::cout << "Error in getting resource for a thread in CShell. Wait." << std::endl;
            CUtil::sleep(kThreadRetryMs);
        } catch (...) {
            CThreadWrapperOfCommand::withdraw();
            throw;
        }
    }
    return worker;
}

void CommandEngine::awaitWorker(Worker& worker, unsigned int timeOut) {
    bool ended = true;
    if (timeOut == 0) {
        worker.thread->join();
    } else {
        // The whole time-out for each, counted from here: no common deadline,
        // docs/compatibility.md.
        const boost::posix_time::milliseconds limit(static_cast<std::int64_t>(timeOut));
        ended = worker.thread->timed_join(limit);
    }
    // What comes after this is dropped. A worker that is late by its own clock has left nothing,
    // joined or not, and the result goes on reading as timed out.
    CResult inTime;
    if (worker.outcome->close(&inTime) && ended) {
        // One that gave up by itself says how long it took.
        *worker.result = std::move(inTime);
    } else {
        worker.result->setRunTime(static_cast<long>(timeOut));
    }
}

int CommandEngine::reportNodes(const Job& job, std::list<Worker>& workers, long elapsed) {
    if (workers.empty()) {
        return job.results->nothingRun(ResultSink::NothingRun::kEachDeclined, job.request);
    }
    while (!workers.empty()) {
        Worker& worker = workers.front();
        const CCmdThreadResult record = worker.record();
        CResult* result = record.getResult();
        const std::string name = record.getNode()->getName();
        job.results->node(*record.getNode(), *result);
        log.info("[Delete CResult for " + name + "]");
        worker.result.reset();
        log.info("[Before delete thread for " + name + "]");
        if (record.getThread() != nullptr) {
            log.info("[Delete thread for " + name + "]");
        }
        workers.pop_front();
    }
    return job.results->finish(elapsed);
}
