#include <memory>

#include "CDoesNotExistException.h"
#include "CNode.h"
#include "CNodeGroup.h"
#include "CShellCommandSet.h"
#include "CShellExecutionContext.h"
#include "ConfigErrorCollector.h"
#include "Contract.h"
#include "ScopedEnvironment.h"
#include "ScopedWorkingDirectory.h"
#include "TempDir.h"

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
    EXPECT_EQ(fresh.getNodeCfgFileName(), "node.cfg");
    EXPECT_EQ(fresh.getCmdCfgFileName(), "cmd.cfg");
    EXPECT_EQ(fresh.getSslCfgFileName(), "ssl_master.cfg");
    EXPECT_EQ(fresh.getHostName(), "");
    EXPECT_EQ(fresh.getBasicCommandSet(), nullptr);
    EXPECT_TRUE(fresh.getRootCommandSetList().empty());
    EXPECT_TRUE(fresh.getNodeMap().empty());
    EXPECT_TRUE(fresh.getNodeGroupList().empty());
    EXPECT_TRUE(fresh.getCWL().empty());
    fresh.setNodeCfgFileName("1");
    fresh.setCmdCfgFileName("2");
    fresh.setSslCfgFileName("3");
    fresh.setHostName("4");
    EXPECT_EQ(fresh.getNodeCfgFileName() + fresh.getCmdCfgFileName() + fresh.getSslCfgFileName() +
                  fresh.getHostName(),
              "1234");
}

TEST_F(ContextTree, KeepsRootsInOrderAndRemembersBasic) {
    EXPECT_EQ(asVector(context->getRootCommandSetList()),
              (std::vector<CShellCommandSet*>{zeta, basic, tools}));
    EXPECT_EQ(context->getBasicCommandSet(), basic);
    EXPECT_EQ(asVector(context->getWorkingCommandSet()),
              (std::vector<CShellCommandSet*>{zeta, basic, tools}));
    context->getWorkingCommandSet().clear();
    EXPECT_EQ(context->getRootCommandSetList().size(), 3U);
}

TEST_F(ContextTree, WalksDownAndUp) {
    EXPECT_EQ(context->cwlToString(), "");
    EXPECT_EQ(context->getPathToWorkingCommandSet(), "");
    EXPECT_EQ(printedBy([&] { context->toUpperLevel(); }), "");
    EXPECT_TRUE(context->getCWL().empty());
    context->toLowerLevel("tools");
    context->toLowerLevel(std::string("disk"));
    EXPECT_EQ(context->cwlToString(), "/tools/disk");
    EXPECT_EQ(context->getPathToWorkingCommandSet(), "tools/disk/");
    EXPECT_EQ(asVector(context->getCWL()), (Words{"tools", "disk"}));
    EXPECT_EQ(asVector(context->getWorkingCommandSet()),
              (std::vector<CShellCommandSet*>{tools->getChildCommands().front()}));
    context->toUpperLevel();
    EXPECT_EQ(context->cwlToString(), "/tools");
    context->toLowerLevel("deep");
    context->toRootLevel();
    EXPECT_EQ(context->cwlToString(), "");
    context->toLowerLevel("BASIC");
    EXPECT_EQ(context->cwlToString(), "/BASIC");
}

TEST_F(ContextTree, RefusesAnUnknownLevel) {
    const auto step = [&](const char* name) {
        return messageOf<CDoesNotExistException>([&] { context->toLowerLevel(name); });
    };
    for (const char* name : {"ghost", "Tools", "", "tools/disk", "disk", "..", "tools "}) {
        EXPECT_EQ(step(name), std::string("Can not find command set: ") + name);
    }
    EXPECT_EQ(context->cwlToString(), "");
    context->toLowerLevel("tools");
    EXPECT_EQ(step("zeta"), "Can not find command set: zeta");
    EXPECT_EQ(context->cwlToString(), "/tools");
}

TEST_F(ContextTree, ListsTheWorkingLevel) {
    std::string text;
    EXPECT_EQ(printedBy([&] { text = context->listWorkingCommandSet(); }), "");
    EXPECT_EQ(text, "[zeta]   help   list   \n[tools]   ");
    context->toLowerLevel("tools");
    EXPECT_EQ(context->listWorkingCommandSet(), "uptime   \n[disk]   [deep]   ");
    context->toLowerLevel("deep");
    EXPECT_EQ(context->listWorkingCommandSet(), "\n");
    context->toRootLevel();
    context->toLowerLevel("zeta");
    EXPECT_EQ(context->listWorkingCommandSet(), "a   b   \n");
}

