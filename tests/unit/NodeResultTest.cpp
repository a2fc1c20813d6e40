#include <gtest/gtest.h>

#include "NodeResult.h"

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
