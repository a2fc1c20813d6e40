// The modern interface as a whole, in a process of its own making: no node has an agent.
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>

#include "CCmdHistory.h"
#include "ModernLoop.h"
#include "ModernResults.h"
#include "ResultBlocks.h"
#include "ShellFixture.h"

namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr char kCommands[] =
    "[cmdset]\nname=tools\ndescription=Tools.\n"
    "[cmd]\nname=greet\ndescription=Says hello.\ncmd=echo hello\ntype=SCRIPT\n"
    "destination=MASTER\n"
    "[cmd]\nname=fail\ndescription=Fails.\ncmd=exit 3\ntype=SCRIPT\ndestination=MASTER\n"
    "[cmd]\nname=look\ndescription=Looks.\ncmd=ls\ntype=SCRIPT\ndestination=SLAVE\n"
    "[cmd]\nname=ask\ndescription=Asks.\ncmd=ls\ntype=SCRIPT\ndestination=SLAVE\n"
    "confirmtype=ONCE\n"
    "[cmdset]\nname=tools/disk\ndescription=Disks.\n"
    "[cmd]\nname=spin\ndescription=Spins.\ncmd=echo spun\ntype=SCRIPT\ndestination=MASTER\n";

class ModernInterfaceTest : public ShellFixture {
protected:
    void SetUp() override {
        ShellFixture::SetUp();
        put("cmd.cfg", kCommands);
        put("node.cfg",
            "[node]\na=02:00:00:00:00:01,127.0.0.1:1\nb=02:00:00:00:00:02,127.0.0.1:1\n");
        settings("INTERFACE=modern\n");
    }
    void settings(const std::string& text) {
        put("kelsh.cfg", text);
        ASSERT_EQ(0, ::chmod(home.file("kelsh.cfg").c_str(), 0644));
    }
    int start(std::vector<std::string> words) {
        ::testing::internal::CaptureStderr();
        const int status = run(std::move(words));
        errors = ::testing::internal::GetCapturedStderr();
        return status;
    }
    // The loop reads from a pipe, whose first line a shell takes for its arguments.
    int type(const std::string& lines) {
        const StandardInput typed = StandardInput::holding("\n" + lines);
        return start({});
    }
    std::string errors;
};

}  // namespace

TEST_F(ModernInterfaceTest, FaultOfTheSettingsEndsTheProgramAndWarningsDoNot) {
    settings("#\nINTERFACE=newest\n");
    EXPECT_EQ(2, start({"tools", "greet"}));
    EXPECT_EQ("", output);
    EXPECT_THAT(errors, HasSubstr("kelsh.cfg: Line:2, INTERFACE cannot be \"newest\""));
    settings("COLOUR=blue\nINTERFACE=modern\n");
    EXPECT_EQ(0, start({"tools", "greet"}));
    EXPECT_THAT(errors, HasSubstr("kelsh.cfg: Line:1, unknown key \"COLOUR\"\n"));
}

TEST_F(ModernInterfaceTest, StandardInputIsLeftAloneWhereThereAreWords) {
    const StandardInput list = StandardInput::holding("node_1\nnode_2\n");
    EXPECT_EQ(0, start({"tools", "greet"}));
    char byte = 0;
    ASSERT_EQ(1, ::read(STDIN_FILENO, &byte, 1));
    EXPECT_EQ('n', byte);
}

TEST_F(ModernInterfaceTest, PipedLineIsTheCommandWhereThereAreNoWords) {
    const StandardInput line = StandardInput::holding("tools greet\n");
    EXPECT_EQ(0, start({}));
    EXPECT_EQ("[local] (ms)\nhello\n\n", withoutTimes(output));
}

TEST_F(ModernInterfaceTest, CommandTakesItsNumberBeforehand) {
    put("cmdseq.cfg", "41");
    EXPECT_EQ(2, start({"tools", "fail"}));
    EXPECT_EQ("42", content("cmdseq.cfg"));
    EXPECT_EQ(64, start({"tools", "fial"}));
    EXPECT_EQ("42", content("cmdseq.cfg"));
}

