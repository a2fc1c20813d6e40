#include <random>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>

#include <gtest/gtest.h>

#include "CException.h"
#include "Dialer.h"
#include "FileDigest.h"
#include "LocalAgent.h"
#include "Sanitizers.h"

namespace {

using protocol::FrameType;

constexpr std::uint64_t kMebi = 1024 * 1024;

std::string digestOf(const std::string& content) {
    FileDigest digest;
    digest.update(content.data(), content.size());
    return digest.finish();
}

std::string dataFrame(const std::string& bytes) {
    return protocol::encodeHeader({static_cast<std::uint32_t>(bytes.size()), FrameType::kData, 0}) +
           bytes;
}

// The answer to a transfer, for comparing.
struct Answer {
    FrameType type = FrameType::kError;
    std::uint16_t code = 0;
    std::string text;
    std::string content;
    std::uint32_t mode = 0;
    bool digestFits = false;
};

Answer decodeAnswer(const protocol::Frame& frame) {
    Answer answer;
    answer.type = frame.header.type;
    if (answer.type == FrameType::kError) {
        protocol::Error error;
        protocol::decode(frame.body, error);
        answer.code = error.code;
        answer.text = error.text;
    } else if (answer.type == FrameType::kResult) {
        protocol::Result result;
        protocol::decode(frame.body, result);
        answer.text = result.text;
    }
    return answer;
}

std::string beginOf(const std::string& path, std::size_t bytes) {
    std::string text(bytes, '?');
    std::ifstream(path, std::ios::binary).read(text.data(), static_cast<std::streamsize>(bytes));
    return text;
}

void sendPut(TlsChannel& channel, const std::string& path, std::uint64_t size,
             std::uint32_t mode = 0644, std::uint32_t timeOutMs = 0) {
    protocol::Put put;
    put.path = path;
    put.size = size;
    put.mode = mode;
    put.timeOutMs = timeOutMs;
    channel.sendFrame(protocol::encode(put), LocalAgent::soon());
}

// Sends everything unless the agent objects, and returns its answer.
Answer putFile(TlsChannel& channel, const std::string& path, const std::string& content,
               std::uint32_t mode = 0644, std::string digest = "") {
    sendPut(channel, path, content.size(), mode);
    bool wanted = true;
    for (std::size_t at = 0; wanted && at < content.size(); at += protocol::kDataChunkBytes) {
        wanted = channel.sendFrameUnlessAnswered(
            dataFrame(content.substr(at, protocol::kDataChunkBytes)), LocalAgent::soon());
    }
    if (wanted) {
        protocol::End end;
        end.digest = digest.empty() ? digestOf(content) : digest;
        channel.sendFrameUnlessAnswered(protocol::encode(end), LocalAgent::soon());
    }
    return decodeAnswer(channel.receiveFrame(LocalAgent::soon()));
}

Answer getFile(TlsChannel& channel, const std::string& path,
               const std::function<void()>& afterInfo = nullptr) {
    protocol::Get get;
    get.path = path;
    channel.sendFrame(protocol::encode(get), LocalAgent::soon());
    protocol::Frame frame = channel.receiveFrame(LocalAgent::soon());
    if (frame.header.type != FrameType::kFileInfo) {
        return decodeAnswer(frame);
    }
    protocol::FileInfo info;
    protocol::decode(frame.body, info);
    if (afterInfo) {
        afterInfo();
    }
    std::string content;
    for (;;) {
        channel.receiveFrame(frame, LocalAgent::soon());
        if (frame.header.type != FrameType::kData) {
            break;
        }
        content += frame.body;
    }
    Answer answer = decodeAnswer(frame);
    if (frame.header.type == FrameType::kEnd) {
        protocol::End end;
        protocol::decode(frame.body, end);
        answer.digestFits = end.digest == digestOf(content) && content.size() == info.size;
        answer.content = content;
        answer.mode = info.mode;
    }
    return answer;
}

class AgentFiles : public testing::Test {
protected:
    AgentFiles() { std::filesystem::create_directory(directory()); }
    ~AgentFiles() override {
        if (mounted) {
            ::umount2(mountPoint().c_str(), MNT_DETACH);
        }
    }

    std::string directory() const { return agent.nodePath() + "files"; }
    std::string file(const std::string& name) const { return directory() + "/" + name; }
    std::string mountPoint() const { return file("mounted"); }
    void write(const std::string& path, const std::string& content) const {
        std::ofstream(path, std::ios::binary) << content;
    }

