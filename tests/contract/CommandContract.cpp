#include <memory>
#include <ostream>

#include "CAlreadyExistException.h"
#include "CCommandOption.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "ConfigErrorCollector.h"
#include "Contract.h"

namespace {

constexpr auto kOptional = static_cast<COMMAND_OPTION_COMPULSORY_TYPE>(0);
constexpr auto kCompulsory = static_cast<COMMAND_OPTION_COMPULSORY_TYPE>(1);
constexpr auto kBare = static_cast<COMMAND_OPTION_VALUE_TYPE>(0);
constexpr auto kValued = static_cast<COMMAND_OPTION_VALUE_TYPE>(1);

CCommandOption named(std::string shortName, std::string longName) {
    return {shortName, longName, kOptional, kBare, "d"};
}

struct ValueCase {
    const char* shortName;
    const char* longName;
    const char* line;
    const char* value;
};

void PrintTo(const ValueCase& value, std::ostream* out) {
    *out << value.shortName << '|' << value.longName << " in \"" << value.line << '"';
}

}  // namespace

TEST(CCommandOptionContract, NonZeroTypesCountAsSet) {
    const CCommandOption plain("n", "node", kOptional, kBare);
    EXPECT_FALSE(plain.getIsCompulsory());
    EXPECT_FALSE(plain.getHasOptValue());
    EXPECT_EQ(plain.getDescription(), "");
    CCommandOption full("", "", static_cast<COMMAND_OPTION_COMPULSORY_TYPE>(2),
                        static_cast<COMMAND_OPTION_VALUE_TYPE>(3), "text");
    EXPECT_TRUE(full.getIsCompulsory());
    EXPECT_TRUE(full.getHasOptValue());
    full.setDescription("other");
    EXPECT_EQ(full.getDescription(), "other");
}

TEST(CCommandOptionContract, EqualsThroughOneNonEmptyName) {
    EXPECT_TRUE(named("n", "node").equal(named("n", "name")));
    EXPECT_TRUE(named("a", "x").equal(named("b", "x")));
    EXPECT_FALSE(named("a", "x").equal(named("b", "y")));
    EXPECT_FALSE(named("", "x").equal(named("", "y")));
    EXPECT_FALSE(named("a", "").equal(named("b", "")));
    EXPECT_FALSE(named("", "").equal(named("", "")));
    EXPECT_FALSE(named("n", "").equal(named("", "n")));
    EXPECT_FALSE(named("n", "").equal(named("N", "")));
    EXPECT_TRUE(named("n", "node") == named("n", "name"));
    EXPECT_FALSE(named("", "x") == named("", "y"));
}

TEST(CCommandOptionContract, PrintsItsHelpLine) {
    const auto line = [](const char* s, const char* l, const char* d) {
        return CCommandOption(s, l, kOptional, kBare, d).toString();
    };
    EXPECT_EQ(line("n", "node", "Target node"), "-n, --node: Target node");
    EXPECT_EQ(line("n", "", "T"), "-n: T");
    EXPECT_EQ(line("", "node", "T"), "--node: T");
    EXPECT_EQ(line("", "", "T"), "-, --: T");
    EXPECT_EQ(line("n", "node", ""), "-n, --node: ");
}

class OptionValue : public testing::TestWithParam<ValueCase> {};

TEST_P(OptionValue, IsTheTextUpToTheNextOption) {
    const ValueCase& value = GetParam();
    const CCommandOption option(value.shortName, value.longName, kOptional, kValued);
    EXPECT_EQ(option.getOptionValue(std::string(value.line)), value.value);
}

