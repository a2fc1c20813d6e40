#include <gtest/gtest.h>

#include "LocalAgent.h"
#include "SocketDial.h"
#include "TlsSocket.h"

namespace {

using protocol::FrameType;

std::string frameOf(FrameType type, const std::string& body = "", std::uint8_t flags = 0) {
    return protocol::encodeHeader({static_cast<std::uint32_t>(body.size()), type, flags}) + body;
}

std::string rawHeader(std::uint32_t length, unsigned int type, unsigned int flags,
                      unsigned int reserved) {
    std::string bytes;
    for (const unsigned int shift : {24U, 16U, 8U, 0U}) {
        bytes += static_cast<char>((length >> shift) & 0xffU);
    }
    bytes += static_cast<char>(type);
    bytes += static_cast<char>(flags);
    bytes += static_cast<char>(reserved >> 8U);
    bytes += static_cast<char>(reserved & 0xffU);
    return bytes;
}

class AgentProtocol : public testing::Test {
protected:
    // Sends the bytes and expects to be told off and disconnected.
    void expectRefused(TlsChannel& channel, const std::string& bytes) {
        channel.sendFrame(bytes, LocalAgent::soon());
        expectProtocolError(channel);
    }

    void expectProtocolError(TlsChannel& channel) {
        protocol::Frame frame;
        do {
            frame = channel.receiveFrame(LocalAgent::soon());
        } while (frame.header.type == FrameType::kOutput ||
                 frame.header.type == FrameType::kAnswer);
        ASSERT_EQ(FrameType::kError, frame.header.type);
        protocol::Error error;
        protocol::decode(frame.body, error);
        EXPECT_EQ(protocol::kErrorProtocol, error.code) << error.text;
        EXPECT_FALSE(error.text.empty());
        EXPECT_THROW(channel.receiveFrame(LocalAgent::soon()), ChannelError);
    }

    LocalAgent agent;
};

const FrameType kNoRequests[] = {FrameType::kAgentHello, FrameType::kShellHello, FrameType::kOutput,
                                 FrameType::kResult,     FrameType::kData,       FrameType::kEnd,
                                 FrameType::kFileInfo,   FrameType::kAnswer,     FrameType::kError};
const FrameType kRequests[] = {FrameType::kExec, FrameType::kRunPackaged, FrameType::kPut,
                               FrameType::kGet,  FrameType::kExists,      FrameType::kMac};

}  // namespace

TEST_F(AgentProtocol, OnlyTheGreetingMayComeFirst) {
    for (const FrameType type : kRequests) {
        SCOPED_TRACE(protocol::name(type));
        expectRefused(*agent.openChannel(false), frameOf(type));
    }
    for (const FrameType type : kNoRequests) {
        if (type != FrameType::kShellHello) {
            SCOPED_TRACE(protocol::name(type));
            expectRefused(*agent.openChannel(false), frameOf(type));
        }
    }
}

TEST_F(AgentProtocol, OnlyRequestsAndGreetingsMayFollowTheGreeting) {
    for (const FrameType type : kNoRequests) {
        if (type != FrameType::kShellHello) {
            SCOPED_TRACE(protocol::name(type));
            expectRefused(*agent.openChannel(), frameOf(type));
        }
    }
}

TEST_F(AgentProtocol, ALaterGreetingMustBeWholeAndOfAVersionTheAgentSpeaks) {
    protocol::ShellHello hello;
    auto channel = agent.openChannel();
    channel->sendFrame(protocol::encode(hello) + protocol::encodeMacRequest(), LocalAgent::soon());
    EXPECT_EQ(FrameType::kAnswer, channel->receiveFrame(LocalAgent::soon()).header.type);
    hello.version = 2;
    expectRefused(*channel, protocol::encode(hello));
    expectRefused(*agent.openChannel(), frameOf(FrameType::kShellHello, "\x01\x02\x03"));
}

TEST_F(AgentProtocol, RequestsWithBrokenBodiesAreRefused) {
    for (const FrameType type : kRequests) {
        SCOPED_TRACE(protocol::name(type));
        expectRefused(*agent.openChannel(), frameOf(type, "\x01\x02\x03"));
    }
}

