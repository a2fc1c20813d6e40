
#include <gmock/gmock.h>

#include "ShellFixture.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kCommands[] =
    "[cmdset]\nname=tools\ndescription=Tools.\n"
    "[cmd]\nname=greet\ndescription=Says hello.\ncmd=echo hello\ntype=SCRIPT\n"
    "destination=MASTER\n"
    "[cmdset]\nname=tools/disk\ndescription=Disks.\n"
    "[cmd]\nname=spin\ndescription=Spins.\ncmd=echo spun\ntype=SCRIPT\ndestination=MASTER\n";

constexpr char kLogging[] =
    "log4j.rootLogger=OFF\n"
    "log4j.logger.kelsh=INFO, K\nlog4j.additivity.kelsh=false\n"
    "log4j.appender.K=org.apache.log4j.FileAppender\n"
    "log4j.appender.K.File=${KELSH_PATH}/kelsh.log\n"
    "log4j.appender.K.Encoding=UTF-8\n"
    "log4j.appender.K.layout=org.apache.log4j.PatternLayout\n"
    "log4j.appender.K.layout.ConversionPattern=%p %m%n\n"
    "log4j.logger.cmdresult=INFO, CMD_RESULT_FILE\nlog4j.additivity.cmdresult=false\n"
    "log4j.appender.CMD_RESULT_FILE=org.apache.log4j.FileAppender\n"
    "log4j.appender.CMD_RESULT_FILE.File=${KELSH_PATH}/cmdexedump/start.log\n"
    "log4j.appender.CMD_RESULT_FILE.Append=false\n"
    "log4j.appender.CMD_RESULT_FILE.layout=org.apache.log4j.PatternLayout\n"
    "log4j.appender.CMD_RESULT_FILE.layout.ConversionPattern=%m%n\n";

// The interactive loop on a pipe. The first line typed is empty, because a shell takes the first
// piped line for its arguments.
class CShellInteractive : public ShellFixture {
protected:
    void SetUp() override {
        ShellFixture::SetUp();
        put("cmd.cfg", kCommands);
    }
    int type(const std::string& lines) {
        const StandardInput typed = StandardInput::holding("\n" + lines);
        CShell shell;
        const int status = run(shell, {});
        host = shell.getExecutionContext().getHostName();
        level = shell.getExecutionContext().cwlToString();
        return status;
    }
    std::string host;
    std::string level;
};

}  // namespace

TEST_F(CShellInteractive, GreetsPromptsAndEndsWithQuit) {
    EXPECT_EQ(7, type("quit\n"));
    EXPECT_THAT(output, HasSubstr("0 node(s) are loaded ....\nLog property file: " + home.path() +
                                  "/log4cxx.properties\n"));
    EXPECT_THAT(output, HasSubstr("Version 1.2, Build 34\n[" + host + "]$ "));
    EXPECT_THAT(output, EndsWith("quit\nBye bye.\n"));
}

TEST_F(CShellInteractive, EndOfInputEndsItAsQuitDoes) {
    EXPECT_EQ(7, run({}));
    EXPECT_THAT(output, EndsWith("]$ \nBye bye.\n"));
}

TEST_F(CShellInteractive, LineCutOffByTheEndOfInputStillRuns) {
    EXPECT_EQ(7, type("list group"));
    EXPECT_THAT(output, HasSubstr("Total: 0\n"));
    EXPECT_THAT(output, EndsWith("Total: 0\nBye bye.\n"));
}

TEST_F(CShellInteractive, RecallOfABadNumberIsUnknown) {
    EXPECT_EQ(7, type("!0\n!-3\n!\n!x\n!99\n!4294967297\nquit\n"));
    for (const char* line : {"!0", "!-3", "!", "!x", "!99", "!4294967297"}) {
        const std::string message = std::string("Unknown command: ") + line + "\n";
        EXPECT_THAT(output, HasSubstr(message));
        EXPECT_EQ(output.find(message), output.rfind(message)) << line;
    }
    EXPECT_EQ("", content("cmdseq.cfg"));
}

TEST_F(CShellInteractive, RecallRunsTheEntryAndStoresItsText) {
    EXPECT_EQ(7, type("list group\n!1\nhistory\nquit\n"));
    EXPECT_THAT(output, HasSubstr("Execute \"list group\"\n[local] ("));
    EXPECT_THAT(output, HasSubstr("1  list group\n2  list group\n"));
    EXPECT_EQ("2", content("cmdseq.cfg"));
}

