#include <ostream>

#include "CAlreadyExistException.h"
#include "CCommandDispatcher.h"
#include "CShellCommandSet.h"
#include "ConfigErrorCollector.h"
#include "Observed.h"

namespace {

struct Part {
    const char* line;
    const char* commandAndOptions;
    const char* command;
};

void PrintTo(const Part& part, std::ostream* out) {
    *out << '"' << part.line << '"';
}

CShellCommand* add(CShellCommandSet& set, const char* name, COMMAND_TYPE type = SCRIPT) {
    auto* command = new CShellCommand(name, "d", "line", type, SLAVE);
    set.addSupportedCommand(command);
    return command;
}

}  // namespace

class LinePart : public testing::TestWithParam<Part> {};

TEST_P(LinePart, IsFreeOfPathAndOptions) {
    EXPECT_EQ(GetParam().commandAndOptions,
              CCommandDispatcher::getCommandAndOptionPart(std::string(GetParam().line)));
    EXPECT_EQ(GetParam().command, CCommandDispatcher::getCommandPart(std::string(GetParam().line)));
}

INSTANTIATE_TEST_SUITE_P(
    CCommandDispatcher, LinePart,
    testing::Values(Part{"", "", ""}, Part{"  reset  ", "reset", "reset"},
                    Part{"reset -n node1", "reset -n node1", "reset"},
                    Part{"a/b/reset -f /tmp/x", "reset -f /tmp/x", "reset"},
                    Part{"x/y -v a/b", "y -v a/b", "y"}, Part{"/a/b", "b", "b"}, Part{"a/", "", ""},
                    Part{"/", "", ""}, Part{"//x", "x", "x"}, Part{"-f /x", "-f /x", "-f /x"},
                    // A dash anywhere before a slash ends the path, within a word too.
                    Part{"a-b/c", "a-b/c", "a-b/c"}, Part{"x/a-b/c -n y", "a-b/c -n y", "a-b/c"},
                    Part{"a/ b c  -x", "b c  -x", "b c"},
                    Part{"list node --x", "list node --x", "list node"},
                    Part{"a/--help", "--help", "--help"}, Part{"a-b -c", "a-b -c", "a-b"},
                    Part{"a -", "a -", "a"}, Part{"//x// reset ", "reset", "reset"},
                    Part{"my-set/go", "my-set/go", "my-set/go"}, Part{"a/- x", "- x", "- x"},
                    Part{"a/b/reset   --node x/y", "reset   --node x/y", "reset"},
                    Part{"re-set -n a", "re-set -n a", "re-set"}, Part{"-n a", "-n a", "-n a"}));

class Dispatching : public testing::Test {
protected:
    Dispatching() {
        list = add(basic, "list");
        listNode = add(basic, "list node");
        save = add(basic, "save", SCRIPT_OPT);
        save->addOption(new CCommandOption("f", "file", 1, 1));
        uptime = add(tools, "uptime");
        ping = add(tools, "ping", SCRIPT_OPT);
        ping->addOption(new CCommandOption("c", "count", 0, 1));
        usage = add(*disk, "usage");
        tools.addChildCommand(disk);
        reset = add(*ipmi, "reset", SCRIPT_OPT);
        reset->addOption(new CCommandOption("n", "node", 0, 1));
        basic.addChildCommand(ipmi);
        dashed = add(dash, "go", SCRIPT_OPT);
        dashed->addOption(new CCommandOption("v", "", 0, 1));
        for (CShellCommandSet* set : {&basic, &tools, disk, ipmi, &dash}) {
            dispatcher.registerCommand(set);
        }
    }

    void expectFound(std::string level, std::string typed, CShellCommand* command,
                     const std::string& rest) {
        ConfigErrorCollector errors;
        std::string line = typed;
        EXPECT_EQ(command, dispatcher.findExeCommand(level, line, &errors))
            << level << " + " << typed;
        EXPECT_EQ(line, rest) << level << " + " << typed;
        EXPECT_EQ(0, errors.getSize()) << errors.toString();
    }
    void expectNothing(std::string level, std::string typed, const std::string& findings = "") {
        ConfigErrorCollector errors;
        std::string line = typed;
        EXPECT_EQ(nullptr, dispatcher.findExeCommand(level, line, &errors))
            << level << " + " << typed;
        EXPECT_EQ(line, typed);
        EXPECT_EQ(findings, errors.toString()) << level << " + " << typed;
    }

