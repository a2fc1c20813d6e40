#include <memory>
#include <ostream>

#include <gtest/gtest.h>

#include "CAlreadyExistException.h"
#include "CCommandOption.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "ConfigErrorCollector.h"
#include "Observed.h"

namespace {

constexpr auto kOptional = static_cast<COMMAND_OPTION_COMPULSORY_TYPE>(0);
constexpr auto kCompulsory = static_cast<COMMAND_OPTION_COMPULSORY_TYPE>(1);
constexpr auto kBare = static_cast<COMMAND_OPTION_VALUE_TYPE>(0);
constexpr auto kValued = static_cast<COMMAND_OPTION_VALUE_TYPE>(1);

std::unique_ptr<CShellCommand> command(const char* name, int type) {
    return std::make_unique<CShellCommand>(name, "d", "line", static_cast<COMMAND_TYPE>(type),
                                           SLAVE);
}

}  // namespace

TEST(CShellCommand, MakesItsTextsNeatAndLeavesTheOtherLinesEmpty) {
    const CShellCommand one("  list   node ", " shows \t all ", " ls   -l ", SCRIPT_OPT, MASTER);
    EXPECT_EQ("list node", one.getName());
    EXPECT_EQ("shows all", one.getDescription());
    EXPECT_EQ("ls -l", one.getCommand());
    EXPECT_EQ("", one.get32Command() + one.get64Command());
    EXPECT_EQ(3, one.getType());
    EXPECT_EQ(0, one.getDestination());
    EXPECT_FALSE(one.needToCheck32Or64BitCommand());
    const CShellCommand two(" n ", " d ", " a  b ", " c  d ", DLLFUNCTION, SLAVE);
    EXPECT_EQ("", two.getCommand());
    EXPECT_EQ("a b", two.get32Command());
    EXPECT_EQ("c d", two.get64Command());
    EXPECT_TRUE(two.needToCheck32Or64BitCommand());
    EXPECT_TRUE(CShellCommand("n", "d", "", "x", SCRIPT, SLAVE).needToCheck32Or64BitCommand());
    EXPECT_TRUE(CShellCommand("n", "d", "x", "", SCRIPT, SLAVE).needToCheck32Or64BitCommand());
    EXPECT_FALSE(CShellCommand("n", "d", "", "", SCRIPT, SLAVE).needToCheck32Or64BitCommand());
}

TEST(CShellCommand, HasDefaults) {
    const auto fresh = command("c", 2);
    EXPECT_EQ(0, fresh->getCommandConfirmType());
    EXPECT_EQ("", fresh->getCommandConfirmMessage());
    EXPECT_EQ(nullptr, fresh->getCommandSet());
    EXPECT_TRUE(fresh->getOptions().empty());
    EXPECT_TRUE(fresh->getExamples().empty());
    EXPECT_EQ(0U, fresh->getTimeOut());
}

TEST(CShellCommand, TakesTimeOutAndConfirmationFromItsSetWhereItHasNone) {
    CShellCommandSet set("s", "");
    set.setTimeOut(30);
    set.setCommandSetConfirmType(ONCE);
    set.setCommandSetConfirmMessage("Sure?");
    auto owned = command("c", 2);
    CShellCommand* c = owned.get();
    set.addSupportedCommand(owned.release());
    EXPECT_EQ(&set, c->getCommandSet());
    EXPECT_EQ(30U, c->getTimeOut());
    c->setTimeOut(4294967295U);
    EXPECT_EQ(4294967295U, c->getTimeOut());

    EXPECT_EQ(NO, c->getCommandConfirmType());
    c->setCommandConfirmMessage("own");
    EXPECT_EQ("", c->getCommandConfirmMessage());
    c->setCommandConfirmType(INHERITANCE);
    EXPECT_EQ(ONCE, c->getCommandConfirmType());
    EXPECT_EQ("Sure?", c->getCommandConfirmMessage());
    set.setCommandSetConfirmMessage("");
    EXPECT_EQ("Do you really want to execute this command?", c->getCommandConfirmMessage());
    set.setCommandSetConfirmType(NO);
    EXPECT_EQ("", c->getCommandConfirmMessage());
    for (const CONFIRM_TYPE_ENUM type : {ONCE, EACH}) {
        c->setCommandConfirmType(type);
        EXPECT_EQ(type, c->getCommandConfirmType());
        EXPECT_EQ("own", c->getCommandConfirmMessage());
    }
    c->setCommandConfirmMessage("");
    EXPECT_EQ("Do you really want to execute this command?", c->getCommandConfirmMessage());
}

TEST(CShellCommand, InheritsNothingWithoutASet) {
    auto lone = command("c", 2);
    lone->setCommandConfirmType(INHERITANCE);
    lone->setCommandConfirmMessage("own");
    EXPECT_EQ(1, lone->getCommandConfirmType());
    EXPECT_EQ("", lone->getCommandConfirmMessage());
}

