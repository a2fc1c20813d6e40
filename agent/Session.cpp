#include "Session.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

#include "CException.h"
#include "NetworkInterface.h"
#include "NetworkSide.h"
#include "RefusalLog.h"
#include "SecretMask.h"
#include "Text.h"
#include "TlsSocket.h"

namespace {

using protocol::FrameType;
using protocol::ProtocolError;

constexpr unsigned long kLastWordsMs = 1000;
constexpr unsigned long kShortSendMs = 10000;
// How long a session that was told to end waits for the next request after a firmware job: the
// shell reads the job's outcome back over the same connection, and a flash must not look failed.
constexpr unsigned long kReadBackMs = 10000;

// Set by the handler, read between requests.
volatile std::sig_atomic_t toldToEnd = 0;
volatile std::sig_atomic_t mustFinish = 0;

void onTerminate(int signal) {
    if (mustFinish != 0) {
        toldToEnd = 1;
        return;
    }
    // The job's supervisor sees the end of this process and does what there is to be done.
    ::_exit(128 + signal);
}

std::string addressOf(int socket, bool ownEnd) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    const int result =
        ownEnd ? ::getsockname(socket, generic, &length) : ::getpeername(socket, generic, &length);
    char text[INET6_ADDRSTRLEN] = "";
    if (result != 0) {
        return "unknown address";
    }
    if (address.ss_family == AF_INET6) {
        sockaddr_in6 v6{};
        std::memcpy(&v6, &address, sizeof v6);
        ::inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof text);
    } else {
        sockaddr_in v4{};
        std::memcpy(&v4, &address, sizeof v4);
        ::inet_ntop(AF_INET, &v4.sin_addr, text, sizeof text);
    }
    return text;
}

std::string quoted(const std::string& text) {
    return "\"" + Text::printable(text) + "\"";
}

}  // namespace

Session::Session(UniqueFd connection, std::shared_ptr<TlsContext> tlsContext,
                 const AgentConfig& agentConfig, const Authorization& rules,
                 const JobSettings& settings, const EventLog& agentLog, UniqueFd network,
                 UniqueFd toListener, FrameChannel::Clock::time_point accepted, std::string refusal)
    : socket(std::move(connection)),
      context(std::move(tlsContext)),
      config(agentConfig),
      authorization(rules),
      jobSettings(settings),
      log(agentLog),
      networkSocket(std::move(network)),
      line(std::move(toListener)),
      acceptedAt(accepted),
      turnedAway(std::move(refusal)),
      limits(),
      runDirectory(agentConfig.getRunPath()),
      audit(settings.auditFile, agentLog) {}

void Session::installSignals() {
    struct sigaction action {};
    action.sa_handler = onTerminate;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(SIGTERM, &action, nullptr);
    for (const int ignored : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGXFSZ}) {
        ::signal(ignored, SIG_IGN);
    }
    // Supervisors are not waited for.
    ::signal(SIGCHLD, SIG_IGN);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

void Session::setUninterruptible(bool on) {
    if ((mustFinish != 0) != on) {
        mustFinish = on ? 1 : 0;
        line.tellUninterruptible(on);
    }
}

void Session::run() noexcept {
    try {
        peerIp = addressOf(socket.get(), false);
        ownIp = addressOf(socket.get(), true);
        peer = peerIp;
        const std::string address = tlssocket::peerOf(socket.get());
        socket.reset();
        NetworkSide network(std::move(networkSocket), context, address,
                            acceptedAt + std::chrono::milliseconds(limits.handshakeMs));
        const HandshakeWitness::Master master = network.authenticate();
        channel = network.openChannel();
        files = std::make_unique<FileConversation>(*channel, rights, runDirectory,
                                                   limits.uploadSilenceMs);
        jobs = std::make_unique<JobConversation>(*channel, jobSettings, runDirectory, audit);
        rights = MasterRights(master.name, authorization.grantOf(master.name));
        validUntil = master.validUntil;
        audit.setPeer(master.name, peerIp);
        line.tellMaster(rights.role() != Role::kNone, master.fingerprint, master.certificates);
        peer = Text::printableName(master.subject) + " " + peer;
        serve();
    } catch (const ProtocolError& fault) {
        log.warning(who() + ": broke the protocol: " + Text::printable(fault.getErrMsg()));
        audit.end("broke the protocol");
        try {
            sendError(protocol::kErrorProtocol, fault.getErrMsg());
            channel->close(FrameChannel::after(kLastWordsMs));
        } catch (const std::exception& gone) {
            log.warning(who() + ": " + Text::printable(gone.what()));
        }
    } catch (const std::exception& fault) {
        const std::string text = who() + ": " + Text::printable(fault.what());
        // Anybody can make handshakes fail, so the listener counts them and writes few of them.
        if (channel || !line.tellFailure(text)) {
            log.warning(text);
        }
        audit.end(fault.what());
    }
}

