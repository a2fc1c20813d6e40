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

TEST_F(CShellConfigReaderCmdTest, RefusesCommandsOfASetWithoutSettings) {
    read(std::string("[cmdset]\n") + kCommand + "cmd=x\n" + kSet);
    EXPECT_THAT(messages(), ElementsAre("Line:3, \"name\" is not defined for [CmdSet].",
                                        "Line:3, \"description\" is not defined for [CmdSet]."));
    EXPECT_THAT(paths(), ElementsAre("s"));
    EXPECT_EQ(nullptr, firstCommand());
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

TEST_F(CShellConfigReaderCmdTest, KeepsTwoRootSetsOfOneName) {
    CaptureStdout();
    read(std::string(kSet) + kCommand + "cmd=x\n" + kSet + kCommand + "cmd=y\n");
    EXPECT_EQ("Command \"c\" already exists!\n", GetCapturedStdout());
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_THAT(paths(), ElementsAre("s", "s"));
}

TEST_F(CShellConfigReaderCmdTest, TakesNoConfirmationForAnUnknownWord) {
    read("[cmdset]\nname=s\ndescription=d\nconfirmtype=perhaps\n");
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_EQ(NO, firstSet()->getCommandSetConfirmType());
    EXPECT_EQ("", firstSet()->getCommandSetConfirmMessage());
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
          Case{"-5", false, 0}, Case{"00", false, 0}, Case{"abc", false, 0}, Case{"-0", false, 0},
          Case{"12", true, 12}, Case{"0x10", false, 0}}) {
        CShellExecutionContext fresh;
        ConfigErrorCollector found;
        const TextStream stream(std::string(kSet) + "timeout=" + one.text + "\n" + kCommand +
                                "cmd=x\ntimeout=" + one.text + "\n");
        CShellConfigReader::readCmdConfig(stream.get(), fresh, &found);
        const std::string message = "Invalid time out: " + std::string(one.text) + "\n";
        EXPECT_EQ(one.valid ? "" : "Line:2, " + message + "Line:6, " + message, found.toString());
        CShellCommandSet* set = fresh.getRootCommandSetList().front();
        EXPECT_EQ(set->getTimeOut(), one.timeOut) << one.text;
        ASSERT_EQ(set->isSupported("c"), one.valid) << one.text;
        if (one.valid) {
            EXPECT_EQ(set->getSupportedCommands().at("c")->getTimeOut(), one.timeOut) << one.text;
        }
    }
}

TEST_F(CShellConfigReaderCmdTest, KeepsExamplesInOrder) {
    EXPECT_THAT(faultsOfCommand("cmd=x\nexample=two\nexample=one\nexample=two\n"), IsEmpty());
    EXPECT_THAT(firstCommand()->getExamples(), ElementsAre("two", "one", "two"));
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