TEST_F(AgentProtocol, NothingMayBeSaidWhileAJobRuns) {
    auto channel = agent.openChannel();
    protocol::Exec exec;
    exec.commandLine = "sleep 60";
    channel->sendFrame(protocol::encode(exec, 0), LocalAgent::soon());
    expectRefused(*channel, protocol::encodeMacRequest());
    EXPECT_TRUE(agent.waitForLog("cancelled"));
    channel = agent.openChannel();
    channel->sendFrame(protocol::encode(exec, 0), LocalAgent::soon());
    expectRefused(*channel, protocol::encode(protocol::ShellHello()));
}

TEST_F(AgentProtocol, OnlyDataMayFollowAnUpload) {
    auto channel = agent.openChannel();
    protocol::Put put;
    put.path = agent.nodePath() + "target";
    put.size = 5;
    channel->sendFrame(protocol::encode(put), LocalAgent::soon());
    expectRefused(*channel, protocol::encodeMacRequest());
    EXPECT_FALSE(std::filesystem::exists(put.path));
}

TEST_F(AgentProtocol, BrokenHeadersAreRefused) {
    expectRefused(*agent.openChannel(), rawHeader(0xffffffffU, 0x10, 0, 0));
    expectRefused(*agent.openChannel(), rawHeader(protocol::kMaxBodyBytes + 1, 0x10, 0, 0));
    expectRefused(*agent.openChannel(), rawHeader(0, 0x77, 0, 0));
    expectRefused(*agent.openChannel(), rawHeader(0, 0x15, 0x80, 0));
    expectRefused(*agent.openChannel(), rawHeader(0, 0x15, 0, 1));
}

TEST_F(AgentProtocol, VersionThatTheAgentDoesNotSpeakIsNamed) {
    auto channel = agent.openChannel(false);
    protocol::ShellHello hello;
    hello.version = 99;
    channel->sendFrame(protocol::encode(hello), LocalAgent::soon());
    const protocol::Frame frame = channel->receiveFrame(LocalAgent::soon());
    ASSERT_EQ(FrameType::kError, frame.header.type);
    protocol::Error error;
    protocol::decode(frame.body, error);
    EXPECT_NE(error.text.find("99"), std::string::npos) << error.text;
}

TEST_F(AgentProtocol, ShellThatDoesNotGreetIsDisconnected) {
    auto channel = agent.openChannel(false);
    EXPECT_THROW(channel->receiveFrame(LocalAgent::soon()), ChannelError);
}

TEST_F(AgentProtocol, GarbageInsteadOfTlsEndsOnlyThatConnection) {
    {
        const UniqueFd raw = SocketDial::connect(agent.ip(), agent.port(), LocalAgent::soon());
        const std::string garbage(1000, 'x');
        ASSERT_EQ(1000, ::write(raw.get(), garbage.data(), garbage.size()));
        ASSERT_TRUE(agent.waitForLog("127.0.0.1"));
    }
    CResult result;
    agent.connect()->execute("echo fine", 20000, &result);
    EXPECT_EQ("fine\n", result.getRunSummary());
}

TEST_F(AgentProtocol, QuestionsAreAnswered) {
    const auto client = agent.connect();
    EXPECT_TRUE(client->isFileExistedAtSlaveNode("/etc/passwd"));
    EXPECT_TRUE(client->isFileExistedAtSlaveNode("/etc"));
    EXPECT_FALSE(client->isFileExistedAtSlaveNode("/no/such/file"));
    EXPECT_FALSE(client->isFileExistedAtSlaveNode(std::string(5000, 'x')));
    EXPECT_EQ("", client->getKelNodeMacAddress(agent.ip()));
}

TEST(AgentMac, ConfiguredAddressWins) {
    LocalAgent::Options options;
    options.settings["MAC_ADDRESS"] = "02:ab:cd:ef:00:01";
    LocalAgent agent(options);
    EXPECT_EQ("02:AB:CD:EF:00:01", agent.connect()->getKelNodeMacAddress(agent.ip()));
}
