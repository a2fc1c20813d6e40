#pragma once

#include <memory>
#include <string>

#include "FrameChannel.h"
#include "HandshakeWitness.h"
#include "TlsContext.h"
#include "UniqueFd.h"

// The half of a session that faces the network: a process without privileges (Sandbox) that owns
// the connection and all of TLS, and passes the plain bytes on over a local socket. It has neither
// the private key nor the last word on who the master is (HandshakeWitness). What it says is as
// little to be trusted as the network. Both speak as LocalMessages.h says.
class NetworkSide {
public:
    // The session's end of the local socket, to be spoken to directly.
    NetworkSide(UniqueFd local, std::shared_ptr<TlsContext> ownContext, std::string peerAddress,
                FrameChannel::Deadline deadline);

    // Waits for the handshake. Throws ChannelError as TlsChannel::accept would, for a network side
    // that does not keep to its part too.
    HandshakeWitness::Master authenticate();
    // The conversation with the master; once, after that.
    std::unique_ptr<FrameChannel> openChannel();

private:
    [[noreturn]] void reportFailure(const std::string& told) const;

    std::shared_ptr<TlsContext> context;
    UniqueFd socket;
    std::string peer;
    FrameChannel::Deadline limit;
};
