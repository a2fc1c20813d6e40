#include "JobSupervisor.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <limits>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>
#include <utility>

#include "CException.h"
#include "Descriptors.h"
#include "Posix.h"
#include "ProcessTree.h"
#include "Text.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kGrace(5000);
constexpr milliseconds kEndLimit(60000);
constexpr int kToolPollMs = 20;
constexpr int kLastSignal = 64;
// What was in the environment of whoever started the agent is none of a job's business: it would
// differ from node to node, and may hold secrets.
constexpr const char* kFixedEnvironment[] = {"HOME=/root", "USER=root", "LOGNAME=root",
                                             "SHELL=/bin/sh", "LANG=C.UTF-8"};
constexpr char kDefaultPath[] = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

std::string utcNow() {
    const time_t now = ::time(nullptr);
    tm parts{};
    ::gmtime_r(&now, &parts);
    char text[40];
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &parts));
}

// Not started for a reason that is not a fault: somebody else is at it.
class Refused : public CException {
public:
    using CException::CException;
};

}  // namespace

JobSupervisor::JobSupervisor(const JobSettings& jobSettings, const JobRequest& jobRequest,
                             UniqueFd controlSocket, UniqueFd jobOutput, std::string fileName)
    : settings(jobSettings),
      request(jobRequest),
      control(std::move(controlSocket)),
      output(std::move(jobOutput)),
      outputFile(std::move(fileName)),
      directory(jobSettings.runPath()),
      firmwareLock(directory),
      startedAt(Clock::now()) {
    if (request.timeOutMs > 0) {
        deadline = startedAt + milliseconds(request.timeOutMs);
    }
}

void JobSupervisor::run() {
    try {
        becomeSupervisor();
        if (start()) {
            watch();
        }
    } catch (const std::exception& fault) {
        settings.log->error(std::string("a job's supervisor failed: ") +
                            Text::printable(fault.what()));
        // The session's side of the socket now sees an end without a report.
        ::_exit(EXIT_FAILURE);
    }
    ::_exit(EXIT_SUCCESS);
}

void JobSupervisor::becomeSupervisor() {
    // Away from the agent's terminal and process group, so that nothing sent there arrives here.
    ::setsid();
    ::prctl(PR_SET_NAME, "kelnode-job");
    if (::prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) {
        Posix::throwErrno("cannot become the job's reaper");
    }
    keepOnlyOwnDescriptors();
    for (const int ignored : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGXFSZ, SIGUSR1, SIGUSR2}) {
        ::signal(ignored, SIG_IGN);
    }
    ::signal(SIGTERM, SIG_DFL);
    ::signal(SIGCHLD, SIG_DFL);
    sigset_t watched;
    ::sigemptyset(&watched);
    ::sigaddset(&watched, SIGCHLD);
    ::sigaddset(&watched, SIGTERM);
    ::sigprocmask(SIG_SETMASK, &watched, nullptr);
    signals.reset(::signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!signals) {
        Posix::throwErrno("cannot watch for the job's end");
    }
}

void JobSupervisor::keepOnlyOwnDescriptors() {
    // The connection above all: while this process held it, the shell could not see it end.
    ::closelog();
    descriptors::closeAllBut({control.get(), output.get(), settings.log->descriptor()});
    const UniqueFd nothing(::open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!nothing || ::dup2(nothing.get(), STDIN_FILENO) < 0 ||
        ::dup2(nothing.get(), STDOUT_FILENO) < 0) {
        Posix::throwErrno("cannot open /dev/null");
    }
}

bool JobSupervisor::start() {
    try {
        prepare();
        spawn();
        report(JobReport::Kind::kStarted, protocol::Result());
        return true;
    } catch (const Refused& busy) {
        endAudit("not started: " + busy.getErrMsg());
        reportNotStarted(protocol::kErrorRefused, busy.getErrMsg());
    } catch (const CException& fault) {
        endAudit("not started: " + fault.getErrMsg());
        reportNotStarted(protocol::kErrorNotStarted, fault.getErrMsg());
    }
    if (!outputFile.empty()) {
        ::unlink(outputFile.c_str());
    }
    return false;
}

void JobSupervisor::prepare() {
    const bool mustBeRecorded = request.uninterruptible || !request.tools.isEmpty();
    try {
        if (request.uninterruptible) {
            takeFirmwareLock();
        }
        record = directory.openRecord(request.uninterruptible ? RunDirectory::Kind::kUninterruptible
                                                              : RunDirectory::Kind::kOrdinary);
        if (!request.tools.isEmpty()) {
            tools = std::make_unique<ToolRunner>(settings.toolsPath(), settings.toolsKeyFile,
                                                 directory, record);
            tools->prepare(request.tools, [this] { return mayWaitForTool(); });
        }
    } catch (const CException&) {
        // On a full disk an administrator must still be able to run "rm".
        if (mustBeRecorded) {
            tidyUp();
            throw;
        }
    }
}

