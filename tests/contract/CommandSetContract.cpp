#include <memory>

#include "AgentsByAddress.h"
#include "CAlreadyExistException.h"
#include "CNode.h"
#include "CResult.h"
#include "CSSLConfig.h"
#include "CShellCommandSet.h"
#include "ConfigErrorCollector.h"
#include "Contract.h"
#include "SSLClient.h"

namespace {

const char* const kQuestion = "Do you really want to execute this command?";

CShellCommand* add(CShellCommandSet& set, const char* name, COMMAND_TYPE type = SCRIPT,
                   EXECUTE_DESTINATION destination = SLAVE) {
    auto owned = std::make_unique<CShellCommand>(name, std::string("about ") + name,
                                                 std::string("run ") + name, type, destination);
    CShellCommand* command = owned.get();
    set.addSupportedCommand(command);
    owned.release();
    return command;
}

CShellCommandSet* addChild(CShellCommandSet& parent, const char* name, const char* text = "t") {
    auto* child = new CShellCommandSet(name, text);
    parent.addChildCommand(child);
    return child;
}

CCommandOption* option(const char* shortName, const char* longName, bool compulsory, bool value) {
    return new CCommandOption(shortName, longName, compulsory ? 1 : 0, value ? 1 : 0,
                              std::string("does ") + longName);
}

}  // namespace

TEST(CShellCommandSetContract, StartsEmpty) {
    CShellCommandSet set("BASIC", "text");
    EXPECT_EQ(set.getCommandSetName(), "BASIC");
    EXPECT_EQ(set.getDescription(), "text");
    EXPECT_EQ(set.getParentCommand(), nullptr);
    EXPECT_FALSE(set.hasParentCommandSet());
    EXPECT_EQ(set.getTimeOut(), 0U);
    EXPECT_EQ(set.getCommandSetConfirmType(), 0);
    EXPECT_EQ(set.getCommandSetConfirmMessage(), "");
    EXPECT_TRUE(set.getChildCommands().empty());
    EXPECT_TRUE(set.getSupportedCommands().empty());
    set.setDescription("new");
    EXPECT_EQ(set.getDescription(), "new");
}

TEST(CShellCommandSetContract, IsNamedExactly) {
    CShellCommandSet a("a", "1");
    CShellCommandSet sameName("a", "2");
    CShellCommandSet b("A", "1");
    EXPECT_TRUE(a.equal("a"));
    EXPECT_FALSE(a.equal("A"));
    EXPECT_TRUE(a.equal(sameName));
    EXPECT_TRUE(a == sameName);
    EXPECT_FALSE(a == b);
}

TEST(CShellCommandSetContract, RefusesAChildThatHasAParentBeforeLookingAtItsName) {
    CShellCommandSet first("first", "");
    CShellCommandSet second("second", "");
    CShellCommandSet* child = addChild(first, "x");
    EXPECT_EQ(child->getParentCommand(), &first);
    EXPECT_TRUE(child->hasParentCommandSet());
    const std::string refusal = "Command x can only be added to a command group!";
    EXPECT_EQ(messageOf<CException>([&] { second.addChildCommand(child); }), refusal);
    EXPECT_EQ(messageOf<CException>([&] { first.addChildCommand(child); }), refusal);
    CShellCommandSet twin("x", "");
    EXPECT_EQ(messageOf<CAlreadyExistException>([&] { first.addChildCommand(&twin); }),
              "The command x already exists!");
    EXPECT_FALSE(twin.hasParentCommandSet());
    EXPECT_EQ(first.getChildCommands().size(), 1U);
    EXPECT_TRUE(second.getChildCommands().empty());
}

TEST(CShellCommandSetContract, KeepsChildrenInTheOrderAddedAndGivesThemBackAlive) {
    CShellCommandSet set("s", "");
    CShellCommandSet* z = addChild(set, "z");
    CShellCommandSet* a = addChild(set, "a");
    EXPECT_EQ(asVector(set.getChildCommands()), (std::vector<CShellCommandSet*>{z, a}));
    set.removeChildCommand(z);
    CShellCommandSet stranger("a", "");
    set.removeChildCommand(&stranger);
    EXPECT_EQ(asVector(set.getChildCommands()), (std::vector<CShellCommandSet*>{a}));
    EXPECT_EQ(z->getCommandSetName(), "z");
    set.removeAllChildCommands();
    EXPECT_TRUE(set.getChildCommands().empty());
    EXPECT_EQ(a->getCommandSetName(), "a");
    delete z;
    delete a;
}

