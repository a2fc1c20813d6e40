#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ConnectGate.h"
#include "ConnectionPool.h"
#include "NodeCall.h"
#include "ParkedDials.h"
#include "SharedDigests.h"
#include "SilentPeers.h"
#include "TlsContextCache.h"
#include "UniqueFd.h"

// How a connection to a node comes about, and all that the connections of one shell share: the
// identity files, the TLS contexts made of them, the connections at rest, those being made while
// nobody waits, the nodes that were silent a moment ago, the line for handshakes, and the digests
// of files that travel to many nodes at a time.
//
// Whoever makes connections over it must end before it. Safe from any thread.
class Dialer {
public:
    using Clock = std::chrono::steady_clock;

    // Handshakes made side by side. More of them are not faster, only later.
    static constexpr std::size_t kHandshakesAtOnce = 64;

    // As many connections rest, and as many dials are parked, as half of the descriptors that the
    // process may open, and no more than 4096 and 65536.
    Dialer();
    Dialer(const Dialer&) = delete;
    Dialer& operator=(const Dialer&) = delete;
    ~Dialer();

    // The one that clients use which are told of no other. Never destroyed, since workers may
    // outlive main.
    static Dialer& process();

    // The files that the SSL configuration names. The private key serves all connections made from
    // now on; empty means that the certificate file holds the key. The certificate file is for
    // those who ask for it.
    void setCertificateFile(std::string file);
    void setPrivateKeyFile(std::string file);
    std::string certificateFile() const;

    // The context for that certificate file. Throws CException that names what is wrong.
    std::shared_ptr<TlsContext> contextFor(const std::string& certificateFile);

    // Connects to the address, or goes on where an earlier attempt was left alone.
    //   limit     when the attempt counts as not answered
    //   patience  how long the caller waits for the network, none for as long as that: an attempt
    //             that has no outcome by then is left to itself
    // Returns the socket, or none for an attempt that was left. Throws ChannelError.
    UniqueFd dial(const std::string& address, int port, Clock::time_point limit,
                  std::optional<std::chrono::milliseconds> patience, const Cancellation* stop);
    // Waits until the network has answered one of these attempts, or until the time of one is over;
    // see ParkedDials.
    std::vector<std::size_t> awaitAnswers(const std::vector<std::string>& peers) const {
        return parked.awaitAnswers(peers);
    }

    ConnectionPool& pool() { return resting; }
    SilentPeers& silentPeers() { return silent; }
    ConnectGate& gate() { return handshakes; }
    SharedDigests& digests() { return shared; }

private:
    TlsContextCache contexts;
    ConnectionPool resting;
    ParkedDials parked;
    SilentPeers silent;
    ConnectGate handshakes;
    SharedDigests shared;

    mutable std::mutex mutex;
    // Both guarded by mutex.
    std::string certificate;
    std::string privateKey;
};
