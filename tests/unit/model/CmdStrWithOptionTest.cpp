#include <ostream>

#include <gtest/gtest.h>

#include "CmdStrWithOption.h"
#include "ConfigErrorCollector.h"
#include "Observed.h"

namespace {

struct Split {
    const char* line;
    const char* command;
    const char* rest;
    Words words;
};

void PrintTo(const Split& split, std::ostream* out) {
    *out << '"' << split.line << '"';
}

}  // namespace

class SynopsisSplit : public testing::TestWithParam<Split> {};

TEST_P(SynopsisSplit, CutsTheLineIntoCommandAndWords) {
    CmdStrWithOption split{std::string(GetParam().line)};
    EXPECT_EQ(GetParam().command, split.getCommand());
    EXPECT_EQ(GetParam().rest, split.getOptionAndValue());
    EXPECT_EQ(GetParam().words, asVector(split.getOptionList()));
}

INSTANTIATE_TEST_SUITE_P(
    CmdStrWithOption, SynopsisSplit,
    testing::Values(
        Split{"reset -n node1", "reset", "-n node1", {"-n", "node1"}},
        Split{"show-log", "", "", {}}, Split{"status", "status", "", {}},
        Split{"  status  ", "status", "", {}}, Split{"", "", "", {}},
        Split{"list node --x a\t b  ", "list node", "--x a\t b", {"--x", "a", "b"}},
        Split{"reset [-a|--all]", "reset", "[-a|--all]", {"[-a|--all]"}},
        Split{"reset [-a|--all] [-b]", "reset", "[-a|--all] [-b]", {"[-a|--all]", "[-b]"}},
        // A brace wins over a bracket wherever it stands.
        Split{"reset [-a|--all] {-n|--node}", "reset [-a|--all]", "{-n|--node}", {"{-n|--node}"}},
        Split{"reset {-n} [-a]", "reset", "{-n} [-a]", {"{-n}", "[-a]"}},
        // The character before a bracket goes, whatever it is.
        Split{"reset{-n}", "rese", "{-n}", {"{-n}"}}, Split{"reset[-a]", "rese", "[-a]", {"[-a]"}},
        Split{"{-n}", "", "{-n}", {"{-n}"}}, Split{"[-a]", "", "[-a]", {"[-a]"}},
        // Only the first hyphen is looked at.
        Split{"-n x", "", "", {}}, Split{"reset - n", "", "", {}},
        Split{"show-log -n x", "", "", {}}, Split{"reset - -n", "", "", {}},
        Split{"reset -n a-b -c", "reset", "-n a-b -c", {"-n", "a-b", "-c"}},
        Split{"reset -", "reset", "-", {"-"}}, Split{"power on", "power on", "", {}},
        Split{"a - b", "", "", {}}, Split{"x[-n]", "", "[-n]", {"[-n]"}},
        Split{"reset [-a|--all]   {-n|--node} \t {-t} ",
              "reset [-a|--all]",
              "{-n|--node} \t {-t}",
              {"{-n|--node}", "{-t}"}}));

TEST(CmdStrWithOption, SortsAnOptionWordByItsDashes) {
    std::string shortName = "s";
    std::string longName = "l";
    checkForShortAndLongOption(&shortName, &longName, "");
    checkForShortAndLongOption(&shortName, &longName, "word");
    checkForShortAndLongOption(&shortName, &longName, " -x");
    EXPECT_EQ("sl", shortName + longName);
    checkForShortAndLongOption(&shortName, &longName, "-x");
    EXPECT_EQ("-xl", shortName + longName);
    checkForShortAndLongOption(&shortName, &longName, "--xx");
    EXPECT_EQ("-x--xx", shortName + longName);
    checkForShortAndLongOption(&shortName, &longName, "-");
    checkForShortAndLongOption(&shortName, &longName, "--");
    EXPECT_EQ("---", shortName + longName);
}

TEST(CmdStrWithOption, TellsValueOptionsByTheirBraces) {
    const CmdStrWithOption any("x");
    EXPECT_TRUE(any.hasValueOptionFormat("{-n|--node}"));
    EXPECT_TRUE(any.hasValueOptionFormat("  {-n}\t"));
    for (const char* other : {"[-a]", " [-a] ", "-a", "", "{-n", "-n}", "{-n]", "[-n}", "{"}) {
        EXPECT_FALSE(any.hasValueOptionFormat(other)) << other;
    }
}

namespace {

struct Names {
    const char* word;
    const char* shortName;
    const char* longName;
};

void PrintTo(const Names& names, std::ostream* out) {
    *out << names.word;
}

}  // namespace

class SynopsisNames : public testing::TestWithParam<Names> {};

TEST_P(SynopsisNames, AreTakenOutOfTheBrackets) {
    std::string shortName = "s";
    std::string longName = "l";
    CmdStrWithOption("x").checkShortLongOptionFormat(&shortName, &longName,
                                                     std::string(GetParam().word));
    EXPECT_EQ(GetParam().shortName, shortName);
    EXPECT_EQ(GetParam().longName, longName);
}

INSTANTIATE_TEST_SUITE_P(
    CmdStrWithOption, SynopsisNames,
    testing::Values(Names{"{-n|--node}", "-n", "--node"}, Names{"[-a|--all]", "-a", "--all"},
                    Names{"[--all]", "s", "--all"}, Names{"[-a]", "-a", "l"}, Names{"-x", "s", "l"},
                    Names{"--long", "s", "l"}, Names{"[|--all]", "s", "--all"},
                    Names{"{-n|}", "-n", "l"}, Names{"[--all|-a]", "-a", "--all"},
                    Names{"[]", "s", "l"}, Names{"{|}", "s", "l"}, Names{"[a|b]", "s", "l"},
                    Names{"[-a|--b|--c]", "-a", "--b|--c"}, Names{"", "s", "l"},
                    Names{"[all]", "s", "l"}, Names{"[-a", "s", "l"}));

