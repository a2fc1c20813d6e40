#include <gtest/gtest.h>

#include "CNodeSession.h"
#include "CResult.h"
#include "CUtil.h"
#include "PathText.h"

TEST(CNodeSession, NeedsANode) {
    EXPECT_THROW(CNodeSession(nullptr, 1000), CException);
}

TEST(CNodeSession, PathLosesOneEnclosingPairOfQuotes) {
    EXPECT_EQ(pathtext::unquote("/tmp/a"), "/tmp/a");
    EXPECT_EQ(pathtext::unquote("\"/tmp/a b\""), "/tmp/a b");
    EXPECT_EQ(pathtext::unquote("\"\"/tmp/a\"\""), "\"/tmp/a\"");
    EXPECT_EQ(pathtext::unquote("\"/tmp/a"), "\"/tmp/a");
    EXPECT_EQ(pathtext::unquote("/tmp/a\""), "/tmp/a\"");
    EXPECT_EQ(pathtext::unquote("\""), "\"");
    EXPECT_EQ(pathtext::unquote("\"\""), "");
    EXPECT_EQ(pathtext::unquote(""), "");
}

TEST(CNodeSession, PathIsQuotedAgainOnlyWhereItMust) {
    EXPECT_EQ(pathtext::optionValue("/tmp/a"), "/tmp/a");
    EXPECT_EQ(pathtext::optionValue("/tmp/a b"), "\"/tmp/a b\"");
    EXPECT_EQ(pathtext::optionValue("/tmp/a\nb"), "\"/tmp/a\nb\"");
    EXPECT_EQ(pathtext::optionValue("/tmp/a\"b"), "/tmp/a\"b");
    EXPECT_EQ(pathtext::optionValue("\"a\""), "\"\"a\"\"");
    for (const char* path : {"/tmp/a", "/tmp/a b", "\"a\"", "\"", "/tmp/ \"x\" y", " ", "/t\tx"}) {
        EXPECT_EQ(pathtext::unquote(pathtext::optionValue(path)), path);
    }
}

TEST(CNodeSession, OrdinaryNamesStandInAShellLineAsTheyAre) {
    const std::string plain =
        "/opt/ABCDEFGHIJKLMNOPQRSTUVWXYZ/abcdefghijklmnopqrstuvwxyz/0123456789_./:=,+@%-";
    EXPECT_EQ(pathtext::shellWord(plain), plain);
}

TEST(CNodeSession, OtherNamesReachTheProgramUnchanged) {
    for (const std::string name :
         {"/tmp/a b", "/tmp/it's", "/tmp/$(reboot)", "/tmp/`id`", "/tmp/a;b", "/tmp/a\"b",
          "/tmp/a\nb", "/tmp/\xc3\xbc", "~root", "*", "", "a\\b", "#", "'"}) {
        std::string shown;
        EXPECT_EQ(CUtil::exec_cmd("printf '%s.' " + pathtext::shellWord(name), &shown), 0);
        EXPECT_EQ(shown, name + ".");
    }
}

TEST(CNodeSession, DirectoryIsThePartBeforeTheLastSlash) {
    EXPECT_EQ(pathtext::directoryOf("/tmp/a/b.bin"), "/tmp/a");
    EXPECT_EQ(pathtext::directoryOf("/b.bin"), "/");
}

TEST(CNodeSession, ConclusionKeepsWhatTheRunSaidBesideTheMessage) {
    CResult run;
    run.setExitCode(3);
    run.setRunSummary("insmod: File exists\n");
    CResult result;
    conclude(result, run, EXEC_FAILURE, "Failed.");
    EXPECT_EQ(result.getRunStatus(), EXEC_FAILURE);
    EXPECT_EQ(result.getRunSummary(), "Failed.");
    EXPECT_EQ(result.getExitCode(), 3);
    EXPECT_EQ(result.getExitOutput(), "insmod: File exists\n");
}
