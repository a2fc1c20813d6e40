#include "StopWatch.h"

void StopWatch::start() {
    startedAt = Clock::now();
    stoppedAt = startedAt;
    running = true;
}

void StopWatch::stop() {
    if (running) {
        stoppedAt = Clock::now();
        running = false;
    }
}

long StopWatch::getTime() const {
    const Clock::time_point end = running ? Clock::now() : stoppedAt;
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(end - startedAt).count());
}
