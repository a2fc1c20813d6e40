#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "UniqueFd.h"

// How long this thread waits for a network that does not answer before it turns to something else.
// While the object lives, tlssocket::connect parks what is not answered in that time and throws
// ChannelError kPending; the attempt goes on by itself and is taken up by the next connect to the
// same peer, on any thread. Thus a few threads can dial many silent nodes side by side.
class DialPatience {
public:
    explicit DialPatience(std::chrono::milliseconds patience);
    DialPatience(const DialPatience&) = delete;
    DialPatience& operator=(const DialPatience&) = delete;
    ~DialPatience();

    // Of the calling thread; none when it waits as long as it is told.
    static std::optional<std::chrono::milliseconds> ofThisThread();

private:
    std::optional<std::chrono::milliseconds> before;
};

// Connections that are being made while nobody waits for them, by "address:port". Never more than
// half of the descriptors that the process may open. Safe from any thread.
class ParkedDials {
public:
    using Clock = std::chrono::steady_clock;

    struct Dial {
        UniqueFd socket;
        Clock::time_point deadline;  // then it counts as not answered
    };

    // The ones of this process. Never destroyed, since workers may outlive main.
    static ParkedDials& instance();

    explicit ParkedDials(std::size_t most) : limit(most) {}
    ParkedDials(const ParkedDials&) = delete;
    ParkedDials& operator=(const ParkedDials&) = delete;

    // False, with the dial left to the caller, when there are too many or one to that peer already.
    bool park(const std::string& peer, Dial& dial);
    // Without a socket when there is none.
    Dial take(const std::string& peer);

    // Waits until the network has answered one of the peers, or until the time of one is over.
    // Returns the places in the list of all for which that is so; one that is not parked is there
    // at once. Nobody else may take them meanwhile.
    std::vector<std::size_t> awaitAnswers(const std::vector<std::string>& peers) const;

private:
    const std::size_t limit;
    mutable std::mutex mutex;
    std::map<std::string, Dial> dials;  // guarded by mutex
};
