#include "Listener.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>
#include <utility>

#include "CException.h"
#include "CertificateExpiry.h"
#include "Descriptors.h"
#include "LocalMessages.h"
#include "Memory.h"
#include "NodeFiles.h"
#include "Posix.h"
#include "Session.h"
#include "Text.h"
#include "TlsRehearsal.h"
#include "TlsSocket.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kSweepPeriod(5);
constexpr milliseconds kSweepOftenPeriod(200);
constexpr std::chrono::hours kExpiryPeriod(24);
// Longer than a job gets between SIGTERM and SIGKILL.
constexpr seconds kLeaveLimit(8);

static_assert(Reception::kHandshakeTime == milliseconds(Session::kHandshakeMs),
              "one time for both: it counts from the acceptance");

SessionTable::Bounds boundsOf(const AgentConfig& config) {
    SessionTable::Bounds bounds;
    bounds.sessions = config.maxSessions;
    bounds.perCertificate = config.sessionsPerCertificate;
    bounds.perSource = config.sessionsPerSource;
    return bounds;
}

}  // namespace

Listener::Listener(AgentConfig& agentConfig, AgentLog& agentLog, const rlimit& fileLimit)
    : config(agentConfig),
      log(agentLog),
      runDirectory(agentConfig.getRunPath()),
      zygotes(confinement, agentLog),
      sparingLog([this](const std::string& text) { log.warning(text); }),
      refusals(log),
      reception(sessions, sparingLog) {
    jobSettings.nodePath = config.getNodePath();
    jobSettings.toolsKeyFile = config.toolsKeyFile;
    jobSettings.auditFile = config.auditFile;
    refusals.setAuditFile(config.auditFile);
    jobSettings.fileLimit = fileLimit;
    // Unlimited where it cannot be told.
    static_cast<void>(::getrlimit(RLIMIT_DATA, &jobSettings.dataLimit));
    jobSettings.log = &log;
}

std::shared_ptr<TlsContext> Listener::loadContext(const AgentConfig& config) {
    std::shared_ptr<TlsContext> loaded =
        TlsContext::server({config.certificateFile, config.privateKeyFile, config.caFile});
    return loaded;
}

std::shared_ptr<const Authorization> Listener::loadAuthorization(const AgentConfig& config) {
    std::vector<ConfigFault> faults;
    const std::string file = config.getAuthorizationFileName();
    auto rules = std::make_shared<const Authorization>(Authorization::load(file, faults));
    if (!faults.empty()) {
        throw CException(faults.front().describe(file));
    }
    return rules;
}

void Listener::open() {
    runDirectory.create();
    confineNetworkSides();
    context = loadContext(config);
    zygotes.renew(context);
    // The zygote does so for the network processes.
    (void)tlsrehearsal::perform();
    authorization = loadAuthorization(config);
    warnOfMissingPrefixes();
    AuditLog(config.auditFile).check();
    reception.setBounds(boundsOf(config));
    reception.open(config.listen);
    if (::prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) {
        Posix::throwErrno("cannot become the reaper of jobs");
    }
    watchSignals();
    keepReserve();
    sweep();
    memory::releaseWhatTheStartNeeded();
}

void Listener::warnOfMissingPrefixes() const {
    for (const std::string& text : authorization->missingPrefixes()) {
        log.warning(Text::printable(text));
    }
}

