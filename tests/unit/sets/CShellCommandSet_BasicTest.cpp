#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CNode.h"
#include "CNodeGroup.h"
#include "CResult.h"
#include "CShellCommandSet_Basic.h"
#include "CShellCommandSet_FlashBIOS.h"
#include "CShellExecutionContext.h"
#include "CommandChecklist.h"
#include "ScriptedClient.h"
#include "TempDir.h"

namespace {

ExpectedCommand masterRow(const std::string& name, const std::string& description) {
    return {name, description, BUILTIN, MASTER, {}, 0, NO, "", {}};
}

// The context takes the set over, as start-up does.
class BasicSet : public ::testing::Test {
protected:
    void SetUp() override {
        ScriptedClient::reset();
        std::ofstream(file) << "content";
        context.addCommandSet(basic);
    }

    CResult execute(const std::string& line, CNode* target = nullptr) {
        CResult result;
        basic->execute(line, target, result, 5000);
        return result;
    }

    TempDir directory;
    std::string file = directory.file("file");
    ScriptedClient& agent = ScriptedClient::instance();
    CNode node{"n1", "", "127.0.0.1", 4422};
    CShellExecutionContext context;
    CShellCommandSet_Basic* basic = new CShellCommandSet_Basic(&context);  // owned by the context
};

using CShellCommandSet_BasicTest = BasicSet;

}  // namespace

TEST_F(CShellCommandSet_BasicTest, HoldsEveryRowOfItsTable) {
    EXPECT_EQ("BASIC", basic->getCommandSetName());
    EXPECT_EQ("Basic commands for kelsh.", basic->getDescription());
    EXPECT_EQ(0U, basic->getTimeOut());
    EXPECT_EQ(NO, basic->getCommandSetConfirmType());
    EXPECT_EQ("", basic->getCommandSetConfirmMessage());
    expectCommands(*basic,
                   {
                       masterRow("list node", "List all available nodes."),
                       masterRow("list group", "List all available groups."),
                       masterRow("help", "Display all information about usage."),
                       masterRow("--help", "Display all information about usage."),
                       masterRow("??", "Display all information about usage."),
                       masterRow("?", "Display information about usage in the current level."),
                       masterRow("list", "List all available commands in the current level."),
                       masterRow("clear", "Clear the console."),
                       masterRow("quit", "Quit the kelsh."),
                       masterRow("history", "Show the history of command execution."),
                       {"save file",
                        "Save specified file into slave node(s).",
                        BUILTIN_OPT,
                        SLAVE,
                        {{"f", "file", true, true, "The file to be saved in slave node."}},
                        5000,
                        NO,
                        "",
                        {}},
                       {"get file",
                        "Get specified file from a slave node.",
                        BUILTIN_OPT,
                        SLAVE,
                        {{"f", "file", true, true, "The file to be got from slave node."}},
                        5000,
                        NO,
                        "",
                        {}},
                   });
}

TEST_F(CShellCommandSet_BasicTest, ListsNodesInNameOrder) {
    context.getNodeMap()["n2"] = new CNode("n2", "00:11:22:33:44:66", "10.0.0.2", 4422);
    context.getNodeMap()["n1"] = new CNode("n1", "00:11:22:33:44:55", "10.0.0.1", 5000);
    const CResult result = execute("list node");
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ(
        "n1 (MAC: 00:11:22:33:44:55, IP: 10.0.0.1, Port: 5000)\n"
        "n2 (MAC: 00:11:22:33:44:66, IP: 10.0.0.2, Port: 4422)\n"
        "Total: 2",
        result.getRunSummary());
}

TEST_F(CShellCommandSet_BasicTest, EmptyNodeMapIsTheTotalAlone) {
    EXPECT_EQ("Total: 0", execute("list node").getRunSummary());
}

TEST_F(CShellCommandSet_BasicTest, ListsGroupsInFileOrderWithTheirNodes) {
    auto* full = new CNodeGroup("rack");
    auto* empty = new CNodeGroup("empty");
    auto* member = new CNode("n1", "00:11:22:33:44:55", "10.0.0.1");
    context.getNodeMap()["n1"] = member;
    full->addNode(member);
    context.getNodeGroupList().push_back(full);
    context.getNodeGroupList().push_back(empty);
    empty->addGroup(full);  // its nodes are not the group's own
    const CResult result = execute("list group");
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ("rack [1]\nempty [0]\nTotal: 2", result.getRunSummary());
}

TEST_F(CShellCommandSet_BasicTest, NoGroupIsTheTotalAlone) {
    EXPECT_EQ("Total: 0", execute("list group").getRunSummary());
}

TEST_F(CShellCommandSet_BasicTest, EveryHelpWordGivesTheWholeUsage) {
    context.addCommandSet(new CShellCommandSet_FlashBIOS);
    const std::string usage = context.getUsage();
    EXPECT_NE(usage.find("clear cmos checksum"), std::string::npos);
    EXPECT_EQ(usage, execute("help").getRunSummary());
    EXPECT_EQ(usage, execute("--help").getRunSummary());
    EXPECT_EQ(usage, execute("??").getRunSummary());
}

TEST_F(CShellCommandSet_BasicTest, QuestionMarkGivesTheUsageOfTheLevelAlone) {
    context.addCommandSet(new CShellCommandSet_FlashBIOS);
    context.toLowerLevel("biosfw");
    const std::string usage = execute("?").getRunSummary();
    EXPECT_EQ(usage, context.getCWLUsage());
    EXPECT_NE(usage.find("clear cmos checksum"), std::string::npos);
    EXPECT_EQ(std::string::npos, usage.find("list node"));
    EXPECT_NE(usage, execute("??").getRunSummary());
}

