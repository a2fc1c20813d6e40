// What a peer may say below the frames, and how much of it.

#include <chrono>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ChannelError.h"
#include "NoisyTlsNode.h"
#include "TlsChannel.h"
#include "TlsFixture.h"

namespace {

using Noise = NoisyTlsNode::Noise;

class TlsNoise : public TlsFixture {
protected:
    std::unique_ptr<TlsChannel> connect(const FakeNodeAgent& agent) {
        return TlsChannel::connect("127.0.0.1", agent.port(), TlsContext::client(filesOf(master)),
                                   FakeNodeAgent::soon());
    }
};

class EndlessTlsNoise : public TlsNoise, public testing::WithParamInterface<Noise> {};

}  // namespace

TEST_P(EndlessTlsNoise, EndsTheConnectionAndNamesThePeer) {
    const FakeNodeAgent agent(NoisyTlsNode::script(filesOf(node), GetParam(), false));
    const auto channel = connect(agent);
    const auto begun = TlsChannel::Clock::now();
    try {
        channel->receiveFrame(FakeNodeAgent::soon());
        ADD_FAILURE() << "a frame out of nothing";
    } catch (const ChannelError& error) {
        EXPECT_EQ(ChannelError::Kind::kFailed, error.kind());
        EXPECT_THAT(error.getErrMsg(),
                    testing::AllOf(testing::StartsWith(channel->peerAddress()),
                                   testing::HasSubstr("does not keep to the protocol")));
    }
    EXPECT_LT(TlsChannel::Clock::now() - begun, std::chrono::seconds(10));
    EXPECT_EQ(FrameChannel::Peer::kGone, channel->lookAtPeer());
    EXPECT_FALSE(channel->isAtRest());
}

TEST_P(EndlessTlsNoise, AConnectionAtRestIsSeenToBeOfNoUse) {
    const FakeNodeAgent agent(NoisyTlsNode::script(filesOf(node), GetParam(), false));
    const auto channel = connect(agent);
    EXPECT_TRUE(eventually([&] { return channel->lookAtPeer() == FrameChannel::Peer::kGone; }));
}

INSTANTIATE_TEST_SUITE_P(Kinds, EndlessTlsNoise,
                         testing::Values(Noise::kTickets, Noise::kKeyUpdates,
                                         Noise::kRequestedKeyUpdates));

TEST_F(TlsNoise, AFewNewKeysAreNoOffence) {
    const FakeNodeAgent agent(NoisyTlsNode::script(filesOf(node), Noise::kRequestedKeyUpdates,
                                                   false, TlsChannel::kMostKeyUpdates));
    EXPECT_EQ("done", connect(agent)->receiveFrame(FakeNodeAgent::soon()).body);
}
