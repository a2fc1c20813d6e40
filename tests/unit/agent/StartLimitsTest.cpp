#include <gtest/gtest.h>

#include "StartLimits.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Standing = StartLimits::Standing;

class StartLimitsTest : public testing::Test {
protected:
    // How many of so many tries of a source, spread over the time, start.
    int startsOf(const std::string& source, int tries, milliseconds over, bool fail = false) {
        int started = 0;
        const auto begin = now;
        for (int i = 0; i < tries; ++i) {
            now = begin + over * i / tries;
            if (limits.whenNext(source, now) <= now) {
                limits.take(source, now);
                ++started;
                if (fail) {
                    limits.noteFailure(source, now);
                }
            }
        }
        now = begin + over;
        return started;
    }
    void fail(const std::string& source, int times) {
        for (int i = 0; i < times; ++i) {
            limits.noteFailure(source, now);
        }
    }

    StartLimits limits;
    StartLimits::Clock::time_point now{seconds(1000000)};
};

}  // namespace

TEST_F(StartLimitsTest, AnIPv6SourceIsItsNetwork) {
    EXPECT_EQ("192.0.2.7", StartLimits::sourceOf("192.0.2.7"));
    EXPECT_EQ("192.0.2.7", StartLimits::sourceOf("::ffff:192.0.2.7"));
    EXPECT_EQ("2001:db8:1:2::/64", StartLimits::sourceOf("2001:db8:1:2:3:4:5:6"));
    EXPECT_EQ(StartLimits::sourceOf("2001:db8:1:2::1"), StartLimits::sourceOf("2001:db8:1:2::2"));
    EXPECT_NE(StartLimits::sourceOf("2001:db8:1:2::1"), StartLimits::sourceOf("2001:db8:1:3::1"));
}

TEST_F(StartLimitsTest, ABurstStartsAtOnce) {
    EXPECT_EQ(64, startsOf("a", 1000, milliseconds(1)));
}

TEST_F(StartLimitsTest, ASourceHasItsRate) {
    startsOf("a", 1000, milliseconds(1));
    EXPECT_NEAR(250, startsOf("a", 10000, seconds(10)), 3);
}

TEST_F(StartLimitsTest, SaysWhenTheNextMayStart) {
    startsOf("a", 64, milliseconds(0));
    EXPECT_EQ(now + milliseconds(40), limits.whenNext("a", now));
    EXPECT_EQ(now, limits.whenNext("b", now));
}

TEST_F(StartLimitsTest, AllSourcesTogetherHaveTheirRate) {
    int started = 0;
    for (int turn = 0; turn < 1000; ++turn) {
        for (int source = 0; source < 40; ++source) {
            started += startsOf("s" + std::to_string(source), 1, milliseconds(0));
        }
        now += milliseconds(10);
    }
    EXPECT_NEAR(200 + 10 * 100, started, 5);
}

TEST_F(StartLimitsTest, MastersHaveAPartOfTheirOwn) {
    limits.noteMaster("master", now);
    EXPECT_EQ(Standing::kKnown, limits.standingOf("master", now));
    for (int source = 0; source < 10; ++source) {
        startsOf("s" + std::to_string(source), 64, milliseconds(0));
    }
    EXPECT_GT(limits.whenNext("stranger", now), now);
    EXPECT_EQ(300, startsOf("master", 300, milliseconds(0)));
}

TEST_F(StartLimitsTest, MasterOfYesterdayIsForgotten) {
    limits.noteMaster("master", now);
    now += StartLimits::kKnownFor;
    EXPECT_EQ(Standing::kNew, limits.standingOf("master", now));
}

TEST_F(StartLimitsTest, AFewFailuresCostNothing) {
    fail("a", 32);
    EXPECT_EQ(Standing::kNew, limits.standingOf("a", now));
    EXPECT_EQ(64, startsOf("a", 1000, milliseconds(1)));
}

TEST_F(StartLimitsTest, PenaltiesGrow) {
    startsOf("a", 100, milliseconds(1), true);
    EXPECT_EQ(Standing::kFailing, limits.standingOf("a", now));
    const int first = startsOf("a", 10000, seconds(10), true);
    const int second = startsOf("a", 10000, seconds(10), true);
    EXPECT_LT(first, 200);
    EXPECT_LT(second, first);
    startsOf("a", 200000, seconds(200), true);
    EXPECT_LE(startsOf("a", 10000, seconds(10), true), 35);
    EXPECT_GE(startsOf("a", 10000, seconds(10), true), 10);
}

TEST_F(StartLimitsTest, FailuresAreForgotten) {
    fail("a", 2000);
    EXPECT_EQ(Standing::kFailing, limits.standingOf("a", now));
    now += seconds(400);
    EXPECT_EQ(Standing::kNew, limits.standingOf("a", now));
}

TEST_F(StartLimitsTest, MastersMakeGoodForFailures) {
    fail("a", 40);
    EXPECT_EQ(Standing::kFailing, limits.standingOf("a", now));
    limits.noteMaster("a", now);
    EXPECT_EQ(Standing::kKnown, limits.standingOf("a", now));
}

TEST_F(StartLimitsTest, FailingAddressOfAMasterHasNoPartOfItsOwn) {
    limits.noteMaster("master", now);
    fail("master", 100);
    for (int source = 0; source < 10; ++source) {
        startsOf("s" + std::to_string(source), 64, milliseconds(0));
    }
    EXPECT_GT(limits.whenNext("master", now), now);
}

TEST_F(StartLimitsTest, MemoryIsBoundedAndKeepsMasters) {
    limits.noteMaster("master", now);
    for (int i = 0; i < 20000; ++i) {
        limits.noteFailure(std::to_string(i), now);
        now += milliseconds(1);
    }
    EXPECT_LE(limits.size(), StartLimits::kMostSources);
    EXPECT_EQ(Standing::kKnown, limits.standingOf("master", now));
}

TEST_F(StartLimitsTest, MemoryIsBoundedForMastersToo) {
    for (int i = 0; i < 4200; ++i) {
        now += milliseconds(1);
        limits.noteMaster(std::to_string(i), now);
    }
    EXPECT_LE(limits.size(), StartLimits::kMostSources);
    EXPECT_EQ(Standing::kKnown, limits.standingOf("4199", now));
    EXPECT_EQ(Standing::kNew, limits.standingOf("0", now));
}