TEST_F(ModernInterfaceTest, WrongWordsGoToStandardErrorWithStatus64) {
    EXPECT_EQ(64, start({"tools", "look", "-n", "nobody"}));
    EXPECT_EQ("", output);
    EXPECT_THAT(errors, HasSubstr("Error! node \"nobody\" does not exist.\n"));
    EXPECT_EQ(64, start({"tools", "look"}));
    EXPECT_EQ("", output);
    EXPECT_THAT(errors, EndsWith("Please specify node(s) or group(s) for executing command "
                                 "\"look\".\n"));
}

TEST_F(ModernInterfaceTest, DeclinedCommandIsStatus1) {
    const StandardInput typed = StandardInput::holding("n");
    EXPECT_EQ(1, start({"tools", "ask", "-n", "a,b"}));
}

TEST_F(ModernInterfaceTest, DigestAndBlocksAreAsTheSettingsSay) {
    put("cmdseq.cfg", "7");
    EXPECT_EQ(2, start({"tools", "look", "-n", "a,b"}));
    EXPECT_THAT(errors, AllOf(HasSubstr("#7  2 nodes in "), EndsWith(": 2 failed a,b\n")));
    EXPECT_THAT(output, AllOf(HasSubstr("[a] ("), HasSubstr("[b] (")));
    settings("INTERFACE=modern\nDIGEST=never\nEXIT_STATUS=last\nFOLD=always\n");
    EXPECT_EQ(2, start({"tools", "look", "-n", "a,b"}));
    EXPECT_THAT(errors, Not(HasSubstr("2 nodes")));
    EXPECT_THAT(output, AllOf(HasSubstr("(2 nodes, "), Not(HasSubstr("[b] ("))));
    EXPECT_EQ(2, start({"tools", "look", "-n", "a,b", "--no-fold"}));
    EXPECT_THAT(output, HasSubstr("[b] ("));
}

TEST_F(ModernInterfaceTest, ProgramAnswersForItself) {
    EXPECT_EQ(0, start({"--version"}));
    EXPECT_EQ("kelsh, Version 1.2, Build 34\n", output);
    EXPECT_EQ(0, start({"-h"}));
    EXPECT_THAT(output, HasSubstr("Usage: kelsh "));
    EXPECT_EQ(0, start({"--help"}));
    EXPECT_THAT(output, HasSubstr("Usage: kelsh "));
}

TEST_F(ModernInterfaceTest, HelpIsOfASetOrACommand) {
    EXPECT_EQ(0, start({"help", "tools", "greet"}));
    EXPECT_EQ("greet\nSays hello.\n", output);
    EXPECT_EQ(0, start({"help", "tools"}));
    EXPECT_THAT(output, AllOf(HasSubstr("greet:  Says hello."), HasSubstr("spin:  Spins.")));
    EXPECT_EQ(64, start({"help", "tolls"}));
    EXPECT_THAT(errors, EndsWith("help: there is no command or set of that name\n"
                                 "Similar: tools\n"));
}

TEST_F(ModernInterfaceTest, LoopLeavesWithTheStatusOfItsLastWord) {
    EXPECT_EQ(0, type("exit\n"));
    EXPECT_EQ(7, type("quit\n"));
    EXPECT_EQ(0, type(""));
    EXPECT_EQ(0, type("tools greet"));
    EXPECT_THAT(output, HasSubstr("\nhello\n"));
}

TEST_F(ModernInterfaceTest, EmptyLineDoesNothing) {
    EXPECT_EQ(0, type("\n   \nexit\n"));
    EXPECT_THAT(output, Not(HasSubstr("Unknown command")));
    EXPECT_THAT(errors, Not(HasSubstr("Unknown command")));
    EXPECT_EQ("", content("cmdseq.cfg"));
}

