#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CConfiguredCommandSet.h"
#include "CShellCommand.h"
#include "CShellConfigReader.h"
#include "CShellExecutionContext.h"
#include "ConfigErrorCollector.h"
#include "TextStream.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

constexpr char kSet[] = "[cmdset]\nname=s\ndescription=d\n";
constexpr char kCommand[] = "[cmd]\nname=c\ndescription=d\ntype=SCRIPT\ndestination=SLAVE\n";

class CShellConfigReaderCmdTest : public testing::Test {
protected:
    void read(const std::string& text) {
        const TextStream stream(text);
        CShellConfigReader::readCmdConfig(stream.get(), context, &errors);
    }

    // The findings on a command in line 4 of a file, the lines given standing in its section.
    std::list<std::string> faultsOfCommand(const std::string& settings) {
        read(std::string(kSet) + kCommand + settings);
        return messages();
    }

    std::list<std::string> messages() const {
        std::list<std::string> texts;
        for (const ConfigError* error : errors.getErrorList()) {
            texts.push_back(error->toString());
        }
        return texts;
    }

    // Paths of all sets, parents before children.
    std::list<std::string> paths() {
        std::list<std::string> result;
        collect(context.getRootCommandSetList(), result);
        return result;
    }

    static void collect(const std::list<CShellCommandSet*>& sets, std::list<std::string>& result) {
        for (CShellCommandSet* set : sets) {
            result.push_back(set->getPath());
            collect(set->getChildCommands(), result);
        }
    }

    CShellCommandSet* firstSet() {
        return context.getRootCommandSetList().empty() ? nullptr
                                                       : context.getRootCommandSetList().front();
    }

    CShellCommand* firstCommand() {
        CShellCommandSet* set = firstSet();
        return set == nullptr || set->getSupportedCommands().empty()
                   ? nullptr
                   : set->getSupportedCommands().begin()->second;
    }

    CShellExecutionContext context;
    ConfigErrorCollector errors;
};

}  // namespace

TEST_F(CShellConfigReaderCmdTest, ReadsSetsAndCommands) {
    read(
        "# site commands\n"
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
        "cmd64=df -hP\n"
        "option=[-p|--path|01]directory to examine\n");
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_THAT(paths(), ElementsAre("tools", "tools/disk"));
    CShellCommand* uptime = firstCommand();
    ASSERT_NE(nullptr, uptime);
    EXPECT_EQ("uptime", uptime->getCommand());
    EXPECT_EQ(SCRIPT, uptime->getType());
    EXPECT_EQ(SLAVE, uptime->getDestination());
    EXPECT_THAT(uptime->getExamples(), ElementsAre("uptime -n node1"));
    CShellCommandSet* disk = firstSet()->getChildCommands().front();
    EXPECT_EQ("Disk tools", disk->getDescription());
    EXPECT_EQ(30U, disk->getTimeOut());
    CShellCommand* usage = disk->getSupportedCommands().at("usage");
    EXPECT_EQ("", usage->getCommand());
    EXPECT_EQ("df -h", usage->get32Command());
    EXPECT_EQ("df -hP", usage->get64Command());
    ASSERT_EQ(1U, usage->getOptions().size());
    CCommandOption* path = usage->getOptions().front();
    EXPECT_EQ("p", path->getShortOptName());
    EXPECT_EQ("path", path->getLongOptName());
    EXPECT_FALSE(path->getIsCompulsory());
    EXPECT_TRUE(path->getHasOptValue());
    EXPECT_EQ("directory to examine", path->getDescription());
}

TEST_F(CShellConfigReaderCmdTest, MakesSetsWhoseCommandsTakeOptions) {
    read(kSet);
    ASSERT_NE(nullptr, firstSet());
    EXPECT_NE(nullptr, dynamic_cast<CConfiguredCommandSet*>(firstSet()));
}

TEST_F(CShellConfigReaderCmdTest, RegistersTheCommandsOfEverySet) {
    read(std::string(kSet) + kCommand + "cmd=x\n[cmdset]\nname=s/t\ndescription=d\n" + kCommand +
         "cmd=y\n");
    for (const char* typed : {"s/c", "s/t/c"}) {
        std::string line = typed;
        EXPECT_NE(nullptr, context.findExeCommand("", line, &errors)) << typed;
        EXPECT_EQ("c", line);
    }
}

