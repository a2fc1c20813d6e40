#pragma once

#include <string>

#include "ListenAddress.h"
#include "UniqueFd.h"

// Where the agent takes connections from. Owns its descriptor; movable. Used by one thread.
class ListeningSocket {
public:
    // None: nothing is taken.
    ListeningSocket() = default;
    // Binds and listens. Throws CException.
    explicit ListeningSocket(const ListenAddress& address);

    explicit operator bool() const { return static_cast<bool>(socket); }
    // For poll(); -1 for none.
    int descriptor() const { return socket.get(); }
    // "address:port" as bound. Throws CException.
    std::string boundAddress() const;
    // The next connection, without waiting, and its peer's address without the port. Empty, and
    // errno set, where there is none.
    UniqueFd accept(std::string& source) const;

    // Makes a connection whose peer says nothing any more, as a master that lost its power, end
    // after a minute. One that cannot be set up so serves without it.
    static void watchForDeadPeer(int connection);

private:
    UniqueFd socket;
};
