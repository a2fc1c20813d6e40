#include <ostream>

#include "CShellCommandSet.h"
#include "CShellConfigReader.h"
#include "CShellExecutionContext.h"
#include "ConfigErrorCollector.h"
#include "Observed.h"
#include "TextStream.h"

namespace {

std::string described(const CShellCommand& command) {
    std::string text = " " + command.getName() + "(" + std::to_string(command.getType()) + "," +
                       std::to_string(command.getDestination()) + "," +
                       std::to_string(command.getTimeOut()) + ":" + command.getCommand() + "/" +
                       command.get32Command() + "/" + command.get64Command();
    for (const CCommandOption* option : command.getOptions()) {
        text += " {" + option->toString() + "}" + (option->getIsCompulsory() ? "1" : "0") +
                (option->getHasOptValue() ? "1" : "0");
    }
    return text + ")";
}

// "path: command(type,destination,timeout:cmd/cmd32/cmd64 {option}CV) ..." per set, children below.
std::string described(const CShellCommandSet& set) {
    std::string text = set.getPath() + ":";
    for (const auto& entry : set.getSupportedCommands()) {
        text += described(*entry.second);
    }
    text += "\n";
    for (const CShellCommandSet* child : set.getChildCommands()) {
        text += described(*child);
    }
    return text;
}

class CommandReading : public testing::Test {
protected:
    std::string read(const std::string& text) {
        const TextStream stream(text);
        printed =
            printedBy([&] { CShellConfigReader::readCmdConfig(stream.get(), context, &errors); });
        return errors.toString();
    }
    std::string tree() {
        std::string text;
        for (const CShellCommandSet* set : context.getRootCommandSetList()) {
            text += described(*set);
        }
        return text;
    }
    CShellCommandSet* root() { return context.getRootCommandSetList().back(); }

    CShellExecutionContext context;
    ConfigErrorCollector errors;
    std::string printed;
};

const std::string kSet = "[cmdset]\nname=s\ndescription=d\n";
const std::string kCommand = "[cmd]\nname=c\ndescription=d\ntype=SCRIPT\ndestination=SLAVE\n";

}  // namespace

TEST_F(CommandReading, AcceptsAWholeFile) {
    EXPECT_EQ("", read("# site commands\n"
                       "[cmdset]\n"
                       "name=tools\n"
                       "description=Site tools\n"
                       "[cmd]\n"
                       "name=uptime\n"
                       "description=Show how long the nodes have been up\n"
                       "type=SCRIPT\n"
                       "destination=SLAVE\n"
                       "cmd=uptime\n"
                       "example=uptime -n node1\n"
                       "[cmdset]\n"
                       "name=tools/disk\n"
                       "description=Disk tools\n"
                       "timeout=30\n"
                       "[cmd]\n"
                       "name=usage\n"
                       "description=Show disk usage\n"
                       "type=SCRIPT_OPT\n"
                       "destination=SLAVE\n"
                       "cmd32=df -h\n"
                       "cmd64=df -h\n"
                       "option=[-p|--path|01]directory to examine\n"));
    EXPECT_EQ("", printed);
    EXPECT_EQ(
        "tools: uptime(2,1,0:uptime//)\n"
        "tools/disk: usage(3,1,30:/df -h/df -h {-p, --path: directory to examine}01)\n",
        tree());
    CShellCommandSet* tools = root();
    EXPECT_EQ("Site tools", tools->getDescription());
    CShellCommand* uptime = tools->getSupportedCommands().at("uptime");
    EXPECT_EQ((Words{"uptime -n node1"}), asVector(uptime->getExamples()));
    EXPECT_EQ(tools, uptime->getCommandSet());
    std::string line = "tools/disk/usage -p /x";
    EXPECT_EQ(context.findExeCommand("", line, &errors),
              tools->getChildCommands().front()->getSupportedCommands().at("usage"));
    EXPECT_EQ("usage -p /x", line);
}

