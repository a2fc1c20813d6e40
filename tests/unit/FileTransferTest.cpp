// The two ends of a file on its way, and the client's part in moving it.

#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FileDigest.h"
#include "FileReplacement.h"
#include "FileSource.h"
#include "PiecePipe.h"
#include "RefusedCall.h"
#include "SideThread.h"
#include "TlsFixture.h"

namespace {

using protocol::FrameType;

class FileTransfer : public TlsFixture {
protected:
    static std::string digestOf(const std::string& content) {
        FileDigest digest;
        digest.update(content.data(), content.size());
        return digest.finish();
    }

    static std::string pattern(std::size_t size) {
        std::string content(size, '\0');
        unsigned state = 12345;
        for (char& c : content) {
            state = state * 1103515245 + 12345;
            c = static_cast<char>(state >> 16);
        }
        return content;
    }

    // Made fast, and no two pieces of it are the same.
    static std::string largePattern(std::size_t size) {
        const std::string block = pattern(std::size_t{256} * 1024);
        std::string content;
        content.reserve(size + block.size());
        while (content.size() < size) {
            content += std::to_string(content.size()) + block;
        }
        content.resize(size);
        return content;
    }

    static unsigned modeOf(const std::string& path) {
        struct stat found {};
        return stat(path.c_str(), &found) == 0 ? found.st_mode & 07777U : 0U;
    }

    std::size_t entries() const {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(files()), {}));
    }
    std::string files() const { return directory.file("files"); }
    std::string file(const std::string& name) const { return files() + "/" + name; }

    void SetUp() override { std::filesystem::create_directory(files()); }

    // Runs one command on the agent and gives its result.
    CResult run(const FakeNodeAgent& agent, const std::string& command,
                unsigned int timeOut = 20000) {
        SSLClient client = clientOf(agent);
        client.initAndConnect();
        CResult result;
        client.execute(command, timeOut, &result);
        return result;
    }

    // An agent that answers a GET with these frames.
    FakeNodeAgent::Script giving(std::vector<std::string> frames) {
        return [frames](TlsChannel& channel) {
            FakeNodeAgent::greet(channel);
            (void)channel.receiveFrame(FakeNodeAgent::soon());
            for (const std::string& frame : frames) {
                FakeNodeAgent::send(channel, frame);
            }
            FakeNodeAgent::waitForClose(channel);
        };
    }

    static std::string info(std::uint64_t size, std::uint32_t mode = 0644) {
        protocol::FileInfo body;
        body.size = size;
        body.mode = mode;
        return protocol::encode(body);
    }
    static std::string data(const std::string& body) {
        return FakeNodeAgent::frame(FrameType::kData, body);
    }
    static std::string end(const std::string& digest) {
        protocol::End body;
        body.digest = digest;
        return protocol::encode(body);
    }
};

// Puts content under a path, as either end does it.
void replace(const std::string& path, const std::string& content, std::uint32_t mode) {
    FileReplacement replacement(path);
    replacement.open();
    replacement.write(content);
    replacement.commit(mode);
}

}  // namespace

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
        EXPECT_EQ(std::to_string(next), piece);
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

TEST_F(FileTransfer, SaveSendsTheFileAndItsMode) {
    const std::string content = pattern(1000000);
    writeFile(file("a b"), content);
    FakeNode fake;
    FakeNodeAgent agent(filesOf(node), fake.script());
    const CResult result = run(agent, "[savefile]" + file("a b"));
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ("stored " + file("a b"), result.getRunSummary());
    EXPECT_EQ(content, fake.file(file("a b")));
}

TEST_F(FileTransfer, SaveAndGetOfAnEmptyFile) {
    writeFile(file("empty"), "");
    FakeNode fake;
    FakeNodeAgent agent(filesOf(node), fake.script());
    EXPECT_EQ(EXEC_SUCCESS, run(agent, "[savefile]" + file("empty")).getRunStatus());
    writeFile(file("empty"), "old");
    EXPECT_EQ(EXEC_SUCCESS, run(agent, "[getfile]" + file("empty")).getRunStatus());
    EXPECT_EQ("", readFile(file("empty")));
}

TEST_F(FileTransfer, SaveOfAnUnfitFileSendsNothingAndKeepsTheConnection) {
    FakeNode fake;
    FakeNodeAgent agent(filesOf(node), fake.script());
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    CResult result;
    for (const std::string& path : {files(), std::string("relative"), std::string(),
                                    std::string("/dev/null"), file("none")}) {
        client.execute("[savefile]" + path, 1000, &result);
        EXPECT_EQ(EXEC_FAILURE, result.getRunStatus()) << path;
        EXPECT_THAT(result.getRunSummary(), testing::HasSubstr("\"" + path + "\""));
    }
    client.execute("still there", 1000, &result);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
}

