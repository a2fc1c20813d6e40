#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Posix.h"
#include "ProgressLine.h"

namespace {

using std::chrono::milliseconds;

Progress someProgress() {
    Progress progress;
    progress.total = 64;
    progress.done = 57;
    progress.failed = 1;
    for (int i = 3; i <= 9; ++i) {
        progress.awaited.push_back("node_000" + std::to_string(i));
    }
    progress.ms = 3200;
    return progress;
}

TEST(ProgressText, TellsWhoIsAwaited) {
    EXPECT_EQ("57 of 64 done, 1 failed, awaited: node_[0003-0009] 3.2 s",
              progressText(someProgress(), 80));
}

TEST(ProgressText, NeverReachesTheLastColumn) {
    for (unsigned int columns = 0; columns < 80; ++columns) {
        EXPECT_LT(progressText(someProgress(), columns).size(), columns == 0 ? 1U : columns);
    }
    EXPECT_EQ("57 of 64 done, 1 failed, awaited:... 3.2 s", progressText(someProgress(), 43));
}

TEST(ProgressText, TellsBytesRateAndTimeLeftOfTransfers) {
    Progress progress = someProgress();
    progress.failed = 0;
    progress.awaited.clear();
    progress.ms = 2000;
    progress.bytes = std::uint64_t{512} * 1024 * 1024;
    progress.bytesInAll = std::uint64_t{1024} * 1024 * 1024;
    EXPECT_EQ("57 of 64 done, 512 MiB of 1.0 GiB, 256 MiB/s, 2.0 s left 2.0 s",
              progressText(progress, 80));
}

TEST(ProgressText, OfATransferThatHasNotBegunHasNoRate) {
    Progress progress;
    progress.total = 1;
    progress.bytes = 0;
    progress.bytesInAll = 10;
    EXPECT_EQ("0 of 1 done, 0 B of 10 B 0.0 s", progressText(progress, 80));
}

// A pipe in place of a terminal.
class ProgressLineTest : public testing::Test {
protected:
    void SetUp() override {
        int ends[2];
        ASSERT_EQ(0, ::pipe(ends));
        reader.reset(ends[0]);
        writer.reset(ends[1]);
    }
    std::string drawn() {
        writer.reset();
        char bytes[4096];
        const ssize_t count = Posix::readAll(reader.get(), bytes, sizeof bytes);
        return std::string(bytes, count > 0 ? static_cast<std::size_t>(count) : 0);
    }

    UniqueFd reader;
    UniqueFd writer;
    const ProgressLine::Clock::time_point begin = ProgressLine::Clock::now();
};

TEST_F(ProgressLineTest, WaitsForHalfASecond) {
    {
        ProgressLine line(writer.get(), begin);
        EXPECT_EQ(begin + milliseconds(500), line.due());
        line.draw(someProgress(), 80, begin + milliseconds(499));
    }
    EXPECT_EQ("", drawn());
}

TEST_F(ProgressLineTest, IsDrawnAtMostTenTimesASecondAndErasedAtTheEnd) {
    {
        ProgressLine line(writer.get(), begin);
        Progress progress = someProgress();
        line.draw(progress, 80, begin + milliseconds(500));
        EXPECT_EQ(begin + milliseconds(600), line.due());
        ++progress.done;
        line.draw(progress, 80, begin + milliseconds(599));
        line.draw(progress, 80, begin + milliseconds(600));
    }
    EXPECT_EQ(
        "\r\x1b[K57 of 64 done, 1 failed, awaited: node_[0003-0009] 3.2 s"
        "\r\x1b[K58 of 64 done, 1 failed, awaited: node_[0003-0009] 3.2 s\r\x1b[K",
        drawn());
}

TEST_F(ProgressLineTest, IsNotDrawnAgainWhenNothingHasChanged) {
    {
        ProgressLine line(writer.get(), begin);
        line.draw(someProgress(), 20, begin + milliseconds(500));
        line.draw(someProgress(), 20, begin + milliseconds(700));
        line.erase();
        line.erase();
    }
    EXPECT_EQ("\r\x1b[K57 of 64 d... 3.2 s\r\x1b[K", drawn());
}

TEST(ProgressLine, WithoutATerminalIsNeverDue) {
    ProgressLine line(-1, ProgressLine::Clock::now());
    EXPECT_EQ(ProgressLine::Clock::time_point::max(), line.due());
}

}  // namespace
