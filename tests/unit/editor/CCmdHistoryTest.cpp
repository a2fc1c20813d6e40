#include <gtest/gtest.h>

#include "CCmdHistory.h"
#include "Observed.h"
#include "StandardStreams.h"

TEST(CCmdHistory, KeepsEverythingInOrder) {
    CCmdHistory history;
    EXPECT_EQ(0u, history.size());
    EXPECT_EQ("", history.getCmd(0));
    EXPECT_EQ("", history.getCmd(1));
    EXPECT_EQ("The history of command execution is empty.\n", printedBy([&] { history.listIt(); }));
    for (const char* line : {"list", "list", "", "  cd  tools "}) {
        history.add(line);
    }
    EXPECT_EQ(4u, history.size());
    EXPECT_EQ("  cd  tools ", history.getCmd(4));
    EXPECT_EQ("", history.getCmd(5));
    EXPECT_EQ("", history.getCmd(4294967295u));
    EXPECT_EQ("1  list\n2  list\n3  \n4    cd  tools \n", printedBy([&] { history.listIt(); }));
}

TEST(CCmdHistory, ListsNumberTwoBlanksAndCommand) {
    CCmdHistory history;
    for (int i = 1; i <= 10; ++i) {
        history.add("c" + std::to_string(i));
    }
    CapturedOutput output;
    history.listIt();
    EXPECT_EQ("1  c1\n2  c2\n3  c3\n4  c4\n5  c5\n6  c6\n7  c7\n8  c8\n9  c9\n10  c10\n",
              output.text());
}
