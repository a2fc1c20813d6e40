// The real kelsh against real kelnode agents.

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <pty.h>

#include "LocalCluster.h"
#include "ResultBlocks.h"
#include "StopWatch.h"
#include "UniqueFd.h"
#include "WaitFor.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// The result block of one node, without its head.
std::string block(const std::string& output, int node) {
    const std::string head = "[" + LocalCluster::nodeName(node) + "] (";
    const std::string::size_type begin = output.find(head);
    if (begin == std::string::npos) {
        return "no block of " + LocalCluster::nodeName(node);
    }
    const std::string::size_type text = output.find('\n', begin) + 1;
    return output.substr(text, output.find("\n[node_", text) - text);
}

std::string commandSet(const std::string& commands) {
    return "[cmdset]\nname=lab\ndescription=For tests.\n" + commands;
}
std::string command(const std::string& name, const std::string& line,
                    const std::string& destination = "SLAVE") {
    return "[cmd]\nname=" + name +
           "\ndescription=Does it.\ntype=SCRIPT\ndestination=" + destination + "\ncmd=" + line +
           "\n";
}

// A child on a terminal of its own, with everything that it has shown.
class OnTerminal {
public:
    explicit OnTerminal(const std::string& line) {
        int master = -1;
        winsize size{};
        size.ws_row = 50;
        size.ws_col = 250;
        child = ::forkpty(&master, nullptr, nullptr, &size);
        if (child == 0) {
            ::execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
            ::_exit(127);
        }
        terminal.reset(master);
        reader = std::thread([this] { read(); });
    }
    OnTerminal(const OnTerminal&) = delete;
    OnTerminal& operator=(const OnTerminal&) = delete;
    ~OnTerminal() {
        if (child > 0) {
            ::kill(child, SIGKILL);
            static_cast<void>(wait());
        }
    }
    void type(const std::string& keys) {
        EXPECT_EQ(static_cast<ssize_t>(keys.size()),
                  ::write(terminal.get(), keys.data(), keys.size()));
    }
    bool shows(const std::string& text) {
        return waitFor([&] { return screen().find(text) != std::string::npos; },
                       std::chrono::seconds(60));
    }
    std::string screen() {
        const std::lock_guard<std::mutex> lock(mutex);
        return shown;
    }
    // The exit status; everything shown is in screen() afterwards.
    int wait() {
        int status = -1;
        while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
        child = -1;
        reader.join();
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    void read() {
        char bytes[4096];
        for (;;) {
            const ssize_t count = ::read(terminal.get(), bytes, sizeof bytes);
            if (count < 0 && errno == EINTR) {
                continue;
            }
            if (count <= 0) {
                return;
            }
            const std::lock_guard<std::mutex> lock(mutex);
            shown.append(bytes, static_cast<std::size_t>(count));
        }
    }

    pid_t child = -1;
    UniqueFd terminal;
    std::thread reader;
    std::mutex mutex;
    std::string shown;
};

}  // namespace

TEST(ShellCluster, SixtyFourNodesReportInOrder) {
    const LocalCluster cluster(64);
    const LocalCluster::Run run = cluster.kelsh("tools uptime -g all");
    EXPECT_EQ(0, run.status) << run.output << run.errors;
    EXPECT_EQ("", run.errors);
    const std::vector<std::string> names = blockNames(run.output);
    ASSERT_EQ(64U, names.size());
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_EQ("node_0000", names.front());
    for (int node = 0; node < 64; ++node) {
        EXPECT_THAT(block(run.output, node), HasSubstr("load average")) << node;
    }
    EXPECT_EQ(run.output, cluster.shellFile("cmdexedump/cmd_0.log"));
    EXPECT_EQ("1", cluster.shellFile("cmdseq.cfg"));
    const std::string log = cluster.shellFile("kelsh.log");
    EXPECT_THAT(log, HasSubstr("(0)[uptime -g all]\n"));
    EXPECT_THAT(log, HasSubstr("[Delete CResult for node_0063]\n"));
    EXPECT_THAT(log, HasSubstr("[Before delete thread for node_0063]\n"));
    EXPECT_THAT(log, HasSubstr("[Delete thread for node_0063]\n"));
}