TEST_F(FileTransfer, TheAgentsRefusalInTheMiddleOfASaveIsTheResult) {
    writeFile(file("big"), pattern(8 * 1024 * 1024));
    FakeNodeAgent agent(filesOf(node), [](TlsChannel& channel) {
        FakeNodeAgent::greet(channel);
        (void)channel.receiveFrame(FakeNodeAgent::soon());
        (void)channel.receiveFrame(FakeNodeAgent::soon());
        FakeNodeAgent::error(channel, protocol::kErrorFile, "No space left on device");
        channel.close(FakeNodeAgent::soon());
    });
    const CResult result = run(agent, "[savefile]" + file("big"));
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_THAT(result.getRunSummary(), testing::HasSubstr("No space left on device"));
}

TEST_F(FileTransfer, ASaveCutByItsTimeOutSaysHowFarItGot) {
    writeFile(file("big"), pattern(32 * 1024 * 1024));
    std::atomic<bool> done{false};
    FakeNodeAgent agent(filesOf(node), [&](TlsChannel& channel) {
        FakeNodeAgent::greet(channel);
        EXPECT_TRUE(eventually([&] { return done.load(); }));
    });
    const CResult result = run(agent, "[savefile]" + file("big"), 50);
    done = true;
    EXPECT_EQ(EXEC_TIMED_OUT, result.getRunStatus());
    EXPECT_THAT(result.getRunSummary(),
                MentionsAll(parts({file("big"), "of 33554432 bytes", "50 ms", "\"-t\""})));
}

TEST_F(FileTransfer, TheAgentsTimeOutOfATransferIsATimeOut) {
    writeFile(file("a"), "x");
    FakeNodeAgent agent(filesOf(node), [](TlsChannel& channel) {
        FakeNodeAgent::greet(channel);
        (void)channel.receiveFrame(FakeNodeAgent::soon());
        FakeNodeAgent::error(channel, protocol::kErrorTimedOut, "too late");
        FakeNodeAgent::waitForClose(channel);
    });
    EXPECT_EQ(EXEC_TIMED_OUT, run(agent, "[savefile]" + file("a")).getRunStatus());
    EXPECT_EQ(EXEC_TIMED_OUT, run(agent, "[getfile]" + file("a")).getRunStatus());
}

TEST_F(FileTransfer, ALostConnectionDuringASaveThrows) {
    writeFile(file("big"), pattern(8 * 1024 * 1024));
    FakeNodeAgent agent(filesOf(node), [](TlsChannel& channel) {
        FakeNodeAgent::greet(channel);
        (void)channel.receiveFrame(FakeNodeAgent::soon());
    });
    EXPECT_THAT(errorOf([&] { run(agent, "[savefile]" + file("big")); }),
                testing::HasSubstr("connection lost"));
}

TEST_F(FileTransfer, GetWritesTheFileWithItsMode) {
    const std::string content = pattern(1000000);
    FakeNode fake;
    fake.setFile(file("got"), content);
    FakeNodeAgent agent(filesOf(node), fake.script());
    const CResult result = run(agent, "[getfile]" + file("got"));
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_THAT(result.getRunSummary(),
                MentionsAll(parts({file("got"), "127.0.0.1:", "1000000 bytes",
                                   FileDigest::shortHex(digestOf(content))})));
    EXPECT_EQ(content, readFile(file("got")));
    EXPECT_EQ(0640U, modeOf(file("got")));
    EXPECT_EQ(1U, entries());
}

TEST_F(FileTransfer, AMissingFileOnTheNodeLeavesTheLocalOne) {
    writeFile(file("a"), "old");
    FakeNode fake;
    FakeNodeAgent agent(filesOf(node), fake.script());
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    CResult result;
    client.execute("[getfile]" + file("a"), 1000, &result);
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_THAT(result.getRunSummary(), testing::HasSubstr("does not exist"));
    EXPECT_EQ("old", readFile(file("a")));
    client.execute("still there", 1000, &result);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
}

TEST_F(FileTransfer, ADamagedFileIsNotKept) {
    writeFile(file("a"), "old");
    for (const std::vector<std::string>& frames :
         {std::vector<std::string>{info(3), data("new"), end(digestOf("nex"))},
          std::vector<std::string>{info(4), data("new"), end(digestOf("new"))}}) {
        FakeNodeAgent agent(filesOf(node), giving(frames));
        const CResult result = run(agent, "[getfile]" + file("a"));
        EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
        EXPECT_THAT(result.getRunSummary(), testing::HasSubstr("damaged"));
        EXPECT_EQ("old", readFile(file("a")));
        EXPECT_EQ(1U, entries());
    }
}

