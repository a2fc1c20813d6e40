#pragma once

#include <chrono>

// Elapsed time on the monotonic clock, so that setting the machine's date cannot spoil it.
class StopWatch {
public:
    // Starts anew; an earlier measurement is forgotten.
    void start();
    // Fixes the elapsed time; without a start before it, the time stays 0.
    void stop();
    // Milliseconds from start to stop, or from start to now while it runs.
    long getTime() const;

private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point startedAt{};
    Clock::time_point stoppedAt{};
    bool running = false;
};