TEST(ShellCluster, DeadHungAndWrongNodesEachTellTheirOwn) {
    const LocalCluster cluster(5);
    cluster.signalAgent(1, SIGKILL);
    cluster.signalAgent(2, SIGSTOP);
    std::string nodes = cluster.shellFile("node.cfg");
    const std::string right = "node_0003=02:";
    ASSERT_NE(std::string::npos, nodes.find(right));
    nodes.replace(nodes.find(right), right.size(), "node_0003=0A:");
    cluster.writeShellFile("node.cfg", nodes);
    cluster.writeShellFile(
        "cmd.cfg", commandSet(command("mark", "touch $KELNODE_PATH/marked && echo marked")));

    const LocalCluster::Run run = cluster.kelsh("lab mark -g all -t 3000");
    EXPECT_EQ(0, run.status) << run.output << run.errors;
    EXPECT_EQ(5U, blockNames(run.output).size());
    EXPECT_EQ("marked\n", block(run.output, 0));
    EXPECT_THAT(block(run.output, 1), StartsWith("ExitCode:2/0[FAILURE], summary: "));
    EXPECT_THAT(block(run.output, 1), HasSubstr("Connection refused"));
    EXPECT_THAT(block(run.output, 2), StartsWith("ExitCode:5/0[TIMED_OUT], summary: "));
    EXPECT_THAT(block(run.output, 3),
                StartsWith("ExitCode:1/0[REJECTED], summary: Node node_0003: IP("));
    EXPECT_THAT(block(run.output, 3), HasSubstr(") and MAC(0A:"));
    EXPECT_THAT(block(run.output, 3), HasSubstr(") are not matched!"));
    EXPECT_EQ("marked\n\n", block(run.output, 4));

    // The command must never have reached the node that is not the one configured.
    EXPECT_TRUE(std::filesystem::exists(cluster.nodePath(0) + "/marked"));
    EXPECT_FALSE(std::filesystem::exists(cluster.nodePath(3) + "/marked"));

    // The last node decides.
    EXPECT_EQ(1, cluster.kelsh("lab mark -n node_0000,node_0003 -t 3000").status);
    EXPECT_EQ(2, cluster.kelsh("lab mark -n node_0000,node_0001 -t 3000").status);
    EXPECT_EQ(5, cluster.kelsh("lab mark -n node_0000,node_0002 -t 1500").status);
    cluster.signalAgent(2, SIGCONT);
}

TEST(ShellCluster, CommandThatOutlivesItsTimeOutIsReportedInTime) {
    const LocalCluster cluster(3);
    cluster.writeShellFile("cmd.cfg", commandSet(command("hang", "echo begun; sleep 30")));
    StopWatch watch;
    watch.start();
    const LocalCluster::Run run = cluster.kelsh("lab hang -g all -t 700");
    EXPECT_LT(watch.getTime(), 15000);
    EXPECT_EQ(5, run.status) << run.output;
    for (int node = 0; node < 3; ++node) {
        EXPECT_THAT(block(run.output, node), StartsWith("ExitCode:5/")) << run.output;
    }
    EXPECT_EQ("", run.errors);
}

TEST(ShellCluster, HungCommandOnTheMasterDoesNotHoldUpTheEnd) {
    const LocalCluster cluster(1);
    cluster.writeShellFile("cmd.cfg",
                           commandSet(command("hang", "exec sleep 20 >/dev/null 2>&1", "MASTER")));
    StopWatch watch;
    watch.start();
    const LocalCluster::Run run = cluster.kelsh("lab hang -t 200");
    EXPECT_EQ(5, run.status) << run.output << run.errors;
    EXPECT_EQ("[local] (200ms)\nExitCode:5/0[TIMED_OUT], summary: \n", run.output);
    EXPECT_EQ("", run.errors);
    EXPECT_LT(watch.getTime(), 10000);
}

TEST(ShellCluster, FailureOnOneNodeShowsItsExitCodeAndOutput) {
    const LocalCluster cluster(3);
    cluster.writeShellFile(
        "cmd.cfg",
        commandSet(command("check", "test -e $KELNODE_PATH/good || { echo bad >&2; exit 9; }")));
    for (const int node : {0, 2}) {
        std::ofstream(cluster.nodePath(node) + "/good") << "";
    }
    const LocalCluster::Run run = cluster.kelsh("lab check -g all");
    EXPECT_EQ(0, run.status);
    EXPECT_EQ("", block(run.output, 0));
    EXPECT_EQ("ExitCode:2/9[FAILURE], summary: bad\n", block(run.output, 1));
}

