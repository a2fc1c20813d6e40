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
#include "Memory.h"
#include "Posix.h"
#include "Session.h"
#include "SigningProxy.h"
#include "Text.h"
#include "TlsRehearsal.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// Connections taken in one turn, so that signals and reports get theirs too.
constexpr int kAcceptBurst = 64;
constexpr milliseconds kExhaustionPause(100);
constexpr milliseconds kHandshakeTime(Session::kHandshakeMs);
constexpr seconds kSweepPeriod(5);
constexpr milliseconds kSweepOftenPeriod(200);
constexpr seconds kSweepOften(10);
constexpr seconds kLogPause(10);
constexpr std::chrono::hours kExpiryPeriod(24);
// Longer than a job gets between SIGTERM and SIGKILL.
constexpr seconds kLeaveLimit(8);

}  // namespace

Listener::Listener(AgentConfig& agentConfig, AgentLog& agentLog, const rlimit& fileLimit)
    : config(agentConfig),
      log(agentLog),
      runDirectory(agentConfig.getRunPath()),
      random(std::random_device{}()) {
    jobSettings.nodePath = config.getNodePath();
    jobSettings.toolsKeyFile = config.toolsKeyFile;
    jobSettings.auditFile = config.auditFile;
    jobSettings.fileLimit = fileLimit;
    jobSettings.log = &log;
}

std::shared_ptr<TlsContext> Listener::loadContext(const AgentConfig& config) {
    std::shared_ptr<TlsContext> loaded =
        TlsContext::server({config.certificateFile, config.privateKeyFile, config.caFile});
    // Connections are made by processes that have no key. Here once, not in each of them.
    signingproxy::install(loaded->get());
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
    (void)tlsrehearsal::perform();
    authorization = loadAuthorization(config);
    AuditLog(config.auditFile).check();
    socket = ListeningSocket(config.listen);
    if (::prctl(PR_SET_CHILD_SUBREAPER, 1) != 0) {
        Posix::throwErrno("cannot become the reaper of jobs");
    }
    watchSignals();
    keepReserve();
    sweep();
    memory::releaseWhatTheStartNeeded();
}

void Listener::confineNetworkSides() {
    const std::string empty = runDirectory.getPath() + "empty";
    if (::mkdir(empty.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        Posix::throwErrno("cannot make " + empty);
    }
    std::list<std::string> missing;
    confinement = sandbox::probe(empty, missing);
    for (const std::string& text : missing) {
        log.warning(text);
    }
}

std::string Listener::boundAddress() const {
    return socket.boundAddress();
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
        closeExpired();
        keepReserve();
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
    Clock::time_point next = std::min(sweepAt, warnAt);
    if (acceptAgainAt != Clock::time_point{}) {
        next = std::min(next, acceptAgainAt);
    }
    if (waitingRoom.size() > 0) {
        next = std::min(next, waitingRoom.all().begin()->second.acceptedAt + kHandshakeTime);
    }
    const auto left = std::chrono::ceil<milliseconds>(next - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, 60000));
}

void Listener::poll() {
    if (acceptAgainAt != Clock::time_point{} && Clock::now() >= acceptAgainAt) {
        acceptAgainAt = {};
    }
    const bool accepts = socket && acceptAgainAt == Clock::time_point{};
    std::vector<pollfd> watched{{signals.get(), POLLIN, 0},
                                {accepts ? socket.descriptor() : -1, POLLIN, 0},
                                {waitingRoom.descriptor(), POLLIN, 0}};
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
        acceptAll();
    }
    if (watched[2].revents != 0) {
        serveMoved();
    }
}

void Listener::acceptAll() {
    for (int i = 0; i < kAcceptBurst && acceptOne(); ++i) {
    }
}

