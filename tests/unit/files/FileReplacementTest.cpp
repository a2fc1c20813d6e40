// A file on its way to its place.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FileFixture.h"
#include "FileReplacement.h"
#include "RefusedCall.h"

// The call that fails is any of those that make the new file.
TEST_F(FileTransfer, AQuotaKeepsTheOldFileWhicheverCallReportsIt) {
    writeFile(file("a"), "old");
    for (const long call : {SYS_openat, SYS_pwrite64, SYS_ftruncate, SYS_fsync}) {
        SCOPED_TRACE("system call " + std::to_string(call));
        std::string error;
        std::thread([&] {
            FileReplacement replacement(file("a"));
            ASSERT_TRUE(refuseCall(static_cast<unsigned int>(call), EDQUOT));
            error = errorOf([&] {
                replacement.open();
                replacement.write("new");
                replacement.commit(0600);
            });
        }).join();
        EXPECT_THAT(error, MentionsAll(parts({file("a"), "Disk quota exceeded"})));
        EXPECT_EQ("old", readFile(file("a")));
        EXPECT_EQ(1U, entries());
    }
}

TEST_F(FileTransfer, AReplacementTakesItsPlaceWholeWithItsMode) {
    writeFile(file("a"), "old");
    FileReplacement replacement(file("a"));
    replacement.open();
    replacement.write("new ");
    replacement.write("content");
    EXPECT_EQ("old", readFile(file("a")));
    EXPECT_EQ(11U, replacement.receivedBytes());
    EXPECT_EQ(digestOf("new content"), replacement.finish());
    replacement.commit(06755);
    EXPECT_EQ("new content", readFile(file("a")));
    EXPECT_EQ(0755U, modeOf(file("a")));
    EXPECT_EQ(1U, entries());
}

TEST_F(FileTransfer, AReplacementThatIsGivenUpLeavesNothing) {
    writeFile(file("a"), "old");
    {
        FileReplacement replacement(file("a"));
        replacement.open();
        replacement.write("new");
    }
    EXPECT_EQ("old", readFile(file("a")));
    EXPECT_EQ(1U, entries());
    { FileReplacement untouched(file("b")); }
    EXPECT_EQ(1U, entries());
}

TEST_F(FileTransfer, WhatAKilledTransferLeftGoesWithTheNextOne) {
    const std::string abandoned = file(".kelsh-part-0123456789abcdef");
    const std::string inUse = file(".kelsh-part-fedcba9876543210");
    const std::string link = file(".kelsh-part-00000000000000ff");
    const std::string others = file(".kelsh-part-list");
    for (const std::string& name : {abandoned, inUse, others, file("precious")}) {
        writeFile(name, "content");
    }
    ASSERT_EQ(0, symlink("precious", link.c_str()));
    const UniqueFd holder(open(inUse.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(0, flock(holder.get(), LOCK_EX | LOCK_NB));
    replace(file("a"), "new", 0600);
    EXPECT_FALSE(std::filesystem::exists(abandoned));
    EXPECT_EQ("content", readFile(inUse));
    EXPECT_EQ("content", readFile(link));
    EXPECT_EQ("content", readFile(others));
    EXPECT_EQ(5U, entries());
}

TEST_F(FileTransfer, AReplacementReplacesALinkAndNotWhatItNames) {
    writeFile(file("precious"), "precious");
    ASSERT_EQ(0, symlink(file("precious").c_str(), file("link").c_str()));
    replace(file("link"), "new", 0600);
    EXPECT_EQ("precious", readFile(file("precious")));
    EXPECT_EQ("new", readFile(file("link")));
    EXPECT_FALSE(std::filesystem::is_symlink(file("link")));
}

TEST_F(FileTransfer, AReplacementRefusesUnfitTargets) {
    EXPECT_THAT(errorOf([&] { FileReplacement r("relative"); }),
                testing::HasSubstr("not an absolute path"));
    EXPECT_THAT(errorOf([&] { FileReplacement r(files()); }), testing::HasSubstr("is a directory"));
    EXPECT_THAT(errorOf([&] { FileReplacement r(files() + "/"); }),
                testing::HasSubstr("is a directory"));
    EXPECT_THAT(errorOf([&] { FileReplacement r("/"); }), testing::HasSubstr("is a directory"));
    EXPECT_THAT(errorOf([&] { FileReplacement r(files() + "/.."); }),
                testing::HasSubstr("is a directory"));
    EXPECT_THAT(errorOf([&] { FileReplacement r("/dev/null"); }),
                testing::HasSubstr("not a regular file"));
    EXPECT_THAT(errorOf([&] { FileReplacement r(file("none/x")); }),
                MentionsAll(parts({file("none"), "No such file"})));
    EXPECT_THAT(errorOf([&] { FileReplacement r(file(std::string(256, 'n'))); }),
                testing::HasSubstr("too long"));
}

TEST_F(FileTransfer, ADirectoryThatAppearsMeanwhileIsKept) {
    FileReplacement replacement(file("a"));
    replacement.open();
    replacement.write("new");
    std::filesystem::create_directory(file("a"));
    EXPECT_THAT(errorOf([&] { replacement.commit(0600); }), testing::HasSubstr("is a directory"));
    EXPECT_TRUE(std::filesystem::is_directory(file("a")));
    EXPECT_EQ(1U, entries());
}

TEST_F(FileTransfer, NamesOfEveryKindWork) {
    for (const std::string& name :
         {std::string(255, 'n'), std::string("with blank"), std::string("with \"quotes\""),
          std::string("new\nline"), std::string("\xc3\xa4\xe2\x82\xac"), std::string("-f")}) {
        replace(file(name), name, 0600);
        replace(file(name), name + "2", 0600);
        EXPECT_EQ(name + "2", readFile(file(name)));
    }
    EXPECT_EQ(6U, entries());
}

TEST_F(FileTransfer, HolesStayHolesAndAreCounted) {
    FileReplacement replacement(file("sparse"));
    replacement.open();
    const std::string zeros(protocol::kDataChunkBytes, '\0');
    for (int i = 0; i < 800; ++i) {
        replacement.write(zeros);
    }
    replacement.write("x");
    replacement.write(zeros);
    replacement.commit(0600);
    struct stat found {};
    ASSERT_EQ(0, stat(file("sparse").c_str(), &found));
    EXPECT_EQ(static_cast<off_t>(801 * zeros.size() + 1), found.st_size);
    EXPECT_LT(found.st_blocks * 512, 1024 * 1024);
    std::ifstream stream(file("sparse"), std::ios::binary);
    stream.seekg(static_cast<std::streamoff>(800 * zeros.size()));
    EXPECT_EQ('x', stream.get());
    EXPECT_EQ('\0', stream.get());
}

TEST_F(FileTransfer, ManyWritersOfOneTargetLeaveOneWholeFile) {
    std::vector<std::thread> threads;
    for (char who = 'a'; who < 'q'; ++who) {
        threads.emplace_back([this, who] {
            for (int round = 0; round < 10; ++round) {
                replace(file("same"), std::string(300000, who), 0600);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::string content = readFile(file("same"));
    ASSERT_EQ(300000U, content.size());
    EXPECT_EQ(std::string(300000, content.front()), content);
    EXPECT_EQ(1U, entries());
}