void Listener::confineNetworkSides() {
    const std::string empty = runDirectory.getPath() + "empty";
    if (::mkdir(empty.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        Posix::throwErrno("cannot make " + empty);
    }
    std::list<std::string> missing;
    confinement = sandbox::probePatiently(empty, missing);
    for (const std::string& text : missing) {
        log.warning(text);
    }
    if (confinement.isComplete() || ::geteuid() != 0) {
        return;
    }
    if (!config.allowsUnconfined) {
        throw CException(missing.front() + "; so the agent does not start as root, unless " +
                         config.getFileName() + " says ALLOW_UNCONFINED=yes");
    }
    log.warning("what strangers send is read as root, as ALLOW_UNCONFINED wants it");
}

std::string Listener::boundAddress() const {
    return reception.boundAddress();
}

void Listener::watchSignals() {
    ::signal(SIGPIPE, SIG_IGN);
    sigset_t watched;
    ::sigemptyset(&watched);
    for (const int signal : {SIGCHLD, SIGHUP, SIGTERM, SIGINT}) {
        ::sigaddset(&watched, signal);
    }
    if (::sigprocmask(SIG_SETMASK, &watched, nullptr) != 0) {
        Posix::throwErrno("cannot set the signal mask");
    }
    signals.reset(::signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!signals) {
        Posix::throwErrno("cannot watch for signals");
    }
}

void Listener::run() {
    while (!terminate) {
        poll();
        if (hangUp) {
            hangUp = false;
            reload();
        }
        serveNext();
        keepReserve();
        sparingLog.tell(Clock::now());
        refusals.tell(Clock::now());
        if (Clock::now() >= sweepAt) {
            sweep();
        }
        if (Clock::now() >= warnAt) {
            warnOfExpiry();
        }
    }
    stop();
}

int Listener::pollTimeOut() const {
    Clock::time_point next = std::min({sweepAt, warnAt, reception.nextAt()});
    for (const auto& due : {sparingLog.nextDue(), refusals.nextDue()}) {
        next = due ? std::min(next, *due) : next;
    }
    const auto left = std::chrono::ceil<milliseconds>(next - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, 60000));
}

void Listener::poll() {
    std::vector<pollfd> watched{{signals.get(), POLLIN, 0},
                                {reception.listeningDescriptor(Clock::now()), POLLIN, 0},
                                {reception.waitingDescriptor(), POLLIN, 0},
                                {zygotes.descriptor(), POLLIN, 0}};
    const std::size_t firstStatus = watched.size();
    std::vector<std::pair<pid_t, SessionTable::Entry*>> entries;
    for (auto& item : sessions.all()) {
        if (item.second.status) {
            watched.push_back({item.second.status.get(), POLLIN, 0});
            entries.emplace_back(item.first, &item.second);
        }
    }
    if (::poll(watched.data(), watched.size(), pollTimeOut()) <= 0) {
        return;
    }
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (watched[firstStatus + i].revents != 0) {
            readStatus(entries[i].first, *entries[i].second);
        }
    }
    if (watched[0].revents != 0) {
        readSignals();
        reap();
    }
    if (watched[1].revents != 0) {
        reception.accept(Clock::now());
    }
    if (watched[2].revents != 0) {
        reception.look();
    }
    if (watched[3].revents != 0) {
        zygotes.takeFollower();
    }
}

void Listener::serveNext() {
    const Clock::time_point now = Clock::now();
    reception.closeExpired(now);
    while (std::optional<WaitingRoom::Guest> guest = reception.next(now)) {
        serve(std::move(*guest));
    }
}

void Listener::keepReserve() {
    for (UniqueFd& kept : reserve) {
        if (!kept) {
            kept.reset(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        }
    }
}

void Listener::serve(WaitingRoom::Guest guest) {
    for (UniqueFd& kept : reserve) {
        kept.reset();
    }
    UniqueFd line[2];
    UniqueFd network[2];
    if (!localmessages::makePair(line) || !localmessages::makePair(network) ||
        !zygotes.serve(guest.connection.get(), network[1].get(),
                       tlssocket::peerOf(guest.connection.get()),
                       guest.acceptedAt + Reception::kHandshakeTime)) {
        reception.pause("cannot serve a connection", Clock::now());
        return;
    }
    network[1].reset();
    const std::string source = guest.source;
    const pid_t pid = ::fork();
    if (pid < 0) {
        reception.pause("cannot start a session", Clock::now());
        return;
    }
    if (pid == 0) {
        becomeSession(std::move(guest), std::move(network[0]), std::move(line[1]));
    }
    SessionTable::Entry& entry = sessions.add(pid, source, std::move(line[0]), guest.acceptedAt);
    entry.rules = authorization;
    entry.generation = generation;
}

void Listener::becomeSession(WaitingRoom::Guest guest, UniqueFd network, UniqueFd line) {
    // First the signals: a session must never take part in the listener's end.
    Session::installSignals();
    ::prctl(PR_SET_NAME, "kelnode-session");
    ::prctl(PR_SET_CHILD_SUBREAPER, 0);
    ::closelog();
    sandbox::boundMemoryOfSession();
    std::vector<int> kept = authorization->descriptors();
    kept.insert(kept.end(), {guest.connection.get(), network.get(), line.get(), log.descriptor()});
    descriptors::closeAllBut(kept);
    ListeningSocket::watchForDeadPeer(guest.connection.get());
    {
        Session session(std::move(guest.connection), context, config, *authorization, jobSettings,
                        log, std::move(network), std::move(line), guest.acceptedAt, guest.refusal);
        session.run();
    }
    ::_exit(EXIT_SUCCESS);
}

void Listener::readStatus(pid_t pid, SessionTable::Entry& entry) {
    for (;;) {
        char bytes[4096];
        const ssize_t count = ::read(entry.status.get(), bytes, sizeof bytes);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count == 0 || (count < 0 && errno != EAGAIN)) {
            entry.status.reset();
        }
        if (count <= 0) {
            return;
        }
        entry.reports.add(bytes, static_cast<std::size_t>(count));
        while (std::optional<SessionReport> report = entry.reports.next()) {
            take(*report, pid, entry);
        }
    }
}

