#include <memory>

#include <gtest/gtest.h>

#include "CAlreadyExistException.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "ConfigErrorCollector.h"

namespace {

CShellCommand plain(COMMAND_TYPE type) {
    return {"ls", "List", "ls", type, SLAVE};
}

struct Verdict {
    bool accepted;
    std::string findings;
};

Verdict check(const CShellCommand& cmd, const std::string& line) {
    ConfigErrorCollector errors;
    const bool accepted = cmd.validateCommand(line, &errors);
    return {accepted, errors.toString()};
}

class CShellCommandOptions : public testing::Test {
protected:
    CShellCommandOptions() : reset("reset", "Reset", "ipmi reset", SCRIPT_OPT, SLAVE) {
        reset.addOption(new CCommandOption("n", "name", OPTION_COMPULSORY, OPTION_WITH_VALUE, "N"));
        reset.addOption(
            new CCommandOption("f", "force", OPTION_MAY_BE_OMITTED, OPTION_WITHOUT_VALUE, "F"));
    }

    CShellCommand reset;
};

}  // namespace

TEST(CShellCommand, KeepsOneLineForEveryNode) {
    const CShellCommand cmd("  power \t on ", " Power  on ", " ipmitool   power on\n", SCRIPT,
                            SLAVE);
    EXPECT_EQ("power on", cmd.getName());
    EXPECT_EQ("Power on", cmd.getDescription());
    EXPECT_EQ("ipmitool power on", cmd.getCommand());
    EXPECT_EQ("", cmd.get32Command());
    EXPECT_EQ("", cmd.get64Command());
    EXPECT_EQ(SCRIPT, cmd.getType());
    EXPECT_EQ(SLAVE, cmd.getDestination());
    EXPECT_FALSE(cmd.needToCheck32Or64BitCommand());
    EXPECT_EQ(nullptr, cmd.getCommandSet());
    EXPECT_EQ(NO, cmd.getCommandConfirmType());
    EXPECT_EQ("", cmd.getCommandConfirmMessage());
    EXPECT_EQ(0U, cmd.getTimeOut());
}

TEST(CShellCommand, KeepsALineForEachPlatform) {
    const CShellCommand both("df", "Disks", " df32 ", " df64 ", SCRIPT, MASTER);
    EXPECT_EQ("", both.getCommand());
    EXPECT_EQ("df32", both.get32Command());
    EXPECT_EQ("df64", both.get64Command());
    EXPECT_EQ(MASTER, both.getDestination());
    EXPECT_TRUE(both.needToCheck32Or64BitCommand());
    EXPECT_TRUE(CShellCommand("df", "", "", "df64", SCRIPT, MASTER).needToCheck32Or64BitCommand());
    EXPECT_TRUE(CShellCommand("df", "", "df32", "", SCRIPT, MASTER).needToCheck32Or64BitCommand());
}

TEST(CShellCommand, NamesAreComparedExactly) {
    CShellCommand cmd("ls", "one", "ls", SCRIPT, SLAVE);
    CShellCommand same("ls", "two", "ls -l", SCRIPT_OPT, MASTER);
    CShellCommand other("LS", "one", "ls", SCRIPT, SLAVE);
    EXPECT_TRUE(cmd.equal(std::string("ls")));
    EXPECT_FALSE(cmd.equal(std::string("ls ")));
    EXPECT_TRUE(cmd.equal(same));
    EXPECT_TRUE(cmd == same);
    EXPECT_FALSE(cmd == other);
}

TEST(CShellCommand, OwnTimeOutWinsOverTheSets) {
    CShellCommandSet set("tools", "");
    set.setTimeOut(30);
    auto* cmd = new CShellCommand("ls", "", "ls", SCRIPT, SLAVE);
    set.addSupportedCommand(cmd);
    EXPECT_EQ(30U, cmd->getTimeOut());
    cmd->setTimeOut(5);
    EXPECT_EQ(5U, cmd->getTimeOut());
}

TEST(CShellCommand, InheritsConfirmationFromItsSet) {
    CShellCommandSet set("tools", "");
    set.setCommandSetConfirmType(EACH);
    set.setCommandSetConfirmMessage("Sure?");
    auto* cmd = new CShellCommand("ls", "", "ls", SCRIPT, SLAVE);
    cmd->setCommandConfirmType(INHERITANCE);
    cmd->setCommandConfirmMessage("not asked");
    EXPECT_EQ(INHERITANCE, cmd->getCommandConfirmType());
    EXPECT_EQ("", cmd->getCommandConfirmMessage());
    set.addSupportedCommand(cmd);
    EXPECT_EQ(EACH, cmd->getCommandConfirmType());
    EXPECT_EQ("Sure?", cmd->getCommandConfirmMessage());
}