    // The agent runs as this user, in this mount name space.
    void mountSmall(const char* options, unsigned long flags = 0) {
        std::filesystem::create_directory(mountPoint());
        ASSERT_EQ(0, ::mount("tmpfs", mountPoint().c_str(), "tmpfs", flags, options))
            << "the agent's tests need root";
        mounted = true;
    }

    void expectFault(const Answer& answer, const std::string& part,
                     std::uint16_t code = protocol::kErrorFile) {
        EXPECT_EQ(FrameType::kError, answer.type);
        EXPECT_EQ(answer.code, code) << answer.text;
        EXPECT_NE(answer.text.find(part), std::string::npos) << answer.text;
    }

    LocalAgent agent;
    bool mounted = false;
};

}  // namespace

TEST_F(AgentFiles, ContentAndModeAreKeptBothWays) {
    const std::string content = std::string(300000, 'x') + std::string("\0\n\xff", 3);
    const Answer saved = putFile(*agent.openChannel(), file("a"), content, 0751);
    EXPECT_EQ(FrameType::kResult, saved.type);
    EXPECT_NE(saved.text.find(file("a")), std::string::npos) << saved.text;
    EXPECT_NE(saved.text.find("300003 bytes"), std::string::npos) << saved.text;
    EXPECT_NE(saved.text.find(FileDigest::shortHex(digestOf(content))), std::string::npos);
    EXPECT_EQ(content, LocalAgent::read(file("a")));
    struct stat found {};
    ASSERT_EQ(0, ::stat(file("a").c_str(), &found));
    EXPECT_EQ(0751U, found.st_mode & 07777U);
    const Answer got = getFile(*agent.openChannel(), file("a"));
    EXPECT_TRUE(got.digestFits);
    EXPECT_EQ(got.content, content);
    EXPECT_EQ(0751U, got.mode);
}

TEST_F(AgentFiles, PrivilegeBitsAreDropped) {
    write(file("tool"), "old");
    ASSERT_EQ(0, ::chmod(file("tool").c_str(), 06755));
    EXPECT_EQ(0755U, getFile(*agent.openChannel(), file("tool")).mode);
    EXPECT_EQ(FrameType::kResult, putFile(*agent.openChannel(), file("tool"), "new", 07755).type);
    struct stat found {};
    ASSERT_EQ(0, ::stat(file("tool").c_str(), &found));
    EXPECT_EQ(0755U, found.st_mode & 07777U);
}

TEST_F(AgentFiles, EmptyFileTravelsBothWays) {
    EXPECT_EQ(FrameType::kResult, putFile(*agent.openChannel(), file("empty"), "").type);
    EXPECT_TRUE(std::filesystem::exists(file("empty")));
    EXPECT_TRUE(getFile(*agent.openChannel(), file("empty")).digestFits);
}

TEST_F(AgentFiles, OddNamesAreJustNames) {
    for (const std::string& name :
         {std::string(255, 'n'), std::string("two blanks  here"), std::string("quo\"te'"),
          std::string("line\nbreak"), std::string("gr\xc3\xbc\xc3\x9f"), std::string("$(reboot)"),
          std::string("\xff\xfe"), std::string("-rf")}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(FrameType::kResult, putFile(*agent.openChannel(), file(name), name).type);
        EXPECT_EQ(name, LocalAgent::read(file(name)));
        EXPECT_EQ(name, getFile(*agent.openChannel(), file(name)).content);
    }
}

TEST_F(AgentFiles, UnfitPathsAreRefusedWithTheReason) {
    ASSERT_EQ(0, ::mkfifo(file("fifo").c_str(), 0600));
    const std::vector<std::pair<std::string, std::string>> cases{
        {"relative", "not an absolute path"}, {"", "not an absolute path"},
        {directory(), "is a directory"},      {directory() + "/", "is a directory"},
        {"/dev/null", "not a regular file"},  {file("fifo"), "not a regular file"},
        {file("no/such"), "No such file"},    {file(std::string(256, 'n')), "File name too long"}};
    for (const auto& item : cases) {
        SCOPED_TRACE(item.first);
        expectFault(putFile(*agent.openChannel(), item.first, "x"), item.second);
        expectFault(getFile(*agent.openChannel(), item.first), item.second);
    }
    EXPECT_EQ(std::vector<std::string>{"fifo"}, LocalAgent::list(directory()));
}

