#pragma once

#include <memory>
#include <string>

#include <openssl/ssl.h>

#include "FrameChannel.h"
#include "FreedBy.h"
#include "TlsContext.h"
#include "UniqueFd.h"

// One TLS connection that carries protocol frames; both ends use it.
class TlsChannel : public FrameChannel {
public:
    // Dials the address (an IP literal or a name), makes the handshake and checks the certificate
    // against the address dialled.
    static std::unique_ptr<TlsChannel> connect(const std::string& address, int port,
                                               std::shared_ptr<TlsContext> context,
                                               Deadline deadline);
    // The same over a socket that is connected to that address already, as by SocketDial; giveUp as
    // for setCancellation.
    static std::unique_ptr<TlsChannel> connectOver(UniqueFd connected, const std::string& address,
                                                   int port, std::shared_ptr<TlsContext> context,
                                                   Deadline deadline,
                                                   const Cancellation* giveUp = nullptr);
    // Makes the handshake on an accepted socket. When the peer is refused it is given up to a
    // second to read the alert that says why, then ChannelError says the same to the log.
    static std::unique_ptr<TlsChannel> accept(UniqueFd accepted,
                                              std::shared_ptr<TlsContext> context,
                                              Deadline deadline);
    // The same on a socket that is prepared already, as by tlssocket::prepare.
    static std::unique_ptr<TlsChannel> acceptOver(UniqueFd prepared, std::string peerAddress,
                                                  std::shared_ptr<TlsContext> context,
                                                  Deadline deadline);

    // Tells the peer goodbye without waiting; closes the socket.
    ~TlsChannel() override;

    Peer lookAtPeer() override;
    void close(Deadline deadline) noexcept override;

    // For who only passes bytes on and leaves frames to others; see FrameChannel.
    std::size_t readSome(char* target, std::size_t most) override;
    std::size_t writeSome(const char* bytes, std::size_t count) override;
    // As readSome, but an end of the connection in order is no error: returns false then.
    bool readUnlessEnded(char* target, std::size_t most, std::size_t& count);

    // Whether both directions are between two frames, as far as this end knows without looking, and
    // nothing has gone wrong.
    bool isAtRest() const { return established && !broken && isBetweenFrames(); }
    // Whether the last day of one of the two certificates has passed since the handshake.
    bool isExpired() const;

    // More new keys than that, on one connection, are an attack: a connection is over long before
    // the first is needed.
    static constexpr unsigned int kMostKeyUpdates = 32;

    // The common name in the peer's certificate.
    std::string peerCommonName() const;

private:
    TlsChannel(UniqueFd connected, std::shared_ptr<TlsContext> shared, std::string peerAddress);
    void expectAddress(const std::string& address);
    void handshake(const std::string& dialled, Deadline deadline);
    void checkAlpn();
    void watchMessages();
    static void noteMessage(int isOwn, int version, int contentType, const void* message,
                            std::size_t length, SSL* ssl, void* channel);
    void requireRules();
    ChannelError wrongApplication() const;
    // One step of OpenSSL: above 0 done, 0 not yet (poll for wantedEvents). Throws ChannelError.
    int step(int returned, const char* doing);
    [[noreturn]] void fail(int sslError, int savedErrno, const char* doing);

    std::shared_ptr<TlsContext> context;
    FreedBy<SSL, SSL_free> ssl;
    bool established = false;
    bool broken = false;
    unsigned int keyUpdates = 0;      // of the peer
    const char* violation = nullptr;  // what the peer has said against the rules
};
