#include <sys/stat.h>

#include "AgentsByAddress.h"
#include "CNode.h"
#include "CNodeGroup.h"
#include "CResult.h"
#include "CShellCommandSet_Basic.h"
#include "CShellExecutionContext.h"
#include "ConfigFiles.h"
#include "Contract.h"
#include "ScopedEnvironment.h"
#include "TempDir.h"

namespace {

struct Row {
    const char* name;
    const char* description;
    COMMAND_TYPE type;
    EXECUTE_DESTINATION destination;
    unsigned timeOut;
    const char* option;  // description of -f / --file
};

const Row kTable[] = {
    {"list node", "List all available nodes.", BUILTIN, MASTER, 0, nullptr},
    {"list group", "List all available groups.", BUILTIN, MASTER, 0, nullptr},
    {"help", "Display all information about usage.", BUILTIN, MASTER, 0, nullptr},
    {"--help", "Display all information about usage.", BUILTIN, MASTER, 0, nullptr},
    {"??", "Display all information about usage.", BUILTIN, MASTER, 0, nullptr},
    {"?", "Display information about usage in the current level.", BUILTIN, MASTER, 0, nullptr},
    {"list", "List all available commands in the current level.", BUILTIN, MASTER, 0, nullptr},
    {"clear", "Clear the console.", BUILTIN, MASTER, 0, nullptr},
    {"quit", "Quit the kelsh.", BUILTIN, MASTER, 0, nullptr},
    {"history", "Show the history of command execution.", BUILTIN, MASTER, 0, nullptr},
    {"save file", "Save specified file into slave node(s).", BUILTIN_OPT, SLAVE, 5000,
     "The file to be saved in slave node."},
    {"get file", "Get specified file from a slave node.", BUILTIN_OPT, SLAVE, 5000,
     "The file to be got from slave node."},
};

class BasicSet : public testing::Test {
protected:
    BasicSet() {
        AgentsByAddress::reset();
        context.addCommandSet(basic);
        auto* tools = new CShellCommandSet("tools", "Site tools");
        tools->addSupportedCommand(new CShellCommand("up", "d", "x", SCRIPT, SLAVE));
        context.addCommandSet(tools);
    }
    CResult execute(std::string line, CNode* target = nullptr) {
        CResult result;
        result.setRunStatus(1);
        basic->execute(line, target, result, 5000U);
        return result;
    }
    // The text of a command that succeeds.
    std::string shown(const std::string& line) {
        const CResult result = execute(line);
        EXPECT_EQ(result.getRunStatus(), 0) << line;
        return result.getRunSummary();
    }

    CShellExecutionContext context;
    CShellCommandSet_Basic* basic = new CShellCommandSet_Basic(&context);
    CNode node{"n1", "M", "10.0.0.1"};
    TempDir directory;
};

}  // namespace

TEST_F(BasicSet, HoldsItsTable) {
    EXPECT_EQ(basic->getCommandSetName(), "BASIC");
    EXPECT_EQ(basic->getDescription(), "Basic commands for kelsh.");
    EXPECT_EQ(basic->getCommandSetConfirmType(), 0);
    EXPECT_EQ(basic->getTimeOut(), 0U);
    EXPECT_EQ(basic->getPath(), "");
    EXPECT_EQ(basic->getSupportedCommands().size(), std::size(kTable));
    for (const Row& row : kTable) {
        ASSERT_TRUE(basic->isSupported(row.name)) << row.name;
        const CShellCommand& command = *basic->getSupportedCommands().at(row.name);
        EXPECT_EQ(command.getDescription(), row.description);
        EXPECT_EQ(command.getType(), row.type) << row.name;
        EXPECT_EQ(command.getDestination(), row.destination) << row.name;
        EXPECT_EQ(command.getTimeOut(), row.timeOut) << row.name;
        EXPECT_EQ(command.getCommand() + command.get32Command() + command.get64Command(), "");
        EXPECT_EQ(command.getCommandConfirmType(), 0) << row.name;
        EXPECT_TRUE(command.getExamples().empty()) << row.name;
        ASSERT_EQ(command.getOptions().size(), row.option == nullptr ? 0U : 1U) << row.name;
        if (row.option != nullptr) {
            const CCommandOption& option = *command.getOptions().front();
            EXPECT_EQ(option.toString(), std::string("-f, --file: ") + row.option);
            EXPECT_TRUE(option.getIsCompulsory());
            EXPECT_TRUE(option.getHasOptValue());
        }
    }
}

TEST_F(BasicSet, ListsNodesByName) {
    EXPECT_EQ(shown("list node"), "Total: 0");
    context.getNodeMap()["b"] = new CNode("b", "AA:BB", "10.0.0.2", 50);
    context.getNodeMap()["a"] = new CNode("a", "CC", "host");
    EXPECT_EQ(shown("list node"),
              "a (MAC: CC, IP: host, Port: 4422)\n"
              "b (MAC: AA:BB, IP: 10.0.0.2, Port: 50)\n"
              "Total: 2");
}