TEST_F(CShellConfigReaderCmdTest, FindsNothingInCommentsAndBlankLines) {
    read("# one\n\n#[cmdset]\n#name=x\n\n");
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_THAT(paths(), IsEmpty());
}

TEST_F(CShellConfigReaderCmdTest, IgnoresEverythingBeforeTheFirstSet) {
    read(std::string("[cmd]\nname=early\ntype=nonsense\nname=x\n[CMDSET]\n[cmdset] \n") + kSet);
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_THAT(paths(), ElementsAre("s"));
    EXPECT_EQ(nullptr, firstCommand());
}

TEST_F(CShellConfigReaderCmdTest, IgnoresUnknownKeysAndLinesWithoutASetting) {
    read(
        "[cmdset]\nnonsense\nname=s\nName=other\n name=other\nname =other\ndescription=d\n"
        "example=x\n=y\n");
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_THAT(paths(), ElementsAre("s"));
}

TEST_F(CShellConfigReaderCmdTest, KeepsTheLastValueOfAKeyUntrimmed) {
    read("[cmdset]\nname=a\ndescription=x\nname=s\ndescription= a=b # c \nconfirmmsg= why? \n");
    EXPECT_THAT(paths(), ElementsAre("s"));
    EXPECT_EQ(" a=b # c ", firstSet()->getDescription());
    firstSet()->setCommandSetConfirmType(ONCE);
    EXPECT_EQ(" why? ", firstSet()->getCommandSetConfirmMessage());
}

TEST_F(CShellConfigReaderCmdTest, ReportsWhatASetLacksAtItsFirstSetting) {
    read("[cmdset]\n# comment\nno setting\nfoo=bar\n");
    EXPECT_THAT(messages(), ElementsAre("Line:4, \"name\" is not defined for [CmdSet].",
                                        "Line:4, \"description\" is not defined for [CmdSet]."));
    EXPECT_THAT(paths(), IsEmpty());
}

TEST_F(CShellConfigReaderCmdTest, MakesNoSetOfASectionWithoutSettings) {
    read("[cmdset]\n[cmdset]\nno setting\n");
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_THAT(paths(), IsEmpty());
}

TEST_F(CShellConfigReaderCmdTest, RefusesCommandsOfASetWithoutSettings) {
    read(std::string("[cmdset]\n") + kCommand + "cmd=x\n" + kSet);
    EXPECT_THAT(messages(), ElementsAre("Line:3, \"name\" is not defined for [CmdSet].",
                                        "Line:3, \"description\" is not defined for [CmdSet]."));
    EXPECT_THAT(paths(), ElementsAre("s"));
    EXPECT_EQ(nullptr, firstCommand());
}

TEST_F(CShellConfigReaderCmdTest, RefusesASetWhoseParentIsNotAbove) {
    read("[cmdset]\nname=a/b\ndescription=d\n[cmdset]\nname=a\ndescription=d\n");
    EXPECT_THAT(messages(), ElementsAre("Line:2, Command set \"a\" does not exist!"));
    EXPECT_THAT(paths(), ElementsAre("a"));
}

TEST_F(CShellConfigReaderCmdTest, RefusesASetWithoutAnOwnName) {
    read(
        "[cmdset]\nname=a\ndescription=d\n[cmdset]\nname=a/\ndescription=d\n"
        "[cmdset]\nname=a/b\ndescription=d\n[cmdset]\nname=a/b/\ndescription=d\n"
        "[cmdset]\nname=/\ndescription=d\n[cmdset]\nname=/x\ndescription=d\n");
    EXPECT_THAT(messages(),
                ElementsAre("Line:5, Invalid command set name definition for [CmdSet]: a/",
                            "Line:11, Invalid command set name definition for [CmdSet]: a/b/",
                            "Line:14, Invalid command set name definition for [CmdSet]: /",
                            "Line:17, Command set \"\" does not exist!"));
    EXPECT_THAT(paths(), ElementsAre("a", "a/b"));
}

