#include <map>
#include <sstream>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Console.h"
#include "RawPty.h"

TEST(Console, PrintsTheTextAndANewline) {
    testing::internal::CaptureStdout();
    console::printLine("one\ntwo");
    EXPECT_EQ("one\ntwo\n", testing::internal::GetCapturedStdout());
}

TEST(Console, ControlsOfANodeReachNoTerminal) {
    const RawPty terminal;
    {
        const RedirectedFd output(STDOUT_FILENO, terminal.nearEnd());
        console::printLine(
            "IPMI GUID:\x1b[2J\x9b"
            "6n");
    }
    EXPECT_EQ("IPMI GUID:\\x1b[2J\\x9b6n\r\n", terminal.shown("\n"));
}

TEST(Console, LinesOfManyThreadsStayWhole) {
    constexpr int kThreads = 16;
    constexpr int kLines = 100;
    testing::internal::CaptureStdout();
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([number] {
            const std::string name = std::string(60, static_cast<char>('a' + number));
            for (int line = 0; line < kLines; ++line) {
                console::printLine(name + "\n" + name);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::istringstream printed(testing::internal::GetCapturedStdout());
    std::map<std::string, int> counted;
    for (std::string line, second; std::getline(printed, line);) {
        ASSERT_TRUE(std::getline(printed, second));
        ASSERT_EQ(line, second) << "two messages are mixed";
        ++counted[line];
    }
    EXPECT_EQ(static_cast<std::size_t>(kThreads), counted.size());
    for (const auto& [line, count] : counted) {
        EXPECT_EQ(kLines, count) << line;
    }
}
