#include "CommandProgress.h"

CommandProgress::CommandProgress(std::uint32_t commandNumber)
    : number(commandNumber), stop(std::make_shared<Cancellation>()) {}

std::shared_ptr<NodeCall> CommandProgress::add(std::string target) {
    auto call = std::make_shared<NodeCall>(number, stop);
    const std::lock_guard<std::mutex> lock(mutex);
    calls.emplace_back(std::move(target), call);
    return call;
}

std::vector<CommandProgress::Awaited> CommandProgress::awaited() const {
    std::vector<Awaited> found;
    const std::lock_guard<std::mutex> lock(mutex);
    for (const auto& [target, call] : calls) {
        const NodeCall::State state = call->state();
        if (state.phase != NodeCall::Phase::kEnded) {
            found.push_back({target, state.phase, state.since});
        }
    }
    return found;
}
