#pragma once

#include <memory>
#include <string>

#include "FrameChannel.h"
#include "TlsContext.h"
#include "UniqueFd.h"

// What the network side of a session does in its process.
namespace networkprocess {

// From now on this process ends with its session, whose end of the local socket closes then. Until
// the handshake is over nobody would see that otherwise.
void endWithSession(int local);

// Makes the handshake and passes bytes on until one end closes. The connection is prepared, and
// peer its far end, for texts. The context must be this process's own, with a stand-in for its
// private key (signingproxy). Throws nothing.
void run(UniqueFd connection, UniqueFd local, const std::string& peer,
         const std::shared_ptr<TlsContext>& context, FrameChannel::Deadline deadline) noexcept;

}  // namespace networkprocess