TEST_F(CShellConfigReaderCmdTest, ReportsEveryFaultOfARefusedSetAndOfItsCommands) {
    read("[cmdset]\nname=a/b\ntimeout=-1\n[cmd]\nname=c\ntimeout=00\noption=bad\n");
    EXPECT_THAT(
        messages(),
        ElementsAre(
            "Line:2, \"description\" is not defined for [CmdSet].",
            "Line:2, Command set \"a\" does not exist!", "Line:2, Invalid time out: -1",
            "Line:5, \"description\" is not defined for [Cmd].",
            "Line:5, \"type\" is not defined for [Cmd].",
            "Line:5, \"destination\" is not defined for [Cmd].",
            "Line:5, Invalid \"type\" for [Cmd]:", "Line:5, Invalid \"destination\" for [Cmd].",
            "Line:5, None of \"cmd\", \"cmd32\" or \"cmd64\" is defined for [Cmd].",
            "Line:5, Invalid time out: 00", "Line:5, Invalid format for a command option: bad"));
    EXPECT_THAT(paths(), IsEmpty());
}

TEST_F(CShellConfigReaderCmdTest, ReportsDuplicatesOfACommandThatIsRefusedForAnotherFault) {
    read(std::string(kSet) + kCommand + "cmd=x\n" +
         "[cmd]\nname=c\ndescription=d\ntype=NONE\ndestination=SLAVE\ncmd=x\n"
         "option=[-a|--all|00]one\noption=[-a|--any|00]two\n");
    EXPECT_THAT(messages(),
                ElementsAre("Line:11, Invalid \"type\" for [Cmd]:NONE",
                            "Line:11, The option [a|all] \"one\" already defines the same option!",
                            "Line:11, c already exists!"));
    EXPECT_EQ(1U, firstSet()->getSupportedCommands().size());
}

TEST_F(CShellConfigReaderCmdTest, ReportsDuplicateNamesOfARefusedSet) {
    const std::string command =
        "[cmd]\nname=c\ndescription=d\ntype=SCRIPT\ndestination=SLAVE\ncmd=x\n";
    read("[cmdset]\nname=s\n" + command + command);
    EXPECT_THAT(messages(), ElementsAre("Line:2, \"description\" is not defined for [CmdSet].",
                                        "Line:10, c already exists!"));
    EXPECT_THAT(paths(), IsEmpty());
}

TEST_F(CShellConfigReaderCmdTest, RecordsADuplicateChildAtItsLine) {
    read(
        "[cmdset]\nname=a\ndescription=d\n[cmdset]\nname=a/b\ndescription=first\n"
        "[cmdset]\nname=a/b\ndescription=second\n");
    EXPECT_THAT(messages(), ElementsAre("Line:8, The command b already exists!"));
    EXPECT_THAT(paths(), ElementsAre("a", "a/b"));
    EXPECT_EQ("first", firstSet()->getChildCommands().front()->getDescription());
}

TEST_F(CShellConfigReaderCmdTest, KeepsTwoRootSetsOfOneName) {
    CaptureStdout();
    read(std::string(kSet) + kCommand + "cmd=x\n" + kSet + kCommand + "cmd=y\n");
    EXPECT_EQ("Command \"c\" already exists!\n", GetCapturedStdout());
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_THAT(paths(), ElementsAre("s", "s"));
}

TEST_F(CShellConfigReaderCmdTest, SetsConfirmationAndTimeOut) {
    read(
        "[cmdset]\nname=s\ndescription=d\nconfirmtype=each\nconfirmmsg=Sure?\ntimeout=5000\n"
        "[cmd]\nname=c\ndescription=d\ntype=BUILTIN\ndestination=MASTER\ncmd=x\n"
        "confirmtype=ONCE\nconfirmmsg=Really?\ntimeout=12s\n");
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_EQ(EACH, firstSet()->getCommandSetConfirmType());
    EXPECT_EQ("Sure?", firstSet()->getCommandSetConfirmMessage());
    EXPECT_EQ(5000U, firstSet()->getTimeOut());
    ASSERT_NE(nullptr, firstCommand());
    EXPECT_EQ(ONCE, firstCommand()->getCommandConfirmType());
    EXPECT_EQ("Really?", firstCommand()->getCommandConfirmMessage());
    EXPECT_EQ(12U, firstCommand()->getTimeOut());
    EXPECT_EQ(MASTER, firstCommand()->getDestination());
}