INSTANTIATE_TEST_SUITE_P(
    CCommandOptionContract, OptionValue,
    testing::Values(
        ValueCase{"n", "", "reset -n node1 node2 -t 3", "node1 node2"},
        ValueCase{"m", "", "send -m disk full -x", "disk full"},
        ValueCase{"m", "", "send -m   disk   full  ", "disk   full"},
        ValueCase{"n", "node", "reset -t 3", ""}, ValueCase{"n", "node", "", ""},
        // The short name counts neither at the very start nor at the end, nor glued to its value.
        ValueCase{"n", "", "-n node1", ""}, ValueCase{"n", "", "reset -n", ""},
        ValueCase{"n", "", "reset -nnode1", ""}, ValueCase{"n", "", "reset -n\tnode1", ""},
        // Nor does its first occurrence inside another word lead on to the next.
        ValueCase{"n", "", "reset --n node1", ""}, ValueCase{"n", "", "reset --name x -n y", ""},
        ValueCase{"n", "", "reset -nx -n y", ""},
        // Something other than a dash may stand before it.
        ValueCase{"n", "", "a-n x", "x"},
        // The long name counts at the start, and replaces the short one.
        ValueCase{"n", "node", "--node x", "x"}, ValueCase{"n", "node", "r -n a --node b", "b"},
        ValueCase{"n", "node", "r --node b -n a", "b"}, ValueCase{"n", "node", "r --nodes b", ""},
        ValueCase{"n", "node", "r --node", ""}, ValueCase{"n", "node", "r -n a --node", "a"},
        ValueCase{"n", "node", "r --nodes a --node b", ""},
        // A value that begins like an option is no value.
        ValueCase{"n", "", "reset -n -t 3", ""}, ValueCase{"n", "node", "r -n a --node -x", ""},
        ValueCase{"n", "", "reset -n a-b --c", "a-b"},
        ValueCase{"f", "file", "save file -f /tmp/a b.txt", "/tmp/a b.txt"}));

TEST(CCommandOptionContract, HasNoValueWhenItTakesNone) {
    const CCommandOption option("n", "node", kCompulsory, kBare);
    EXPECT_EQ(option.getOptionValue("reset -n x"), "");
    EXPECT_EQ(option.getOptionValue("reset --node x"), "");
}

namespace {

struct Removal {
    CCommandOption option;
    const char* line;
    bool present;
    const char* rest;
    const char* fault;
};

void PrintTo(const Removal& removal, std::ostream* out) {
    *out << removal.option.toString() << " from \"" << removal.line << '"';
}

const CCommandOption kFlag("a", "all", kOptional, kBare);
const CCommandOption kNode("n", "node", kOptional, kValued);
const CCommandOption kMust("f", "file", kCompulsory, kValued);
const char* const kNoValue = "Option [-n|--node] must have option value.";

}  // namespace

class OptionRemoval : public testing::TestWithParam<Removal> {};

TEST_P(OptionRemoval, TakesTheOptionAndItsValueOutOfTheLine) {
    const Removal& removal = GetParam();
    std::string line = removal.line;
    try {
        EXPECT_EQ(CCommandOption(removal.option).processOption(&line), removal.present);
        EXPECT_STREQ(removal.fault, "");
        EXPECT_EQ(line, removal.rest);
    } catch (const CException& fault) {
        EXPECT_EQ(fault.getErrMsg(), removal.fault);
        EXPECT_EQ(line, removal.line);
    }
}

