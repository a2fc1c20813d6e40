#include <memory>
#include <ostream>

#include <gtest/gtest.h>

#include "CAlreadyExistException.h"
#include "CCommandOption.h"
#include "CException.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "ConfigErrorCollector.h"
#include "Observed.h"

namespace {

constexpr auto kOptional = static_cast<COMMAND_OPTION_COMPULSORY_TYPE>(0);
constexpr auto kCompulsory = static_cast<COMMAND_OPTION_COMPULSORY_TYPE>(1);
constexpr auto kBare = static_cast<COMMAND_OPTION_VALUE_TYPE>(0);
constexpr auto kValued = static_cast<COMMAND_OPTION_VALUE_TYPE>(1);

CCommandOption named(std::string shortName, std::string longName) {
    return {shortName, longName, kOptional, kBare, "d"};
}

struct ValueCase {
    const char* shortName;
    const char* longName;
    const char* line;
    const char* value;
};

void PrintTo(const ValueCase& value, std::ostream* out) {
    *out << value.shortName << '|' << value.longName << " in \"" << value.line << '"';
}

}  // namespace

TEST(CCommandOption, EqualsThroughOneNonEmptyName) {
    EXPECT_TRUE(named("n", "node").equal(named("n", "name")));
    EXPECT_TRUE(named("a", "x").equal(named("b", "x")));
    EXPECT_FALSE(named("a", "x").equal(named("b", "y")));
    EXPECT_FALSE(named("", "x").equal(named("", "y")));
    EXPECT_FALSE(named("a", "").equal(named("b", "")));
    EXPECT_FALSE(named("", "").equal(named("", "")));
    EXPECT_FALSE(named("n", "").equal(named("", "n")));
    EXPECT_FALSE(named("n", "").equal(named("N", "")));
    EXPECT_TRUE(named("n", "node") == named("n", "name"));
    EXPECT_FALSE(named("", "x") == named("", "y"));
}

TEST(CCommandOption, PrintsItsHelpLine) {
    const auto line = [](const char* s, const char* l, const char* d) {
        return CCommandOption(s, l, kOptional, kBare, d).toString();
    };
    EXPECT_EQ("-n, --node: Target node", line("n", "node", "Target node"));
    EXPECT_EQ("-n: T", line("n", "", "T"));
    EXPECT_EQ("--node: T", line("", "node", "T"));
    EXPECT_EQ("-, --: T", line("", "", "T"));
    EXPECT_EQ("-n, --node: ", line("n", "node", ""));
}

class OptionValue : public testing::TestWithParam<ValueCase> {};

TEST_P(OptionValue, IsTheTextUpToTheNextOption) {
    const ValueCase& value = GetParam();
    const CCommandOption option(value.shortName, value.longName, kOptional, kValued);
    EXPECT_EQ(value.value, option.getOptionValue(std::string(value.line)));
}

INSTANTIATE_TEST_SUITE_P(
    CCommandOption, OptionValue,
    testing::Values(
        ValueCase{"n", "", "reset -n node1 node2 -t 3", "node1 node2"},
        ValueCase{"m", "", "send -m disk full -x", "disk full"},
        ValueCase{"m", "", "send -m   disk   full  ", "disk   full"},
        ValueCase{"n", "node", "reset -t 3", ""}, ValueCase{"n", "node", "", ""},
        // The short name counts neither at the very start nor at the end, nor glued to its value.
        ValueCase{"n", "", "-n node1", ""}, ValueCase{"n", "", "reset -n", ""},
        ValueCase{"n", "", "reset -nnode1", ""}, ValueCase{"n", "", "reset -n\tnode1", ""},
        // Nor does its first occurrence inside another word lead on to the next.
        ValueCase{"n", "", "reset --n node1", ""}, ValueCase{"n", "", "reset --name x -n y", ""},
        ValueCase{"n", "", "reset -nx -n y", ""},
        // Something other than a dash may stand before it.
        ValueCase{"n", "", "a-n x", "x"},
        // The long name counts at the start, and replaces the short one.
        ValueCase{"n", "node", "--node x", "x"}, ValueCase{"n", "node", "r -n a --node b", "b"},
        ValueCase{"n", "node", "r --node b -n a", "b"}, ValueCase{"n", "node", "r --nodes b", ""},
        ValueCase{"n", "node", "r --node", ""}, ValueCase{"n", "node", "r -n a --node", "a"},
        ValueCase{"n", "node", "r --nodes a --node b", ""},
        // A value that begins like an option is no value.
        ValueCase{"n", "", "reset -n -t 3", ""}, ValueCase{"n", "node", "r -n a --node -x", ""},
        ValueCase{"n", "", "reset -n a-b --c", "a-b"},
        ValueCase{"f", "file", "save file -f /tmp/a b.txt", "/tmp/a b.txt"},
        ValueCase{"n", "node", "reset --node node1", "node1"},
        ValueCase{"n", "node", "reset -n", ""}, ValueCase{"n", "node", "reset -n -t 3", ""},
        ValueCase{"node", "", "reset --node node1", ""}));

TEST(CCommandOption, HasNoValueWhenItTakesNone) {
    const CCommandOption option("n", "node", kCompulsory, kBare);
    EXPECT_EQ("", option.getOptionValue("reset -n x"));
    EXPECT_EQ("", option.getOptionValue("reset --node x"));
}

