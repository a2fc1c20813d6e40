#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include "SocketDial.h"
#include "TlsChannel.h"
#include "TlsFixture.h"
#include "TlsSocket.h"

namespace {

using protocol::FrameType;

class TlsChannelTest : public TlsFixture {
protected:
    std::shared_ptr<TlsContext> clientContext() { return TlsContext::client(filesOf(master)); }

    std::unique_ptr<TlsChannel> connect(const FakeNodeAgent& agent) {
        return TlsChannel::connect("127.0.0.1", agent.port(), clientContext(),
                                   FakeNodeAgent::soon());
    }

    static std::string dataFrame(const std::string& body) {
        return FakeNodeAgent::frame(FrameType::kData, body);
    }

    // Sends every frame back until the other end leaves.
    static void echo(TlsChannel& channel) {
        protocol::Frame frame;
        for (;;) {
            channel.receiveFrame(frame, FakeNodeAgent::soon());
            FakeNodeAgent::send(channel, protocol::encodeHeader(frame.header) + frame.body);
        }
    }
};

// A handshake by the library alone, over a connected socket; returns what SSL_connect did at last.
int bareHandshake(SSL* ssl, int socket) {
    BIO* const bio = tlssocket::newBio(socket);
    SSL_set_bio(ssl, bio, bio);
    int done = SSL_connect(ssl);
    while (done <= 0 && SSL_get_error(ssl, done) == SSL_ERROR_WANT_READ &&
           tlssocket::wait(socket, POLLIN, FakeNodeAgent::soon()) != 0) {
        done = SSL_connect(ssl);
    }
    return done;
}

std::string roundTrip(TlsChannel& channel, const std::string& body) {
    channel.sendFrame(FakeNodeAgent::frame(FrameType::kData, body), FakeNodeAgent::soon());
    return channel.receiveFrame(FakeNodeAgent::soon()).body;
}

}  // namespace

TEST_F(TlsChannelTest, CarriesFramesOfEverySize) {
    FakeNodeAgent agent(filesOf(node), &echo);
    const auto channel = connect(agent);
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{16384},
                                   std::size_t{16385}, std::size_t{protocol::kMaxBodyBytes}}) {
        const std::string body(size, 'b');
        EXPECT_EQ(body, roundTrip(*channel, body));
    }
}

TEST_F(TlsChannelTest, KnowsItsPeer) {
    std::mutex mutex;
    std::string name;
    FakeNodeAgent agent(filesOf(node), [&](TlsChannel& channel) {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            name = channel.peerCommonName();
        }
        echo(channel);
    });
    const auto channel = connect(agent);
    EXPECT_EQ("x", roundTrip(*channel, "x"));
    EXPECT_EQ("node", channel->peerCommonName());
    EXPECT_EQ("127.0.0.1:" + std::to_string(agent.port()), channel->peerAddress());
    const std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ("master", name);
}

TEST_F(TlsChannelTest, SpeaksNothingButItsOwnApplication) {
    FakeNodeAgent agent(filesOf(node), &echo);
    for (const char* offer : {"\x08http/1.1", ""}) {
        const UniqueFd socket =
            SocketDial::connect("127.0.0.1", agent.port(), FakeNodeAgent::soon());
        const std::unique_ptr<SSL, void (*)(SSL*)> ssl(SSL_new(clientContext()->get()), &SSL_free);
        // An empty list of the connection's own would not undo the context's.
        const std::string list = *offer != '\0' ? offer : "\x01x";
        ASSERT_EQ(
            0, SSL_set_alpn_protos(ssl.get(), reinterpret_cast<const unsigned char*>(list.data()),
                                   static_cast<unsigned>(list.size())));
        const int done = bareHandshake(ssl.get(), socket.get());
        EXPECT_LE(done, 0);
        EXPECT_EQ(SSL_ERROR_SSL, SSL_get_error(ssl.get(), done));
    }
}

TEST_F(TlsChannelTest, OlderTlsIsRefused) {
    FakeNodeAgent agent(filesOf(node), &echo);
    const UniqueFd socket = SocketDial::connect("127.0.0.1", agent.port(), FakeNodeAgent::soon());
    const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> context(SSL_CTX_new(TLS_client_method()),
                                                               &SSL_CTX_free);
    ASSERT_EQ(1, SSL_CTX_set_max_proto_version(context.get(), TLS1_2_VERSION));
    const std::unique_ptr<SSL, void (*)(SSL*)> ssl(SSL_new(context.get()), &SSL_free);
    const int done = bareHandshake(ssl.get(), socket.get());
    EXPECT_LE(done, 0);
    EXPECT_EQ(SSL_ERROR_SSL, SSL_get_error(ssl.get(), done));
    EXPECT_TRUE(eventually([&] { return !agent.failures().empty(); }));
}