TEST(CShellCommandSetContract, OwnsItsWholeSubtree) {
    class Counted : public CShellCommandSet {
    public:
        explicit Counted(int& aliveCount) : CShellCommandSet("c", ""), alive(aliveCount) {
            ++alive;
        }
        Counted(const Counted&) = delete;
        Counted& operator=(const Counted&) = delete;
        ~Counted() override { --alive; }

    private:
        int& alive;
    };
    int alive = 0;
    auto root = std::make_unique<CShellCommandSet>("r", "");
    auto* child = new Counted(alive);
    root->addChildCommand(child);
    child->addChildCommand(new Counted(alive));
    ASSERT_EQ(alive, 2);
    root.reset();
    EXPECT_EQ(alive, 0);
}

// The parent is not owned, so it may be gone by the time the set dies.
TEST(CShellCommandSetContract, OutlivesAParentThatWasMerelySet) {
    auto parent = std::make_unique<CShellCommandSet>("p", "");
    auto set = std::make_unique<CShellCommandSet>("s", "");
    set->setParentCommand(parent.get());
    EXPECT_TRUE(set->hasParentCommandSet());
    EXPECT_EQ(set->getPath(), "p/s");
    EXPECT_TRUE(parent->getChildCommands().empty());
    parent.reset();
    set.reset();
}

TEST(CShellCommandSetContract, ForgetsAChildThatDiesFirst) {
    CShellCommandSet parent("p", "");
    CShellCommandSet* child = addChild(parent, "c");
    delete child;
    EXPECT_TRUE(parent.getChildCommands().empty());
}

TEST(CShellCommandSetContract, KeepsOneCommandPerName) {
    CShellCommandSet set("s", "");
    CShellCommand* b = add(set, "b b");
    CShellCommand* upper = add(set, "B");
    CShellCommand* a = add(set, "a");
    EXPECT_EQ(b->getCommandSet(), &set);
    CShellCommand twin("b  b", "", "", SCRIPT, SLAVE);
    EXPECT_EQ(messageOf<CAlreadyExistException>([&] { set.addSupportedCommand(&twin); }),
              "b b already exists!");
    std::vector<CShellCommand*> order;
    for (const auto& entry : set.getSupportedCommands()) {
        order.push_back(entry.second);
    }
    EXPECT_EQ(order, (std::vector<CShellCommand*>{upper, a, b}));

    EXPECT_TRUE(set.isSupported("  b \t b "));
    EXPECT_FALSE(set.isSupported("b"));
    EXPECT_FALSE(set.isSupported("bb"));
    EXPECT_FALSE(set.isSupported("A"));
    set.removeSupportedCommand("a");
    set.removeSupportedCommand("unknown");
    EXPECT_FALSE(set.isSupported("a"));
    EXPECT_EQ(a->getName(), "a");
    delete a;
}

TEST(CShellCommandSetContract, ComparesCommandNamesWithAnotherSet) {
    CShellCommandSet a("a", "");
    CShellCommandSet b("b", "");
    EXPECT_FALSE(a.hasDuplicateSupportedCommand(nullptr));
    EXPECT_FALSE(a.hasDuplicateSupportedCommand(&b));
    add(a, "x");
    add(b, "y");
    EXPECT_FALSE(a.hasDuplicateSupportedCommand(&b));
    add(b, "x");
    EXPECT_TRUE(a.hasDuplicateSupportedCommand(&b));
    EXPECT_TRUE(b.hasDuplicateSupportedCommand(&a));
}

TEST(CShellCommandSetContract, FindsTheFirstCommandInByteOrderThatAcceptsTheLine) {
    CShellCommandSet set("s", "");
    // "a" accepts "a -b" by its option; "a -b" is a name of its own that sorts later.
    add(set, "a -b", SCRIPT);
    CShellCommand* a = add(set, "a", SCRIPT_OPT);
    a->addOption(option("b", "", false, false));
    ConfigErrorCollector errors;
    EXPECT_EQ(set.findPossibleSupportedCommand("a -b", &errors), a);
    EXPECT_EQ(set.findPossibleSupportedCommand("a b", &errors), nullptr);
    EXPECT_EQ(errors.getSize(), 0);
}

