#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "ChannelError.h"
#include "Protocol.h"
#include "UniqueFd.h"

class Cancellation;

// Protocol frames over a stream of bytes; what carries the bytes is the subclass's. Owns its
// socket, which is non-blocking: every operation is bounded by a point in time on the monotonic
// clock. EINTR is retried; SIGPIPE is never raised. Not thread-safe, not copyable, not movable.
//
// Everything that fails throws ChannelError, and bad bytes throw protocol::ProtocolError; after
// either (time-outs of receiveFrame excepted) the channel is good for nothing but its destruction.
class FrameChannel {
public:
    using Clock = std::chrono::steady_clock;
    using Deadline = Clock::time_point;

    // No limit.
    static Deadline never() { return Deadline::max(); }
    static Deadline after(unsigned long milliseconds) {
        return Clock::now() + std::chrono::milliseconds(milliseconds);
    }

    FrameChannel(const FrameChannel&) = delete;
    FrameChannel& operator=(const FrameChannel&) = delete;
    virtual ~FrameChannel();

    // Sends the bytes of one or more whole frames, after whatever is queued.
    void sendFrame(std::string_view bytes, Deadline deadline);
    // The same, but gives up with false as soon as the peer has something to say or is gone: an
    // answer in the middle of a long upload means that it is not wanted. The channel can then only
    // receive.
    bool sendFrameUnlessAnswered(const std::string& bytes, Deadline deadline);
    // For event loops: queueFrame keeps bytes, and flush() writes without waiting as much of them
    // as the socket takes. sendOrQueue writes straight from the caller's memory and keeps what does
    // not go. Both return true when nothing is left queued. Queue no more than a frame ahead.
    void queueFrame(std::string_view bytes);
    bool flush();
    bool sendOrQueue(std::string_view bytes);
    bool hasQueued() const { return sent < queued.size(); }

    // Waits for one frame. The header is checked before a byte of the body is read, and the body is
    // the only allocation. On a time-out what has arrived of the frame is kept, and a later call
    // goes on with it.
    protocol::Frame receiveFrame(Deadline deadline);
    // The same into a frame whose memory is used again, for long series of frames.
    void receiveFrame(protocol::Frame& frame, Deadline deadline);

    enum class Peer { kSilent, kSpeaking, kGone };
    // Looks, without waiting, whether bytes of the peer are there to be received. Ask after poll()
    // reported the descriptor readable: bytes may also wait inside the channel, so ask once
    // before the first poll().
    virtual Peer lookAtPeer() = 0;

    // Ends the conversation in order: goodbye, no more writing, then what the peer still sends is
    // dropped until it closes or the deadline passes. Without it a peer that is still sending would
    // lose our last words. Never throws.
    virtual void close(Deadline deadline) noexcept = 0;

    // Whoever cancels it ends every wait of this channel with ChannelError kCancelled; null for
    // nobody. It must outlive the waits.
    void setCancellation(const Cancellation* giveUp) { stop = giveUp; }

    // For poll(); the channel keeps it.
    int descriptor() const { return socket.get(); }
    // "127.0.0.1:4422"
    const std::string& peerAddress() const { return peer; }

protected:
    FrameChannel(UniqueFd connected, std::string peerAddress);

    // As many bytes as there are or go without waiting, at least one; 0 when there is nothing to be
    // done yet, and then wantedEvents says what to poll for. Throw ChannelError, kClosed at the
    // end.
    virtual std::size_t readSome(char* target, std::size_t most) = 0;
    virtual std::size_t writeSome(const char* bytes, std::size_t count) = 0;
    bool isBetweenFrames() const { return !hasQueued() && headerBytes == 0; }
    void waitForSocket(short events, Deadline deadline, const char* doing);
    // Drops what comes until the peer closes or the deadline passes; no more is written.
    void drainSocket(Deadline deadline) noexcept;

    UniqueFd socket;
    std::string peer;
    short wantedEvents = 0;
    const Cancellation* stop = nullptr;

private:
    bool write(std::string_view bytes, std::size_t& done);
    bool readInto(char* target, std::size_t wanted, std::size_t& have, Deadline deadline);
    bool receiveWhatIsThere(protocol::Frame& frame, Deadline deadline);

    std::string queued;  // bytes to send
    std::size_t sent = 0;

    unsigned char header[protocol::kHeaderBytes] = {};
    std::size_t headerBytes = 0;
    protocol::Frame incoming;
    std::size_t bodyBytes = 0;
};
