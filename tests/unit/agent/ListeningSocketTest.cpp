#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CException.h"
#include "ListeningSocket.h"

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

ListenAddress local(const std::string& host = "127.0.0.1", unsigned int port = 0) {
    ListenAddress address;
    address.host = host;
    address.port = port;
    return address;
}

unsigned int portOf(const ListeningSocket& listening) {
    const std::string address = listening.boundAddress();
    return static_cast<unsigned int>(std::atoi(address.c_str() + address.rfind(':') + 1));
}

UniqueFd connectTo(unsigned int port) {
    UniqueFd client(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(0,
              ::connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
    return client;
}

std::string errorOf(const ListenAddress& address) {
    try {
        const ListeningSocket listening(address);
    } catch (const CException& error) {
        return error.getErrMsg();
    }
    return "";
}

int option(int fd, int level, int name) {
    int value = 0;
    socklen_t size = sizeof value;
    EXPECT_EQ(0, ::getsockopt(fd, level, name, &value, &size));
    return value;
}

}  // namespace

TEST(ListeningSocket, NoneTakesNothing) {
    const ListeningSocket none;
    EXPECT_FALSE(none);
    EXPECT_EQ(-1, none.descriptor());
    EXPECT_THROW(none.boundAddress(), CException);
}

TEST(ListeningSocket, HandsOutConnectionsWithTheirSource) {
    const ListeningSocket listening(local());
    ASSERT_TRUE(listening);
    EXPECT_THAT(listening.boundAddress(), StartsWith("127.0.0.1:"));
    std::string source = "unchanged";
    EXPECT_FALSE(listening.accept(source));
    EXPECT_EQ(EAGAIN, errno);
    EXPECT_EQ("unchanged", source);
    const UniqueFd client = connectTo(portOf(listening));
    pollfd watched{listening.descriptor(), POLLIN, 0};
    ASSERT_EQ(1, ::poll(&watched, 1, 5000));
    const UniqueFd connection = listening.accept(source);
    EXPECT_TRUE(connection);
    EXPECT_EQ("127.0.0.1", source);
    EXPECT_FALSE(listening.accept(source));
}

TEST(ListeningSocket, AddressOfTheSixthVersionStandsInBrackets) {
    try {
        EXPECT_THAT(ListeningSocket(local("::1")).boundAddress(), StartsWith("[::1]:"));
    } catch (const CException& missing) {
        GTEST_SKIP() << missing.getErrMsg();
    }
}

TEST(ListeningSocket, FaultsNameTheAddress) {
    EXPECT_EQ("\"localhost\" is not an IP address", errorOf(local("localhost")));
    const ListeningSocket first(local());
    const std::string address = first.boundAddress();
    EXPECT_EQ("cannot listen on " + address + ": " + std::strerror(EADDRINUSE),
              errorOf(local("127.0.0.1", portOf(first))));
    EXPECT_THAT(errorOf(local("192.0.2.1", 9)), HasSubstr("cannot listen on 192.0.2.1:9: "));
}

TEST(ListeningSocket, GivenUpItListensNoMore) {
    ListeningSocket listening(local());
    const unsigned int port = portOf(listening);
    listening = ListeningSocket();
    EXPECT_FALSE(listening);
    EXPECT_EQ("", errorOf(local("127.0.0.1", port)));
}

TEST(ListeningSocket, SilentPeerIsLookedAfter) {
    const ListeningSocket listening(local());
    const UniqueFd client = connectTo(portOf(listening));
    ListeningSocket::watchForDeadPeer(client.get());
    EXPECT_EQ(1, option(client.get(), SOL_SOCKET, SO_KEEPALIVE));
    EXPECT_EQ(1, option(client.get(), IPPROTO_TCP, TCP_NODELAY));
    EXPECT_EQ(60, option(client.get(), IPPROTO_TCP, TCP_KEEPIDLE) +
                      option(client.get(), IPPROTO_TCP, TCP_KEEPINTVL) *
                          option(client.get(), IPPROTO_TCP, TCP_KEEPCNT));
}
