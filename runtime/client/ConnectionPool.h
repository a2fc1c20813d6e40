#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "TlsChannel.h"

class TlsContext;

// A connection to an agent that has greeted this master, and what there is to know about it.
struct AgentConnection {
    using Clock = std::chrono::steady_clock;

    std::unique_ptr<TlsChannel> channel;  // null when there is none
    std::uint16_t version = 0;            // of the protocol, as agreed upon
    std::uint32_t toldSequence = 0;       // the command number that the agent knows
    std::optional<std::string> mac;       // what the agent said of itself, if it was asked
    bool hasTurn = false;                 // runs of others wait at the node until it is given back
    Clock::time_point made{};
    Clock::time_point heard{};  // when the agent's last answer was complete
};

// Connections that rest between two uses, so that the next question to the same node costs no
// handshake. Whoever takes one owns it alone.
//
// A connection belongs to its node and to the TlsContext it was made with: since a changed
// certificate, key or revocation list makes a new context, nothing is used across such a change.
// One connection is kept per node and context, up to a number in all; one that has rested longer
// than the idle limit, or is older than the age limit, is never handed out: so an agent's new
// settings reach everybody in time, and no node keeps a session for a shell that has forgotten it.
//
// Resting connections are closed after the idle limit even if nobody asks any more: each of them is
// two processes at its node. A thread does that, which is started with the first connection and
// lives as long as the pool. It only shuts sockets down; what belongs to OpenSSL is freed by the
// threads that come for connections, so that it cannot be inside OpenSSL while the process ends.
//
// Safe from any thread; nothing waits for the network under the lock.
class ConnectionPool {
public:
    using Clock = AgentConnection::Clock;

    struct Limits {
        std::size_t most = 1024;
        // The agent closes after two minutes without a request; the pool must be well ahead of it.
        std::chrono::milliseconds idle{30000};
        std::chrono::milliseconds age{300000};
    };

    explicit ConnectionPool(const Limits& bounds);
    ConnectionPool(const ConnectionPool&) = delete;
    ConnectionPool& operator=(const ConnectionPool&) = delete;
    ~ConnectionPool();

    // Keeps the connection, or closes it where that is not possible: one that is not at rest, a
    // pool that is full. One of the same node and context that rests already is closed instead.
    void give(const TlsContext* context, AgentConnection connection) noexcept;

    // A connection to "address:port" whose agent has not closed it as far as can be seen, with no
    // byte waiting on it; without a channel when there is none.
    AgentConnection take(const TlsContext* context, const std::string& peer);

    // Those that rest now.
    std::size_t size() const;
    // Closes all that rest.
    void clear();

private:
    using Key = std::pair<const TlsContext*, std::string>;
    struct Resting {
        Key key;
        AgentConnection connection;
        Clock::time_point until;
        bool cut = false;  // its socket is shut down, and only the memory is left
    };
    using Queue = std::list<Resting>;

    void startSweeper();
    void sweep();
    bool cutExpired(Clock::time_point now, Clock::time_point& next);
    void removeExpired(Queue& doomed);
    bool isUsable(const AgentConnection& connection) const;

    const Limits limits;
    mutable std::mutex mutex;
    std::condition_variable changed;
    // All guarded by mutex.
    Queue resting;  // whose idle limit ends first stands first
    std::map<Key, Queue::iterator> byKey;
    std::thread sweeper;
    bool ending = false;
};