namespace {

struct Removal {
    CCommandOption option;
    const char* line;
    bool present;
    const char* rest;
    const char* fault;
};

void PrintTo(const Removal& removal, std::ostream* out) {
    *out << removal.option.toString() << " from \"" << removal.line << '"';
}

const CCommandOption kFlag("a", "all", kOptional, kBare);
const CCommandOption kNode("n", "node", kOptional, kValued);
const CCommandOption kMust("f", "file", kCompulsory, kValued);
const char* const kNoValue = "Option [-n|--node] must have option value.";

}  // namespace

class OptionRemoval : public testing::TestWithParam<Removal> {};

TEST_P(OptionRemoval, TakesTheOptionAndItsValueOutOfTheLine) {
    const Removal& removal = GetParam();
    std::string line = removal.line;
    try {
        EXPECT_EQ(removal.present, CCommandOption(removal.option).processOption(&line));
        EXPECT_STREQ("", removal.fault);
        EXPECT_EQ(removal.rest, line);
    } catch (const CException& fault) {
        EXPECT_EQ(removal.fault, fault.getErrMsg());
        EXPECT_EQ(removal.line, line);
    }
}

INSTANTIATE_TEST_SUITE_P(
    CCommandOption, OptionRemoval,
    testing::Values(
        Removal{kFlag, "reset -a", true, "reset", ""},
        Removal{kFlag, "reset --all x", true, "reset x", ""},
        Removal{kFlag, "reset -a x --all -a y", true, "reset x y", ""},
        Removal{kFlag, "  reset   x  ", false, "reset x", ""}, Removal{kFlag, "", false, "", ""},
        Removal{kFlag, "-a", true, "", ""}, Removal{kFlag, "reset -A", false, "reset -A", ""},
        Removal{kFlag, "reset -ab --all=1", false, "reset -ab --all=1", ""},
        Removal{kFlag, "send \"two words\" \"one\"", false, "send \"two words\" one", ""},
        Removal{kNode, "reset -n x -b", true, "reset -b", ""},
        Removal{kNode, "reset -n x y", true, "reset y", ""},
        Removal{kNode, "reset -n \"x y\" z", true, "reset z", ""},
        Removal{kNode, "reset -n a --node b -n c", true, "reset", ""},
        Removal{kNode, "reset -n a --node b all -n c", true, "reset all", ""},
        Removal{kNode, "send \"disk  full\" -n \"a b\" plain", true, "send \"disk  full\" plain",
                ""},
        Removal{kMust, "", false, "", "Option [-f|--file] must be provided."},
        Removal{CCommandOption("n", "", kOptional, kValued), "reset -n \"\"", false, "",
                "Option [-n|--] must have option value."},
        Removal{kNode, "reset -n", false, "", kNoValue},
        Removal{kNode, "reset --node", false, "", kNoValue},
        Removal{kNode, "reset -n -t 5", false, "", kNoValue},
        Removal{kNode, "reset -n -n", false, "", kNoValue},
        Removal{kNode, "reset -n -", false, "", kNoValue},
        Removal{kNode, "reset -n \"\"", false, "", kNoValue},
        Removal{kNode, "reset -n \"-x\"", false, "", kNoValue},
        Removal{kNode, "reset -n x --node", false, "", kNoValue},
        Removal{kNode, "reset x", false, "reset x", ""},
        Removal{kMust, "save x", false, "", "Option [-f|--file] must be provided."},
        Removal{kMust, "save -f", false, "", "Option [-f|--file] must have option value."},
        Removal{kMust, "save --file /x", true, "save", ""},
        Removal{CCommandOption("f", "", kCompulsory, kBare), "save", false, "",
                "Option [-f|--] must be provided."},
        Removal{CCommandOption("", "file", kCompulsory, kBare), "save", false, "",
                "Option [-|--file] must be provided."}));

TEST(CCommandOption, KeepsWhatItIsGiven) {
    CCommandOption option("n", "node", OPTION_COMPULSORY, OPTION_WITHOUT_VALUE);
    EXPECT_EQ("n", option.getShortOptName());
    EXPECT_EQ("node", option.getLongOptName());
    EXPECT_TRUE(option.getIsCompulsory());
    EXPECT_FALSE(option.getHasOptValue());
    EXPECT_EQ("", option.getDescription());
    option.setDescription("Target node");
    EXPECT_EQ("Target node", option.getDescription());
    EXPECT_FALSE(named("n", "node").getIsCompulsory());
}

TEST(CCommandOption, AnyTypeButZeroCountsAsSet) {
    const CCommandOption option("n", "node", 7, -1, "");
    EXPECT_TRUE(option.getIsCompulsory());
    EXPECT_TRUE(option.getHasOptValue());
}

TEST(CCommandOption, EmptyNamesMatchNoWord) {
    EXPECT_EQ("", CCommandOption("", "node", kOptional, kValued).getOptionValue("send - value"));
    std::string line = "send - value";
    EXPECT_FALSE(CCommandOption("", "node", kOptional, kValued).processOption(&line));
    EXPECT_EQ("send - value", line);
}
