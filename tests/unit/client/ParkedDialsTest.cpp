#include <chrono>
#include <netinet/in.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ParkedDials.h"
#include "SocketDial.h"

namespace {

using std::chrono::milliseconds;
using Clock = ParkedDials::Clock;

UniqueFd someSocket() {
    return UniqueFd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

class Listening {
public:
    Listening() : fd(someSocket()) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (bind(fd.get(), generic, length) != 0 || listen(fd.get(), 8) != 0 ||
            getsockname(fd.get(), generic, &length) != 0) {
            throw std::runtime_error("cannot listen");
        }
        number = ntohs(address.sin_port);
    }
    int port() const { return number; }

private:
    UniqueFd fd;
    int number = 0;
};

}  // namespace

TEST(ParkedDials, KeepsOneForEachPeerAndNoMoreThanItsBound) {
    const Listening peer;
    ParkedDials dials(2);
    const auto begin = [&] {
        return SocketDial("127.0.0.1", peer.port(), Clock::now() + std::chrono::hours(1), nullptr);
    };
    for (const char* name : {"a:1", "b:1"}) {
        SocketDial dial = begin();
        EXPECT_TRUE(dials.park(name, dial));
        EXPECT_EQ(-1, dial.descriptor());
    }
    SocketDial third = begin();
    EXPECT_FALSE(dials.park("c:1", third));
    EXPECT_NE(-1, third.descriptor());
    EXPECT_TRUE(dials.take("a:1"));
    EXPECT_FALSE(dials.take("a:1"));
    EXPECT_FALSE(dials.park("b:1", third));
    EXPECT_NE(-1, third.descriptor());
    EXPECT_TRUE(dials.park("a:1", third));
}

TEST(ParkedDials, WhoIsNotParkedIsNotWaitedFor) {
    const ParkedDials dials(2);
    EXPECT_THAT(dials.awaitAnswers({"a:1", "b:1"}), testing::ElementsAre(0U, 1U));
    EXPECT_THAT(dials.awaitAnswers({}), testing::IsEmpty());
}
