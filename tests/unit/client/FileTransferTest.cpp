// The client's part in moving files.

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FileDigest.h"
#include "FileFixture.h"

using protocol::FrameType;

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

TEST_F(FileTransfer, AFileGotHasNoMoreRightsThanThisShellGivesItsOwn) {
    const mode_t before = ::umask(027);
    for (const std::uint32_t told : {0777U, 0666U, 0600U}) {
        FakeNodeAgent agent(filesOf(node), giving({info(0, told), end(digestOf(""))}));
        EXPECT_EQ(EXEC_SUCCESS, run(agent, "[getfile]" + file("got")).getRunStatus());
        EXPECT_EQ(told & 0750U, modeOf(file("got")));
    }
    ::umask(before);
}

TEST_F(FileTransfer, AFileLargerThanTheDiskIsRefusedBeforeItsFirstByte) {
    writeFile(file("got"), "old");
    FakeNodeAgent agent(filesOf(node), giving({info(std::uint64_t{1} << 60)}));
    const CResult result = run(agent, "[getfile]" + file("got"));
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_THAT(result.getRunSummary(), testing::HasSubstr("There is no room for"));
    EXPECT_EQ("old", readFile(file("got")));
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
