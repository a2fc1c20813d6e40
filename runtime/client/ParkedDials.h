#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "SocketDial.h"

// Connections that are being made while nobody waits for them, by "address:port". Thus a few
// threads can dial many silent nodes side by side. Never more than a given number. Safe from any
// thread.
class ParkedDials {
public:
    using Clock = SocketDial::Clock;

    explicit ParkedDials(std::size_t most) : limit(most) {}
    ParkedDials(const ParkedDials&) = delete;
    ParkedDials& operator=(const ParkedDials&) = delete;

    // False, with the dial left to the caller, when there are too many or one to that peer already.
    bool park(const std::string& peer, SocketDial& dial);
    // None when there is none.
    std::optional<SocketDial> take(const std::string& peer);

    // Waits until the network has answered one of the peers, or until the time of one is over.
    // Returns the places in the list of all for which that is so; one that is not parked is there
    // at once. Nobody else may take them meanwhile.
    std::vector<std::size_t> awaitAnswers(const std::vector<std::string>& peers) const;

private:
    const std::size_t limit;
    mutable std::mutex mutex;
    std::map<std::string, SocketDial> dials;  // guarded by mutex
};
