#include <csignal>
#include <functional>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "ProcessTree.h"
#include "WaitFor.h"

namespace {

using std::chrono::milliseconds;

pid_t forkChild(const std::function<void()>& body) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        body();
        ::_exit(0);
    }
    return pid;
}

[[noreturn]] void linger() {
    for (;;) {
        ::pause();
    }
}

// Runs in a child of the test, whose descendants are then its own alone. Exit status 0: all gone.
int endsAll(const std::function<void()>& makeTree, milliseconds grace) {
    const pid_t child = forkChild([&] {
        ::prctl(PR_SET_CHILD_SUBREAPER, 1);
        int ready[2];
        if (::pipe(ready) != 0) {
            ::_exit(2);
        }
        forkChild([&] {
            makeTree();
            if (::write(ready[1], "x", 1) != 1) {
                ::_exit(2);
            }
            linger();
        });
        char byte = 0;
        if (::read(ready[0], &byte, 1) != 1) {
            ::_exit(2);
        }
        const bool ended = processtree::endOwnDescendants(0, grace, milliseconds(20000));
        ::_exit(ended && processtree::descendantsOf(::getpid()).empty() ? 0 : 1);
    });
    int status = 0;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TEST(ProcessTree, DescribesThisProcess) {
    processtree::ProcessInfo info;
    ASSERT_TRUE(processtree::readProcess(::getpid(), info));
    EXPECT_EQ(info.pid, ::getpid());
    EXPECT_EQ(info.parent, ::getppid());
    EXPECT_GT(info.startTime, 0U);
    EXPECT_FALSE(info.isZombie());
}

TEST(ProcessTree, KnowsWhenThereIsNoSuchProcess) {
    const pid_t child = forkChild([] {});
    ASSERT_EQ(child, ::waitpid(child, nullptr, 0));
    processtree::ProcessInfo info;
    EXPECT_FALSE(processtree::readProcess(child, info));
}

TEST(ProcessTree, SignalsOnlyTheProcessThatWasMeant) {
    const pid_t child = forkChild(linger);
    processtree::ProcessInfo info;
    ASSERT_TRUE(processtree::readProcess(child, info));
    processtree::ProcessInfo other = info;
    ++other.startTime;
    processtree::signalProcess(other, SIGKILL);
    EXPECT_EQ(0, ::waitpid(child, nullptr, WNOHANG));
    processtree::signalProcess(info, SIGKILL);
    int status = 0;
    EXPECT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_TRUE(WIFSIGNALED(status));
}

TEST(ProcessTree, EndsChildrenAndGrandchildren) {
    EXPECT_EQ(0, endsAll(
                     [] {
                         forkChild([] {
                             forkChild(linger);
                             linger();
                         });
                     },
                     milliseconds(2000)));
}

TEST(ProcessTree, EndsThoseThatLeftTheirSession) {
    EXPECT_EQ(0, endsAll(
                     [] {
                         forkChild([] {
                             ::setsid();
                             forkChild(linger);
                         });
                     },
                     milliseconds(2000)));
}

TEST(ProcessTree, EndsThoseThatIgnoreTheFirstSignal) {
    EXPECT_EQ(0, endsAll(
                     [] {
                         ::signal(SIGTERM, SIG_IGN);
                         forkChild(linger);
                     },
                     milliseconds(50)));
}

TEST(ProcessTree, EndsTheStopped) {
    EXPECT_EQ(0, endsAll([] { forkChild([] { ::raise(SIGSTOP); }); }, milliseconds(2000)));
}

// A look through /proc sees such a process only now and then.
TEST(ProcessTree, EndsAGroupWhoseProcessesLiveTooShortlyToBeSeen) {
    for (int round = 0; round < 30; ++round) {
        const auto start = std::chrono::steady_clock::now();
        const pid_t child = forkChild([] {
            ::prctl(PR_SET_CHILD_SUBREAPER, 1);
            const pid_t leader = forkChild([] {
                ::setpgid(0, 0);
                ::signal(SIGTERM, SIG_IGN);
                forkChild([] {
                    while (::fork() == 0) {
                        ::usleep(200);
                    }
                });
            });
            ::setpgid(leader, leader);
            const bool ended =
                processtree::endOwnDescendants(leader, milliseconds(20), milliseconds(5000));
            ::_exit(ended ? 0 : 1);
        });
        int status = 0;
        ASSERT_EQ(child, ::waitpid(child, &status, 0));
        EXPECT_EQ(0, WEXITSTATUS(status));
        // At its limit nothing would be left either, by chance.
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
    }
}

// Nobody knows such a group before one of its members is seen by chance.
TEST(ProcessTree, EndsGroupsThatWereMadeByTheDescendants) {
    for (int round = 0; round < 10; ++round) {
        const pid_t child = forkChild([] {
            ::setsid();
            ::prctl(PR_SET_CHILD_SUBREAPER, 1);
            for (int group = 0; group < 3; ++group) {
                forkChild([] {
                    ::setsid();
                    ::signal(SIGTERM, SIG_IGN);
                    while (::fork() == 0) {
                        ::usleep(300);
                    }
                });
            }
            const bool ended =
                processtree::endOwnDescendants(0, milliseconds(20), milliseconds(10000));
            ::_exit(ended && ::waitpid(-1, nullptr, WNOHANG) < 0 ? 0 : 1);
        });
        int status = 0;
        ASSERT_EQ(child, ::waitpid(child, &status, 0));
        EXPECT_EQ(0, WEXITSTATUS(status));
    }
}

TEST(ProcessTree, LeavesTheGroupOfWhoeverStartedItAlone) {
    // A caller without a session of its own: its descendants are in the group of this process.
    EXPECT_EQ(0, endsAll(
                     [] {
                         ::signal(SIGTERM, SIG_IGN);
                         forkChild(linger);
                     },
                     milliseconds(10)));
    // Another group of the same session, to which a stranger belongs as well.
    const pid_t stranger = forkChild([] {
        ::setpgid(0, 0);
        linger();
    });
    ::setpgid(stranger, stranger);
    EXPECT_EQ(0, endsAll(
                     [stranger] {
                         ::signal(SIGTERM, SIG_IGN);
                         if (::setpgid(0, stranger) != 0) {
                             ::_exit(3);
                         }
                         forkChild(linger);
                     },
                     milliseconds(10)));
    EXPECT_EQ(0, ::waitpid(stranger, nullptr, WNOHANG));
    ::kill(stranger, SIGKILL);
    EXPECT_EQ(stranger, ::waitpid(stranger, nullptr, 0));
}

// The system shows such a process as a zombie although it runs on.
TEST(ProcessTree, EndsThoseWhoseFirstThreadHasEnded) {
    const pid_t child = forkChild([] {
        ::signal(SIGTERM, SIG_IGN);
        std::thread(linger).detach();
        // Of this thread alone; pthread_exit would unwind into the test's own frames.
        ::syscall(SYS_exit, 0);
    });
    processtree::ProcessInfo info;
    ASSERT_TRUE(waitFor([&] {
        return processtree::readProcess(child, info) && info.state == 'Z' && info.threads > 1;
    }));
    EXPECT_FALSE(info.isZombie());
    processtree::killAll([&] { return std::vector<processtree::ProcessInfo>{info}; });
    int status = 0;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_TRUE(WIFSIGNALED(status));
}

TEST(ProcessTree, IsDoneAtOnceWhenThereIsNothing) {
    const pid_t child = forkChild([] {
        ::_exit(processtree::endOwnDescendants(0, milliseconds(60000), milliseconds(60000)) ? 0
                                                                                            : 1);
    });
    int status = 0;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_EQ(0, WEXITSTATUS(status));
}