TEST_F(CShellConfigReaderCmdTest, TakesNoConfirmationForAnUnknownWord) {
    read("[cmdset]\nname=s\ndescription=d\nconfirmtype=perhaps\n");
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_EQ(NO, firstSet()->getCommandSetConfirmType());
    EXPECT_EQ("", firstSet()->getCommandSetConfirmMessage());
}

TEST_F(CShellConfigReaderCmdTest, KeepsASetWithAFaultyTimeOut) {
    read("[cmdset]\nname=s\ndescription=d\ntimeout=-5\n");
    EXPECT_THAT(messages(), ElementsAre("Line:2, Invalid time out: -5"));
    ASSERT_THAT(paths(), ElementsAre("s"));
    EXPECT_EQ(0U, firstSet()->getTimeOut());
}

TEST_F(CShellConfigReaderCmdTest, ConvertsTimeOuts) {
    struct Case {
        const char* text;
        bool valid;
        unsigned timeOut;
    };
    for (const Case& one :
         {Case{"", true, 0}, Case{"0", true, 0}, Case{"x", true, 0}, Case{"-", true, 0},
          Case{"007", true, 7}, Case{"12s", true, 12}, Case{"4294967295", true, 4294967295U},
          Case{"4294967296", true, 4294967295U}, Case{"99999999999999999999", true, 4294967295U},
          Case{"-5", false, 0}, Case{"00", false, 0}, Case{"abc", false, 0},
          Case{"-0", false, 0}}) {
        CShellExecutionContext fresh;
        ConfigErrorCollector found;
        const TextStream stream(std::string(kSet) + "timeout=" + one.text + "\n" + kCommand +
                                "cmd=x\ntimeout=" + one.text + "\n");
        CShellConfigReader::readCmdConfig(stream.get(), fresh, &found);
        const std::string message = "Invalid time out: " + std::string(one.text) + "\n";
        EXPECT_EQ(one.valid ? "" : "Line:2, " + message + "Line:6, " + message, found.toString());
        CShellCommandSet* set = fresh.getRootCommandSetList().front();
        EXPECT_EQ(one.timeOut, set->getTimeOut()) << one.text;
        ASSERT_EQ(one.valid, set->isSupported("c")) << one.text;
        if (one.valid) {
            EXPECT_EQ(one.timeOut, set->getSupportedCommands().at("c")->getTimeOut()) << one.text;
        }
    }
}

TEST_F(CShellConfigReaderCmdTest, ReportsEachKeyACommandLacks) {
    read(std::string(kSet) + "[cmd]\ndescription = x\n");
    EXPECT_THAT(
        messages(),
        ElementsAre(
            "Line:5, \"name\" is not defined for [Cmd].",
            "Line:5, \"description\" is not defined for [Cmd].",
            "Line:5, \"type\" is not defined for [Cmd].",
            "Line:5, \"destination\" is not defined for [Cmd].",
            "Line:5, Invalid \"type\" for [Cmd]:", "Line:5, Invalid \"destination\" for [Cmd].",
            "Line:5, None of \"cmd\", \"cmd32\" or \"cmd64\" is defined for [Cmd]."));
}

TEST_F(CShellConfigReaderCmdTest, KnowsTheSixTypes) {
    const std::vector<std::string> words = {"BUILTIN",    "BUILTIN_OPT", "SCRIPT",
                                            "SCRIPT_OPT", "DLLFUNCTION", "DLLFUNCTION_OPT"};
    std::string text = kSet;
    for (const std::string& word : words) {
        text += "[cmd]\nname=" + word + "\ndescription=d\ntype=" + word +
                "\ndestination=SLAVE\ncmd=x\n";
    }
    read(text);
    EXPECT_THAT(messages(), IsEmpty());
    for (std::size_t value = 0; value < words.size(); ++value) {
        EXPECT_EQ(static_cast<int>(value),
                  firstSet()->getSupportedCommands().at(words[value])->getType());
    }
}

