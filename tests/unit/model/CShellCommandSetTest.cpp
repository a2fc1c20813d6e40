#include <memory>

#include <gtest/gtest.h>

#include "CAlreadyExistException.h"
#include "CShellCommandSet.h"
#include "ConfigErrorCollector.h"
#include "Observed.h"

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

TEST(CShellCommandSet, StartsEmpty) {
    CShellCommandSet set("BASIC", "text");
    EXPECT_EQ("BASIC", set.getCommandSetName());
    EXPECT_EQ("text", set.getDescription());
    EXPECT_EQ(nullptr, set.getParentCommand());
    EXPECT_FALSE(set.hasParentCommandSet());
    EXPECT_EQ(0U, set.getTimeOut());
    EXPECT_EQ(0, set.getCommandSetConfirmType());
    EXPECT_EQ("", set.getCommandSetConfirmMessage());
    EXPECT_TRUE(set.getChildCommands().empty());
    EXPECT_TRUE(set.getSupportedCommands().empty());
    set.setDescription("new");
    EXPECT_EQ("new", set.getDescription());
}

TEST(CShellCommandSet, IsNamedExactly) {
    CShellCommandSet a("a", "1");
    CShellCommandSet sameName("a", "2");
    CShellCommandSet b("A", "1");
    EXPECT_TRUE(a.equal("a"));
    EXPECT_FALSE(a.equal("A"));
    EXPECT_TRUE(a.equal(sameName));
    EXPECT_TRUE(a == sameName);
    EXPECT_FALSE(a == b);
}

TEST(CShellCommandSet, RefusesAChildThatHasAParentBeforeLookingAtItsName) {
    CShellCommandSet first("first", "");
    CShellCommandSet second("second", "");
    CShellCommandSet* child = addChild(first, "x");
    EXPECT_EQ(&first, child->getParentCommand());
    EXPECT_TRUE(child->hasParentCommandSet());
    const std::string refusal = "Command x can only be added to a command group!";
    EXPECT_EQ(refusal, messageOf<CException>([&] { second.addChildCommand(child); }));
    EXPECT_EQ(refusal, messageOf<CException>([&] { first.addChildCommand(child); }));
    CShellCommandSet twin("x", "");
    EXPECT_EQ("The command x already exists!",
              messageOf<CAlreadyExistException>([&] { first.addChildCommand(&twin); }));
    EXPECT_FALSE(twin.hasParentCommandSet());
    EXPECT_EQ(1U, first.getChildCommands().size());
    EXPECT_TRUE(second.getChildCommands().empty());
}

TEST(CShellCommandSet, KeepsChildrenInTheOrderAddedAndGivesThemBackAlive) {
    CShellCommandSet set("s", "");
    CShellCommandSet* z = addChild(set, "z");
    CShellCommandSet* a = addChild(set, "a");
    EXPECT_EQ((std::vector<CShellCommandSet*>{z, a}), asVector(set.getChildCommands()));
    set.removeChildCommand(z);
    CShellCommandSet stranger("a", "");
    set.removeChildCommand(&stranger);
    EXPECT_EQ((std::vector<CShellCommandSet*>{a}), asVector(set.getChildCommands()));
    EXPECT_EQ("z", z->getCommandSetName());
    EXPECT_FALSE(z->hasParentCommandSet());
    set.removeAllChildCommands();
    EXPECT_TRUE(set.getChildCommands().empty());
    EXPECT_EQ("a", a->getPath());
    delete z;
    delete a;
}

TEST(CShellCommandSet, OwnsItsWholeSubtree) {
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
    ASSERT_EQ(2, alive);
    root.reset();
    EXPECT_EQ(0, alive);
}

// The parent is not owned, so it may be gone by the time the set dies.
TEST(CShellCommandSet, OutlivesAParentThatWasMerelySet) {
    auto parent = std::make_unique<CShellCommandSet>("p", "");
    auto set = std::make_unique<CShellCommandSet>("s", "");
    set->setParentCommand(parent.get());
    EXPECT_TRUE(set->hasParentCommandSet());
    EXPECT_EQ("p/s", set->getPath());
    EXPECT_TRUE(parent->getChildCommands().empty());
    parent.reset();
    set.reset();
}