TEST_F(ContextTree, ShowsTheUnfilledVersionWithoutItsFile) {
    EXPECT_EQ(context->getVersionBuildString(), "Version @VERSION@, Build @BUILD@");
    const std::string banner = printedBy([&] { context->printDeclaration(); });
    const std::string end =
        "(A CLI interface for managing cluster.)\nVersion @VERSION@, Build @BUILD@\n";
    ASSERT_GT(banner.size(), end.size());
    EXPECT_EQ(banner.substr(banner.size() - end.size()), end);
    EXPECT_EQ(banner.find("kelsh"), 0U);
}

TEST(CShellExecutionContextContract, ComplainsOfAMissingVersionFile) {
    const TempDir directory;
    const ScopedEnvironment home("KELSH_PATH", nullptr);
    const ScopedWorkingDirectory place(directory.path());
    const std::string printed = printedBy([] { CShellExecutionContext context; });
    EXPECT_EQ(printed.find("Error! Failed in loading kelsh_version.cfg...."), 0U);
}

TEST_F(ContextTree, ReturnsTheUsageWithoutPrintingIt) {
    const std::string banner = printedBy([&] { context->printDeclaration(); });
    std::string usage;
    EXPECT_EQ(printedBy([&] { usage = context->getUsage(); }), "");
    EXPECT_EQ(usage, banner +
                         "Usage:\n"
                         "\tOptions for commands executed on slave nodes:\n"
                         "\t\t[-n|--node]\tfor specified slave nodes.\n"
                         "\t\t[-g|--group]\tfor slave nodes in the specified groups.\n"
                         "\t\t[-t|--timeout]\tfor time out of the command execution.\n" +
                         zeta->getUsage() + basic->getUsage() + tools->getUsage());
    EXPECT_EQ(context->getCWLUsage(), zeta->getUsage() + basic->getUsage() + tools->getUsage());
    context->toLowerLevel("tools");
    EXPECT_EQ(context->getCWLUsage(), tools->getUsage());
    EXPECT_NE(context->getCWLUsage().find("[tools/disk]  about disk\n"), std::string::npos);
}

TEST_F(ContextTree, PrintsTheDispatchersComplaintAndKeepsBothSets) {
    CShellCommandSet* clash = set("clash", {"help"});
    EXPECT_EQ(printedBy([&] { context->addCommandSet(clash); }),
              "Command \"help\" already exists!\n");
    CShellCommandSet* twin = set("tools", {"uptime"});
    EXPECT_EQ(printedBy([&] { context->addCommandSet(twin); }),
              "Command \"uptime\" already exists!\n");
    EXPECT_EQ(asVector(context->getRootCommandSetList()),
              (std::vector<CShellCommandSet*>{zeta, basic, tools, clash, twin}));
    context->toLowerLevel("tools");
    EXPECT_EQ(context->getWorkingCommandSet().front(), tools);
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
    EXPECT_EQ(context->findExeCommand("", line, &errors), nullptr);
    EXPECT_EQ(line, "tools/deep/late");
}

TEST_F(ContextTree, ClearFreesTheConfigurationAndKeepsTheRest) {
    context->getNodeMap()["n"] = new CNode("n", "M");
    context->getNodeGroupList().push_back(new CNodeGroup("g"));
    context->getNodeGroupList().back()->addNode(context->getNodeMap()["n"]);
    context->setHostName("host");
    context->setNodeCfgFileName("other");
    context->toLowerLevel("tools");
    context->clear();
    EXPECT_TRUE(context->getRootCommandSetList().empty());
    EXPECT_TRUE(context->getNodeMap().empty());
    EXPECT_TRUE(context->getNodeGroupList().empty());
    EXPECT_EQ(context->getBasicCommandSet(), nullptr);
    EXPECT_EQ(context->getHostName() + context->getNodeCfgFileName(), "hostother");
    EXPECT_EQ(context->cwlToString(), "/tools");
    std::list<CShellCommandSet*> working;
    const std::string printed = printedBy([&] { working = context->getWorkingCommandSet(); });
    EXPECT_EQ(printed.find("Can not find command set: tools This should not be happened!"), 0U);
    EXPECT_TRUE(working.empty());
    ConfigErrorCollector errors;
    std::string line = "help";
    EXPECT_EQ(context->findExeCommand("", line, &errors), nullptr);
    context->clear();
    context->addCommandSet(set("tools", {"uptime"}));
    line = "uptime";
    EXPECT_NE(context->findExeCommand("tools/", line, &errors), nullptr);
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
    EXPECT_EQ(context->cwlToString(), "/tools/deep");
}
