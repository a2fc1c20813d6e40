#include "ParkedDials.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <utility>

bool ParkedDials::park(const std::string& peer, SocketDial& dial) {
    const std::lock_guard<std::mutex> lock(mutex);
    return dials.size() < limit && dials.try_emplace(peer, std::move(dial)).second;
}

std::optional<SocketDial> ParkedDials::take(const std::string& peer) {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = dials.find(peer);
    if (found == dials.end()) {
        return std::nullopt;
    }
    std::optional<SocketDial> taken(std::move(found->second));
    dials.erase(found);
    return taken;
}

std::vector<std::size_t> ParkedDials::awaitAnswers(const std::vector<std::string>& peers) const {
    std::vector<pollfd> watched;
    std::vector<Clock::time_point> deadlines;
    watched.reserve(peers.size());
    deadlines.reserve(peers.size());
    {
        const std::lock_guard<std::mutex> lock(mutex);
        for (const std::string& peer : peers) {
            const auto found = dials.find(peer);
            const bool isParked = found != dials.end();
            watched.push_back({isParked ? found->second.descriptor() : -1, POLLOUT, 0});
            deadlines.push_back(isParked ? found->second.deadline() : Clock::time_point::min());
        }
    }
    std::vector<std::size_t> answered;
    while (answered.empty() && !peers.empty()) {
        const Clock::time_point first = *std::min_element(deadlines.begin(), deadlines.end());
        const Clock::time_point now = Clock::now();
        const auto left = first <= now ? std::chrono::milliseconds(0)
                                       : std::chrono::ceil<std::chrono::milliseconds>(first - now);
        if (::poll(watched.data(), watched.size(), static_cast<int>(left.count())) < 0 &&
            errno != EINTR) {
            // Not even memory for that: each is to be tried by itself.
            std::fill(deadlines.begin(), deadlines.end(), Clock::time_point::min());
        }
        for (std::size_t i = 0; i < peers.size(); ++i) {
            if (watched[i].revents != 0 || deadlines[i] <= Clock::now()) {
                answered.push_back(i);
            }
        }
    }
    return answered;
}
