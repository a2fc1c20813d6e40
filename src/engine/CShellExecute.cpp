#include <algorithm>
#include <atomic>
#include <csignal>
#include <exception>
#include <iostream>
#include <sstream>
#include <unistd.h>
#include <utility>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/thread.hpp>

#include "CCmdThreadResult.h"
#include "CNode.h"
#include "CShell.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "CShellExecutionContext.h"
#include "CThreadWrapperOfCommand.h"
#include "CUtil.h"
#include "CommandOutcome.h"
#include "ConfigErrorCollector.h"
#include "OutputFilter.h"
#include "SSLClient.h"
#include "ShellLogging.h"
#include "StopWatch.h"
#include "Terminal.h"

// The engine: one command, one worker for each target, the waits, the report.

namespace {

constexpr int kNothingRun = 7;
constexpr int kNotStarted = 1;
constexpr unsigned long kThreadRetryMs = 500;
constexpr char kDumpDirectory[] = "cmdexedump/";
constexpr char kMasterLabel[] = "[local]";

// Never destroyed, since the launcher reads it last of all.
std::atomic<unsigned int> abandoned{0};

unsigned int firstNonZero(std::initializer_list<unsigned int> candidates) {
    const auto found =
        std::find_if(candidates.begin(), candidates.end(), [](unsigned int t) { return t != 0; });
    return found != candidates.end() ? *found : 0;
}

// One key, asked for with the prompt; the newline that the user does not type is printed.
int askKey(const std::string& prompt) {
    // An answer that comes as soon as the question is seen must not be echoed by the terminal.
    const Terminal::Hold keyMode(Terminal::standard());
    std::cout << prompt << std::flush;
    const int key = CUtil::mygetch();
    std::cout << std::endl;
    return key;
}

std::string quotedCommand(const std::string& request) {
    return "Command \"" + request + "\" is canceled for ";
}

// Keeps Ctrl+C away from this thread for a moment. Its handler does not restart system calls, and
// the standard streams take an interrupted write for an error, after which they drop everything.
class InterruptHeld {
public:
    InterruptHeld() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        held = ::pthread_sigmask(SIG_BLOCK, &signals, &previous) == 0;
    }
    InterruptHeld(const InterruptHeld&) = delete;
    InterruptHeld& operator=(const InterruptHeld&) = delete;
    ~InterruptHeld() {
        if (held) {
            static_cast<void>(::pthread_sigmask(SIG_SETMASK, &previous, nullptr));
        }
    }

private:
    sigset_t previous{};
    bool held = false;
};

std::string withoutQuestionMark(std::string message) {
    CUtil::removeTailQuestionMark(&message);
    return message;
}

}  // namespace

// What one call of execute() works on.
struct CShell::Job {
    std::string request;  // as the set's execute takes it
    CShellCommand* command;
    CShellCommandSet* set;
    unsigned int timeOut;
    const std::map<std::string, CNode*>* nodes;
};