    CCommandDispatcher dispatcher;
    CShellCommandSet basic{"BASIC", ""};
    CShellCommandSet tools{"tools", ""};
    CShellCommandSet dash{"my-set", ""};
    CShellCommandSet* disk = new CShellCommandSet("disk", "");
    CShellCommandSet* ipmi = new CShellCommandSet("ipmi", "");
    CShellCommand* list;
    CShellCommand* listNode;
    CShellCommand* save;
    CShellCommand* uptime;
    CShellCommand* ping;
    CShellCommand* usage;
    CShellCommand* reset;
    CShellCommand* dashed;
};

TEST_F(Dispatching, FindsRelativeLines) {
    expectFound("", "tools/uptime", uptime, "uptime");
    expectFound("tools", "uptime", uptime, "uptime");
    expectFound("/tools", "uptime", uptime, "uptime");
    expectFound("/tools/disk", "usage", usage, "usage");
    expectFound("tools/", "uptime", uptime, "uptime");
    expectFound("tools/", "ping -c 3", ping, "ping -c 3");
    expectFound("tools/", "ping --count a/b", ping, "ping --count a/b");
    expectFound("tools/", "disk/usage", usage, "usage");
    expectFound("tools", "disk/usage", usage, "usage");
    expectFound("tools/disk/", "usage", usage, "usage");
    expectFound("/ipmi", "reset -n node1", reset, "reset -n node1");
    expectFound("ipmi/", "reset -n node1", reset, "reset -n node1");
    expectFound("BASIC/ipmi/", "reset -n node1", reset, "reset -n node1");
}

TEST_F(Dispatching, FindsAbsoluteLinesFromEveryLevel) {
    for (const char* level : {"", "tools/", "tools/disk/", "ipmi/"}) {
        expectFound(level, "/tools/uptime", uptime, "uptime");
        expectFound(level, "/tools/disk/usage", usage, "usage");
        expectFound(level, "/ipmi/reset -n x", reset, "reset -n x");
        expectFound(level, "/list node", listNode, "list node");
        expectFound(level, "/save -f /tmp/x", save, "save -f /tmp/x");
    }
}

TEST_F(Dispatching, FindsRootCommandsFromEveryLevel) {
    for (const char* level :
         {"", "BASIC/", "tools/", "tools/disk/", "my-set/", "/ipmi", "no/such/level"}) {
        expectFound(level, "list", list, "list");
        expectFound(level, "list node", listNode, "list node");
        expectFound(level, "save -f /tmp/x", save, "save -f /tmp/x");
    }
    expectFound("tools/", "BASIC/list node", listNode, "list node");
    expectFound("tools/", "/BASIC/list node", listNode, "list node");
}

TEST_F(Dispatching, FindsNoCommandOfAnotherLevel) {
    expectNothing("", "uptime");
    expectNothing("tools/disk/", "uptime");
    expectNothing("", "reset");
    expectNothing("", "/uptime");
    expectNothing("", "ghost");
    expectNothing("tools/", "/ghost -x");
    expectNothing("", "");
    expectNothing("", "/");
    expectNothing("tools/", "UPTIME");
    expectNothing("tools/", "usage");
    expectNothing("", "ghost/uptime");
    expectNothing("tools/", "/uptime");
    expectNothing("tools/", "/disk/usage");
    expectNothing("tools/", "/");
}

TEST_F(Dispatching, LeavesTheFindingsOfAKnownCommand) {
    expectNothing("", "save", "Option [-f|--file] must be provided.\n");
    expectNothing("tools/", "ping -c", "Option [-c|--count] must have option value.\n");
    expectNothing("tools/", "ping -z");
    expectNothing("tools/", "ping all");
    expectNothing("tools/", "uptime all");
    expectNothing("tools/", "/tools/uptime -x");
}

TEST_F(Dispatching, ServesSetsWhoseNamesHoldDashes) {
    expectFound("my-set/", "go", dashed, "go");
    expectFound("my-set/", "go -v a/b", dashed, "go -v a/b");
    expectFound("", "my-set/go", dashed, "go");
    expectFound("tools/", "/my-set/go -v 1", dashed, "go -v 1");
}

