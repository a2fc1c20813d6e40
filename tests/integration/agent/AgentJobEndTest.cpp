#include <algorithm>

#include <gtest/gtest.h>

#include "LocalAgent.h"
#include "TestPaths.h"

namespace {

std::string uniqueToken() {
    static int count = 0;
    return "escapee-" + std::to_string(::getpid()) + "-" + std::to_string(++count);
}

// Of a process whose first thread has ended, only the others still know it.
bool hasInCommandLine(const std::filesystem::path& process, const std::string& token) {
    if (LocalAgent::read(process.string() + "/cmdline").find(token) != std::string::npos) {
        return true;
    }
    std::error_code gone;
    for (const auto& task : std::filesystem::directory_iterator(process / "task", gone)) {
        if (LocalAgent::read(task.path().string() + "/cmdline").find(token) != std::string::npos) {
            return true;
        }
    }
    return false;
}

// How many live processes have the token in their command line.
int survivors(const std::string& token) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") == std::string::npos &&
            name != std::to_string(::getpid()) && hasInCommandLine(entry.path(), token)) {
            ++count;
        }
    }
    return count;
}

std::string escapeLine(const std::string& way, const std::string& token) {
    return std::string(KELSH_BINARY_DIR) + "/bin/escapee " + way + " " + token;
}

void sendExec(TlsChannel& channel, const std::string& line, std::uint32_t timeOutMs = 0,
              std::uint8_t flags = 0) {
    protocol::Exec exec;
    exec.timeOutMs = timeOutMs;
    exec.commandLine = line;
    channel.sendFrame(protocol::encode(exec, flags), LocalAgent::soon());
}

class AgentJobEnd : public testing::Test {
protected:
    LocalAgent agent;
};

class AgentJobEscape : public testing::TestWithParam<const char*> {
protected:
    LocalAgent agent;
};

}  // namespace

TEST_P(AgentJobEscape, NothingSurvivesTheTimeOut) {
    const std::string token = uniqueToken();
    CResult result;
    agent.connect()->execute(escapeLine(GetParam(), token), 700, &result);
    EXPECT_EQ(5, static_cast<int>(result.getRunStatus()));
    EXPECT_TRUE(waitFor([&] { return survivors(token) == 0; }, std::chrono::seconds(20)))
        << survivors(token) << " left";
    EXPECT_TRUE(waitFor([&] { return agent.records().empty(); }));
}

TEST_P(AgentJobEscape, NothingSurvivesTheDisconnect) {
    const std::string token = uniqueToken();
    auto channel = agent.openChannel();
    sendExec(*channel, escapeLine(GetParam(), token));
    ASSERT_TRUE(waitFor([&] { return survivors(token) > 0; }));
    channel.reset();
    EXPECT_TRUE(waitFor([&] { return survivors(token) == 0; }, std::chrono::seconds(20)))
        << survivors(token) << " left";
    EXPECT_TRUE(agent.waitForLog("cancelled"));
}

INSTANTIATE_TEST_SUITE_P(Ways, AgentJobEscape,
                         testing::Values("foreground", "setsid", "double-fork", "daemon", "nohup",
                                         "ignore-term", "stopped", "storm", "great-storm",
                                         "hopping", "vfork", "threads", "held-pipe"),
                         [](const testing::TestParamInfo<const char*>& way) {
                             std::string name = way.param;
                             name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
                             return name;
                         });

TEST_F(AgentJobEnd, KilledSessionIsNoticedAtOnceAndItsJobEnds) {
    const std::string token = uniqueToken();
    auto channel = agent.openChannel();
    sendExec(*channel, escapeLine("setsid", token));
    ASSERT_TRUE(waitFor([&] { return survivors(token) > 0; }));
    const std::vector<pid_t> sessions = agent.processes("kelnode-session");
    ASSERT_EQ(1U, sessions.size());
    ::kill(sessions.front(), SIGKILL);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THROW(channel->receiveFrame(LocalAgent::soon()), ChannelError);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    EXPECT_TRUE(waitFor([&] { return survivors(token) == 0; }));
    EXPECT_TRUE(agent.waitForLog("was ended by signal 9"));
    EXPECT_TRUE(waitFor([&] { return agent.records().empty(); }));
}

TEST_F(AgentJobEnd, JobEndsEvenWhenSessionAndSupervisorAreKilled) {
    const std::string token = uniqueToken();
    auto channel = agent.openChannel();
    sendExec(*channel, escapeLine("double-fork", token));
    ASSERT_TRUE(waitFor([&] { return survivors(token) > 1; }));
    const std::vector<pid_t> sessions = agent.processes("kelnode-session");
    const std::vector<pid_t> supervisors = agent.processes("kelnode-job");
    ASSERT_EQ(1U, sessions.size());
    ASSERT_EQ(1U, supervisors.size());
    ::kill(sessions.front(), SIGSTOP);
    ::kill(supervisors.front(), SIGKILL);
    ::kill(sessions.front(), SIGKILL);
    EXPECT_TRUE(waitFor([&] { return survivors(token) == 0; })) << survivors(token) << " left";
    EXPECT_TRUE(waitFor([&] { return agent.records().empty(); }));
}

