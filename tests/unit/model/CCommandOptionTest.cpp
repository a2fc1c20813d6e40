#include <gtest/gtest.h>

#include "CCommandOption.h"
#include "CException.h"

namespace {

CCommandOption valueOption(const std::string& shortName, const std::string& longName) {
    return CCommandOption(shortName, longName, OPTION_MAY_BE_OMITTED, OPTION_WITH_VALUE, "text");
}

CCommandOption flag(const std::string& shortName, const std::string& longName) {
    return CCommandOption(shortName, longName, OPTION_MAY_BE_OMITTED, OPTION_WITHOUT_VALUE, "text");
}

std::string refusal(const CCommandOption& option, std::string line) {
    const std::string before = line;
    try {
        option.processOption(&line);
    } catch (const CException& fault) {
        EXPECT_EQ(before, line);
        return fault.getErrMsg();
    }
    return "accepted";
}

}  // namespace

TEST(CCommandOption, KeepsWhatItIsGiven) {
    CCommandOption option("n", "node", OPTION_COMPULSORY, OPTION_WITHOUT_VALUE);
    EXPECT_EQ("n", option.getShortOptName());
    EXPECT_EQ("node", option.getLongOptName());
    EXPECT_TRUE(option.getIsCompulsory());
    EXPECT_FALSE(option.getHasOptValue());
    EXPECT_EQ("", option.getDescription());
    option.setDescription("Target node");
    EXPECT_EQ("Target node", option.getDescription());
}

TEST(CCommandOption, AnyTypeButZeroCountsAsSet) {
    const CCommandOption option("n", "node", 7, -1, "");
    EXPECT_TRUE(option.getIsCompulsory());
    EXPECT_TRUE(option.getHasOptValue());
}

TEST(CCommandOption, HelpLineNamesWhatThereIs) {
    EXPECT_EQ("-n, --node: text", flag("n", "node").toString());
    EXPECT_EQ("-n: text", flag("n", "").toString());
    EXPECT_EQ("--node: text", flag("", "node").toString());
    EXPECT_EQ("-, --: text", flag("", "").toString());
}

TEST(CCommandOption, EqualThroughEitherName) {
    EXPECT_TRUE(flag("n", "node").equal(flag("n", "name")));
    EXPECT_TRUE(flag("a", "x") == flag("b", "x"));
    EXPECT_FALSE(flag("a", "x") == flag("b", "y"));
    EXPECT_FALSE(flag("a", "x") == flag("A", "X"));
}

TEST(CCommandOption, EmptyNamesNeverCollide) {
    EXPECT_FALSE(flag("", "x") == flag("", "y"));
    EXPECT_FALSE(flag("a", "") == flag("b", ""));
    EXPECT_FALSE(flag("", "") == flag("", ""));
}

TEST(CCommandOption, ValueEndsWhereTheNextOptionBegins) {
    EXPECT_EQ("node1 node2", valueOption("n", "").getOptionValue("reset -n node1 node2 -t 3"));
    EXPECT_EQ("disk full", valueOption("m", "").getOptionValue("send -m disk full -x"));
    EXPECT_EQ("node1", valueOption("n", "node").getOptionValue("reset --node node1"));
    EXPECT_EQ("a-b", valueOption("n", "").getOptionValue("reset -n a-b"));
}

TEST(CCommandOption, ValueIsEmptyWhenThereIsNone) {
    EXPECT_EQ("", flag("n", "node").getOptionValue("reset -n node1"));
    EXPECT_EQ("", valueOption("n", "node").getOptionValue("reset -t 3"));
    EXPECT_EQ("", valueOption("n", "node").getOptionValue("reset -n"));
    EXPECT_EQ("", valueOption("n", "node").getOptionValue("reset -n -t 3"));
    EXPECT_EQ("", valueOption("n", "node").getOptionValue("reset -nnode1"));
    EXPECT_EQ("", valueOption("n", "node").getOptionValue(""));
}

TEST(CCommandOption, LongNameIsNotTakenForTheShortOne) {
    EXPECT_EQ("", valueOption("node", "").getOptionValue("reset --node node1"));
}

TEST(CCommandOption, ShortNameAtTheStartOfTheLineDoesNotCount) {
    EXPECT_EQ("", valueOption("n", "").getOptionValue("-n node1"));
}

TEST(CCommandOption, OnlyTheFirstOccurrenceOfANameIsLookedAt) {
    EXPECT_EQ("", valueOption("n", "").getOptionValue("reset -nx -n node1"));
}

TEST(CCommandOption, LongNameWinsOverShortName) {
    EXPECT_EQ("b", valueOption("n", "node").getOptionValue("reset -n a --node b"));
}

TEST(CCommandOption, EmptyNamesMatchNoWord) {
    EXPECT_EQ("", valueOption("", "node").getOptionValue("send - value"));
    std::string line = "send - value";
    EXPECT_FALSE(valueOption("", "node").processOption(&line));
    EXPECT_EQ("send - value", line);
}

TEST(CCommandOption, ProcessingRemovesOptionAndValue) {
    std::string line = "reset -n node1 -x";
    EXPECT_TRUE(valueOption("n", "node").processOption(&line));
    EXPECT_EQ("reset -x", line);
    EXPECT_TRUE(flag("x", "").processOption(&line));
    EXPECT_EQ("reset", line);
    EXPECT_FALSE(flag("x", "").processOption(&line));
    EXPECT_EQ("reset", line);
}

TEST(CCommandOption, ProcessingConsumesEveryOccurrence) {
    std::string line = "reset -n a --node b all -n c";
    EXPECT_TRUE(valueOption("n", "node").processOption(&line));
    EXPECT_EQ("reset all", line);
}

TEST(CCommandOption, ProcessingKeepsQuotedWordsTogether) {
    std::string line = "send \"disk  full\" -f \"a b\" plain";
    EXPECT_TRUE(valueOption("f", "").processOption(&line));
    EXPECT_EQ("send \"disk  full\" plain", line);
}

TEST(CCommandOption, ProcessingCanEmptyTheLine) {
    std::string line = "-x";
    EXPECT_TRUE(flag("x", "").processOption(&line));
    EXPECT_EQ("", line);
}

TEST(CCommandOption, MissingCompulsoryOptionIsRefused) {
    const CCommandOption option("n", "node", OPTION_COMPULSORY, OPTION_WITH_VALUE);
    EXPECT_EQ("Option [-n|--node] must be provided.", refusal(option, "reset -t 3"));
    EXPECT_EQ("Option [-n|--node] must be provided.", refusal(option, ""));
    EXPECT_EQ("accepted", refusal(option, "reset --node x"));
}

TEST(CCommandOption, MissingValueIsRefused) {
    EXPECT_EQ("Option [-n|--node] must have option value.",
              refusal(valueOption("n", "node"), "reset -n"));
    EXPECT_EQ("Option [-n|--node] must have option value.",
              refusal(valueOption("n", "node"), "reset -n -t 5"));
    EXPECT_EQ("Option [-n|--] must have option value.",
              refusal(valueOption("n", ""), "reset -n \"\""));
}
