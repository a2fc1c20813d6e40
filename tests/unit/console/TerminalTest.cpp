#include <chrono>
#include <csignal>
#include <cstring>
#include <memory>
#include <sys/wait.h>
#include <thread>

#include <gtest/gtest.h>

#include "CUtil.h"
#include "RawPty.h"
#include "StandardStreams.h"
#include "Terminal.h"

namespace {

class TerminalTest : public ::testing::Test {
protected:
    // From here on the pty is standard input and output.
    void connect() {
        input = std::make_unique<RedirectedFd>(STDIN_FILENO, pty.nearEnd());
        output = std::make_unique<RedirectedFd>(STDOUT_FILENO, pty.nearEnd());
    }
    void TearDown() override {
        output.reset();
        input.reset();
    }
    Terminal& terminal() { return Terminal::standard(); }
    std::string read(std::size_t count) {
        std::string keys;
        for (std::size_t i = 0; i < count; ++i) {
            keys += static_cast<char>(terminal().readKey());
        }
        return keys;
    }

    RawPty pty;
    std::unique_ptr<RedirectedFd> input;
    std::unique_ptr<RedirectedFd> output;
};

bool sameMode(const termios& one, const termios& other) {
    return one.c_iflag == other.c_iflag && one.c_oflag == other.c_oflag &&
           one.c_cflag == other.c_cflag && one.c_lflag == other.c_lflag &&
           std::memcmp(one.c_cc, other.c_cc, sizeof one.c_cc) == 0;
}

TEST_F(TerminalTest, KeyModeTurnsOffEchoAndLineBufferingOnly) {
    connect();
    const termios before = pty.mode();
    {
        const Terminal::Hold hold(terminal());
        termios during = pty.mode();
        EXPECT_EQ(0U, during.c_lflag & (ICANON | ECHO));
        EXPECT_EQ(1, during.c_cc[VMIN]);
        EXPECT_EQ(0, during.c_cc[VTIME]);
        during.c_lflag |= before.c_lflag & (ICANON | ECHO);
        EXPECT_EQ(during.c_lflag, before.c_lflag);
        EXPECT_EQ(during.c_iflag, before.c_iflag);
        EXPECT_EQ(during.c_oflag, before.c_oflag);
    }
    EXPECT_TRUE(sameMode(pty.mode(), before));
}

TEST_F(TerminalTest, SingleKeyLeavesTheModeAsFound) {
    connect();
    const termios before = pty.mode();
    std::thread user([&] {
        while (pty.waitsForEnter()) {
            std::this_thread::yield();
        }
        pty.type("y");
    });
    EXPECT_EQ('y', CUtil::mygetch());
    user.join();
    EXPECT_TRUE(sameMode(pty.mode(), before));
    EXPECT_EQ("", pty.shown("y", 0)) << "the key was echoed";
}

TEST_F(TerminalTest, KeysTypedAheadInLineModeAreNotLost) {
    connect();
    pty.type("ab\rcd");
    const Terminal::Hold hold(terminal());
    EXPECT_EQ("ab\ncd", read(5));
}

TEST_F(TerminalTest, WhatWasTypedInOneHoldIsReadInTheNext) {
    connect();
    {
        const Terminal::Hold hold(terminal());
        pty.type("a\rbcdef");
        EXPECT_EQ("a\n", read(2));
    }
    EXPECT_TRUE(pty.echoes());
    EXPECT_EQ("b", read(1));
    const Terminal::Hold hold(terminal());
    EXPECT_EQ("cdef", read(4));
    EXPECT_EQ("", pty.shown("f", 0)) << "keys were echoed";
}

TEST_F(TerminalTest, ReleaseGivesTheModeBackInSpiteOfTheHolds) {
    connect();
    const Terminal::Hold outer(terminal());
    { const Terminal::Hold inner(terminal()); }
    EXPECT_FALSE(pty.echoes());
    pty.type("a");
    terminal().release();
    EXPECT_TRUE(pty.echoes());
    EXPECT_EQ("a", read(1));
    std::thread user([&] {
        while (pty.echoes()) {
            std::this_thread::yield();
        }
        pty.type("k");
    });
    EXPECT_EQ('k', terminal().readKey());
    user.join();
    EXPECT_TRUE(pty.echoes()) << "a single key leaves the released terminal as it was";
    const Terminal::Hold again(terminal());
    EXPECT_FALSE(pty.echoes());
}

TEST_F(TerminalTest, DroppingForgetsWhatWasTypedAhead) {
    connect();
    const Terminal::Hold hold(terminal());
    pty.type("abc");
    EXPECT_EQ("a", read(1));
    Terminal::dropTypedAhead();
    pty.type("z");
    EXPECT_EQ("z", read(1));
}

TEST_F(TerminalTest, DroppingSparesWhatIsTypedAfterwards) {
    connect();
    const Terminal::Hold hold(terminal());
    for (int i = 0; i < 200; ++i) {
        std::thread user([&] {
            // The reader is about to wait, or waits already.
            Terminal::dropTypedAhead();
            pty.type("xyz");
        });
        EXPECT_EQ("xyz", read(3));
        user.join();
    }
}

TEST_F(TerminalTest, HangUpIsTheEndOfInput) {
    connect();
    {
        const Terminal::Hold hold(terminal());
        pty.type("x");
        EXPECT_EQ("x", read(1));
        pty.hangUp();
        EXPECT_EQ(-1, terminal().readKey());
        EXPECT_TRUE(terminal().isHungUp());
        EXPECT_EQ(-1, terminal().readKey());
    }
}

TEST_F(TerminalTest, EndOfAFileIsNoHangUp) {
    const TypedInput typedKeys("a");
    EXPECT_EQ('a', terminal().readKey());
    EXPECT_EQ(-1, terminal().readKey());
    EXPECT_FALSE(terminal().isHungUp());
}

TEST_F(TerminalTest, EveryByteValueIsAKey) {
    std::string all;
    for (int c = 0; c < 256; ++c) {
        all += static_cast<char>(c);
    }
    const TypedInput typedKeys(all);
    for (int c = 0; c < 256; ++c) {
        EXPECT_EQ(c, CUtil::mygetch());
    }
}

extern "C" void interrupted(int /*signal*/) {}

TEST_F(TerminalTest, SignalsNeverEndTheWait) {
    connect();
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = &interrupted;
    sigemptyset(&action.sa_mask);
    ASSERT_EQ(0, sigaction(SIGUSR1, &action, &before));
    const pthread_t reader = pthread_self();
    std::thread user([&] {
        while (pty.echoes()) {
            std::this_thread::yield();
        }
        for (int i = 0; i < 50; ++i) {
            pthread_kill(reader, SIGUSR1);
        }
        pty.type("k");
    });
    EXPECT_EQ('k', terminal().readKey());
    user.join();
    sigaction(SIGUSR1, &before, nullptr);
}

TEST_F(TerminalTest, CursorPositionIsAskedAndAnswered) {
    connect();
    std::thread user([&] {
        EXPECT_EQ("\x1b[6n", pty.shown("\x1b[6n"));
        pty.type("\x1b[24;80R");
    });
    unsigned int row = 7;
    unsigned int column = 7;
    CUtil::getCursorPosition(row, column);
    user.join();
    EXPECT_EQ(24U, row);
    EXPECT_EQ(80U, column);
    EXPECT_TRUE(pty.echoes());
}

TEST_F(TerminalTest, KeysAroundTheAnswerAreKept) {
    connect();
    std::thread user([&] {
        pty.shown("\x1b[6n");
        pty.type("ab\x1b[A\x1b[12;3Rcd");
    });
    const Terminal::Hold hold(terminal());
    unsigned int row = 0;
    unsigned int column = 0;
    CUtil::getCursorPosition(row, column);
    user.join();
    EXPECT_EQ(12U, row);
    EXPECT_EQ(3U, column);
    EXPECT_EQ("ab\x1b[Acd", read(7));
}

TEST_F(TerminalTest, SilentTerminalGivesZeroWithinTheLimit) {
    connect();
    pty.type("k\r");
    unsigned int row = 7;
    unsigned int column = 7;
    const auto begin = std::chrono::steady_clock::now();
    CUtil::getCursorPosition(row, column);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(250));
    EXPECT_EQ(0U, row);
    EXPECT_EQ(0U, column);
    EXPECT_EQ("k\n", read(2));
}