TEST_F(BasicSet, ListsGroupsInFileOrderWithTheirOwnNodes) {
    EXPECT_EQ(shown("list group"), "Total: 0");
    auto* z = new CNodeGroup("z");
    auto* a = new CNodeGroup("a");
    z->addNode(&node);
    a->addGroup(z);
    context.getNodeGroupList().push_back(z);
    context.getNodeGroupList().push_back(a);
    EXPECT_EQ(shown("list group"), "z [1]\na [0]\nTotal: 2");
}

TEST_F(BasicSet, ShowsHelpAndListings) {
    const std::string usage = context.getUsage();
    EXPECT_EQ(shown("help"), usage);
    EXPECT_EQ(shown("--help"), usage);
    EXPECT_EQ(shown("??"), usage);
    EXPECT_EQ(shown("?"), context.getCWLUsage());
    EXPECT_EQ(shown("list"), context.listWorkingCommandSet());
    context.toLowerLevel("tools");
    EXPECT_EQ(shown("?"), "[tools]  Site tools\nup:  d\n");
    EXPECT_EQ(shown("list"), "up   \n");
    EXPECT_EQ(shown("help"), usage);
}

TEST_F(BasicSet, ClearsTheConsoleWithTheSystemsCommand) {
    writeFile(directory.file("clear"), "#!/bin/sh\n: > '" + directory.file("ran") + "'\n");
    ASSERT_EQ(chmod(directory.file("clear").c_str(), 0755), 0);
    const ScopedEnvironment path("PATH", (directory.path() + ":/usr/bin:/bin").c_str());
    EXPECT_EQ(shown("clear"), "");
    EXPECT_EQ(readFile(directory.file("ran")), "");
}

TEST_F(BasicSet, LeavesQuitAndHistoryToTheLoop) {
    for (const char* line : {"quit", "history"}) {
        CResult result;
        result.setRunStatus(5);
        result.setExitCode(4);
        result.setRunSummary("before");
        basic->execute(line, nullptr, result, 1);
        EXPECT_EQ(result.getRunStatus(), 5) << line;
        EXPECT_EQ(result.getExitCode(), 4) << line;
        EXPECT_EQ(result.getRunSummary(), "before") << line;
    }
}

TEST_F(BasicSet, SendsNoFileThatDoesNotExist) {
    AgentsByAddress::at("10.0.0.1");
    const std::string path = directory.file("none");
    const CResult result = execute("save file -f " + path, &node);
    EXPECT_EQ(result.getRunStatus(), 2);
    EXPECT_EQ(result.getRunSummary(), "File \"" + path + "\" does not exist!");
    EXPECT_TRUE(AgentsByAddress::requests().empty());
}

TEST_F(BasicSet, SavesAFileUnderItsOwnPath) {
    const std::string path = directory.file("image");
    writeFile(path, "x");
    AgentsByAddress::at("10.0.0.1").answers["[savefile]" + path] =
        AgentsByAddress::outcome(1, "No space.");
    const CResult result = execute("save file --file " + path, &node);
    EXPECT_EQ(result.getRunStatus(), 2);
    EXPECT_EQ(result.getRunSummary(), "No space.");
    ASSERT_EQ(AgentsByAddress::requests().size(), 1U);
    EXPECT_EQ(AgentsByAddress::requests().front().line, "[savefile]" + path);
    EXPECT_EQ(AgentsByAddress::requests().front().timeOut, 5000U);
}

TEST_F(BasicSet, TellsThatAFileWasThereBefore) {
    const std::string path = directory.file("image");
    auto& answer = AgentsByAddress::at("10.0.0.1").answers["[getfile]" + path];
    answer = AgentsByAddress::outcome(0, "got it");
    EXPECT_EQ(execute("get file -f " + path, &node).getRunSummary(), "got it\n");
    writeFile(path, "old");
    const std::string already = "File \"" + path + "\" already exists in local site!\n";
    const CResult good = execute("get file -f " + path, &node);
    EXPECT_EQ(good.getRunStatus(), 0);
    const std::string expected = already + "got it\nOver write the original file.";
    EXPECT_EQ(good.getRunSummary().substr(0, expected.size()), expected);
    EXPECT_LE(good.getRunSummary().size(), expected.size() + 1);
    answer = AgentsByAddress::outcome(1, "no such file");
    const CResult bad = execute("get file -f " + path, &node);
    EXPECT_EQ(bad.getRunStatus(), 2);
    EXPECT_EQ(bad.getRunSummary(), already + "no such file\n");
}

TEST_F(BasicSet, ReportsAnAgentThatCannotBeReached) {
    const std::string path = directory.file("image");
    writeFile(path, "x");
    for (const char* command : {"save file -f ", "get file -f "}) {
        const CResult result = execute(command + path, &node);
        EXPECT_EQ(result.getRunStatus(), 2);
        EXPECT_NE(result.getRunSummary().find("no agent at 10.0.0.1"), std::string::npos);
    }
}
