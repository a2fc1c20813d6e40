// A file on its way to the peer.

#include <fcntl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FileDigest.h"
#include "FileFixture.h"
#include "FileReplacement.h"
#include "FileSource.h"
#include "PiecePipe.h"
#include "SideThread.h"

using protocol::FrameType;

TEST(FileDigest, IsSha256) {
    FileDigest digest;
    digest.update("a", 1);
    digest.update("bc", 2);
    const std::string raw = digest.finish();
    EXPECT_EQ(32U, raw.size());
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad",
              FileDigest::toHex(raw));
    EXPECT_EQ("ba7816bf8f01cfea", FileDigest::shortHex(raw));
}

TEST_F(FileTransfer, ASourceSendsTheWholeFileInPieces) {
    const std::string content = pattern(3 * protocol::kDataChunkBytes + 5);
    writeFile(file("a"), content);
    ASSERT_EQ(0, chmod(file("a").c_str(), 06751));
    FileSource source(file("a"));
    EXPECT_EQ(content.size(), source.size());
    EXPECT_EQ(0751U, source.mode());
    std::string received;
    std::string frame;
    while (source.nextFrame(frame)) {
        const protocol::FrameHeader header =
            protocol::decodeHeader(reinterpret_cast<const unsigned char*>(frame.data()));
        EXPECT_EQ(FrameType::kData, header.type);
        EXPECT_EQ(header.length, frame.size() - protocol::kHeaderBytes);
        received += frame.substr(protocol::kHeaderBytes);
    }
    EXPECT_EQ(content, received);
    EXPECT_EQ(digestOf(content), source.finish());
    EXPECT_EQ(content.size(), source.sentBytes());
}

TEST_F(FileTransfer, ASourceIsARegularFileUnderAnAbsolutePath) {
    EXPECT_THAT(errorOf([&] { FileSource source("relative"); }),
                testing::HasSubstr("not an absolute path"));
    EXPECT_THAT(errorOf([&] { FileSource source(""); }),
                testing::HasSubstr("not an absolute path"));
    EXPECT_THAT(errorOf([&] { FileSource source(files()); }), testing::HasSubstr("is a directory"));
    EXPECT_THAT(errorOf([&] { FileSource source("/dev/null"); }),
                testing::HasSubstr("not a regular file"));
    EXPECT_THAT(errorOf([&] { FileSource source(file("none")); }),
                MentionsAll(parts({file("none"), "No such file"})));
    ASSERT_EQ(0, mkfifo(file("pipe").c_str(), 0600));
    EXPECT_THAT(errorOf([&] { FileSource source(file("pipe")); }),
                testing::HasSubstr("not a regular file"));
}

TEST_F(FileTransfer, ASourceThatChangesIsAnError) {
    struct Change {
        const char* says;
        std::function<void(const std::string&)> make;
    };
    const std::vector<Change> changes = {
        {"became longer",
         [](const std::string& path) { std::ofstream(path, std::ios::app) << "more"; }},
        {"became shorter",
         [](const std::string& path) { ASSERT_EQ(0, truncate(path.c_str(), 5)); }},
        {"was written to",
         [](const std::string& path) {
             std::fstream(path, std::ios::in | std::ios::out) << "other";
         }},
    };
    for (const Change& change : changes) {
        writeFile(file("a"), pattern(2 * protocol::kDataChunkBytes));
        timespec past[2] = {{1000, 0}, {1000, 0}};
        ASSERT_EQ(0, utimensat(AT_FDCWD, file("a").c_str(), past, 0));
        FileSource source(file("a"));
        std::string frame;
        ASSERT_TRUE(source.nextFrame(frame));
        change.make(file("a"));
        EXPECT_THAT(errorOf([&] {
                        while (source.nextFrame(frame)) {
                        }
                    }),
                    testing::HasSubstr(change.says));
    }
}

// Files large enough for a thread of their own.
TEST_F(FileTransfer, ALargeFileTravelsWholeWithItsDigest) {
    const std::string content = largePattern(SideThread::kWorthwhileBytes + 12345);
    writeFile(file("a"), content);
    FileSource source(file("a"));
    FileReplacement replacement(file("b"));
    replacement.open(source.size());
    std::string frame;
    std::string body;
    while (source.nextFrame(frame)) {
        body.assign(frame, protocol::kHeaderBytes, std::string::npos);
        replacement.consume(body);
    }
    EXPECT_EQ(content.size(), source.sentBytes());
    EXPECT_EQ(digestOf(content), source.finish());
    EXPECT_EQ(digestOf(content), replacement.finish());
    replacement.commit(0600);
    EXPECT_TRUE(readFile(file("b")) == content);
}

TEST_F(FileTransfer, ALargeFileThatIsGivenUpLeavesNothing) {
    writeFile(file("a"), largePattern(SideThread::kWorthwhileBytes));
    {
        FileSource source(file("a"));
        FileReplacement replacement(file("b"));
        replacement.open(source.size());
        std::string frame;
        for (std::size_t i = 0; i < 2 * PiecePipe::kPieces; ++i) {
            ASSERT_TRUE(source.nextFrame(frame));
            replacement.consume(frame);
        }
    }
    EXPECT_EQ(1U, entries());
}

TEST_F(FileTransfer, ALargeSourceThatChangesIsAnError) {
    writeFile(file("a"), largePattern(SideThread::kWorthwhileBytes));
    for (const bool grows : {true, false}) {
        FileSource source(file("a"));
        std::string frame;
        ASSERT_TRUE(source.nextFrame(frame));
        ASSERT_EQ(
            0, truncate(file("a").c_str(), static_cast<off_t>(source.size()) + (grows ? 1 : -1)));
        EXPECT_THAT(errorOf([&] {
                        while (source.nextFrame(frame)) {
                        }
                    }),
                    testing::HasSubstr(grows ? "became longer" : "became shorter"));
    }
}

TEST_F(FileTransfer, MoreLargeFilesThanProcessorsAreFine) {
    const std::string content = largePattern(SideThread::kWorthwhileBytes);
    writeFile(file("a"), content);
    const std::string expected = digestOf(content);
    std::vector<std::unique_ptr<FileSource>> sources;
    std::string frame;
    for (unsigned int i = 0; i < std::thread::hardware_concurrency() + 2; ++i) {
        sources.push_back(std::make_unique<FileSource>(file("a")));
        ASSERT_TRUE(sources.back()->nextFrame(frame));
    }
    for (const std::unique_ptr<FileSource>& source : sources) {
        while (source->nextFrame(frame)) {
        }
        EXPECT_EQ(expected, source->finish());
    }
}

TEST(PiecePipe, KeepsTheOrderAndTellsTheEnd) {
    PiecePipe pipe;
    constexpr int kMany = 10000;
    std::thread producer([&] {
        for (int i = 0; i < kMany; ++i) {
            std::string piece = std::to_string(i);
            EXPECT_TRUE(pipe.put(piece));
        }
        pipe.end();
    });
    std::string piece;
    int next = 0;
    for (; pipe.take(piece); ++next) {
        EXPECT_EQ(piece, std::to_string(next));
    }
    producer.join();
    EXPECT_EQ(kMany, next);
}

TEST(PiecePipe, NobodyWaitsWhenItIsAbandoned) {
    for (const bool isFull : {true, false}) {
        PiecePipe pipe;
        std::thread waiting([&] {
            std::string piece;
            if (isFull) {
                while (pipe.put(piece)) {
                }
            } else {
                EXPECT_FALSE(pipe.take(piece));
            }
        });
        pipe.abandon();
        waiting.join();
    }
}