TEST_F(CommandReading, KnowsTheSixTypesAndTwoDestinations) {
    std::string text = kSet;
    int number = 0;
    for (const char* type :
         {"BUILTIN", "BUILTIN_OPT", "SCRIPT", "SCRIPT_OPT", "DLLFUNCTION", "DLLFUNCTION_OPT"}) {
        text += "[cmd]\nname=" + std::to_string(number) + "\ndescription=d\ncmd=x\ntype=" + type +
                "\ndestination=" + (number % 2 == 0 ? "MASTER" : "SLAVE") + "\n";
        ++number;
    }
    EXPECT_EQ("", read(text));
    EXPECT_EQ("s: 0(0,0,0:x//) 1(1,1,0:x//) 2(2,0,0:x//) 3(3,1,0:x//) 4(4,0,0:x//) 5(5,1,0:x//)\n",
              tree());
}

TEST_F(CommandReading, IgnoresWhatIsNoSetting) {
    EXPECT_EQ("", read("[cmd]\nname=c\nnonsense\n=\n# x\n\n"));
    EXPECT_EQ("", tree());
    EXPECT_EQ("", read("#[cmdset]\n [cmdset]\n[cmdset] \n[CMDSET]\nname=x\n"));
    EXPECT_EQ("", tree());
    EXPECT_EQ("", read(""));
    EXPECT_EQ("", read("[cmdset]\nnonsense\n[cmd]\n[cmd]\n[cmdset]\n"));
    EXPECT_EQ("", tree());
}

TEST_F(CommandReading, TakesTheLastValueOfAKeyAndKeepsBlanksAndEqualSigns) {
    EXPECT_EQ(
        "", read("[cmdset]\nname=a\nname=s \ndescription= two  words \n[cmd]\nname=x\nname= c  c \n"
                 "description=d\ntype=SCRIPT\ndestination=SLAVE\ncmd=a=b #c\nunknown=1\n"
                 "cmd =z\nNAME=y\nexample=1\nexample=\nexample=1\n"));
    CShellCommandSet* set = root();
    EXPECT_EQ("s ", set->getCommandSetName());
    EXPECT_EQ(" two  words ", set->getDescription());
    CShellCommand* command = set->getSupportedCommands().at("c c");
    EXPECT_EQ("a=b #c", command->getCommand());
    EXPECT_EQ((Words{"1", "", "1"}), asVector(command->getExamples()));
}

TEST_F(CommandReading, NamesTheLineOfTheFirstSettingOfABlock) {
    EXPECT_EQ(
        "Line:5, \"description\" is not defined for [CmdSet].\n"
        "Line:9, \"name\" is not defined for [Cmd].\n"
        "Line:9, \"description\" is not defined for [Cmd].\n"
        "Line:9, \"type\" is not defined for [Cmd].\n"
        "Line:9, \"destination\" is not defined for [Cmd].\n"
        "Line:9, Invalid \"type\" for [Cmd]:\n"
        "Line:9, Invalid \"destination\" for [Cmd].\n"
        "Line:9, None of \"cmd\", \"cmd32\" or \"cmd64\" is defined for [Cmd].\n",
        read("\n[cmdset]\n# c\nplain\n description = x\nname=s\n[cmd]\n\n unknown=1\n"));
    EXPECT_EQ("", tree());
}

TEST_F(CommandReading, AcceptsNoBlanksAroundTheEqualSign) {
    EXPECT_EQ("Line:5, \"description\" is not defined for [Cmd].\n",
              read(kSet + "[cmd]\nname=c\ntype=SCRIPT\ndestination=SLAVE\ncmd=x\n"
                          "description = x\n"));
    EXPECT_EQ("s:\n", tree());
}

