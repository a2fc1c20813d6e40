#include "SessionTable.h"

#include <utility>
#include <vector>

namespace {

bool isWaiting(const SessionTable::Entry& entry) {
    return !entry.authenticated && !entry.dropped;
}

}  // namespace

SessionTable::Admission SessionTable::admit(const std::string& source, const Bounds& bounds,
                                            Clock::time_point now,
                                            const std::function<std::size_t(std::size_t)>& random,
                                            const WaitingRoom::Guests& guests) const {
    std::size_t live = guests.size();
    std::size_t waiting = guests.size();
    std::size_t waitingFromSource = 0;
    for (const auto& item : guests) {
        waitingFromSource += item.second.source == source ? 1 : 0;
    }
    std::size_t liveFromSource = waitingFromSource;
    for (const auto& item : entries) {
        if (!item.second.dropped) {
            ++live;
            liveFromSource += item.second.source == source ? 1 : 0;
        }
        if (isWaiting(item.second)) {
            ++waiting;
            waitingFromSource += item.second.source == source ? 1 : 0;
        }
    }
    Admission admission;
    if (waitingFromSource >= bounds.unauthenticatedPerSource ||
        (waitingFromSource > 0 && liveFromSource >= bounds.perSource)) {
        chooseVictim(&source, now, random, guests, admission);
    } else if (waiting > 0 && (waiting >= bounds.unauthenticated || live >= bounds.sessions)) {
        chooseVictim(nullptr, now, random, guests, admission);
    } else if (live >= bounds.sessions) {
        admission.kind = live < bounds.sessions + bounds.turnedAway ? Admission::Kind::kTurnAway
                                                                    : Admission::Kind::kClose;
        admission.refusal = "the agent serves as many sessions as it may (MAX_SESSIONS=" +
                            std::to_string(bounds.sessions) + "); try again later";
    } else if (liveFromSource >= bounds.perSource) {
        admission.kind = Admission::Kind::kTurnAway;
        admission.refusal = "the agent serves as many sessions from " + source +
                            " as it may (SESSIONS_PER_SOURCE=" + std::to_string(bounds.perSource) +
                            "); try again later";
    }
    // Sessions told to end still take a process each until they are gone.
    if (entries.size() >= 2 * (static_cast<std::size_t>(bounds.sessions) + bounds.turnedAway)) {
        admission = Admission();
        admission.kind = Admission::Kind::kClose;
    }
    return admission;
}

std::string SessionTable::refusalOf(const std::string& fingerprint, const Bounds& bounds) const {
    std::size_t live = 0;
    for (const auto& item : entries) {
        live += !item.second.dropped && item.second.fingerprint == fingerprint ? 1 : 0;
    }
    if (live <= bounds.perCertificate) {
        return "";
    }
    return "the agent serves as many sessions of this certificate as it may"
           " (SESSIONS_PER_CERTIFICATE=" +
           std::to_string(bounds.perCertificate) + "); try again later";
}

void SessionTable::chooseVictim(const std::string* source, Clock::time_point now,
                                const std::function<std::size_t(std::size_t)>& random,
                                const WaitingRoom::Guests& guests, Admission& admission) const {
    struct Candidate {
        pid_t session;
        WaitingRoom::Id guest;
    };
    std::vector<Candidate> all;
    std::vector<Candidate> old;
    const auto consider = [&](const std::string& from, Clock::time_point since, Candidate who) {
        if (source != nullptr && from != *source) {
            return;
        }
        all.push_back(who);
        if (now - since >= kFairChance) {
            old.push_back(who);
        }
    };
    for (const auto& item : entries) {
        if (isWaiting(item.second)) {
            consider(item.second.source, item.second.startedAt, {item.first, 0});
        }
    }
    for (const auto& item : guests) {
        consider(item.second.source, item.second.acceptedAt, {0, item.first});
    }
    const std::vector<Candidate>& choice = old.empty() ? all : old;
    if (!choice.empty()) {
        const Candidate chosen = choice[random(choice.size())];
        admission.victim = chosen.session;
        admission.victimGuest = chosen.guest;
    }
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
