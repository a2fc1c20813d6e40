#include "NodeCall.h"

#include <utility>

NodeCall::NodeCall(std::uint32_t commandNumber, std::shared_ptr<const Cancellation> giveUp)
    : number(commandNumber), stop(std::move(giveUp)) {}

void NodeCall::endAfter(unsigned int timeOutMs) {
    deadline =
        timeOutMs == 0 ? Deadline::max() : Clock::now() + std::chrono::milliseconds(timeOutMs);
}

void NodeCall::enter(Phase next) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (current.phase != next) {
        current = {next, Clock::now()};
    }
}

NodeCall::State NodeCall::state() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return current;
}
