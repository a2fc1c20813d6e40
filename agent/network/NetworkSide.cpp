#include "NetworkSide.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

#include "CException.h"
#include "LocalChannel.h"
#include "LocalMessages.h"
#include "NetworkProcess.h"
#include "TlsSocket.h"

namespace {

constexpr char kProcessName[] = "kelnode-network";
constexpr std::size_t kMaxFailureBytes = 4096;

[[noreturn]] void become(UniqueFd connection, UniqueFd local,
                         const std::shared_ptr<TlsContext>& context,
                         const sandbox::Settings& settings, const std::string& peer, pid_t parent,
                         FrameChannel::Deadline deadline) {
    ::prctl(PR_SET_NAME, kProcessName);
    // It ends with its session, and in no other way.
    ::signal(SIGTERM, SIG_IGN);
    std::string fault;
    try {
        tlssocket::prepare(connection.get(), peer);
        fault = sandbox::enter(settings, parent, local.release(), connection.release());
    } catch (const CException& failed) {
        fault = failed.getErrMsg();
    }
    if (!fault.empty()) {
        ::_exit(EXIT_FAILURE);
    }
    networkprocess::run(UniqueFd(1), UniqueFd(0), peer, context, deadline);
    ::_exit(EXIT_SUCCESS);
}

}  // namespace

NetworkSide::NetworkSide(UniqueFd connection, std::shared_ptr<TlsContext> ownContext,
                         const sandbox::Settings& settings, std::string peerAddress,
                         FrameChannel::Deadline deadline)
    : context(std::move(ownContext)), peer(std::move(peerAddress)), limit(deadline) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) {
        throw CException(std::string("cannot make a pair of sockets: ") + std::strerror(errno));
    }
    socket.reset(ends[0]);
    UniqueFd other(ends[1]);
    const pid_t parent = ::getpid();
    const pid_t pid = ::fork();
    if (pid < 0) {
        throw CException(std::string("cannot start the network side: ") + std::strerror(errno));
    }
    if (pid == 0) {
        socket.reset();
        become(std::move(connection), std::move(other), context, settings, peer, parent, limit);
    }
}

NetworkSide::NetworkSide(UniqueFd local, std::shared_ptr<TlsContext> ownContext,
                         std::string peerAddress, FrameChannel::Deadline deadline)
    : context(std::move(ownContext)),
      socket(std::move(local)),
      peer(std::move(peerAddress)),
      limit(deadline) {}

HandshakeWitness::Master NetworkSide::authenticate() {
    // A refused peer has its time to read why before this end hears of it.
    const FrameChannel::Deadline deadline =
        limit +
        std::chrono::milliseconds(localmessages::kLastWordsMs + localmessages::kLastWordsMs / 2);
    HandshakeWitness witness(context);
    for (;;) {
        char type = 0;
        const std::string body = localmessages::receive(
            socket.get(), type, HandshakeWitness::kMaxTranscriptBytes, deadline);
        switch (type) {
            case 'S':
                localmessages::send(socket.get(), 's', witness.sign(body), deadline);
                break;
            case 'P':
                return witness.prove(body, "the shell at " + peer);
            case 'F':
                reportFailure(body);
            default:
                throw ChannelError(
                    ChannelError::Kind::kFailed,
                    "The network side of the session with " + peer + " does not keep to its part.");
        }
    }
}

void NetworkSide::reportFailure(const std::string& told) const {
    const auto kind = static_cast<unsigned char>(told.empty() ? 0xff : told[0]);
    throw ChannelError(kind <= static_cast<unsigned char>(ChannelError::Kind::kFailed)
                           ? static_cast<ChannelError::Kind>(kind)
                           : ChannelError::Kind::kFailed,
                       told.substr(std::min<std::size_t>(told.size(), 1), kMaxFailureBytes));
}

std::unique_ptr<FrameChannel> NetworkSide::openChannel() {
    return std::make_unique<LocalChannel>(std::move(socket), peer);
}
