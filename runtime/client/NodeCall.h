#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "ChannelError.h"

class Cancellation;

// One command of the shell on its way to one node: what travels with each of its requests, how long
// it may take, how far it has come, and whether somebody has given it up. The engine makes it, the
// worker and its clients work for it, and both hold it by shared pointer.
//
// state() and cancel's effect belong to any thread; all else to the worker.
class NodeCall {
public:
    using Clock = std::chrono::steady_clock;
    using Deadline = Clock::time_point;

    enum class Phase {
        kBegun,      // nothing is awaited of the network yet
        kDialling,   // the network is to answer
        kInLine,     // other handshakes come first
        kHandshake,  // the agent is to prove who it is and to greet
        kAsking,     // a question, such as who the node is
        kRunning,    // the command runs there
        kCopying,    // a file travels
        kEnded,      // nothing is awaited any more
    };
    struct State {
        Phase phase = Phase::kBegun;
        Clock::time_point since = Clock::now();
    };

    //   commandNumber  the shell's number of the command, for the node's log; 0 for none
    //   giveUp         ends every wait of the call when it is cancelled; null where nobody will
    explicit NodeCall(std::uint32_t commandNumber,
                      std::shared_ptr<const Cancellation> giveUp = nullptr);
    NodeCall(const NodeCall&) = delete;
    NodeCall& operator=(const NodeCall&) = delete;

    std::uint32_t commandNumber() const { return number; }
    const Cancellation* cancellation() const { return stop.get(); }

    // From now on the call ends by its own clock.
    //   timeOutMs  milliseconds from now; 0 means no limit
    void endAfter(unsigned int timeOutMs);
    // What is under way now must not be cut short: from now on the call has no end of its own.
    void neverEnd() { deadline = Deadline::max(); }
    // The earlier of that and the end of the call.
    Deadline limit(Deadline wanted) const { return wanted < deadline ? wanted : deadline; }
    bool isOver() const { return Clock::now() >= deadline; }

    // The address that the node must have, if it tells one at all. Nothing is run and no file
    // travels over a connection to a node with another one.
    void expect(std::string macAddress) { expected = std::move(macAddress); }
    const std::optional<std::string>& expectedMac() const { return expected; }
    // Such a node was found.
    void noteOtherNode() { other = true; }
    bool foundOtherNode() const { return other; }

    void enter(Phase next);
    State state() const;

    // Why the call's last attempt to get a connection failed; none where it did not.
    void noteDial(std::optional<ChannelError::Kind> failure) { dialFailure = failure; }
    std::optional<ChannelError::Kind> lastDialFailure() const { return dialFailure; }
    // The node has answered something since the call began. Who it is may be known from an earlier
    // command.
    void noteWord() { heard = true; }
    bool wasHeard() const { return heard; }
    // The node did not answer in the time of an attempt.
    void noteSilence() { silent = true; }
    bool wasSilent() const { return silent; }

private:
    const std::uint32_t number;
    const std::shared_ptr<const Cancellation> stop;
    Deadline deadline = Deadline::max();
    std::optional<std::string> expected;
    bool other = false;
    bool heard = false;
    bool silent = false;
    std::optional<ChannelError::Kind> dialFailure;

    mutable std::mutex mutex;
    State current;  // guarded by mutex
};
