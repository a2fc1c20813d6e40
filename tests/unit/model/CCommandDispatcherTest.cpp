#include <gtest/gtest.h>

#include "CAlreadyExistException.h"
#include "CCommandDispatcher.h"
#include "CShellCommandSet.h"
#include "ConfigErrorCollector.h"

namespace {

CShellCommand* add(CShellCommandSet& set, const std::string& name, COMMAND_TYPE type = SCRIPT_OPT) {
    auto* cmd = new CShellCommand(name, "", "run", type, SLAVE);
    if (type == SCRIPT_OPT) {
        cmd->addOption(new CCommandOption("n", "node", 0, 1, ""));
    }
    set.addSupportedCommand(cmd);
    return cmd;
}

CShellCommandSet* addChild(CShellCommandSet& parent, const std::string& name) {
    auto* child = new CShellCommandSet(name, "");
    parent.addChildCommand(child);
    return child;
}

// BASIC (list node, reset) with a child ipmi (reset, on); tools (up) with disk (usage); my-set
// (go).
class CCommandDispatcherLookUp : public testing::Test {
protected:
    CCommandDispatcherLookUp() : basic("BASIC", ""), tools("tools", ""), dashed("my-set", "") {
        listNode = add(basic, "list node");
        ipmi = addChild(basic, "ipmi");
        ipmiReset = add(*ipmi, "reset");
        up = add(tools, "up", SCRIPT);
        disk = addChild(tools, "disk");
        usage = add(*disk, "usage");
        go = add(dashed, "go");
        for (CShellCommandSet* set : {&basic, ipmi, &tools, disk, &dashed}) {
            dispatcher.registerCommand(set);
        }
    }

    // The command found, with what the line became; the line must stay when nothing is found.
    CShellCommand* find(const std::string& level, const std::string& typed) {
        line = typed;
        errors.clear();
        CShellCommand* found = dispatcher.findExeCommand(level, line, &errors);
        if (found == nullptr) {
            EXPECT_EQ(typed, line);
        }
        return found;
    }

    CShellCommandSet basic;
    CShellCommandSet tools;
    CShellCommandSet dashed;
    CShellCommandSet* ipmi = nullptr;
    CShellCommandSet* disk = nullptr;
    CShellCommand* listNode = nullptr;
    CShellCommand* ipmiReset = nullptr;
    CShellCommand* up = nullptr;
    CShellCommand* usage = nullptr;
    CShellCommand* go = nullptr;
    CCommandDispatcher dispatcher;
    ConfigErrorCollector errors;
    std::string line;
};

}  // namespace

TEST(CCommandDispatcher, StripsThePathFromALine) {
    const auto strip = &CCommandDispatcher::getCommandAndOptionPart;
    EXPECT_EQ("reset -f /tmp/x", strip("a/b/reset -f /tmp/x"));
    EXPECT_EQ("y -v a/b", strip("x/y -v a/b"));
    EXPECT_EQ("reset", strip("  reset "));
    EXPECT_EQ("reset", strip("/reset"));
    EXPECT_EQ("reset", strip("//x// reset "));
    EXPECT_EQ("my-set/go", strip("my-set/go"));
    EXPECT_EQ("", strip(""));
    EXPECT_EQ("", strip("a/"));
    EXPECT_EQ("- x", strip("a/- x"));
}

TEST(CCommandDispatcher, CutsTheOptionsFromALine) {
    const auto cut = &CCommandDispatcher::getCommandPart;
    EXPECT_EQ("reset", cut("reset -n node1"));
    EXPECT_EQ("reset", cut("a/b/reset   --node x/y"));
    EXPECT_EQ("save file", cut("save file"));
    EXPECT_EQ("re-set", cut("re-set -n a"));
    EXPECT_EQ("-n a", cut("-n a"));
    EXPECT_EQ("", cut(""));
}