// One started target. Its result reads as timed out until a worker that was in time has said
// otherwise.
struct CShell::Worker {
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

unsigned int CShell::abandonedWorkers() {
    return abandoned.load();
}

int CShell::execute(CCommandExecutionContext* cmd, ConfigErrorCollector* errors) {
    try {
        return executeJob(cmd, errors);
    } catch (const boost::thread_interrupted&) {
        std::cout << "Thread interrupted in CShell::execute()...." << std::endl;
    } catch (const std::exception& failure) {
        std::cout << "std::exception in serve_a_request:" << failure.what() << std::endl;
    }
    return EXEC_FAILURE;
}

int CShell::executeJob(CCommandExecutionContext* cmd, ConfigErrorCollector* errors) {
    Job job{cmd->getCommandRequest(), nullptr, nullptr, 0, &cmd->getNodeMap()};
    job.command =
        context->findExeCommand(context->getPathToWorkingCommandSet(), job.request, errors);
    if (job.command == nullptr) {
        return kNothingRun;
    }
    cmd->setValidCommand(true);
    Terminal::standard().release();
    log->pointResultsAt(installPath + kDumpDirectory + "cmd_" + std::to_string(currentSequence) +
                        ".log");
    SSLClient::setCommandSequence(currentSequence);
    job.set = job.command->getCommandSet();
    job.timeOut = firstNonZero({cmd->getTimeOut(), job.command->getTimeOut(), job.set->getTimeOut(),
                                cmd->getDefaultTimeOut()});
    if (job.command->getDestination() != MASTER) {
        return executeOnNodes(job, cmd);
    }
    const int status = executeOnMaster(job);
    cmd->setExecuted(true);
    return status;
}

int CShell::executeOnMaster(const Job& job) {
    StopWatch watch;
    watch.start();
    Worker worker = startWorker(job, nullptr);
    awaitWorker(worker, job.timeOut);
    watch.stop();
    if (worker.result->getRunStatus() == EXEC_TIMED_OUT) {
        worker.result->setRunTime(std::min(watch.getTime(), static_cast<long>(job.timeOut)));
    }
    reportResult(kMasterLabel, *worker.result, false);
    return worker.result->getRunStatus();
}

int CShell::executeOnNodes(const Job& job, CCommandExecutionContext* cmd) {
    if (job.nodes->empty()) {
        std::cout << "Please specify node(s) or group(s) for executing command \"" << job.request
                  << "\"." << std::endl;
        return kNotStarted;
    }
    if (job.command->getCommandConfirmType() == ONCE && !confirmOnce(job)) {
        return kNotStarted;
    }
    std::list<Worker> workers = startNodes(job);
    StopWatch watch;
    watch.start();
    for (Worker& worker : workers) {
        awaitWorker(worker, job.timeOut);
    }
    watch.stop();
    const int status = reportNodes(workers, watch.getTime(), job.timeOut);
    cmd->setExecuted(true);
    return status;
}

bool CShell::confirmOnce(const Job& job) const {
    const std::string count = std::to_string(job.nodes->size());
    const std::string prompt = withoutQuestionMark(job.command->getCommandConfirmMessage()) +
                               " for " + count + " node(s)? [Yes/No]";
    for (;;) {
        switch (askKey(prompt)) {
            case 'y':
            case 'Y':
                return true;
            case 'n':
            case 'N':
            case -1:
                std::cout << quotedCommand(job.request) << count << " node(s)." << std::endl;
                return false;
            default:
                break;
        }
    }
}

CShell::Answer CShell::confirmNode(const Job& job, const std::string& nodeName) const {
    const std::string prompt = withoutQuestionMark(job.command->getCommandConfirmMessage()) +
                               " for " + nodeName + "?" + " [Yes/No/Cancel]";
    for (;;) {
        switch (askKey(prompt)) {
            case 'y':
            case 'Y':
                return Answer::kYes;
            case 'n':
            case 'N':
                return Answer::kNo;
            case 'c':
            case 'C':
            case -1:
                return Answer::kCancel;
            default:
                break;
        }
    }
}

std::list<CShell::Worker> CShell::startNodes(const Job& job) {
    std::list<Worker> workers;
    const bool askEach = job.command->getCommandConfirmType() == EACH;
    for (const auto& [name, node] : *job.nodes) {
        const Answer answer = askEach ? confirmNode(job, name) : Answer::kYes;
        if (answer == Answer::kCancel) {
            std::cout << quotedCommand(job.request) << job.nodes->size() - workers.size()
                      << " node(s)." << std::endl;
            break;
        }
        if (answer == Answer::kNo) {
            std::cout << quotedCommand(job.request) << name << "." << std::endl;
            continue;
        }
        workers.push_back(startWorker(job, node));
    }
    return workers;
}

CShell::Worker CShell::startWorker(const Job& job, CNode* node) {
    Worker worker;
    worker.node = node;
    worker.result = std::make_unique<CResult>();
    worker.result->setRunStatus(EXEC_TIMED_OUT);
    worker.outcome = std::make_shared<CommandOutcome>();
    const CThreadWrapperOfCommand body(job.request, *job.set, node, worker.outcome, job.timeOut);
    while (!worker.thread) {
        CThreadWrapperOfCommand::announce();
        try {
            worker.thread = startThread(body);
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

std::unique_ptr<boost::thread> CShell::startThread(const CThreadWrapperOfCommand& body) {
    return std::make_unique<boost::thread>(body);
}

void CShell::awaitWorker(Worker& worker, unsigned int timeOut) {
    bool ended = true;
    if (timeOut == 0) {
        worker.thread->join();
    } else {
        const boost::posix_time::milliseconds limit(static_cast<std::int64_t>(timeOut));
        ended = worker.thread->timed_join(limit);
    }
    // What comes after this is dropped. A worker that is late by its own clock has left nothing,
    // joined or not, and the result goes on reading as timed out.
    CResult inTime;
    if (worker.outcome->close(&inTime) && ended) {
        *worker.result = std::move(inTime);
    }
}

int CShell::reportNodes(std::list<Worker>& workers, long elapsed, unsigned int timeOut) {
    int status = kNothingRun;
    while (!workers.empty()) {
        Worker& worker = workers.front();
        const CCmdThreadResult record = worker.record();
        CResult* result = record.getResult();
        const std::string name = record.getNode()->getName();
        if (result->getRunStatus() == EXEC_TIMED_OUT) {
            result->setRunTime(std::min(elapsed, static_cast<long>(timeOut)));
        }
        reportResult("[" + name + "]", *result, true);
        status = result->getRunStatus();
        log->info("[Delete CResult for " + name + "]");
        worker.result.reset();
        log->info("[Before delete thread for " + name + "]");
        if (record.getThread() != nullptr) {
            log->info("[Delete thread for " + name + "]");
        }
        workers.pop_front();
    }
    return status;
}

void CShell::reportResult(const std::string& label, const CResult& result, bool fromNode) {
    std::ostringstream head;
    head << label << " (" << result.getRunTime() << "ms)\n";
    if (result.getRunStatus() != EXEC_SUCCESS) {
        head << "ExitCode:" << result.getRunStatus() << "/" << result.getExitCode() << "["
             << result.getStatusEnumString() << "], summary: ";
    }
    const std::string block = head.str() + result.summary();
    const InterruptHeld untilPrinted;
    if (fromNode && ::isatty(STDOUT_FILENO) == 1) {
        std::cout << head.str() << escapeForTerminal(result.summary()) << std::endl;
    } else {
        std::cout << block << std::endl;
    }
    log->result(block);
}