INSTANTIATE_TEST_SUITE_P(
    CCommandOptionContract, OptionRemoval,
    testing::Values(
        Removal{kFlag, "reset -a", true, "reset", ""},
        Removal{kFlag, "reset --all x", true, "reset x", ""},
        Removal{kFlag, "reset -a x --all -a y", true, "reset x y", ""},
        Removal{kFlag, "  reset   x  ", false, "reset x", ""}, Removal{kFlag, "", false, "", ""},
        Removal{kFlag, "-a", true, "", ""}, Removal{kFlag, "reset -A", false, "reset -A", ""},
        Removal{kFlag, "reset -ab --all=1", false, "reset -ab --all=1", ""},
        Removal{kFlag, "send \"two words\" \"one\"", false, "send \"two words\" one", ""},
        Removal{kNode, "reset -n x -b", true, "reset -b", ""},
        Removal{kNode, "reset -n x y", true, "reset y", ""},
        Removal{kNode, "reset -n \"x y\" z", true, "reset z", ""},
        Removal{kNode, "reset -n a --node b -n c", true, "reset", ""},
        Removal{kNode, "reset -n", false, "", kNoValue},
        Removal{kNode, "reset --node", false, "", kNoValue},
        Removal{kNode, "reset -n -t 5", false, "", kNoValue},
        Removal{kNode, "reset -n -n", false, "", kNoValue},
        Removal{kNode, "reset -n -", false, "", kNoValue},
        Removal{kNode, "reset -n \"\"", false, "", kNoValue},
        Removal{kNode, "reset -n \"-x\"", false, "", kNoValue},
        Removal{kNode, "reset -n x --node", false, "", kNoValue},
        Removal{kNode, "reset x", false, "reset x", ""},
        Removal{kMust, "save x", false, "", "Option [-f|--file] must be provided."},
        Removal{kMust, "save -f", false, "", "Option [-f|--file] must have option value."},
        Removal{kMust, "save --file /x", true, "save", ""},
        Removal{CCommandOption("f", "", kCompulsory, kBare), "save", false, "",
                "Option [-f|--] must be provided."},
        Removal{CCommandOption("", "file", kCompulsory, kBare), "save", false, "",
                "Option [-|--file] must be provided."}));

namespace {

std::unique_ptr<CShellCommand> command(const char* name, int type) {
    return std::make_unique<CShellCommand>(name, "d", "line", static_cast<COMMAND_TYPE>(type),
                                           SLAVE);
}

}  // namespace

TEST(CShellCommandContract, MakesItsTextsNeatAndLeavesTheOtherLinesEmpty) {
    const CShellCommand one("  list   node ", " shows \t all ", " ls   -l ", SCRIPT_OPT, MASTER);
    EXPECT_EQ(one.getName(), "list node");
    EXPECT_EQ(one.getDescription(), "shows all");
    EXPECT_EQ(one.getCommand(), "ls -l");
    EXPECT_EQ(one.get32Command() + one.get64Command(), "");
    EXPECT_EQ(one.getType(), 3);
    EXPECT_EQ(one.getDestination(), 0);
    EXPECT_FALSE(one.needToCheck32Or64BitCommand());
    const CShellCommand two(" n ", " d ", " a  b ", " c  d ", DLLFUNCTION, SLAVE);
    EXPECT_EQ(two.getCommand(), "");
    EXPECT_EQ(two.get32Command(), "a b");
    EXPECT_EQ(two.get64Command(), "c d");
    EXPECT_TRUE(two.needToCheck32Or64BitCommand());
    EXPECT_TRUE(CShellCommand("n", "d", "", "x", SCRIPT, SLAVE).needToCheck32Or64BitCommand());
    EXPECT_TRUE(CShellCommand("n", "d", "x", "", SCRIPT, SLAVE).needToCheck32Or64BitCommand());
    EXPECT_FALSE(CShellCommand("n", "d", "", "", SCRIPT, SLAVE).needToCheck32Or64BitCommand());
}

TEST(CShellCommandContract, HasDefaults) {
    const auto fresh = command("c", 2);
    EXPECT_EQ(fresh->getCommandConfirmType(), 0);
    EXPECT_EQ(fresh->getCommandConfirmMessage(), "");
    EXPECT_EQ(fresh->getCommandSet(), nullptr);
    EXPECT_TRUE(fresh->getOptions().empty());
    EXPECT_TRUE(fresh->getExamples().empty());
}