TEST(CCommandDispatcher, NameOfARootCommandIsRefusedInAnotherSet) {
    CShellCommandSet basic("BASIC", "");
    CShellCommandSet tools("tools", "");
    add(basic, "reset");
    add(tools, "a");
    add(tools, "reset");
    CCommandDispatcher dispatcher;
    dispatcher.registerCommand(&basic);
    try {
        dispatcher.registerCommand(&tools);
        FAIL() << "a second reset was accepted";
    } catch (const CAlreadyExistException& fault) {
        EXPECT_EQ("Command \"reset\" already exists!", fault.getErrMsg());
    }
    EXPECT_EQ(0, dispatcher.unregisterCommand(&tools));
    EXPECT_EQ(1, dispatcher.unregisterCommand(&basic));
}

TEST(CCommandDispatcher, ClashIsOnlySeenWhenTheRootCameFirst) {
    CShellCommandSet basic("BASIC", "");
    CShellCommandSet tools("tools", "");
    add(basic, "reset");
    add(tools, "reset");
    CCommandDispatcher dispatcher;
    dispatcher.registerCommand(&tools);
    EXPECT_NO_THROW(dispatcher.registerCommand(&basic));
}

TEST(CCommandDispatcher, OtherSetsMayRepeatAName) {
    CShellCommandSet one("one", "");
    CShellCommandSet two("two", "");
    add(one, "reset");
    add(two, "reset");
    CCommandDispatcher dispatcher;
    dispatcher.registerCommand(&one);
    EXPECT_NO_THROW(dispatcher.registerCommand(&two));
    EXPECT_EQ(1, dispatcher.unregisterCommand(&one));
    EXPECT_EQ(1, dispatcher.unregisterCommand(&two));
    EXPECT_EQ(0, dispatcher.unregisterCommand(&two));
}

TEST(CCommandDispatcher, FullKeyBelongsToOneSetOnly) {
    CShellCommandSet one("tools", "");
    CShellCommandSet two("tools", "");
    add(one, "up");
    add(two, "a");
    add(two, "up");
    CCommandDispatcher dispatcher;
    dispatcher.registerCommand(&one);
    try {
        dispatcher.registerCommand(&two);
        FAIL() << "a second tools/up was accepted";
    } catch (const CAlreadyExistException& fault) {
        EXPECT_EQ("Command \"up\" already exists!", fault.getErrMsg());
    }
    EXPECT_EQ(0, dispatcher.unregisterCommand(&two));
    EXPECT_NO_THROW(dispatcher.registerCommand(&one));
}

TEST_F(CCommandDispatcherLookUp, CommandOfTheWorkingLevelComesFirst) {
    add(basic, "on");
    CShellCommand* on = add(*ipmi, "on");
    dispatcher.registerCommand(ipmi);
    EXPECT_EQ(ipmiReset, find("/ipmi", "reset -n node1"));
    EXPECT_EQ("reset -n node1", line);
    EXPECT_EQ(on, find("/ipmi", "on"));
    EXPECT_EQ(ipmiReset, find("ipmi/", "reset"));
    EXPECT_EQ(ipmiReset, find("BASIC/ipmi/", "reset"));
}

TEST_F(CCommandDispatcherLookUp, RootCommandsAreFoundFromEveryLevel) {
    for (const char* level : {"", "BASIC/", "ipmi/", "tools/", "tools/disk/", "my-set/", "ghost"}) {
        EXPECT_EQ(listNode, find(level, "list node -n a/b")) << level;
        EXPECT_EQ("list node -n a/b", line) << level;
    }
    EXPECT_EQ(listNode, find("tools/", "/list node"));
    EXPECT_EQ("list node", line);
    EXPECT_EQ(listNode, find("tools/", "BASIC/list node"));
    EXPECT_EQ(listNode, find("tools/", "/BASIC/list node"));
}

TEST_F(CCommandDispatcherLookUp, OtherCommandsNeedTheirLevelOrPath) {
    EXPECT_EQ(up, find("tools/", "up"));
    EXPECT_EQ(up, find("", "tools/up"));
    EXPECT_EQ("up", line);
    EXPECT_EQ(usage, find("tools", "disk/usage -n a"));
    EXPECT_EQ("usage -n a", line);
    EXPECT_EQ(usage, find("tools/disk/", "usage"));
    EXPECT_EQ(nullptr, find("", "up"));
    EXPECT_EQ(nullptr, find("tools/disk/", "up"));
    EXPECT_EQ(nullptr, find("tools/", "usage"));
    EXPECT_EQ(nullptr, find("", "ghost/up"));
}

