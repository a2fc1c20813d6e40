#include <csignal>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "EventLog.h"
#include "FirmwareLock.h"
#include "RunSection.h"
#include "TempDir.h"
#include "WaitFor.h"

namespace {

class SilentLog : public EventLog {
public:
    void write(Level /*level*/, const std::string& text) const override { last = text; }
    int descriptor() const override { return -1; }
    mutable std::string last;
};

class RunSectionTest : public testing::Test {
protected:
    TempDir temporary;
    RunDirectory directory{temporary.path() + "/"};
    SilentLog log;
};

}  // namespace

TEST_F(RunSectionTest, OneConversationAtATimeHasIt) {
    RunSection first(directory);
    RunSection second(directory);
    EXPECT_TRUE(first.tryEnter("alice"));
    EXPECT_TRUE(first.tryEnter("alice"));
    EXPECT_FALSE(second.tryEnter("bob"));
    EXPECT_EQ("alice", second.holder());
    first.leave();
    EXPECT_TRUE(second.tryEnter("bob"));
    EXPECT_FALSE(first.tryEnter("alice"));
    EXPECT_EQ("bob", first.holder());
}

TEST_F(RunSectionTest, WhoDiesLeavesIt) {
    const pid_t child = ::fork();
    if (child == 0) {
        RunSection section(directory);
        section.tryEnter("the dead");
        ::raise(SIGKILL);
    }
    ::waitpid(child, nullptr, 0);
    RunSection next(directory);
    EXPECT_TRUE(next.tryEnter("alice"));
}

TEST_F(RunSectionTest, WhoHasItForTooLongLosesItToWhoWaits) {
    RunSection slow(directory, std::chrono::milliseconds(1));
    RunSection waiting(directory, std::chrono::milliseconds(1));
    ASSERT_TRUE(slow.tryEnter("slow"));
    EXPECT_FALSE(slow.isLost());
    EXPECT_TRUE(waitFor([&] { return waiting.tryEnter("waiting"); }));
    EXPECT_TRUE(slow.isLost());
    EXPECT_FALSE(waiting.isLost());
    // Its end must not end the other's.
    slow.leave();
    RunSection third(directory);
    EXPECT_FALSE(third.tryEnter("third"));
    EXPECT_EQ("waiting", third.holder());
}

TEST_F(RunSectionTest, WithinItsTimeNobodyLosesIt) {
    RunSection held(directory);
    RunSection waiting(directory);
    ASSERT_TRUE(held.tryEnter("held"));
    EXPECT_FALSE(
        waitFor([&] { return waiting.tryEnter("waiting"); }, std::chrono::milliseconds(300)));
    EXPECT_FALSE(held.isLost());
}

TEST_F(RunSectionTest, NobodyEntersWhileAnUninterruptibleJobRuns) {
    FirmwareLock firmware(directory);
    ASSERT_TRUE(firmware.tryTake("\"flash\" for carol", log));
    RunSection section(directory, std::chrono::milliseconds(1));
    EXPECT_FALSE(section.tryEnter("alice"));
    EXPECT_EQ("an uninterruptible job, \"flash\" for carol", section.holder());
    firmware.release();
    EXPECT_TRUE(section.tryEnter("alice"));
}

TEST_F(RunSectionTest, FirmwareLockLeftInAFileIsNobodys) {
    std::ofstream(temporary.file("firmware.lock"))
        << "\"flash\" for carol\nsupervisor 1 1\nshell 1 1";
    FirmwareLock firmware(directory);
    EXPECT_TRUE(firmware.tryTake("\"flash\" for dave", log));
    EXPECT_EQ("", log.last);
}
