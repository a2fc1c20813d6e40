#include "ParkedDials.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <sys/resource.h>
#include <utility>

namespace {

thread_local std::optional<std::chrono::milliseconds> patienceOfThread;

std::size_t shareOfDescriptors() {
    constexpr rlim_t kMost = 65536;
    rlimit descriptors{};
    if (::getrlimit(RLIMIT_NOFILE, &descriptors) != 0) {
        return 0;
    }
    return static_cast<std::size_t>(std::min(descriptors.rlim_cur / 2, kMost));
}

}  // namespace

DialPatience::DialPatience(std::chrono::milliseconds patience)
    : before(std::exchange(patienceOfThread, patience)) {}

DialPatience::~DialPatience() {
    patienceOfThread = before;
}

std::optional<std::chrono::milliseconds> DialPatience::ofThisThread() {
    return patienceOfThread;
}

ParkedDials& ParkedDials::instance() {
    static auto* dials = new ParkedDials(shareOfDescriptors());
    return *dials;
}

bool ParkedDials::park(const std::string& peer, Dial& dial) {
    const std::lock_guard<std::mutex> lock(mutex);
    return dials.size() < limit && dials.try_emplace(peer, std::move(dial)).second;
}

ParkedDials::Dial ParkedDials::take(const std::string& peer) {
    Dial taken;
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = dials.find(peer);
    if (found != dials.end()) {
        taken = std::move(found->second);
        dials.erase(found);
    }
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
            watched.push_back({isParked ? found->second.socket.get() : -1, POLLOUT, 0});
            deadlines.push_back(isParked ? found->second.deadline : Clock::time_point::min());
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