void JobSupervisor::takeFirmwareLock() {
    const std::string job = "\"" + Text::printable(request.shown.text, 200) + "\" for " +
                            request.owner + " since " + utcNow();
    if (!firmwareLock.tryTake(job, *settings.log)) {
        throw Refused("an uninterruptible job is running on this node already: " +
                      FirmwareLock::holder(directory));
    }
    const std::string logFile = settings.runPath() + kFirmwareLog;
    if (::rename(outputFile.c_str(), logFile.c_str()) != 0) {
        Posix::throwErrno("cannot make " + logFile);
    }
}

bool JobSupervisor::mayWaitForTool() {
    pollfd watched[2] = {{control.get(), POLLIN, 0}, {signals.get(), POLLIN, 0}};
    if (::poll(watched, 2, kToolPollMs) > 0) {
        sessionGone = sessionGone || watched[0].revents != 0;
        readSignals();
    }
    return !sessionGone && !toldToEnd && (!deadline || Clock::now() < *deadline);
}

std::vector<std::string> JobSupervisor::environmentOfJob() const {
    std::vector<std::string> entries(std::begin(kFixedEnvironment), std::end(kFixedEnvironment));
    const char* const path = std::getenv("PATH");
    entries.push_back(std::string("PATH=") + (path != nullptr ? path : kDefaultPath));
    entries.push_back("KELNODE_PATH=" + settings.nodePath);
    if (record && !request.uninterruptible) {
        entries.push_back(record.marker());
    }
    return entries;
}

std::vector<int> JobSupervisor::inheritedDescriptors() const {
    std::vector<int> inherited;
    if (request.uninterruptible) {
        // Should this process be killed, the locks must stay taken for as long as the job runs.
        inherited = {record.descriptor(), firmwareLock.descriptor()};
        if (tools) {
            const std::vector<int> locks = tools->lockDescriptors();
            inherited.insert(inherited.end(), locks.begin(), locks.end());
        }
    }
    return inherited;
}

void JobSupervisor::spawn() {
    std::vector<std::string> entries = environmentOfJob();
    std::vector<char*> environment;
    environment.reserve(entries.size() + 1);
    for (std::string& entry : entries) {
        environment.push_back(entry.data());
    }
    environment.push_back(nullptr);
    const std::vector<int> inherited = inheritedDescriptors();
    int status[2];
    if (::pipe2(status, O_CLOEXEC) != 0) {
        Posix::throwErrno("cannot start the job");
    }
    const UniqueFd statusRead(status[0]);
    UniqueFd statusWrite(status[1]);
    // Not fork: that would copy a memory map only for execve to throw it away. Until then the child
    // has this process's memory, which becomeJob leaves as it is, and this one waits.
    shell = ::vfork();
    if (shell < 0) {
        tidyUp();
        Posix::throwErrno("cannot start the job");
    }
    if (shell == 0) {
        becomeJob(environment.data(), inherited, statusWrite.get());
    }
    if (request.uninterruptible) {
        firmwareLock.noteShell(shell);
    }
    statusWrite.reset();
    output.reset();
    int childErrno = 0;
    ssize_t count = 0;
    do {
        count = ::read(statusRead.get(), &childErrno, sizeof childErrno);
    } while (count < 0 && errno == EINTR);
    if (count > 0) {
        ::waitpid(shell, nullptr, 0);
        tidyUp();
        errno = childErrno;
        Posix::throwErrno("cannot start the job in " + request.workingDirectory);
    }
}

void JobSupervisor::becomeJob(char* const* environment, const std::vector<int>& inherited,
                              int statusPipe) const {
    ::setsid();
    for (int signal = 1; signal <= kLastSignal; ++signal) {
        ::signal(signal, SIG_DFL);
    }
    ::umask(S_IWGRP | S_IWOTH);
    const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    bool ready = nothing >= 0 && ::dup2(nothing, STDIN_FILENO) >= 0 &&
                 ::dup2(output.get(), STDOUT_FILENO) >= 0 &&
                 ::dup2(output.get(), STDERR_FILENO) >= 0 &&
                 ::close_range(STDERR_FILENO + 1, UINT_MAX, CLOSE_RANGE_CLOEXEC) == 0 &&
                 ::setrlimit(RLIMIT_NOFILE, &settings.fileLimit) == 0 &&
                 ::setrlimit(RLIMIT_DATA, &settings.dataLimit) == 0 &&
                 ::chdir(request.workingDirectory.c_str()) == 0;
    for (const int fd : inherited) {
        ready = ready && ::fcntl(fd, F_SETFD, 0) == 0;
    }
    if (ready) {
        sigset_t none;
        ::sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        char name[] = "sh";
        char option[] = "-c";
        // execve takes the arguments as not const, and leaves them alone all the same.
        char* const arguments[] = {name, option, const_cast<char*>(request.commandLine.c_str()),
                                   nullptr};
        ::execve("/bin/sh", arguments, environment);
    }
    const int reason = errno;
    if (::write(statusPipe, &reason, sizeof reason) < 0) {
        ::_exit(126);
    }
    ::_exit(127);
}

