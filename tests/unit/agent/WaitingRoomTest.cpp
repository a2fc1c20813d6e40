#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "WaitingRoom.h"

namespace {

using Beginning = WaitingRoom::Beginning;
using std::chrono::milliseconds;

constexpr std::size_t kHeader = WaitingRoom::kRecordHeaderBytes;

// A record's header and as much of what it announces.
std::string record(std::size_t announced, std::size_t there) {
    return std::string("\x16\x03\x01", 3) + static_cast<char>(announced >> 8U) +
           static_cast<char>(announced & 0xffU) + std::string(there, 'x');
}

Beginning judge(const std::string& bytes) {
    return WaitingRoom::judge(reinterpret_cast<const unsigned char*>(bytes.data()),
                              std::min(bytes.size(), kHeader), bytes.size());
}

class WaitingRoomEntered : public testing::Test {
protected:
    // The guest's end of a new connection; id as the room gave it, which counts from 1.
    UniqueFd enter(const std::string& source = "a", int ageMs = 0) {
        int ends[2] = {-1, -1};
        EXPECT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
        WaitingRoom::Guest guest;
        guest.connection.reset(ends[0]);
        guest.source = source;
        guest.acceptedAt = now - milliseconds(ageMs);
        EXPECT_TRUE(room.add(std::move(guest)));
        return UniqueFd(ends[1]);
    }
    static void say(const UniqueFd& peer, const std::string& bytes) {
        ASSERT_EQ(static_cast<ssize_t>(bytes.size()),
                  ::send(peer.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL));
    }
    bool isReadable() const {
        pollfd watched{room.descriptor(), POLLIN, 0};
        return ::poll(&watched, 1, 0) > 0;
    }

    WaitingRoom room;
    WaitingRoom::Clock::time_point now = WaitingRoom::Clock::now();
};

}  // namespace

TEST(WaitingRoomJudgement, WaitsForTheHeader) {
    const std::string whole = record(300, 0);
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        EXPECT_EQ(Beginning::kUnfinished, judge(whole.substr(0, length))) << length;
    }
}

TEST(WaitingRoomJudgement, WaitsForEnoughOrForTheWholeRecord) {
    EXPECT_EQ(Beginning::kUnfinished, judge(record(300, WaitingRoom::kEnoughBytes - kHeader - 1)));
    EXPECT_EQ(Beginning::kReady, judge(record(300, WaitingRoom::kEnoughBytes - kHeader)));
    EXPECT_EQ(Beginning::kUnfinished, judge(record(120, 119)));
    EXPECT_EQ(Beginning::kReady, judge(record(120, 120)));
}

TEST(WaitingRoomJudgement, RecordsOfImpossibleLengthAreForeign) {
    EXPECT_EQ(Beginning::kForeign, judge(record(WaitingRoom::kLeastRecordBytes - 1, 0)));
    EXPECT_EQ(Beginning::kUnfinished, judge(record(WaitingRoom::kLeastRecordBytes, 0)));
    EXPECT_EQ(Beginning::kUnfinished, judge(record(WaitingRoom::kMostRecordBytes, 0)));
    EXPECT_EQ(Beginning::kForeign, judge(record(WaitingRoom::kMostRecordBytes + 1, 0)));
}

TEST(WaitingRoomJudgement, WhatIsNoHandshakeIsForeignFromItsFirstByte) {
    EXPECT_EQ(Beginning::kForeign, judge("G"));
    EXPECT_EQ(Beginning::kForeign, judge("\x15\x03"));
    EXPECT_EQ(Beginning::kForeign, judge("\x16\x02"));
    EXPECT_EQ(Beginning::kForeign, judge(std::string("\x80\x2e\x01\x03\x01", 5)));
}

TEST_F(WaitingRoomEntered, SilentGuestsDoNotMove) {
    const UniqueFd peer = enter();
    EXPECT_TRUE(room.takeMoved().empty());
    EXPECT_FALSE(isReadable());
    EXPECT_EQ(1U, room.size());
}

