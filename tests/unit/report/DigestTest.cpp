#include <gtest/gtest.h>

#include "Digest.h"

namespace {

NodeOutcome outcome(const std::string& node, Cause cause,
                    const std::optional<int>& exitCode = std::nullopt) {
    NodeOutcome made;
    made.node = node;
    made.cause = cause;
    made.exitCode = exitCode;
    return made;
}

TEST(Digest, CountsNodesThatAreOkWithoutNamingThem) {
    EXPECT_EQ("#7  2 nodes in 0.3 s: 2 ok",
              digestOf(7, 310, {outcome("n1", Cause::kOk, 0), outcome("n2", Cause::kOk, 0)}));
    EXPECT_EQ("#7  1 node in 0.0 s: 1 ok", digestOf(7, 12, {outcome("n1", Cause::kOk, 0)}));
}

TEST(Digest, NamesWhoIsNotOkInTheOrderOfTheCauses) {
    EXPECT_EQ(
        "#42  9 nodes in 4.2 s: 1 ok, 2 failed (exit 3) node_[0002,0017], 1 timed out node_0040, "
        "1 unreachable node_0051, 1 wrong machine node_0063, 1 refused a, 1 not started b, "
        "1 cancelled c",
        digestOf(42, 4250,
                 {outcome("c", Cause::kCancelled), outcome("node_0063", Cause::kWrongMachine),
                  outcome("node_0017", Cause::kFailed, 3), outcome("b", Cause::kNotStarted),
                  outcome("node_0001", Cause::kOk, 0), outcome("node_0040", Cause::kTimedOut),
                  outcome("node_0002", Cause::kFailed, 3), outcome("a", Cause::kRefused),
                  outcome("node_0051", Cause::kUnreachable)}));
}

TEST(Digest, KeepsDifferentExitCodesApart) {
    EXPECT_EQ("#1  3 nodes in 1.0 s: 1 failed n3, 1 failed (exit 1) n1, 1 failed (exit 2) n2",
              digestOf(1, 1000,
                       {outcome("n1", Cause::kFailed, 1), outcome("n2", Cause::kFailed, 2),
                        outcome("n3", Cause::kFailed)}));
}

TEST(Digest, NamesWhatGoesOn) {
    EXPECT_EQ("#1  1 node in 30.0 s: 1 running n1",
              digestOf(1, 30000, {outcome("n1", Cause::kRunning)}));
}

TEST(Digest, WritesTimesInTheUnitThatFits) {
    EXPECT_EQ("0.0 s", durationText(0));
    EXPECT_EQ("59.9 s", durationText(59999));
    EXPECT_EQ("1 m 0 s", durationText(60000));
    EXPECT_EQ("2 m 5 s", durationText(125400));
    EXPECT_EQ("1 h 2 m", durationText(3725000));
}

TEST(NodeOutcome, CausesHaveANameAndAreFoundByIt) {
    for (const Cause cause : kAllCauses) {
        EXPECT_EQ(cause, causeNamed(causeName(cause)));
    }
    EXPECT_EQ(std::nullopt, causeNamed("timed out"));
    EXPECT_EQ("wrong machine", causeWords(Cause::kWrongMachine));
}

}  // namespace
