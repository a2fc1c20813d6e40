#include <cstdlib>
#include <fstream>
#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "AgentLink.h"
#include "ChannelError.h"
#include "NodeResult.h"
#include "Sanitizers.h"

namespace {

constexpr std::size_t kMiB = std::size_t{1024} * 1024;

// In a process of its own, with so much more address space than it has already.
[[noreturn]] void collectWithin(std::size_t moreBytes, std::size_t outputBytes) {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    rlimit limit{};
    limit.rlim_cur = pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) + moreBytes;
    limit.rlim_max = limit.rlim_cur;
    bool good = ::setrlimit(RLIMIT_AS, &limit) == 0;
    noderesult::OutputCollector output(64 * kMiB);
    const std::string piece(kMiB, 'x');
    for (std::size_t size = 0; size < outputBytes; size += piece.size()) {
        output.add(piece);
    }
    good = good && output.finish().size() == outputBytes;
    std::_Exit(good ? EXIT_SUCCESS : EXIT_FAILURE);
}

}  // namespace

TEST(OutputCollector, KeepsEveryByteInOrder) {
    noderesult::OutputCollector output(std::size_t{64} * 1024 * 1024);
    std::string expected;
    for (int i = 0; expected.size() < 5U * 1024 * 1024; ++i) {
        const std::string piece(1 + static_cast<std::size_t>(i) * 7919 % 65536,
                                static_cast<char>('a' + i % 26));
        output.add(piece);
        expected += piece;
    }
    EXPECT_TRUE(expected == output.finish());
}

TEST(OutputCollector, WithoutOutputThereIsNoText) {
    noderesult::OutputCollector output(100);
    EXPECT_EQ("", output.finish());
    noderesult::OutputCollector empty(100);
    empty.add("");
    EXPECT_EQ("", empty.finish());
}

TEST(OutputCollector, CountsWhatIsBeyondTheLimit) {
    noderesult::OutputCollector output(10);
    output.add("12345678");
    output.add("90ab");
    output.add("cd");
    EXPECT_EQ("1234567890\n[4 more bytes of output were left out]\n", output.finish());
}

TEST(OutputCollector, TakesExactlyTheLimit) {
    noderesult::OutputCollector output(10);
    output.add("12345");
    output.add("67890");
    output.add("");
    EXPECT_EQ("1234567890", output.finish());
}

TEST(OutputCollector, NeedsNoMoreRoomThanThereIs) {
    if (kSanitizersAllocator) {
        GTEST_SKIP() << "a sanitizer takes all the address space there is";
    }
    EXPECT_EXIT(collectWithin(40 * kMiB, 12 * kMiB), ::testing::ExitedWithCode(EXIT_SUCCESS), "");
}

TEST(NodeResult, FailureSaysItsEndByTheTypeOfWhatWasThrown) {
    const auto endOf = [](const CException& failure) {
        CResult result;
        noderesult::fail(result, failure);
        EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
        EXPECT_EQ(failure.getErrMsg(), result.getRunSummary());
        return result.getRunEnd();
    };
    const auto channel = [&](ChannelError::Kind kind) { return endOf(ChannelError(kind, "x")); };
    const auto agent = [&](std::uint16_t code) {
        protocol::Error error;
        error.code = code;
        error.text = "no";
        return endOf(AgentError(error, "node"));
    };
    EXPECT_EQ(RunEnd::kUnreachable, channel(ChannelError::Kind::kUnreachable));
    EXPECT_EQ(RunEnd::kUnreachable, channel(ChannelError::Kind::kNoAnswer));
    EXPECT_EQ(RunEnd::kSilent, channel(ChannelError::Kind::kTimedOut));
    EXPECT_EQ(RunEnd::kRefused, channel(ChannelError::Kind::kRefused));
    EXPECT_EQ(RunEnd::kByStatus, channel(ChannelError::Kind::kClosed));
    EXPECT_EQ(RunEnd::kRefused, agent(protocol::kErrorRefused));
    EXPECT_EQ(RunEnd::kNotStarted, agent(protocol::kErrorNotStarted));
    EXPECT_EQ(RunEnd::kByStatus, agent(protocol::kErrorFile));
    EXPECT_EQ(RunEnd::kByStatus, endOf(CException("no file")));
}
