#include "TlsSocket.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>

#include "ChannelError.h"
#include "FreedBy.h"
#include "ParkedDials.h"

namespace tlssocket {
namespace {

using Clock = std::chrono::steady_clock;
using Kind = ChannelError::Kind;

// A silent network is given up after about half a minute, however long the command may take.
constexpr int kKeepIdleSeconds = 10;
constexpr int kKeepIntervalSeconds = 5;
constexpr int kKeepProbes = 4;
constexpr unsigned int kUnacknowledgedMs = 30000;

using Addresses = FreedBy<addrinfo, freeaddrinfo>;

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

Addresses resolve(const std::string& address, int port, Deadline deadline) {
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
    std::unique_lock<std::mutex> lock(pending->mutex);
    // Far deadlines overflow in wait_until; a look-up never takes a day.
    const Deadline limit = std::min(deadline, Clock::now() + std::chrono::hours(24));
    if (!pending->finished.wait_until(lock, limit, [&] { return pending->done; })) {
        throw ChannelError(Kind::kTimedOut,
                           "The name \"" + address + "\" could not be looked up in time.");
    }
    if (pending->result.error != 0) {
        throw ChannelError(Kind::kUnreachable, "The name \"" + address + "\" is not known: " +
                                                   gai_strerror(pending->result.error) + ".");
    }
    return std::move(pending->result.found);
}

// The outcome of an attempt to connect, 0 or an errno; EINPROGRESS when there is none by then.
int outcomeOf(int fd, Deadline deadline) {
    if (wait(fd, POLLOUT, deadline) == 0) {
        return EINPROGRESS;
    }
    int error = 0;
    socklen_t length = sizeof error;
    return getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0 ? errno : error;
}

// Waits for an attempt until its deadline, or as long as the thread's patience lasts: then it is
// parked, and ChannelError kPending thrown.
int awaitOutcome(UniqueFd& fd, Deadline deadline, const std::string& peer, bool mayPark) {
    const auto patience = mayPark ? DialPatience::ofThisThread() : std::nullopt;
    if (patience) {
        const int error = outcomeOf(fd.get(), std::min(deadline, Clock::now() + *patience));
        if (error != EINPROGRESS) {
            return error;
        }
        ParkedDials::Dial dial{std::move(fd), deadline};
        if (Clock::now() < deadline && ParkedDials::instance().park(peer, dial)) {
            throw ChannelError(Kind::kPending, peer + " has not answered yet.");
        }
        fd = std::move(dial.socket);
    }
    const int error = outcomeOf(fd.get(), deadline);
    return error == EINPROGRESS ? ETIMEDOUT : error;
}

// Dials one address; returns 0 or an errno.
int dial(const addrinfo& target, Deadline deadline, const std::string& peer, bool mayPark,
         UniqueFd& socketOut) {
    UniqueFd fd(::socket(target.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd) {
        return errno;
    }
    if (::connect(fd.get(), target.ai_addr, target.ai_addrlen) != 0) {
        // After EINTR too the attempt goes on by itself.
        if (errno != EINPROGRESS && errno != EINTR) {
            return errno;
        }
        const int error = awaitOutcome(fd, deadline, peer, mayPark);
        if (error != 0) {
            return error;
        }
    }
    socketOut = std::move(fd);
    return 0;
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

// Dials the addresses of one peer in turn; returns 0 or the errno of the last.
int dialAny(const addrinfo* addresses, Deadline deadline, const std::string& peer, UniqueFd& fd) {
    int error = EADDRNOTAVAIL;
    // Of several addresses the next may answer where the first does not.
    const bool isOnly = addresses != nullptr && addresses->ai_next == nullptr;
    for (const addrinfo* one = addresses; one != nullptr; one = one->ai_next) {
        error = dial(*one, deadline, peer, isOnly, fd);
        if (error == 0 && isConnectedToItself(fd.get())) {
            error = ECONNREFUSED;
        }
        if (error == 0) {
            return 0;
        }
    }
    return error;
}

// Goes on with an attempt that was parked; returns 0, its errno, or EAGAIN when there is none.
int takeUp(const std::string& peer, Deadline deadline, UniqueFd& fd) {
    ParkedDials::Dial parked = ParkedDials::instance().take(peer);
    if (!parked.socket) {
        return EAGAIN;
    }
    fd = std::move(parked.socket);
    // What has been answered meanwhile counts, however late anybody looks.
    pollfd watched{fd.get(), POLLOUT, 0};
    const bool isAnswered = poll(&watched, 1, 0) > 0;
    const Deadline limit =
        isAnswered ? Clock::now() + std::chrono::seconds(1) : std::min(deadline, parked.deadline);
    const int error = awaitOutcome(fd, limit, peer, !isAnswered);
    return error == 0 && isConnectedToItself(fd.get()) ? ECONNREFUSED : error;
}

// What a BIO of ours keeps.
struct Connection {
    int fd;
    bool moreToCome;
};

Connection& connectionOf(BIO* bio) {
    return *static_cast<Connection*>(BIO_get_data(bio));
}

int bioWrite(BIO* bio, const char* bytes, int length) {
    BIO_clear_retry_flags(bio);
    const int flags = MSG_NOSIGNAL | (connectionOf(bio).moreToCome ? MSG_MORE : 0);
    ssize_t put = -1;
    do {
        put = ::send(connectionOf(bio).fd, bytes, static_cast<std::size_t>(length), flags);
    } while (put < 0 && errno == EINTR);
    if (put < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        BIO_set_retry_write(bio);
    }
    return static_cast<int>(put);
}

int bioRead(BIO* bio, char* bytes, int length) {
    BIO_clear_retry_flags(bio);
    ssize_t got = -1;
    do {
        got = ::recv(connectionOf(bio).fd, bytes, static_cast<std::size_t>(length), 0);
    } while (got < 0 && errno == EINTR);
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        BIO_set_retry_read(bio);
    } else if (got == 0) {
        BIO_set_flags(bio, BIO_FLAGS_IN_EOF);
    }
    return static_cast<int>(got);
}

long bioControl(BIO* bio, int command, long /*number*/, void* /*pointer*/) {
    switch (command) {
        case BIO_CTRL_FLUSH:
            return 1;
        case BIO_CTRL_EOF:
            return BIO_test_flags(bio, BIO_FLAGS_IN_EOF) != 0 ? 1 : 0;
        default:
            return 0;
    }
}

int bioDestroy(BIO* bio) {
    delete static_cast<Connection*>(BIO_get_data(bio));
    return 1;
}

const BIO_METHOD* bioMethod() {
    // Lives as long as the process: connections of abandoned workers may still use it at exit.
    static BIO_METHOD* method = [] {
        BIO_METHOD* made = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "kelsh socket");
        if (made != nullptr) {
            BIO_meth_set_write(made, &bioWrite);
            BIO_meth_set_read(made, &bioRead);
            BIO_meth_set_ctrl(made, &bioControl);
            BIO_meth_set_destroy(made, &bioDestroy);
        }
        return made;
    }();
    return method;
}

void setOption(int fd, int level, int option, const void* value, socklen_t length) {
    // None of the options is worth failing for: an odd kernel or a socket of another family.
    (void)setsockopt(fd, level, option, value, length);
}

}  // namespace

short wait(int fd, short events, Deadline deadline) {
    for (;;) {
        int timeOut = -1;
        if (deadline != Deadline::max()) {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
            // A peer that always has one more byte must not outrun the deadline.
            if (left <= 0) {
                return 0;
            }
            timeOut = static_cast<int>(std::min<long long>(left, INT_MAX));
        }
        pollfd watched{fd, events, 0};
        const int ready = poll(&watched, 1, timeOut);
        if (ready > 0) {
            return watched.revents;
        }
        if (ready < 0 && errno != EINTR) {
            // The operation that is tried next tells what is wrong with the descriptor.
            return POLLERR;
        }
    }
}

UniqueFd connect(const std::string& address, int port, Deadline deadline) {
    const std::string peer = join(address, port);
    if (address.empty() || port <= 0 || port > 65535) {
        throw ChannelError(Kind::kUnreachable,
                           "\"" + peer + "\" is not an address a node agent can have.");
    }
    UniqueFd fd;
    int error = takeUp(peer, deadline, fd);
    if (error == EAGAIN) {
        error = dialAny(resolve(address, port, deadline).get(), deadline, peer, fd);
    }
    if (error == 0) {
        prepare(fd.get(), peer);
        return fd;
    }
    if (error == ETIMEDOUT) {
        throw ChannelError(Kind::kNoAnswer,
                           "Can not connect to " + peer + ": no answer, the connection timed out.");
    }
    throw ChannelError(Kind::kUnreachable,
                       "Can not connect to " + peer + ": " + std::strerror(error) + ".");
}

void prepare(int fd, const std::string& peer) {
    const int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0 ||
        fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) {
        const int error = errno;
        throw ChannelError(Kind::kFailed, "Can not prepare the socket of " + peer + ": " +
                                              std::strerror(error) + ".");
    }
    const int on = 1;
    setOption(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setOption(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
    setOption(fd, IPPROTO_TCP, TCP_KEEPIDLE, &kKeepIdleSeconds, sizeof kKeepIdleSeconds);
    setOption(fd, IPPROTO_TCP, TCP_KEEPINTVL, &kKeepIntervalSeconds, sizeof kKeepIntervalSeconds);
    setOption(fd, IPPROTO_TCP, TCP_KEEPCNT, &kKeepProbes, sizeof kKeepProbes);
    setOption(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, &kUnacknowledgedMs, sizeof kUnacknowledgedMs);
}

std::string join(const std::string& address, int port) {
    const bool brackets = address.find(':') != std::string::npos;
    return (brackets ? "[" + address + "]" : address) + ":" + std::to_string(port);
}

std::string peerOf(int fd) {
    sockaddr_storage remote{};
    socklen_t length = sizeof remote;
    char host[NI_MAXHOST] = {};
    char port[NI_MAXSERV] = {};
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&remote), &length) != 0 ||
        getnameinfo(reinterpret_cast<sockaddr*>(&remote), length, host, sizeof host, port,
                    sizeof port, NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        return "an unknown address";
    }
    const std::string address = host;
    return (address.find(':') == std::string::npos ? address : "[" + address + "]") + ":" + port;
}

BIO* newBio(int fd) {
    auto kept = std::make_unique<Connection>(Connection{fd, false});
    const BIO_METHOD* method = bioMethod();
    BIO* bio = method == nullptr ? nullptr : BIO_new(method);
    if (bio != nullptr) {
        BIO_set_data(bio, kept.release());
        BIO_set_init(bio, 1);
    }
    return bio;
}

void setMoreToCome(BIO* bio, bool more) {
    connectionOf(bio).moreToCome = more;
}

}  // namespace tlssocket
