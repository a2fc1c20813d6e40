#include <gtest/gtest.h>

#include "NameFolding.h"

namespace {

TEST(NameFolding, NamesASingleNodeWithoutBrackets) {
    EXPECT_EQ("n1", foldNames({"n1"}));
    EXPECT_EQ("master", foldNames({"master"}));
    EXPECT_EQ("", foldNames({}));
}

TEST(NameFolding, JoinsNeighboursToRanges) {
    EXPECT_EQ("node_[0000-0003,0007]",
              foldNames({"node_0007", "node_0001", "node_0000", "node_0003", "node_0002"}));
    EXPECT_EQ("n[1-2]", foldNames({"n2", "n1"}));
    EXPECT_EQ("n[1,3,5]", foldNames({"n1", "n3", "n5"}));
}

TEST(NameFolding, NamesEachNodeOnce) {
    EXPECT_EQ("n1", foldNames({"n1", "n1"}));
    EXPECT_EQ("a", foldNames({"a", "a"}));
}

TEST(NameFolding, KeepsANameWithoutANumberBesideNumberedOnes) {
    EXPECT_EQ("n,n[1-2]", foldNames({"n1", "n", "n2"}));
    EXPECT_EQ("n,n1", foldNames({"n", "n1"}));
}

TEST(NameFolding, SortsByNumberAndNotByText) {
    EXPECT_EQ("n[2,9-11,100]", foldNames({"n100", "n10", "n11", "n2", "n9"}));
}

TEST(NameFolding, KeepsNamesOfDifferentWidthApart) {
    EXPECT_EQ("n[1,01]", foldNames({"n01", "n1"}));
    EXPECT_EQ("n[9,09-10]", foldNames({"n9", "n09", "n10"}));
    EXPECT_EQ("n[0,00]", foldNames({"n00", "n0"}));
}

TEST(NameFolding, EndsAPaddedRangeWhereItsWidthEnds) {
    std::vector<std::string> names;
    for (int i = 9; i <= 100; ++i) {
        names.push_back((i < 10 ? "n0" : "n") + std::to_string(i));
    }
    EXPECT_EQ("n[09-99,100]", foldNames(names));
    EXPECT_EQ("n[98-100]", foldNames({"n98", "n99", "n100"}));
}

TEST(NameFolding, FoldsOnlyTheLastNumber) {
    EXPECT_EQ("r1n[1-2],r2n[1-2]", foldNames({"r1n1", "r1n2", "r2n1", "r2n2"}));
    EXPECT_EQ("n[1-2]-ib", foldNames({"n1-ib", "n2-ib"}));
}

TEST(NameFolding, LeavesNamesAloneThatHoldTheGrammarsOwnCharacters) {
    EXPECT_EQ("n1,n[1]", foldNames({"n[1]", "n1"}));
    EXPECT_EQ("a@1,a@2", foldNames({"a@2", "a@1"}));
}

TEST(NameFolding, TakesNumbersThatAreTooLongAsText) {
    EXPECT_EQ("n1234567890123456789,n1234567890123456790",
              foldNames({"n1234567890123456790", "n1234567890123456789"}));
}

}  // namespace
