#include "SessionTable.h"

#include <utility>
#include <vector>

namespace {

// A handshake in progress is usually over by then.
constexpr std::chrono::milliseconds kFairChance(250);

bool isWaiting(const SessionTable::Entry& entry) {
    return !entry.authenticated && !entry.dropped;
}

}  // namespace

SessionTable::Admission SessionTable::admit(
    const std::string& source, const Bounds& bounds, Clock::time_point now,
    const std::function<std::size_t(std::size_t)>& random) const {
    std::size_t live = 0;
    std::size_t waiting = 0;
    std::size_t waitingFromSource = 0;
    for (const auto& item : entries) {
        live += item.second.dropped ? 0 : 1;
        if (isWaiting(item.second)) {
            ++waiting;
            waitingFromSource += item.second.source == source ? 1 : 0;
        }
    }
    Admission admission;
    if (waitingFromSource >= bounds.unauthenticatedPerSource) {
        admission.victim = chooseVictim(&source, now, random);
    } else if (waiting > 0 && (waiting >= bounds.unauthenticated || live >= bounds.sessions)) {
        admission.victim = chooseVictim(nullptr, now, random);
    } else if (live >= bounds.sessions) {
        admission.kind = live < bounds.sessions + bounds.turnedAway ? Admission::Kind::kTurnAway
                                                                    : Admission::Kind::kClose;
    }
    // Sessions told to end still take a process each until they are gone.
    if (entries.size() >= 2 * (static_cast<std::size_t>(bounds.sessions) + bounds.turnedAway)) {
        admission = {Admission::Kind::kClose, 0};
    }
    return admission;
}

pid_t SessionTable::chooseVictim(const std::string* source, Clock::time_point now,
                                 const std::function<std::size_t(std::size_t)>& random) const {
    std::vector<pid_t> all;
    std::vector<pid_t> old;
    for (const auto& item : entries) {
        if (!isWaiting(item.second) || (source != nullptr && item.second.source != *source)) {
            continue;
        }
        all.push_back(item.first);
        if (now - item.second.startedAt >= kFairChance) {
            old.push_back(item.first);
        }
    }
    const std::vector<pid_t>& choice = old.empty() ? all : old;
    return choice.empty() ? 0 : choice[random(choice.size())];
}

SessionTable::Entry& SessionTable::add(pid_t pid, std::string source, UniqueFd status,
                                       Clock::time_point now) {
    Entry& entry = entries[pid];
    entry = Entry();
    entry.source = std::move(source);
    entry.status = std::move(status);
    entry.startedAt = now;
    return entry;
}

SessionTable::Entry* SessionTable::find(pid_t pid) {
    const auto found = entries.find(pid);
    return found == entries.end() ? nullptr : &found->second;
}
