#include "ConnectGate.h"

#include <algorithm>

#include "Cancellation.h"

namespace {

// How often a call in line looks whether it is still wanted.
constexpr std::chrono::milliseconds kLookAround{500};

}  // namespace

ConnectGate::Turn::Turn(ConnectGate& owner, Clock::time_point deadline, const Cancellation* stop)
    : gate(owner), number(owner.enter(deadline, stop)) {}

ConnectGate::Turn::~Turn() {
    gate.leave(number);
}

ConnectGate::ConnectGate(std::size_t most, std::chrono::milliseconds turn)
    : width(most), turnTime(turn) {}

std::uint64_t ConnectGate::enter(Clock::time_point deadline, const Cancellation* stop) {
    std::unique_lock<std::mutex> lock(mutex);
    std::condition_variable myTurn;
    const auto place = inLine.insert(inLine.end(), &myTurn);
    for (;;) {
        const Clock::time_point now = Clock::now();
        while (!running.empty() && running.front().countsUntil <= now) {
            running.pop_front();
        }
        const bool isNext = place == inLine.begin();
        const bool isGivenUp = stop != nullptr && stop->isCancelled();
        if ((isNext && running.size() < width) || now >= deadline || isGivenUp) {
            break;
        }
        // Only the first in line has to notice that a turn has lasted long enough. A copy, because
        // the wait looks at it after others have changed the list.
        Clock::time_point wakeUp =
            stop != nullptr ? std::min(deadline, now + kLookAround) : deadline;
        if (isNext && !running.empty()) {
            wakeUp = std::min(wakeUp, running.front().countsUntil);
        }
        myTurn.wait_until(lock, wakeUp);
    }
    inLine.erase(place);
    const std::uint64_t number = ++last;
    running.push_back({number, Clock::now() + turnTime});
    wakeNext();
    return number;
}

void ConnectGate::leave(std::uint64_t number) {
    const std::lock_guard<std::mutex> lock(mutex);
    running.remove_if([number](const Running& each) { return each.number == number; });
    wakeNext();
}

void ConnectGate::wakeNext() {
    if (!inLine.empty()) {
        inLine.front()->notify_one();
    }
}
