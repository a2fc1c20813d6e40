#include <memory>

#include <gtest/gtest.h>

#include "CAlreadyExistException.h"
#include "CShellCommandSet.h"
#include "ConfigErrorCollector.h"

namespace {

CShellCommand* script(const std::string& name, COMMAND_TYPE type = SCRIPT) {
    return new CShellCommand(name, "About " + name, "run " + name, type, SLAVE);
}

template <typename Action>
std::string refusal(Action action) {
    try {
        action();
    } catch (const CException& fault) {
        return fault.getErrMsg();
    }
    return "accepted";
}

}  // namespace

TEST(CShellCommandSet, StartsEmpty) {
    CShellCommandSet set("tools", "Site tools");
    EXPECT_EQ("tools", set.getCommandSetName());
    EXPECT_EQ("Site tools", set.getDescription());
    set.setDescription("Other");
    EXPECT_EQ("Other", set.getDescription());
    EXPECT_FALSE(set.hasParentCommandSet());
    EXPECT_EQ(nullptr, set.getParentCommand());
    EXPECT_TRUE(set.getChildCommands().empty());
    EXPECT_TRUE(set.getSupportedCommands().empty());
    EXPECT_EQ(0U, set.getTimeOut());
    EXPECT_EQ(NO, set.getCommandSetConfirmType());
    EXPECT_EQ("", set.getCommandSetConfirmMessage());
}

TEST(CShellCommandSet, NamesAreComparedExactly) {
    CShellCommandSet set("tools", "a");
    CShellCommandSet same("tools", "b");
    CShellCommandSet other("Tools", "a");
    EXPECT_TRUE(set.equal(std::string("tools")));
    EXPECT_TRUE(set.equal(same));
    EXPECT_TRUE(set == same);
    EXPECT_FALSE(set == other);
}

TEST(CShellCommandSet, ChildrenKeepTheirOrderAndKnowTheirParent) {
    CShellCommandSet root("BASIC", "");
    auto* second = new CShellCommandSet("b", "");
    auto* first = new CShellCommandSet("a", "");
    root.addChildCommand(second);
    root.addChildCommand(first);
    EXPECT_EQ((std::list<CShellCommandSet*>{second, first}), root.getChildCommands());
    EXPECT_TRUE(first->hasParentCommandSet());
    EXPECT_EQ(&root, first->getParentCommand());
}

TEST(CShellCommandSet, ChildHasOneParentOnly) {
    CShellCommandSet root("BASIC", "");
    CShellCommandSet other("other", "");
    auto* child = new CShellCommandSet("x", "");
    root.addChildCommand(child);
    EXPECT_EQ("Command x can only be added to a command group!",
              refusal([&] { other.addChildCommand(child); }));
    EXPECT_EQ("Command x can only be added to a command group!",
              refusal([&] { root.addChildCommand(child); }));
    EXPECT_TRUE(other.getChildCommands().empty());
}

TEST(CShellCommandSet, ChildNamesAreUnique) {
    CShellCommandSet root("BASIC", "");
    root.addChildCommand(new CShellCommandSet("x", ""));
    CShellCommandSet second("x", "");
    EXPECT_EQ("The command x already exists!", refusal([&] { root.addChildCommand(&second); }));
    EXPECT_THROW(root.addChildCommand(&second), CAlreadyExistException);
    EXPECT_FALSE(second.hasParentCommandSet());
    EXPECT_EQ(1U, root.getChildCommands().size());
}

TEST(CShellCommandSet, TreeNeverClosesACircle) {
    CShellCommandSet root("r", "");
    auto* child = new CShellCommandSet("c", "");
    root.addChildCommand(child);
    EXPECT_EQ("Command r can only be added to a command group!",
              refusal([&] { child->addChildCommand(&root); }));
    EXPECT_EQ("Command r can only be added to a command group!",
              refusal([&] { root.addChildCommand(&root); }));
}

TEST(CShellCommandSet, RemovedChildrenAreHandedBack) {
    CShellCommandSet root("BASIC", "");
    const std::unique_ptr<CShellCommandSet> a(new CShellCommandSet("a", ""));
    const std::unique_ptr<CShellCommandSet> b(new CShellCommandSet("b", ""));
    CShellCommandSet stranger("s", "");
    root.addChildCommand(a.get());
    root.addChildCommand(b.get());
    root.removeChildCommand(&stranger);
    root.removeChildCommand(a.get());
    EXPECT_EQ((std::list<CShellCommandSet*>{b.get()}), root.getChildCommands());
    EXPECT_FALSE(a->hasParentCommandSet());
    root.removeAllChildCommands();
    EXPECT_TRUE(root.getChildCommands().empty());
    EXPECT_EQ("b", b->getPath());
}

TEST(CShellCommandSet, ChildDestroyedOnItsOwnLeavesItsParent) {
    CShellCommandSet root("BASIC", "");
    {
        CShellCommandSet child("x", "");
        root.addChildCommand(&child);
    }
    EXPECT_TRUE(root.getChildCommands().empty());
}

