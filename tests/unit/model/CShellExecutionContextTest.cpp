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
#include "Observed.h"
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

TEST_F(CShellExecutionContextTest, TakesTheLaterBasicSetForTheBasicOne) {
    context->addCommandSet(makeSet("BASIC", {"list"}));
    CShellCommandSet* second = makeSet("BASIC", {"list"});
    CaptureStdout();
    context->addCommandSet(second);
    EXPECT_EQ("Command \"list\" already exists!\n", GetCapturedStdout());
    EXPECT_EQ(2U, context->getRootCommandSetList().size());
    EXPECT_EQ(second, context->getBasicCommandSet());
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
    context->toUpperLevel();
    EXPECT_EQ(tools->getUsage(), context->getCWLUsage());
    context->toRootLevel();
    CaptureStdout();
    EXPECT_EQ("cd:  does cd\nlist:  does list\n" + tools->getUsage() + "[ipmi]  ipmi commands\n",
              context->getCWLUsage());
    EXPECT_EQ("", GetCapturedStdout()) << "the text is returned, not printed";
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
    context->clear();
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

namespace {

CShellCommandSet* set(const char* name, const Words& commands) {
    auto* made = new CShellCommandSet(name, std::string("about ") + name);
    for (const std::string& command : commands) {
        made->addSupportedCommand(
            new CShellCommand(command, "does " + command, "line", SCRIPT, SLAVE));
    }
    return made;
}

// BASIC (help, list), tools (uptime; children disk (usage) and deep), zeta; without version file.
class ContextTree : public testing::Test {
protected:
    ContextTree() {
        CShellCommandSet* child = set("disk", {"usage"});
        tools->addChildCommand(child);
        tools->addChildCommand(set("deep", {}));
        for (CShellCommandSet* added : {zeta, basic, tools, child}) {
            context->addCommandSet(added);
        }
    }

    TempDir directory;
    ScopedEnvironment home{"KELSH_PATH", nullptr};
    ScopedWorkingDirectory place{directory.path()};
    CShellCommandSet* zeta = set("zeta", {"b", "a"});
    CShellCommandSet* basic = set("BASIC", {"list", "help"});
    CShellCommandSet* tools = set("tools", {"uptime"});
    std::unique_ptr<CShellExecutionContext> context = std::make_unique<CShellExecutionContext>();
};

}  // namespace

TEST_F(ContextTree, HasDefaultsAndSetters) {
    CShellExecutionContext fresh;
    EXPECT_EQ("node.cfg", fresh.getNodeCfgFileName());
    EXPECT_EQ("cmd.cfg", fresh.getCmdCfgFileName());
    EXPECT_EQ("ssl_master.cfg", fresh.getSslCfgFileName());
    EXPECT_EQ("", fresh.getHostName());
    EXPECT_EQ(nullptr, fresh.getBasicCommandSet());
    EXPECT_TRUE(fresh.getRootCommandSetList().empty());
    EXPECT_TRUE(fresh.getNodeMap().empty());
    EXPECT_TRUE(fresh.getNodeGroupList().empty());
    EXPECT_TRUE(fresh.getCWL().empty());
    fresh.setNodeCfgFileName("1");
    fresh.setCmdCfgFileName("2");
    fresh.setSslCfgFileName("3");
    fresh.setHostName("4");
    EXPECT_EQ("1234", fresh.getNodeCfgFileName() + fresh.getCmdCfgFileName() +
                          fresh.getSslCfgFileName() + fresh.getHostName());
}

TEST_F(ContextTree, KeepsRootsInOrderAndRemembersBasic) {
    EXPECT_EQ((std::vector<CShellCommandSet*>{zeta, basic, tools}),
              asVector(context->getRootCommandSetList()));
    EXPECT_EQ(basic, context->getBasicCommandSet());
    EXPECT_EQ((std::vector<CShellCommandSet*>{zeta, basic, tools}),
              asVector(context->getWorkingCommandSet()));
    context->getWorkingCommandSet().clear();
    EXPECT_EQ(3U, context->getRootCommandSetList().size());
}

TEST_F(ContextTree, WalksDownAndUp) {
    EXPECT_EQ("", context->cwlToString());
    EXPECT_EQ("", context->getPathToWorkingCommandSet());
    EXPECT_EQ("", printedBy([&] { context->toUpperLevel(); }));
    EXPECT_TRUE(context->getCWL().empty());
    context->toLowerLevel("tools");
    context->toLowerLevel(std::string("disk"));
    EXPECT_EQ("/tools/disk", context->cwlToString());
    EXPECT_EQ("tools/disk/", context->getPathToWorkingCommandSet());
    EXPECT_EQ((Words{"tools", "disk"}), asVector(context->getCWL()));
    EXPECT_EQ((std::vector<CShellCommandSet*>{tools->getChildCommands().front()}),
              asVector(context->getWorkingCommandSet()));
    context->toUpperLevel();
    EXPECT_EQ("/tools", context->cwlToString());
    context->toLowerLevel("deep");
    context->toRootLevel();
    EXPECT_EQ("", context->cwlToString());
    context->toLowerLevel("BASIC");
    EXPECT_EQ("/BASIC", context->cwlToString());
}

TEST_F(ContextTree, RefusesAnUnknownLevel) {
    const auto step = [&](const char* name) {
        return messageOf<CDoesNotExistException>([&] { context->toLowerLevel(name); });
    };
    for (const char* name : {"ghost", "Tools", "", "tools/disk", "disk", "..", "tools "}) {
        EXPECT_EQ(std::string("Can not find command set: ") + name, step(name));
    }
    EXPECT_EQ("", context->cwlToString());
    context->toLowerLevel("tools");
    EXPECT_EQ("Can not find command set: zeta", step("zeta"));
    EXPECT_EQ("/tools", context->cwlToString());
}

TEST_F(ContextTree, ListsTheWorkingLevel) {
    std::string text;
    EXPECT_EQ("", printedBy([&] { text = context->listWorkingCommandSet(); }));
    EXPECT_EQ("[zeta]   help   list   \n[tools]   ", text);
    context->toLowerLevel("tools");
    EXPECT_EQ("uptime   \n[disk]   [deep]   ", context->listWorkingCommandSet());
    context->toLowerLevel("deep");
    EXPECT_EQ("\n", context->listWorkingCommandSet());
    context->toRootLevel();
    context->toLowerLevel("zeta");
    EXPECT_EQ("a   b   \n", context->listWorkingCommandSet());
}

TEST_F(ContextTree, PrintsTheDispatchersComplaintAndKeepsBothSets) {
    CShellCommandSet* clash = set("clash", {"help"});
    EXPECT_EQ("Command \"help\" already exists!\n",
              printedBy([&] { context->addCommandSet(clash); }));
    CShellCommandSet* twin = set("tools", {"uptime"});
    EXPECT_EQ("Command \"uptime\" already exists!\n",
              printedBy([&] { context->addCommandSet(twin); }));
    EXPECT_EQ((std::vector<CShellCommandSet*>{zeta, basic, tools, clash, twin}),
              asVector(context->getRootCommandSetList()));
    context->toLowerLevel("tools");
    EXPECT_EQ(tools, context->getWorkingCommandSet().front());
}

TEST_F(ContextTree, FindsCommandsThroughTheDispatcher) {
    ConfigErrorCollector errors;
    std::string line = "usage";
    EXPECT_EQ(context->findExeCommand("tools/disk/", line, &errors),
              tools->getChildCommands().front()->getSupportedCommands().at("usage"));
    line = "help";
    EXPECT_EQ(context->findExeCommand("tools/disk/", line, &errors),
              basic->getSupportedCommands().at("help"));
    // A set that was never added is not found even though its parent was.
    tools->getChildCommands().back()->addSupportedCommand(
        new CShellCommand("late", "", "", SCRIPT, SLAVE));
    line = "tools/deep/late";
    EXPECT_EQ(nullptr, context->findExeCommand("", line, &errors));
    EXPECT_EQ("tools/deep/late", line);
}

TEST_F(ContextTree, ReportsALevelThatIsGone) {
    context->toLowerLevel("tools");
    context->toLowerLevel("deep");
    CShellCommandSet* deep = tools->getChildCommands().back();
    tools->removeChildCommand(deep);
    delete deep;
    const auto has = [](const std::string& text, const char* part) {
        return text.find(part) != std::string::npos;
    };
    EXPECT_TRUE(has(printedBy([&] { context->listWorkingCommandSet(); }),
                    "Error! There should be only one working command set.\n"));
    EXPECT_TRUE(
        has(printedBy([&] { EXPECT_THROW(context->toLowerLevel("x"), CDoesNotExistException); }),
            "ERROR!!!!! There must be only one working command set.\n"));
    EXPECT_EQ("/tools/deep", context->cwlToString());
}
