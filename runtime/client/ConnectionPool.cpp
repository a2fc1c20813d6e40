#include "ConnectionPool.h"

#include <algorithm>
#include <csignal>
#include <iterator>
#include <sys/socket.h>

namespace {

// Signals are for the threads that wait for them: a handler that runs here would interrupt nobody.
class AllSignalsBlocked {
public:
    AllSignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        blocked = pthread_sigmask(SIG_SETMASK, &all, &before) == 0;
    }
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;
    ~AllSignalsBlocked() {
        if (blocked) {
            (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
        }
    }

private:
    sigset_t before{};
    bool blocked = false;
};

}  // namespace

ConnectionPool::ConnectionPool(const Limits& bounds) : limits(bounds) {}

ConnectionPool::~ConnectionPool() {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        ending = true;
        changed.notify_all();
    }
    if (sweeper.joinable()) {
        sweeper.join();
    }
}

void ConnectionPool::give(const TlsContext* context, AgentConnection connection) noexcept {
    if (!connection.channel || !connection.channel->isAtRest()) {
        return;
    }
    // Closed after the lock is released, as is the connection that is not kept.
    Queue doomed;
    try {
        Queue fresh;
        Key key(context, connection.channel->peerAddress());
        const Clock::time_point until = connection.heard + limits.idle;
        fresh.push_back({key, std::move(connection), until});
        const std::lock_guard<std::mutex> lock(mutex);
        removeExpired(doomed);
        const auto [place, isNew] = byKey.try_emplace(std::move(key), resting.end());
        if (!isNew) {
            doomed.splice(doomed.end(), resting, place->second);
        }
        try {
            startSweeper();
        } catch (const std::exception&) {
            // Nobody would close it in time.
        }
        if (!sweeper.joinable() || resting.size() >= limits.most) {
            byKey.erase(place);
            doomed.splice(doomed.end(), fresh);
            return;
        }
        place->second = fresh.begin();
        // Nearly always at the end: only one that was taken and not used is due earlier.
        auto behind = resting.end();
        while (behind != resting.begin() && std::prev(behind)->until > until) {
            --behind;
        }
        if (behind == resting.begin()) {
            // Due before anything that the sweeper waits for.
            changed.notify_one();
        }
        resting.splice(behind, fresh);
    } catch (const std::exception&) {
        // Out of memory: then it is not kept.
    }
}

AgentConnection ConnectionPool::take(const TlsContext* context, const std::string& peer) {
    Queue taken;
    Queue doomed;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        removeExpired(doomed);
        const auto found = byKey.find(Key(context, peer));
        if (found == byKey.end()) {
            return AgentConnection();
        }
        taken.splice(taken.end(), resting, found->second);
        byKey.erase(found);
    }
    AgentConnection& connection = taken.front().connection;
    return isUsable(connection) ? std::move(connection) : AgentConnection();
}

bool ConnectionPool::isUsable(const AgentConnection& connection) const {
    TlsChannel& channel = *connection.channel;
    return Clock::now() - connection.made < limits.age && !channel.isExpired() &&
           channel.lookAtPeer() == TlsChannel::Peer::kSilent;
}

std::size_t ConnectionPool::size() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return static_cast<std::size_t>(std::count_if(resting.begin(), resting.end(),
                                                  [](const Resting& each) { return !each.cut; }));
}

void ConnectionPool::clear() {
    Queue doomed;
    const std::lock_guard<std::mutex> lock(mutex);
    byKey.clear();
    doomed.swap(resting);
}

void ConnectionPool::removeExpired(Queue& doomed) {
    const Clock::time_point now = Clock::now();
    while (!resting.empty() && (resting.front().cut || resting.front().until <= now)) {
        byKey.erase(resting.front().key);
        doomed.splice(doomed.end(), resting, resting.begin());
    }
}

void ConnectionPool::startSweeper() {
    if (sweeper.joinable()) {
        return;
    }
    const AllSignalsBlocked guard;
    sweeper = std::thread([this] { sweep(); });
}

void ConnectionPool::sweep() {
    std::unique_lock<std::mutex> lock(mutex);
    Clock::time_point next;
    while (!ending) {
        if (cutExpired(Clock::now(), next)) {
            changed.wait_until(lock, next);
        } else {
            changed.wait(lock);
        }
    }
}

// False when nothing is left to be cut later.
bool ConnectionPool::cutExpired(Clock::time_point now, Clock::time_point& next) {
    for (Resting& each : resting) {
        if (each.until > now) {
            next = each.until;
            return true;
        }
        if (!each.cut) {
            each.cut = true;
            (void)::shutdown(each.connection.channel->descriptor(), SHUT_RDWR);
        }
    }
    return false;
}