TEST(CShellCommandSet, CommandsAreOrderedByNameAndKnowTheirSet) {
    CShellCommandSet set("tools", "");
    CShellCommand* b = script("b");
    CShellCommand* capital = script("Z");
    set.addSupportedCommand(b);
    set.addSupportedCommand(capital);
    EXPECT_EQ(&set, b->getCommandSet());
    ASSERT_EQ(2U, set.getSupportedCommands().size());
    EXPECT_EQ(capital, set.getSupportedCommands().begin()->second);
}

TEST(CShellCommandSet, CommandNamesAreUnique) {
    CShellCommandSet set("tools", "");
    set.addSupportedCommand(script("ls"));
    const std::unique_ptr<CShellCommand> second(script("ls"));
    EXPECT_EQ("ls already exists!", refusal([&] { set.addSupportedCommand(second.get()); }));
    EXPECT_THROW(set.addSupportedCommand(second.get()), CAlreadyExistException);
    EXPECT_EQ(nullptr, second->getCommandSet());
    EXPECT_EQ(1U, set.getSupportedCommands().size());
}

TEST(CShellCommandSet, RemovedCommandIsHandedBack) {
    CShellCommandSet set("tools", "");
    const std::unique_ptr<CShellCommand> cmd(script("ls"));
    set.addSupportedCommand(cmd.get());
    set.removeSupportedCommand("nothing");
    EXPECT_TRUE(set.isSupported("ls"));
    set.removeSupportedCommand("ls");
    EXPECT_FALSE(set.isSupported("ls"));
    EXPECT_EQ(nullptr, cmd->getCommandSet());
}

TEST(CShellCommandSet, SupportIsAskedWithNeatNames) {
    CShellCommandSet set("tools", "");
    set.addSupportedCommand(script("power on"));
    EXPECT_TRUE(set.isSupported("  power \t on "));
    EXPECT_FALSE(set.isSupported("power"));
    EXPECT_FALSE(set.isSupported(""));
}

TEST(CShellCommandSet, FindsDuplicateCommandsOfAnotherSet) {
    CShellCommandSet one("one", "");
    CShellCommandSet two("two", "");
    EXPECT_FALSE(one.hasDuplicateSupportedCommand(nullptr));
    one.addSupportedCommand(script("a"));
    two.addSupportedCommand(script("b"));
    EXPECT_FALSE(one.hasDuplicateSupportedCommand(&two));
    two.addSupportedCommand(script("a"));
    EXPECT_TRUE(one.hasDuplicateSupportedCommand(&two));
}

TEST(CShellCommandSet, FirstAcceptingCommandInByteOrderWins) {
    CShellCommandSet set("tools", "");
    CShellCommand* exact = script("a -b", SCRIPT);
    CShellCommand* withOption = script("a", SCRIPT_OPT);
    withOption->addOption(new CCommandOption("b", "", 0, 0, ""));
    set.addSupportedCommand(exact);
    set.addSupportedCommand(withOption);
    ConfigErrorCollector errors;
    EXPECT_TRUE(exact->validateCommand("a -b", &errors));
    EXPECT_EQ(withOption, set.findPossibleSupportedCommand("a -b", &errors));
    EXPECT_EQ(nullptr, set.findPossibleSupportedCommand("a -c", &errors));
    EXPECT_EQ(0, errors.getSize());
}

TEST(CShellCommandSet, FindingsOnTheWayStay) {
    CShellCommandSet set("tools", "");
    CShellCommand* cmd = script("a", SCRIPT_OPT);
    cmd->addOption(new CCommandOption("n", "node", 1, 1, ""));
    set.addSupportedCommand(cmd);
    ConfigErrorCollector errors;
    EXPECT_EQ(nullptr, set.findPossibleSupportedCommand("a", &errors));
    EXPECT_EQ("Option [-n|--node] must be provided.\n", errors.toString());
    EXPECT_EQ(nullptr, set.findPossibleSupportedCommand("a -n x", &errors));
}

TEST(CShellCommandSet, MatchesACommandAloneOrWithOptions) {
    const CShellCommandSet set("tools", "");
    EXPECT_TRUE(set.matchCommand("reset", "reset"));
    EXPECT_TRUE(set.matchCommand("reset   ", "reset"));
    EXPECT_TRUE(set.matchCommand("reset -a", "reset"));
    EXPECT_FALSE(set.matchCommand("reset all", "reset"));
    EXPECT_FALSE(set.matchCommand("resetall", "reset"));
    EXPECT_FALSE(set.matchCommand("res", "reset"));
}

TEST(CShellCommandSet, PathLeavesTheRootBasicOut) {
    CShellCommandSet basic("BASIC", "");
    EXPECT_EQ("", basic.getPath());
    auto* x = new CShellCommandSet("x", "");
    basic.addChildCommand(x);
    EXPECT_EQ("/x", x->getPath());
    auto* y = new CShellCommandSet("y", "");
    x->addChildCommand(y);
    EXPECT_EQ("/x/y", y->getPath());

    CShellCommandSet biosfw("biosfw", "");
    EXPECT_EQ("biosfw", biosfw.getPath());
    auto* below = new CShellCommandSet("BASIC", "");
    biosfw.addChildCommand(below);
    EXPECT_EQ("biosfw/BASIC", below->getPath());
}