void JobSupervisor::watch() {
    for (;;) {
        if (reapChildren()) {
            const bool exited = WIFEXITED(shellStatus);
            const protocol::Result outcome =
                exited ? result(protocol::Result::Ending::kExited, WEXITSTATUS(shellStatus))
                       : result(protocol::Result::Ending::kSignaled, WTERMSIG(shellStatus));
            tidyUp();
            logOutcome(outcome);
            report(JobReport::Kind::kEnded, outcome);
            return;
        }
        if (deadline && Clock::now() >= *deadline) {
            deadline.reset();
            report(JobReport::Kind::kTimedOut, result(protocol::Result::Ending::kTimedOut, 0));
            if (!request.uninterruptible) {
                endTree("timed out");
                return;
            }
            settings.log->warning("an uninterruptible job has passed its time-out and goes on: " +
                                  FirmwareLock::holder(directory));
        }
        if ((sessionGone || toldToEnd) && !request.uninterruptible) {
            report(JobReport::Kind::kEnded, result(protocol::Result::Ending::kCancelled, 0));
            endTree("was cancelled");
            return;
        }
        waitForEvents();
    }
}

bool JobSupervisor::reapChildren() {
    for (;;) {
        int status = 0;
        const pid_t pid = ::waitpid(-1, &status, WNOHANG);
        if (pid == shell) {
            shellStatus = status;
            return true;
        }
        if (pid == 0 || (pid < 0 && errno != EINTR)) {
            return false;
        }
    }
}

int JobSupervisor::pollTimeOut() const {
    if (!deadline) {
        return -1;
    }
    const auto left = std::chrono::ceil<milliseconds>(*deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, std::numeric_limits<int>::max()));
}

void JobSupervisor::waitForEvents() {
    pollfd watched[2] = {{signals.get(), POLLIN, 0}, {sessionGone ? -1 : control.get(), POLLIN, 0}};
    if (::poll(watched, 2, pollTimeOut()) <= 0) {
        return;
    }
    if (watched[0].revents != 0) {
        readSignals();
    }
    // The session never writes: whatever there is to read is its end.
    sessionGone = sessionGone || watched[1].revents != 0;
}

void JobSupervisor::readSignals() {
    signalfd_siginfo info{};
    while (::read(signals.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        toldToEnd = toldToEnd || info.ssi_signo == SIGTERM;
    }
}

void JobSupervisor::endTree(const char* why) {
    const bool ended = processtree::endOwnDescendants(shell, kGrace, kEndLimit);
    tidyUp();
    endAudit(why);
    if (!ended) {
        settings.log->error(std::string("a job that ") + why +
                            " could not be ended: a process of it does not react to SIGKILL: \"" +
                            Text::printable(request.shown.text) + "\"" + request.shown.suffix());
    }
}

void JobSupervisor::tidyUp() {
    if (tools) {
        tools->cleanUp();
    }
    firmwareLock.release();
    // Last: no record means that nothing is left to be waited for.
    record.finish();
}

void JobSupervisor::endAudit(const std::string& outcome) const {
    const auto elapsed = std::chrono::duration_cast<milliseconds>(Clock::now() - startedAt);
    const std::string fault =
        AuditLog(settings.auditFile).tryAppend(request.audit, "end", outcome, elapsed.count());
    if (!fault.empty()) {
        settings.log->error("audit: " + Text::printable(fault));
    }
}

void JobSupervisor::logOutcome(const protocol::Result& outcome) const {
    const bool exited = outcome.ending == protocol::Result::Ending::kExited;
    endAudit((exited ? "exit code " : "ended by signal ") + std::to_string(outcome.value));
    if (!request.uninterruptible) {
        return;
    }
    settings.log->info(
        request.owner + ": uninterruptible job \"" + Text::printable(request.shown.text) + "\"" +
        request.shown.suffix() + " ended with " + (exited ? "exit code " : "signal ") +
        std::to_string(outcome.value) + " after " + std::to_string(outcome.elapsedMs) + " ms");
}

protocol::Result JobSupervisor::result(protocol::Result::Ending ending, int value) const {
    protocol::Result outcome;
    outcome.ending = ending;
    outcome.value = value;
    const auto elapsed = std::chrono::duration_cast<milliseconds>(Clock::now() - startedAt);
    outcome.elapsedMs = static_cast<std::uint32_t>(
        std::min<long long>(elapsed.count(), std::numeric_limits<std::uint32_t>::max()));
    return outcome;
}

void JobSupervisor::report(JobReport::Kind kind, const protocol::Result& outcome) const {
    JobReport told;
    told.kind = kind;
    told.result = outcome;
    send(told);
}

void JobSupervisor::reportNotStarted(std::uint16_t code, const std::string& text) const {
    JobReport told;
    told.kind = JobReport::Kind::kNotStarted;
    told.errorCode = code;
    told.text = text;
    send(told);
}

void JobSupervisor::send(const JobReport& told) const {
    const std::string message = told.encode();
    // A session that is gone does not matter here.
    while (::send(control.get(), message.data(), message.size(), MSG_NOSIGNAL) < 0 &&
           errno == EINTR) {
    }
}
