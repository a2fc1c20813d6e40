#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "RunDirectory.h"

// The right of one conversation to run packaged tools, and what writes firmware, on this node, and
// to read back what they left there, without another conversation's run coming between.
//
// It belongs to the session's process: the kernel gives it up when that ends, however it ends. It
// is bounded: who waits may take it over from a conversation that has had it for longer than that.
// An uninterruptible job keeps it until it ends, whatever becomes of its conversation and the
// bound: while one runs nobody else enters.
class RunSection {
public:
    static constexpr std::chrono::milliseconds kMost{std::chrono::minutes(10)};

    explicit RunSection(const RunDirectory& runDirectory,
                        std::chrono::milliseconds longest = kMost);

    // True when it is this conversation's, now or already. owner: who asks, in one line. Does not
    // wait.
    bool tryEnter(const std::string& owner);
    // Who has it, where tryEnter was false.
    std::string holder() const;

    bool isHeld() const { return static_cast<bool>(lock); }
    // Held longer than the bound, and taken over by somebody else. What is read back now may be of
    // another run.
    bool isLost() const;
    void leave();

private:
    static constexpr char kName[] = "section.lock";

    bool isOverdue();
    bool isBusy(const std::string& note) const;

    const RunDirectory& directory;
    const std::chrono::milliseconds most;
    RunLock lock;
    // Of a holder that has had it for too long: what it noted, and since when that is known.
    std::string overdueNote;
    std::chrono::steady_clock::time_point overdueSince;
};