TEST_F(Dispatching, PrefersTheCommandOfTheLevelToTheRootOne) {
    CShellCommandSet other("other", "");
    CCommandDispatcher fresh;
    CShellCommand* own = add(other, "list");
    // Before the root's commands are known, its names are still free.
    fresh.registerCommand(&other);
    fresh.registerCommand(&basic);
    ConfigErrorCollector errors;
    std::string line = "list";
    EXPECT_EQ(own, fresh.findExeCommand("other/", line, &errors));
    line = "/list";
    EXPECT_EQ(list, fresh.findExeCommand("other/", line, &errors));
}

TEST_F(Dispatching, FindsACommandWhoseNameLooksLikeAnOption) {
    CShellCommandSet odd("odd", "");
    CShellCommand* all = add(odd, "show -all");
    CShellCommand* help = add(odd, "--what");
    dispatcher.registerCommand(&odd);
    expectFound("odd/", "show -all", all, "show -all");
    expectFound("odd/", "--what", help, "--what");
    expectFound("", "/odd/show -all", all, "show -all");
    expectNothing("", "show -all");
    dispatcher.unregisterCommand(&odd);
}

TEST_F(Dispatching, RefusesTheNameOfARootCommandWithoutEnteringAnything) {
    CShellCommandSet clash("clash", "");
    add(clash, "aaa");
    add(clash, "list");
    EXPECT_EQ("Command \"list\" already exists!",
              messageOf<CAlreadyExistException>([&] { dispatcher.registerCommand(&clash); }));
    EXPECT_EQ(0, dispatcher.unregisterCommand(&clash));
    EXPECT_EQ("Command \"list\" already exists!",
              messageOf<CAlreadyExistException>([&] { dispatcher.registerCommand(&basic); }));
}

TEST_F(Dispatching, AcceptsOneNameInTwoOtherSets) {
    CShellCommandSet other("other", "");
    CShellCommand* second = add(other, "uptime");
    EXPECT_NO_THROW(dispatcher.registerCommand(&other));
    expectFound("other/", "uptime", second, "uptime");
    expectFound("tools/", "uptime", uptime, "uptime");
    EXPECT_EQ(1, dispatcher.unregisterCommand(&other));
    expectNothing("other/", "uptime");
    EXPECT_EQ(0, dispatcher.unregisterCommand(&other));
}

TEST_F(Dispatching, RefusesAFullKeyOfAnotherSet) {
    CShellCommandSet twin("tools", "");
    add(twin, "uptime");
    EXPECT_EQ("Command \"uptime\" already exists!",
              messageOf<CAlreadyExistException>([&] { dispatcher.registerCommand(&twin); }));
    expectFound("tools/", "uptime", uptime, "uptime");
    EXPECT_EQ(0, dispatcher.unregisterCommand(&twin));
    EXPECT_NO_THROW(dispatcher.registerCommand(&tools));
}

TEST_F(Dispatching, CountsWhatItTakesOut) {
    EXPECT_EQ(3, dispatcher.unregisterCommand(&basic));
    expectNothing("", "list");
    EXPECT_EQ(2, dispatcher.unregisterCommand(&tools));
    EXPECT_EQ(0, dispatcher.unregisterCommand(nullptr));
    expectFound("tools/disk/", "usage", usage, "usage");
}

TEST_F(Dispatching, EarlierFindingsEndTheSearchByKey) {
    add(tools, "fw -show");
    dispatcher.registerCommand(&tools);
    ConfigErrorCollector errors;
    errors.addError(0, "earlier");
    std::string typed = "tools/fw -show";
    EXPECT_EQ(nullptr, dispatcher.findExeCommand("", typed, &errors));
    EXPECT_EQ("tools/fw -show", typed);
    EXPECT_EQ(1, errors.getSize());
}

TEST_F(Dispatching, BlanksAroundTheLineDoNotMatter) {
    expectFound("tools/", "  uptime  ", uptime, "uptime");
    expectNothing("tools/", "");
    expectNothing("tools/", "   ");
}

TEST_F(Dispatching, WorksWithoutACollector) {
    std::string line = "ping -c";
    EXPECT_EQ(nullptr, dispatcher.findExeCommand("tools/", line, nullptr));
    line = "ping -c 1";
    EXPECT_EQ(ping, dispatcher.findExeCommand("tools/", line, nullptr));
}
