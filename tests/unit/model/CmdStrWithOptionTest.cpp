#include <gtest/gtest.h>

#include "CmdStrWithOption.h"
#include "ConfigErrorCollector.h"

namespace {

using Words = std::list<std::string>;

struct Verdict {
    bool accepted;
    std::string findings;
};

Verdict check(const std::string& synopsis, const std::string& typed) {
    ConfigErrorCollector errors;
    const bool accepted = CmdStrWithOption(synopsis).isExecutableCommand2(typed, &errors);
    EXPECT_EQ(errors.getSize(), errors.getSize(CONFIG_ERROR));
    return {accepted, errors.toString()};
}

void expectNames(const std::string& word, const std::string& shortName,
                 const std::string& longName) {
    std::string foundShort = "untouched";
    std::string foundLong = "untouched";
    CmdStrWithOption("").checkShortLongOptionFormat(&foundShort, &foundLong, word);
    EXPECT_EQ(shortName, foundShort) << word;
    EXPECT_EQ(longName, foundLong) << word;
}

}  // namespace

TEST(CmdStrWithOption, SplitsATypedLine) {
    CmdStrWithOption line("reset -n node1");
    EXPECT_EQ("reset", line.getCommand());
    EXPECT_EQ("-n node1", line.getOptionAndValue());
    EXPECT_EQ((Words{"-n", "node1"}), line.getOptionList());
}

TEST(CmdStrWithOption, LineWithoutDashIsAllCommand) {
    EXPECT_EQ("status", CmdStrWithOption("  status ").getCommand());
    EXPECT_TRUE(CmdStrWithOption("status").getOptionList().empty());
    EXPECT_EQ("power on", CmdStrWithOption("power on").getCommand());
    EXPECT_EQ("", CmdStrWithOption("").getCommand());
}

TEST(CmdStrWithOption, DashInsideAWordEmptiesTheCommand) {
    for (const char* text : {"show-log", "show-log -n a", "-n a", "a - b"}) {
        EXPECT_EQ("", CmdStrWithOption(text).getCommand()) << text;
        EXPECT_EQ("", CmdStrWithOption(text).getOptionAndValue()) << text;
        EXPECT_TRUE(CmdStrWithOption(text).getOptionList().empty()) << text;
    }
}

TEST(CmdStrWithOption, SplitsASynopsis) {
    CmdStrWithOption synopsis("reset [-a|--all]");
    EXPECT_EQ("reset", synopsis.getCommand());
    EXPECT_EQ((Words{"[-a|--all]"}), synopsis.getOptionList());
}

TEST(CmdStrWithOption, BraceIsTheFirstPlaceToSplit) {
    CmdStrWithOption synopsis("reset [-a|--all]   {-n|--node} \t {-t} ");
    EXPECT_EQ("reset [-a|--all]", synopsis.getCommand());
    EXPECT_EQ("{-n|--node} \t {-t}", synopsis.getOptionAndValue());
    EXPECT_EQ((Words{"{-n|--node}", "{-t}"}), synopsis.getOptionList());
}

TEST(CmdStrWithOption, CharacterInFrontOfTheBracketIsDropped) {
    EXPECT_EQ("rese", CmdStrWithOption("reset{-n}").getCommand());
    EXPECT_EQ("", CmdStrWithOption("[-n]").getCommand());
    EXPECT_EQ("", CmdStrWithOption("x[-n]").getCommand());
}

TEST(CmdStrWithOption, OptionListIsTheListItself) {
    CmdStrWithOption line("reset -n node1");
    line.getOptionList().pop_back();
    EXPECT_EQ((Words{"-n"}), line.getOptionList());
}

TEST(CmdStrWithOption, StoresOptionWordsByTheirDashes) {
    std::string shortName;
    std::string longName;
    checkForShortAndLongOption(&shortName, &longName, "");
    checkForShortAndLongOption(&shortName, &longName, "node");
    EXPECT_EQ("", shortName + longName);
    checkForShortAndLongOption(&shortName, &longName, "-n");
    checkForShortAndLongOption(&shortName, &longName, "--node");
    EXPECT_EQ("-n", shortName);
    EXPECT_EQ("--node", longName);
    checkForShortAndLongOption(&shortName, &longName, "-");
    EXPECT_EQ("-", shortName);
}