void Listener::take(SessionReport& report, pid_t pid, SessionTable::Entry& entry) {
    switch (report.kind) {
        case SessionReport::Kind::kMaster:
            entry.certificates = std::move(report.certificates);
            entry.fingerprint = std::move(report.fingerprint);
            entry.authenticated = true;
            if (entry.generation != generation) {
                recheck(pid, entry);
            }
            if (!report.hasRole) {
                reception.noteFailure(entry.source);
                return;
            }
            reception.noteMaster(entry.source);
            if (!entry.dropped) {
                SessionReports::answer(entry.status.get(),
                                       sessions.refusalOf(entry.fingerprint, boundsOf(config)));
            }
            return;
        case SessionReport::Kind::kFailure:
            sparingLog.note(entry.source, report.text, Clock::now());
            return;
        case SessionReport::Kind::kRefusal:
            refusals.note(report.text, Clock::now());
            return;
        case SessionReport::Kind::kUninterruptibleBegins:
        case SessionReport::Kind::kUninterruptibleEnds:
            entry.uninterruptible = report.kind == SessionReport::Kind::kUninterruptibleBegins;
            return;
    }
}

void Listener::recheck(pid_t pid, SessionTable::Entry& entry) {
    entry.generation = generation;
    std::string name;
    std::string reason =
        context->refusalOf(entry.certificates, "the shell at " + entry.source, name);
    if (reason.empty() && authorization->grantOf(name).isLessThan(entry.rules->grantOf(name))) {
        reason = "The certificate " + name + " has fewer rights than before.";
    }
    if (!reason.empty()) {
        log.warning("the session of " + entry.source + " is cut off: " + Text::printable(reason));
        entry.dropped = true;
        // Its job is in other hands, which end it or keep it as it must be.
        ::kill(pid, SIGKILL);
    }
}

void Listener::warnOfExpiry() {
    warnAt = Clock::now() + kExpiryPeriod;
    const std::list<std::string> warnings = certificateexpiry::warnings(
        {config.certificateFile, config.caFile,
         certificateexpiry::revocationListBeside(config.certificateFile)},
        ::time(nullptr));
    for (const std::string& warning : warnings) {
        log.warning(Text::printable(warning));
    }
}