TEST_F(TerminalTest, SilentTerminalIsAskedOncePerHold) {
    connect();
    const Terminal::Hold hold(terminal());
    unsigned int row = 0;
    unsigned int column = 0;
    for (int i = 0; i < 20; ++i) {
        CUtil::getCursorPosition(row, column);
    }
    EXPECT_EQ("\x1b[6n", pty.shown("\x1b[6n", 0));
    EXPECT_EQ("", pty.shown("\x1b[6n", 0));
}

TEST_F(TerminalTest, LateAnswerNeverBecomesKeys) {
    connect();
    const Terminal::Hold hold(terminal());
    unsigned int row = 0;
    unsigned int column = 0;
    CUtil::getCursorPosition(row, column);
    EXPECT_EQ(0U, row);
    pty.type("a\x1b[24;1R\x1b[C\x1b[1;1R");
    // The one late answer is swallowed; a second one was never asked for.
    EXPECT_EQ("a\x1b[C\x1b[1;1R", read(10));
}

TEST_F(TerminalTest, LaterAnswerBelongsToTheLaterQuestion) {
    connect();
    unsigned int row = 0;
    unsigned int column = 0;
    CUtil::getCursorPosition(row, column);
    std::thread user([&] {
        pty.shown("\x1b[6n\x1b[6n");
        pty.type("\x1b[1;1R\x1b[5;6R");
    });
    CUtil::getCursorPosition(row, column);
    user.join();
    EXPECT_EQ(5U, row);
    EXPECT_EQ(6U, column);
}

