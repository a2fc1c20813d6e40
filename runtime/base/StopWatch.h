#pragma once

#include <chrono>

// Measures elapsed time on the monotonic clock, which setting the date does not change.
class StopWatch {
public:
    // Starts again from 0.
    void start();
    // Ends the measurement. Without a start before it the time stays 0.
    void stop();
    // Milliseconds from start to stop, or from start to now while it runs.
    long getTime() const;

private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point startedAt{};
    Clock::time_point stoppedAt{};
    bool running = false;
};