TEST_F(TlsChannelTest, ATimeOutKeepsWhatHasArrivedOfAFrame) {
    std::atomic<bool> goOn{false};
    FakeNodeAgent agent(filesOf(node), [&](TlsChannel& channel) {
        const std::string frame = dataFrame(std::string(1000, 'p'));
        FakeNodeAgent::send(channel, frame.substr(0, 3));
        EXPECT_TRUE(eventually([&] { return goOn.load(); }));
        FakeNodeAgent::send(channel, frame.substr(3));
        FakeNodeAgent::waitForClose(channel);
    });
    const auto channel = connect(agent);
    try {
        (void)channel->receiveFrame(TlsChannel::after(50));
        FAIL();
    } catch (const ChannelError& error) {
        EXPECT_EQ(ChannelError::Kind::kTimedOut, error.kind());
    }
    goOn = true;
    EXPECT_EQ(std::string(1000, 'p'), channel->receiveFrame(FakeNodeAgent::soon()).body);
}

TEST_F(TlsChannelTest, APeerThatSpeaksIsSeenUntilItIsHeard) {
    FakeNodeAgent agent(filesOf(node), &echo);
    const auto channel = connect(agent);
    EXPECT_EQ(TlsChannel::Peer::kSilent, channel->lookAtPeer());
    channel->sendFrame(dataFrame("hello"), FakeNodeAgent::soon());
    EXPECT_TRUE(eventually([&] { return channel->lookAtPeer() == TlsChannel::Peer::kSpeaking; }));
    EXPECT_EQ("hello", channel->receiveFrame(FakeNodeAgent::soon()).body);
    EXPECT_EQ(TlsChannel::Peer::kSilent, channel->lookAtPeer());
}

TEST_F(TlsChannelTest, APeerThatLeftIsSeen) {
    FakeNodeAgent agent(filesOf(node), [](TlsChannel&) {});
    const auto channel = connect(agent);
    EXPECT_TRUE(eventually([&] { return channel->lookAtPeer() == TlsChannel::Peer::kGone; }));
    try {
        (void)channel->receiveFrame(FakeNodeAgent::soon());
        FAIL();
    } catch (const ChannelError& error) {
        EXPECT_EQ(ChannelError::Kind::kClosed, error.kind());
        EXPECT_THAT(error.getErrMsg(), testing::HasSubstr("connection lost"));
    }
}

TEST_F(TlsChannelTest, QueuedFramesGoOutAsTheSocketTakesThem) {
    std::atomic<bool> read{false};
    FakeNodeAgent agent(filesOf(node), [&](TlsChannel& channel) {
        EXPECT_TRUE(eventually([&] { return read.load(); }));
        protocol::Frame frame;
        for (int i = 0; i < 100; ++i) {
            channel.receiveFrame(frame, FakeNodeAgent::soon());
            EXPECT_EQ(std::string(protocol::kMaxBodyBytes, static_cast<char>('A' + i % 26)),
                      frame.body);
        }
        FakeNodeAgent::send(channel, dataFrame("all"));
        FakeNodeAgent::waitForClose(channel);
    });
    const auto channel = connect(agent);
    int queued = 0;
    while (!channel->hasQueued()) {
        channel->queueFrame(
            dataFrame(std::string(protocol::kMaxBodyBytes, static_cast<char>('A' + queued % 26))));
        ++queued;
        (void)channel->flush();
        ASSERT_LT(queued, 100);
    }
    EXPECT_FALSE(channel->flush());
    read = true;
    for (; queued < 100; ++queued) {
        channel->sendFrame(
            dataFrame(std::string(protocol::kMaxBodyBytes, static_cast<char>('A' + queued % 26))),
            FakeNodeAgent::soon());
    }
    EXPECT_EQ("all", channel->receiveFrame(FakeNodeAgent::soon()).body);
    EXPECT_FALSE(channel->hasQueued());
}

TEST_F(TlsChannelTest, WhatDoesNotGoAtOnceIsQueuedBehindWhatWasBefore) {
    std::atomic<bool> read{false};
    std::atomic<int> frames{0};
    FakeNodeAgent agent(filesOf(node), [&](TlsChannel& channel) {
        EXPECT_TRUE(eventually([&] { return read.load(); }));
        protocol::Frame frame;
        for (int i = 0; i < frames; ++i) {
            channel.receiveFrame(frame, FakeNodeAgent::soon());
            EXPECT_EQ(std::string(protocol::kMaxBodyBytes, static_cast<char>('A' + i % 26)),
                      frame.body);
        }
        FakeNodeAgent::send(channel, dataFrame("all"));
        FakeNodeAgent::waitForClose(channel);
    });
    const auto channel = connect(agent);
    const auto next = [&] {
        return dataFrame(
            std::string(protocol::kMaxBodyBytes, static_cast<char>('A' + frames++ % 26)));
    };
    std::string memory = next();
    EXPECT_TRUE(channel->sendOrQueue(memory));
    EXPECT_FALSE(channel->hasQueued());
    do {
        ASSERT_GT(100, frames);
        memory = next();
    } while (channel->sendOrQueue(memory));
    EXPECT_TRUE(channel->hasQueued());
    EXPECT_FALSE(channel->sendOrQueue(next()));
    // The queue has its own copy.
    memory.assign(memory.size(), '?');
    read = true;
    channel->sendFrame(next(), FakeNodeAgent::soon());
    EXPECT_EQ("all", channel->receiveFrame(FakeNodeAgent::soon()).body);
    EXPECT_FALSE(channel->hasQueued());
}