TEST_F(CShellCommandSet_BasicTest, ListGivesTheWorkingLevel) {
    context.addCommandSet(new CShellCommandSet_FlashBIOS);
    const CResult result = execute("list");
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ(result.getRunSummary(), context.listWorkingCommandSet());
    EXPECT_NE(result.getRunSummary().find("[biosfw]   "), std::string::npos);
}

TEST_F(CShellCommandSet_BasicTest, ClearRunsTheSystemCommand) {
    const std::string path = std::getenv("PATH");
    ASSERT_EQ(0, std::system(("printf '#!/bin/sh\\necho cleared\\n' > " + directory.file("clear") +
                              " && chmod +x " + directory.file("clear"))
                                 .c_str()));
    setenv("PATH", (directory.path() + ":" + path).c_str(), 1);
    testing::internal::CaptureStdout();
    const CResult result = execute("clear");
    const std::string printed = testing::internal::GetCapturedStdout();
    setenv("PATH", path.c_str(), 1);
    EXPECT_EQ("cleared\n", printed);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ("", result.getRunSummary());
}

TEST_F(CShellCommandSet_BasicTest, QuitHistoryAndUnknownLinesLeaveTheResultUntouched) {
    for (const char* line : {"quit", "history", "list nodes", "help me", "save file", ""}) {
        CResult result;
        result.setRunStatus(EXEC_REJECTED);
        result.setRunSummary("untouched");
        basic->execute(line, nullptr, result, 1000);
        EXPECT_EQ(EXEC_REJECTED, result.getRunStatus()) << line;
        EXPECT_EQ("untouched", result.getRunSummary()) << line;
    }
}

TEST_F(CShellCommandSet_BasicTest, SaveOfAFileThatTheMasterLacksSendsNothing) {
    const CResult result = execute("save file -f \"/no such/file\"", &node);
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_EQ("File \"/no such/file\" does not exist!", result.getRunSummary());
    EXPECT_TRUE(agent.requests.empty());
}

TEST_F(CShellCommandSet_BasicTest, SavePassesTheAgentsAnswerOn) {
    agent.answer("[savefile]" + file, "stored");
    const CResult saved = execute("save file -f " + file, &node);
    EXPECT_EQ(EXEC_SUCCESS, saved.getRunStatus());
    EXPECT_EQ("stored", saved.getRunSummary());
    agent.answer("[savefile]" + file, "disk full", 1);
    const CResult failed = execute("save file --file " + file, &node);
    EXPECT_EQ(EXEC_FAILURE, failed.getRunStatus());
    EXPECT_EQ("disk full", failed.getRunSummary());
    EXPECT_EQ((std::vector<unsigned int>{5000, 5000}), agent.timeOutsMs);
}

TEST_F(CShellCommandSet_BasicTest, GetOfANewFileIsTheAgentsAnswerAndANewline) {
    agent.answer("[getfile]" + file + ".new", "fetched");
    const CResult result = execute("get file -f " + file + ".new", &node);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ("fetched\n", result.getRunSummary());
}

TEST_F(CShellCommandSet_BasicTest, GetOfAnExistingFileSaysThatItIsReplaced) {
    agent.answer("[getfile]" + file, "fetched");
    const CResult result = execute("get file -f \"" + file + "\"", &node);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ("File \"" + file +
                  "\" already exists in local site!\nfetched\n"
                  "Over write the original file.\n",
              result.getRunSummary());
}

TEST_F(CShellCommandSet_BasicTest, FailedGetOfAnExistingFileDoesNotSayThatItIsReplaced) {
    agent.answer("[getfile]" + file, "no such file", 1);
    const CResult result = execute("get file -f " + file, &node);
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_EQ("File \"" + file + "\" already exists in local site!\nno such file\n",
              result.getRunSummary());
}

TEST_F(CShellCommandSet_BasicTest, FailedConnectionIsAFailureWithItsReason) {
    agent.connectFailure = "node n1: connection refused";
    const CResult saved = execute("save file -f " + file, &node);
    EXPECT_EQ(EXEC_FAILURE, saved.getRunStatus());
    EXPECT_EQ("node n1: connection refused", saved.getRunSummary());
    const CResult got = execute("get file -f " + file, &node);
    EXPECT_EQ(EXEC_FAILURE, got.getRunStatus());
    EXPECT_EQ("File \"" + file +
                  "\" already exists in local site!\n"
                  "node n1: connection refused\n",
              got.getRunSummary());
}

TEST_F(CShellCommandSet_BasicTest, NamesWithBlanksAndQuotesReachTheAgentAsTheyAre) {
    for (const char* name : {"a b", "it's", "a\"b", "\"a\"", "gr\xc3\xbc\xc3\x9f", "two  blanks"}) {
        const std::string path = directory.file(name);
        std::ofstream(path) << "x";
        agent.requests.clear();
        execute("save file -f \"" + path + "\"", &node);
        EXPECT_EQ((std::vector<std::string>{"run: [savefile]" + path}), agent.requests);
    }
}

TEST_F(CShellCommandSet_BasicTest, FileCommandWithoutANodeFails) {
    EXPECT_EQ(EXEC_FAILURE, execute("save file -f " + file).getRunStatus());
    EXPECT_EQ(EXEC_FAILURE, execute("get file -f " + file).getRunStatus());
}
