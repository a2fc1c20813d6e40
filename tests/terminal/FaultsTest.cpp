// What happens to a terminal besides being typed on.

#include <csignal>
#include <fcntl.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "ShellOnTerminal.h"

namespace {

std::size_t count(const std::string& text, const std::string& part) {
    std::size_t times = 0;
    for (std::string::size_type at = text.find(part); at != std::string::npos;
         at = text.find(part, at + part.size())) {
        ++times;
    }
    return times;
}

class FaultsTest : public ShellOnTerminal {
protected:
    // A node that nobody answers for, and a command that asks before it runs there.
    void addNodeAndConfirmedCommand() const {
        writeFile("shell/node.cfg", "[node]\nn1=02:00:00:00:00:01,127.0.0.1:1\n");
        writeFile("shell/cmd.cfg",
                  commandFile({{"flash", "echo flashed", "confirmtype=once\n", "SLAVE"}}));
    }
    bool exists(const std::string& name) const {
        return std::filesystem::exists(directory.file(name));
    }
};

TEST_F(FaultsTest, PasteOfTenKilobytesOnOneLine) {
    const auto terminal = start();
    std::string text;
    for (int i = 0; i < 10240; ++i) {
        text += static_cast<char>('a' + i % 26);
    }
    terminal->send(text + "\r");
    ASSERT_TRUE(terminal->until([&] {
        return terminal->received().find("Unknown command: " + text) != std::string::npos;
    }));
    ASSERT_TRUE(terminal->untilLine("[master]$ "));
    quit(*terminal);
}

TEST_F(FaultsTest, PasteOfTwoHundredLines) {
    const auto terminal = start();
    std::string paste;
    for (int i = 100; i < 300; ++i) {
        paste += "unknown_" + std::to_string(i) + "\r";
    }
    terminal->send(paste);
    ASSERT_TRUE(terminal->untilShown("Unknown command: unknown_299"));
    ASSERT_TRUE(terminal->untilLine("[master]$ "));
    const std::string& received = terminal->received();
    std::string::size_type at = 0;
    for (int i = 100; i < 300; ++i) {
        const std::string line = "unknown_" + std::to_string(i);
        EXPECT_EQ(2U, count(received, line)) << line;
        at = received.find("[master]$ " + line + "\r\nUnknown command: " + line, at);
        ASSERT_NE(at, std::string::npos) << line;
    }
    quit(*terminal);
}

TEST_F(FaultsTest, PasteOfTwoHundredCommandsRunsEachOnce) {
    const auto terminal = start();
    terminal->type("cd tools<cr>");
    ASSERT_TRUE(terminal->untilLine("[master/tools]$ "));
    std::string paste;
    for (int i = 0; i < 200; ++i) {
        paste += "hello" + std::string(55, ' ') + "\r";
    }
    terminal->send(paste + "cd\r");
    ASSERT_TRUE(terminal->untilLine("[master]$ ", 60000));
    const std::string& received = terminal->received();
    EXPECT_EQ(200U, count(received, "[master/tools]$ hello"));
    // What comes in while a command runs is echoed by the terminal besides.
    EXPECT_EQ(200U, count(received, "ms)\r\nhello\r\n"));
    quit(*terminal);
}

TEST_F(FaultsTest, LineOfAHundredThousandCharacters) {
    const auto terminal = start(24, 200);
    std::string text;
    for (int i = 0; i < 100000; ++i) {
        text += static_cast<char>('a' + i % 26);
    }
    terminal->send(text + "\r");
    ASSERT_TRUE(terminal->until(
        [&] { return terminal->received().find("Unknown command: " + text) != std::string::npos; },
        60000));
    quit(*terminal);
}

TEST_F(FaultsTest, TextThatIsNotAsciiIsKept) {
    const auto terminal = start();
    const std::string text = "gr\xc3\xbc\xc3\x9f\xff\xfe\xc3(";
    terminal->send(text + "\r");
    ASSERT_TRUE(terminal->until([&] {
        return terminal->received().find("Unknown command: " + text + "\r\n") != std::string::npos;
    }));
    ASSERT_TRUE(terminal->untilLine("[master]$ "));
    quit(*terminal);
}

TEST_F(FaultsTest, ResizeWhileTypingMovesTheWrap) {
    const auto terminal = start();
    terminal->type("abcde");
    ASSERT_TRUE(terminal->untilLine("[master]$ abcde"));
    terminal->resize(24, 20);
    // The handler runs before the next key is read.
    terminal->type(std::string(15, 'x'));
    const std::string wrap = keys::times(20, keys::left) + keys::down;
    ASSERT_TRUE(terminal->until(
        [&] { return terminal->received().find("x" + wrap) != std::string::npos; }));
    terminal->type("<cr>");
    ASSERT_TRUE(terminal->until([&] {
        return terminal->received().find("Unknown command: abcde" + std::string(15, 'x')) !=
               std::string::npos;
    }));
    quit(*terminal);
}

TEST_F(FaultsTest, ResizeWhileACommandRuns) {
    const auto terminal = start();
    terminal->type("cd tools<cr>hold<cr>");
    ASSERT_TRUE(terminal->until([&] { return terminal->echoes(); }));
    terminal->resize(30, 40);
    terminal->type("<^D>");
    ASSERT_TRUE(terminal->untilShown("holding"));
    ASSERT_TRUE(terminal->untilLine("[master/tools]$ "));
    terminal->type(std::string(40, 'y'));
    const std::string wrap = keys::times(40, keys::left) + keys::down;
    ASSERT_TRUE(terminal->until(
        [&] { return terminal->received().find("y" + wrap) != std::string::npos; }));
    terminal->type("<cr>");
    ASSERT_TRUE(terminal->untilLine("[master/tools]$ "));
    quit(*terminal);
}

TEST_F(FaultsTest, ResizeAtAConfirmation) {
    addNodeAndConfirmedCommand();
    const auto terminal = start();
    terminal->type("cd tools<cr>flash -n n1<cr>");
    ASSERT_TRUE(terminal->untilShown("for 1 node(s)? [Yes/No]"));
    terminal->resize(40, 100);
    terminal->type("n");
    ASSERT_TRUE(terminal->untilShown("is canceled for 1 node(s)."));
    ASSERT_TRUE(terminal->untilLine("[master/tools]$ "));
    quit(*terminal);
}

TEST_F(FaultsTest, TinyTerminals) {
    for (const auto& [rows, columns] : {std::pair{24, 1}, {2, 80}, {2, 1}, {1, 1}}) {
        SCOPED_TRACE(std::to_string(rows) + " rows, " + std::to_string(columns) + " columns");
        PtyTerminal terminal({program()}, options(rows, columns));
        ASSERT_TRUE(terminal.until(
            [&] { return terminal.received().find("[master]$ ") != std::string::npos; }));
        terminal.type("hello<left><left>x<bs><home>y<del><end><cr>");
        ASSERT_TRUE(terminal.until([&] {
            return terminal.received().find("Unknown command: yello") != std::string::npos;
        }));
        quit(terminal);
    }
}

TEST_F(FaultsTest, TerminalWithoutASizeCountsAsEightyColumns) {
    PtyTerminal::Options wanted = options();
    wanted.knowsItsSize = false;
    const auto terminal = start(wanted);
    terminal->type(std::string(80, 'x'));
    const std::string wrap = keys::times(80, keys::left) + keys::down;
    ASSERT_TRUE(terminal->until(
        [&] { return terminal->received().find("x" + wrap) != std::string::npos; }));
    terminal->type("<cr>");
    ASSERT_TRUE(terminal->untilLine("[master]$ "));
    quit(*terminal);
}

TEST_F(FaultsTest, TermUnsetOrDumb) {
    for (const std::optional<std::string>& term :
         {std::optional<std::string>(), std::optional<std::string>("dumb"),
          std::optional<std::string>("")}) {
        PtyTerminal::Options wanted = options();
        wanted.environment["TERM"] = term;
        wanted.answersQuestions = false;
        const auto terminal = start(wanted);
        // Wraps twice; the terminal stays silent, and the line goes on.
        terminal->type("cd to<tab>s<cr>" + std::string(170, 'z') + "<cr>");
        ASSERT_TRUE(terminal->until([&] {
            return terminal->received().find("Unknown command: " + std::string(170, 'z')) !=
                   std::string::npos;
        }));
        ASSERT_TRUE(terminal->untilLine("[master/tools]$ "));
        quit(*terminal);
    }
}

TEST_F(FaultsTest, HangUpInMidLineRunsNothing) {
    writeFile("shell/cmd.cfg", commandFile({{"mark", "touch " + directory.file("ran")}}));
    const auto terminal = start();
    terminal->type("cd tools<cr>mark");
    ASSERT_TRUE(terminal->untilLine("[master/tools]$ mark"));
    terminal->hangUp();
    const std::optional<int> status = terminal->end();
    ASSERT_TRUE(status.has_value());
    EXPECT_TRUE(endedByHangUp(*status)) << *status;
    EXPECT_FALSE(exists("ran"));
}

TEST_F(FaultsTest, LostTerminalEndsAShellThatIgnoresHangUps) {
    writeFile("shell/cmd.cfg", commandFile({{"mark", "touch " + directory.file("ran")}}));
    PtyTerminal terminal({"/bin/sh", "-c", "trap '' HUP; exec " + program()}, options());
    ASSERT_TRUE(terminal.untilLine("[master]$ "));
    terminal.type("cd tools<cr>mark");
    ASSERT_TRUE(terminal.untilLine("[master/tools]$ mark"));
    terminal.hangUp();
    expectQuit(terminal);
    EXPECT_FALSE(exists("ran")) << "a line without its Enter was run";
}

TEST_F(FaultsTest, HangUpInMidCommandEndsTheShell) {
    const auto terminal = start();
    terminal->type("cd tools<cr>hold<cr>");
    ASSERT_TRUE(terminal->until([&] { return terminal->echoes(); }));
    terminal->hangUp();
    const std::optional<int> status = terminal->end();
    ASSERT_TRUE(status.has_value());
    EXPECT_TRUE(endedByHangUp(*status)) << *status;
}

TEST_F(FaultsTest, HangUpInsideAnEscapeSequenceEndsTheShell) {
    PtyTerminal terminal({"/bin/sh", "-c", "trap '' HUP; exec " + program()}, options());
    ASSERT_TRUE(terminal.untilLine("[master]$ "));
    terminal.type("abc<esc>[");
    ASSERT_TRUE(terminal.untilLine("[master]$ abc"));
    terminal.hangUp();
    expectQuit(terminal);
}

TEST_F(FaultsTest, InputThatIsNoTerminalMayEndAnywhere) {
    const std::string fifo = directory.file("fifo");
    ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
    PtyTerminal terminal({"/bin/sh", "-c", "exec " + program() + " <" + fifo}, options());
    UniqueFd writer(open(fifo.c_str(), O_WRONLY | O_CLOEXEC));
    ASSERT_TRUE(terminal.untilLine("[master]$ "));
    ASSERT_EQ(13, write(writer.get(), "cd tools\nab\x1b[", 13));
    writer.reset();
    expectQuit(terminal);
    EXPECT_TRUE(terminal.untilShown("Unknown command: ab"));
    EXPECT_TRUE(terminal.untilShown("Bye bye."));
}

TEST_F(FaultsTest, CtrlCAtThePromptKeepsTheLine) {
    const auto terminal = start();
    terminal->type("cd to");
    ASSERT_TRUE(terminal->untilLine("[master]$ cd to"));
    terminal->type("<^C>");
    ASSERT_TRUE(terminal->untilShown("Do not use Ctrl+C to terminate this program."));
    terminal->type("ols<cr>");
    ASSERT_TRUE(terminal->untilLine("[master/tools]$ "));
    quit(*terminal);
}

TEST_F(FaultsTest, CtrlCAtAConfirmationLeavesTheQuestion) {
    addNodeAndConfirmedCommand();
    const auto terminal = start();
    terminal->type("cd tools<cr>flash -n n1<cr>");
    const std::string question = "for 1 node(s)? [Yes/No]";
    ASSERT_TRUE(terminal->untilShown(question));
    terminal->type("<^C>");
    ASSERT_TRUE(terminal->until([&] {
        return terminal->received().find(question +
                                         "Do not use Ctrl+C to terminate this program.\r\n") !=
               std::string::npos;
    }));
    terminal->type("n");
    ASSERT_TRUE(terminal->untilShown("is canceled for 1 node(s)."));
    quit(*terminal);
}

TEST_F(FaultsTest, CtrlCReachesACommandOnThisMachine) {
    writeFile("shell/cmd.cfg",
              commandFile({{"wait", "trap 'echo interrupted; exit 3' INT; touch " +
                                        directory.file("ready") + "; while :; do sleep 1; done"}}));
    const auto terminal = start();
    terminal->type("cd tools<cr>wait<cr>");
    ASSERT_TRUE(terminal->until([&] { return exists("ready"); }));
    terminal->type("<^C>");
    ASSERT_TRUE(terminal->untilShown("interrupted"));
    ASSERT_TRUE(terminal->untilLine("[master/tools]$ "));
    EXPECT_TRUE(terminal->shows("Do not use Ctrl+C to terminate this program."));
    quit(*terminal);
}

TEST_F(FaultsTest, CtrlCStopsAPaste) {
    writeFile("shell/cmd.cfg",
              commandFile({{"wait", ": >" + directory.file("ready") + "; exec sleep 30"}}));
    const auto terminal = start();
    terminal->type("cd tools<cr>");
    ASSERT_TRUE(terminal->untilLine("[master/tools]$ "));
    terminal->type("wait<cr>hello<cr>hello<cr>");
    ASSERT_TRUE(terminal->until([&] { return exists("ready"); }));
    terminal->type("<^C>");
    ASSERT_TRUE(terminal->untilShown("Do not use Ctrl+C to terminate this program."));
    ASSERT_TRUE(terminal->untilLine("[master/tools]$ "));
    quit(*terminal);
    EXPECT_EQ(0U, count(terminal->received(), "$ hello")) << "the rest of the paste went on";
}

TEST_F(FaultsTest, CommandGetsTheTerminalAsItWas) {
    const auto terminal = start();
    terminal->type("cd tools<cr>");
    ASSERT_TRUE(terminal->untilLine("[master/tools]$ "));
    EXPECT_TRUE(terminal->inKeyMode());
    terminal->type("hold<cr>");
    ASSERT_TRUE(terminal->until([&] { return !terminal->inKeyMode(); }));
    terminal->type("to cat<cr><^D>");
    ASSERT_TRUE(terminal->untilLine("[master/tools]$ "));
    ASSERT_TRUE(terminal->until([&] { return terminal->inKeyMode(); }));
    EXPECT_EQ(2U, count(terminal->received(), "to cat")) << "echoed by the terminal, then by cat";
    quit(*terminal);
    EXPECT_TRUE(terminal->echoes());
}

TEST_F(FaultsTest, FatalSignalGivesTheTerminalBack) {
    for (const int signal : {SIGTERM, SIGQUIT, SIGABRT}) {
        const auto terminal = start();
        EXPECT_TRUE(terminal->inKeyMode());
        kill(terminal->pid(), signal);
        const std::optional<int> status = terminal->end();
        ASSERT_TRUE(status.has_value());
        EXPECT_TRUE(terminal->echoes()) << signal;
    }
}

class JobControlTest : public FaultsTest {
protected:
    // The shell as the job of an interactive bash, at its first prompt.
    std::unique_ptr<PtyTerminal> startAsJob() const {
        PtyTerminal::Options wanted = options();
        wanted.environment["PS1"] = "bash> ";
        wanted.environment["HISTFILE"] = std::nullopt;
        // Without its own line editor, bash leaves the terminal as it finds it.
        auto terminal = std::make_unique<PtyTerminal>(
            std::vector<std::string>{"/bin/bash", "--norc", "--noprofile", "--noediting", "-i"},
            wanted);
        EXPECT_TRUE(terminal->untilLine("bash> "));
        terminal->type(program() + "<cr>");
        EXPECT_TRUE(terminal->untilLine("[master]$ "));
        return terminal;
    }
    // Ctrl+Z; returns when every process of the job has stopped. A prompt says only that the first
    // of them has: another one may still be about to read a line, and would take the next.
    void stopJob(PtyTerminal& terminal) const {
        const pid_t job = terminal.foregroundGroup();
        terminal.type("<^Z>");
        ASSERT_TRUE(terminal.until([&] { return isStopped(job); }));
        ASSERT_TRUE(terminal.untilLine("bash> "));
    }
    static bool isStopped(pid_t job) {
        bool stopped = true;
        for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
            std::ifstream file(entry.path() / "stat");
            std::string stat;
            if (!std::getline(file, stat)) {
                continue;
            }
            // Behind the name, which may hold anything: state, parent, process group.
            std::istringstream fields(stat.substr(stat.rfind(')') + 1));
            char state = 0;
            pid_t parent = 0;
            pid_t group = 0;
            fields >> state >> parent >> group;
            stopped = stopped && (group != job || state == 'T');
        }
        return stopped;
    }
    static void endBash(PtyTerminal& terminal) {
        ASSERT_TRUE(terminal.untilLine("bash> "));
        terminal.type("exit 0<cr>");
        EXPECT_TRUE(terminal.end().has_value());
    }
};

