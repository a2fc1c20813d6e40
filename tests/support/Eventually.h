#pragma once

#include <chrono>
#include <thread>

// Waits until the condition holds, looking again and again; false when it does not within the
// limit, which is generous because it is only ever reached by a failing test.
template <typename Condition>
bool eventually(Condition condition, std::chrono::seconds limit = std::chrono::seconds(20)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
