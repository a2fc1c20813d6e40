#include <chrono>

#include <gtest/gtest.h>

#include "CUtil.h"
#include "StopWatch.h"

TEST(StopWatch, IsZeroBeforeItIsStarted) {
    StopWatch watch;
    EXPECT_EQ(0L, watch.getTime());
    watch.stop();
    EXPECT_EQ(0L, watch.getTime());
}

TEST(StopWatch, MeasuresMilliseconds) {
    const auto before = std::chrono::steady_clock::now();
    StopWatch watch;
    watch.start();
    CUtil::sleep(30);
    watch.stop();
    const auto outer = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - before);
    EXPECT_GE(watch.getTime(), 30);
    EXPECT_LE(watch.getTime(), outer.count());
}

TEST(StopWatch, StaysFixedAfterStop) {
    StopWatch watch;
    watch.start();
    CUtil::sleep(5);
    watch.stop();
    const long first = watch.getTime();
    CUtil::sleep(10);
    EXPECT_EQ(first, watch.getTime());
    watch.stop();
    EXPECT_EQ(first, watch.getTime());
}

TEST(StopWatch, RunsOnUntilItIsStopped) {
    StopWatch watch;
    watch.start();
    CUtil::sleep(5);
    const long first = watch.getTime();
    CUtil::sleep(5);
    EXPECT_GE(watch.getTime(), first + 5);
}

TEST(StopWatch, StartForgetsTheEarlierMeasurement) {
    StopWatch watch;
    watch.start();
    CUtil::sleep(50);
    watch.stop();
    const long first = watch.getTime();
    watch.start();
    watch.stop();
    EXPECT_LT(watch.getTime(), first);
}
