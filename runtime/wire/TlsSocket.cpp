#include "TlsSocket.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include "Cancellation.h"
#include "ChannelError.h"
#include "FreedBy.h"

namespace tlssocket {
namespace {

using Clock = std::chrono::steady_clock;
using Kind = ChannelError::Kind;

// A silent network is given up after about half a minute, however long the command may take.
constexpr int kKeepIdleSeconds = 10;
constexpr int kKeepIntervalSeconds = 5;
constexpr int kKeepProbes = 4;
constexpr unsigned int kUnacknowledgedMs = 30000;

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

short wait(int fd, short events, Deadline deadline, const Cancellation* stop) {
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
        pollfd watched[2] = {{fd, events, 0},
                             {stop != nullptr ? stop->descriptor() : -1, POLLIN, 0}};
        const int ready = poll(watched, 2, timeOut);
        if (ready > 0 && watched[1].revents != 0) {
            throw ChannelError(Kind::kCancelled, "nobody waits for it any more.");
        }
        if (ready > 0) {
            return watched[0].revents;
        }
        if (ready < 0 && errno != EINTR) {
            // The operation that is tried next tells what is wrong with the descriptor.
            return POLLERR;
        }
    }
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
