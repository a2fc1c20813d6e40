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

constexpr std::size_t kMaxFailureBytes = 4096;

}  // namespace

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