TEST(CmdStrWithOption, BracesMeanAValue) {
    const CmdStrWithOption line("");
    EXPECT_TRUE(line.hasValueOptionFormat("{-n|--node}"));
    EXPECT_TRUE(line.hasValueOptionFormat(" {-n} "));
    EXPECT_FALSE(line.hasValueOptionFormat("[-n|--node]"));
    for (const char* word : {"", "-n", "{", "}", "{-n]", "{-n", "-n}"}) {
        EXPECT_FALSE(line.hasValueOptionFormat(word)) << word;
    }
}

TEST(CmdStrWithOption, FindsTheNamesInASynopsisWord) {
    expectNames("{-n|--node}", "-n", "--node");
    expectNames("[--all|-a]", "-a", "--all");
    expectNames("[--all]", "untouched", "--all");
    expectNames("[-a]", "-a", "untouched");
    expectNames("[|--all]", "untouched", "--all");
    expectNames("{-a|}", "-a", "untouched");
    expectNames("-x", "untouched", "untouched");
    expectNames("[]", "untouched", "untouched");
    expectNames("[all]", "untouched", "untouched");
    expectNames("[-a", "untouched", "untouched");
    expectNames("", "untouched", "untouched");
}

TEST(CmdStrWithOption, AcceptsACompleteLine) {
    const std::string synopsis = "reset [-a|--all] {-n|--node}";
    EXPECT_TRUE(check(synopsis, "reset -a -n node1 node2").accepted);
    EXPECT_TRUE(check(synopsis, "reset --node node1 --all").accepted);
    EXPECT_EQ("", check(synopsis, "reset --node node1 --all").findings);
    EXPECT_TRUE(check("reset {-n|--node} [-a|--all]", "reset -a -n x").accepted);
}

TEST(CmdStrWithOption, AnotherCommandIsRefusedWithoutAFinding) {
    for (const char* typed : {"rese -a", "reset all -a", "RESET -a", "", "reset-a"}) {
        EXPECT_FALSE(check("reset [-a|--all]", typed).accepted) << typed;
        EXPECT_EQ("", check("reset [-a|--all]", typed).findings) << typed;
    }
}

TEST(CmdStrWithOption, OneMissingOptionIsNamed) {
    const Verdict verdict = check("reset [-a|--all]", "reset");
    EXPECT_FALSE(verdict.accepted);
    EXPECT_EQ("Error! One option should be provided:\n[-a|--all]\n", verdict.findings);
}

TEST(CmdStrWithOption, SeveralMissingOptionsAreNamedOnePerLine) {
    const Verdict verdict = check("reset [-a|--all] {-n|--node}", "reset");
    EXPECT_FALSE(verdict.accepted);
    EXPECT_EQ("Error! 2 options should be provided:\n[-a|--all]\n{-n|--node}\n", verdict.findings);
}

TEST(CmdStrWithOption, EachUnmatchedOptionIsReported) {
    const Verdict verdict = check("reset [-a|--all] {-n|--node}", "reset -x");
    EXPECT_FALSE(verdict.accepted);
    EXPECT_EQ(
        "Error! Can not find matched option for [-a|--all]\n"
        "Error! Can not find matched option for {-n|--node}\n",
        verdict.findings);
    EXPECT_EQ("Error! Can not find matched option for -x\n",
              check("reset -x", "reset -x").findings);
}

TEST(CmdStrWithOption, LeftOverWordsAreRefused) {
    for (const char* typed : {"reset -a -x", "reset -a -a", "reset -a word"}) {
        EXPECT_FALSE(check("reset [-a|--all]", typed).accepted) << typed;
        EXPECT_EQ("", check("reset [-a|--all]", typed).findings) << typed;
    }
}

TEST(CmdStrWithOption, ValueEndsAtTheNextOption) {
    EXPECT_TRUE(check("reset {-n} [-a]", "reset -n x y -a").accepted);
    EXPECT_FALSE(check("reset {-n} [-a]", "reset -n x y -a z").accepted);
}

TEST(CmdStrWithOption, SynopsisWithoutOptionsTakesNone) {
    EXPECT_TRUE(check("status", "status").accepted);
    EXPECT_FALSE(check("status", "status -a").accepted);
}

TEST(CmdStrWithOption, EarlierFindingsKeepTheLineFromBeingAccepted) {
    ConfigErrorCollector errors;
    errors.addError(0, "earlier");
    EXPECT_FALSE(CmdStrWithOption("reset [-a]").isExecutableCommand2("reset -a", &errors));
    EXPECT_EQ(1, errors.getSize());
}
