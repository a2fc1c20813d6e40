#pragma once

#include <chrono>
#include <memory>
#include <string>

#include <openssl/ssl.h>

#include "CException.h"
#include "Protocol.h"
#include "TlsContext.h"
#include "UniqueFd.h"

// Why a connection could not be made or was lost. The text names the peer.
class TlsError : public CException {
public:
    enum class Kind {
        kTimedOut,     // the deadline passed
        kClosed,       // the peer or the network ended the connection
        kUnreachable,  // no connection was made
        kPending,      // none yet, but it is being made: DialPatience
        kRefused,      // one end did not accept the other's certificate
        kFailed,       // anything else: TLS broken, no ALPN, resources
    };
    TlsError(Kind kind, std::string text);
    TlsError(const TlsError&) = default;
    TlsError& operator=(const TlsError&) = default;
    ~TlsError() override;
    Kind kind() const { return reason; }

private:
    Kind reason;
};

// One TLS connection that carries protocol frames; both ends use it. Owns its socket, which is
// non-blocking: every operation is bounded by a point in time on the monotonic clock. EINTR is
// retried; SIGPIPE is never raised. Not thread-safe, not copyable, not movable.
//
// Everything that fails throws TlsError, and bad bytes throw protocol::ProtocolError; after either
// (time-outs of receiveFrame excepted) the channel is good for nothing but its destruction.
class TlsChannel {
public:
    using Clock = std::chrono::steady_clock;
    using Deadline = Clock::time_point;

    // No limit.
    static Deadline never() { return Deadline::max(); }
    static Deadline after(unsigned long milliseconds) {
        return Clock::now() + std::chrono::milliseconds(milliseconds);
    }

    // Dials the address (an IP literal or a name), makes the handshake and checks the certificate
    // against the address dialled.
    static std::unique_ptr<TlsChannel> connect(const std::string& address, int port,
                                               std::shared_ptr<TlsContext> context,
                                               Deadline deadline);
    // The same over a socket that is connected to that address already, as by tlssocket::connect.
    static std::unique_ptr<TlsChannel> connectOver(UniqueFd connected, const std::string& address,
                                                   int port, std::shared_ptr<TlsContext> context,
                                                   Deadline deadline);
    // Makes the handshake on an accepted socket. When the peer is refused it is given up to a
    // second to read the alert that says why, then TlsError says the same to the log.
    static std::unique_ptr<TlsChannel> accept(UniqueFd accepted,
                                              std::shared_ptr<TlsContext> context,
                                              Deadline deadline);

    TlsChannel(const TlsChannel&) = delete;
    TlsChannel& operator=(const TlsChannel&) = delete;
    // Tells the peer goodbye without waiting, so that the session stays resumable; closes the
    // socket.
    ~TlsChannel();

    // Sends the bytes of one or more whole frames, after whatever is queued.
    void sendFrame(const std::string& bytes, Deadline deadline);
    // The same, but gives up with false as soon as the peer has something to say or is gone: an
    // answer in the middle of a long upload means that it is not wanted. The channel can then only
    // receive.
    bool sendFrameUnlessAnswered(const std::string& bytes, Deadline deadline);
    // For event loops: queues bytes, and writes without waiting as much as the socket takes.
    // flush() returns true when nothing is left queued. Queue no more than a frame ahead.
    void queueFrame(const std::string& bytes);
    bool flush();
    bool hasQueued() const { return sent < queued.size(); }

    // Waits for one frame. The header is checked before a byte of the body is read, and the body is
    // the only allocation. On a time-out what has arrived of the frame is kept, and a later call
    // goes on with it.
    protocol::Frame receiveFrame(Deadline deadline);
    // The same into a frame whose memory is used again, for long series of frames.
    void receiveFrame(protocol::Frame& frame, Deadline deadline);
    // The same without waiting; false when the frame is not complete yet.
    bool tryReceiveFrame(protocol::Frame& frame);

    enum class Peer { kSilent, kSpeaking, kGone };
    // Looks, without waiting, whether bytes of the peer are there to be received. Ask after poll()
    // reported the descriptor readable: bytes may also wait inside the TLS layer, so ask once
    // before the first poll().
    Peer lookAtPeer();

    // Whether both directions are between two frames, as far as this end knows without looking, and
    // nothing has gone wrong.
    bool isAtRest() const { return established && !broken && !hasQueued() && headerBytes == 0; }
    // Whether the last day of one of the two certificates has passed since the handshake.
    bool isExpired() const;

    // Ends the conversation in order: goodbye, no more writing, then what the peer still sends is
    // dropped until it closes or the deadline passes. Without it a peer that is still sending would
    // lose our last words. Never throws.
    void close(Deadline deadline) noexcept;

    // For poll(); the channel keeps it.
    int descriptor() const { return socket.get(); }
    // "127.0.0.1:4422"
    const std::string& peerAddress() const { return peer; }
    // The subject of the peer's certificate, "CN=node_0001"; and its common name alone.
    std::string peerSubject() const;
    std::string peerCommonName() const;
    // The certificates the peer has shown, DER one after the other, its own first. Those of its
    // issuers are left out after a resumption, and where all would be more than maxBytes.
    std::string peerCertificates(std::size_t maxBytes) const;
    bool isResumed() const;

private:
    struct SslDeleter {
        void operator()(SSL* doomed) const { SSL_free(doomed); }
    };

    TlsChannel(UniqueFd connected, std::shared_ptr<TlsContext> shared, std::string peerAddress);
    void expectAddress(const std::string& address);
    void handshake(const std::string& dialled, Deadline deadline);
    void checkAlpn();
    TlsError wrongApplication() const;
    void drainSocket(Deadline deadline) noexcept;
    // One step of OpenSSL: above 0 done, 0 not yet (poll for wantedEvents). Throws TlsError.
    int step(int returned, const char* doing);
    [[noreturn]] void fail(int sslError, int savedErrno, const char* doing);
    bool readInto(char* target, std::size_t wanted, std::size_t& have, Deadline deadline);
    bool write(const std::string& bytes, std::size_t& done);
    bool receiveWhatIsThere(protocol::Frame& frame, Deadline deadline);
    void waitForSocket(short events, Deadline deadline, const char* doing);

    std::shared_ptr<TlsContext> context;
    UniqueFd socket;
    std::string peer;
    std::unique_ptr<SSL, SslDeleter> ssl;
    bool established = false;
    bool broken = false;
    short wantedEvents = 0;

    std::string queued;  // bytes to send
    std::size_t sent = 0;

    unsigned char header[protocol::kHeaderBytes] = {};
    std::size_t headerBytes = 0;
    protocol::Frame incoming;
    std::size_t bodyBytes = 0;
};