TEST(CShellCommandSetContract, LeavesTheFindingsOfCommandsTriedOnTheWay) {
    CShellCommandSet set("s", "");
    CShellCommand* a = add(set, "a", SCRIPT_OPT);
    a->addOption(option("f", "file", true, true));
    CShellCommand* exact = add(set, "a -x", SCRIPT);
    ConfigErrorCollector errors;
    EXPECT_EQ(set.findPossibleSupportedCommand("a -x", &errors), exact);
    EXPECT_EQ(errors.toString(), "Option [-f|--file] must be provided.\n");
    // What is there already keeps a command with options from being accepted.
    EXPECT_EQ(set.findPossibleSupportedCommand("a -f /x", &errors), nullptr);
    EXPECT_EQ(errors.getSize(), 1);
    errors.clear();
    EXPECT_EQ(set.findPossibleSupportedCommand("a -f /x", &errors), a);
}

TEST(CShellCommandSetContract, MatchesALineThatIsTheNameAloneOrWithOptions) {
    CShellCommandSet set("s", "");
    EXPECT_TRUE(set.matchCommand("reset", "reset"));
    EXPECT_TRUE(set.matchCommand("reset   ", "reset"));
    EXPECT_TRUE(set.matchCommand("reset   -n x", "reset"));
    EXPECT_TRUE(set.matchCommand("list node --x", "list node"));
    EXPECT_TRUE(set.matchCommand("reset-n", "reset"));
    EXPECT_FALSE(set.matchCommand("reset nodes", "reset"));
    EXPECT_FALSE(set.matchCommand("resets", "reset"));
    EXPECT_FALSE(set.matchCommand(" reset", "reset"));
    EXPECT_FALSE(set.matchCommand("rese", "reset"));
    EXPECT_FALSE(set.matchCommand("", "reset"));
}

TEST(CShellCommandSetContract, BuildsItsPathFromTheRoot) {
    CShellCommandSet basic("BASIC", "");
    CShellCommandSet tools("tools", "");
    CShellCommandSet* x = addChild(basic, "x");
    CShellCommandSet* disk = addChild(tools, "disk");
    EXPECT_EQ(basic.getPath(), "");
    EXPECT_EQ(tools.getPath(), "tools");
    EXPECT_EQ(x->getPath(), "/x");
    EXPECT_EQ(addChild(*x, "y")->getPath(), "/x/y");
    EXPECT_EQ(addChild(*disk, "BASIC")->getPath(), "tools/disk/BASIC");
}

TEST(CShellCommandSetContract, PrintsItsHelpWithItsSubtree) {
    CShellCommandSet basic("BASIC", "never shown");
    CShellCommand* b = add(basic, "b");
    b->addOption(option("n", "node", false, true));
    b->addOption(option("", "all", false, false));
    b->addOption(option("t", "", false, false));
    b->addExample("b -n x");
    b->addExample("b --all");
    b->addExample("b -t");
    add(basic, "a")->addExample("a");
    CShellCommandSet* z = addChild(basic, "z", "last letter");
    add(*z, "c")->addOption(option("o", "one", false, false));
    addChild(*z, "deep", "");
    addChild(basic, "y", "empty set");
    EXPECT_EQ(basic.getUsage(),
              "a:  about a\n"
              "  Example: a\n"
              "b:  about b\n"
              "  Option:-n, --node: does node\n"
              "         --all: does all\n"
              "         -t: does \n"
              "  Example: b -n x\n"
              "         b --all\n"
              "         b -t\n"
              "[/z]  last letter\n"
              "c:  about c\n"
              "  Option:-o, --one: does one\n"
              "[/z/deep]  \n"
              "[/y]  empty set\n");
    EXPECT_EQ(CShellCommandSet("tools", "Site tools").getUsage(), "[tools]  Site tools\n");
}

TEST(CShellCommandSetContract, InheritsConfirmationFromItsParents) {
    CShellCommandSet root("root", "");
    CShellCommandSet* child = addChild(root, "child");
    CShellCommand* c = add(*child, "c");
    child->setCommandSetConfirmType(INHERITANCE);
    child->setCommandSetConfirmMessage("ignored");
    c->setCommandConfirmType(INHERITANCE);
    root.setCommandSetConfirmType(EACH);
    EXPECT_EQ(child->getCommandSetConfirmType(), EACH);
    EXPECT_EQ(child->getCommandConfirmType("c"), EACH);
    EXPECT_EQ(child->getCommandConfirmMessage("c"), kQuestion);
    root.setCommandSetConfirmMessage("Root?");
    EXPECT_EQ(child->getCommandSetConfirmMessage(), "Root?");
    root.setCommandSetConfirmType(ONCE);
    EXPECT_EQ(c->getCommandConfirmType(), ONCE);
    root.setCommandSetConfirmType(INHERITANCE);
    EXPECT_EQ(root.getCommandSetConfirmType(), 1);
    EXPECT_EQ(root.getCommandSetConfirmMessage(), "");
    EXPECT_EQ(child->getCommandSetConfirmType(), 1);
    EXPECT_EQ(child->getCommandSetConfirmMessage(), "");
    root.setCommandSetConfirmType(NO);
    EXPECT_EQ(child->getCommandSetConfirmMessage(), "");
}

