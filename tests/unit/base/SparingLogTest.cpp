#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "SparingLog.h"

namespace {

using std::chrono::seconds;

class SparingLogTest : public testing::Test {
protected:
    using Lines = std::vector<std::string>;

    Lines lines;
    SparingLog log{[this](const std::string& line) { lines.push_back(line); }, seconds(60), 3};
    SparingLog::Clock::time_point now{seconds(1000)};
};

}  // namespace

TEST_F(SparingLogTest, FirstLineOfAKeyIsWrittenAtOnce) {
    log.note("a", "a: failed", now);
    log.note("b", "b: failed", now);
    EXPECT_EQ((Lines{"a: failed", "b: failed"}), lines);
}

TEST_F(SparingLogTest, FurtherOnesAreCountedAndToldOfOnce) {
    for (int i = 0; i < 4212; ++i) {
        log.note("a", "a: failed", now);
    }
    log.tell(now + seconds(59));
    EXPECT_EQ(Lines{"a: failed"}, lines);
    log.tell(now + seconds(60));
    EXPECT_EQ((Lines{"a: failed", "a: failed (4,211 more in 60 s)"}), lines);
    log.tell(now + seconds(120));
    EXPECT_EQ(2U, lines.size());
}

TEST_F(SparingLogTest, LongSeriesIsOneLineAPeriod) {
    for (int second = 0; second < 600; ++second) {
        log.note("a", "a: failed", now + seconds(second));
    }
    EXPECT_EQ(10U, lines.size());
    EXPECT_EQ("a: failed (60 more in 60 s)", lines.back());
}

TEST_F(SparingLogTest, QuietKeyIsWrittenAtOnceAgain) {
    log.note("a", "a: failed", now);
    log.note("a", "a: failed", now + seconds(61));
    EXPECT_EQ((Lines{"a: failed", "a: failed"}), lines);
}

TEST_F(SparingLogTest, ManyKeysShareOne) {
    for (int i = 0; i < 100; ++i) {
        log.note(std::to_string(i), std::to_string(i) + ": failed", now);
    }
    EXPECT_EQ((Lines{"0: failed", "1: failed", "2: failed", "3: failed"}), lines);
    log.tell(now + seconds(60));
    EXPECT_EQ("99: failed (96 more in 60 s)", lines.back());
}

TEST_F(SparingLogTest, EndTellsOfAll) {
    log.note("a", "a: failed", now);
    log.note("a", "a: failed", now + seconds(5));
    log.tellAll(now + seconds(10));
    EXPECT_EQ("a: failed (1 more in 10 s)", lines.back());
    EXPECT_FALSE(log.nextDue().has_value());
}

TEST_F(SparingLogTest, SaysWhenItHasSomethingToDo) {
    EXPECT_FALSE(log.nextDue().has_value());
    log.note("a", "a: failed", now);
    EXPECT_EQ(now + seconds(60), log.nextDue());
}

TEST_F(SparingLogTest, NumbersAreGrouped) {
    EXPECT_EQ("0", SparingLog::grouped(0));
    EXPECT_EQ("999", SparingLog::grouped(999));
    EXPECT_EQ("1,000", SparingLog::grouped(1000));
    EXPECT_EQ("1,234,567", SparingLog::grouped(1234567));
}