namespace {

struct Typed {
    const char* synopsis;
    const char* line;
    bool accepted;
    const char* findings;
};

void PrintTo(const Typed& typed, std::ostream* out) {
    *out << '"' << typed.synopsis << "\" <- \"" << typed.line << '"';
}

}  // namespace

class SynopsisCheck : public testing::TestWithParam<Typed> {};

TEST_P(SynopsisCheck, JudgesTheTypedLine) {
    ConfigErrorCollector errors;
    CmdStrWithOption synopsis{std::string(GetParam().synopsis)};
    EXPECT_EQ(GetParam().accepted,
              synopsis.isExecutableCommand2(std::string(GetParam().line), &errors));
    EXPECT_EQ(GetParam().findings, errors.toString());
    EXPECT_EQ(errors.getSize(static_cast<CONFIGERROR_LEVEL>(2)), errors.getSize());
}

INSTANTIATE_TEST_SUITE_P(
    CmdStrWithOption, SynopsisCheck,
    testing::Values(Typed{"status", "status", true, ""}, Typed{"status", "status -a", false, ""},
                    Typed{"status", "Status", false, ""}, Typed{"reset [-a]", "rese -a", false, ""},
                    Typed{"reset [-a|--all]", "reset -a", true, ""},
                    Typed{"reset [-a|--all]", "reset --all", true, ""},
                    Typed{"reset [-a|--all]", "reset", false,
                          "Error! One option should be provided:\n[-a|--all]\n"},
                    Typed{"reset [-a|--all]", "reset -b", false,
                          "Error! Can not find matched option for [-a|--all]\n"},
                    // Once removed, a second occurrence is an unknown word; so is a value.
                    Typed{"reset [-a|--all]", "reset -a -a", false, ""},
                    Typed{"reset [-a|--all]", "reset -a --all", false, ""},
                    Typed{"reset [-a|--all]", "reset -a x", false, ""},
                    Typed{"reset {-n|--node}", "reset -n node1 node2", true, ""},
                    Typed{"reset {-n|--node}", "reset -n node-1", true, ""},
                    Typed{"reset {-n|--node}", "reset --node", true, ""},
                    Typed{"reset {-n|--node}", "reset -n node1 -x", false, ""},
                    Typed{"reset [-a|--all] {-n|--node}", "reset -a -n node1", true, ""},
                    Typed{"reset [-a|--all] {-n|--node}", "reset -n node1 node2 -a", true, ""},
                    Typed{"reset [-a|--all] {-n|--node}", "reset -n node1", false,
                          "Error! Can not find matched option for [-a|--all]\n"},
                    Typed{"reset [-a] {-n}", "reset -z", false,
                          "Error! Can not find matched option for [-a]\n"
                          "Error! Can not find matched option for {-n}\n"},
                    Typed{"reset [-a|--all] {-n|--node}", "reset --node node1 --all", true, ""},
                    Typed{"reset {-n|--node} [-a|--all]", "reset -a -n x", true, ""},
                    Typed{"reset [-a|--all]", "reset all -a", false, ""},
                    Typed{"reset [-a|--all]", "RESET -a", false, ""},
                    Typed{"reset [-a|--all]", "", false, ""},
                    Typed{"reset [-a|--all]", "reset-a", false, ""},
                    Typed{"reset -x", "reset -x", false,
                          "Error! Can not find matched option for -x\n"},
                    Typed{"reset [-a|--all]", "reset -a -x", false, ""},
                    Typed{"reset {-n} [-a]", "reset -n x y -a", true, ""},
                    Typed{"reset {-n} [-a]", "reset -n x y -a z", false, ""}));

TEST(CmdStrWithOption, EarlierFindingsMakeTheAnswerFalse) {
    ConfigErrorCollector errors;
    errors.addError(0, static_cast<CONFIGERROR_LEVEL>(1), "earlier");
    EXPECT_FALSE(CmdStrWithOption("reset [-a]").isExecutableCommand2("reset -a", &errors));
    EXPECT_EQ(1, errors.getSize());
}

TEST(CmdStrWithOption, CheckingLeavesTheSynopsisAsItWas) {
    CmdStrWithOption synopsis("reset [-a]");
    for (int round = 0; round < 2; ++round) {
        ConfigErrorCollector errors;
        EXPECT_TRUE(synopsis.isExecutableCommand2("reset -a", &errors));
    }
    EXPECT_EQ((Words{"[-a]"}), asVector(synopsis.getOptionList()));
}

TEST(CmdStrWithOption, OptionListIsTheListItself) {
    CmdStrWithOption line("reset -n node1");
    line.getOptionList().pop_back();
    EXPECT_EQ((Words{"-n"}), asVector(line.getOptionList()));
}

TEST(CmdStrWithOption, SeveralMissingOptionsAreNamedOnePerLine) {
    ConfigErrorCollector errors;
    EXPECT_FALSE(
        CmdStrWithOption("reset [-a|--all] {-n|--node}").isExecutableCommand2("reset", &errors));
    ASSERT_EQ(1, errors.getSize());
    EXPECT_EQ("Error! 2 options should be provided:\n[-a|--all]\n{-n|--node}\n", errors.toString());
}
