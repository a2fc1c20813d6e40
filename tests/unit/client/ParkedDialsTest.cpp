#include <chrono>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BlackHoles.h"
#include "ParkedDials.h"
#include "TlsChannel.h"
#include "TlsSocket.h"

namespace {

using std::chrono::milliseconds;
using Clock = ParkedDials::Clock;

UniqueFd someSocket() {
    return UniqueFd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

// The kind of error with which connecting ends.
ChannelError::Kind kindOf(const BlackHoles::Address& hole, unsigned long timeOutMs) {
    try {
        tlssocket::connect(hole.ip, hole.port, TlsChannel::after(timeOutMs));
    } catch (const ChannelError& error) {
        return error.kind();
    }
    ADD_FAILURE() << "connected to a black hole";
    return ChannelError::Kind::kFailed;
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
    ParkedDials dials(2);
    const Clock::time_point later = Clock::now() + std::chrono::hours(1);
    for (const char* peer : {"a:1", "b:1"}) {
        ParkedDials::Dial dial{someSocket(), later};
        EXPECT_TRUE(dials.park(peer, dial));
        EXPECT_FALSE(dial.socket);
    }
    ParkedDials::Dial third{someSocket(), later};
    EXPECT_FALSE(dials.park("c:1", third));
    EXPECT_TRUE(third.socket);
    EXPECT_TRUE(dials.take("a:1").socket);
    EXPECT_FALSE(dials.take("a:1").socket);
    EXPECT_FALSE(dials.park("b:1", third));
    EXPECT_TRUE(third.socket);
    EXPECT_TRUE(dials.park("a:1", third));
}

TEST(ParkedDials, WhoIsNotParkedIsNotWaitedFor) {
    const ParkedDials dials(2);
    EXPECT_THAT(dials.awaitAnswers({"a:1", "b:1"}), testing::ElementsAre(0U, 1U));
    EXPECT_THAT(dials.awaitAnswers({}), testing::IsEmpty());
}

TEST(DialPatience, LastsAsLongAsTheObject) {
    EXPECT_FALSE(DialPatience::ofThisThread());
    {
        const DialPatience outer{milliseconds(7)};
        {
            const DialPatience inner{milliseconds(3)};
            EXPECT_EQ(milliseconds(3), DialPatience::ofThisThread());
        }
        EXPECT_EQ(milliseconds(7), DialPatience::ofThisThread());
    }
    EXPECT_FALSE(DialPatience::ofThisThread());
}

TEST(DialPatience, WithoutItASilentPeerIsWaitedFor) {
    const BlackHoles holes(1);
    EXPECT_EQ(ChannelError::Kind::kNoAnswer, kindOf(holes.addresses().front(), 100));
}

TEST(DialPatience, ASilentPeerIsParkedAndItsTimeGoesOn) {
    const BlackHoles holes(1);
    const BlackHoles::Address hole = holes.addresses().front();
    const Clock::time_point begun = Clock::now();
    const DialPatience patience{milliseconds(10)};
    EXPECT_EQ(ChannelError::Kind::kPending, kindOf(hole, 400));
    EXPECT_LT(Clock::now() - begun, milliseconds(400));
    EXPECT_EQ(ChannelError::Kind::kPending, kindOf(hole, 60000));
    const std::vector<std::string> peers = {tlssocket::join(hole.ip, hole.port)};
    EXPECT_THAT(ParkedDials::instance().awaitAnswers(peers), testing::ElementsAre(0U));
    EXPECT_GE(Clock::now() - begun, milliseconds(400));
    // The time of the first attempt counts.
    EXPECT_EQ(ChannelError::Kind::kNoAnswer, kindOf(hole, 60000));
    EXPECT_LT(Clock::now() - begun, std::chrono::seconds(20));
    EXPECT_FALSE(ParkedDials::instance().take(peers.front()).socket);
}

TEST(DialPatience, APeerThatAnswersIsConnectedAsEver) {
    const Listening peer;
    const DialPatience patience{milliseconds(0)};
    // No patience at all: it may have to be taken up, and is then connected.
    UniqueFd connected;
    for (int i = 0; i < 100 && !connected; ++i) {
        try {
            connected = tlssocket::connect("127.0.0.1", peer.port(), TlsChannel::after(20000));
        } catch (const ChannelError& error) {
            ASSERT_EQ(ChannelError::Kind::kPending, error.kind()) << error.getErrMsg();
            ParkedDials::instance().awaitAnswers({tlssocket::join("127.0.0.1", peer.port())});
        }
    }
    EXPECT_TRUE(connected);
}

TEST(DialPatience, ARefusedPortIsReportedAtOnce) {
    int port = 0;
    {
        const Listening closing;
        port = closing.port();
    }
    const DialPatience patience{milliseconds(1000)};
    EXPECT_EQ(ChannelError::Kind::kUnreachable, kindOf({"127.0.0.1", port}, 20000));
}