TEST(CShellCommandSetContract, AnswersForTheTextTypedAtThisLevel) {
    CShellCommandSet set("s", "");
    set.setTimeOut(30);
    CShellCommand* save = add(set, "save file", SCRIPT_OPT, SLAVE);
    save->addOption(option("f", "file", true, true));
    save->setTimeOut(5000);
    save->setCommandConfirmType(ONCE);
    save->setCommandConfirmMessage("Save?");
    add(set, "look", SCRIPT, MASTER);
    for (const char* typed : {"save file", "save file -f /tmp/x", "s/save file --file /a/b"}) {
        EXPECT_EQ(set.getCommandConfirmType(typed), ONCE) << typed;
        EXPECT_EQ(set.getCommandConfirmMessage(typed), "Save?") << typed;
        EXPECT_EQ(set.getCommandTimeOut(typed), 5000U) << typed;
        EXPECT_EQ(set.getExecuteDestination(typed), SLAVE) << typed;
    }
    EXPECT_EQ(set.getCommandTimeOut("look"), 30U);
    EXPECT_EQ(printedBy([&] { EXPECT_EQ(set.getExecuteDestination("/s/look"), MASTER); }), "");
}

TEST(CShellCommandSetContract, AnswersNothingForAnUnknownText) {
    CShellCommandSet set("tools", "");
    set.setTimeOut(30);
    set.setCommandSetConfirmType(EACH);
    CShellCommand* save = add(set, "save", SCRIPT_OPT);
    save->addOption(option("f", "file", true, true));
    for (const char* typed : {"a/ghost -x", "save -f", "save -f x y"}) {
        EXPECT_EQ(set.getCommandConfirmType(typed), 0) << typed;
        EXPECT_EQ(set.getCommandConfirmMessage(typed), "") << typed;
        EXPECT_EQ(set.getCommandTimeOut(typed), 0U) << typed;
        EXPECT_EQ(printedBy([&] { EXPECT_EQ(set.getExecuteDestination(typed), 0) << typed; }),
                  std::string("Warning!!! Can not find the EXECUTE_DESTINATION for ") + typed +
                      " in tools\n");
    }
}

class CommandSetExecution : public testing::Test {
protected:
    CommandSetExecution() {
        AgentsByAddress::reset();
        AgentsByAddress::at("10.1.1.1");
        CSSLConfig::getInstance()->setCertificateFile("/c/master.crt");
        add(set, "both");
        set.addSupportedCommand(new CShellCommand("split", "", "as32", "as64", SCRIPT, SLAVE));
        set.addSupportedCommand(new CShellCommand("only64", "", "", "as64", SCRIPT, SLAVE));
        set.addSupportedCommand(new CShellCommand("only32", "", "as32", "", SCRIPT, SLAVE));
    }
    ~CommandSetExecution() override {
        EXPECT_EQ(AgentsByAddress::liveClients(), 0);
        CSSLConfig::getInstance()->setCertificateFile("");
    }

    CResult execute(std::string command) {
        CResult result;
        result.setRunStatus(1);
        result.setRunSummary("before");
        set.execute(command, &node, result, 777U);
        return result;
    }
    void expectFailure(std::string command, const std::string& summary) {
        const CResult result = execute(command);
        EXPECT_EQ(result.getRunStatus(), 2) << command;
        EXPECT_EQ(result.getRunSummary(), summary) << command;
    }

    AgentsByAddress::Agent& agent() { return AgentsByAddress::at("10.1.1.1"); }
    void platform(const std::string& answer) {
        agent().answers["uname -i"] = AgentsByAddress::outcome(0, answer);
    }

    CShellCommandSet set{"tools", ""};
    CNode node{"n", "AA", "10.1.1.1", 4711};
};

TEST_F(CommandSetExecution, SendsTheLineToTheAgentOfTheNode) {
    agent().answers["run both"] = AgentsByAddress::outcome(3, "output");
    const CResult result = execute("both");
    EXPECT_EQ(result.getRunStatus(), 2);
    EXPECT_EQ(result.getExitCode(), 3);
    EXPECT_EQ(result.getRunSummary(), "output");
    ASSERT_EQ(AgentsByAddress::requests().size(), 1U);
    const AgentsByAddress::Request request = AgentsByAddress::requests().front();
    EXPECT_EQ(request.ip, "10.1.1.1");
    EXPECT_EQ(request.port, 4711);
    EXPECT_EQ(request.certificateFile, "/c/master.crt");
    EXPECT_EQ(request.line, "run both");
    EXPECT_EQ(request.timeOut, 777U);
}

