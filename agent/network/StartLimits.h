#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>

// How often a handshake may begin, which is what costs a session its processes. A connection that
// is over a limit is not refused: it waits, as long as a handshake may take, and gives way to
// others when there are too many of its kind.
//
// A source is an IPv4 address, or the /64 of an IPv6 address, which is what one machine has of
// them. It has so many starts a second, and so many at once after a rest. All sources together have
// theirs, and another part is kept for those from which a master has authenticated lately, so that
// strangers cannot take them all.
//
// Handshakes that fail cost their source: after kFreeFailures of them the more there are the fewer
// it may begin, down to kLeastRate a second. They are forgotten by and by, and faster with each
// master that authenticates from there.
//
// A value without locks and without a clock of its own.
class StartLimits {
public:
    using Clock = std::chrono::steady_clock;

    // Starts a second and starts at once.
    struct Rate {
        double perSecond;
        double atOnce;
    };
    static constexpr Rate kOfNewSource{25, 64};
    static constexpr Rate kOfKnownSource{200, 400};
    static constexpr Rate kOfAll{100, 200};
    static constexpr Rate kOfKnownBesides{200, 400};
    static constexpr double kFreeFailures = 32;
    static constexpr double kForgottenPerSecond = 2;
    static constexpr double kForgivenPerMaster = 8;
    static constexpr double kMostFailures = 800;
    static constexpr double kLeastRate = 1;
    static constexpr std::chrono::hours kKnownFor{24};
    static constexpr std::size_t kMostSources = 4096;

    // Who goes first when several want to start.
    enum class Standing { kKnown, kNew, kFailing };

    // Of an address as text. What is no address is a source of its own.
    static std::string sourceOf(const std::string& address);

    Standing standingOf(const std::string& source, Clock::time_point now) const;
    // Whether the source may start now: now, or when at the earliest if nothing else starts.
    Clock::time_point whenNext(const std::string& source, Clock::time_point now) const;
    // Counts a start.
    void take(const std::string& source, Clock::time_point now);

    // What became of it: a certificate that has a role here was shown, or none that is accepted.
    void noteMaster(const std::string& source, Clock::time_point now);
    void noteFailure(const std::string& source, Clock::time_point now);

    std::size_t size() const { return sources.size(); }

private:
    // What has been taken and is not made good for yet.
    struct Bucket {
        double taken = 0;
        Clock::time_point at{};
        double takenAt(Clock::time_point now, Rate rate) const;
        Clock::time_point whenNext(Clock::time_point now, Rate rate) const;
        void take(Clock::time_point now, Rate rate);
    };
    struct Source {
        Bucket starts;
        double failures = 0;
        Clock::time_point failuresAt{};
        Clock::time_point masterAt{};  // of the last one; the epoch: none
        double failuresNow(Clock::time_point now) const;
        bool isKnown(Clock::time_point now) const;
        Standing standing(Clock::time_point now) const;
        Rate rate(Clock::time_point now) const;
    };
    const Source& find(const std::string& source) const;
    Source& obtain(const std::string& source, Clock::time_point now);
    void forgetOthers(Clock::time_point now);

    std::map<std::string, Source> sources;
    Bucket all;
    Bucket knownBesides;
};