TEST_F(AgentFiles, FailedGetLeavesTheConnectionUsable) {
    auto channel = agent.openChannel();
    expectFault(getFile(*channel, file("missing")), "No such file");
    write(file("there"), "content");
    EXPECT_EQ("content", getFile(*channel, file("there")).content);
}

TEST_F(AgentFiles, LinkIsReplacedAndNeverWrittenThrough) {
    write(file("target"), "precious");
    std::filesystem::create_symlink(file("target"), file("link"));
    EXPECT_EQ(FrameType::kResult, putFile(*agent.openChannel(), file("link"), "new").type);
    EXPECT_EQ("precious", LocalAgent::read(file("target")));
    EXPECT_FALSE(std::filesystem::is_symlink(file("link")));
    EXPECT_EQ("new", LocalAgent::read(file("link")));
}

TEST_F(AgentFiles, TargetThatKeepsChangingItsKindIsNeverWrittenThrough) {
    write(file("precious"), "precious");
    std::atomic<bool> stop{false};
    std::thread changer([&] {
        std::error_code ignored;
        while (!stop) {
            std::filesystem::remove_all(file("target"), ignored);
            std::filesystem::create_symlink(file("precious"), file("target"), ignored);
            std::filesystem::remove(file("target"), ignored);
            std::filesystem::create_directory(file("target"), ignored);
        }
    });
    for (int i = 0; i < 60; ++i) {
        const Answer answer = putFile(*agent.openChannel(), file("target"), "new content");
        EXPECT_TRUE(answer.type == FrameType::kResult || answer.code == protocol::kErrorFile)
            << answer.text;
    }
    stop = true;
    changer.join();
    EXPECT_EQ("precious", LocalAgent::read(file("precious")));
    for (const std::string& name : LocalAgent::list(directory())) {
        EXPECT_TRUE(name == "precious" || name == "target") << name;
    }
}

TEST_F(AgentFiles, DamagedUploadLeavesTheOldFile) {
    write(file("a"), "old");
    expectFault(putFile(*agent.openChannel(), file("a"), "new", 0644, std::string(32, 'x')),
                "damaged", protocol::kErrorDigest);
    auto tooShort = agent.openChannel();
    sendPut(*tooShort, file("a"), 10);
    tooShort->sendFrame(dataFrame("12345") + protocol::encode(protocol::End{digestOf("12345")}),
                        LocalAgent::soon());
    expectFault(decodeAnswer(tooShort->receiveFrame(LocalAgent::soon())), "5 of 10",
                protocol::kErrorDigest);
    auto tooLong = agent.openChannel();
    sendPut(*tooLong, file("a"), 3);
    tooLong->sendFrame(dataFrame("12345"), LocalAgent::soon());
    expectFault(decodeAnswer(tooLong->receiveFrame(LocalAgent::soon())), "More bytes",
                protocol::kErrorDigest);
    EXPECT_EQ("old", LocalAgent::read(file("a")));
    EXPECT_EQ(std::vector<std::string>{"a"}, LocalAgent::list(directory()));
}

TEST_F(AgentFiles, UploadThatTakesTooLongSaysHowFarItGot) {
    write(file("a"), "old");
    auto channel = agent.openChannel();
    sendPut(*channel, file("a"), 1000, 0644, 300);
    channel->sendFrame(dataFrame("12345"), LocalAgent::soon());
    expectFault(decodeAnswer(channel->receiveFrame(LocalAgent::soon())), "5 of 1000",
                protocol::kErrorTimedOut);
    EXPECT_EQ("old", LocalAgent::read(file("a")));
}

TEST_F(AgentFiles, FullDiskIsReportedAndTheOldFileStays) {
    mountSmall("size=2m");
    const std::string path = mountPoint() + "/a";
    write(path, "old");
    expectFault(putFile(*agent.openChannel(), path, std::string(8 * kMebi, 'x')),
                "No space left on device");
    EXPECT_EQ("old", LocalAgent::read(path));
    EXPECT_EQ(std::vector<std::string>{"a"}, LocalAgent::list(mountPoint()));
    EXPECT_EQ(FrameType::kResult, putFile(*agent.openChannel(), path, "fits").type);
}