TEST_F(FileTransfer, FramesOutOfPlaceDuringAGetEndTheConnection) {
    writeFile(file("a"), "old");
    for (const std::vector<std::string>& frames :
         {std::vector<std::string>{data("new")}, std::vector<std::string>{end(digestOf(""))},
          std::vector<std::string>{info(3), info(3)},
          std::vector<std::string>{info(3), data("toolong")},
          std::vector<std::string>{info(3), FakeNodeAgent::frame(FrameType::kOutput, "x")}}) {
        FakeNodeAgent agent(filesOf(node), giving(frames));
        EXPECT_THAT(errorOf([&] { run(agent, "[getfile]" + file("a")); }),
                    testing::HasSubstr("connection lost"));
        EXPECT_EQ("old", readFile(file("a")));
        EXPECT_EQ(1U, entries());
    }
}

TEST_F(FileTransfer, AnAgentThatDiesDuringAGetLeavesTheOldFile) {
    writeFile(file("a"), "old");
    FakeNodeAgent agent(filesOf(node), [](TlsChannel& channel) {
        FakeNodeAgent::greet(channel);
        (void)channel.receiveFrame(FakeNodeAgent::soon());
        FakeNodeAgent::send(channel, info(1000000));
        FakeNodeAgent::send(channel, data(std::string(100000, 'x')));
    });
    EXPECT_THAT(errorOf([&] { run(agent, "[getfile]" + file("a")); }),
                testing::HasSubstr("connection lost"));
    EXPECT_EQ("old", readFile(file("a")));
    EXPECT_EQ(1U, entries());
}

TEST_F(FileTransfer, AGetCutByItsTimeOutSaysHowFarItGot) {
    writeFile(file("a"), "old");
    FakeNodeAgent agent(filesOf(node), giving({info(1000), data(std::string(300, 'x'))}));
    const CResult result = run(agent, "[getfile]" + file("a"), 50);
    EXPECT_EQ(EXEC_TIMED_OUT, result.getRunStatus());
    EXPECT_THAT(result.getRunSummary(), MentionsAll(parts({"300 of 1000 bytes", "\"-t\""})));
    EXPECT_EQ("old", readFile(file("a")));
    EXPECT_EQ(1U, entries());
}

TEST_F(FileTransfer, GetIntoAnUnfitPlaceAsksNothing) {
    FakeNode fake;
    FakeNodeAgent agent(filesOf(node), fake.script());
    for (const std::string& path : {files(), std::string("relative"), file("none/x"),
                                    std::string("/dev/null"), std::string()}) {
        const CResult result = run(agent, "[getfile]" + path, 1000);
        EXPECT_EQ(EXEC_FAILURE, result.getRunStatus()) << path;
        EXPECT_FALSE(result.getRunSummary().empty());
    }
}

TEST_F(FileTransfer, AFullDiskLeavesTheOldFile) {
    // A limit on the size of files stands in for a full disk: the write fails in the same place.
    writeFile(file("a"), "old");
    FakeNode fake;
    fake.setFile(file("a"), pattern(1000000));
    FakeNodeAgent agent(filesOf(node), fake.script());
    rlimit before{};
    ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &before));
    rlimit small = before;
    small.rlim_cur = 500000;
    const auto old = signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &small));
    const CResult result = run(agent, "[getfile]" + file("a"));
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &before));
    signal(SIGXFSZ, old);
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_THAT(result.getRunSummary(), MentionsAll(parts({file("a"), "File too large"})));
    EXPECT_EQ("old", readFile(file("a")));
    EXPECT_EQ(1U, entries());
}

TEST_F(FileTransfer, SeveralNodesSendingToOnePathLeaveOneWholeFile) {
    std::vector<std::unique_ptr<FakeNode>> nodes;
    std::vector<std::unique_ptr<FakeNodeAgent>> agents;
    for (char who = 'a'; who < 'i'; ++who) {
        nodes.push_back(std::make_unique<FakeNode>());
        nodes.back()->setFile(file("same"), std::string(500000, who));
        agents.push_back(std::make_unique<FakeNodeAgent>(filesOf(node), nodes.back()->script()));
    }
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (const auto& agent : agents) {
        threads.emplace_back([&] {
            good += run(*agent, "[getfile]" + file("same")).getRunStatus() == EXEC_SUCCESS ? 1 : 0;
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(8, good);
    const std::string content = readFile(file("same"));
    EXPECT_EQ(std::string(500000, content.front()), content);
    EXPECT_EQ(1U, entries());
}
