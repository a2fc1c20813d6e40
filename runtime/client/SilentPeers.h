#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>

// Nodes that a moment ago did not answer in all the time they were given. Who asks for one again so
// soon, as a command does after the check at the start, shall not wait as long a second time: there
// is another attempt, in case the node has come up, but a short one. What is known grows stale
// soon, and a short attempt that fails does not make it last longer, so a node that is only slow
// has its full time again after that.
//
// Safe from any thread. Limits are in milliseconds.
class SilentPeers {
public:
    using Clock = std::chrono::steady_clock;

    // Silence for a shorter time says nothing.
    static constexpr unsigned int kSilenceMs = 1500;
    // The limit of each attempt that follows it: many times what a node needs. A command makes two,
    // one to learn who the node is.
    static constexpr unsigned int kSecondLimitMs = 200;
    static constexpr std::chrono::milliseconds kMemory{5000};

    explicit SilentPeers(std::chrono::milliseconds memory = kMemory) : remembered(memory) {}
    SilentPeers(const SilentPeers&) = delete;
    SilentPeers& operator=(const SilentPeers&) = delete;

    // How long "address:port" may take, where limitMs would be its full time.
    unsigned int limitFor(const std::string& peer, unsigned int limitMs) const;
    // It has not answered within limitMs.
    void noteSilence(const std::string& peer, unsigned int limitMs);
    void noteAnswer(const std::string& peer);
    std::size_t size() const;

private:
    const std::chrono::milliseconds remembered;
    mutable std::mutex mutex;
    std::map<std::string, Clock::time_point> forgottenAt;  // guarded by mutex
};
