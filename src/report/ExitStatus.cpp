#include "ExitStatus.h"

#include <algorithm>
#include <initializer_list>

int exitStatusOf(const std::vector<NodeOutcome>& outcomes, bool interrupted) {
    constexpr int kInterrupted = 130;
    if (interrupted) {
        return kInterrupted;
    }
    const auto any = [&](std::initializer_list<Cause> causes) {
        return std::any_of(outcomes.begin(), outcomes.end(), [&](const NodeOutcome& outcome) {
            return std::find(causes.begin(), causes.end(), outcome.cause) != causes.end();
        });
    };
    if (any({Cause::kFailed})) {
        return 2;
    }
    if (any({Cause::kWrongMachine, Cause::kRefused, Cause::kNotStarted, Cause::kCancelled})) {
        return 1;
    }
    if (any({Cause::kTimedOut, Cause::kRunning})) {
        return 5;
    }
    return any({Cause::kUnreachable}) ? 3 : 0;
}
