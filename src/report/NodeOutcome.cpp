#include "NodeOutcome.h"

#include <algorithm>

const char* causeName(Cause cause) {
    switch (cause) {
        case Cause::kOk:
            return "ok";
        case Cause::kFailed:
            return "failed";
        case Cause::kTimedOut:
            return "timed_out";
        case Cause::kUnreachable:
            return "unreachable";
        case Cause::kWrongMachine:
            return "wrong_machine";
        case Cause::kRefused:
            return "refused";
        case Cause::kNotStarted:
            return "not_started";
        case Cause::kCancelled:
            return "cancelled";
        case Cause::kRunning:
            break;
    }
    return "running";
}

std::string causeWords(Cause cause) {
    std::string words = causeName(cause);
    std::replace(words.begin(), words.end(), '_', ' ');
    return words;
}

std::optional<Cause> causeNamed(const std::string& name) {
    for (const Cause cause : kAllCauses) {
        if (name == causeName(cause)) {
            return cause;
        }
    }
    return std::nullopt;
}
