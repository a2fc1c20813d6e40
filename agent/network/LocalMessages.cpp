#include "LocalMessages.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>

#include "TlsSocket.h"

namespace localmessages {
namespace {

[[noreturn]] void lost() {
    throw ChannelError(ChannelError::Kind::kClosed, "the other half of the session is gone");
}

std::string receiveBytes(int local, std::size_t count, FrameChannel::Deadline deadline) {
    std::string bytes(count, '\0');
    std::size_t have = 0;
    while (have < count) {
        const ssize_t got = ::recv(local, &bytes[have], count - have, MSG_DONTWAIT);
        if (got > 0) {
            have += static_cast<std::size_t>(got);
        } else if (got < 0 && errno == EAGAIN) {
            if (tlssocket::wait(local, POLLIN, deadline) == 0) {
                throw ChannelError(ChannelError::Kind::kTimedOut,
                                   "the other half of the session is stuck");
            }
        } else if (got == 0 || errno != EINTR) {
            lost();
        }
    }
    return bytes;
}

}  // namespace

bool makePair(UniqueFd (&ends)[2]) {
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, pair) != 0) {
        return false;
    }
    ends[0].reset(pair[0]);
    ends[1].reset(pair[1]);
    return true;
}

void send(int local, char type, const std::string& body, FrameChannel::Deadline deadline) {
    const std::uint32_t length = htonl(static_cast<std::uint32_t>(body.size()));
    std::string bytes(1, type);
    bytes.append(reinterpret_cast<const char*>(&length), sizeof length);
    bytes += body;
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t put =
            ::send(local, bytes.data() + done, bytes.size() - done, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (put >= 0) {
            done += static_cast<std::size_t>(put);
        } else if (errno == EAGAIN) {
            if (tlssocket::wait(local, POLLOUT, deadline) == 0) {
                throw ChannelError(ChannelError::Kind::kTimedOut,
                                   "the other half of the session is stuck");
            }
        } else if (errno != EINTR) {
            lost();
        }
    }
}

std::string receive(int local, char& type, std::size_t mostBytes, FrameChannel::Deadline deadline) {
    const std::string header = receiveBytes(local, 1 + sizeof(std::uint32_t), deadline);
    std::uint32_t length = 0;
    type = header[0];
    std::memcpy(&length, &header[1], sizeof length);
    length = ntohl(length);
    if (length > mostBytes) {
        throw ChannelError(ChannelError::Kind::kFailed,
                           "the other half of the session says too much");
    }
    return receiveBytes(local, length, deadline);
}

}  // namespace localmessages
