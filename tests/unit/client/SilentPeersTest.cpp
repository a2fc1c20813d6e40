#include <thread>

#include <gtest/gtest.h>

#include "SilentPeers.h"

namespace {

constexpr char kPeer[] = "10.0.0.1:4422";

TEST(SilentPeers, AnUnknownPeerHasItsFullTime) {
    const SilentPeers peers;
    EXPECT_EQ(3000U, peers.limitFor(kPeer, 3000));
}

TEST(SilentPeers, ASilentOneHasLittleTimeAtOnceAfterwards) {
    SilentPeers peers;
    peers.noteSilence(kPeer, 3000);
    EXPECT_EQ(SilentPeers::kSecondLimitMs, peers.limitFor(kPeer, 3000));
    EXPECT_EQ(200U, peers.limitFor(kPeer, 200)) << "never more than asked for";
    EXPECT_EQ(3000U, peers.limitFor("10.0.0.1:4423", 3000)) << "another agent";
}

TEST(SilentPeers, AShortSilenceSaysNothing) {
    SilentPeers peers;
    peers.noteSilence(kPeer, SilentPeers::kSilenceMs - 1);
    EXPECT_EQ(3000U, peers.limitFor(kPeer, 3000));
    EXPECT_EQ(0U, peers.size());
}

TEST(SilentPeers, AnAnswerGivesTheFullTimeBack) {
    SilentPeers peers;
    peers.noteSilence(kPeer, 3000);
    peers.noteAnswer(kPeer);
    EXPECT_EQ(3000U, peers.limitFor(kPeer, 3000));
    EXPECT_EQ(0U, peers.size());
}

TEST(SilentPeers, SoDoesTimeHoweverOftenAShortAttemptFailsMeanwhile) {
    SilentPeers peers(std::chrono::milliseconds(50));
    peers.noteSilence(kPeer, 3000);
    const auto end = SilentPeers::Clock::now() + std::chrono::milliseconds(60);
    while (SilentPeers::Clock::now() < end) {
        peers.noteSilence(kPeer, SilentPeers::kSecondLimitMs);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(3000U, peers.limitFor(kPeer, 3000));
}

}  // namespace