TEST_F(AgentFiles, ReadOnlyFileSystemIsReported) {
    mountSmall("size=2m", MS_RDONLY);
    expectFault(putFile(*agent.openChannel(), mountPoint() + "/a", "x"), "Read-only file system");
}

TEST_F(AgentFiles, CommandsRunOnAFullDiskToo) {
    mountSmall("size=64k");
    // The agent's own directory is what is full.
    ASSERT_EQ(0, ::mount(mountPoint().c_str(), agent.runPath().c_str(), nullptr, MS_BIND, nullptr));
    {
        std::ofstream filler(mountPoint() + "/filler");
        filler << std::string(kMebi, 'x');
    }
    CResult result;
    agent.connect()->execute("echo still works", 20000, &result);
    ::umount2(agent.runPath().c_str(), MNT_DETACH);
    EXPECT_EQ("still works\n", result.getRunSummary());
}

TEST_F(AgentFiles, FileThatChangesWhileItIsReadIsRefused) {
    const std::string big(64 * kMebi, 'x');
    write(file("growing"), big);
    expectFault(getFile(*agent.openChannel(), file("growing"),
                        [&] { std::ofstream(file("growing"), std::ios::app) << "more"; }),
                "while it was being read");
    write(file("shrinking"), big);
    expectFault(getFile(*agent.openChannel(), file("shrinking"),
                        [&] { std::filesystem::resize_file(file("shrinking"), 1000); }),
                "while it was being read");
}