bool Session::greet() {
    if (!turnedAway.empty()) {
        turnAway(turnedAway);
        return false;
    }
    protocol::AgentHello hello;
    hello.build = KELNODE_VERSION;
    char name[256] = "";
    ::gethostname(name, sizeof name - 1);
    hello.nodeName = name;
    channel->sendFrame(protocol::encode(hello), FrameChannel::after(limits.greetingMs));
    const protocol::Frame frame = channel->receiveFrame(FrameChannel::after(limits.greetingMs));
    rights.judge(SessionState::kGreeting, frame.header);
    takeGreeting(frame);
    const std::string reason = reasonToTurnAway();
    if (!reason.empty()) {
        turnAway(reason);
    }
    return reason.empty();
}

// A certificate without a role may do nothing, and must not take a place for doing nothing.
std::string Session::reasonToTurnAway() {
    return rights.role() != Role::kNone ? line.awaitLeave() : rights.refusalOf("a request");
}

void Session::turnAway(const std::string& reason) {
    const std::string text = who() + ": turned away: " + Text::printable(reason);
    if (rights.role() == Role::kNone && turnedAway.empty()) {
        reportRefusal("HELLO", reason);
    } else if (!line.tellFailure(text)) {
        log.warning(text);
    }
    sendError(protocol::kErrorRefused, reason);
    channel->close(FrameChannel::after(kLastWordsMs));
}

// The first one opens the conversation; later ones tell which command the next requests belong to.
void Session::takeGreeting(const protocol::Frame& frame) {
    protocol::ShellHello shell;
    protocol::decode(frame.body, shell);
    if (shell.version < protocol::kLowestVersion || shell.version > protocol::kHighestVersion) {
        throw ProtocolError("this agent speaks protocol versions " +
                            std::to_string(protocol::kLowestVersion) + " to " +
                            std::to_string(protocol::kHighestVersion) + ", the shell chose " +
                            std::to_string(shell.version));
    }
    // What this command reads back it has read by now.
    jobs->endTurn();
    audit.setCommand(shell.user, shell.sequence);
    user = Text::printableName(shell.user, 64);
    if (shell.sequence != 0) {
        user += " #" + std::to_string(shell.sequence);
    }
}

void Session::serve() {
    try {
        if (!greet()) {
            return;
        }
    } catch (const ChannelError& lost) {
        // One that only looked whether the agent is there.
        if (lost.kind() != ChannelError::Kind::kClosed) {
            throw;
        }
        log.info(who() + ": left without a greeting");
        return;
    }
    serveRequests();
    if (!wasAsked) {
        log.info(who() + ": asked for nothing, " + std::to_string(audit.elapsedMs()) + " ms");
    }
}

void Session::serveRequests() {
    while (awaitRequest()) {
        protocol::Frame frame;
        try {
            frame = channel->receiveFrame(requestDeadline());
        } catch (const ChannelError& lost) {
            if (lost.kind() == ChannelError::Kind::kClosed ||
                lost.kind() == ChannelError::Kind::kTimedOut) {
                return;
            }
            throw;
        }
        audit.arrive();
        wasAsked = wasAsked || frame.header.type != FrameType::kShellHello;
        if (!serveRequest(frame)) {
            channel->close(FrameChannel::after(kLastWordsMs));
            return;
        }
    }
}

// A session that is told to end does not wait for long any more.
FrameChannel::Deadline Session::requestDeadline() const {
    return FrameChannel::after(toldToEnd != 0 ? kReadBackMs : limits.idleMs);
}

// The usual end of a session is found out without an exception: in a process that throws nothing
// else that would cost more than the rest of its end.
bool Session::awaitRequest() {
    const FrameChannel::Deadline deadline = requestDeadline();
    if (jobs->hasTurn() &&
        tlssocket::wait(channel->descriptor(), POLLIN,
                        std::min(deadline, FrameChannel::after(limits.turnRestMs))) == 0) {
        jobs->endTurn();
    }
    return tlssocket::wait(channel->descriptor(), POLLIN, deadline) != 0 &&
           channel->lookAtPeer() != FrameChannel::Peer::kGone;
}