TEST_F(TerminalTest, NothingIsAskedWithoutATerminal) {
    const TypedInput typedKeys("ab");
    CapturedOutput captured;
    unsigned int row = 7;
    unsigned int column = 7;
    CUtil::getCursorPosition(row, column);
    EXPECT_EQ("", captured.text());
    EXPECT_EQ(0U, row);
    EXPECT_EQ(0U, column);
    EXPECT_EQ("ab", read(2));
}

TEST_F(TerminalTest, AnswerThatStandsInTheInputIsTaken) {
    const TypedInput typedKeys("\x1b[25;1Rab\x1b[C");
    unsigned int row = 0;
    unsigned int column = 0;
    CUtil::getCursorPosition(row, column);
    EXPECT_EQ(25U, row);
    EXPECT_EQ(1U, column);
    EXPECT_EQ("ab", read(2));
    CUtil::getCursorPosition(row, column);
    EXPECT_EQ(0U, row);
    EXPECT_EQ("\x1b[C", read(3));
}

TEST_F(TerminalTest, AbsurdAnswersAreKeys) {
    connect();
    std::thread user([&] {
        pty.shown("\x1b[6n");
        pty.type("\x1b[123456;1R\x1b[;R\x1b[1R");
    });
    const Terminal::Hold hold(terminal());
    unsigned int row = 0;
    unsigned int column = 0;
    CUtil::getCursorPosition(row, column);
    user.join();
    EXPECT_EQ(0U, row);
    EXPECT_EQ("\x1b[123456;1R\x1b[;R\x1b[1R", read(19));
}

// What ends a process in key mode leaves the terminal as it was. The child is a fork of this
// program that does nothing but read.
class TerminalDeathTest : public TerminalTest, public ::testing::WithParamInterface<int> {};

TEST_P(TerminalDeathTest, FatalSignalGivesTheModeBack) {
    const termios before = pty.mode();
    const int signal = GetParam();
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::signal(signal, SIG_DFL);
        dup2(pty.nearEnd(), STDIN_FILENO);
        const Terminal::Hold hold(Terminal::standard());
        raise(signal);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(signal, WTERMSIG(status));
    EXPECT_TRUE(sameMode(pty.mode(), before));
}

INSTANTIATE_TEST_SUITE_P(EverySignal, TerminalDeathTest,
                         ::testing::Values(SIGHUP, SIGINT, SIGQUIT, SIGABRT, SIGTERM, SIGSEGV,
                                           SIGBUS, SIGFPE, SIGILL, SIGALRM, SIGUSR1, SIGUSR2,
                                           SIGPIPE));

TEST_F(TerminalTest, DispositionsAreGivenBack) {
    connect();
    struct sigaction before = {};
    struct sigaction during = {};
    struct sigaction after = {};
    std::signal(SIGHUP, SIG_IGN);
    ASSERT_EQ(0, sigaction(SIGTERM, nullptr, &before));
    {
        const Terminal::Hold hold(terminal());
        ASSERT_EQ(0, sigaction(SIGHUP, nullptr, &during));
        EXPECT_EQ(SIG_IGN, during.sa_handler) << "nohup must stay in force";
    }
    ASSERT_EQ(0, sigaction(SIGTERM, nullptr, &after));
    EXPECT_EQ(before.sa_handler, after.sa_handler);
    std::signal(SIGHUP, SIG_DFL);
}

}  // namespace