TEST(CShellCommand, OwnConfirmationHasADefaultQuestion) {
    CShellCommand cmd = plain(SCRIPT);
    for (const CONFIRM_TYPE_ENUM type : {ONCE, EACH}) {
        cmd.setCommandConfirmType(type);
        cmd.setCommandConfirmMessage("");
        EXPECT_EQ(type, cmd.getCommandConfirmType());
        EXPECT_EQ("Do you really want to execute this command?", cmd.getCommandConfirmMessage());
        cmd.setCommandConfirmMessage("Sure?");
        EXPECT_EQ("Sure?", cmd.getCommandConfirmMessage());
    }
    cmd.setCommandConfirmType(NO);
    EXPECT_EQ("", cmd.getCommandConfirmMessage());
}

TEST_F(CShellCommandOptions, AreKeptInTheOrderAdded) {
    const std::list<CCommandOption*> options = reset.getOptions();
    ASSERT_EQ(2U, options.size());
    EXPECT_EQ("n", options.front()->getShortOptName());
    EXPECT_EQ("f", options.back()->getShortOptName());
}

TEST_F(CShellCommandOptions, AreFoundByEitherName) {
    ASSERT_NE(nullptr, reset.getCommandOption("n"));
    EXPECT_EQ(reset.getCommandOption("n"), reset.getCommandOption("name"));
    EXPECT_EQ(nullptr, reset.getCommandOption("-n"));
    EXPECT_EQ(nullptr, reset.getCommandOption("x"));
    EXPECT_EQ(nullptr, reset.getCommandOption(""));
}

TEST_F(CShellCommandOptions, GiveTheirTypedValue) {
    EXPECT_EQ("node1", reset.getCommandOptionValue("name", "reset -n node1 -f"));
    EXPECT_EQ("", reset.getCommandOptionValue("force", "reset -f x"));
    EXPECT_EQ("", reset.getCommandOptionValue("x", "reset -x y"));
    EXPECT_EQ("", reset.getCommandOptionValue("name", "reset")) << "not given";
    EXPECT_EQ("", reset.getCommandOptionValue("n", "reset -f"));
}

TEST_F(CShellCommandOptions, OfOneNameAreRefused) {
    const std::unique_ptr<CCommandOption> second(new CCommandOption("n", "node", 0, 0, "second"));
    try {
        reset.addOption(second.get());
        FAIL() << "a second -n was accepted";
    } catch (const CAlreadyExistException& fault) {
        EXPECT_EQ("The option [n|name] \"N\" already defines the same option!", fault.getErrMsg());
    }
    EXPECT_EQ(2U, reset.getOptions().size());

    const std::unique_ptr<CCommandOption> third(new CCommandOption("x", "force", 0, 0, "third"));
    EXPECT_THROW(reset.addOption(third.get()), CAlreadyExistException);
    EXPECT_EQ(2U, reset.getOptions().size());
}

TEST_F(CShellCommandOptions, WithoutAShortNameDoNotCollide) {
    reset.addOption(new CCommandOption("", "one", 0, 0));
    reset.addOption(new CCommandOption("", "two", 0, 0));
    EXPECT_EQ(4U, reset.getOptions().size());
}

TEST_F(CShellCommandOptions, AreHandedBackWhenRemoved) {
    const std::unique_ptr<CCommandOption> name(reset.getCommandOption("n"));
    const std::unique_ptr<CCommandOption> force(reset.getCommandOption("f"));
    reset.removeOption(name.get());
    ASSERT_EQ(1U, reset.getOptions().size());
    EXPECT_EQ(force.get(), reset.getOptions().front());
    reset.removeOptions();
    EXPECT_TRUE(reset.getOptions().empty());
    EXPECT_EQ("f", force->getShortOptName());
}