TEST_F(AgentJobEnd, LostSupervisorIsReportedAndItsJobEnds) {
    const std::string token = uniqueToken();
    auto channel = agent.openChannel();
    sendExec(*channel, escapeLine("setsid", token));
    ASSERT_TRUE(waitFor([&] { return survivors(token) > 1; }));
    ::kill(agent.processes("kelnode-job").at(0), SIGKILL);
    const protocol::Frame frame = channel->receiveFrame(LocalAgent::soon());
    ASSERT_EQ(protocol::FrameType::kResult, frame.header.type);
    protocol::Result result;
    protocol::decode(frame.body, result);
    EXPECT_EQ(protocol::Result::Ending::kCancelled, result.ending);
    EXPECT_NE(result.text.find("supervisor"), std::string::npos);
    EXPECT_TRUE(waitFor([&] { return survivors(token) == 0; })) << survivors(token) << " left";
}

TEST_F(AgentJobEnd, SlowReaderBlocksTheJobAndNotTheTimeOut) {
    auto channel = agent.openChannel();
    const std::string token = uniqueToken();
    sendExec(*channel, "head -c 1073741824 /dev/zero; : " + token, 1000);
    // Nothing is read: the job stands still, and is ended in time all the same.
    ASSERT_TRUE(waitFor([&] { return survivors(token) > 0; }));
    EXPECT_TRUE(waitFor([&] { return survivors(token) == 0; }, std::chrono::seconds(8)));
    EXPECT_TRUE(agent.waitForLog("head -c"));
    CResult result;
    agent.connect()->execute("echo alive", 20000, &result);
    EXPECT_EQ("alive\n", result.getRunSummary());
}

TEST_F(AgentJobEnd, ReaderAsSlowAsItMayBeGetsEveryByteOfAFlood) {
    auto channel = agent.openChannel();
    sendExec(*channel, "head -c 67108864 /dev/zero");
    std::uint64_t bytes = 0;
    protocol::Frame frame;
    do {
        channel->receiveFrame(frame, LocalAgent::soon());
        bytes += frame.header.type == protocol::FrameType::kOutput ? frame.body.size() : 0;
    } while (frame.header.type == protocol::FrameType::kOutput);
    EXPECT_EQ(protocol::FrameType::kResult, frame.header.type);
    EXPECT_EQ(67108864U, bytes);
}

TEST_F(AgentJobEnd, AgentSurvivesAFloodOfAGigabyte) {
    CResult result;
    agent.connect()->execute("head -c 1073741824 /dev/zero", 240000, &result);
    EXPECT_EQ(0, static_cast<int>(result.getRunStatus()));
    EXPECT_GT(result.getRunSummary().size(), 64U * 1024 * 1024 - 1);
}

TEST_F(AgentJobEnd, ClosedOutputDoesNotEndTheJob) {
    CResult result;
    agent.connect()->execute("exec >&- 2>&-; sleep 0.3; exit 4", 20000, &result);
    EXPECT_EQ(4, result.getExitCode());
}

TEST_F(AgentJobEnd, SigtermEndsTheListenerAndOrdinaryJobs) {
    const std::string token = uniqueToken();
    auto channel = agent.openChannel();
    sendExec(*channel, escapeLine("setsid", token));
    ASSERT_TRUE(waitFor([&] { return survivors(token) > 0; }));
    agent.signal(SIGTERM);
    EXPECT_TRUE(agent.waitForExit());
    EXPECT_EQ(0, agent.exitStatus());
    EXPECT_EQ(0, survivors(token));
    EXPECT_TRUE(agent.records().empty());
}

TEST_F(AgentJobEnd, SessionOutlivesItsKilledListener) {
    const auto client = agent.connect();
    CResult result;
    // Nobody is served without the listener's leave, which a session asks for once.
    client->execute("echo served", 20000, &result);
    agent.signal(SIGKILL);
    ASSERT_TRUE(agent.waitForExit());
    client->execute("echo still here", 20000, &result);
    EXPECT_EQ("still here\n", result.getRunSummary());
}

TEST_F(AgentJobEnd, JobThatStopsItsSupervisorEndsAtItsTimeOut) {
    const std::string token = uniqueToken();
    const auto client = agent.connect();
    CResult result;
    client->execute("kill -STOP $PPID; env -i " + escapeLine("setsid", token), 300, &result);
    EXPECT_EQ(EXEC_TIMED_OUT, static_cast<int>(result.getRunStatus()));
    EXPECT_TRUE(waitFor([&] { return survivors(token) == 0; }));
    EXPECT_TRUE(waitFor([&] { return agent.processes("kelnode-job").empty(); }));
    EXPECT_TRUE(agent.waitForLog("has been stopped"));
}

TEST_F(AgentJobEnd, JobThatStopsItsSupervisorEndsWithItsConnection) {
    const std::string token = uniqueToken();
    auto channel = agent.openChannel();
    sendExec(*channel, "kill -STOP $PPID; env -i " + escapeLine("setsid", token));
    ASSERT_TRUE(waitFor([&] { return survivors(token) > 0; }));
    channel.reset();
    EXPECT_TRUE(waitFor([&] { return survivors(token) == 0; }));
}
