#pragma once

#include <chrono>
#include <thread>

// Waits until the condition holds, looking again every few milliseconds; false at the limit.
template <typename Condition>
bool waitFor(Condition condition,
             std::chrono::milliseconds limit = std::chrono::milliseconds(10000)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return condition();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}
