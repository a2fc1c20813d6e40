#pragma once

#include <chrono>
#include <memory>
#include <netdb.h>
#include <string>

#include "FreedBy.h"
#include "UniqueFd.h"

class Cancellation;

// An attempt to connect to one peer. Once begun it goes on by itself, whether anybody waits for it
// or not, until its deadline. Of several addresses of a name each is tried when the one before has
// failed. Movable; used by one thread at a time.
class SocketDial {
public:
    using Clock = std::chrono::steady_clock;
    using Deadline = Clock::time_point;

    // The whole of it: begins and waits until the deadline.
    static UniqueFd connect(const std::string& address, int port, Deadline deadline);

    // Looks a host name up, which counts against the deadline, and begins.
    //   stop  ends the look-up when it is cancelled; may be null
    // Throws ChannelError (kUnreachable, kTimedOut, kCancelled) that names the address.
    SocketDial(const std::string& address, int port, Deadline until, const Cancellation* stop);
    SocketDial(SocketDial&&) = default;
    SocketDial& operator=(SocketDial&&) = default;
    ~SocketDial();

    // Waits for the outcome, but no longer than that: the connected socket, prepared as by
    // tlssocket::prepare, or none while there is no outcome. An answer that comes between two calls
    // counts, however late the second is. Throws ChannelError (kUnreachable, kNoAnswer,
    // kCancelled).
    UniqueFd await(Deadline until, const Cancellation* stop);

    // Gives up earlier than it was told at first.
    void endBy(Deadline until);
    Deadline deadline() const { return limit; }
    // Reports POLLOUT when there is an outcome; -1 when there is one already.
    int descriptor() const { return socket.get(); }

private:
    using Addresses = FreedBy<addrinfo, freeaddrinfo>;

    void tryNext();
    [[noreturn]] void fail() const;

    std::string peer;
    Deadline limit;
    Addresses addresses;
    const addrinfo* next = nullptr;  // of the addresses not tried yet
    UniqueFd socket;                 // of the address that is being tried
    bool wasLeft = false;            // an earlier await() found no outcome
    int error;                       // of the last that failed, an errno
};