namespace {

struct Faulty {
    const char* what;
    std::string text;
    std::string findings;
    std::string tree;
};

void PrintTo(const Faulty& faulty, std::ostream* out) {
    *out << faulty.what;
}

std::string setNamed(const std::string& name) {
    return "[cmdset]\nname=" + name + "\ndescription=d\n";
}

// A command whose first setting stands on line 5.
std::string withLine(const std::string& line) {
    return kSet + kCommand + line;
}

std::string withOption(const std::string& option) {
    return kSet +
           "[cmd]\nname=c\ndescription=d\ntype=SCRIPT_OPT\ndestination=SLAVE\ncmd=x\noption=" +
           option + "\n";
}

const std::string kPlain = "s: c(2,1,0:x//)\n";
const std::string kNoOption = "s: c(3,1,0:x//)\n";

}  // namespace

class CommandFault : public testing::TestWithParam<Faulty> {};

TEST_P(CommandFault, IsRecordedAtItsBlockAndDropsOnlyItsObject) {
    CShellExecutionContext context;
    ConfigErrorCollector errors;
    const TextStream stream(GetParam().text);
    const std::string printed =
        printedBy([&] { CShellConfigReader::readCmdConfig(stream.get(), context, &errors); });
    EXPECT_EQ(GetParam().findings, errors.toString());
    EXPECT_EQ(errors.getSize(), errors.getSize(static_cast<CONFIGERROR_LEVEL>(2)));
    EXPECT_EQ("", printed);
    std::string tree;
    for (const CShellCommandSet* set : context.getRootCommandSetList()) {
        tree += described(*set);
    }
    EXPECT_EQ(GetParam().tree, tree);
}

INSTANTIATE_TEST_SUITE_P(
    OfSets, CommandFault,
    testing::Values(
        Faulty{"no name", "[cmdset]\ndescription=d\n",
               "Line:2, \"name\" is not defined for "
               "[CmdSet].\n",
               ""},
        Faulty{"no name and no description", "[cmdset]\nname=\n",
               "Line:2, \"name\" is not defined for [CmdSet].\n"
               "Line:2, \"description\" is not defined for [CmdSet].\n",
               ""},
        Faulty{"unknown parent", setNamed("a/b"), "Line:2, Command set \"a\" does not exist!\n",
               ""},
        Faulty{"parent below the child", setNamed("a/b") + setNamed("a"),
               "Line:2, Command set \"a\" does not exist!\n", "a:\n"},
        Faulty{"unknown grandparent", setNamed("a") + setNamed("a/b/c"),
               "Line:5, Command set \"b\" does not exist!\n", "a:\n"},
        Faulty{"child name as a root", setNamed("a") + setNamed("a/b") + setNamed("b/c"),
               "Line:8, Command set \"b\" does not exist!\n", "a:\na/b:\n"},
        Faulty{"other case", setNamed("a") + setNamed("A/b"),
               "Line:5, Command set \"A\" does not exist!\n", "a:\n"},
        Faulty{"three levels",
               setNamed("a") + setNamed("a/b") + setNamed("a/b/c") + setNamed("a/d"), "",
               "a:\na/b:\na/b/c:\na/d:\n"},
        Faulty{"nothing behind the slash", setNamed("a/"),
               "Line:2, Invalid command set name definition for [CmdSet]: a/\n", ""},
        Faulty{"nothing behind the slash of a known set", setNamed("a") + setNamed("a/"),
               "Line:5, Invalid command set name definition for [CmdSet]: a/\n", "a:\n"},
        Faulty{"nothing behind the last slash", setNamed("a") + setNamed("a/b") + setNamed("a/b/"),
               "Line:8, Invalid command set name definition for [CmdSet]: a/b/\n", "a:\na/b:\n"},
        Faulty{"a slash alone", setNamed("/"),
               "Line:2, Invalid command set name definition for [CmdSet]: /\n", ""},
        Faulty{"leading slash", setNamed("/a"), "Line:2, Command set \"\" does not exist!\n", ""},
        Faulty{"double slash", setNamed("a") + setNamed("a//b"),
               "Line:5, Command set \"\" does not exist!\n", "a:\n"},
        Faulty{"same child twice", setNamed("a") + setNamed("a/b") + setNamed("a/b"),
               "Line:8, The command b already exists!\n", "a:\na/b:\n"},
        Faulty{"faulty set with faulty command", "[cmdset]\nname=s\n" + kCommand,
               "Line:2, \"description\" is not defined for [CmdSet].\n"
               "Line:4, None of \"cmd\", \"cmd32\" or \"cmd64\" is defined for [Cmd].\n",
               ""},
        Faulty{"bad set time-out", kSet + "timeout=-5\n" + kCommand + "cmd=x\n",
               "Line:2, Invalid time out: -5\n", kPlain},
        Faulty{"two sets one after the other", "[cmdset]\nname=a\n" + kSet,
               "Line:2, \"description\" is not defined for [CmdSet].\n", "s:\n"}));