TEST_F(CShellInteractive, NavigatesTheLevels) {
    EXPECT_EQ(7, type("cd tools\ncd   disk  \nspin\ncd   ..\ngreet\nquit\n"));
    EXPECT_THAT(output, HasSubstr("[" + host + "/tools]$ "));
    EXPECT_THAT(output, HasSubstr("[" + host + "/tools/disk]$ "));
    EXPECT_THAT(output, HasSubstr("\nspun\n"));
    EXPECT_THAT(output, HasSubstr("\nhello\n"));
    EXPECT_EQ("/tools", level);
}

TEST_F(CShellInteractive, CdAloneGoesToTheRoot) {
    EXPECT_EQ(7, type("cd tools\ncd disk\ncd\nquit\n"));
    EXPECT_EQ("", level);
}

TEST_F(CShellInteractive, CdToNowhereIsToldAndInvalid) {
    EXPECT_EQ(7, type("cd nowhere\ncd tools/disk\n..\nhistory\nquit\n"));
    EXPECT_THAT(output, HasSubstr("Can not find command set: nowhere\n"
                                  "Unknown command: cd nowhere\n"));
    EXPECT_THAT(output, HasSubstr("Unknown command: cd tools/disk\n"));
    EXPECT_THAT(output, HasSubstr("Unknown command: ..\n"));
    EXPECT_THAT(output, HasSubstr("The history of command execution is empty.\n"));
}

TEST_F(CShellInteractive, OnlyProcessedLinesTakeANumber) {
    EXPECT_EQ(7, type("cd tools\ncd\nhistory\nlist\nquit\n"));
    EXPECT_EQ("1", content("cmdseq.cfg"));
}

TEST_F(CShellInteractive, EmptyLineIsUnknownAndTakesANumber) {
    EXPECT_EQ(7, type("\nquit\n"));
    EXPECT_THAT(output, HasSubstr("Unknown command: \n"));
    EXPECT_EQ("1", content("cmdseq.cfg"));
}

TEST_F(CShellInteractive, OptionErrorsArePrintedAndTheKnownLineIsKept) {
    EXPECT_EQ(7, type("save file -f /x -n ghost\nsave file\nhistory\nquit\n"));
    EXPECT_THAT(output, HasSubstr("Error! node \"ghost\" does not exist.\n"));
    EXPECT_THAT(output, HasSubstr("Unknown command: save file\n"
                                  "Option [-f|--file] must be provided.\n"));
    EXPECT_THAT(output, HasSubstr("1  save file -f /x -n ghost\n"));
    EXPECT_THAT(output, Not(HasSubstr("2  save file")));
}

TEST_F(CShellInteractive, LogsLinesWithTheirNumbersAndDumpsResults) {
    put("log4cxx.properties", kLogging);
    put("cmdseq.cfg", "17");
    EXPECT_EQ(7, type("list group\ncd tools\nnonsense\ngreet\nhistory\nquit\n"));
    EXPECT_EQ(
        "INFO >>>Enter interactive mode. [Version 1.2, Build 34]\n"
        "INFO (17)list group\n"
        "INFO (17)cd tools\n"
        "INFO (19)greet\n"
        "INFO <<<Exit interactive mode.\n",
        content("kelsh.log"));
    EXPECT_THAT(content("cmdexedump/cmd_17.log"), EndsWith("ms)\nTotal: 0\n"));
    EXPECT_THAT(content("cmdexedump/cmd_19.log"), EndsWith("ms)\nhello\n\n"));
}

TEST_F(CShellInteractive, WarningsOfTheNodeFileGoToTheLog) {
    put("log4cxx.properties", kLogging);
    put("node.cfg", "[node]\nn1=02:00:00:00:00:01,127.0.0.1:1\n");
    EXPECT_EQ(7, type("quit\n"));
    EXPECT_THAT(output, HasSubstr("1 node(s) are loaded ....\n"));
    EXPECT_THAT(output, Not(HasSubstr("Can not connect")));
    EXPECT_THAT(content("kelsh.log"),
                HasSubstr("WARN Line:2, Can not connect to n1. (127.0.0.1:1)\n"));
}