TEST_F(JobControlTest, CtrlZAndFgAtThePrompt) {
    const auto terminal = startAsJob();
    terminal->type("cd tolls<left><left>");
    ASSERT_TRUE(terminal->untilLine("[master]$ cd tol"));
    stopJob(*terminal);
    EXPECT_TRUE(terminal->shows("Stopped"));
    EXPECT_TRUE(terminal->echoes());
    terminal->type("fg<cr>");
    // The line is drawn again, with the cursor where it was.
    ASSERT_TRUE(terminal->until([&] {
        return terminal->lineAtCursor() == "[master]$ cd tol" &&
               terminal->row(terminal->cursor().row) == "[master]$ cd tolls";
    }));
    ASSERT_TRUE(terminal->until([&] { return terminal->inKeyMode(); }));
    terminal->type("<bs>o<cr>");
    ASSERT_TRUE(terminal->untilLine("[master/tools]$ "));
    stopJob(*terminal);
    terminal->type("fg<cr>");
    ASSERT_TRUE(terminal->untilLine("[master/tools]$ "));
    terminal->type("quit<cr>");
    endBash(*terminal);
}

TEST_F(JobControlTest, CtrlZAndFgDuringACommand) {
    writeFile("shell/cmd.cfg",
              commandFile({{"copy", ": >" + directory.file("ready") + "; exec cat"}}));
    const auto terminal = startAsJob();
    terminal->type("cd tools<cr>copy<cr>");
    ASSERT_TRUE(terminal->until([&] { return exists("ready"); }));
    stopJob(*terminal);
    terminal->type("fg<cr>");
    ASSERT_TRUE(terminal->until([&] { return terminal->foregroundGroup() != terminal->pid(); }));
    terminal->type("to cat<cr><^D>");
    ASSERT_TRUE(terminal->untilLine("[master/tools]$ "));
    terminal->type("quit<cr>");
    endBash(*terminal);
}

TEST_F(JobControlTest, KillStopAndContinueDrawTheLineAgain) {
    const auto terminal = start();
    terminal->type("cd to");
    ASSERT_TRUE(terminal->untilLine("[master]$ cd to"));
    const std::size_t before = terminal->received().size();
    kill(terminal->pid(), SIGSTOP);
    int status = 0;
    ASSERT_EQ(waitpid(terminal->pid(), &status, WUNTRACED), terminal->pid());
    ASSERT_TRUE(WIFSTOPPED(status));
    kill(terminal->pid(), SIGCONT);
    ASSERT_TRUE(terminal->until(
        [&] { return terminal->received().substr(before) == "\r[master]$ cd to"; }));
    terminal->type("ols<cr>");
    ASSERT_TRUE(terminal->untilLine("[master/tools]$ "));
    quit(*terminal);
}

}  // namespace