TEST(ShellCluster, ConfirmationIsReadFromWhatFollowsThePipedLine) {
    const LocalCluster cluster(2);
    cluster.writeShellFile("cmd.cfg",
                           commandSet(command("reset", "echo done") +
                                      "confirmtype=EACH\nconfirmmsg=Reset the machine?\n"));
    std::string output;
    ChildProcess::Request request;
    request.commandLine =
        "printf 'reset -g all\\nny' | (" + cluster.kelshLine("lab") + "); echo status $?";
    request.output = &output;
    EXPECT_EQ(0, ChildProcess::run(request).exitCode());
    EXPECT_EQ(
        "Reset the machine for node_0000? [Yes/No/Cancel]\n"
        "Command \"reset\" is canceled for node_0000.\n"
        "Reset the machine for node_0001? [Yes/No/Cancel]\n"
        "[node_0001] (ms)\ndone\n\nstatus 0\n",
        withoutTimes(output));
}

TEST(ShellCluster, EightShellsAtOnceTakeEightNumbers) {
    const LocalCluster cluster(1);
    std::vector<std::thread> shells;
    for (int i = 0; i < 8; ++i) {
        shells.emplace_back([&] { EXPECT_EQ(0, cluster.kelsh("list group").status); });
    }
    for (std::thread& one : shells) {
        one.join();
    }
    EXPECT_EQ("8", cluster.shellFile("cmdseq.cfg"));
    const std::string log = cluster.shellFile("kelsh.log");
    for (int number = 0; number < 8; ++number) {
        EXPECT_THAT(log, HasSubstr("(" + std::to_string(number) + ")[list group]\n"));
    }
}

TEST(ShellCluster, OutputThatNobodyReadsDoesNotEndTheCommand) {
    const LocalCluster cluster(3);
    cluster.writeShellFile("cmd.cfg",
                           commandSet(command("mark", "touch $KELNODE_PATH/marked; echo marked")));
    const std::string kelsh = "(" + cluster.kelshLine("lab mark -g all") + ")";
    // A reader that leaves at once, and no standard output at all.
    for (const std::string& line :
         {"{ " + kelsh + "; echo status $? >&2; } | true", kelsh + " >&- 2>&-; echo status $? >&2",
          kelsh + " <&- >&-; echo status $? >&2"}) {
        std::string errors;
        std::string output;
        ChildProcess::Request request;
        request.commandLine = line;
        request.output = &output;
        request.errorOutput = &errors;
        ChildProcess::run(request);
        EXPECT_EQ("status 0\n", errors) << line;
        for (int node = 0; node < 3; ++node) {
            EXPECT_TRUE(std::filesystem::remove(cluster.nodePath(node) + "/marked")) << line;
        }
        EXPECT_EQ(3U, blockNames(cluster.shellFile("cmdexedump/cmd_0.log")).size()) << line;
    }
}

TEST(ShellCluster, NodesCannotDriveTheTerminal) {
    const LocalCluster cluster(1);
    cluster.writeShellFile("cmd.cfg",
                           commandSet(command("paint", "printf 'a\\033[2Jb\\033]0;title\\007c'")));
    OnTerminal kelsh(cluster.kelshLine("lab paint -n node_0000"));
    EXPECT_EQ(0, kelsh.wait());
    EXPECT_THAT(kelsh.screen(), HasSubstr("a\\x1b[2Jb\\x1b]0;title\\x07c"));
    EXPECT_THAT(kelsh.screen(), Not(HasSubstr("\x1b[2J")));
    // Who looks at a dump on a terminal must not be harmed either; a pipe gets the bytes as they
    // came.
    const std::string raw =
        "a\x1b[2Jb\x1b]0;title\x07"
        "c\n";
    EXPECT_THAT(cluster.shellFile("cmdexedump/cmd_0.log"),
                EndsWith("a\\x1b[2Jb\\x1b]0;title\\x07c\n"));
    EXPECT_THAT(cluster.kelsh("lab paint -n node_0000").output, EndsWith(raw));
}

TEST(ShellCluster, MasterCommandsMayColourTheTerminal) {
    const LocalCluster cluster(1);
    cluster.writeShellFile("cmd.cfg",
                           commandSet(command("paint", "printf '\\033[1mbold'", "MASTER")));
    OnTerminal kelsh(cluster.kelshLine("lab paint"));
    EXPECT_EQ(0, kelsh.wait());
    EXPECT_THAT(kelsh.screen(), HasSubstr("\x1b[1mbold"));
}

