#include <atomic>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "CException.h"
#include "FileSource.h"
#include "Protocol.h"
#include "SharedDigests.h"
#include "TempDir.h"

namespace {

std::string digestOf(const std::string& content) {
    FileDigest digest;
    digest.update(content.data(), content.size());
    return digest.finish();
}

void add(SharedDigest& digest, std::uint64_t offset, const std::string& piece) {
    digest.add(offset, piece.data(), piece.size());
}

struct stat stateOf(const std::string& path) {
    struct stat state {};
    EXPECT_EQ(0, ::stat(path.c_str(), &state));
    return state;
}

}  // namespace

TEST(SharedDigest, WhoIsAheadAddsAndTheOthersPass) {
    SharedDigest digest;
    add(digest, 0, "one");
    add(digest, 0, "???");
    add(digest, 3, "two");
    add(digest, 0, "???");
    add(digest, 3, "???");
    EXPECT_EQ(digestOf("onetwo"), digest.finish());
    EXPECT_EQ(digestOf("onetwo"), digest.finish());
}

TEST(SharedDigest, WhoWasBehindGoesOnWhereAnotherStopped) {
    SharedDigest digest;
    add(digest, 0, "one");
    add(digest, 3, "two");
    // That one has given up.
    add(digest, 0, "???");
    add(digest, 3, "???");
    add(digest, 6, "three");
    EXPECT_EQ(digestOf("onetwothree"), digest.finish());
}

TEST(SharedDigest, MissingPieceIsAnError) {
    SharedDigest digest;
    add(digest, 0, "one");
    EXPECT_THROW(add(digest, 4, "two"), CException);
}

TEST(SharedDigest, EmptyFileHasOne) {
    SharedDigest digest;
    EXPECT_EQ(digestOf(""), digest.finish());
}

TEST(SharedDigest, IsSharedByThoseWhoHaveTheSameStateOfTheSameFile) {
    SharedDigests digests;
    const TempDir directory;
    const std::string path = directory.file("a");
    std::ofstream(path) << "text";
    std::ofstream(directory.file("b")) << "text";
    const auto first = digests.of(stateOf(path));
    EXPECT_EQ(first, digests.of(stateOf(path)));
    EXPECT_NE(first, digests.of(stateOf(directory.file("b"))));
    const timespec past[2] = {{1000, 0}, {1000, 0}};
    ASSERT_EQ(0, ::utimensat(AT_FDCWD, path.c_str(), past, 0));
    EXPECT_NE(first, digests.of(stateOf(path)));
}

TEST(SharedDigest, IsForgottenWithItsLastUser) {
    SharedDigests digests;
    const TempDir directory;
    const std::string path = directory.file("a");
    std::ofstream(path) << "text";
    auto first = digests.of(stateOf(path));
    add(*first, 0, "text");
    first.reset();
    const auto second = digests.of(stateOf(path));
    add(*second, 0, "other");
    EXPECT_EQ(digestOf("other"), second->finish());
}

TEST(SharedDigest, ManyReadersAtTheirOwnPaceAllGetIt) {
    SharedDigests digests;
    const TempDir directory;
    const std::string path = directory.file("a");
    std::string content;
    while (content.size() < 20 * protocol::kDataChunkBytes) {
        content += std::to_string(content.size());
    }
    std::ofstream(path) << content;
    const std::string expected = digestOf(content);
    std::atomic<int> right{0};
    constexpr int kReaders = 16;
    std::vector<std::thread> readers;
    readers.reserve(kReaders);
    for (int i = 0; i < kReaders; ++i) {
        readers.emplace_back([&, i] {
            FileSource source(path, &digests);
            std::string frame;
            std::string read;
            while (source.nextFrame(frame)) {
                read.append(frame, protocol::kHeaderBytes, std::string::npos);
                if (i % 4 == 3 && read.size() > content.size() / 2) {
                    return;  // its node has gone
                }
                if (i % 4 == 2) {
                    ::usleep(500);
                }
            }
            right += read == content && source.finish() == expected ? 1 : 0;
        });
    }
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(12, right);
}

TEST(SharedDigest, FileThatChangesUnderItsReadersIsNotTakenForWhole) {
    SharedDigests digests;
    const TempDir directory;
    const std::string path = directory.file("a");
    const std::string before(3 * protocol::kDataChunkBytes, 'a');
    std::ofstream(path) << before;
    FileSource ahead(path, &digests);
    FileSource behind(path, &digests);
    std::string frame;
    while (ahead.nextFrame(frame)) {
    }
    EXPECT_EQ(digestOf(before), ahead.finish());
    ASSERT_TRUE(behind.nextFrame(frame));
    // The change is seen where the times tell of it.
    std::fstream(path, std::ios::in | std::ios::out) << std::string(before.size(), 'b');
    const timespec past[2] = {{1000, 0}, {1000, 0}};
    ASSERT_EQ(0, ::utimensat(AT_FDCWD, path.c_str(), past, 0));
    EXPECT_THROW(
        {
            while (behind.nextFrame(frame)) {
            }
        },
        FileError);
}
