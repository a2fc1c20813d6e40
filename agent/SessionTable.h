#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <sys/types.h>

#include "Authorization.h"
#include "SessionLine.h"
#include "UniqueFd.h"
#include "WaitingRoom.h"

// The listener's book of the sessions that run. Not locked: the listener has one thread.
class SessionTable {
public:
    using Clock = std::chrono::steady_clock;
    // A handshake in progress is usually over by then.
    static constexpr std::chrono::milliseconds kFairChance{250};

    struct Entry {
        std::string source;  // of the connection, as in StartLimits
        UniqueFd status;     // the socket on which the session tells what it is at
        Clock::time_point startedAt;
        // What the session decides by; it was made when these were in force.
        std::shared_ptr<const Authorization> rules;
        unsigned int generation = 0;
        SessionReports reports;    // from there
        std::string certificates;  // of the peer, once it has authenticated
        std::string fingerprint;   // of its own one
        bool authenticated = false;
        bool uninterruptible = false;
        bool dropped = false;  // told to end by the listener
    };

    struct Bounds {
        unsigned int sessions = 0;                    // all of them
        unsigned int unauthenticated = 512;           // of those, not yet authenticated
        unsigned int unauthenticatedPerSource = 256;  // and from one address
        // Above the first bound so many are let in only to be told that there is no room.
        unsigned int turnedAway = 32;
        unsigned int perSource = 512;       // of all from one source
        unsigned int perCertificate = 256;  // of all that showed one certificate
    };

    struct Admission {
        enum class Kind { kServe, kTurnAway, kClose };
        Kind kind = Kind::kServe;
        std::string refusal;              // of one that is turned away: what it is told
        pid_t victim = 0;                 // a session to be ended in exchange; 0: none
        WaitingRoom::Id victimGuest = 0;  // or one that waits for its session; 0: none
    };

    // What to do with a new connection. One that has not authenticated must give way when there are
    // too many of its kind: which one is left to chance, among those that have had some time, so
    // that nobody can hold all places by saying nothing. Connections that wait for their session
    // count like sessions in every bound.
    //   random  a number from 0 to its argument, that excluded
    Admission admit(const std::string& source, const Bounds& bounds, Clock::time_point now,
                    const std::function<std::size_t(std::size_t)>& random,
                    const WaitingRoom::Guests& guests) const;

    // Why a session that showed the certificate may not stay, being one too many; empty: it may.
    std::string refusalOf(const std::string& fingerprint, const Bounds& bounds) const;

    Entry& add(pid_t pid, std::string source, UniqueFd status, Clock::time_point now);
    // Null when there is no such session.
    Entry* find(pid_t pid);
    void remove(pid_t pid) { entries.erase(pid); }

    std::map<pid_t, Entry>& all() { return entries; }
    std::size_t size() const { return entries.size(); }

private:
    void chooseVictim(const std::string* source, Clock::time_point now,
                      const std::function<std::size_t(std::size_t)>& random,
                      const WaitingRoom::Guests& guests, Admission& admission) const;

    std::map<pid_t, Entry> entries;
};
