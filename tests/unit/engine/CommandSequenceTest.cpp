#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <set>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <boost/interprocess/exceptions.hpp>
#include <gtest/gtest.h>
#include <semaphore.h>

#include "CommandSequence.h"
#include "TempDir.h"
#include "UniqueFd.h"
#include "WaitFor.h"

namespace {

class CommandSequenceTest : public ::testing::Test {
protected:
    CommandSequenceTest() : name("/kelsh-test-" + std::to_string(::getpid())) {}

    void put(const std::string& text) const { std::ofstream(file) << text; }
    std::string content() const {
        std::ifstream stream(file);
        return std::string(std::istreambuf_iterator<char>(stream), {});
    }

    TempDir directory;
    const std::string file = directory.file("cmdseq.cfg");
    const std::string name;
};

}  // namespace

TEST_F(CommandSequenceTest, MissingFileStartsAtZero) {
    CommandSequence sequence(file, name);
    EXPECT_EQ(0U, sequence.next());
    EXPECT_EQ("1", content());
    EXPECT_EQ(1U, sequence.next());
    EXPECT_EQ("2", content());
}

TEST_F(CommandSequenceTest, ReadingAMissingFileMakesItWithZero) {
    const CommandSequence sequence(file, name);
    EXPECT_EQ(0U, sequence.readFromFile());
    EXPECT_EQ("0", content());
}

TEST_F(CommandSequenceTest, FileThatCannotBeMadeReadsAsZeroInSilence) {
    const CommandSequence sequence(directory.file("missing/cmdseq.cfg"), name);
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(0U, sequence.readFromFile());
    EXPECT_EQ("", ::testing::internal::GetCapturedStdout());
}

TEST_F(CommandSequenceTest, SemaphoreThatCannotBeOpenedThrowsTheSystemsText) {
    try {
        const CommandSequence sequence(file, "/not/allowed");
        FAIL() << "opened";
    } catch (const boost::interprocess::interprocess_exception& failure) {
        EXPECT_STREQ(std::strerror(EINVAL), failure.what());
    }
}

TEST_F(CommandSequenceTest, NameIsRemovedAtTheEnd) {
    {
        const CommandSequence sequence(file, name);
        sem_t* other = ::sem_open(name.c_str(), 0);
        ASSERT_NE(SEM_FAILED, other);
        EXPECT_EQ(0, ::sem_close(other));
    }
    EXPECT_EQ(SEM_FAILED, ::sem_open(name.c_str(), 0));
}

TEST_F(CommandSequenceTest, EightProcessesNeverTakeOneNumberTwice) {
    constexpr int kProcesses = 8;
    constexpr int kEach = 50;
    // The first one to end removes the semaphore's name; what comes later has one of its own.
    for (int i = 0; i < kProcesses; ++i) {
        if (::fork() == 0) {
            std::ofstream taken(directory.file("taken" + std::to_string(i)));
            for (int n = 0; n < kEach; ++n) {
                CommandSequence sequence(file, name);
                taken << sequence.next() << "\n";
            }
            taken.close();
            ::_exit(0);
        }
    }
    for (int i = 0; i < kProcesses; ++i) {
        int status = -1;
        ASSERT_LT(0, ::wait(&status));
        EXPECT_EQ(0, status);
    }
    std::set<unsigned int> numbers;
    for (int i = 0; i < kProcesses; ++i) {
        std::ifstream taken(directory.file("taken" + std::to_string(i)));
        for (unsigned int number = 0; taken >> number;) {
            EXPECT_TRUE(numbers.insert(number).second) << number << " was taken twice";
        }
    }
    EXPECT_EQ(static_cast<std::size_t>(kProcesses * kEach), numbers.size());
    EXPECT_EQ(std::to_string(kProcesses * kEach), content());
}

TEST_F(CommandSequenceTest, FileLockHoldsBackAShellWithAnotherSemaphore) {
    put("5");
    const UniqueFd lock(::open(file.c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(0, ::flock(lock.get(), LOCK_EX));
    std::atomic<bool> taken{false};
    std::thread other([&] {
        CommandSequence sequence(file, name);
        EXPECT_EQ(9U, sequence.next());
        taken = true;
    });
    EXPECT_TRUE(waitFor([&] {
        // The other one waits for the lock once it holds its semaphore.
        sem_t* semaphore = ::sem_open(name.c_str(), 0);
        if (semaphore == SEM_FAILED) {
            return false;
        }
        int value = 1;
        ::sem_getvalue(semaphore, &value);
        ::sem_close(semaphore);
        return value == 0;
    }));
    EXPECT_FALSE(taken);
    put("9");
    ASSERT_EQ(0, ::flock(lock.get(), LOCK_UN));
    other.join();
    EXPECT_EQ("10", content());
}

TEST_F(CommandSequenceTest, BlockedSemaphoreIsNamedOnStandardErrorAndWaitedFor) {
    CommandSequence sequence(file, name);
    sem_t* held = ::sem_open(name.c_str(), 0);
    ASSERT_NE(SEM_FAILED, held);
    ASSERT_EQ(0, ::sem_wait(held));
    // Signals must not end the wait.
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(0, ::sigaction(SIGUSR1, &action, &before));
    const pthread_t waiter = ::pthread_self();
    std::atomic<bool> taken{false};
    const std::string log = directory.file("stderr");
    const UniqueFd saved(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3));
    const UniqueFd hint(::open(log.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(STDERR_FILENO, ::dup2(hint.get(), STDERR_FILENO));
    std::thread releaser([&] {
        EXPECT_TRUE(waitFor([&] {
            ::pthread_kill(waiter, SIGUSR1);
            struct stat status {};
            return ::fstat(hint.get(), &status) == 0 && status.st_size > 0;
        }));
        EXPECT_FALSE(taken);
        ::pthread_kill(waiter, SIGUSR1);
        EXPECT_EQ(0, ::sem_post(held));
    });
    EXPECT_EQ(0U, sequence.next());
    taken = true;
    releaser.join();
    ::dup2(saved.get(), STDERR_FILENO);
    ::sigaction(SIGUSR1, &before, nullptr);
    ::sem_close(held);
    std::ifstream stream(log);
    const std::string text(std::istreambuf_iterator<char>(stream), {});
    EXPECT_NE(std::string::npos, text.find(name)) << text;
    EXPECT_EQ(1, std::count(text.begin(), text.end(), '\n')) << text;
}
