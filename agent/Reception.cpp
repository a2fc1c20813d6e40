#include "Reception.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <map>
#include <utility>
#include <vector>

namespace {

using std::chrono::milliseconds;

// Connections taken in one turn, so that signals and reports get theirs too.
constexpr int kAcceptBurst = 64;
constexpr milliseconds kExhaustionPause(100);

}  // namespace

Reception::Reception(SessionTable& runningSessions, SparingLog& sparingLog)
    : sessions(runningSessions), log(sparingLog), random(std::random_device{}()) {}

std::size_t Reception::chance(std::size_t count) {
    return std::uniform_int_distribution<std::size_t>(0, count - 1)(random);
}

void Reception::close() {
    socket = ListeningSocket();
    room.clear();
}

int Reception::listeningDescriptor(Clock::time_point now) {
    if (now >= acceptAgainAt) {
        acceptAgainAt = {};
    }
    return acceptAgainAt == Clock::time_point{} ? socket.descriptor() : -1;
}

Reception::Clock::time_point Reception::nextAt() const {
    Clock::time_point next = Clock::time_point::max();
    if (room.size() > 0) {
        next = room.all().begin()->second.acceptedAt + kHandshakeTime;
    }
    for (const Clock::time_point at : {acceptAgainAt, startAgainAt}) {
        next = at != Clock::time_point{} ? std::min(next, at) : next;
    }
    return next;
}

void Reception::accept(Clock::time_point now) {
    for (int i = 0; i < kAcceptBurst && acceptOne(now); ++i) {
    }
}

bool Reception::acceptOne(Clock::time_point now) {
    WaitingRoom::Guest guest;
    guest.connection = socket.accept(guest.source);
    if (!guest.connection) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            // Who waits must not keep others out. Otherwise the connection stays in the queue;
            // asking again at once would only burn the processor.
            pause("cannot accept connections", now);
            if (dropOneThatWaits(now)) {
                acceptAgainAt = {};
                return true;
            }
            return false;
        }
        return errno == EINTR || errno == ECONNABORTED;
    }
    guest.source = StartLimits::sourceOf(guest.source);
    guest.acceptedAt = now;
    const SessionTable::Admission admission = sessions.admit(
        guest.source, bounds, now, [this](std::size_t count) { return chance(count); }, room.all());
    makeRoom(admission, guest.source, now);
    if (admission.kind == SessionTable::Admission::Kind::kClose) {
        log.note("no room", "no room for the connection from " + guest.source, now);
        return true;
    }
    guest.refusal = admission.refusal;
    if (!room.add(std::move(guest))) {
        pause("cannot watch a connection", now);
    }
    return true;
}

bool Reception::dropOneThatWaits(Clock::time_point now) {
    const std::vector<WaitingRoom::Id> old = room.acceptedBefore(now - SessionTable::kFairChance);
    if (old.empty()) {
        return false;
    }
    static_cast<void>(room.take(old[chance(old.size())]));
    return true;
}

void Reception::makeRoom(const SessionTable::Admission& admission, const std::string& source,
                         Clock::time_point now) {
    if (admission.victim == 0 && admission.victimGuest == 0) {
        return;
    }
    log.note("places",
             "too many connections that do not authenticate, the last from " + source +
                 "; some are dropped",
             now);
    if (admission.victimGuest != 0) {
        static_cast<void>(room.take(admission.victimGuest));
        return;
    }
    sessions.find(admission.victim)->dropped = true;
    ::kill(admission.victim, SIGKILL);
}

void Reception::look() {
    const Clock::time_point now = Clock::now();
    for (const auto& moved : room.takeMoved()) {
        if (moved.second == WaitingRoom::Beginning::kReady) {
            room.setReady(moved.first);
            continue;
        }
        const WaitingRoom::Guest guest = room.take(moved.first);
        if (moved.second == WaitingRoom::Beginning::kForeign) {
            log.note("foreign " + guest.source,
                     guest.source + " does not speak TLS 1.3 and is disconnected", now);
        }
    }
}

void Reception::closeExpired(Clock::time_point now) {
    for (const WaitingRoom::Id id : room.acceptedBefore(now - kHandshakeTime)) {
        const WaitingRoom::Guest guest = room.take(id);
        if (guest.isReady) {
            log.note("late " + guest.source,
                     guest.source +
                         " begins more handshakes than it may; one that waited is disconnected",
                     now);
        } else {
            log.note("silent " + guest.source, guest.source + " began no handshake in time", now);
        }
    }
}

std::optional<WaitingRoom::Guest> Reception::next(Clock::time_point now) {
    startAgainAt = {};
    std::map<std::string, std::vector<WaitingRoom::Id>> ready;
    for (const WaitingRoom::Id id : room.ready()) {
        ready[room.all().at(id).source].push_back(id);
    }
    // The best standing; of those the first source after the one that had its turn.
    const std::pair<const std::string, std::vector<WaitingRoom::Id>>* chosen = nullptr;
    std::pair<StartLimits::Standing, bool> rank{};
    for (const auto& item : ready) {
        const Clock::time_point when = limits.whenNext(item.first, now);
        if (when > now) {
            startAgainAt =
                startAgainAt == Clock::time_point{} ? when : std::min(startAgainAt, when);
            continue;
        }
        const std::pair<StartLimits::Standing, bool> own{limits.standingOf(item.first, now),
                                                         item.first <= lastSource};
        if (chosen == nullptr || own < rank) {
            chosen = &item;
            rank = own;
        }
    }
    if (chosen == nullptr) {
        return std::nullopt;
    }
    limits.take(chosen->first, now);
    lastSource = chosen->first;
    return room.take(chosen->second[chance(chosen->second.size())]);
}

void Reception::pause(const std::string& what, Clock::time_point now) {
    log.note("exhaustion", what + ": " + std::strerror(errno), now);
    acceptAgainAt = now + kExhaustionPause;
}