TEST(CShellCommandContract, TakesTimeOutAndConfirmationFromItsSetWhereItHasNone) {
    CShellCommandSet set("s", "");
    set.setTimeOut(30);
    set.setCommandSetConfirmType(ONCE);
    set.setCommandSetConfirmMessage("Sure?");
    auto owned = command("c", 2);
    CShellCommand* c = owned.get();
    set.addSupportedCommand(owned.release());
    EXPECT_EQ(c->getCommandSet(), &set);
    EXPECT_EQ(c->getTimeOut(), 30U);
    c->setTimeOut(4294967295U);
    EXPECT_EQ(c->getTimeOut(), 4294967295U);

    EXPECT_EQ(c->getCommandConfirmType(), NO);
    c->setCommandConfirmMessage("own");
    EXPECT_EQ(c->getCommandConfirmMessage(), "");
    c->setCommandConfirmType(INHERITANCE);
    EXPECT_EQ(c->getCommandConfirmType(), ONCE);
    EXPECT_EQ(c->getCommandConfirmMessage(), "Sure?");
    set.setCommandSetConfirmMessage("");
    EXPECT_EQ(c->getCommandConfirmMessage(), "Do you really want to execute this command?");
    set.setCommandSetConfirmType(NO);
    EXPECT_EQ(c->getCommandConfirmMessage(), "");
    for (const CONFIRM_TYPE_ENUM type : {ONCE, EACH}) {
        c->setCommandConfirmType(type);
        EXPECT_EQ(c->getCommandConfirmType(), type);
        EXPECT_EQ(c->getCommandConfirmMessage(), "own");
    }
    c->setCommandConfirmMessage("");
    EXPECT_EQ(c->getCommandConfirmMessage(), "Do you really want to execute this command?");
}

TEST(CShellCommandContract, InheritsNothingWithoutASet) {
    auto lone = command("c", 2);
    lone->setCommandConfirmType(INHERITANCE);
    lone->setCommandConfirmMessage("own");
    EXPECT_EQ(lone->getCommandConfirmType(), 1);
    EXPECT_EQ(lone->getCommandConfirmMessage(), "");
}

TEST(CShellCommandContract, RefusesAnOptionThatSharesANameWithOneItHas) {
    auto c = command("c", 3);
    auto* first = new CCommandOption("n", "node", kOptional, kBare, "the first");
    c->addOption(first);
    auto* second = new CCommandOption("", "x", kOptional, kBare, "the second");
    c->addOption(second);
    auto* third = new CCommandOption("", "y", kOptional, kBare);
    c->addOption(third);
    CCommandOption sameShort("n", "name", kOptional, kBare, "new");
    EXPECT_EQ(messageOf<CAlreadyExistException>([&] { c->addOption(&sameShort); }),
              "The option [n|node] \"the first\" already defines the same option!");
    CCommandOption sameLong("b", "x", kOptional, kBare, "new");
    EXPECT_EQ(messageOf<CAlreadyExistException>([&] { c->addOption(&sameLong); }),
              "The option [|x] \"the second\" already defines the same option!");
    EXPECT_EQ(asVector(c->getOptions()), (std::vector<CCommandOption*>{first, second, third}));
    EXPECT_EQ(c->getCommandOption("n"), first);
    EXPECT_EQ(c->getCommandOption("node"), first);
    EXPECT_EQ(c->getCommandOption("y"), third);
    EXPECT_EQ(c->getCommandOption("-n"), nullptr);
    EXPECT_EQ(c->getCommandOption("Node"), nullptr);
}

TEST(CShellCommandContract, FindsTheFirstOptionWhoseEitherNameIsAsked) {
    auto c = command("c", 3);
    auto* first = new CCommandOption("a", "b", kOptional, kBare);
    c->addOption(first);
    c->addOption(new CCommandOption("b", "c", kOptional, kBare));
    EXPECT_EQ(c->getCommandOption("b"), first);
}

TEST(CShellCommandContract, HandsOutCopiesOfItsListsAndTakesOptionsOut) {
    auto c = command("c", 3);
    auto* a = new CCommandOption("a", "", kOptional, kBare);
    auto* b = new CCommandOption("b", "", kOptional, kBare);
    c->addOption(a);
    c->addOption(b);
    c->getOptions().clear();
    EXPECT_EQ(c->getOptions().size(), 2U);
    CCommandOption stranger("a", "", kOptional, kBare);
    c->removeOption(&stranger);
    EXPECT_EQ(c->getOptions().size(), 2U);
    c->removeOption(a);
    EXPECT_EQ(asVector(c->getOptions()), (std::vector<CCommandOption*>{b}));
    EXPECT_EQ(a->getShortOptName(), "a");
    c->removeOptions();
    EXPECT_TRUE(c->getOptions().empty());
    EXPECT_EQ(b->getShortOptName(), "b");
    delete a;
    delete b;
}