TEST_F(CommandSetExecution, TakesNothingButAStoredName) {
    expectFailure("", "Command is empty.");
    expectFailure("none", "Command \"none\" is not supported.");
    expectFailure("both -x", "Command \"both -x\" is not supported.");
    expectFailure(" both", "Command \" both\" is not supported.");
    expectFailure("tools/both", "Command \"tools/both\" is not supported.");
    EXPECT_TRUE(AgentsByAddress::requests().empty());
}

TEST_F(CommandSetExecution, ChoosesTheLineByTheHardwarePlatform) {
    const auto lastLine = [] { return AgentsByAddress::requests().back().line; };
    platform(" i386\n");
    execute("split");
    EXPECT_EQ(lastLine(), "as32");
    EXPECT_EQ(AgentsByAddress::requests().back().timeOut, 777U);
    execute("only32");
    EXPECT_EQ(lastLine(), "as32");
    expectFailure("only64", "Command for i386 hardware platform is not defined!");
    platform("x86_64\n");
    execute("split");
    EXPECT_EQ(lastLine(), "as64");
    expectFailure("only32", "Command for x86_64 hardware platform is not defined!");
    for (const char* other : {"", "unknown\n", "i686", "X86_64", "x86_64 i386"}) {
        platform(other);
        expectFailure("split", "Unknown hardware-platform of slave node.");
        expectFailure("only64", "Unknown hardware-platform of slave node.");
    }
}

TEST_F(CommandSetExecution, ReportsAFaultOfTheConnection) {
    agent().failures["run both"] = "the line is cut";
    expectFailure("both", "the line is cut");
    agent().failures["uname -i"] = "no answer";
    expectFailure("split", "no answer");
    node.setIp("10.9.9.9");
    expectFailure("both", "no agent at 10.9.9.9");
}

TEST_F(CommandSetExecution, RunsOnTheMasterWithoutANode) {
    set.addSupportedCommand(
        new CShellCommand("here", "", "echo out; echo err >&2; exit 3", SCRIPT, MASTER));
    set.addSupportedCommand(new CShellCommand("fine", "", "true", SCRIPT, MASTER));
    CResult result;
    set.execute("here", nullptr, result, 0);
    EXPECT_EQ(result.getRunStatus(), 2);
    EXPECT_EQ(result.getExitCode(), 3);
    EXPECT_EQ(result.getRunSummary(), "out\nerr\n");
    set.execute("fine", nullptr, result, 0);
    EXPECT_EQ(result.getRunStatus(), 0);
    EXPECT_EQ(result.getExitCode(), 0);
    EXPECT_EQ(result.getRunSummary(), "");
    set.execute("", nullptr, result, 0);
    EXPECT_EQ(result.getRunSummary(), "Command is empty.");
    set.execute("none", nullptr, result, 0);
    EXPECT_EQ(result.getRunSummary(), "Command \"none\" is not supported.");
    EXPECT_TRUE(AgentsByAddress::requests().empty());
}

TEST_F(CommandSetExecution, NumbersThePlatforms) {
    EXPECT_EQ(set.checkHardwarePlatformOnSlaveNode(nullptr), 2);
    SSLClient client("10.1.1.1", 1, "");
    const auto check = [&](const char* answer) {
        platform(answer);
        return set.checkHardwarePlatformOnSlaveNode(&client);
    };
    EXPECT_EQ(check("i386\n"), 0);
    EXPECT_EQ(check("\tx86_64 \n"), 1);
    EXPECT_EQ(check("aarch64\n"), 2);
    EXPECT_EQ(check(""), 2);
}

TEST_F(CommandSetExecution, IsCalledThroughTheBaseClass) {
    class Own : public CShellCommandSet {
    public:
        Own() : CShellCommandSet("own", "") {}
        void execute(std::string command, CNode*, CResult& result, unsigned milliseconds) override {
            result.setRunSummary(command + std::to_string(milliseconds));
        }
    };
    const std::unique_ptr<CShellCommandSet> own = std::make_unique<Own>();
    CResult result;
    own->execute("x", &node, result, 5);
    EXPECT_EQ(result.getRunSummary(), "x5");
}