TEST_F(ModernInterfaceTest, LevelsAreWalkedAsDirectories) {
    EXPECT_EQ(0, type("cd tools disk\ncd ..\ncd disk\ncd /\ncd -\ncd /tools\ncd disk/nothing\n"
                      "cd ../tools/disk\nspin\ncd\ngreet\nexit\n"));
    const auto level = [&](const std::string& path) { return path + "]$ "; };
    std::string expected[] = {"/tools/disk", "/tools", "/tools/disk", "",
                              "/tools/disk", "/tools", "/tools",      "/tools/disk"};
    std::string::size_type at = output.find("cd tools disk\n");
    for (const std::string& path : expected) {
        at = output.find("]$ ", at) + 3;
        EXPECT_EQ(level(path), output.substr(at - path.size() - 3, path.size() + 3));
    }
    EXPECT_THAT(output, HasSubstr("\nspun\n"));
    EXPECT_THAT(errors, AllOf(HasSubstr("Can not find command set: nothing\n"),
                              HasSubstr("Unknown command: greet\n")));
}

TEST_F(ModernInterfaceTest, RecallTakesTheEntryAndWhatFollows) {
    CCmdHistory history;
    EXPECT_EQ(std::nullopt, ModernLoop::recalled("!!", history));
    for (const char* line : {"tools greet", "tools look -n a", "list node"}) {
        history.add(line);
    }
    EXPECT_EQ("list node", ModernLoop::recalled("!!", history));
    EXPECT_EQ("tools look -n a", ModernLoop::recalled("!to", history));
    EXPECT_EQ("tools look -n a -t 5s", ModernLoop::recalled("!tools -t 5s", history));
    EXPECT_EQ("tools greet", ModernLoop::recalled("!1", history));
    EXPECT_EQ("plain", ModernLoop::recalled("plain", history));
    for (const char* line : {"!", "!x", "!0", "!4", "!-1", "!99999999999"}) {
        EXPECT_EQ(std::nullopt, ModernLoop::recalled(line, history)) << line;
    }
}

TEST_F(ModernInterfaceTest, CauseFollowsFromValuesAlone) {
    const auto causeOf = [](int status, RunEnd end) {
        CResult result;
        result.setRunStatus(status);
        result.setRunEnd(end);
        result.setRunSummary("timed out: unreachable, refused");
        return ModernResults::causeOf(result);
    };
    EXPECT_EQ(Cause::kOk, causeOf(EXEC_SUCCESS, RunEnd::kUnreachable));
    EXPECT_EQ(Cause::kFailed, causeOf(EXEC_FAILURE, RunEnd::kByStatus));
    EXPECT_EQ(Cause::kUnreachable, causeOf(EXEC_FAILURE, RunEnd::kUnreachable));
    EXPECT_EQ(Cause::kTimedOut, causeOf(EXEC_FAILURE, RunEnd::kSilent));
    EXPECT_EQ(Cause::kRefused, causeOf(EXEC_FAILURE, RunEnd::kRefused));
    EXPECT_EQ(Cause::kNotStarted, causeOf(EXEC_FAILURE, RunEnd::kNotStarted));
    EXPECT_EQ(Cause::kTimedOut, causeOf(EXEC_TIMED_OUT, RunEnd::kByStatus));
    EXPECT_EQ(Cause::kNotStarted, causeOf(EXEC_REJECTED, RunEnd::kByStatus));
    EXPECT_EQ(Cause::kWrongMachine, causeOf(EXEC_REJECTED, RunEnd::kWrongMachine));
}

TEST_F(ModernInterfaceTest, RunWantsALineBehindItsDashes) {
    const std::string synopsis = "run -n NODES|-g GROUPS [-t TIME] -- LINE\n";
    EXPECT_EQ(64, start({"run", "-n", "a", "uptime"}));
    EXPECT_THAT(errors, EndsWith("run: -- is missing in front of the line\n" + synopsis));
    EXPECT_EQ(64, start({"run", "-n", "a", "--", " "}));
    EXPECT_THAT(errors, EndsWith("run: there is no line behind --\n" + synopsis));
    EXPECT_EQ(64, start({"run", "--", "uptime"}));
    EXPECT_THAT(errors, HasSubstr("Please specify node(s) or group(s)"));
    EXPECT_EQ(0, start({"help", "run"}));
    EXPECT_EQ(synopsis + "Run the line behind -- on nodes.\n", output);
    EXPECT_EQ(0, type("run -n a --\nrun -n a uptime\nexit\n"));
    EXPECT_THAT(errors, AllOf(HasSubstr("there is no line behind --"), HasSubstr("-- is missing")));
}