TEST_F(TlsChannelTest, SendingToAPeerThatDoesNotReadTimesOut) {
    std::atomic<bool> done{false};
    FakeNodeAgent agent(filesOf(node),
                        [&](TlsChannel&) { EXPECT_TRUE(eventually([&] { return done.load(); })); });
    const auto channel = connect(agent);
    const std::string frame = dataFrame(std::string(protocol::kMaxBodyBytes, 'x'));
    try {
        for (;;) {
            channel->sendFrame(frame, TlsChannel::after(100));
        }
    } catch (const ChannelError& error) {
        EXPECT_EQ(ChannelError::Kind::kTimedOut, error.kind());
    }
    done = true;
}

TEST_F(TlsChannelTest, AnAnswerStopsAnUpload) {
    FakeNodeAgent agent(filesOf(node), [](TlsChannel& channel) {
        (void)channel.receiveFrame(FakeNodeAgent::soon());
        FakeNodeAgent::error(channel, protocol::kErrorFile, "disk full");
        channel.close(FakeNodeAgent::soon());
    });
    const auto channel = connect(agent);
    const std::string frame = dataFrame(std::string(protocol::kMaxBodyBytes, 'x'));
    int sent = 0;
    while (channel->sendFrameUnlessAnswered(frame, FakeNodeAgent::soon())) {
        ASSERT_LT(++sent, 100000);
    }
    const protocol::Frame answer = channel->receiveFrame(FakeNodeAgent::soon());
    EXPECT_EQ(FrameType::kError, answer.header.type);
    EXPECT_THAT(answer.body, testing::HasSubstr("disk full"));
}

TEST_F(TlsChannelTest, WritingToAClosedPeerRaisesNoSignal) {
    // In a child, because the signal would end the process.
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        signal(SIGPIPE, SIG_DFL);
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
            _exit(2);
        }
        ::close(ends[1]);
        BIO* bio = tlssocket::newBio(ends[0]);
        _exit(BIO_write(bio, "x", 1) < 0 && errno == EPIPE ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(0, WEXITSTATUS(status));
}

TEST_F(TlsChannelTest, AnOversizedFrameIsRefusedBeforeItsBody) {
    FakeNodeAgent agent(filesOf(node), [](TlsChannel& channel) {
        FakeNodeAgent::send(channel, std::string("\x00\x04\x00\x01\x22\x00\x00\x00", 8));
        FakeNodeAgent::waitForClose(channel);
    });
    const auto channel = connect(agent);
    EXPECT_THROW(channel->receiveFrame(FakeNodeAgent::soon()), protocol::ProtocolError);
}

TEST_F(TlsChannelTest, AnExpiredDeadlineFailsAtOnce) {
    FakeNodeAgent agent(filesOf(node), &echo);
    const auto channel = connect(agent);
    channel->sendFrame(dataFrame("x"), FakeNodeAgent::soon());
    EXPECT_TRUE(eventually([&] { return channel->lookAtPeer() == TlsChannel::Peer::kSpeaking; }));
    EXPECT_THROW(channel->receiveFrame(TlsChannel::Clock::now()), ChannelError);
    EXPECT_THROW(
        TlsChannel::connect("127.0.0.1", agent.port(), clientContext(), TlsChannel::Clock::now()),
        ChannelError);
}

TEST_F(TlsChannelTest, AnUnknownNameIsUnreachable) {
    try {
        (void)TlsChannel::connect("no such host", 4422, clientContext(), TlsChannel::after(20000));
        FAIL();
    } catch (const ChannelError& error) {
        EXPECT_THAT(error.getErrMsg(), testing::HasSubstr("\"no such host\""));
    }
}

TEST(TlsSocket, JoinsAddressAndPort) {
    EXPECT_EQ("10.0.0.1:4422", tlssocket::join("10.0.0.1", 4422));
    EXPECT_EQ("node:1", tlssocket::join("node", 1));
    EXPECT_EQ("[::1]:4422", tlssocket::join("::1", 4422));
}
