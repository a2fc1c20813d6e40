#include <gtest/gtest.h>

#include "CCmdHistory.h"
#include "StandardStreams.h"

TEST(CCmdHistory, CountsFromTheOldestStartingAtOne) {
    CCmdHistory history;
    history.add("first");
    history.add("second");
    EXPECT_EQ(history.size(), 2U);
    EXPECT_EQ(history.getCmd(1), "first");
    EXPECT_EQ(history.getCmd(2), "second");
}

TEST(CCmdHistory, HasNoEntryAtZeroAndBeyondTheSize) {
    CCmdHistory history;
    EXPECT_EQ(history.getCmd(0), "");
    EXPECT_EQ(history.getCmd(1), "");
    history.add("only");
    EXPECT_EQ(history.getCmd(0), "");
    EXPECT_EQ(history.getCmd(2), "");
    EXPECT_EQ(history.getCmd(4294967295U), "");
}

TEST(CCmdHistory, KeepsDuplicatesAndEmptyLines) {
    CCmdHistory history;
    history.add("same");
    history.add("");
    history.add("same");
    EXPECT_EQ(history.size(), 3U);
    EXPECT_EQ(history.getCmd(2), "");
    EXPECT_EQ(history.getCmd(3), "same");
}

TEST(CCmdHistory, ListsNumberTwoBlanksAndCommand) {
    CCmdHistory history;
    for (int i = 1; i <= 10; ++i) {
        history.add("c" + std::to_string(i));
    }
    CapturedOutput output;
    history.listIt();
    EXPECT_EQ(output.text(),
              "1  c1\n2  c2\n3  c3\n4  c4\n5  c5\n6  c6\n7  c7\n8  c8\n9  c9\n10  c10\n");
}

TEST(CCmdHistory, SaysWhenItIsEmpty) {
    CCmdHistory history;
    CapturedOutput output;
    history.listIt();
    EXPECT_EQ(output.text(), "The history of command execution is empty.\n");
}
