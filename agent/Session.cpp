#include "Session.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "CException.h"
#include "FileSource.h"
#include "FileTransfer.h"
#include "NetworkInterface.h"
#include "NetworkSide.h"
#include "SecretMask.h"
#include "Text.h"
#include "TlsSocket.h"

namespace {

using protocol::FrameType;
using protocol::ProtocolError;

constexpr unsigned long kLastWordsMs = 1000;
constexpr unsigned long kShortSendMs = 10000;
constexpr int kListenerPatienceMs = 2000;
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
                 const JobSettings& settings, const EventLog& agentLog,
                 const sandbox::Settings& confinement, UniqueFd toListener,
                 FrameChannel::Clock::time_point accepted, bool isBusy)
    : socket(std::move(connection)),
      context(std::move(tlsContext)),
      config(agentConfig),
      authorization(rules),
      jobSettings(settings),
      log(agentLog),
      confinementOfNetwork(confinement),
      statusPipe(std::move(toListener)),
      acceptedAt(accepted),
      busy(isBusy),
      limits(),
      runDirectory(agentConfig.getRunPath()) {}

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
    uninterruptible = on;
    if ((mustFinish != 0) != on) {
        mustFinish = on ? 1 : 0;
        tellListener(on ? kUninterruptibleBegins : kUninterruptibleEnds);
    }
}

void Session::run() noexcept {
    try {
        peerIp = addressOf(socket.get(), false);
        ownIp = addressOf(socket.get(), true);
        peer = peerIp;
        const std::string address = tlssocket::peerOf(socket.get());
        NetworkSide network(std::move(socket), context, confinementOfNetwork, address,
                            acceptedAt + std::chrono::milliseconds(limits.handshakeMs));
        const HandshakeWitness::Master master = network.authenticate();
        channel = network.openChannel();
        announcePeer(master.certificates);
        certificateName = master.name;
        grant = authorization.grantOf(certificateName);
        peer = Text::printable(master.subject) + " " + peer;
        serve();
    } catch (const ProtocolError& fault) {
        log.warning(who() + ": broke the protocol: " + Text::printable(fault.getErrMsg()));
        endAudit("broke the protocol");
        try {
            sendError(protocol::kErrorProtocol, fault.getErrMsg());
            channel->close(FrameChannel::after(kLastWordsMs));
        } catch (const std::exception& gone) {
            log.warning(who() + ": " + Text::printable(gone.what()));
        }
    } catch (const std::exception& fault) {
        log.warning(who() + ": " + Text::printable(fault.what()));
        endAudit(fault.what());
    }
}

bool Session::greet() {
    if (busy) {
        sendError(protocol::kErrorRefused,
                  "the agent serves as many sessions as it may (MAX_SESSIONS=" +
                      std::to_string(config.maxSessions) + "); try again later");
        channel->close(FrameChannel::after(kLastWordsMs));
        log.warning(who() + ": turned away, all sessions are taken");
        return false;
    }
    protocol::AgentHello hello;
    hello.build = KELNODE_VERSION;
    char name[256] = "";
    ::gethostname(name, sizeof name - 1);
    hello.nodeName = name;
    channel->sendFrame(protocol::encode(hello), FrameChannel::after(limits.greetingMs));
    const protocol::Frame frame = channel->receiveFrame(FrameChannel::after(limits.greetingMs));
    judge(SessionState::kGreeting, frame.header);
    takeGreeting(frame);
    return true;
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
    audit.certificate = certificateName;
    audit.address = peerIp;
    audit.user = shell.user;
    audit.number = shell.sequence;
    user = Text::printable(shell.user, 64);
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
        return;
    }
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
        requestStart = FrameChannel::Clock::now();
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
    return tlssocket::wait(channel->descriptor(), POLLIN, requestDeadline()) != 0 &&
           channel->lookAtPeer() != FrameChannel::Peer::kGone;
}