TEST(CShellCommand, RefusesAnOptionThatSharesANameWithOneItHas) {
    auto c = command("c", 3);
    auto* first = new CCommandOption("n", "node", kOptional, kBare, "the first");
    c->addOption(first);
    auto* second = new CCommandOption("", "x", kOptional, kBare, "the second");
    c->addOption(second);
    auto* third = new CCommandOption("", "y", kOptional, kBare);
    c->addOption(third);
    CCommandOption sameShort("n", "name", kOptional, kBare, "new");
    EXPECT_EQ("The option [n|node] \"the first\" already defines the same option!",
              messageOf<CAlreadyExistException>([&] { c->addOption(&sameShort); }));
    CCommandOption sameLong("b", "x", kOptional, kBare, "new");
    EXPECT_EQ("The option [|x] \"the second\" already defines the same option!",
              messageOf<CAlreadyExistException>([&] { c->addOption(&sameLong); }));
    EXPECT_EQ((std::vector<CCommandOption*>{first, second, third}), asVector(c->getOptions()));
    EXPECT_EQ(first, c->getCommandOption("n"));
    EXPECT_EQ(first, c->getCommandOption("node"));
    EXPECT_EQ(third, c->getCommandOption("y"));
    EXPECT_EQ(nullptr, c->getCommandOption("-n"));
    EXPECT_EQ(nullptr, c->getCommandOption("Node"));
}

TEST(CShellCommand, FindsTheFirstOptionWhoseEitherNameIsAsked) {
    auto c = command("c", 3);
    auto* first = new CCommandOption("a", "b", kOptional, kBare);
    c->addOption(first);
    c->addOption(new CCommandOption("b", "c", kOptional, kBare));
    EXPECT_EQ(first, c->getCommandOption("b"));
}

TEST(CShellCommand, HandsOutCopiesOfItsListsAndTakesOptionsOut) {
    auto c = command("c", 3);
    auto* a = new CCommandOption("a", "", kOptional, kBare);
    auto* b = new CCommandOption("b", "", kOptional, kBare);
    c->addOption(a);
    c->addOption(b);
    c->getOptions().clear();
    EXPECT_EQ(2U, c->getOptions().size());
    CCommandOption stranger("a", "", kOptional, kBare);
    c->removeOption(&stranger);
    EXPECT_EQ(2U, c->getOptions().size());
    c->removeOption(a);
    EXPECT_EQ((std::vector<CCommandOption*>{b}), asVector(c->getOptions()));
    EXPECT_EQ("a", a->getShortOptName());
    c->removeOptions();
    EXPECT_TRUE(c->getOptions().empty());
    EXPECT_EQ("b", b->getShortOptName());
    delete a;
    delete b;
}

TEST(CShellCommand, OwnsItsOptions) {
    class Counted : public CCommandOption {
    public:
        explicit Counted(int& aliveCount)
            : CCommandOption("a", "", kOptional, kBare), alive(aliveCount) {
            ++alive;
        }
        Counted(const Counted&) = delete;
        Counted& operator=(const Counted&) = delete;
        ~Counted() override { --alive; }

    private:
        int& alive;
    };
    int alive = 0;
    auto c = command("c", 3);
    c->addOption(new Counted(alive));
    ASSERT_EQ(1, alive);
    c.reset();
    EXPECT_EQ(0, alive);
}

TEST(CShellCommand, KeepsExamplesInOrderAndRefusesARepeatedOne) {
    auto c = command("c", 3);
    c->addExample("z");
    c->addExample("a");
    EXPECT_EQ("The example [z] \" already defines in the this command!",
              messageOf<CAlreadyExistException>([&] { c->addExample("z"); }));
    EXPECT_EQ((Words{"z", "a"}), asVector(c->getExamples()));
    c->getExamples().clear();
    EXPECT_EQ(2U, c->getExamples().size());
    c->setExamples({"x", "x"});
    EXPECT_EQ((Words{"x", "x"}), asVector(c->getExamples()));
}

TEST(CShellCommand, IsNamedExactly) {
    auto c = command("reset", 3);
    EXPECT_TRUE(c->equal("reset"));
    EXPECT_FALSE(c->equal("Reset"));
    EXPECT_FALSE(c->equal(std::string("reset ")));
    CShellCommand same("reset", "other", "other", BUILTIN, MASTER);
    CShellCommand other("resets", "d", "line", SCRIPT_OPT, SLAVE);
    EXPECT_TRUE(c->equal(same));
    EXPECT_TRUE(*c == same);
    EXPECT_FALSE(*c == other);
}