TEST(CShellCommandSet, ForgetsAChildThatDiesFirst) {
    CShellCommandSet parent("p", "");
    CShellCommandSet* child = addChild(parent, "c");
    delete child;
    EXPECT_TRUE(parent.getChildCommands().empty());
}

TEST(CShellCommandSet, KeepsOneCommandPerName) {
    CShellCommandSet set("s", "");
    CShellCommand* b = add(set, "b b");
    CShellCommand* upper = add(set, "B");
    CShellCommand* a = add(set, "a");
    EXPECT_EQ(&set, b->getCommandSet());
    CShellCommand twin("b  b", "", "", SCRIPT, SLAVE);
    EXPECT_EQ("b b already exists!",
              messageOf<CAlreadyExistException>([&] { set.addSupportedCommand(&twin); }));
    EXPECT_EQ(nullptr, twin.getCommandSet());
    std::vector<CShellCommand*> order;
    for (const auto& entry : set.getSupportedCommands()) {
        order.push_back(entry.second);
    }
    EXPECT_EQ((std::vector<CShellCommand*>{upper, a, b}), order);

    EXPECT_TRUE(set.isSupported("  b \t b "));
    EXPECT_FALSE(set.isSupported("b"));
    EXPECT_FALSE(set.isSupported("bb"));
    EXPECT_FALSE(set.isSupported(""));
    EXPECT_FALSE(set.isSupported("A"));
    set.removeSupportedCommand("a");
    set.removeSupportedCommand("unknown");
    EXPECT_FALSE(set.isSupported("a"));
    EXPECT_EQ("a", a->getName());
    EXPECT_EQ(nullptr, a->getCommandSet());
    delete a;
}

