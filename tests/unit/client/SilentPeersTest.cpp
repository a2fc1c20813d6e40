#include <thread>

#include <gtest/gtest.h>

#include "SilentPeers.h"

namespace {

constexpr char kPeer[] = "10.0.0.1:4422";

TEST(SilentPeers, AnUnknownPeerHasItsFullTime) {
    const SilentPeers peers;
    EXPECT_EQ(peers.limitFor(kPeer, 3000), 3000U);
}

TEST(SilentPeers, ASilentOneHasLittleTimeAtOnceAfterwards) {
    SilentPeers peers;
    peers.noteSilence(kPeer, 3000);
    EXPECT_EQ(peers.limitFor(kPeer, 3000), SilentPeers::kSecondLimitMs);
    EXPECT_EQ(peers.limitFor(kPeer, 200), 200U) << "never more than asked for";
    EXPECT_EQ(peers.limitFor("10.0.0.1:4423", 3000), 3000U) << "another agent";
}

TEST(SilentPeers, AShortSilenceSaysNothing) {
    SilentPeers peers;
    peers.noteSilence(kPeer, SilentPeers::kSilenceMs - 1);
    EXPECT_EQ(peers.limitFor(kPeer, 3000), 3000U);
    EXPECT_EQ(peers.size(), 0U);
}

TEST(SilentPeers, AnAnswerGivesTheFullTimeBack) {
    SilentPeers peers;
    peers.noteSilence(kPeer, 3000);
    peers.noteAnswer(kPeer);
    EXPECT_EQ(peers.limitFor(kPeer, 3000), 3000U);
    EXPECT_EQ(peers.size(), 0U);
}

TEST(SilentPeers, SoDoesTimeHoweverOftenAShortAttemptFailsMeanwhile) {
    SilentPeers peers(std::chrono::milliseconds(50));
    peers.noteSilence(kPeer, 3000);
    const auto end = SilentPeers::Clock::now() + std::chrono::milliseconds(60);
    while (SilentPeers::Clock::now() < end) {
        peers.noteSilence(kPeer, SilentPeers::kSecondLimitMs);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(peers.limitFor(kPeer, 3000), 3000U);
}

}  // namespace