TEST_F(CShellConfigReaderCmdTest, RefusesOtherTypesAndDestinations) {
    EXPECT_THAT(faultsOfCommand("cmd=x\ntype=script\ndestination=NODE\n"),
                ElementsAre("Line:5, Invalid \"type\" for [Cmd]:script",
                            "Line:5, Invalid \"destination\" for [Cmd]."));
    EXPECT_EQ(nullptr, firstCommand());
}

TEST_F(CShellConfigReaderCmdTest, RefusesACommandForItsDestinationAlone) {
    EXPECT_THAT(faultsOfCommand("cmd=x\ndestination=slave\n"),
                ElementsAre("Line:5, Invalid \"destination\" for [Cmd]."));
    EXPECT_EQ(nullptr, firstCommand());
}

TEST_F(CShellConfigReaderCmdTest, RefusesThreeWaysOfGivingTheLine) {
    EXPECT_THAT(faultsOfCommand("cmd=x\ncmd32=y\ncmd64=z\n"),
                ElementsAre("Line:5, \"cmd64\", \"cmd32\" and \"cmd\" can not be defined at the "
                            "same time for [Cmd]."));
    EXPECT_EQ(nullptr, firstCommand());
}

TEST_F(CShellConfigReaderCmdTest, RefusesTheLineBesideA64BitOne) {
    EXPECT_THAT(
        faultsOfCommand("cmd=x\ncmd64=z\n"),
        ElementsAre(
            "Line:5, \"cmd64\" and \"cmd\" can not be defined at the same time for [Cmd]."));
}

TEST_F(CShellConfigReaderCmdTest, RefusesTheLineBesideA32BitOne) {
    EXPECT_THAT(
        faultsOfCommand("cmd=x\ncmd32=z\n"),
        ElementsAre(
            "Line:5, \"cmd32\" and \"cmd\" can not be defined at the same time for [Cmd]."));
}

TEST_F(CShellConfigReaderCmdTest, RefusesACommandWithoutALine) {
    EXPECT_THAT(
        faultsOfCommand("cmd=\n"),
        ElementsAre("Line:5, None of \"cmd\", \"cmd32\" or \"cmd64\" is defined for [Cmd]."));
}

TEST_F(CShellConfigReaderCmdTest, TakesALineForOnePlatformAlone) {
    EXPECT_THAT(faultsOfCommand("cmd64=x\n"), IsEmpty());
    ASSERT_NE(nullptr, firstCommand());
    EXPECT_EQ("", firstCommand()->get32Command());
    EXPECT_EQ("x", firstCommand()->get64Command());
    EXPECT_TRUE(firstCommand()->needToCheck32Or64BitCommand());
}

TEST_F(CShellConfigReaderCmdTest, KeepsExamplesInOrder) {
    EXPECT_THAT(faultsOfCommand("cmd=x\nexample=two\nexample=one\nexample=two\n"), IsEmpty());
    EXPECT_THAT(firstCommand()->getExamples(), ElementsAre("two", "one", "two"));
}

TEST_F(CShellConfigReaderCmdTest, KeepsOptionsInOrder) {
    EXPECT_THAT(faultsOfCommand("cmd=x\noption=[-b|--bee|10]first\noption=\noption= [-a||00] \n"),
                IsEmpty());
    std::list<std::string> options;
    for (CCommandOption* option : firstCommand()->getOptions()) {
        options.push_back(option->toString());
    }
    EXPECT_THAT(options, ElementsAre("-b, --bee: first", "-a: "));
    EXPECT_TRUE(firstCommand()->getOptions().front()->getIsCompulsory());
    EXPECT_FALSE(firstCommand()->getOptions().front()->getHasOptValue());
}

TEST_F(CShellConfigReaderCmdTest, SplitsSeveralOptionsOnOneLine) {
    EXPECT_THAT(faultsOfCommand("cmd=x\noption=[-a||00]one;;[-b||00]two;;;;\n"), IsEmpty());
    EXPECT_EQ(2U, firstCommand()->getOptions().size());
}