INSTANTIATE_TEST_SUITE_P(
    OfCommands, CommandFault,
    testing::Values(
        Faulty{"good", withLine("cmd=x\n"), "", kPlain},
        Faulty{"32 and 64", withLine("cmd32=x\ncmd64=y\n"), "", "s: c(2,1,0:/x/y)\n"},
        Faulty{"32", withLine("cmd32=x\n"), "", "s: c(2,1,0:/x/)\n"},
        Faulty{"64", withLine("cmd64=x\n"), "", "s: c(2,1,0://x)\n"},
        Faulty{"all lines", withLine("cmd=x\ncmd32=y\ncmd64=z\n"),
               "Line:5, \"cmd64\", \"cmd32\" and \"cmd\" can not be defined at the same time for "
               "[Cmd].\n",
               "s:\n"},
        Faulty{"cmd and 64", withLine("cmd=x\ncmd64=z\n"),
               "Line:5, \"cmd64\" and \"cmd\" can not be defined at the same time for [Cmd].\n",
               "s:\n"},
        Faulty{"cmd and 32", withLine("cmd=x\ncmd32=z\n"),
               "Line:5, \"cmd32\" and \"cmd\" can not be defined at the same time for [Cmd].\n",
               "s:\n"},
        Faulty{"none", withLine("cmd=\n"),
               "Line:5, None of \"cmd\", \"cmd32\" or \"cmd64\" is defined for [Cmd].\n", "s:\n"},
        Faulty{"type", withLine("cmd=x\ntype=Script \n"),
               "Line:5, Invalid \"type\" for [Cmd]:Script \n", "s:\n"},
        Faulty{"destination", withLine("cmd=x\ndestination=slave\n"),
               "Line:5, Invalid \"destination\" for [Cmd].\n", "s:\n"},
        Faulty{"name", withLine("cmd=x\nname=\n"), "Line:5, \"name\" is not defined for [Cmd].\n",
               "s:\n"},
        Faulty{"description", withLine("cmd=x\ndescription=\n"),
               "Line:5, \"description\" is not defined for [Cmd].\n", "s:\n"},
        Faulty{"everything", kSet + "[cmd]\nx=\ncmd=1\ncmd32=1\ntype=t\ndestination=d\n",
               "Line:5, \"name\" is not defined for [Cmd].\n"
               "Line:5, \"description\" is not defined for [Cmd].\n"
               "Line:5, Invalid \"type\" for [Cmd]:t\n"
               "Line:5, Invalid \"destination\" for [Cmd].\n"
               "Line:5, \"cmd32\" and \"cmd\" can not be defined at the same time for [Cmd].\n",
               "s:\n"},
        Faulty{"same name twice", withLine("cmd=x\n") + kCommand + "cmd=y\n",
               "Line:11, c already exists!\n", kPlain},
        Faulty{"good behind a faulty one", withLine("") + kCommand + "cmd=x\n",
               "Line:5, None of \"cmd\", \"cmd32\" or \"cmd64\" is defined for [Cmd].\n", kPlain}));

