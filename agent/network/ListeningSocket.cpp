#include "ListeningSocket.h"

#include <arpa/inet.h>
#include <cstdint>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "CException.h"
#include "Posix.h"

namespace {

socklen_t toSockaddr(const ListenAddress& address, sockaddr_storage& storage) {
    sockaddr_in6 v6{};
    if (::inet_pton(AF_INET6, address.host.c_str(), &v6.sin6_addr) == 1) {
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(static_cast<std::uint16_t>(address.port));
        std::memcpy(&storage, &v6, sizeof v6);
        return sizeof v6;
    }
    sockaddr_in v4{};
    v4.sin_family = AF_INET;
    v4.sin_port = htons(static_cast<std::uint16_t>(address.port));
    if (::inet_pton(AF_INET, address.host.c_str(), &v4.sin_addr) != 1) {
        throw CException("\"" + address.host + "\" is not an IP address");
    }
    std::memcpy(&storage, &v4, sizeof v4);
    return sizeof v4;
}

std::string hostOf(const sockaddr_storage& storage, unsigned int& port) {
    char text[INET6_ADDRSTRLEN] = "";
    if (storage.ss_family == AF_INET6) {
        sockaddr_in6 v6{};
        std::memcpy(&v6, &storage, sizeof v6);
        ::inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof text);
        port = ntohs(v6.sin6_port);
    } else {
        sockaddr_in v4{};
        std::memcpy(&v4, &storage, sizeof v4);
        ::inet_ntop(AF_INET, &v4.sin_addr, text, sizeof text);
        port = ntohs(v4.sin_port);
    }
    return text;
}

std::string printable(const std::string& host, unsigned int port) {
    const bool isV6 = host.find(':') != std::string::npos;
    return (isV6 ? "[" + host + "]" : host) + ":" + std::to_string(port);
}

}  // namespace

ListeningSocket::ListeningSocket(const ListenAddress& address) {
    const std::string name = printable(address.host, address.port);
    sockaddr_storage storage{};
    const socklen_t length = toSockaddr(address, storage);
    socket.reset(::socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) {
        Posix::throwErrno("cannot make a socket for " + name);
    }
    const int on = 1;
    if (::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&storage), length) != 0 ||
        ::listen(socket.get(), SOMAXCONN) != 0) {
        Posix::throwErrno("cannot listen on " + name);
    }
}

std::string ListeningSocket::boundAddress() const {
    sockaddr_storage storage{};
    socklen_t length = sizeof storage;
    if (::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&storage), &length) != 0) {
        Posix::throwErrno("cannot tell the address bound");
    }
    unsigned int port = 0;
    const std::string host = hostOf(storage, port);
    return printable(host, port);
}

UniqueFd ListeningSocket::accept(std::string& source) const {
    sockaddr_storage storage{};
    socklen_t length = sizeof storage;
    UniqueFd connection(
        ::accept4(socket.get(), reinterpret_cast<sockaddr*>(&storage), &length, SOCK_CLOEXEC));
    if (connection) {
        unsigned int port = 0;
        source = hostOf(storage, port);
    }
    return connection;
}

void ListeningSocket::watchForDeadPeer(int connection) {
    const int on = 1;
    const int idleSeconds = 30;
    const int intervalSeconds = 10;
    const int probes = 3;
    if (::setsockopt(connection, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on) != 0 ||
        ::setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0 ||
        ::setsockopt(connection, IPPROTO_TCP, TCP_KEEPIDLE, &idleSeconds, sizeof idleSeconds) !=
            0 ||
        ::setsockopt(connection, IPPROTO_TCP, TCP_KEEPINTVL, &intervalSeconds,
                     sizeof intervalSeconds) != 0 ||
        ::setsockopt(connection, IPPROTO_TCP, TCP_KEEPCNT, &probes, sizeof probes) != 0) {
        return;  // the connection serves without it
    }
}