TEST(ShellCluster, InteractiveShellWarnsOfItsNodesAndRunsOnThem) {
    const LocalCluster cluster(12);
    for (int node = 0; node < 10; ++node) {
        cluster.signalAgent(node, SIGKILL);
    }
    OnTerminal kelsh(cluster.kelshLine(""));
    EXPECT_TRUE(kelsh.shows("]$ ")) << kelsh.screen();
    EXPECT_THAT(kelsh.screen(),
                HasSubstr("10 node(s) cannot be reached: node_0000, node_0001, node_0002, "
                          "node_0003, node_0004, node_0005, node_0006, node_0007, ..."));
    kelsh.type("cd tools\n");
    EXPECT_TRUE(kelsh.shows("/tools]$ ")) << kelsh.screen();
    kelsh.type("uptime -n node_0011\n");
    EXPECT_TRUE(kelsh.shows("load average")) << kelsh.screen();
    kelsh.type("quit\n");
    EXPECT_EQ(7, kelsh.wait());
    EXPECT_THAT(kelsh.screen(), HasSubstr("Bye bye."));
    EXPECT_EQ("1", cluster.shellFile("cmdseq.cfg"));
    EXPECT_THAT(cluster.shellFile("kelsh.log"), HasSubstr("(0)uptime -n node_0011\n"));
    EXPECT_THAT(cluster.shellFile("kelsh.log"), HasSubstr("WARN"));
}

TEST(ShellCluster, CommandsOfOneShellShareAConnectionAndKeepTheirNumbers) {
    const LocalCluster cluster(1);
    cluster.writeShellFile("cmdseq.cfg", "41");
    // The parent of the job's supervisor is the process of the connection.
    const std::string session = "$(cut -d' ' -f4 /proc/$PPID/stat)";
    cluster.writeShellFile("cmd.cfg",
                           commandSet(command("first", "echo first by " + session + ".") +
                                      command("second", "echo second by " + session + ".")));
    OnTerminal kelsh(cluster.kelshLine(""));
    EXPECT_TRUE(kelsh.shows("]$ ")) << kelsh.screen();
    std::set<std::string> sessions;
    for (const std::string word : {"first", "second"}) {
        kelsh.type("lab/" + word + " -n node_0000\n");
        const std::string mark = word + " by ";
        const auto isShown = [&] {
            const std::string::size_type at = kelsh.screen().find(mark);
            return at != std::string::npos && kelsh.screen().find('.', at) != std::string::npos;
        };
        ASSERT_TRUE(waitFor(isShown, std::chrono::seconds(60))) << kelsh.screen();
        const std::string screen = kelsh.screen();
        const std::string::size_type at = screen.find(mark) + mark.size();
        sessions.insert(screen.substr(at, screen.find('.', at) - at));
    }
    kelsh.type("quit\n");
    EXPECT_EQ(7, kelsh.wait());
    EXPECT_EQ(1U, sessions.size()) << kelsh.screen();
    std::ifstream audit(cluster.nodePath(0) + "/audit.log");
    std::map<std::string, std::set<std::string>> numbers;
    for (std::string line; std::getline(audit, line);) {
        for (const char* word : {"first", "second"}) {
            const std::string::size_type at = line.find("\"command\":");
            if (line.find(std::string("echo ") + word) != std::string::npos) {
                numbers[word].insert(line.substr(at, line.find(',', at) - at));
            }
        }
    }
    EXPECT_EQ(std::set<std::string>{"\"command\":41"}, numbers["first"]);
    EXPECT_EQ(std::set<std::string>{"\"command\":42"}, numbers["second"]);
}

TEST(ShellCluster, InterruptDuringACommandChangesNothing) {
    const LocalCluster cluster(2);
    cluster.writeShellFile(
        "cmd.cfg", commandSet(command("wait",
                                      "touch $KELNODE_PATH/begun; while [ ! -e $KELNODE_PATH/go ]; "
                                      "do sleep 0.02; done; echo went")));
    OnTerminal kelsh(cluster.kelshLine("lab wait -g all -t 30000"));
    for (int node = 0; node < 2; ++node) {
        ASSERT_TRUE(
            waitFor([&] { return std::filesystem::exists(cluster.nodePath(node) + "/begun"); }));
    }
    kelsh.type("\x03");
    EXPECT_TRUE(kelsh.shows("Do not use Ctrl+C to terminate this program."));
    for (int node = 0; node < 2; ++node) {
        std::ofstream(cluster.nodePath(node) + "/go") << "";
    }
    EXPECT_EQ(0, kelsh.wait());
    EXPECT_EQ(2U, blockNames(kelsh.screen()).size()) << kelsh.screen();
}