bool Listener::acceptOne() {
    WaitingRoom::Guest guest;
    guest.connection = socket.accept(guest.source);
    if (!guest.connection) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            logSparingly(exhaustionLoggedAt,
                         std::string("cannot accept connections: ") + std::strerror(errno));
            if (dropOneThatWaits()) {
                return true;
            }
            // The connection stays in the queue; asking again at once would only burn the
            // processor.
            acceptAgainAt = Clock::now() + kExhaustionPause;
            return false;
        }
        return errno == EINTR || errno == ECONNABORTED;
    }
    guest.acceptedAt = Clock::now();
    SessionTable::Bounds bounds;
    bounds.sessions = config.maxSessions;
    const SessionTable::Admission admission = sessions.admit(
        guest.source, bounds, guest.acceptedAt,
        [this](std::size_t count) {
            return std::uniform_int_distribution<std::size_t>(0, count - 1)(random);
        },
        waitingRoom.all());
    makeRoom(admission, guest.source);
    if (admission.kind == SessionTable::Admission::Kind::kClose) {
        logSparingly(refusalLoggedAt, "no room for the connection from " + guest.source);
        return true;
    }
    guest.busy = admission.kind == SessionTable::Admission::Kind::kTurnAway;
    if (!waitingRoom.add(std::move(guest))) {
        cannotServe("cannot watch a connection");
    }
    return true;
}

bool Listener::dropOneThatWaits() {
    const std::vector<WaitingRoom::Id> old =
        waitingRoom.acceptedBefore(Clock::now() - SessionTable::kFairChance);
    if (old.empty()) {
        return false;
    }
    waitingRoom.take(old[std::uniform_int_distribution<std::size_t>(0, old.size() - 1)(random)]);
    return true;
}

void Listener::makeRoom(const SessionTable::Admission& admission, const std::string& source) {
    if (admission.victim == 0 && admission.victimGuest == 0) {
        return;
    }
    logSparingly(refusalLoggedAt, "too many connections that do not authenticate, the last from " +
                                      source + "; some are dropped");
    if (admission.victimGuest != 0) {
        waitingRoom.take(admission.victimGuest);
        return;
    }
    sessions.find(admission.victim)->dropped = true;
    ::kill(admission.victim, SIGKILL);
}

void Listener::serveMoved() {
    for (const auto& moved : waitingRoom.takeMoved()) {
        WaitingRoom::Guest guest = waitingRoom.take(moved.first);
        switch (moved.second) {
            case WaitingRoom::Beginning::kReady:
                serve(std::move(guest));
                break;
            case WaitingRoom::Beginning::kForeign:
                logSparingly(foreignLoggedAt,
                             guest.source + " does not speak TLS 1.3 and is disconnected");
                break;
            case WaitingRoom::Beginning::kEnded:
            case WaitingRoom::Beginning::kUnfinished:
                break;
        }
    }
}

void Listener::closeExpired() {
    for (const WaitingRoom::Id id : waitingRoom.acceptedBefore(Clock::now() - kHandshakeTime)) {
        const WaitingRoom::Guest guest = waitingRoom.take(id);
        logSparingly(silenceLoggedAt, guest.source + " began no handshake in time");
    }
}

void Listener::cannotServe(const std::string& what) {
    logSparingly(exhaustionLoggedAt, what + ": " + std::strerror(errno));
    acceptAgainAt = Clock::now() + kExhaustionPause;
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
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        cannotServe("cannot serve a connection");
        return;
    }
    UniqueFd statusRead(ends[0]);
    UniqueFd statusWrite(ends[1]);
    const std::string source = guest.source;
    const pid_t pid = ::fork();
    if (pid < 0) {
        cannotServe("cannot start a session");
        return;
    }
    if (pid == 0) {
        becomeSession(std::move(guest), std::move(statusWrite));
    }
    SessionTable::Entry& entry = sessions.add(pid, source, std::move(statusRead), guest.acceptedAt);
    entry.rules = authorization;
    entry.generation = generation;
}

void Listener::becomeSession(WaitingRoom::Guest guest, UniqueFd status) {
    // First the signals: a session must never take part in the listener's end.
    Session::installSignals();
    ::prctl(PR_SET_NAME, "kelnode-session");
    ::prctl(PR_SET_CHILD_SUBREAPER, 0);
    ::closelog();
    descriptors::closeAllBut({guest.connection.get(), status.get(), log.descriptor(),
                              confinement.emptyDirectory->get()});
    ListeningSocket::watchForDeadPeer(guest.connection.get());
    {
        Session session(std::move(guest.connection), context, config, *authorization, jobSettings,
                        log, confinement, std::move(status), guest.acceptedAt, guest.busy);
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
        entry.told.append(bytes, static_cast<std::size_t>(count));
        takeReports(pid, entry);
    }
}

