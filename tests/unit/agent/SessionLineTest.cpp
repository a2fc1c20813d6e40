#include <sys/socket.h>

#include <gtest/gtest.h>

#include "CException.h"
#include "SessionLine.h"

namespace {

class SessionLineTest : public testing::Test {
protected:
    SessionLineTest() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends));
        listener.reset(ends[0]);
        line = std::make_unique<SessionLine>(UniqueFd(ends[1]));
    }
    // Everything told so far, in pieces of so many bytes.
    std::vector<SessionReport> reportsInPiecesOf(std::size_t count) {
        std::vector<SessionReport> all;
        char bytes[4096];
        for (;;) {
            const ssize_t got = ::recv(listener.get(), bytes, count, MSG_DONTWAIT);
            if (got <= 0) {
                return all;
            }
            reports.add(bytes, static_cast<std::size_t>(got));
            while (const auto report = reports.next()) {
                all.push_back(*report);
            }
        }
    }

    const std::string fingerprint = std::string(SessionReport::kFingerprintBytes, 'f');
    UniqueFd listener;
    std::unique_ptr<SessionLine> line;
    SessionReports reports;
};

}  // namespace

TEST_F(SessionLineTest, ReportsArriveWholeHoweverTheyAreCut) {
    for (const std::size_t piece : {1U, 7U, 4096U}) {
        line->tellMaster(true, fingerprint, "certificates");
        line->tellUninterruptible(true);
        line->tellUninterruptible(false);
        EXPECT_TRUE(line->tellFailure("a reason"));
        const std::vector<SessionReport> told = reportsInPiecesOf(piece);
        ASSERT_EQ(4U, told.size()) << piece;
        EXPECT_EQ(SessionReport::Kind::kMaster, told[0].kind);
        EXPECT_TRUE(told[0].hasRole);
        EXPECT_EQ(fingerprint, told[0].fingerprint);
        EXPECT_EQ("certificates", told[0].certificates);
        EXPECT_EQ(SessionReport::Kind::kUninterruptibleBegins, told[1].kind);
        EXPECT_EQ(SessionReport::Kind::kUninterruptibleEnds, told[2].kind);
        EXPECT_EQ(SessionReport::Kind::kFailure, told[3].kind);
        EXPECT_EQ("a reason", told[3].text);
    }
}

TEST_F(SessionLineTest, MasterWithoutARoleIsToldOf) {
    line->tellMaster(false, fingerprint, "certificates");
    EXPECT_FALSE(reportsInPiecesOf(4096).at(0).hasRole);
}

TEST_F(SessionLineTest, CertificatesThatAreTooLargeAreRefused) {
    EXPECT_THROW(line->tellMaster(true, fingerprint, std::string(SessionReport::kMaxBytes, 'c')),
                 CException);
    EXPECT_THROW(line->tellMaster(true, fingerprint, ""), CException);
}

TEST_F(SessionLineTest, LeaveIsGivenOrRefused) {
    SessionReports::answer(listener.get(), "");
    EXPECT_EQ("", line->awaitLeave());
    SessionReports::answer(listener.get(), "one too many");
    EXPECT_EQ("one too many", line->awaitLeave());
}

TEST_F(SessionLineTest, NobodyStaysWithoutTheListenersLeave) {
    listener.reset();
    EXPECT_NE("", line->awaitLeave());
    EXPECT_FALSE(line->tellFailure("a reason"));
}

TEST_F(SessionLineTest, ReportWithoutEndIsDropped) {
    const std::string bytes("F\xff\xff\xff\xff", 5);
    reports.add(bytes.data(), bytes.size());
    EXPECT_FALSE(reports.next().has_value());
    line->tellUninterruptible(true);
    EXPECT_EQ(1U, reportsInPiecesOf(4096).size());
}
