#include <gtest/gtest.h>

#include "CNodeSession.h"
#include "CResult.h"
#include "CUtil.h"
#include "PathText.h"

TEST(CNodeSession, NeedsANode) {
    EXPECT_THROW(CNodeSession(nullptr, 1000), CException);
}

TEST(CNodeSession, PathLosesOneEnclosingPairOfQuotes) {
    EXPECT_EQ("/tmp/a", pathtext::unquote("/tmp/a"));
    EXPECT_EQ("/tmp/a b", pathtext::unquote("\"/tmp/a b\""));
    EXPECT_EQ("\"/tmp/a\"", pathtext::unquote("\"\"/tmp/a\"\""));
    EXPECT_EQ("\"/tmp/a", pathtext::unquote("\"/tmp/a"));
    EXPECT_EQ("/tmp/a\"", pathtext::unquote("/tmp/a\""));
    EXPECT_EQ("\"", pathtext::unquote("\""));
    EXPECT_EQ("", pathtext::unquote("\"\""));
    EXPECT_EQ("", pathtext::unquote(""));
}

TEST(CNodeSession, PathIsQuotedAgainOnlyWhereItMust) {
    EXPECT_EQ("/tmp/a", pathtext::optionValue("/tmp/a"));
    EXPECT_EQ("\"/tmp/a b\"", pathtext::optionValue("/tmp/a b"));
    EXPECT_EQ("\"/tmp/a\nb\"", pathtext::optionValue("/tmp/a\nb"));
    EXPECT_EQ("/tmp/a\"b", pathtext::optionValue("/tmp/a\"b"));
    EXPECT_EQ("\"\"a\"\"", pathtext::optionValue("\"a\""));
    for (const char* path : {"/tmp/a", "/tmp/a b", "\"a\"", "\"", "/tmp/ \"x\" y", " ", "/t\tx"}) {
        EXPECT_EQ(path, pathtext::unquote(pathtext::optionValue(path)));
    }
}

TEST(CNodeSession, OrdinaryNamesStandInAShellLineAsTheyAre) {
    const std::string plain =
        "/opt/ABCDEFGHIJKLMNOPQRSTUVWXYZ/abcdefghijklmnopqrstuvwxyz/0123456789_./:=,+@%-";
    EXPECT_EQ(plain, pathtext::shellWord(plain));
}

TEST(CNodeSession, OtherNamesReachTheProgramUnchanged) {
    for (const std::string name :
         {"/tmp/a b", "/tmp/it's", "/tmp/$(reboot)", "/tmp/`id`", "/tmp/a;b", "/tmp/a\"b",
          "/tmp/a\nb", "/tmp/\xc3\xbc", "~root", "*", "", "a\\b", "#", "'"}) {
        std::string shown;
        EXPECT_EQ(0, CUtil::exec_cmd("printf '%s.' " + pathtext::shellWord(name), &shown));
        EXPECT_EQ(name + ".", shown);
    }
}

TEST(CNodeSession, DirectoryIsThePartBeforeTheLastSlash) {
    EXPECT_EQ("/tmp/a", pathtext::directoryOf("/tmp/a/b.bin"));
    EXPECT_EQ("/", pathtext::directoryOf("/b.bin"));
}

TEST(CNodeSession, ConclusionKeepsWhatTheRunSaidBesideTheMessage) {
    CResult run;
    run.setExitCode(3);
    run.setRunSummary("insmod: File exists\n");
    CResult result;
    conclude(result, run, EXEC_FAILURE, "Failed.");
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_EQ("Failed.", result.getRunSummary());
    EXPECT_EQ(3, result.getExitCode());
    EXPECT_EQ("insmod: File exists\n", result.getExitOutput());
}