bool Session::serveRequest(const protocol::Frame& frame) {
    if (judge(SessionState::kRequest, frame.header) == Verdict::kRefused) {
        return refuse(frame.header);
    }
    try {
        return serveAllowed(frame);
    } catch (const AuditFault& fault) {
        log.error(who() + ": " + Text::printable(fault.getErrMsg()));
        sendError(protocol::kErrorRefused, fault.getErrMsg());
        return frame.header.type != FrameType::kPut;
    }
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
    beginAudit((frame.header.flags & protocol::kFlagUninterruptible) != 0 ? "EXEC (uninterruptible)"
                                                                          : "EXEC",
               secretmask::mask(exec.commandLine));
    JobRequest request;
    request.commandLine = exec.commandLine;
    request.timeOutMs = exec.timeOutMs;
    request.uninterruptible = (frame.header.flags & protocol::kFlagUninterruptible) != 0;
    return runJob(request, "EXEC");
}

bool Session::serveRunPackaged(const protocol::Frame& frame) {
    protocol::RunPackaged run;
    protocol::decode(frame.body, run);
    beginAudit((frame.header.flags & protocol::kFlagUninterruptible) != 0
                   ? "RUN_PACKAGED (uninterruptible)"
                   : "RUN_PACKAGED",
               secretmask::mask(run.preCommand +
                                (run.packagedFiles.empty() ? "" : run.packagedFiles.front()) + " " +
                                run.arguments));
    std::string path = run.nodePath;
    if (path.empty() || path.back() != '/') {
        path += '/';
    }
    JobRequest request;
    request.timeOutMs = run.timeOutMs;
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

bool Session::servePut(const protocol::Frame& frame) {
    protocol::Put put;
    protocol::decode(frame.body, put);
    beginAudit("PUT", put.path);
    const std::string what = "PUT " + quoted(put.path);
    std::uint16_t code = protocol::kErrorFile;
    std::string fault;
    try {
        logRequest(what, Text::printable(receiveFile(put)));
        return true;
    } catch (const ProtocolError&) {
        throw;
    } catch (const ChannelError& lost) {
        logRequest(what, Text::printable(lost.getErrMsg()));
        return false;
    } catch (const FileReceiver::Damaged& damaged) {
        code = protocol::kErrorDigest;
        fault = damaged.getErrMsg();
    } catch (const CException& failed) {
        fault = failed.getErrMsg();
    }
    logRequest(what, Text::printable(fault));
    // The rest of the file is on its way; the shell closes when it has read this.
    sendError(code, fault);
    return false;
}

std::string Session::receiveFile(const protocol::Put& put) {
    const FrameChannel::Deadline deadline =
        put.timeOutMs > 0 ? FrameChannel::after(put.timeOutMs) : FrameChannel::never();
    FileReceiver receiver(put, runDirectory);
    protocol::Frame frame;
    for (;;) {
        if (!receiveUntil(frame, deadline)) {
            const std::string text = "\"" + put.path + "\" was not saved in time, " +
                                     std::to_string(receiver.receivedBytes()) + " of " +
                                     std::to_string(put.size) + " bytes had arrived.";
            sendError(protocol::kErrorTimedOut, text);
            throw ChannelError(ChannelError::Kind::kTimedOut, text);
        }
        if (judge(SessionState::kUpload, frame.header) == Verdict::kRefused) {
            throw CException(refusal("PUT"));
        }
        if (frame.header.type == FrameType::kEnd) {
            protocol::End end;
            protocol::decode(frame.body, end);
            protocol::Result result;
            result.text = receiver.finish(end.digest);
            result.elapsedMs = static_cast<std::uint32_t>(elapsedMs());
            channel->sendFrame(protocol::encode(result), FrameChannel::after(kShortSendMs));
            return result.text;
        }
        receiver.consume(frame.body);
    }
}

bool Session::receiveUntil(protocol::Frame& frame, FrameChannel::Deadline deadline) {
    try {
        channel->receiveFrame(frame,
                              std::min(deadline, FrameChannel::after(limits.uploadSilenceMs)));
        return true;
    } catch (const ChannelError& lost) {
        if (lost.kind() != ChannelError::Kind::kTimedOut) {
            throw;
        }
        return false;
    }
}

bool Session::serveGet(const protocol::Frame& frame) {
    protocol::Get get;
    protocol::decode(frame.body, get);
    beginAudit("GET", get.path);
    const std::string what = "GET " + quoted(get.path);
    try {
        logRequest(what, Text::printable(sendFile(get)));
    } catch (const ChannelError& lost) {
        logRequest(what, Text::printable(lost.getErrMsg()));
        return false;
    } catch (const pathprefix::Outside& outside) {
        const std::string text = refusal(what) + ": " + outside.getErrMsg();
        logRequest(what, "refused: " + text);
        sendError(protocol::kErrorRefused, text);
    } catch (const CException& failed) {
        logRequest(what, Text::printable(failed.getErrMsg()));
        sendError(protocol::kErrorFile, failed.getErrMsg());
    }
    return true;
}

std::string Session::sendFile(const protocol::Get& get) {
    const FrameChannel::Deadline deadline =
        get.timeOutMs > 0 ? FrameChannel::after(get.timeOutMs) : FrameChannel::never();
    // A little more than the time given, so that the reason still gets through.
    const FrameChannel::Deadline hardDeadline =
        get.timeOutMs > 0 ? deadline + std::chrono::milliseconds(kLastWordsMs) : deadline;
    FileSource source = openSource(get.path);
    channel->sendFrame(protocol::encode(protocol::FileInfo{source.size(), source.mode()}),
                       hardDeadline);
    std::string piece;
    while (source.nextFrame(piece)) {
        if (FrameChannel::Clock::now() >= deadline) {
            std::string text = "\"" + get.path + "\" was not sent in time, " +
                               std::to_string(source.sentBytes()) + " of " +
                               std::to_string(source.size()) + " bytes were read.";
            sendError(protocol::kErrorTimedOut, text);
            return text;
        }
        channel->sendFrame(piece, hardDeadline);
    }
    const std::string digest = source.finish();
    channel->sendFrame(protocol::encode(protocol::End{digest}), hardDeadline);
    return "sent, " + std::to_string(source.size()) + " bytes, SHA-256 " +
           FileDigest::shortHex(digest);
}

bool Session::serveExists(const protocol::Frame& frame) {
    protocol::Exists exists;
    protocol::decode(frame.body, exists);
    beginAudit("EXISTS", exists.path);
    struct stat found {};
    const bool isThere = ::stat(exists.path.c_str(), &found) == 0;
    logRequest("EXISTS " + quoted(exists.path), isThere ? "yes" : "no");
    sendAnswer(isThere ? "1" : "0");
    return true;
}

bool Session::serveMac(const protocol::Frame& frame) {
    if (!frame.body.empty()) {
        throw ProtocolError("a MAC frame has a body");
    }
    const std::string mac =
        !config.macAddress.empty() ? config.macAddress : networkinterface::macOfLocalAddress(ownIp);
    const std::string told = mac.empty() ? "none" : mac;
    auditWhole("MAC", told);
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

void Session::tellListener(char what) {
    tellListener(std::string(1, what));
}

void Session::tellListener(const std::string& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t put = ::write(statusPipe.get(), bytes.data() + done, bytes.size() - done);
        if (put >= 0) {
            done += static_cast<std::size_t>(put);
        } else if (errno == EAGAIN) {
            pollfd watched{statusPipe.get(), POLLOUT, 0};
            if (::poll(&watched, 1, kListenerPatienceMs) == 0) {
                return;
            }
        } else if (errno != EINTR) {
            return;
        }
    }
}

void Session::logRequest(const std::string& what, const std::string& result) {
    endAudit(result);
    log.info(who() + ": " + what + ": " + result + ", " + std::to_string(elapsedMs()) + " ms");
}

long long Session::elapsedMs() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(FrameChannel::Clock::now() -
                                                                 requestStart)
        .count();
}

std::string Session::who() const {
    return user.empty() ? peer : peer + " (" + user + ")";
}
