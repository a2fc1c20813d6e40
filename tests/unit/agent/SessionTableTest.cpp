#include <gtest/gtest.h>

#include "SessionTable.h"

namespace {

using Kind = SessionTable::Admission::Kind;
using std::chrono::milliseconds;

class SessionTableFilled : public testing::Test {
protected:
    SessionTable::Entry& add(pid_t pid, const std::string& source, int ageMs = 1000) {
        return table.add(pid, source, UniqueFd(), now - milliseconds(ageMs));
    }
    SessionTable::Admission admit(const std::string& source) {
        return table.admit(
            source, bounds, now,
            [this](std::size_t count) {
                choices = count;
                return count - 1;
            },
            guests);
    }
    void addGuest(WaitingRoom::Id id, const std::string& source, int ageMs = 1000) {
        guests[id].source = source;
        guests[id].acceptedAt = now - milliseconds(ageMs);
    }

    SessionTable table;
    WaitingRoom::Guests guests;
    SessionTable::Bounds bounds{4, 3, 2, 1};
    SessionTable::Clock::time_point now = SessionTable::Clock::now();
    std::size_t choices = 0;
};

}  // namespace

TEST_F(SessionTableFilled, RoomIsGiven) {
    const SessionTable::Admission admission = admit("a");
    EXPECT_EQ(Kind::kServe, admission.kind);
    EXPECT_EQ(0, admission.victim);
}

TEST_F(SessionTableFilled, SourceWithTooManyWaitingLosesOneOfItsOwn) {
    bounds.unauthenticated = 10;
    add(1, "b");
    add(2, "a");
    add(3, "a");
    EXPECT_EQ(0, admit("b").victim);
    EXPECT_EQ(3, admit("a").victim);
    EXPECT_EQ(2U, choices);
}

TEST_F(SessionTableFilled, TooManyWaitingInAllLoseAnyOne) {
    add(1, "a");
    add(2, "b");
    add(3, "c");
    EXPECT_EQ(3, admit("d").victim);
    EXPECT_EQ(3U, choices);
}

TEST_F(SessionTableFilled, FreshOnesAreSparedWhileThereAreOlder) {
    add(1, "a", 1000);
    add(2, "a", 10);
    EXPECT_EQ(1, admit("a").victim);
    EXPECT_EQ(1U, choices);
}

TEST_F(SessionTableFilled, AuthenticatedAreNeverDropped) {
    for (pid_t pid = 1; pid <= 4; ++pid) {
        add(pid, "a").authenticated = true;
    }
    EXPECT_EQ(Kind::kTurnAway, admit("a").kind);
    EXPECT_EQ(0, admit("a").victim);
    add(5, "a").authenticated = true;
    EXPECT_EQ(Kind::kClose, admit("a").kind);
}

TEST_F(SessionTableFilled, WaitingOneGivesWayWhenAllPlacesAreTaken) {
    for (pid_t pid = 1; pid <= 3; ++pid) {
        add(pid, "a").authenticated = true;
    }
    add(4, "b");
    EXPECT_EQ(Kind::kServe, admit("c").kind);
    EXPECT_EQ(4, admit("c").victim);
}

TEST_F(SessionTableFilled, DroppedOnesDoNotCountButAreNotWithoutEnd) {
    for (pid_t pid = 1; pid <= 9; ++pid) {
        add(pid, "a").dropped = true;
    }
    EXPECT_EQ(Kind::kServe, admit("a").kind);
    add(10, "a").dropped = true;
    EXPECT_EQ(Kind::kClose, admit("a").kind);
}

TEST_F(SessionTableFilled, RemovedOnesAreForgotten) {
    add(1, "a");
    EXPECT_NE(table.find(1), nullptr);
    table.remove(1);
    EXPECT_EQ(nullptr, table.find(1));
    EXPECT_EQ(0U, table.size());
}

TEST_F(SessionTableFilled, GuestsCountForTheirSource) {
    bounds.unauthenticated = 10;
    add(1, "a");
    addGuest(7, "a");
    addGuest(8, "b");
    EXPECT_EQ(0U, admit("b").victimGuest);
    const SessionTable::Admission admission = admit("a");
    EXPECT_EQ(7U, admission.victimGuest);
    EXPECT_EQ(0, admission.victim);
    EXPECT_EQ(2U, choices);
}

TEST_F(SessionTableFilled, GuestsCountForTheBoundOfAll) {
    addGuest(7, "a");
    addGuest(8, "b", 10);
    EXPECT_EQ(0U, admit("c").victimGuest);
    addGuest(9, "c", 10);
    EXPECT_EQ(7U, admit("d").victimGuest);
    EXPECT_EQ(1U, choices);
}

TEST_F(SessionTableFilled, GuestsTakeThePlacesOfSessions) {
    for (pid_t pid = 1; pid <= 3; ++pid) {
        add(pid, "a").authenticated = true;
    }
    EXPECT_EQ(0U, admit("b").victimGuest);
    addGuest(7, "b");
    EXPECT_EQ(Kind::kServe, admit("c").kind);
    EXPECT_EQ(7U, admit("c").victimGuest);
}

TEST_F(SessionTableFilled, SourceWithTooManySessionsIsToldSo) {
    bounds = {100, 100, 100, 1};
    bounds.perSource = 3;
    for (pid_t pid = 1; pid <= 3; ++pid) {
        add(pid, "a").authenticated = true;
    }
    EXPECT_EQ(Kind::kTurnAway, admit("a").kind);
    EXPECT_NE(std::string::npos, admit("a").refusal.find("SESSIONS_PER_SOURCE=3"));
    EXPECT_EQ(Kind::kServe, admit("b").kind);
    EXPECT_EQ("", admit("b").refusal);
}

TEST_F(SessionTableFilled, SourceWithTooManySessionsLosesOneOfItsOwnThatWaits) {
    bounds = {100, 100, 100, 1};
    bounds.perSource = 3;
    for (pid_t pid = 1; pid <= 3; ++pid) {
        add(pid, "a").authenticated = true;
    }
    add(4, "a");
    add(5, "b");
    EXPECT_EQ(4, admit("a").victim);
}

TEST_F(SessionTableFilled, SessionsOfACertificateAreCounted) {
    bounds.perCertificate = 2;
    for (pid_t pid = 1; pid <= 2; ++pid) {
        add(pid, "a").fingerprint = "one";
    }
    EXPECT_EQ("", table.refusalOf("one", bounds));
    add(3, "b").fingerprint = "one";
    EXPECT_NE(std::string::npos, table.refusalOf("one", bounds).find("SESSIONS_PER_CERTIFICATE=2"));
    add(4, "b").fingerprint = "other";
    EXPECT_EQ("", table.refusalOf("other", bounds));
    table.find(3)->dropped = true;
    EXPECT_EQ("", table.refusalOf("one", bounds));
}
