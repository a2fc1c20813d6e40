#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CDoesNotExistException.h"
#include "CNode.h"
#include "CNodeGroup.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "CShellExecutionContext.h"
#include "ConfigErrorCollector.h"
#include "ConfigFiles.h"
#include "ScopedEnvironment.h"
#include "ScopedWorkingDirectory.h"
#include "TempDir.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

constexpr char kVersionComplaint[] = "Error! Failed in loading kelsh_version.cfg....\n";
constexpr char kPlaceholders[] = "Version @VERSION@, Build @BUILD@";

CShellCommandSet* makeSet(const std::string& name, std::initializer_list<const char*> commands) {
    auto set = std::make_unique<CShellCommandSet>(name, name + " commands");
    for (const char* command : commands) {
        set->addSupportedCommand(
            new CShellCommand(command, std::string("does ") + command, "true", SCRIPT, SLAVE));
    }
    return set.release();
}

class Destroyed : public CShellCommandSet {
public:
    Destroyed(const std::string& setName, int& destructions)
        : CShellCommandSet(setName, "counts"), count(destructions) {}
    ~Destroyed() override { ++count; }

private:
    int& count;
};

// A directory with a version file, so that contexts come up without a word.
class CShellExecutionContextTest : public testing::Test {
protected:
    CShellExecutionContextTest() : noPath("KELSH_PATH", nullptr), inside(dir.path()) {
        writeFile("kelsh_version.cfg", "VERSION=1.2\nBUILD=34\n");
        context = std::make_unique<CShellExecutionContext>();
    }

    // tools with the child disk, beside BASIC and ipmi
    void fillTree() {
        context->addCommandSet(makeSet("BASIC", {"list", "cd"}));
        tools = makeSet("tools", {"uptime", "free"});
        disk = makeSet("disk", {"usage"});
        tools->addChildCommand(disk);
        context->addCommandSet(tools);
        context->addCommandSet(disk);
        context->addCommandSet(makeSet("ipmi", {}));
    }

    std::string errorOf(const std::string& level) {
        try {
            context->toLowerLevel(level);
        } catch (const CDoesNotExistException& error) {
            return error.getErrMsg();
        }
        return "";
    }

    TempDir dir;
    ScopedEnvironment noPath;
    ScopedWorkingDirectory inside;
    std::unique_ptr<CShellExecutionContext> context;
    CShellCommandSet* tools = nullptr;
    CShellCommandSet* disk = nullptr;
};

}  // namespace

TEST_F(CShellExecutionContextTest, StartsEmptyWithTheDefaultFileNames) {
    EXPECT_EQ("node.cfg", context->getNodeCfgFileName());
    EXPECT_EQ("cmd.cfg", context->getCmdCfgFileName());
    EXPECT_EQ("ssl_master.cfg", context->getSslCfgFileName());
    EXPECT_EQ("", context->getHostName());
    EXPECT_THAT(context->getRootCommandSetList(), IsEmpty());
    EXPECT_THAT(context->getNodeMap(), IsEmpty());
    EXPECT_THAT(context->getNodeGroupList(), IsEmpty());
    EXPECT_THAT(context->getCWL(), IsEmpty());
    EXPECT_EQ(nullptr, context->getBasicCommandSet());
}

TEST_F(CShellExecutionContextTest, HoldsTheNamesItIsGiven) {
    context->setNodeCfgFileName("/a");
    context->setCmdCfgFileName("/b");
    context->setSslCfgFileName("/c");
    context->setHostName("master");
    EXPECT_EQ("/a", context->getNodeCfgFileName());
    EXPECT_EQ("/b", context->getCmdCfgFileName());
    EXPECT_EQ("/c", context->getSslCfgFileName());
    EXPECT_EQ("master", context->getHostName());
}

TEST_F(CShellExecutionContextTest, OnlySetsWithoutParentBecomeRoots) {
    fillTree();
    std::list<std::string> names;
    for (CShellCommandSet* set : context->getRootCommandSetList()) {
        names.push_back(set->getCommandSetName());
    }
    EXPECT_THAT(names, ElementsAre("BASIC", "tools", "ipmi"));
    ASSERT_NE(nullptr, context->getBasicCommandSet());
    EXPECT_EQ("BASIC", context->getBasicCommandSet()->getCommandSetName());
}

TEST_F(CShellExecutionContextTest, GivesNoTextForThePathAtTheRoot) {
    EXPECT_EQ("", context->cwlToString());
    EXPECT_EQ("", context->getPathToWorkingCommandSet());
}

TEST_F(CShellExecutionContextTest, StepsDownThePath) {
    fillTree();
    context->toLowerLevel("tools");
    context->toLowerLevel("disk");
    EXPECT_THAT(context->getCWL(), ElementsAre("tools", "disk"));
    EXPECT_EQ("/tools/disk", context->cwlToString());
    EXPECT_EQ("tools/disk/", context->getPathToWorkingCommandSet());
    EXPECT_THAT(context->getWorkingCommandSet(), ElementsAre(disk));
}