void Listener::takeReports(pid_t pid, SessionTable::Entry& entry) {
    std::size_t at = 0;
    while (at < entry.told.size()) {
        const char what = entry.told[at];
        if (what == Session::kAuthenticated) {
            std::uint32_t length = 0;
            if (entry.told.size() - at < 1 + sizeof length) {
                break;
            }
            std::memcpy(&length, &entry.told[at + 1], sizeof length);
            length = std::min<std::uint32_t>(ntohl(length), Session::kMaxCertificateBytes);
            if (entry.told.size() - at < 1 + sizeof length + length) {
                break;
            }
            entry.certificates = entry.told.substr(at + 1 + sizeof length, length);
            entry.authenticated = true;
            at += 1 + sizeof length + length;
            if (entry.generation != generation) {
                recheck(pid, entry);
            }
            continue;
        }
        if (what == Session::kUninterruptibleBegins || what == Session::kUninterruptibleEnds) {
            entry.uninterruptible = what == Session::kUninterruptibleBegins;
        }
        ++at;
    }
    entry.told.erase(0, at);
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
    SessionTable::Entry* entry = sessions.find(pid);
    const bool wasKilled = WIFSIGNALED(status);
    if (entry != nullptr) {
        if (!entry->dropped && (wasKilled || WEXITSTATUS(status) == EXIT_FAILURE)) {
            log.error("the session " + std::to_string(pid) + " of " + entry->source +
                      (wasKilled ? " was ended by signal " + std::to_string(WTERMSIG(status))
                                 : " failed"));
        }
        sessions.remove(pid);
    }
    // A supervisor that lost its session, or what remains of a job without a supervisor, is reaped
    // here too.
    if (wasKilled || entry == nullptr) {
        sweepSoon();
    }
}

void Listener::sweepSoon() {
    sweepOftenUntil = Clock::now() + kSweepOften;
    sweepAt = Clock::now();
}

void Listener::sweep() {
    const int left = runDirectory.sweep([this](const std::string& text) { log.warning(text); });
    const Clock::time_point now = Clock::now();
    const bool often = left > 0 || now < sweepOftenUntil;
    sweepAt = now + (often ? milliseconds(kSweepOftenPeriod) : milliseconds(kSweepPeriod));
}

void Listener::reload() {
    std::vector<ConfigFault> faults;
    AgentConfig fresh = AgentConfig::load(config.getNodePath(), faults);
    for (const ConfigFault& fault : faults) {
        log.error("reload: " + Text::printable(fault.describe(fresh.getFileName())));
    }
    if (!faults.empty()) {
        log.error("reload: the old configuration stays in force");
        return;
    }
    try {
        std::shared_ptr<TlsContext> freshContext = loadContext(fresh);
        std::shared_ptr<const Authorization> freshRules = loadAuthorization(fresh);
        AuditLog(fresh.auditFile).check();
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
    jobSettings.toolsKeyFile = config.toolsKeyFile;
    jobSettings.auditFile = config.auditFile;
    ++generation;
    for (auto& item : sessions.all()) {
        if (item.second.authenticated && !item.second.dropped) {
            recheck(item.first, item.second);
        }
    }
    warnAt = Clock::now();
    log.info("configuration and certificates read anew, listening on " + boundAddress());
}

void Listener::reopenSocket(const AgentConfig& fresh) {
    if (fresh.listen.host == config.listen.host && fresh.listen.port == config.listen.port) {
        return;
    }
    socket = ListeningSocket(fresh.listen);
}

void Listener::stop() {
    log.info("ending");
    socket = ListeningSocket();
    waitingRoom.clear();
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

void Listener::logSparingly(Clock::time_point& last, const std::string& text) {
    const Clock::time_point now = Clock::now();
    if (last == Clock::time_point{} || now - last >= kLogPause) {
        last = now;
        log.warning(text);
    }
}
