// Peers that hold connections and say nothing, or one byte a second, while genuine commands are
// served; and the same with an agent that runs out of descriptors.

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <poll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "CException.h"
#include "DialFrom.h"
#include "Figure.h"
#include "LocalAgent.h"
#include "Processes.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

long millisecondsSince(Clock::time_point start) {
    return static_cast<long>(
        std::chrono::duration_cast<milliseconds>(Clock::now() - start).count());
}

// Keeps so many connections open from a thread of its own: one that was cut is dialled again after
// a second, as an attacker with a loop would.
class Besiegers {
public:
    Besiegers(const LocalAgent& attacked, int silent, int slow)
        : agent(attacked), peers(static_cast<std::size_t>(silent + slow)) {
        for (std::size_t i = 0; i < peers.size(); ++i) {
            peers[i].isSlow = i >= static_cast<std::size_t>(silent);
            peers[i].source = static_cast<unsigned int>(i % kSources);
        }
        thread = std::thread([this] { besiege(); });
    }
    Besiegers(const Besiegers&) = delete;
    Besiegers& operator=(const Besiegers&) = delete;
    ~Besiegers() {
        stopped = true;
        thread.join();
    }

    // From now on whoever is cut stays out.
    void retire() { retired = true; }
    int inside() const { return open; }
    long dialled() const { return dials; }

private:
    static constexpr std::size_t kSources = 4;
    struct Peer {
        UniqueFd fd;
        bool isSlow = false;
        unsigned int source = 0;
        std::size_t bytes = 0;
        Clock::time_point nextAt;
    };

    void besiege() {
        while (!stopped) {
            const Clock::time_point now = Clock::now();
            std::vector<pollfd> watched;
            for (Peer& peer : peers) {
                act(peer, now);
                watched.push_back({peer.fd ? peer.fd.get() : -1, POLLIN, 0});
            }
            if (::poll(watched.data(), watched.size(), 20) > 0) {
                for (std::size_t i = 0; i < peers.size(); ++i) {
                    listen(peers[i], watched[i].revents);
                }
            }
            open = static_cast<int>(std::count_if(peers.begin(), peers.end(),
                                                  [](const Peer& peer) { return bool(peer.fd); }));
        }
    }

    void act(Peer& peer, Clock::time_point now) {
        if (now < peer.nextAt) {
            return;
        }
        if (!peer.fd) {
            if (!retired) {
                peer.fd = dialFrom(agent, peer.source);
                peer.bytes = 0;
                ++dials;
            }
        } else if (peer.isSlow) {
            // The beginning of a greeting that never ends.
            static const unsigned char hello[] = {0x16, 0x03, 0x01, 0x02, 0x00, 0x01, 0x00, 0x01};
            static_cast<void>(::send(peer.fd.get(), hello + std::min<std::size_t>(peer.bytes, 7), 1,
                                     MSG_NOSIGNAL | MSG_DONTWAIT));
            ++peer.bytes;
        }
        peer.nextAt = now + milliseconds(1000);
    }

    static void listen(Peer& peer, short seen) {
        char bytes[512];
        if (seen == 0 || !peer.fd) {
            return;
        }
        const ssize_t count = ::recv(peer.fd.get(), bytes, sizeof bytes, MSG_DONTWAIT);
        if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
            peer.fd.reset();
        }
    }

    const LocalAgent& agent;
    std::vector<Peer> peers;  // the thread's
    std::atomic<bool> stopped{false};
    std::atomic<bool> retired{false};
    std::atomic<int> open{0};
    std::atomic<long> dials{0};
    std::thread thread;
};

bool isServed(const LocalAgent& agent) {
    try {
        CResult result;
        agent.connect()->execute("echo served", 10000, &result);
        return result.getRunSummary() == "served\n";
    } catch (const CException&) {
        return false;
    }
}

}  // namespace

std::vector<Figure> attackWithSlowPeers(const Scale& scale) {
    const long seconds = scale.pick(60, 6);
    const long commands = scale.pick(200, 20);
    const int each = static_cast<int>(scale.pick(500, 100));
    LocalAgent agent;
    isServed(agent);
    const pid_t listener = agent.listenerPid();
    const long before = processes::privateKiB(processes::tree(listener));
    Besiegers besiegers(agent, each, each);
    Figure figure;
    figure.attack = std::to_string(each) + " silent and " + std::to_string(each) +
                    " one-byte-a-second connections, " + std::to_string(seconds) + " s";
    figure.tries = commands;
    std::vector<long> latencies;
    const Clock::time_point start = Clock::now();
    long peak = before;
    for (long i = 0; i < commands; ++i) {
        std::this_thread::sleep_until(start + milliseconds(i * seconds * 1000 / commands));
        const Clock::time_point asked = Clock::now();
        figure.survived += isServed(agent) ? 1 : 0;
        latencies.push_back(millisecondsSince(asked));
        peak = std::max(peak, processes::privateKiB(processes::tree(listener)));
    }
    besiegers.retire();
    const Clock::time_point retired = Clock::now();
    const bool gone =
        waitFor([&] { return besiegers.inside() == 0; }, milliseconds(scale.lenient(20000)));
    figure.recoverMs = millisecondsSince(retired);
    static_cast<void>(waitFor([&] { return agent.processes("kelnode-session").empty(); }));
    std::sort(latencies.begin(), latencies.end());
    const long p99 = latencies[latencies.size() * 99 / 100];
    // Of the listener and all its sessions.
    figure.growthKiB = peak - before;
    const long left = processes::privateKiB(processes::tree(listener)) - before;
    figure.remark = "p50 " + std::to_string(latencies[latencies.size() / 2]) + " ms, p99 " +
                    std::to_string(p99) + " ms; " + std::to_string(besiegers.dialled()) +
                    " connections; memory is that of the listener and its sessions, " +
                    std::to_string(left) + " KiB of it left at the end";
    figure.isReached = figure.survived == commands && p99 < scale.lenient(1000) && gone &&
                       figure.recoverMs < scale.lenient(15000) && figure.growthKiB < 32 * 1024 &&
                       left < 1024 && agent.listenerPid() == listener;
    return {figure};
}

std::vector<Figure> attackDescriptors(const Scale& scale) {
    LocalAgent::Options options;
    options.openFilesLimit = 64;
    LocalAgent agent(options);
    Figure figure;
    figure.attack = "500 connections against 64 descriptors";
    figure.tries = 500;
    const pid_t listener = agent.listenerPid();
    const long before = processes::statusKiB(listener, "VmRSS");
    {
        std::vector<UniqueFd> held;
        for (unsigned int i = 0; i < 500; ++i) {
            held.push_back(dialFrom(agent, i % 4));
        }
        static_cast<void>(agent.waitForLog("Too many open files"));
        const long usedBefore = processes::processorMs(listener);
        const Clock::time_point start = Clock::now();
        std::this_thread::sleep_for(milliseconds(scale.pick(4000, 3000)));
        const long used = processes::processorMs(listener) - usedBefore;
        const long percent = used * 100 / std::max(1L, millisecondsSince(start));
        figure.remark = std::to_string(percent) + "% of a core during the shortage";
        figure.isReached = percent < 10;
        figure.survived = static_cast<long>(held.size());
    }
    const Clock::time_point released = Clock::now();
    const bool served = waitFor([&] { return isServed(agent); });
    figure.recoverMs = millisecondsSince(released);
    figure.growthKiB = processes::statusKiB(listener, "VmRSS") - before;
    figure.isReached = figure.isReached && served && figure.recoverMs < scale.lenient(1000);
    return {figure};
}
