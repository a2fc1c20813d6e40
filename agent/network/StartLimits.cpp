#include "StartLimits.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cmath>
#include <cstring>
#include <netinet/in.h>

namespace {

constexpr std::size_t kNetworkBytes = 8;  // of a /64

double secondsBetween(StartLimits::Clock::time_point from, StartLimits::Clock::time_point to) {
    return std::max(0.0, std::chrono::duration<double>(to - from).count());
}

}  // namespace

std::string StartLimits::sourceOf(const std::string& address) {
    in6_addr parsed{};
    if (::inet_pton(AF_INET6, address.c_str(), &parsed) != 1) {
        return address;
    }
    char text[INET6_ADDRSTRLEN] = "";
    if (IN6_IS_ADDR_V4MAPPED(&parsed)) {
        ::inet_ntop(AF_INET, &parsed.s6_addr[12], text, sizeof text);
        return text;
    }
    std::memset(&parsed.s6_addr[kNetworkBytes], 0, sizeof parsed.s6_addr - kNetworkBytes);
    ::inet_ntop(AF_INET6, &parsed, text, sizeof text);
    return std::string(text) + "/64";
}

double StartLimits::Bucket::takenAt(Clock::time_point now, Rate rate) const {
    return std::max(0.0, taken - secondsBetween(at, now) * rate.perSecond);
}

StartLimits::Clock::time_point StartLimits::Bucket::whenNext(Clock::time_point now,
                                                             Rate rate) const {
    const double tooMany = takenAt(now, rate) + 1 - rate.atOnce;
    if (tooMany <= 0) {
        return now;
    }
    return now + std::chrono::ceil<std::chrono::milliseconds>(
                     std::chrono::duration<double>(tooMany / rate.perSecond));
}

void StartLimits::Bucket::take(Clock::time_point now, Rate rate) {
    taken = takenAt(now, rate) + 1;
    at = now;
}

double StartLimits::Source::failuresNow(Clock::time_point now) const {
    return std::max(0.0, failures - secondsBetween(failuresAt, now) * kForgottenPerSecond);
}

bool StartLimits::Source::isKnown(Clock::time_point now) const {
    return masterAt != Clock::time_point{} && now - masterAt < kKnownFor;
}

StartLimits::Standing StartLimits::Source::standing(Clock::time_point now) const {
    if (failuresNow(now) > kFreeFailures) {
        return Standing::kFailing;
    }
    return isKnown(now) ? Standing::kKnown : Standing::kNew;
}

StartLimits::Rate StartLimits::Source::rate(Clock::time_point now) const {
    Rate rate = isKnown(now) ? kOfKnownSource : kOfNewSource;
    const double failed = failuresNow(now);
    if (failed > kFreeFailures) {
        rate.perSecond = std::max(kLeastRate, kOfNewSource.perSecond * kFreeFailures / failed);
        rate.atOnce = std::max(1.0, kOfNewSource.atOnce * kFreeFailures / failed);
    }
    return rate;
}

const StartLimits::Source& StartLimits::find(const std::string& source) const {
    static const Source unknown;
    const auto found = sources.find(source);
    return found == sources.end() ? unknown : found->second;
}

StartLimits::Source& StartLimits::obtain(const std::string& source, Clock::time_point now) {
    if (sources.size() >= kMostSources && sources.count(source) == 0) {
        forgetOthers(now);
    }
    return sources[source];
}

// First those that have nothing to be remembered for, then any that no master came from: who has
// so many addresses is not to be told apart by them.
void StartLimits::forgetOthers(Clock::time_point now) {
    const auto forget = [this](auto isDispensable) {
        for (auto entry = sources.begin(); entry != sources.end();) {
            entry = isDispensable(entry->second) ? sources.erase(entry) : std::next(entry);
        }
    };
    forget([now](const Source& entry) {
        return !entry.isKnown(now) && entry.failuresNow(now) <= 0 &&
               entry.starts.takenAt(now, entry.rate(now)) <= 0;
    });
    if (sources.size() >= kMostSources) {
        forget([now](const Source& entry) { return !entry.isKnown(now); });
    }
    if (sources.size() >= kMostSources) {
        sources.erase(std::min_element(sources.begin(), sources.end(),
                                       [](const auto& one, const auto& other) {
                                           return one.second.masterAt < other.second.masterAt;
                                       }));
    }
}

StartLimits::Standing StartLimits::standingOf(const std::string& source,
                                              Clock::time_point now) const {
    return find(source).standing(now);
}

StartLimits::Clock::time_point StartLimits::whenNext(const std::string& source,
                                                     Clock::time_point now) const {
    const Source& entry = find(source);
    const Clock::time_point ofSource = entry.starts.whenNext(now, entry.rate(now));
    Clock::time_point ofAll = all.whenNext(now, kOfAll);
    if (entry.standing(now) == Standing::kKnown) {
        ofAll = std::min(ofAll, knownBesides.whenNext(now, kOfKnownBesides));
    }
    return std::max(ofSource, ofAll);
}

void StartLimits::take(const std::string& source, Clock::time_point now) {
    Source& entry = obtain(source, now);
    const bool fromBesides = entry.standing(now) == Standing::kKnown &&
                             knownBesides.whenNext(now, kOfKnownBesides) <= now;
    if (fromBesides) {
        knownBesides.take(now, kOfKnownBesides);
    } else {
        all.take(now, kOfAll);
    }
    entry.starts.take(now, entry.rate(now));
}

void StartLimits::noteMaster(const std::string& source, Clock::time_point now) {
    Source& entry = obtain(source, now);
    entry.masterAt = now;
    entry.failures = std::max(0.0, entry.failuresNow(now) - kForgivenPerMaster);
    entry.failuresAt = now;
}

void StartLimits::noteFailure(const std::string& source, Clock::time_point now) {
    Source& entry = obtain(source, now);
    entry.failures = std::min(kMostFailures, entry.failuresNow(now) + 1);
    entry.failuresAt = now;
}