TEST(CShellCommand, ExamplesAreKeptOnceEach) {
    CShellCommand cmd = plain(SCRIPT);
    cmd.addExample("ls -n a");
    cmd.addExample("ls -n b");
    try {
        cmd.addExample("ls -n a");
        FAIL() << "a second equal example was accepted";
    } catch (const CAlreadyExistException& fault) {
        EXPECT_EQ("The example [ls -n a] \" already defines in the this command!",
                  fault.getErrMsg());
    }
    EXPECT_EQ((std::list<std::string>{"ls -n a", "ls -n b"}), cmd.getExamples());
    cmd.setExamples({"x", "x"});
    EXPECT_EQ((std::list<std::string>{"x", "x"}), cmd.getExamples());
}

TEST(CShellCommand, ExactKindsTakeTheirNameAlone) {
    for (const COMMAND_TYPE type : {BUILTIN, SCRIPT, DLLFUNCTION}) {
        EXPECT_TRUE(check(plain(type), "ls").accepted) << type;
        EXPECT_FALSE(check(plain(type), "ls -l").accepted) << type;
        EXPECT_FALSE(check(plain(type), "ls ").accepted) << type;
        EXPECT_FALSE(check(plain(type), "LS").accepted) << type;
        EXPECT_EQ("", check(plain(type), "ls -l").findings) << type;
    }
}

TEST(CShellCommand, KindsWithOptionsRefuseUnknownOptions) {
    for (const COMMAND_TYPE type : {BUILTIN_OPT, SCRIPT_OPT, DLLFUNCTION_OPT}) {
        EXPECT_TRUE(check(plain(type), "ls").accepted) << type;
        EXPECT_FALSE(check(plain(type), "ls  ").accepted) << type;
        EXPECT_FALSE(check(plain(type), "ls -l").accepted) << type;
        EXPECT_EQ("", check(plain(type), "ls -l").findings) << type;
    }
}

TEST(CShellCommand, UnknownKindsAcceptNothing) {
    EXPECT_FALSE(check(plain(static_cast<COMMAND_TYPE>(6)), "ls").accepted);
    EXPECT_FALSE(check(plain(static_cast<COMMAND_TYPE>(7)), "ls").accepted);
}

TEST_F(CShellCommandOptions, MayStandBehindTheNameInAnyOrder) {
    EXPECT_TRUE(check(reset, "reset -n node1").accepted);
    EXPECT_TRUE(check(reset, "reset --force --name node1").accepted);
    EXPECT_TRUE(check(reset, "reset -n \"node 1\" -f").accepted);
}

TEST_F(CShellCommandOptions, OtherWordsAreRefusedWithoutAFinding) {
    for (const char* line : {"reset nodes", "resetall -n a", "xreset -n a", "reset -n a b",
                             "reset -n a -x", "res", ""}) {
        const Verdict verdict = check(reset, line);
        EXPECT_FALSE(verdict.accepted) << line;
        EXPECT_EQ("", verdict.findings) << line;
    }
}

TEST_F(CShellCommandOptions, FaultsOfEveryOptionAreReportedAtLineZero) {
    reset.addOption(new CCommandOption("t", "time", 0, 1, ""));
    ConfigErrorCollector errors;
    EXPECT_FALSE(reset.validateCommand("reset -f -t", &errors));
    EXPECT_EQ("Option [-n|--name] must be provided.\nOption [-t|--time] must have option value.\n",
              errors.toString());
    EXPECT_EQ(2, errors.getSize(CONFIG_ERROR));
    EXPECT_EQ(0, errors.getErrorList().front()->getLine());
}

TEST_F(CShellCommandOptions, MissingValueIsReportedLastAndBeforeAnotherOption) {
    const std::string finding = "Option [-n|--name] must have option value.\n";
    EXPECT_EQ(finding, check(reset, "reset -n").findings);
    EXPECT_EQ(finding, check(reset, "reset -n -f").findings);
    EXPECT_FALSE(check(reset, "reset -n -f").accepted);
}

TEST_F(CShellCommandOptions, EarlierFindingsKeepTheLineFromBeingAccepted) {
    ConfigErrorCollector errors;
    errors.addError(3, CONFIG_WARNING, "earlier");
    EXPECT_FALSE(reset.validateCommand("reset -n a", &errors));
    EXPECT_EQ(1, errors.getSize());
}

TEST_F(CShellCommandOptions, CanBeCheckedWithoutACollector) {
    EXPECT_TRUE(reset.validateCommand("reset -n a", nullptr));
    EXPECT_FALSE(reset.validateCommand("reset -n", nullptr));
}