INSTANTIATE_TEST_SUITE_P(
    OfOptions, CommandFault,
    testing::Values(
        Faulty{"plain", withOption("[-f|--force|00]Force it"), "",
               "s: c(3,1,0:x// {-f, --force: Force it}00)\n"},
        Faulty{"padded", withOption("  [ -f | --force | 11 ]  Force it  "), "",
               "s: c(3,1,0:x// {-f, --force: Force it}11)\n"},
        Faulty{"short only", withOption("[-f||10]"), "", "s: c(3,1,0:x// {-f: }10)\n"},
        Faulty{"long only", withOption("[|--f|01]d"), "", "s: c(3,1,0:x// {--f: d}01)\n"},
        Faulty{"long without dashes", withOption("[-f|force|00]d"), "",
               "s: c(3,1,0:x// {-f: d}00)\n"},
        Faulty{"long with one dash", withOption("[-f|-force|00]d"), "",
               "s: c(3,1,0:x// {-f: d}00)\n"},
        Faulty{"short with two dashes", withOption("[--f|--g|00]d"), "",
               "s: c(3,1,0:x// {--f, --g: d}00)\n"},
        Faulty{"description with signs", withOption("[-f||00]a|b]c[d"), "",
               "s: c(3,1,0:x// {-f: a|b]c[d}00)\n"},
        Faulty{"two lines", withOption("[-z||00]1\noption=[-a||00]2"), "",
               "s: c(3,1,0:x// {-z: 1}00 {-a: 2}00)\n"},
        Faulty{"two in a line", withOption(";; [-z||00]1 ;;;;[-a||00]2;;"), "",
               "s: c(3,1,0:x// {-z: 1}00 {-a: 2}00)\n"},
        Faulty{"empty", withOption("  "), "", kNoOption},
        Faulty{"no brackets", withOption(" -f|--force|00 "),
               "Line:5, Invalid format for a command option: -f|--force|00\n", kNoOption},
        Faulty{"brackets the wrong way", withOption("]-f|--force|00["),
               "Line:5, Invalid format for a command option: ]-f|--force|00[\n", kNoOption},
        Faulty{"two parts", withOption("[-f|00]d"),
               "Line:5, Invalid format for a command option: [-f|00]d\n", kNoOption},
        Faulty{"four parts", withOption("[-f|--f|0|0]d"),
               "Line:5, Invalid format for a command option: [-f|--f|0|0]d\n", kNoOption},
        Faulty{"no names", withOption("[|--|00]d"),
               "Line:5, Invalid format! Short option name:\"\" and long option name:\"\" can not "
               "both be empty.\n",
               kNoOption},
        Faulty{"names without dashes", withOption("[f|force|01]d"),
               "Line:5, Invalid format! Short option name:\"\" and long option name:\"\" can not "
               "both be empty.\n",
               kNoOption},
        Faulty{"attribute x", withOption("[-a||0x]"), "Line:5, Invalid option attributes:\"0x\"\n",
               kNoOption},
        Faulty{"one attribute", withOption("[-f|--force|2]"),
               "Line:5, Invalid option attributes:\"2\"\n", kNoOption},
        Faulty{"attribute 2", withOption("[-f|--force|02]"),
               "Line:5, Invalid option attributes:\"02\"\n", kNoOption},
        Faulty{"three attributes", withOption("[-f|--force|001]"),
               "Line:5, Invalid option attributes:\"001\"\n", kNoOption},
        Faulty{"no attributes", withOption("[-f|--force|]"),
               "Line:5, Invalid option attributes:\"\"\n", kNoOption},
        Faulty{"same option twice", withOption("[-f|--a|00]1;;[-f|--b|00]2;;[-g||00]3"),
               "Line:5, The option [f|a] \"1\" already defines the same option!\n",
               "s: c(3,1,0:x// {-f, --a: 1}00 {-g: 3}00)\n"},
        Faulty{"good behind a bad one", withOption("bad;;[-g||00]3"),
               "Line:5, Invalid format for a command option: bad\n",
               "s: c(3,1,0:x// {-g: 3}00)\n"}));

