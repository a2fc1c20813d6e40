#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <signal.h>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "ChildProcess.h"
#include "TempDir.h"
#include "UniqueFd.h"

namespace {

using State = ChildProcess::Outcome::State;

struct Captured {
    ChildProcess::Outcome outcome;
    std::string output;
    std::string errors;
};

Captured run(const std::string& line) {
    Captured captured;
    ChildProcess::Request request;
    request.commandLine = line;
    request.input = ChildProcess::Input::kNull;
    request.output = &captured.output;
    request.errorOutput = &captured.errors;
    captured.outcome = ChildProcess::run(request);
    return captured;
}

}  // namespace

TEST(ChildProcess, ReportsExitCodeAndBothStreams) {
    const Captured captured = run("echo out; echo err >&2; exit 3");
    EXPECT_EQ(State::kExited, captured.outcome.state);
    EXPECT_EQ(3, captured.outcome.exitCode());
    EXPECT_EQ("out\n", captured.output);
    EXPECT_EQ("err\n", captured.errors);
}

TEST(ChildProcess, ReportsASignalAsAShellDoes) {
    const Captured captured = run("kill -KILL $$");
    EXPECT_EQ(State::kSignaled, captured.outcome.state);
    EXPECT_EQ(SIGKILL, captured.outcome.value);
    EXPECT_EQ(137, captured.outcome.exitCode());
}

TEST(ChildProcess, KeepsALimitedPartOfEachStreamAndSaysHowMuchIsMissing) {
    std::string output;
    std::string errors;
    ChildProcess::Request request;
    request.commandLine = "printf 0123456789; printf 'abc\\ndef' >&2; exit 4";
    request.output = &output;
    request.errorOutput = &errors;
    request.mostOutputBytes = 4;
    EXPECT_EQ(4, ChildProcess::run(request).exitCode());
    EXPECT_EQ("0123\n[6 more bytes of output were left out]\n", output);
    EXPECT_EQ("abc\n[3 more bytes of output were left out]\n", errors);
    request.mostOutputBytes = 10;
    EXPECT_EQ(4, ChildProcess::run(request).exitCode());
    EXPECT_EQ("0123456789", output);
}

TEST(ChildProcess, MergesStreamsInTheOrderWritten) {
    std::string both;
    ChildProcess::Request request;
    request.commandLine = "echo 1; echo 2 >&2; echo 3; echo 4 >&2";
    request.output = &both;
    request.errorOutput = &both;
    EXPECT_EQ(0, ChildProcess::run(request).exitCode());
    EXPECT_EQ("1\n2\n3\n4\n", both);
}

TEST(ChildProcess, DrainsMoreThanAPipeHolds) {
    const Captured captured = run("head -c 3000000 /dev/zero; head -c 3000000 /dev/zero >&2");
    EXPECT_EQ(3000000U, captured.output.size());
    EXPECT_EQ(3000000U, captured.errors.size());
}

TEST(ChildProcess, DoesNotWaitForABackgroundProcessThatKeepsThePipe) {
    const auto before = std::chrono::steady_clock::now();
    const Captured captured = run("sleep 30 & echo $!");
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(20));
    const pid_t background = static_cast<pid_t>(std::atol(captured.output.c_str()));
    ASSERT_GT(background, 1);
    EXPECT_EQ(0, kill(background, SIGKILL));
}

TEST(ChildProcess, OutputReplacesWhatTheStringHeld) {
    std::string output = "old";
    ChildProcess::Request request;
    request.commandLine = "true";
    request.output = &output;
    EXPECT_EQ(0, ChildProcess::run(request).exitCode());
    EXPECT_EQ("", output);
}

TEST(ChildProcess, LeavesOneVariableOut) {
    ASSERT_EQ(0, setenv("KELSH_TEST_VARIABLE", "x", 1));
    std::string output;
    ChildProcess::Request request;
    request.commandLine = "echo \"<$KELSH_TEST_VARIABLE>\"";
    request.output = &output;
    EXPECT_EQ(0, ChildProcess::run(request).exitCode());
    EXPECT_EQ("<x>\n", output);
    request.withoutVariable = "KELSH_TEST_VARIABLE";
    EXPECT_EQ(0, ChildProcess::run(request).exitCode());
    EXPECT_EQ("<>\n", output);
    ASSERT_EQ(0, unsetenv("KELSH_TEST_VARIABLE"));
}

TEST(ChildProcess, ALineMayBeginWithADash) {
    EXPECT_EQ(127, run("-x").outcome.exitCode());
}

TEST(ChildProcess, NoOtherDescriptorReachesTheCommand) {
    const UniqueFd low(open("/dev/null", O_RDONLY));
    const UniqueFd stray(fcntl(low.get(), F_DUPFD, 20));
    ASSERT_TRUE(stray);
    const Captured captured = run("ls /proc/self/fd");
    // 3 is the directory that ls itself reads.
    EXPECT_EQ("0\n1\n2\n3\n", captured.output);
}

TEST(ChildProcess, SignalsHaveTheirDefaultsAndNoneIsBlocked) {
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    ASSERT_EQ(0, pthread_sigmask(SIG_BLOCK, &blocked, &before));
    struct sigaction ignore {};
    struct sigaction old {};
    ignore.sa_handler = SIG_IGN;
    ASSERT_EQ(0, sigaction(SIGPIPE, &ignore, &old));
    const Captured captured = run("sed -n 's/^Sig[BI][lg][kn]:[[:space:]]*//p' /proc/self/status");
    ASSERT_EQ(0, sigaction(SIGPIPE, &old, nullptr));
    ASSERT_EQ(0, pthread_sigmask(SIG_SETMASK, &before, nullptr));
    const std::string::size_type newline = captured.output.find('\n');
    ASSERT_NE(std::string::npos, newline);
    // The C library keeps signals 32 and 33 for itself.
    constexpr unsigned long kInternal = 3UL << 31;
    EXPECT_EQ(0UL, std::stoul(captured.output, nullptr, 16));
    EXPECT_EQ(0UL, std::stoul(captured.output.substr(newline), nullptr, 16) & ~kInternal);
}

TEST(ChildProcess, MayRunOnManyThreads) {
    std::vector<std::thread> threads;
    std::vector<std::string> outputs(16);
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        threads.emplace_back(
            [&outputs, i] { outputs[i] = run("echo " + std::to_string(i)).output; });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        EXPECT_EQ(outputs[i], std::to_string(i) + "\n");
    }
}
