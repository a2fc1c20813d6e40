#include <gtest/gtest.h>

#include "CConfiguredCommandSet.h"
#include "CNode.h"
#include "CResult.h"
#include "ScriptedClient.h"

namespace {

class CConfiguredCommandSetRun : public testing::Test {
protected:
    CConfiguredCommandSetRun() : set("tools", ""), node("n1", "00:00", "127.0.0.9") {
        ScriptedClient::reset();
        set.addSupportedCommand(new CShellCommand("up", "", "uptime", SCRIPT, SLAVE));
        auto* df = new CShellCommand("df", "", "df -h", SCRIPT_OPT, SLAVE);
        df->addOption(new CCommandOption("p", "path", 0, 1, ""));
        set.addSupportedCommand(df);
        auto* both = new CShellCommand("both", "", "line32", "line64", BUILTIN_OPT, SLAVE);
        both->addOption(new CCommandOption("a", "all", 0, 0, ""));
        set.addSupportedCommand(both);
        auto* echo = new CShellCommand("show", "", "echo shown", DLLFUNCTION_OPT, MASTER);
        echo->addOption(new CCommandOption("t", "text", 0, 1, ""));
        set.addSupportedCommand(echo);
    }

    CResult run(const std::string& command) {
        CResult result;
        set.execute(command, &node, result, 1000);
        return result;
    }

    std::string lineFor(const std::string& command) {
        agent.calls.clear();
        run(command);
        return agent.calls.empty() ? "nothing" : agent.calls.back().commandLine;
    }

    ScriptedClient& agent = ScriptedClient::instance();
    CConfiguredCommandSet set;
    CNode node;
};

}  // namespace

TEST_F(CConfiguredCommandSetRun, StoredNamesRunTheConfiguredLine) {
    EXPECT_EQ("uptime", lineFor("up"));
    EXPECT_EQ("df -h", lineFor("df"));
}

TEST_F(CConfiguredCommandSetRun, OptionsReachTheLineAsTyped) {
    EXPECT_EQ("df -h -p /var  --path \"/a b\"", lineFor("df   -p /var  --path \"/a b\""));
}

TEST_F(CConfiguredCommandSetRun, OptionsReachTheLineOfThePlatform) {
    agent.answer("uname -i", "x86_64\n");
    EXPECT_EQ("line64 --all", lineFor("both --all"));
    agent.answer("uname -i", "i386\n");
    EXPECT_EQ("line32 -a", lineFor("both -a"));
}

TEST_F(CConfiguredCommandSetRun, OptionsReachTheLineOnThisMachine) {
    CResult result;
    set.execute("show -t \"two  blanks\"", nullptr, result, 1000);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ("shown -t two  blanks\n", result.getRunSummary());
}

TEST_F(CConfiguredCommandSetRun, WrongLinesReachNoNode) {
    for (const char* line : {"up -x", "df -x", "df -p", "df /var", "ghost"}) {
        const CResult result = run(line);
        EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
        EXPECT_EQ(std::string("Command \"") + line + "\" is not supported.",
                  result.getRunSummary());
    }
    EXPECT_EQ("Command is empty.", run("").getRunSummary());
    EXPECT_TRUE(agent.calls.empty());
}

TEST_F(CConfiguredCommandSetRun, FailedConnectionBecomesTheSummary) {
    agent.connectFailure = "n1: no route";
    const CResult result = run("df -p /");
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_EQ("n1: no route", result.getRunSummary());
}