TEST_F(CommandReading, SetsConfirmationOfSetsAndCommands) {
    EXPECT_EQ("", read(kSet + "confirmtype=once\nconfirmmsg= Sure? \ntimeout=9\n" + kCommand +
                       "cmd=x\nconfirmtype=INHERITANCE\n"
                       "[cmd]\nname=e\ndescription=d\ntype=SCRIPT\ndestination=SLAVE\ncmd=x\n"
                       "confirmtype=Each\nconfirmmsg=Really?\ntimeout=3\n"));
    CShellCommandSet* set = root();
    EXPECT_EQ(ONCE, set->getCommandSetConfirmType());
    EXPECT_EQ(" Sure? ", set->getCommandSetConfirmMessage());
    EXPECT_EQ(9U, set->getTimeOut());
    EXPECT_EQ(ONCE, set->getCommandConfirmType("c"));
    EXPECT_EQ(" Sure? ", set->getCommandConfirmMessage("c"));
    EXPECT_EQ(9U, set->getCommandTimeOut("c"));
    EXPECT_EQ(EACH, set->getCommandConfirmType("e"));
    EXPECT_EQ("Really?", set->getCommandConfirmMessage("e"));
    EXPECT_EQ(3U, set->getCommandTimeOut("e"));
}

TEST_F(CommandReading, PrintsTheClashWithARootCommandAndKeepsTheSet) {
    auto* basic = new CShellCommandSet("BASIC", "");
    basic->addSupportedCommand(new CShellCommand("c", "d", "", BUILTIN, MASTER));
    context.addCommandSet(basic);
    EXPECT_EQ("", read(kSet + kCommand + "cmd=x\n"));
    EXPECT_EQ("Command \"c\" already exists!\n", printed);
    EXPECT_EQ(": c(0,0,0://)\ns: c(2,1,0:x//)\n", tree());
    EXPECT_EQ("", read(setNamed("BASIC/x")));
    EXPECT_EQ("/x", basic->getChildCommands().front()->getPath());
}

TEST_F(CommandReading, WorksThroughAReaderObjectToo) {
    CShellConfigReader reader;
    const TextStream stream(kSet);
    reader.readCmdConfig(stream.get(), context, &errors);
    EXPECT_EQ("s:\n", tree());
    EXPECT_EQ((Words{"f", "", "00", "d"}), asVector(resolveOptionToken("[-f||00]d")));
}

TEST_F(CommandReading, SplitsAnOptionDeclaration) {
    const auto split = [](const char* token) {
        return asVector(CShellConfigReader::resolveOptionToken(token));
    };
    EXPECT_EQ((Words{"f", "force", "01", "Do it"}), split("[-f|--force|01]Do it"));
    EXPECT_EQ((Words{"f", "force", "01", "Do it"}), split("[ -f | --force | 01 ] Do it "));
    EXPECT_EQ((Words{"", "", "xyz", ""}), split("[f|force|xyz]"));
    EXPECT_EQ((Words{"", "", "", ""}), split("[||]"));
    EXPECT_EQ((Words{"f", "", "10", "x [y] | z"}), split("[-f||10]x [y] | z"));
    EXPECT_EQ((Words{"-f", "", "01", "d"}), split("[--f|-force|01]d"));
    EXPECT_EQ((Words{"", "", "00", ""}), split("[-|--|00]"));
    for (const char* bad : {"", "[", "]", "][", "[]", "[a|b]", "[a|b|c|d]", "a|b|c", "[a|b|c",
                            "]-f|--f|00[", "[-f --force 01]"}) {
        EXPECT_EQ(Words{}, split(bad)) << bad;
    }
}