bool Session::serveRequest(const protocol::Frame& frame) {
    if (std::time(nullptr) > validUntil) {
        const std::string what = protocol::name(frame.header.type);
        const std::string text = "the certificate " + quoted(rights.certificate()) +
                                 " has expired since this connection was made";
        reportRefusal(what, text);
        sendError(protocol::kErrorRefused, text);
        return false;
    }
    if (rights.judge(SessionState::kRequest, frame.header) == Verdict::kRefused) {
        return refuse(frame.header);
    }
    try {
        return serveAllowed(frame);
    } catch (const RequestAudit::Fault& fault) {
        log.error(who() + ": " + Text::printable(fault.getErrMsg()));
        sendError(protocol::kErrorRefused, fault.getErrMsg());
        return frame.header.type != FrameType::kPut;
    }
}

bool Session::refuse(const protocol::FrameHeader& header) {
    const bool isUninterruptible = (header.flags & protocol::kFlagUninterruptible) != 0;
    const std::string what =
        std::string(protocol::name(header.type)) + (isUninterruptible ? " (uninterruptible)" : "");
    const std::string text = rights.refusalOf(what);
    reportRefusal(what, text);
    sendError(protocol::kErrorRefused, text);
    // The file that belongs to a PUT is on its way.
    return header.type != FrameType::kPut;
}

// Whoever asks in vain a thousand times a second shall fill neither log nor audit, so the listener
// counts for all sessions and writes few of them.
void Session::reportRefusal(const std::string& request, const std::string& text) {
    const AuditEntry& entry = audit.beginRefused(request);
    if (!line.tellRefusal(RefusalLog::encode(entry, who(), text))) {
        log.warning(who() + ": refused: " + text);
        audit.refused(text);
    }
}

bool Session::refusePath(const std::string& request, const std::string& path) {
    const std::string text =
        rights.refusalOf(request + " " + quoted(path)) + ": " + PathPrefix::kOutside;
    reportRefusal(request, text);
    sendError(protocol::kErrorRefused, text);
    return true;
}

bool Session::serveAllowed(const protocol::Frame& frame) {
    switch (frame.header.type) {
        case FrameType::kShellHello:
            takeGreeting(frame);
            return true;
        case FrameType::kExec:
            return serveExec(frame);
        case FrameType::kRunPackaged:
            return serveRunPackaged(frame);
        case FrameType::kPut:
            return servePut(frame);
        case FrameType::kGet:
            return serveGet(frame);
        case FrameType::kExists:
            return serveExists(frame);
        case FrameType::kMac:
            return serveMac(frame);
        default:
            throw ProtocolError(std::string("a ") + protocol::name(frame.header.type) +
                                " frame came where a request was expected");
    }
}

bool Session::serveExec(const protocol::Frame& frame) {
    protocol::Exec exec;
    protocol::decode(frame.body, exec);
    const secretmask::Shown shown = secretmask::show(exec.commandLine, config.getMaskKeyFileName());
    audit.begin((frame.header.flags & protocol::kFlagUninterruptible) != 0
                    ? "EXEC (uninterruptible)"
                    : "EXEC",
                shown.text, shown.hmac);
    JobRequest request;
    request.commandLine = exec.commandLine;
    request.timeOutMs = exec.timeOutMs;
    request.uninterruptible = (frame.header.flags & protocol::kFlagUninterruptible) != 0;
    request.isReadBack = request.uninterruptible;
    return runJob(request, "EXEC");
}