void Listener::readSignals() {
    signalfd_siginfo info{};
    while (::read(signals.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        hangUp = hangUp || info.ssi_signo == SIGHUP;
        terminate = terminate || info.ssi_signo == SIGTERM || info.ssi_signo == SIGINT;
    }
}

void Listener::reap() {
    for (;;) {
        int status = 0;
        const pid_t pid = ::waitpid(-1, &status, WNOHANG);
        if (pid > 0) {
            noteEnd(pid, status);
        } else if (pid == 0 || errno != EINTR) {
            return;
        }
    }
}

void Listener::noteEnd(pid_t pid, int status) {
    if (zygotes.noteEnd(pid)) {
        return;
    }
    SessionTable::Entry* entry = sessions.find(pid);
    const bool wasKilled = WIFSIGNALED(status);
    if (entry != nullptr) {
        // What it has said last may not have been looked at yet.
        readStatus(pid, *entry);
        if (!entry->authenticated) {
            reception.noteFailure(entry->source);
        }
        if (!entry->dropped && (wasKilled || WEXITSTATUS(status) == EXIT_FAILURE)) {
            log.error("the session " + std::to_string(pid) + " of " + entry->source +
                      (wasKilled ? " was ended by signal " + std::to_string(WTERMSIG(status))
                                 : " failed"));
        }
        sessions.remove(pid);
    }
    // A supervisor that lost its session, or what remains of a job without a supervisor, is reaped
    // here too. Who ends in order has tidied up.
    if (wasKilled) {
        sweepAt = Clock::now();
    }
}

void Listener::sweep() {
    const int left = runDirectory.sweep([this](const std::string& text) { log.warning(text); });
    sweepAt = Clock::now() + (left > 0 ? kSweepOftenPeriod : milliseconds(kSweepPeriod));
}

void Listener::reload() {
    std::vector<ConfigFault> faults;
    AgentConfig fresh = AgentConfig::load(config.getNodePath(), faults);
    for (const ConfigFault& fault : faults) {
        log.error("reload: " + Text::printable(fault.describe(fresh.getFileName())));
    }
    const NodeFiles files(fresh);
    const bool trusted =
        files.areTrusted([this](const std::string& line) { log.warning("reload: " + line); });
    if (!faults.empty() || !trusted) {
        log.error("reload: the old configuration stays in force");
        return;
    }
    for (const std::string& key : files.openKeys()) {
        log.warning(Text::printable(key));
    }
    try {
        std::shared_ptr<TlsContext> freshContext = loadContext(fresh);
        if (context->isRevoking() && !freshContext->isRevoking()) {
            throw CException(
                "there is no " + certificateexpiry::revocationListBeside(fresh.certificateFile) +
                " any more, and what it revoked would be let in (to do without it, start the"
                " agent anew)");
        }
        std::shared_ptr<const Authorization> freshRules = loadAuthorization(fresh);
        AuditLog(fresh.auditFile).check();
        zygotes.renew(freshContext);
        reopenSocket(fresh);
        context = std::move(freshContext);
        authorization = std::move(freshRules);
    } catch (const CException& fault) {
        log.error("reload: " + Text::printable(fault.getErrMsg()) +
                  "; the old configuration stays in force");
        return;
    }
    const std::string logFault = log.open(fresh.logFile);
    if (!logFault.empty()) {
        log.error("reload: " + logFault);
    }
    config = std::move(fresh);
    reception.setBounds(boundsOf(config));
    jobSettings.toolsKeyFile = config.toolsKeyFile;
    jobSettings.auditFile = config.auditFile;
    refusals.setAuditFile(config.auditFile);
    ++generation;
    for (auto& item : sessions.all()) {
        if (item.second.authenticated && !item.second.dropped) {
            recheck(item.first, item.second);
        }
    }
    warnAt = Clock::now();
    warnOfMissingPrefixes();
    log.info("configuration and certificates read anew, listening on " + boundAddress());
}

void Listener::reopenSocket(const AgentConfig& fresh) {
    if (fresh.listen.host == config.listen.host && fresh.listen.port == config.listen.port) {
        return;
    }
    reception.open(fresh.listen);
}

void Listener::stop() {
    log.info("ending");
    reception.close();
    terminate = false;
    for (auto& item : sessions.all()) {
        readStatus(item.first, item.second);
        item.second.dropped = true;
        ::kill(item.first, SIGTERM);
    }
    const Clock::time_point limit = Clock::now() + kLeaveLimit;
    while (Clock::now() < limit && !terminate && !mayLeave()) {
        pollfd watched{signals.get(), POLLIN, 0};
        if (::poll(&watched, 1, 20) > 0) {
            readSignals();
        }
        reap();
        sweep();
    }
    std::size_t left = 0;
    for (const auto& item : sessions.all()) {
        left += item.second.uninterruptible ? 1 : 0;
    }
    sparingLog.tellAll(Clock::now());
    refusals.tellAll(Clock::now());
    log.info("ended" + (left > 0 ? ", " + std::to_string(left) + " uninterruptible session goes on"
                                 : std::string()));
}

bool Listener::mayLeave() {
    for (auto& item : sessions.all()) {
        if (item.second.status) {
            readStatus(item.first, item.second);
        }
        if (!item.second.uninterruptible) {
            return false;
        }
    }
    return !runDirectory.hasOwned(RunDirectory::Kind::kOrdinary);
}
