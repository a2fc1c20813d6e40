#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>

class Cancellation;

// Lets a bounded number of connections be made at a time, in the order of asking. A thousand
// handshakes at once share the processor so thinly that each of them runs out of its deadline; one
// after the other none does.
//
// A turn that takes longer than its time no longer counts: it waits for its peer, not for the
// processor, and silent nodes must not hold up the others. Safe from any thread.
class ConnectGate {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds kTurn{500};

    explicit ConnectGate(std::size_t most, std::chrono::milliseconds turn = kTurn);
    ConnectGate(const ConnectGate&) = delete;
    ConnectGate& operator=(const ConnectGate&) = delete;

    // One connection being made. Waits for its turn in the constructor, but no longer than until
    // the deadline, or until the call is given up: then it goes ahead all the same. The destructor
    // ends the turn.
    class Turn {
    public:
        Turn(ConnectGate& gate, Clock::time_point deadline, const Cancellation* stop = nullptr);
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;
        ~Turn();

    private:
        ConnectGate& gate;
        std::uint64_t number;
    };

private:
    struct Running {
        std::uint64_t number;
        Clock::time_point countsUntil;
    };

    std::uint64_t enter(Clock::time_point deadline, const Cancellation* stop);
    void leave(std::uint64_t number);
    void wakeNext();

    const std::size_t width;
    const std::chrono::milliseconds turnTime;
    std::mutex mutex;
    // All guarded by mutex. Each in line sleeps on a condition of its own: waking a thousand for
    // every place that becomes free would cost more than the connections.
    std::list<Running> running;                  // the oldest first
    std::list<std::condition_variable*> inLine;  // owned by the waiting call
    std::uint64_t last = 0;
};
