#include <chrono>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BlackHoles.h"
#include "Cancellation.h"
#include "ChannelError.h"
#include "Dialer.h"
#include "TlsFixture.h"
#include "TlsSocket.h"

namespace {

using std::chrono::milliseconds;
using Clock = Dialer::Clock;
using Kind = ChannelError::Kind;

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

// What becomes of an attempt: a socket, none so far, or the kind of the failure.
struct Outcome {
    UniqueFd socket;
    std::optional<Kind> failure;

    bool isPending() const { return !socket && !failure; }
};

Outcome dial(Dialer& dialer, const std::string& ip, int port, milliseconds limit,
             std::optional<milliseconds> patience, const Cancellation* stop = nullptr) {
    Outcome outcome;
    try {
        outcome.socket = dialer.dial(ip, port, Clock::now() + limit, patience, stop);
    } catch (const ChannelError& error) {
        outcome.failure = error.kind();
    }
    return outcome;
}

}  // namespace

TEST(Dialer, WithoutPatienceASilentPeerIsWaitedFor) {
    const BlackHoles holes(1);
    const BlackHoles::Address hole = holes.addresses().front();
    Dialer dialer;
    EXPECT_EQ(Kind::kNoAnswer,
              dial(dialer, hole.ip, hole.port, milliseconds(100), std::nullopt).failure);
}

TEST(Dialer, ASilentPeerIsLeftAndItsTimeGoesOn) {
    const BlackHoles holes(1);
    const BlackHoles::Address hole = holes.addresses().front();
    Dialer dialer;
    const Clock::time_point begun = Clock::now();
    const milliseconds patience(10);
    EXPECT_TRUE(dial(dialer, hole.ip, hole.port, milliseconds(400), patience).isPending());
    EXPECT_LT(Clock::now() - begun, milliseconds(400));
    EXPECT_TRUE(dial(dialer, hole.ip, hole.port, milliseconds(60000), patience).isPending());
    const std::vector<std::string> peers = {tlssocket::join(hole.ip, hole.port)};
    EXPECT_THAT(dialer.awaitAnswers(peers), testing::ElementsAre(0U));
    EXPECT_GE(Clock::now() - begun, milliseconds(400));
    // The time of the first attempt counts.
    EXPECT_EQ(Kind::kNoAnswer,
              dial(dialer, hole.ip, hole.port, milliseconds(60000), patience).failure);
    EXPECT_LT(Clock::now() - begun, std::chrono::seconds(20));
}

TEST(Dialer, APeerThatAnswersIsConnectedHoweverLittlePatienceThereIs) {
    const Listening peer;
    Dialer dialer;
    Outcome outcome;
    for (int i = 0; i < 100 && !outcome.socket && !outcome.failure; ++i) {
        outcome = dial(dialer, "127.0.0.1", peer.port(), milliseconds(20000), milliseconds(0));
        dialer.awaitAnswers({tlssocket::join("127.0.0.1", peer.port())});
    }
    EXPECT_TRUE(outcome.socket);
}

TEST(Dialer, ARefusedPortIsReportedAtOnce) {
    int port = 0;
    {
        const Listening closing;
        port = closing.port();
    }
    Dialer dialer;
    EXPECT_EQ(Kind::kUnreachable,
              dial(dialer, "127.0.0.1", port, milliseconds(20000), milliseconds(1000)).failure);
}

TEST(Dialer, WhoGivesUpNeedNotWait) {
    const BlackHoles holes(1);
    const BlackHoles::Address hole = holes.addresses().front();
    Dialer dialer;
    Cancellation stop;
    const Clock::time_point begun = Clock::now();
    std::thread other([&] { stop.cancel(); });
    EXPECT_EQ(Kind::kCancelled,
              dial(dialer, hole.ip, hole.port, milliseconds(20000), std::nullopt, &stop).failure);
    other.join();
    EXPECT_LT(Clock::now() - begun, std::chrono::seconds(10));
}

namespace {

class DialerOverTls : public TlsFixture {
protected:
    bool connects(Dialer& dialer, const FakeNodeAgent& agent) {
        SSLClient client(dialer, "127.0.0.1", agent.port(), master.certificateFile);
        client.initAndConnect();
        return client.getKelNodeMacAddress("") == fake.macAddress;
    }

    FakeNode fake;
};

}  // namespace

TEST_F(DialerOverTls, ConnectionsOfOneShellAreNotThoseOfAnother) {
    const FakeNodeAgent agent(filesOf(node), fake.script());
    Dialer first;
    Dialer second;
    EXPECT_TRUE(connects(first, agent));
    EXPECT_TRUE(connects(first, agent));
    EXPECT_EQ(1, agent.accepted());
    EXPECT_TRUE(connects(second, agent));
    EXPECT_EQ(2, agent.accepted());
    EXPECT_EQ(1U, first.pool().size());
    EXPECT_EQ(1U, second.pool().size());
}

TEST_F(DialerOverTls, OneContextServesUntilAFileIsReplaced) {
    Dialer dialer;
    const auto first = dialer.contextFor(master.certificateFile);
    EXPECT_EQ(first, dialer.contextFor(master.certificateFile));
    const std::string aside = directory.file("aside.pem");
    std::filesystem::copy_file(master.certificateFile, aside);
    std::filesystem::rename(aside, master.certificateFile);
    const auto second = dialer.contextFor(master.certificateFile);
    EXPECT_NE(first, second);
    EXPECT_EQ(second, dialer.contextFor(master.certificateFile));
}

TEST_F(DialerOverTls, OneContextServesManyThreads) {
    Dialer dialer;
    std::vector<std::thread> threads;
    std::vector<std::shared_ptr<TlsContext>> contexts(32);
    for (auto& context : contexts) {
        threads.emplace_back([&] { context = dialer.contextFor(master.certificateFile); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const auto& context : contexts) {
        EXPECT_EQ(context, contexts.front());
    }
}
