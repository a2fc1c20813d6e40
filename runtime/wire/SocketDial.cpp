#include "SocketDial.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <utility>

#include "Cancellation.h"
#include "ChannelError.h"
#include "TlsSocket.h"

namespace {

using Clock = SocketDial::Clock;
using Deadline = SocketDial::Deadline;
using Kind = ChannelError::Kind;
using Addresses = FreedBy<addrinfo, freeaddrinfo>;

// How often a look-up looks whether it is still wanted.
constexpr std::chrono::milliseconds kLookAround{100};

struct Lookup {
    int error = EAI_AGAIN;
    Addresses found;
};

Lookup lookUp(const std::string& name, const std::string& service, int flags) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    Lookup result;
    result.error = getaddrinfo(name.c_str(), service.c_str(), &hints, &found);
    result.found.reset(result.error == 0 ? found : nullptr);
    return result;
}

// getaddrinfo knows no deadline. It runs on a thread of its own that shares this block with the
// caller, because it may still be asking name servers when the caller has given up.
struct PendingLookup {
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;  // both guarded by mutex
    Lookup result;
};

void await(PendingLookup& pending, const std::string& address, Deadline deadline,
           const Cancellation* stop) {
    std::unique_lock<std::mutex> lock(pending.mutex);
    while (!pending.done) {
        const Deadline now = Clock::now();
        if (now >= deadline) {
            throw ChannelError(Kind::kTimedOut,
                               "The name \"" + address + "\" could not be looked up in time.");
        }
        if (stop != nullptr && stop->isCancelled()) {
            throw ChannelError(Kind::kCancelled,
                               "The look-up of \"" + address + "\" was given up.");
        }
        pending.finished.wait_until(lock, std::min(deadline, now + kLookAround));
    }
}

Addresses resolve(const std::string& address, int port, Deadline deadline,
                  const Cancellation* stop) {
    const std::string service = std::to_string(port);
    Lookup literal = lookUp(address, service, AI_NUMERICHOST);
    if (literal.error == 0) {
        return std::move(literal.found);
    }
    const auto pending = std::make_shared<PendingLookup>();
    try {
        std::thread([pending, address, service] {
            Lookup result = lookUp(address, service, AI_ADDRCONFIG);
            const std::lock_guard<std::mutex> lock(pending->mutex);
            pending->result = std::move(result);
            pending->done = true;
            pending->finished.notify_one();
        }).detach();
    } catch (const std::system_error& error) {
        throw ChannelError(Kind::kFailed,
                           "Can not look up \"" + address + "\": " + error.what() + ".");
    }
    await(*pending, address, deadline, stop);
    if (pending->result.error != 0) {
        throw ChannelError(Kind::kUnreachable, "The name \"" + address + "\" is not known: " +
                                                   gai_strerror(pending->result.error) + ".");
    }
    return std::move(pending->result.found);
}

// An ephemeral port can be dialled from itself, when nobody listens there: TCP calls that a
// connection. Talking to oneself is a closed port.
bool isConnectedToItself(int fd) {
    sockaddr_storage local{};
    sockaddr_storage remote{};
    socklen_t localLength = sizeof local;
    socklen_t remoteLength = sizeof remote;
    return getsockname(fd, reinterpret_cast<sockaddr*>(&local), &localLength) == 0 &&
           getpeername(fd, reinterpret_cast<sockaddr*>(&remote), &remoteLength) == 0 &&
           localLength == remoteLength && std::memcmp(&local, &remote, localLength) == 0;
}

// What became of an attempt that shows POLLOUT: 0 or an errno.
int outcomeOf(int fd) {
    int error = 0;
    socklen_t length = sizeof error;
    if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
        return errno;
    }
    return error == 0 && isConnectedToItself(fd) ? ECONNREFUSED : error;
}

bool hasOutcome(int fd) {
    pollfd watched{fd, POLLOUT, 0};
    return poll(&watched, 1, 0) > 0;
}

}  // namespace

SocketDial::SocketDial(const std::string& address, int port, Deadline until,
                       const Cancellation* stop)
    : peer(tlssocket::join(address, port)), limit(until), error(EADDRNOTAVAIL) {
    if (address.empty() || port <= 0 || port > 65535) {
        throw ChannelError(Kind::kUnreachable,
                           "\"" + peer + "\" is not an address a node agent can have.");
    }
    addresses = resolve(address, port, limit, stop);
    next = addresses.get();
    tryNext();
}

SocketDial::~SocketDial() = default;

UniqueFd SocketDial::connect(const std::string& address, int port, Deadline deadline) {
    return SocketDial(address, port, deadline, nullptr).await(deadline, nullptr);
}

// Begins with the next address that takes it; without a socket when none is left.
void SocketDial::tryNext() {
    socket.reset();
    for (; next != nullptr && !socket; next = next->ai_next) {
        socket.reset(::socket(next->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        // After EINTR too the attempt goes on by itself.
        if (!socket || (::connect(socket.get(), next->ai_addr, next->ai_addrlen) != 0 &&
                        errno != EINPROGRESS && errno != EINTR)) {
            error = errno;
            socket.reset();
        }
    }
}

UniqueFd SocketDial::await(Deadline until, const Cancellation* stop) {
    while (socket) {
        if (!(wasLeft && hasOutcome(socket.get())) &&
            tlssocket::wait(socket.get(), POLLOUT, std::min(until, limit), stop) == 0) {
            if (Clock::now() < limit) {
                wasLeft = true;
                return UniqueFd();
            }
            error = ETIMEDOUT;
            break;
        }
        error = outcomeOf(socket.get());
        if (error == 0) {
            tlssocket::prepare(socket.get(), peer);
            return std::move(socket);
        }
        tryNext();
    }
    fail();
}

void SocketDial::endBy(Deadline until) {
    limit = std::min(limit, until);
}

void SocketDial::fail() const {
    if (error == ETIMEDOUT) {
        throw ChannelError(Kind::kNoAnswer,
                           "Can not connect to " + peer + ": no answer, the connection timed out.");
    }
    throw ChannelError(Kind::kUnreachable,
                       "Can not connect to " + peer + ": " + std::strerror(error) + ".");
}