namespace {

struct Use {
    int type;
    const char* name;
    const char* line;
    bool valid;
    const char* findings;
};

void PrintTo(const Use& use, std::ostream* out) {
    *out << "type " << use.type << ' ' << use.name << " <- \"" << use.line << '"';
}

const char* const kTValue = "Option [-t|--time] must have option value.\n";
const char* const kFMissing = "Option [-f|--file] must be provided.\n";

}  // namespace

// A name of "+..." gives the command an optional flag -a, an optional -t with a value and a
// compulsory -f with a value.
class CommandUse : public testing::TestWithParam<Use> {};

TEST_P(CommandUse, IsJudgedByNameAndOptions) {
    const Use& use = GetParam();
    const bool withOptions = use.name[0] == '+';
    auto c = command(use.name + (withOptions ? 1 : 0), use.type);
    if (withOptions) {
        c->addOption(new CCommandOption("a", "all", kOptional, kBare));
        c->addOption(new CCommandOption("t", "time", kOptional, kValued));
        c->addOption(new CCommandOption("f", "file", kCompulsory, kValued));
    }
    ConfigErrorCollector errors;
    EXPECT_EQ(use.valid, c->validateCommand(std::string(use.line), &errors));
    EXPECT_EQ(use.findings, errors.toString());
    EXPECT_EQ(errors.getSize(), errors.getSize(static_cast<CONFIGERROR_LEVEL>(2)));
}

INSTANTIATE_TEST_SUITE_P(
    CShellCommand, CommandUse,
    testing::Values(

        Use{0, "+ls", "ls", true, ""}, Use{4, "+ls", "ls -a -f x", false, ""},

        Use{1, "ls", "lsx", false, ""}, Use{5, "ls", " ls", false, ""},
        Use{3, "ls", "ls nodes", false, ""}, Use{3, "ls", "l", false, ""},
        Use{3, "ls", "", false, ""}, Use{6, "ls", "ls", false, ""}, Use{7, "ls", "ls", false, ""},
        Use{3, "+save file", "save file -f x", true, ""},
        Use{1, "+save file", "save file   -f   x  -a ", true, ""},
        Use{5, "+save file", "save file --all -t 3 --file \"a b\"", true, ""},
        Use{3, "+save file", "save  file -f x", false, ""},
        Use{3, "+save file", "save file x -f y", false, ""},
        Use{3, "+save file", "save file -f x y", false, ""},
        Use{3, "+save file", "save file -f x -z", false, ""},
        Use{3, "+save file", "save file-f x", false, kFMissing},
        Use{3, "+save file", "save file", false, kFMissing},
        Use{3, "+save file", "save files", false, ""},
        Use{3, "+save file", "save file -t -a -f x", false, kTValue},
        Use{3, "+save file", "save file -f x -t", false, kTValue},
        Use{3, "+save file", "save file -t", false,
            "Option [-t|--time] must have option value.\nOption [-f|--file] must be provided.\n"},
        Use{3, "+save file", "save file -f", false,
            "Option [-f|--file] must have option value.\n"}));

TEST(CShellCommand, EarlierFindingsRefuseOnlyCommandsWithOptions) {
    ConfigErrorCollector errors;
    errors.addError(0, static_cast<CONFIGERROR_LEVEL>(1), "earlier");
    EXPECT_FALSE(command("ls", 3)->validateCommand("ls", &errors));
    EXPECT_TRUE(command("ls", 2)->validateCommand("ls", &errors));
    EXPECT_EQ("earlier\n", errors.toString());
}

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

TEST_F(CShellCommandOptions, AreFoundByEitherName) {
    ASSERT_NE(nullptr, reset.getCommandOption("n"));
    EXPECT_EQ(reset.getCommandOption("n"), reset.getCommandOption("name"));
    EXPECT_EQ(nullptr, reset.getCommandOption("-n"));
    EXPECT_EQ(nullptr, reset.getCommandOption("x"));
    EXPECT_EQ(nullptr, reset.getCommandOption(""));
}

TEST_F(CShellCommandOptions, GiveTheirTypedValue) {
    EXPECT_EQ("node1", reset.getCommandOptionValue("name", "reset -n node1 -f"));
    EXPECT_EQ("a b", reset.getCommandOptionValue("n", "reset --name a b -x"));
    EXPECT_EQ("", reset.getCommandOptionValue("force", "reset -f x"));
    EXPECT_EQ("", reset.getCommandOptionValue("x", "reset -x y"));
    EXPECT_EQ("", reset.getCommandOptionValue("name", "reset")) << "not given";
    EXPECT_EQ("", reset.getCommandOptionValue("n", "reset -f"));
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

TEST_F(CShellCommandOptions, CanBeCheckedWithoutACollector) {
    EXPECT_TRUE(reset.validateCommand("reset -n a", nullptr));
    EXPECT_FALSE(reset.validateCommand("reset -n", nullptr));
}
