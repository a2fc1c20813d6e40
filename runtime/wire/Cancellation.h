#pragma once

#include <atomic>

#include "UniqueFd.h"

// Lets one thread give up what others are waiting for: every wait that is told of it ends at once
// when it is cancelled, and so does each that begins later. Safe from any thread. Shared by all who
// work for the same thing; it must outlive their waits.
class Cancellation {
public:
    // In a process that has no descriptor left, waits that have begun end at their deadline only.
    Cancellation();
    Cancellation(const Cancellation&) = delete;
    Cancellation& operator=(const Cancellation&) = delete;

    // For good; once more changes nothing.
    void cancel() noexcept;
    bool isCancelled() const { return cancelled.load(std::memory_order_acquire); }
    // Readable from then on, for poll(), which passes over -1.
    int descriptor() const { return event.get(); }

private:
    UniqueFd event;
    std::atomic<bool> cancelled{false};
};