TEST_F(CShellConfigReaderCmdTest, LeavesAFaultyOptionOutOfItsCommand) {
    EXPECT_THAT(faultsOfCommand("cmd=x\noption=[-f|--force|2]\noption=[|--|00]\noption=f\n"
                                "option=[f|force|01]\noption=[-a||0x]\noption=[-g|--good|11]d\n"),
                ElementsAre("Line:5, Invalid option attributes:\"2\"",
                            "Line:5, Invalid format! Short option name:\"\" and long option "
                            "name:\"\" can not both be empty.",
                            "Line:5, Invalid format for a command option: f",
                            "Line:5, Invalid format! Short option name:\"\" and long option "
                            "name:\"\" can not both be empty.",
                            "Line:5, Invalid option attributes:\"0x\""));
    ASSERT_NE(nullptr, firstCommand());
    ASSERT_EQ(1U, firstCommand()->getOptions().size());
    EXPECT_EQ("good", firstCommand()->getOptions().front()->getLongOptName());
}

TEST_F(CShellConfigReaderCmdTest, RecordsADuplicateOption) {
    EXPECT_THAT(faultsOfCommand("cmd=x\noption=[-f|--force|00]one\noption=[-f||00]two\n"),
                ElementsAre("Line:5, The option [f|force] \"one\" already defines the same "
                            "option!"));
    EXPECT_EQ(1U, firstCommand()->getOptions().size());
}

TEST_F(CShellConfigReaderCmdTest, RecordsADuplicateCommandAtItsLine) {
    read(std::string(kSet) + kCommand + "cmd=first\n" + kCommand + "cmd=second\n");
    EXPECT_THAT(messages(), ElementsAre("Line:11, c already exists!"));
    EXPECT_EQ("first", firstCommand()->getCommand());
}

TEST_F(CShellConfigReaderCmdTest, ReadsALastLineWithoutNewline) {
    EXPECT_THAT(faultsOfCommand("cmd=uptime"), IsEmpty());
    ASSERT_NE(nullptr, firstCommand());
    EXPECT_EQ("uptime", firstCommand()->getCommand());
}

TEST_F(CShellConfigReaderCmdTest, CountsThePiecesOfALongLine) {
    const std::string full = "cmd=" + std::string(507, 'x');
    read("# " + std::string(509, 'x') + "y=z\n" + std::string(kSet) + kCommand + full +
         "name=other\n");
    // The comment's rest is an ordinary line, and the command's rest a setting.
    EXPECT_THAT(messages(), IsEmpty());
    ASSERT_NE(nullptr, firstCommand());
    EXPECT_EQ("other", firstCommand()->getName());
    EXPECT_EQ(std::string(507, 'x'), firstCommand()->getCommand());
    read("# " + std::string(509, 'x') + "y=z\n[cmdset]\nname=t\n");
    EXPECT_THAT(messages(), ElementsAre("Line:4, \"description\" is not defined for [CmdSet]."));
}

TEST_F(CShellConfigReaderCmdTest, ReadsCarriageReturnsAsText) {
    read("[cmdset]\r\nname=x\r\n[cmdset]\nname=s\r\ndescription=d\r\n");
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_THAT(paths(), ElementsAre("s\r"));
}

TEST_F(CShellConfigReaderCmdTest, SurvivesBinaryData) {
    std::string noise;
    for (int value = 0; value < 5000; ++value) {
        noise += static_cast<char>(value * 7919 >> 3);
    }
    read(noise + "\n" + kSet + noise + "\n" + kCommand + noise + "\ncmd=x\n" + kSet);
    EXPECT_FALSE(paths().empty());
}

TEST_F(CShellConfigReaderCmdTest, ReadsAHugeFile) {
    std::string text = kSet;
    for (int index = 0; index < 5000; ++index) {
        text += "[cmd]\nname=c" + std::to_string(index) +
                "\ndescription=d\ntype=SCRIPT\ndestination=SLAVE\ncmd=x\n";
    }
    read(text);
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_EQ(5000U, firstSet()->getSupportedCommands().size());
}
