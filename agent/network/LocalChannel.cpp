#include "LocalChannel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <utility>

#include "LocalMessages.h"

LocalChannel::LocalChannel(UniqueFd local, std::string peerAddress)
    : FrameChannel(std::move(local), std::move(peerAddress)) {}

LocalChannel::~LocalChannel() {
    if (!closed) {
        drainSocket(after(localmessages::kLastBytesMs + 2 * localmessages::kLastWordsMs));
    }
}

std::size_t LocalChannel::readSome(char* target, std::size_t most) {
    ssize_t got = 0;
    do {
        got = ::recv(socket.get(), target, most, MSG_DONTWAIT);
    } while (got < 0 && errno == EINTR);
    if (got < 0 && errno == EAGAIN) {
        wantedEvents = POLLIN;
        return 0;
    }
    if (got <= 0) {
        lost("while waiting for it", got == 0 ? 0 : errno);
    }
    return static_cast<std::size_t>(got);
}

std::size_t LocalChannel::writeSome(const char* bytes, std::size_t count) {
    ssize_t put = 0;
    do {
        put = ::send(socket.get(), bytes, count, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (put < 0 && errno == EINTR);
    if (put < 0 && errno == EAGAIN) {
        wantedEvents = POLLOUT;
        return 0;
    }
    if (put < 0) {
        lost("while sending", errno == EPIPE ? 0 : errno);
    }
    return static_cast<std::size_t>(put);
}

FrameChannel::Peer LocalChannel::lookAtPeer() {
    char next = 0;
    ssize_t seen = 0;
    do {
        seen = ::recv(socket.get(), &next, 1, MSG_PEEK | MSG_DONTWAIT);
    } while (seen < 0 && errno == EINTR);
    if (seen > 0) {
        return Peer::kSpeaking;
    }
    return seen < 0 && errno == EAGAIN ? Peer::kSilent : Peer::kGone;
}

void LocalChannel::close(Deadline deadline) noexcept {
    closed = true;
    // The network process does the same with the shell, and ends when that is over.
    drainSocket(deadline + std::chrono::milliseconds(localmessages::kLastWordsMs));
}

void LocalChannel::lost(const char* doing, int error) const {
    throw ChannelError(ChannelError::Kind::kClosed,
                       peer + ": connection lost " + doing + ": " +
                           (error != 0 ? std::strerror(error) : "the other end closed it") + ".");
}