TEST(CShellCommandContract, OwnsItsOptions) {
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
    ASSERT_EQ(alive, 1);
    c.reset();
    EXPECT_EQ(alive, 0);
}

TEST(CShellCommandContract, KeepsExamplesInOrderAndRefusesARepeatedOne) {
    auto c = command("c", 3);
    c->addExample("z");
    c->addExample("a");
    EXPECT_EQ(messageOf<CAlreadyExistException>([&] { c->addExample("z"); }),
              "The example [z] \" already defines in the this command!");
    EXPECT_EQ(asVector(c->getExamples()), (Words{"z", "a"}));
    c->getExamples().clear();
    EXPECT_EQ(c->getExamples().size(), 2U);
    c->setExamples({"x", "x"});
    EXPECT_EQ(asVector(c->getExamples()), (Words{"x", "x"}));
}

TEST(CShellCommandContract, AnswersForTheValueOfAnOption) {
    auto c = command("reset", 3);
    c->addOption(new CCommandOption("n", "node", kOptional, kValued));
    EXPECT_EQ(c->getCommandOptionValue("n", "reset --node a b -x"), "a b");
    EXPECT_EQ(c->getCommandOptionValue("node", "reset -n a"), "a");
    EXPECT_EQ(c->getCommandOptionValue("t", "reset -t a"), "");
}

TEST(CShellCommandContract, IsNamedExactly) {
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
    EXPECT_EQ(c->validateCommand(std::string(use.line), &errors), use.valid);
    EXPECT_EQ(errors.toString(), use.findings);
    EXPECT_EQ(errors.getSize(), errors.getSize(static_cast<CONFIGERROR_LEVEL>(2)));
}

INSTANTIATE_TEST_SUITE_P(
    CShellCommandContract, CommandUse,
    testing::Values(
        Use{2, "ls", "ls", true, ""}, Use{2, "ls", "ls -l", false, ""},
        Use{2, "ls", "ls ", false, ""}, Use{0, "ls", "ls", true, ""}, Use{4, "ls", "LS", false, ""},
        Use{0, "+ls", "ls", true, ""}, Use{4, "+ls", "ls -a -f x", false, ""},
        Use{3, "ls", "ls", true, ""}, Use{3, "ls", "ls -l", false, ""},
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

TEST(CShellCommandContract, EarlierFindingsRefuseOnlyCommandsWithOptions) {
    ConfigErrorCollector errors;
    errors.addError(0, static_cast<CONFIGERROR_LEVEL>(1), "earlier");
    EXPECT_FALSE(command("ls", 3)->validateCommand("ls", &errors));
    EXPECT_TRUE(command("ls", 2)->validateCommand("ls", &errors));
    EXPECT_EQ(errors.toString(), "earlier\n");
}

TEST(KelshEnumContract, ResolvesTheFourWordsInAnyCaseAndNothingElse) {
    EXPECT_EQ(KelshEnum::resolveConformType("NO"), 0);
    EXPECT_EQ(KelshEnum::resolveConformType("Inheritance"), 1);
    EXPECT_EQ(KelshEnum::resolveConformType("once"), 2);
    EXPECT_EQ(KelshEnum::resolveConformType(std::string("eAcH")), 3);
    for (const char* other : {"", " once", "once ", "always", "2", "ONCES"}) {
        EXPECT_EQ(KelshEnum::resolveConformType(other), 0) << other;
    }
    KelshEnum instance;
    EXPECT_EQ(instance.resolveConformType("EACH"), EACH);
}