TEST_F(CCommandDispatcherLookUp, AbsoluteLinesStartAtTheRoot) {
    EXPECT_EQ(ipmiReset, find("tools/", "/ipmi/reset -n a/b"));
    EXPECT_EQ("reset -n a/b", line);
    EXPECT_EQ(usage, find("tools/disk/", "/tools/disk/usage"));
    EXPECT_EQ(up, find("my-set/", "/tools/up"));
    EXPECT_EQ(nullptr, find("tools/", "/up"));
    EXPECT_EQ(nullptr, find("tools/", "/disk/usage"));
    EXPECT_EQ(nullptr, find("tools/", "/ghost"));
    EXPECT_EQ(nullptr, find("tools/", "/"));
}

TEST_F(CCommandDispatcherLookUp, SetNamesMayHoldDashes) {
    EXPECT_EQ(go, find("my-set/", "go -n a/b"));
    EXPECT_EQ("go -n a/b", line);
    EXPECT_EQ(go, find("", "my-set/go"));
    EXPECT_EQ("go", line);
    EXPECT_EQ(go, find("tools/", "/my-set/go -n x"));
    EXPECT_EQ("go -n x", line);
}

TEST_F(CCommandDispatcherLookUp, FaultsOfTheCommandFoundAreReported) {
    EXPECT_EQ(nullptr, find("ipmi/", "reset -n"));
    EXPECT_EQ("Option [-n|--node] must have option value.\n", errors.toString());
    EXPECT_EQ(nullptr, find("ipmi/", "reset all"));
    EXPECT_EQ(nullptr, find("ipmi/", "reset -x"));
    EXPECT_EQ(0, errors.getSize());
}

TEST_F(CCommandDispatcherLookUp, ExactCommandsTakeNoOptions) {
    EXPECT_EQ(nullptr, find("tools/", "up -n a"));
    EXPECT_EQ(nullptr, find("tools/", "up all"));
}

TEST_F(CCommandDispatcherLookUp, NamesWithOptionLikeWordsAreFoundByTheirKey) {
    CShellCommand* glued = add(tools, "fw -show", SCRIPT);
    dispatcher.registerCommand(&tools);
    EXPECT_EQ(glued, find("tools/", "fw -show"));
    EXPECT_EQ("fw -show", line);
    EXPECT_EQ(glued, find("", "/tools/fw -show"));
    EXPECT_EQ("fw -show", line);
    EXPECT_EQ(nullptr, find("", "fw -show"));
}

TEST_F(CCommandDispatcherLookUp, EarlierFindingsEndTheSearchByKey) {
    add(tools, "fw -show", SCRIPT);
    dispatcher.registerCommand(&tools);
    std::string typed = "tools/fw -show";
    errors.addError(0, "earlier");
    EXPECT_EQ(nullptr, dispatcher.findExeCommand("", typed, &errors));
    EXPECT_EQ("tools/fw -show", typed);
    EXPECT_EQ(1, errors.getSize());
}

TEST_F(CCommandDispatcherLookUp, BlanksAroundTheLineDoNotMatter) {
    EXPECT_EQ(up, find("tools/", "  up  "));
    EXPECT_EQ("up", line);
    EXPECT_EQ(nullptr, find("tools/", ""));
    EXPECT_EQ(nullptr, find("tools/", "   "));
}

TEST_F(CCommandDispatcherLookUp, UnregisteredCommandsAreGone) {
    EXPECT_EQ(1, dispatcher.unregisterCommand(&tools));
    EXPECT_EQ(nullptr, find("tools/", "up"));
    EXPECT_EQ(usage, find("tools/", "disk/usage"));
}

TEST_F(CCommandDispatcherLookUp, WorksWithoutACollector) {
    line = "reset -n";
    EXPECT_EQ(nullptr, dispatcher.findExeCommand("ipmi/", line, nullptr));
    line = "reset -n a";
    EXPECT_EQ(ipmiReset, dispatcher.findExeCommand("ipmi/", line, nullptr));
}