TEST_F(CShellExecutionContextTest, StepsUpAndBackToTheRoot) {
    fillTree();
    context->toLowerLevel("tools");
    context->toLowerLevel("disk");
    context->toUpperLevel();
    EXPECT_EQ("/tools", context->cwlToString());
    context->toLowerLevel("disk");
    context->toRootLevel();
    EXPECT_EQ("", context->cwlToString());
    EXPECT_EQ(3U, context->getWorkingCommandSet().size());
}

TEST_F(CShellExecutionContextTest, StaysAtTheRootInSilence) {
    CaptureStdout();
    context->toUpperLevel();
    EXPECT_EQ("", GetCapturedStdout());
    EXPECT_THAT(context->getCWL(), IsEmpty());
}

TEST_F(CShellExecutionContextTest, RefusesAnUnknownLevel) {
    fillTree();
    EXPECT_EQ("Can not find command set: nothing", errorOf("nothing"));
    EXPECT_THAT(context->getCWL(), IsEmpty());
    context->toLowerLevel("tools");
    EXPECT_EQ("Can not find command set: tools", errorOf("tools"));
    EXPECT_EQ("Can not find command set: Disk", errorOf("Disk"));
    EXPECT_EQ("Can not find command set: ", errorOf(""));
    EXPECT_EQ("/tools", context->cwlToString());
}

TEST_F(CShellExecutionContextTest, ReportsAWorkingLevelThatIsGone) {
    fillTree();
    context->toLowerLevel("tools");
    context->toLowerLevel("disk");
    context->clear();
    CaptureStdout();
    EXPECT_THAT(context->getWorkingCommandSet(), IsEmpty());
    EXPECT_EQ("Can not find command set: tools This should not be happened!\n",
              GetCapturedStdout());
    CaptureStdout();
    EXPECT_EQ("Can not find command set: x", errorOf("x"));
    EXPECT_EQ(
        "Can not find command set: tools This should not be happened!\n"
        "ERROR!!!!! There must be only one working command set.\n",
        GetCapturedStdout());
    CaptureStdout();
    EXPECT_EQ("", context->listWorkingCommandSet());
    EXPECT_EQ(
        "Can not find command set: tools This should not be happened!\n"
        "Error! There should be only one working command set.\n",
        GetCapturedStdout());
    EXPECT_EQ("/tools/disk", context->cwlToString());
}

TEST_F(CShellExecutionContextTest, ListsTheRoot) {
    fillTree();
    EXPECT_EQ("cd   list   \n[tools]   [ipmi]   ", context->listWorkingCommandSet());
}

TEST_F(CShellExecutionContextTest, ListsTheRootInTheOrderOfAddition) {
    context->addCommandSet(makeSet("tools", {"uptime"}));
    context->addCommandSet(makeSet("BASIC", {"list"}));
    EXPECT_EQ("[tools]   list   \n", context->listWorkingCommandSet());
}

TEST_F(CShellExecutionContextTest, ListsALevel) {
    fillTree();
    context->toLowerLevel("tools");
    EXPECT_EQ("free   uptime   \n[disk]   ", context->listWorkingCommandSet());
    context->toLowerLevel("disk");
    EXPECT_EQ("usage   \n", context->listWorkingCommandSet());
    context->toRootLevel();
    context->toLowerLevel("ipmi");
    EXPECT_EQ("\n", context->listWorkingCommandSet());
}

TEST_F(CShellExecutionContextTest, FindsTheCommandOfALine) {
    fillTree();
    ConfigErrorCollector errors;
    std::string line = "uptime";
    CShellCommand* command = context->findExeCommand("tools/", line, &errors);
    ASSERT_NE(nullptr, command);
    EXPECT_EQ("uptime", command->getName());
    line = "tools/uptime";
    EXPECT_EQ(command, context->findExeCommand("", line, &errors));
    EXPECT_EQ("uptime", line);
}

TEST_F(CShellExecutionContextTest, PrintsTheDispatchersComplaintAndKeepsBothSets) {
    context->addCommandSet(makeSet("BASIC", {"list"}));
    CShellCommandSet* second = makeSet("BASIC", {"list"});
    CaptureStdout();
    context->addCommandSet(second);
    EXPECT_EQ("Command \"list\" already exists!\n", GetCapturedStdout());
    EXPECT_EQ(2U, context->getRootCommandSetList().size());
    EXPECT_EQ(second, context->getBasicCommandSet());
}

TEST_F(CShellExecutionContextTest, KeepsTwoConfiguredSetsOfOneName) {
    context->addCommandSet(makeSet("tools", {"uptime"}));
    CaptureStdout();
    context->addCommandSet(makeSet("tools", {"uptime"}));
    EXPECT_EQ("Command \"uptime\" already exists!\n", GetCapturedStdout());
    EXPECT_EQ(2U, context->getRootCommandSetList().size());
}

TEST_F(CShellExecutionContextTest, ExplainsItself) {
    fillTree();
    EXPECT_EQ(
        "kelsh (A CLI interface for managing cluster.)\n"
        "Version 1.2, Build 34\n"
        "Usage:\n"
        "\tOptions for commands executed on slave nodes:\n"
        "\t\t[-n|--node]\tfor specified slave nodes.\n"
        "\t\t[-g|--group]\tfor slave nodes in the specified groups.\n"
        "\t\t[-t|--timeout]\tfor time out of the command execution.\n"
        "cd:  does cd\n"
        "list:  does list\n" +
            tools->getUsage() + "[ipmi]  ipmi commands\n",
        context->getUsage());
}