// What is left of the last record waits inside TLS, where no event of the socket tells of it.
TEST_F(AgentFiles, BurstThatFillsTheNetworkSideArrives) {
    constexpr std::size_t kHolds = std::size_t{64} * 1024;
    const auto channel = agent.openChannel();
    const pid_t pid = agent.processes("kelnode-network").at(0);
    protocol::Put put;
    put.path = file("burst");
    const std::size_t putBytes = protocol::encode(put).size();
    // The buffer is full in the middle of the END frame.
    const std::string content(kHolds - putBytes - 2 * protocol::kHeaderBytes, 'x');
    protocol::End end;
    end.digest = digestOf(content);
    ::kill(pid, SIGSTOP);
    std::thread sender([&] {
        sendPut(*channel, put.path, content.size());
        channel->sendFrame(dataFrame(content), LocalAgent::soon());
        channel->sendFrame(protocol::encode(end), LocalAgent::soon());
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    ::kill(pid, SIGCONT);
    sender.join();
    EXPECT_EQ(FrameType::kResult, decodeAnswer(channel->receiveFrame(LocalAgent::soon())).type);
    EXPECT_EQ(content, LocalAgent::read(put.path));
}

TEST_F(AgentFiles, SeveralUploadsToOnePathLeaveOneOfThemWhole) {
    std::vector<std::thread> threads;
    for (char letter = 'a'; letter < 'i'; ++letter) {
        threads.emplace_back([this, letter] {
            EXPECT_EQ(
                FrameType::kResult,
                putFile(*agent.openChannel(), file("shared"), std::string(2 * kMebi, letter)).type);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::string content = LocalAgent::read(file("shared"));
    ASSERT_EQ(2 * kMebi, content.size());
    EXPECT_EQ(std::string(content.size(), content.front()), content);
    EXPECT_EQ(std::vector<std::string>{"shared"}, LocalAgent::list(directory()));
}

// Of the processes that a transfer takes part in, in KiB.
struct Peaks {
    long session = 0;
    long network = 0;
    long master = 0;

    static long of(const std::string& process) {
        const std::string status = LocalAgent::read("/proc/" + process + "/status");
        const std::string::size_type peak = status.find("VmHWM:");
        EXPECT_NE(peak, std::string::npos) << process;
        return peak == std::string::npos ? 0 : std::atol(status.c_str() + peak + 6);
    }
};

TEST_F(AgentFiles, MemoryDoesNotGrowWithTheFile) {
    // The peak of this process is that of earlier tests otherwise.
    std::ofstream("/proc/self/clear_refs") << "5";
    for (const char* direction : {"[savefile]", "[getfile]"}) {
        SCOPED_TRACE(direction);
        const auto transfer = [&](std::uint64_t size) {
            write(file("sparse"), "begin");
            std::filesystem::resize_file(file("sparse"), size);
            // It replaces itself: the node and this master share the directory.
            const auto client = agent.connect();
            CResult result;
            client->execute(direction + file("sparse"), 0, &result);
            EXPECT_EQ(0, static_cast<int>(result.getRunStatus())) << result.getRunSummary();
            Peaks peaks;
            peaks.session = Peaks::of(std::to_string(agent.processes("kelnode-session").at(0)));
            peaks.network = Peaks::of(std::to_string(agent.processes("kelnode-network").at(0)));
            peaks.master = Peaks::of("self");
            return peaks;
        };
        const Peaks small = transfer(32 * kMebi);
        Dialer::process().pool().clear();
        ASSERT_TRUE(waitFor([&] { return agent.processes("kelnode-network").empty(); }));
        const Peaks large = transfer(512 * kMebi);
        Dialer::process().pool().clear();
        ASSERT_TRUE(waitFor([&] { return agent.processes("kelnode-network").empty(); }));
        constexpr long kBoundKib = 32 * 1024;
        // The address sanitizer keeps memory that was given back for a while, up to its default of
        // so much; the file is larger.
        constexpr long kKeptKib = kAddressSanitizer ? 256 * 1024 : 0;
        EXPECT_LT(large.session - small.session, kBoundKib + kKeptKib) << small.session;
        EXPECT_LT(large.network - small.network, kBoundKib + kKeptKib) << small.network;
        EXPECT_LT(large.master - small.master, kBoundKib + kKeptKib) << small.master;
        // Sanitizers need more than that themselves.
        if (!kSanitizersAllocator) {
            EXPECT_LT(large.session, kBoundKib);
            EXPECT_LT(large.network, kBoundKib);
        }
    }
}

TEST_F(AgentFiles, WhateverIsKilledLeavesTheOldFileOrTheNewOne) {
    const unsigned int seed = std::random_device{}();
    RecordProperty("seed", std::to_string(seed));
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const std::string older(8 * kMebi, 'o');
    const std::string newer(8 * kMebi, 'n');
    for (int round = 0; round < 51; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        write(file("target"), older);
        auto channel = agent.openChannel();
        const pid_t session = agent.processes("kelnode-session").back();
        const auto delay = std::chrono::microseconds(random() % 60000);
        std::thread uploader([&] {
            try {
                putFile(*channel, file("target"), newer);
            } catch (const CException& cut) {
                EXPECT_FALSE(cut.getErrMsg().empty());
            }
        });
        const auto end = std::chrono::steady_clock::now() + delay;
        while (std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
        }
        if (round % 3 == 0) {
            ::kill(session, SIGKILL);
        } else if (round % 3 == 1) {
            // As a master that dies: the connection is cut where it stands.
            ::shutdown(channel->descriptor(), SHUT_RDWR);
        } else {
            agent.signal(SIGKILL);
            ASSERT_TRUE(agent.waitForExit());
        }
        uploader.join();
        channel.reset();
        if (round % 3 == 2) {
            agent.start();
        }
        const std::string content = LocalAgent::read(file("target"));
        EXPECT_TRUE(content == older || content == newer) << content.size();
        EXPECT_TRUE(waitFor(
            [&] { return LocalAgent::list(directory()) == std::vector<std::string>{"target"}; }));
    }
    EXPECT_TRUE(waitFor([&] { return agent.records().empty(); }));
}

TEST_F(AgentFiles, SparseFileOfFiveGibibytesTravelsWhole) {
    const std::uint64_t size = 5120 * kMebi;
    write(file("huge"), "begin");
    std::filesystem::resize_file(file("huge"), size);
    // It replaces itself: the node and this master share the directory.
    for (const char* direction : {"[savefile]", "[getfile]"}) {
        SCOPED_TRACE(direction);
        CResult result;
        agent.connect()->execute(direction + file("huge"), 0, &result);
        EXPECT_EQ(0, static_cast<int>(result.getRunStatus())) << result.getRunSummary();
        EXPECT_EQ(size, std::filesystem::file_size(file("huge")));
        EXPECT_EQ(std::string("begin\0", 6), beginOf(file("huge"), 6));
        struct stat found {};
        ASSERT_EQ(0, ::stat(file("huge").c_str(), &found));
        EXPECT_LT(static_cast<std::uint64_t>(found.st_blocks) * 512, 64 * kMebi);
    }
}
