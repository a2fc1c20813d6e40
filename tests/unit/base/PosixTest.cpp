#include <fcntl.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "CException.h"
#include "Posix.h"
#include "TempDir.h"

TEST(Posix, ThrowsTheTextOfErrno) {
    errno = ENOENT;
    try {
        Posix::throwErrno("cannot open x");
    } catch (const CException& fault) {
        EXPECT_EQ("cannot open x: No such file or directory", fault.getErrMsg());
        return;
    }
    FAIL();
}

TEST(Posix, RepeatsACallThatASignalEnded) {
    int calls = 0;
    EXPECT_EQ(7, Posix::retried([&] {
                  errno = EINTR;
                  return ++calls < 3 ? -1 : 7;
              }));
    EXPECT_EQ(3, calls);
    EXPECT_EQ(-1, Posix::retried([&] {
        ++calls;
        errno = EBADF;
        return -1;
    }));
    EXPECT_EQ(4, calls);
}

TEST(Posix, WritesAllIntoAPipeThatTakesLittleAtATime) {
    int ends[2];
    ASSERT_EQ(0, ::pipe2(ends, O_CLOEXEC));
    UniqueFd from(ends[0]);
    UniqueFd to(ends[1]);
    const std::string sent(1U << 20U, 'x');
    std::size_t received = 0;
    std::thread reader([&] {
        char bytes[1000];
        for (ssize_t got = 1; got > 0; received += static_cast<std::size_t>(got)) {
            got = ::read(from.get(), bytes, sizeof bytes);
        }
    });
    EXPECT_TRUE(Posix::writeAll(to.get(), sent));
    to.reset();
    reader.join();
    EXPECT_EQ(received, sent.size());
}

TEST(Posix, TellsWhyItCouldNotWrite) {
    const UniqueFd full = Posix::open("/dev/full", O_WRONLY);
    ASSERT_TRUE(full);
    EXPECT_FALSE(Posix::writeAll(full.get(), "x"));
    EXPECT_EQ(ENOSPC, errno);
    EXPECT_TRUE(Posix::writeAll(full.get(), ""));
}

TEST(Posix, WritesAndReadsAtAPlace) {
    const TempDir directory;
    const UniqueFd file =
        Posix::open(directory.file("f"), O_RDWR | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR);
    ASSERT_TRUE(file);
    ASSERT_TRUE(Posix::writeAllAt(file.get(), "abcdef", 2));
    char bytes[8];
    ASSERT_EQ(6, Posix::readAllAt(file.get(), bytes, 6, 2));
    EXPECT_EQ("abcdef", std::string(bytes, 6));
    EXPECT_EQ(3, Posix::readAllAt(file.get(), bytes, sizeof bytes, 5));
    EXPECT_EQ("def", std::string(bytes, 3));
    EXPECT_EQ(0, Posix::readAllAt(file.get(), bytes, sizeof bytes, 8));
    ASSERT_EQ(1, ::lseek(file.get(), 1, SEEK_SET));
    EXPECT_EQ(7, Posix::readAll(file.get(), bytes, sizeof bytes));
    EXPECT_EQ(std::string("\0abcdef", 7), std::string(bytes, 7));
    EXPECT_EQ(0, Posix::readAll(file.get(), bytes, sizeof bytes));
    EXPECT_EQ(-1, Posix::readAllAt(-1, bytes, sizeof bytes, 0));
    EXPECT_EQ(EBADF, errno);
}

TEST(Posix, OpensWithoutHandingDownToChildren) {
    const TempDir directory;
    EXPECT_FALSE(Posix::open(directory.file("missing"), O_RDONLY));
    EXPECT_EQ(ENOENT, errno);
    const UniqueFd fd = Posix::open("/dev/null", O_RDONLY);
    ASSERT_TRUE(fd);
    EXPECT_EQ(FD_CLOEXEC, ::fcntl(fd.get(), F_GETFD));
    EXPECT_EQ(nullptr, Posix::openFile(directory.file("missing"), "re"));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_NE(nullptr, Posix::openFile("/dev/null", "re"));
}