TEST(CShellCommandSet, InheritedConfirmationComesFromTheRoot) {
    CShellCommandSet root("BASIC", "");
    root.setCommandSetConfirmType(EACH);
    auto* set = new CShellCommandSet("x", "");
    set->setCommandSetConfirmType(INHERITANCE);
    root.addChildCommand(set);
    CShellCommand* cmd = script("a");
    cmd->setCommandConfirmType(INHERITANCE);
    set->addSupportedCommand(cmd);
    EXPECT_EQ(EACH, cmd->getCommandConfirmType());
    EXPECT_EQ("Do you really want to execute this command?", cmd->getCommandConfirmMessage());
    EXPECT_EQ(EACH, set->getCommandConfirmType("a"));
    EXPECT_EQ("Do you really want to execute this command?", set->getCommandConfirmMessage("a"));
    root.setCommandSetConfirmMessage("All of them?");
    EXPECT_EQ("All of them?", set->getCommandConfirmMessage("a"));
}

TEST(CShellCommandSet, RootThatInheritsKeepsThatType) {
    CShellCommandSet root("BASIC", "");
    root.setCommandSetConfirmType(INHERITANCE);
    root.setCommandSetConfirmMessage("not asked");
    EXPECT_EQ(INHERITANCE, root.getCommandSetConfirmType());
    EXPECT_EQ("", root.getCommandSetConfirmMessage());
}

TEST(CShellCommandSet, TimeOutOfACommandFallsBackToTheSet) {
    CShellCommandSet set("tools", "");
    set.setTimeOut(30);
    CShellCommand* own = script("own");
    own->setTimeOut(7);
    set.addSupportedCommand(own);
    set.addSupportedCommand(script("inherits", SCRIPT_OPT));
    EXPECT_EQ(7U, set.getCommandTimeOut("own"));
    EXPECT_EQ(30U, set.getCommandTimeOut("inherits"));
    EXPECT_EQ(0U, set.getCommandTimeOut("unknown"));
}

TEST(CShellCommandSet, LookUpsTakePathAndOptions) {
    CShellCommandSet set("tools", "");
    CShellCommand* cmd = script("a", SCRIPT_OPT);
    cmd->setTimeOut(9);
    cmd->setCommandConfirmType(ONCE);
    cmd->addOption(new CCommandOption("n", "node", 0, 1, ""));
    set.addSupportedCommand(cmd);
    EXPECT_EQ(9U, set.getCommandTimeOut("x/tools/a -n b/c"));
    EXPECT_EQ(ONCE, set.getCommandConfirmType("a -n b"));
    EXPECT_EQ(SLAVE, set.getExecuteDestination("tools/a"));
    EXPECT_EQ(NO, set.getCommandConfirmType("a -x"));
    EXPECT_EQ("", set.getCommandConfirmMessage("a -x"));
}

TEST(CShellCommandSet, UnknownDestinationIsWarnedAbout) {
    const CShellCommandSet set("tools", "");
    testing::internal::CaptureStdout();
    const EXECUTE_DESTINATION destination = set.getExecuteDestination("ghost -n a");
    EXPECT_EQ("Warning!!! Can not find the EXECUTE_DESTINATION for ghost -n a in tools\n",
              testing::internal::GetCapturedStdout());
    EXPECT_EQ(MASTER, destination);
}

TEST(CShellCommandSet, UsageLinesUpOptionsAndExamples) {
    CShellCommandSet set("tools", "Site tools");
    CShellCommand* cmd = script("df", SCRIPT_OPT);
    cmd->addOption(new CCommandOption("p", "path", 0, 1, "Path"));
    cmd->addOption(new CCommandOption("a", "", 0, 0, "All"));
    cmd->addOption(new CCommandOption("", "human", 0, 0, "Human"));
    cmd->addExample("df -p /");
    cmd->addExample("df -a");
    cmd->addExample("df --human");
    set.addSupportedCommand(cmd);
    set.addSupportedCommand(script("a"));
    auto* child = new CShellCommandSet("disk", "Disk tools");
    set.addChildCommand(child);
    EXPECT_EQ(
        "[tools]  Site tools\n"
        "a:  About a\n"
        "df:  About df\n"
        "  Option:-p, --path: Path\n"
        "         -a: All\n"
        "         --human: Human\n"
        "  Example: df -p /\n"
        "         df -a\n"
        "         df --human\n"
        "[tools/disk]  Disk tools\n",
        set.getUsage());
}

TEST(CShellCommandSet, UsageOfTheRootHasNoHeader) {
    CShellCommandSet root("BASIC", "Basic");
    root.addSupportedCommand(script("help"));
    auto* child = new CShellCommandSet("x", "X");
    child->addSupportedCommand(script("a"));
    root.addChildCommand(child);
    EXPECT_EQ("help:  About help\n[/x]  X\na:  About a\n", root.getUsage());
}
