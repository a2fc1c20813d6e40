#include "CommandOutcome.h"

#include <utility>

bool CommandOutcome::publish(CResult&& outcome) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (closed) {
        return false;
    }
    result = std::move(outcome);
    published = true;
    return true;
}

bool CommandOutcome::close(CResult* outcome) {
    const std::lock_guard<std::mutex> lock(mutex);
    const bool taken = published && !closed;
    closed = true;
    if (taken && outcome != nullptr) {
        *outcome = std::move(result);
    }
    return taken;
}