bool Session::serveRunPackaged(const protocol::Frame& frame) {
    protocol::RunPackaged run;
    protocol::decode(frame.body, run);
    const secretmask::Shown shown = secretmask::show(
        run.preCommand + (run.packagedFiles.empty() ? "" : run.packagedFiles.front()) + " " +
            run.arguments,
        config.getMaskKeyFileName());
    audit.begin((frame.header.flags & protocol::kFlagUninterruptible) != 0
                    ? "RUN_PACKAGED (uninterruptible)"
                    : "RUN_PACKAGED",
                shown.text, shown.hmac);
    std::string path = run.nodePath;
    if (path.empty() || path.back() != '/') {
        path += '/';
    }
    JobRequest request;
    request.timeOutMs = run.timeOutMs;
    request.isReadBack = true;
    request.uninterruptible = (frame.header.flags & protocol::kFlagUninterruptible) != 0;
    request.workingDirectory = jobSettings.nodePath;
    request.tools = {run.packagedFiles, run.companionFiles};
    try {
        if (path != jobSettings.nodePath) {
            throw CException("the node path " + quoted(path) + " is not this agent's, which is " +
                             jobSettings.nodePath);
        }
        if (run.packagedFiles.empty()) {
            throw CException("no packaged tool is named");
        }
        request.commandLine = run.preCommand +
                              ToolRunner::programPath(jobSettings.toolsPath(), request.tools) +
                              " " + run.arguments;
    } catch (const CException& fault) {
        sendError(protocol::kErrorNotStarted, fault.getErrMsg());
        logRequest("RUN_PACKAGED", "not started: " + Text::printable(fault.getErrMsg()));
        return true;
    }
    return runJob(request, "RUN_PACKAGED");
}

bool Session::runJob(JobRequest& request, const char* what) {
    request.owner = who();
    request.audit = audit.current();
    request.shown = secretmask::show(request.commandLine, config.getMaskKeyFileName());
    const std::string label = std::string(what) +
                              (request.uninterruptible ? " (uninterruptible) " : " ") +
                              quoted(request.shown.text) + request.shown.suffix();
    bool goesOn = false;
    try {
        if (jobs->awaitTurn(request, label)) {
            setUninterruptible(request.uninterruptible);
            goesOn = jobs->run(request, label);
        } else {
            goesOn = !jobs->isConnectionLost();
        }
    } catch (const ProtocolError&) {
        logRequest(label, jobs->outcome());
        setUninterruptible(false);
        throw;
    }
    logRequest(label, jobs->outcome());
    setUninterruptible(false);
    return goesOn;
}

bool Session::servePut(const protocol::Frame& frame) {
    protocol::Put put;
    protocol::decode(frame.body, put);
    audit.begin("PUT", put.path);
    return endFile("PUT " + quoted(put.path), files->receive(put));
}

bool Session::serveGet(const protocol::Frame& frame) {
    protocol::Get get;
    protocol::decode(frame.body, get);
    if (!rights.mayName(get.path)) {
        return refusePath("GET", get.path);
    }
    audit.begin("GET", get.path);
    return endFile("GET " + quoted(get.path), files->send(get));
}

bool Session::endFile(const std::string& what, const FileConversation::Outcome& outcome) {
    logRequest(what, outcome.text);
    if (outcome.code != 0) {
        sendError(outcome.code, outcome.error);
    }
    return outcome.goesOn;
}

bool Session::serveExists(const protocol::Frame& frame) {
    protocol::Exists exists;
    protocol::decode(frame.body, exists);
    if (!rights.mayName(exists.path)) {
        return refusePath("EXISTS", exists.path);
    }
    audit.begin("EXISTS", exists.path);
    const std::string what = "EXISTS " + quoted(exists.path);
    try {
        const bool isThere = rights.exists(exists.path);
        logRequest(what, isThere ? "yes" : "no");
        sendAnswer(isThere ? "1" : "0");
    } catch (const PathPrefix::Outside& outside) {
        const std::string text = rights.refusalOf(what) + ": " + outside.getErrMsg();
        logRequest(what, "refused: " + text);
        sendError(protocol::kErrorRefused, text);
    }
    return true;
}

bool Session::serveMac(const protocol::Frame& frame) {
    if (!frame.body.empty()) {
        throw ProtocolError("a MAC frame has a body");
    }
    const std::string mac =
        !config.macAddress.empty() ? config.macAddress : networkinterface::macOfLocalAddress(ownIp);
    const std::string told = mac.empty() ? "none" : mac;
    audit.whole("MAC", told);
    logRequest("MAC", told);
    sendAnswer(mac);
    return true;
}

void Session::sendError(std::uint16_t code, const std::string& text) {
    channel->sendFrame(protocol::encode(protocol::Error{code, text}),
                       FrameChannel::after(kShortSendMs));
}

void Session::sendAnswer(const std::string& text) {
    channel->sendFrame(protocol::encode(protocol::Answer{text}), FrameChannel::after(kShortSendMs));
}

void Session::logRequest(const std::string& what, const std::string& result) {
    audit.end(result);
    log.info(who() + ": " + what + ": " + result + ", " + std::to_string(audit.elapsedMs()) +
             " ms");
}

std::string Session::who() const {
    return user.empty() ? peer : peer + " (" + user + ")";
}
