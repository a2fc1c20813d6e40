#include "FrameChannel.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <utility>

#include "Cancellation.h"
#include "TlsSocket.h"

using Kind = ChannelError::Kind;

FrameChannel::FrameChannel(UniqueFd connected, std::string peerAddress)
    : socket(std::move(connected)), peer(std::move(peerAddress)) {}

FrameChannel::~FrameChannel() = default;

void FrameChannel::waitForSocket(short events, Deadline deadline, const char* doing) {
    if (tlssocket::wait(socket.get(), events, deadline, stop) == 0) {
        throw ChannelError(Kind::kTimedOut, peer + " did not answer in time " + doing + ".");
    }
}

void FrameChannel::queueFrame(std::string_view bytes) {
    if (sent > 0) {
        queued.erase(0, sent);
        sent = 0;
    }
    queued += bytes;
}

// Without waiting, from where an earlier call stopped; true when all is written.
bool FrameChannel::write(std::string_view bytes, std::size_t& done) {
    while (done < bytes.size()) {
        const std::size_t put = writeSome(bytes.data() + done, bytes.size() - done);
        if (put == 0) {
            return false;
        }
        done += put;
    }
    return true;
}

bool FrameChannel::flush() {
    if (!write(queued, sent)) {
        return false;
    }
    queued.clear();
    sent = 0;
    return true;
}

bool FrameChannel::sendOrQueue(std::string_view bytes) {
    std::size_t done = 0;
    if (flush() && write(bytes, done)) {
        return true;
    }
    queueFrame(bytes.substr(done));
    return false;
}

void FrameChannel::sendFrame(std::string_view bytes, Deadline deadline) {
    std::size_t done = 0;
    // Straight from the caller's memory: copies of large files add up.
    while (!flush() || !write(bytes, done)) {
        waitForSocket(wantedEvents, deadline, "while it was being sent to");
    }
}

bool FrameChannel::sendFrameUnlessAnswered(const std::string& bytes, Deadline deadline) {
    if (lookAtPeer() != Peer::kSilent) {
        return false;
    }
    std::size_t done = 0;
    try {
        while (!flush() || !write(bytes, done)) {
            waitForSocket(static_cast<short>(wantedEvents | POLLIN), deadline,
                          "while it was being sent to");
            if (lookAtPeer() != Peer::kSilent) {
                return false;
            }
        }
    } catch (const ChannelError& error) {
        // A peer that closes may have said why before: the caller receives it, or the same failure.
        if (error.kind() != Kind::kClosed) {
            throw;
        }
        return false;
    }
    return true;
}

bool FrameChannel::readInto(char* target, std::size_t wanted, std::size_t& have,
                            Deadline deadline) {
    while (have < wanted) {
        // A peer that sends without a pause, frame after frame or byte after byte, leaves nothing
        // to wait for.
        if (Clock::now() >= deadline) {
            throw ChannelError(Kind::kTimedOut, peer + " did not come to an end in time.");
        }
        if (stop != nullptr && stop->isCancelled()) {
            throw ChannelError(Kind::kCancelled, "nobody waits for " + peer + " any more.");
        }
        const std::size_t got = readSome(target + have, wanted - have);
        if (got == 0) {
            return false;
        }
        have += got;
    }
    return true;
}

bool FrameChannel::receiveWhatIsThere(protocol::Frame& frame, Deadline deadline) {
    if (headerBytes < sizeof header) {
        if (!readInto(reinterpret_cast<char*>(header), sizeof header, headerBytes, deadline)) {
            return false;
        }
        incoming.header = protocol::decodeHeader(header);
        incoming.body.resize(incoming.header.length);
        bodyBytes = 0;
    }
    if (!readInto(&incoming.body[0], incoming.body.size(), bodyBytes, deadline)) {
        return false;
    }
    frame.header = incoming.header;
    // Exchanged, not copied: the memory of the frame before serves for the next one.
    frame.body.swap(incoming.body);
    headerBytes = 0;
    return true;
}

protocol::Frame FrameChannel::receiveFrame(Deadline deadline) {
    protocol::Frame frame;
    receiveFrame(frame, deadline);
    return frame;
}

void FrameChannel::receiveFrame(protocol::Frame& frame, Deadline deadline) {
    while (!receiveWhatIsThere(frame, deadline)) {
        waitForSocket(wantedEvents, deadline, "to a request");
    }
}

void FrameChannel::drainSocket(Deadline deadline) noexcept {
    if (shutdown(socket.get(), SHUT_WR) != 0) {
        return;
    }
    char dropped[16384];
    while (tlssocket::wait(socket.get(), POLLIN, deadline) != 0) {
        const ssize_t got = recv(socket.get(), dropped, sizeof dropped, 0);
        if (got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN)) {
            return;
        }
    }
}