TEST_F(ModernInterfaceTest, RunCanBeTakenAwayAndHidden) {
    settings("INTERFACE=modern\nAD_HOC=no\n");
    EXPECT_EQ(64, start({"run", "-n", "a", "--", "uptime"}));
    EXPECT_THAT(errors, HasSubstr("Unknown command: run -- uptime\n"));
    EXPECT_EQ(64, start({"/run", "-n", "a", "--", "uptime"}));
    EXPECT_THAT(errors, HasSubstr("Unknown command: /run -- uptime\n"));
    settings("INTERFACE=modern\n");
    put("cmd.cfg",
        "[cmdset]\nname=run\ndescription=Ours.\n"
        "[cmd]\nname=greet\ndescription=Says hello.\ncmd=echo hello\ntype=SCRIPT\n"
        "destination=MASTER\n");
    EXPECT_EQ(0, start({"run", "greet"}));
    EXPECT_THAT(output, HasSubstr("\nhello\n"));
    EXPECT_EQ(64, start({"/run", "-n", "a"}));
    EXPECT_THAT(errors, HasSubstr("run: -- is missing in front of the line\n"));
}

// What scripts rely on must not notice the file.
TEST_F(ModernInterfaceTest, ClassicSettingsChangeNoByte) {
    struct Seen {
        int status;
        std::string output;
        std::string errors;
    };
    const std::vector<std::vector<std::string>> kLines{
        {"list", "node"},
        {"list", "group"},
        {"help"},
        {"--help"},
        {"tools", "greet"},
        {"tools/greet"},
        {"tools", "fail"},
        {"tools", "look", "-n", "a,b"},
        {"tools", "look"},
        {"tools", "look", "-n", "nobody"},
        {"tools", "look", "-n", "a", "-t", "soon"},
        {"tols", "greet"},
        {"--version"},
        {"-h"},
        {"--validate", home.file("node.cfg")},
        {"--validate"},
        {"tools", "disk", "spin"},
        {"run", "-n", "a", "--", "uptime"},
        {"tools", "look", "--fold", "-n", "a"},
    };
    const std::vector<std::string> kTyped{"exit\n\ncd tools/disk\n!!\ntools greet\nquit\n",
                                          "cd tools\ngreet\n..\nhistory\n!1\nhelp tools"};
    const auto seeAll = [&] {
        std::vector<Seen> all;
        put("cmdseq.cfg", "5");
        for (const auto& words : kLines) {
            const int status = start(words);
            all.push_back({status, withoutTimes(output), errors});
        }
        for (const std::string& lines : kTyped) {
            const int status = type(lines);
            all.push_back({status, withoutTimes(output), errors});
        }
        all.push_back({0, content("cmdseq.cfg"), ""});
        return all;
    };
    std::filesystem::remove(home.file("kelsh.cfg"));
    const std::vector<Seen> without = seeAll();
    settings("# as ever\nINTERFACE=classic\n");
    const std::vector<Seen> with = seeAll();
    settings("EXIT_STATUS=any\nFOLD=always\nDIGEST=always\n");
    const std::vector<Seen> byDefault = seeAll();
    ASSERT_EQ(without.size(), with.size());
    for (std::size_t i = 0; i < without.size(); ++i) {
        for (const std::vector<Seen>& other : {with, byDefault}) {
            EXPECT_EQ(without[i].status, other[i].status) << i;
            EXPECT_EQ(without[i].output, other[i].output) << i;
            EXPECT_EQ(without[i].errors, other[i].errors) << i;
        }
    }
}
