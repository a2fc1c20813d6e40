#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "CException.h"
#include "ConnectionPool.h"
#include "Protocol.h"
#include "TlsChannel.h"

class Dialer;
class NodeCall;
class TlsContext;

// The agent refused a request or could not do it: its ERROR frame. The text names the peer.
class AgentError : public CException {
public:
    AgentError(const protocol::Error& error, const std::string& peer)
        : CException(peer + ": " + error.text), errorCode(error.code) {}
    std::uint16_t code() const { return errorCode; }

private:
    std::uint16_t errorCode;
};

// What to throw when a well-formed frame has no place in the conversation.
protocol::ProtocolError unexpectedFrame(const protocol::Frame& frame);

// The master's end of a conversation with one agent, for one command of the shell: had from the
// Dialer's ConnectionPool or made, kept as long as nothing goes wrong, left to the pool by the
// destructor where the last request got its whole answer, and a good one.
//
// A connection from the pool may be dead without a sign of it, and is "proven" by an answer only:
// ask() asks again over a new one where it has to, and prove() comes before whatever must not be
// sent twice.
//
// After a fault there is no connection any more; only isOpen(), drop() and the destructor may then
// be called. Used by one thread at a time.
class AgentLink {
public:
    using Deadline = TlsChannel::Deadline;

    // How long a connection may take.
    struct Patience {
        // Milliseconds for connecting, handshake and greeting together; where many connect at once,
        // as long again may pass in line; a node that was silent just now has less (SilentPeers).
        unsigned int connectLimitMs = 0;
        // How long a network that does not answer is waited for before the attempt is left to
        // itself; none for the whole limit.
        std::optional<std::chrono::milliseconds> beforeLeaving;
    };

    //   theCall  what this object works for; null for a call of nobody
    // Throws CException where the certificate files are of no use.
    AgentLink(Dialer& connections, std::string address, int agentPort,
              const std::string& certificateFile, std::shared_ptr<NodeCall> theCall);
    AgentLink(const AgentLink&) = delete;
    AgentLink& operator=(const AgentLink&) = delete;
    ~AgentLink();

    // Returns true when the agent has accepted this master and greeted it, now or earlier; false
    // for an attempt that was left to itself: the next object for the same node takes it up. To be
    // called once. Throws CException, and its subclasses ChannelError and AgentError, when no
    // connection was made.
    bool connect(const Patience& patience);

    // For a request with this time-out in milliseconds, 0 means no limit: the agent ends the work
    // in time and says so, and that word has a second to arrive, unless the call ends before.
    Deadline deadlineFor(unsigned int timeOutMs) const;

    bool isOpen() const { return connection.channel != nullptr; }
    std::string peerName() const;

    // The MAC address that the agent says it has; empty when it cannot tell. What it said holds
    // for its connection, so it is asked once only. Something that is no address is kNoAddress.
    //   timeOutMs  as for ask()
    std::string identity(unsigned int timeOutMs = 0);
    static constexpr char kNoAddress[] = "(no address)";

    // To be called before whatever must not be sent twice. Makes sure that the agent is there and,
    // where the call expects a certain node, that it is that one: one question, at most. Throws
    // CException when it is not.
    void prepareForWork();

    // Asks the agent something that is no work for it, at most twice, and returns its answer.
    //   timeOutMs  milliseconds for all of it; 0 means five seconds
    // Throws AgentError when the agent will not say, CException when the connection is lost.
    std::string ask(const std::string& request, unsigned int timeOutMs = 0);

    // For longer conversations. Every request is sent by send(), the rest of an upload by
    // sendUnlessAnswered(), see FrameChannel. All throw what the channel throws, receive()
    // also AgentError in place of an ERROR frame; the caller then says what becomes of the
    // connection: settle() after an AgentError, drop() or lose() otherwise.
    void send(const std::string& request, Deadline deadline);
    bool sendUnlessAnswered(const std::string& frame, Deadline deadline);
    void receive(protocol::Frame& frame, Deadline deadline);

    // The next request begins a turn at the node: runs of other conversations wait until this
    // object ends, or, with keepTurn, the next one that uses its connection.
    void beginTurn() { connection.hasTurn = true; }
    void keepTurn() { keepsTurn = true; }

    // The answer to the request is complete. Where it was not a good one, the connection does for
    // the next request of this object, but not for the pool.
    void noteAnswer(bool endedWell);
    //   ends  whatever the error, the connection must not be used again
    void settle(const AgentError& error, bool ends);
    // Closes the connection. A job that runs for it is ended, or goes on if it must not be cut.
    void drop();
    // The same; the text of what is thrown names the peer and tells of a lost connection, and why:
    // for what the peer has said, or for what became of the channel and, after it, what that means.
    [[noreturn]] void lose(const std::string& reason);
    [[noreturn]] void lose(const ChannelError& reason, const std::string& consequence = "");

    NodeCall& currentCall() { return *call; }
    Dialer& connectionsOfShell() { return dialer; }

private:
    using Clock = TlsChannel::Clock;

    bool takeRested();
    bool dial(const Patience& patience);
    bool connectWithin(const Patience& patience);
    void adopt(AgentConnection made);
    void greet(Deadline deadline);
    std::string shellHello(std::uint32_t number) const;
    // False when the connection is of no use any more.
    bool giveTurnBack() noexcept;
    std::string askOnce(const std::string& request, Deadline deadline);
    std::string askAgain(const std::string& request, Deadline deadline);
    void prove();

    Dialer& dialer;
    const std::string ip;
    const int port;
    const std::shared_ptr<TlsContext> context;
    const std::shared_ptr<NodeCall> call;
    unsigned int connectLimit = 0;  // milliseconds
    AgentConnection connection;
    bool proven = false;     // an answer has come since the connection was made or taken
    bool keepsTurn = false;  // the next user of the connection gives it back
    bool endedWell = false;  // the last request has its whole answer, and a good one
};