TEST_F(WaitingRoomEntered, EachByteShowsOnceAndStaysWhereItIs) {
    const UniqueFd peer = enter();
    const std::string hello = record(300, 300);
    for (std::size_t i = 0; i + 1 < WaitingRoom::kEnoughBytes; ++i) {
        say(peer, hello.substr(i, 1));
        ASSERT_TRUE(isReadable()) << i;
        ASSERT_TRUE(room.takeMoved().empty()) << i;
        ASSERT_FALSE(isReadable()) << i << ": would wake the listener without end";
    }
    say(peer, hello.substr(WaitingRoom::kEnoughBytes - 1));
    const auto moved = room.takeMoved();
    ASSERT_EQ(1U, moved.size());
    EXPECT_EQ(Beginning::kReady, moved[0].second);
    const WaitingRoom::Guest guest = room.take(moved[0].first);
    std::string read(hello.size() + 1, '\0');
    EXPECT_EQ(static_cast<ssize_t>(hello.size()),
              ::recv(guest.connection.get(), &read[0], read.size(), 0));
    EXPECT_EQ(hello, read.substr(0, hello.size()));
}

TEST_F(WaitingRoomEntered, WhoEndsBeforeItsGreetingIsTold) {
    const UniqueFd silent = enter();
    ASSERT_EQ(0, ::shutdown(silent.get(), SHUT_WR));
    UniqueFd begun = enter();
    say(begun, "\x16\x03");
    begun.reset();
    const auto moved = room.takeMoved();
    ASSERT_EQ(2U, moved.size());
    EXPECT_EQ(Beginning::kEnded, moved[0].second);
    EXPECT_EQ(Beginning::kEnded, moved[1].second);
}

TEST_F(WaitingRoomEntered, WhoCanOnlyListenMakesNoHandshake) {
    const UniqueFd peer = enter();
    say(peer, record(200, 200));
    ASSERT_EQ(0, ::shutdown(peer.get(), SHUT_WR));
    const auto moved = room.takeMoved();
    ASSERT_EQ(1U, moved.size());
    EXPECT_EQ(Beginning::kEnded, moved[0].second);
}

TEST_F(WaitingRoomEntered, ReadyOnesWaitUntilTheyAreTaken) {
    const UniqueFd first = enter("a");
    const UniqueFd second = enter("b");
    room.setReady(2);
    EXPECT_EQ(std::set<WaitingRoom::Id>{2}, room.ready());
    EXPECT_TRUE(room.take(2).isReady);
    EXPECT_TRUE(room.ready().empty());
    EXPECT_THROW(room.setReady(2), std::out_of_range);
}

TEST_F(WaitingRoomEntered, ThoseWhoseTimeIsOverAreTheOldest) {
    const UniqueFd first = enter("a", 3000);
    const UniqueFd second = enter("b", 2000);
    const UniqueFd third = enter("c", 1000);
    EXPECT_TRUE(room.acceptedBefore(now - milliseconds(3001)).empty());
    EXPECT_EQ((std::vector<WaitingRoom::Id>{1}), room.acceptedBefore(now - milliseconds(3000)));
    EXPECT_EQ((std::vector<WaitingRoom::Id>{1, 2}), room.acceptedBefore(now - milliseconds(1500)));
}

TEST_F(WaitingRoomEntered, WhoLeftIsWatchedNoMoreEvenWhereACopyIsOpen) {
    const UniqueFd peer = enter();
    WaitingRoom::Guest guest = room.take(1);
    const UniqueFd copy(::dup(guest.connection.get()));
    guest.connection.reset();
    say(peer, record(200, 200));
    EXPECT_FALSE(isReadable());
    EXPECT_EQ(0U, room.size());
    EXPECT_THROW(room.take(1), std::out_of_range);
}

TEST_F(WaitingRoomEntered, ClearingClosesThemAll) {
    const UniqueFd first = enter();
    const UniqueFd second = enter();
    room.clear();
    char byte = 0;
    EXPECT_EQ(0, ::recv(first.get(), &byte, 1, MSG_DONTWAIT));
    EXPECT_EQ(0, ::recv(second.get(), &byte, 1, MSG_DONTWAIT));
}