TEST_F(CShellExecutionContextTest, ExplainsTheWorkingLevelAlone) {
    fillTree();
    context->toLowerLevel("tools");
    context->toLowerLevel("disk");
    EXPECT_EQ("[tools/disk]  disk commands\nusage:  does usage\n", context->getCWLUsage());
    context->toRootLevel();
    EXPECT_EQ("cd:  does cd\nlist:  does list\n" + tools->getUsage() + "[ipmi]  ipmi commands\n",
              context->getCWLUsage());
}

TEST_F(CShellExecutionContextTest, DeclaresItself) {
    CaptureStdout();
    context->printDeclaration();
    EXPECT_EQ("kelsh (A CLI interface for managing cluster.)\nVersion 1.2, Build 34\n",
              GetCapturedStdout());
}

TEST_F(CShellExecutionContextTest, ClearDeletesEverythingItOwnsOnce) {
    int destroyed = 0;
    auto* parent = new Destroyed("parent", destroyed);
    auto* child = new Destroyed("child", destroyed);
    parent->addChildCommand(child);
    context->addCommandSet(parent);
    context->addCommandSet(child);
    context->addCommandSet(parent);
    context->addCommandSet(makeSet("BASIC", {"list"}));
    context->getNodeMap()["n1"] = new CNode("n1", "mac");
    context->getNodeGroupList().push_back(new CNodeGroup("g"));
    context->clear();
    EXPECT_EQ(2, destroyed);
    EXPECT_THAT(context->getRootCommandSetList(), IsEmpty());
    EXPECT_THAT(context->getNodeMap(), IsEmpty());
    EXPECT_THAT(context->getNodeGroupList(), IsEmpty());
    EXPECT_EQ(nullptr, context->getBasicCommandSet());
}

TEST_F(CShellExecutionContextTest, ClearTakesTheSetsOutOfTheDispatcher) {
    fillTree();
    context->clear();
    ConfigErrorCollector errors;
    for (const char* typed : {"list", "tools/uptime", "tools/disk/usage"}) {
        std::string line = typed;
        EXPECT_EQ(nullptr, context->findExeCommand("", line, &errors)) << typed;
    }
    CaptureStdout();
    fillTree();
    EXPECT_EQ("", GetCapturedStdout());
}

TEST_F(CShellExecutionContextTest, ClearKeepsTheRest) {
    fillTree();
    context->setHostName("master");
    context->setNodeCfgFileName("/a");
    context->toLowerLevel("tools");
    context->clear();
    EXPECT_EQ("master", context->getHostName());
    EXPECT_EQ("/a", context->getNodeCfgFileName());
    EXPECT_EQ("/tools", context->cwlToString());
    EXPECT_EQ("Version 1.2, Build 34", context->getVersionBuildString());
}

TEST_F(CShellExecutionContextTest, FallsBackToTheVersionFileOfTheInstallPath) {
    const TempDir install;
    const TempDir empty;
    writeFile(install.file("kelsh_version.cfg"), "VERSION=7\nBUILD=8\n");
    const ScopedEnvironment path("KELSH_PATH", install.path().c_str());
    {
        const ScopedWorkingDirectory elsewhere(empty.path());
        CaptureStdout();
        EXPECT_EQ("Version 7, Build 8", CShellExecutionContext().getVersionBuildString());
        EXPECT_EQ("", GetCapturedStdout());
    }
    EXPECT_EQ("Version 1.2, Build 34", CShellExecutionContext().getVersionBuildString());
}

TEST_F(CShellExecutionContextTest, WorksWithoutAVersionFile) {
    const TempDir empty;
    const ScopedWorkingDirectory elsewhere(empty.path());
    CaptureStdout();
    const CShellExecutionContext bare;
    EXPECT_EQ(kVersionComplaint, GetCapturedStdout());
    EXPECT_EQ(kPlaceholders, bare.getVersionBuildString());
}

TEST_F(CShellExecutionContextTest, WorksWithABrokenVersionFile) {
    writeFile("kelsh_version.cfg", std::string("VERSION=1\n\0\xff=", 13));
    CaptureStdout();
    const CShellExecutionContext bare;
    EXPECT_EQ(kVersionComplaint, GetCapturedStdout());
    EXPECT_EQ(kPlaceholders, bare.getVersionBuildString());
}

TEST_F(CShellExecutionContextTest, AScratchContextDoesNotRepeatTheVersionComplaint) {
    const TempDir empty;
    const ScopedWorkingDirectory elsewhere(empty.path());
    for (int round = 0; round < 2; ++round) {
        CaptureStdout();
        {
            const CShellExecutionContext shell;
            const CShellExecutionContext scratch;
            EXPECT_EQ(kPlaceholders, scratch.getVersionBuildString());
        }
        EXPECT_EQ(kVersionComplaint, GetCapturedStdout());
    }
}
