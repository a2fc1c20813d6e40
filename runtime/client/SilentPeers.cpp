#include "SilentPeers.h"

#include <algorithm>

unsigned int SilentPeers::limitFor(const std::string& peer, unsigned int limitMs) const {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = forgottenAt.find(peer);
    return found != forgottenAt.end() && Clock::now() < found->second
               ? std::min(limitMs, kSecondLimitMs)
               : limitMs;
}

void SilentPeers::noteSilence(const std::string& peer, unsigned int limitMs) {
    if (limitMs < kSilenceMs) {
        return;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    forgottenAt[peer] = Clock::now() + remembered;
}

void SilentPeers::noteAnswer(const std::string& peer) {
    const std::lock_guard<std::mutex> lock(mutex);
    forgottenAt.erase(peer);
}

std::size_t SilentPeers::size() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return forgottenAt.size();
}