TEST(CShellCommandSet, ComparesCommandNamesWithAnotherSet) {
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

TEST(CShellCommandSet, FindsTheFirstCommandInByteOrderThatAcceptsTheLine) {
    CShellCommandSet set("s", "");
    // "a" accepts "a -b" by its option; "a -b" is a name of its own that sorts later.
    add(set, "a -b", SCRIPT);
    CShellCommand* a = add(set, "a", SCRIPT_OPT);
    a->addOption(option("b", "", false, false));
    ConfigErrorCollector errors;
    EXPECT_EQ(set.findPossibleSupportedCommand("a -b", &errors), a);
    EXPECT_EQ(nullptr, set.findPossibleSupportedCommand("a b", &errors));
    EXPECT_EQ(0, errors.getSize());
}

TEST(CShellCommandSet, LeavesTheFindingsOfCommandsTriedOnTheWay) {
    CShellCommandSet set("s", "");
    CShellCommand* a = add(set, "a", SCRIPT_OPT);
    a->addOption(option("f", "file", true, true));
    CShellCommand* exact = add(set, "a -x", SCRIPT);
    ConfigErrorCollector errors;
    EXPECT_EQ(set.findPossibleSupportedCommand("a -x", &errors), exact);
    EXPECT_EQ("Option [-f|--file] must be provided.\n", errors.toString());
    // What is there already keeps a command with options from being accepted.
    EXPECT_EQ(nullptr, set.findPossibleSupportedCommand("a -f /x", &errors));
    EXPECT_EQ(1, errors.getSize());
    errors.clear();
    EXPECT_EQ(set.findPossibleSupportedCommand("a -f /x", &errors), a);
}

TEST(CShellCommandSet, MatchesALineThatIsTheNameAloneOrWithOptions) {
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

TEST(CShellCommandSet, BuildsItsPathFromTheRoot) {
    CShellCommandSet basic("BASIC", "");
    CShellCommandSet tools("tools", "");
    CShellCommandSet* x = addChild(basic, "x");
    CShellCommandSet* disk = addChild(tools, "disk");
    EXPECT_EQ("", basic.getPath());
    EXPECT_EQ("tools", tools.getPath());
    EXPECT_EQ("/x", x->getPath());
    EXPECT_EQ("/x/y", addChild(*x, "y")->getPath());
    EXPECT_EQ("tools/disk/BASIC", addChild(*disk, "BASIC")->getPath());
}

TEST(CShellCommandSet, PrintsItsHelpWithItsSubtree) {
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
    EXPECT_EQ(
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
        "[/y]  empty set\n",
        basic.getUsage());
    EXPECT_EQ("[tools]  Site tools\n", CShellCommandSet("tools", "Site tools").getUsage());
}

TEST(CShellCommandSet, InheritsConfirmationFromItsParents) {
    CShellCommandSet root("root", "");
    CShellCommandSet* child = addChild(root, "child");
    CShellCommand* c = add(*child, "c");
    child->setCommandSetConfirmType(INHERITANCE);
    child->setCommandSetConfirmMessage("ignored");
    c->setCommandConfirmType(INHERITANCE);
    root.setCommandSetConfirmType(EACH);
    EXPECT_EQ(EACH, child->getCommandSetConfirmType());
    EXPECT_EQ(EACH, child->getCommandConfirmType("c"));
    EXPECT_EQ(kQuestion, child->getCommandConfirmMessage("c"));
    root.setCommandSetConfirmMessage("Root?");
    EXPECT_EQ("Root?", child->getCommandSetConfirmMessage());
    root.setCommandSetConfirmType(ONCE);
    EXPECT_EQ(ONCE, c->getCommandConfirmType());
    root.setCommandSetConfirmType(INHERITANCE);
    EXPECT_EQ(1, root.getCommandSetConfirmType());
    EXPECT_EQ("", root.getCommandSetConfirmMessage());
    EXPECT_EQ(1, child->getCommandSetConfirmType());
    EXPECT_EQ("", child->getCommandSetConfirmMessage());
    root.setCommandSetConfirmType(NO);
    EXPECT_EQ("", child->getCommandSetConfirmMessage());
}

TEST(CShellCommandSet, AnswersForTheTextTypedAtThisLevel) {
    CShellCommandSet set("s", "");
    set.setTimeOut(30);
    CShellCommand* save = add(set, "save file", SCRIPT_OPT, SLAVE);
    save->addOption(option("f", "file", true, true));
    save->setTimeOut(5000);
    save->setCommandConfirmType(ONCE);
    save->setCommandConfirmMessage("Save?");
    add(set, "look", SCRIPT, MASTER);
    for (const char* typed : {"save file", "save file -f /tmp/x", "s/save file --file /a/b"}) {
        EXPECT_EQ(ONCE, set.getCommandConfirmType(typed)) << typed;
        EXPECT_EQ("Save?", set.getCommandConfirmMessage(typed)) << typed;
        EXPECT_EQ(5000U, set.getCommandTimeOut(typed)) << typed;
        EXPECT_EQ(SLAVE, set.getExecuteDestination(typed)) << typed;
    }
    EXPECT_EQ(30U, set.getCommandTimeOut("look"));
    EXPECT_EQ("", printedBy([&] { EXPECT_EQ(MASTER, set.getExecuteDestination("/s/look")); }));
}

TEST(CShellCommandSet, AnswersNothingForAnUnknownText) {
    CShellCommandSet set("tools", "");
    set.setTimeOut(30);
    set.setCommandSetConfirmType(EACH);
    CShellCommand* save = add(set, "save", SCRIPT_OPT);
    save->addOption(option("f", "file", true, true));
    for (const char* typed : {"a/ghost -x", "save -f", "save -f x y"}) {
        EXPECT_EQ(0, set.getCommandConfirmType(typed)) << typed;
        EXPECT_EQ("", set.getCommandConfirmMessage(typed)) << typed;
        EXPECT_EQ(0U, set.getCommandTimeOut(typed)) << typed;
        EXPECT_EQ(std::string("Warning!!! Can not find the EXECUTE_DESTINATION for ") + typed +
                      " in tools\n",
                  printedBy([&] { EXPECT_EQ(0, set.getExecuteDestination(typed)) << typed; }));
    }
}

TEST(CShellCommandSet, TreeNeverClosesACircle) {
    CShellCommandSet root("r", "");
    auto* child = new CShellCommandSet("c", "");
    root.addChildCommand(child);
    EXPECT_EQ("Command r can only be added to a command group!",
              messageOf<CException>([&] { child->addChildCommand(&root); }));
    EXPECT_EQ("Command r can only be added to a command group!",
              messageOf<CException>([&] { root.addChildCommand(&root); }));
}
