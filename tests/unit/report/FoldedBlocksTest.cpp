#include <gtest/gtest.h>

#include "FoldedBlocks.h"

namespace {

NodeOutcome outcome(const std::string& node, long ms, const std::string& text,
                    Cause cause = Cause::kOk) {
    NodeOutcome made;
    made.node = node;
    made.ms = ms;
    made.text = text;
    made.cause = cause;
    return made;
}

TEST(FoldedBlocks, JoinNodesWithTheSameText) {
    EXPECT_EQ(
        "[node_[0000-0002]] (3 nodes, 12-45ms)\nup 3 days\n",
        foldedBlocks({outcome("node_0001", 45, "up 3 days"), outcome("node_0000", 30, "up 3 days"),
                      outcome("node_0002", 12, "up 3 days")}));
}

TEST(FoldedBlocks, ShowASingleNodeInTheClassicForm) {
    EXPECT_EQ("[n1] (12ms)\nok\n", foldedBlocks({outcome("n1", 12, "ok")}));
    EXPECT_EQ("[n[1-2]] (2 nodes, 7ms)\nok\n",
              foldedBlocks({outcome("n1", 7, "ok"), outcome("n2", 7, "ok")}));
}

TEST(FoldedBlocks, ComeInTheOrderOfTheirFirstNames) {
    EXPECT_EQ("[n[1,3]] (2 nodes, 1ms)\na\n[n2] (1ms)\nb\n",
              foldedBlocks({outcome("n3", 1, "a"), outcome("n2", 1, "b"), outcome("n1", 1, "a")}));
}

TEST(FoldedBlocks, KeepCausesApartThatHaveTheSameText) {
    EXPECT_EQ("[n1] (1ms)\nx\n[n2] (1ms)\nx\n",
              foldedBlocks({outcome("n1", 1, "x"), outcome("n2", 1, "x", Cause::kTimedOut)}));
}

TEST(FoldedBlocks, ShowControlCharactersAndDoNotObeyThem) {
    EXPECT_EQ("[n1] (1ms)\na\\x1b[2Jb\n", foldedBlocks({outcome("n1", 1, "a\x1b[2Jb")}));
}

TEST(FoldedBlocks, OfNobodyAreEmpty) {
    EXPECT_EQ("", foldedBlocks({}));
}

TEST(FoldedBlocks, FailuresHaveTheClassicWordsInFront) {
    EXPECT_EQ("", failureHead(0, 0, "SUCCESS"));
    EXPECT_EQ("ExitCode:2/3[FAILURE], summary: ", failureHead(2, 3, "FAILURE"));
}

}  // namespace
