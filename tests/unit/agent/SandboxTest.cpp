#include <csignal>
#include <fcntl.h>
#include <functional>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>

#include "Sandbox.h"
#include "TempDir.h"
#include "UniqueFd.h"

namespace {

constexpr int kRefused = 0;
constexpr int kDone = 1;
constexpr int kOutside = 2;

class SandboxEntered : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(0, ::mkdir(empty.c_str(), 0700));
        settings = sandbox::probe(empty, missing);
    }

    // Does it in there. True when it was refused or ended the process.
    bool isRefused(const std::function<bool()>& deed) const {
        const int status = statusOf([&] { return deed() ? kDone : kRefused; });
        return WIFSIGNALED(status) ? WTERMSIG(status) == SIGSYS : WEXITSTATUS(status) == kRefused;
    }

    int statusOf(const std::function<int()>& deed) const {
        int ends[2] = {-1, -1};
        EXPECT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
        const UniqueFd first(ends[0]);
        const UniqueFd second(ends[1]);
        const pid_t pid = ::fork();
        if (pid == 0) {
            const bool inside = sandbox::leaveRoot(settings, {first.get(), second.get()}).empty() &&
                                sandbox::confine(settings, first.get(), second.get()).empty();
            ::_exit(inside ? deed() : kOutside);
        }
        int status = 0;
        EXPECT_EQ(pid, ::waitpid(pid, &status, 0));
        return status;
    }

    TempDir directory;
    std::string empty = directory.file("empty");
    std::list<std::string> missing;
    sandbox::Settings settings;
};

// Without the filter, the rest stops only part of it.
#define NEEDS_FILTER()                                            \
    if (!settings.filtersCalls || !settings.changesUser) {        \
        GTEST_SKIP() << "not confined here: " << missing.front(); \
    }

}  // namespace

TEST_F(SandboxEntered, BytesStillPass) {
    const int status = statusOf([] {
        char byte = 0;
        return ::send(0, "x", 1, 0) == 1 && ::recv(1, &byte, 1, 0) == 1 && byte == 'x' ? kDone
                                                                                       : kRefused;
    });
    ASSERT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(kDone, WEXITSTATUS(status));
}

TEST_F(SandboxEntered, OnlyTwoDescriptorsAreKept) {
    const int status = statusOf([] {
        for (int fd = 2; fd < 1024; ++fd) {
            if (::fcntl(fd, F_GETFD) >= 0) {
                return kDone;
            }
        }
        return kRefused;
    });
    EXPECT_EQ(0, status);
}

TEST_F(SandboxEntered, SaysWhatCannotBeHad) {
    EXPECT_EQ(missing.size(), (settings.changesUser ? 0U : 1U) + (settings.filtersCalls ? 0U : 1U));
}

TEST_F(SandboxEntered, UserIsNobodysButItsOwn) {
    EXPECT_NE(65534U, settings.user);
    EXPECT_NE(65534U, settings.group);
    EXPECT_NE(0U, settings.user);
    const passwd* const own = ::getpwnam("kelnode");
    if (own != nullptr) {
        EXPECT_EQ(own->pw_uid, settings.user);
    } else {
        EXPECT_EQ(nullptr, ::getpwuid(settings.user));
        EXPECT_EQ(nullptr, ::getgrgid(settings.group));
    }
}

TEST_F(SandboxEntered, NothingIsOpened) {
    NEEDS_FILTER();
    EXPECT_TRUE(isRefused([] { return ::open("/", O_RDONLY) >= 0; }));
    EXPECT_TRUE(isRefused([] { return ::open("/etc/passwd", O_RDONLY) >= 0; }));
    EXPECT_TRUE(isRefused([] { return ::open("new", O_WRONLY | O_CREAT, 0600) >= 0; }));
    EXPECT_TRUE(isRefused([] { return ::socket(AF_INET, SOCK_STREAM, 0) >= 0; }));
    EXPECT_TRUE(isRefused([] { return ::dup(0) >= 0; }));
}

TEST_F(SandboxEntered, NoProcessIsBegunOrTouched) {
    NEEDS_FILTER();
    EXPECT_TRUE(isRefused([] { return ::fork() >= 0; }));
    EXPECT_TRUE(isRefused([] {
        char name[] = "/bin/true";
        char* arguments[] = {name, nullptr};
        ::execve(name, arguments, nullptr);
        return false;
    }));
    EXPECT_TRUE(isRefused([] { return ::kill(::getppid(), 0) == 0; }));
    EXPECT_TRUE(isRefused([] { return ::ptrace(PTRACE_ATTACH, ::getppid(), 0, 0) == 0; }));
}

TEST_F(SandboxEntered, NoRightsComeBack) {
    NEEDS_FILTER();
    EXPECT_TRUE(isRefused([] { return ::setuid(0) == 0; }));
    EXPECT_TRUE(isRefused([] { return ::setresuid(0, 0, 0) == 0; }));
    EXPECT_TRUE(isRefused([] { return ::chroot("/") == 0; }));
}

TEST_F(SandboxEntered, MemoryDoesNotBecomeCode) {
    NEEDS_FILTER();
    EXPECT_FALSE(isRefused([] {
        return ::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) !=
               MAP_FAILED;
    }));
    EXPECT_TRUE(isRefused([] {
        return ::mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) !=
               MAP_FAILED;
    }));
}

TEST_F(SandboxEntered, WorksWhenItsDirectoryIsGone) {
    ASSERT_EQ(0, ::rmdir(empty.c_str()));
    EXPECT_EQ(kDone, WEXITSTATUS(statusOf([] { return kDone; })));
}
