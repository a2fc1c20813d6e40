#include <thread>

#include <gtest/gtest.h>

#include "CException.h"
#include "LocalAgent.h"
#include "ProcessTree.h"

// A stand-in for a flasher: writes its progress, takes a while, and leaves a mark only if nothing
// has cut it short.

namespace {

// Real flashers take longer than a test may; KELSH_TEST_FLASH_SECONDS asks for that.
int flashSeconds() {
    const char* wanted = std::getenv("KELSH_TEST_FLASH_SECONDS");
    return wanted != nullptr ? std::atoi(wanted) : 2;
}

class AgentFirmware : public testing::Test {
protected:
    std::string flash(const std::string& seconds = std::to_string(flashSeconds())) const {
        return "echo erasing; touch " + started() + "; sleep " + seconds +
               "; echo writing; echo written > " + mark() + "; exit 0";
    }
    std::string mark() const { return agent.nodePath() + "flashed"; }
    std::string started() const { return agent.nodePath() + "flash-started"; }
    bool hasStarted() const {
        return waitFor([this] { return std::filesystem::exists(started()); });
    }
    bool completes() const {
        return waitFor([this] { return LocalAgent::read(mark()) == "written\n"; },
                       std::chrono::seconds(20 + flashSeconds()));
    }
    static TlsChannel::Deadline afterTheFlash() {
        return TlsChannel::after(20000 + 1000UL * static_cast<unsigned long>(flashSeconds()));
    }
    // Whatever else has gone wrong, nobody else may flash now.
    void expectSecondRefused() const {
        const auto second = sendFlash("echo second");
        EXPECT_EQ(protocol::FrameType::kError,
                  second->receiveFrame(LocalAgent::soon()).header.type);
    }

    std::unique_ptr<TlsChannel> sendFlash(const std::string& line,
                                          std::uint32_t timeOutMs = 0) const {
        auto channel = agent.openChannel();
        protocol::Exec exec;
        exec.timeOutMs = timeOutMs;
        exec.commandLine = line;
        channel->sendFrame(protocol::encode(exec, protocol::kFlagUninterruptible),
                           LocalAgent::soon());
        return channel;
    }

    LocalAgent agent;
};

}  // namespace

TEST_F(AgentFirmware, OutputAndOutcomeComeBack) {
    const auto client = agent.connect();
    client->setUninterruptible(true);
    CResult result;
    client->execute(flash("0.2") + "7", 20000, &result);
    EXPECT_EQ("erasing\nwriting\n", result.getRunSummary());
    EXPECT_EQ(7, result.getExitCode());
    EXPECT_TRUE(agent.waitForLog("ended with exit code 7"));
    EXPECT_TRUE(agent.records().empty());
}

TEST_F(AgentFirmware, SecondOneIsRefusedWithWhatIsRunning) {
    const auto channel = sendFlash(flash());
    ASSERT_TRUE(hasStarted());
    const auto client = agent.connect();
    client->setUninterruptible(true);
    CResult result;
    try {
        client->execute("echo second", 20000, &result);
        FAIL() << "the second job ran";
    } catch (const CException& refused) {
        EXPECT_NE(refused.getErrMsg().find("echo erasing"), std::string::npos)
            << refused.getErrMsg();
        EXPECT_NE(refused.getErrMsg().find("since 20"), std::string::npos) << refused.getErrMsg();
    }
    // An ordinary command is nobody's rival.
    client->setUninterruptible(false);
    client->execute("echo ordinary", 20000, &result);
    EXPECT_EQ("ordinary\n", result.getRunSummary());
    EXPECT_TRUE(completes());
    EXPECT_TRUE(waitFor([&] { return agent.records().empty(); }));
    client->setUninterruptible(true);
    client->execute("echo third", 20000, &result);
    EXPECT_EQ("third\n", result.getRunSummary());
}

TEST_F(AgentFirmware, CompletesWhenTheConnectionIsCut) {
    auto channel = sendFlash(flash());
    ASSERT_TRUE(hasStarted());
    channel.reset();
    expectSecondRefused();
    EXPECT_TRUE(completes());
    EXPECT_TRUE(agent.waitForLog("ended with exit code 0"));
}

TEST_F(AgentFirmware, CompletesWhenItsTimeOutHasPassed) {
    const auto client = agent.connect();
    client->setUninterruptible(true);
    CResult result;
    client->execute(flash(), 300, &result);
    EXPECT_EQ(5, static_cast<int>(result.getRunStatus()));
    EXPECT_FALSE(std::filesystem::exists(mark()));
    expectSecondRefused();
    EXPECT_TRUE(completes());
    EXPECT_TRUE(agent.waitForLog("has passed its time-out and goes on"));
    EXPECT_TRUE(agent.waitForLog("ended with exit code 0"));
}

TEST_F(AgentFirmware, CompletesAndReportsWhenTheListenerIsTerminated) {
    const auto channel = sendFlash(flash());
    ASSERT_TRUE(hasStarted());
    agent.signal(SIGTERM);
    ASSERT_TRUE(agent.waitForExit(std::chrono::milliseconds(1900)));
    protocol::Frame frame;
    do {
        frame = channel->receiveFrame(afterTheFlash());
    } while (frame.header.type == protocol::FrameType::kOutput);
    EXPECT_EQ(protocol::FrameType::kResult, frame.header.type);
    EXPECT_TRUE(completes());
}

// The outcome of a flash is read back by requests of their own.
TEST_F(AgentFirmware, AnswersWhatFollowsOnItsConnectionWhenTheListenerIsTerminated) {
    const auto client = agent.connect();
    client->setUninterruptible(true);
    CResult result;
    std::thread terminating([&] {
        EXPECT_TRUE(hasStarted());
        agent.signal(SIGTERM);
        EXPECT_TRUE(agent.waitForExit());
    });
    client->execute(flash(), 20000, &result);
    terminating.join();
    EXPECT_EQ(0, static_cast<int>(result.getRunStatus()));
    client->setUninterruptible(false);
    client->execute("echo outcome", 20000, &result);
    EXPECT_EQ("outcome\n", result.getRunSummary());
    client->execute("echo again", 20000, &result);
    EXPECT_EQ("again\n", result.getRunSummary());
}

TEST_F(AgentFirmware, CompletesWhenTheListenerIsKilled) {
    const auto channel = sendFlash(flash());
    ASSERT_TRUE(hasStarted());
    agent.signal(SIGKILL);
    ASSERT_TRUE(agent.waitForExit());
    // The one started anew knows that it is there.
    agent.start();
    expectSecondRefused();
    EXPECT_TRUE(completes());
}

TEST_F(AgentFirmware, CompletesWhenItsSessionIsKilled) {
    const auto channel = sendFlash(flash());
    ASSERT_TRUE(hasStarted());
    ::kill(agent.processes("kelnode-session").at(0), SIGKILL);
    expectSecondRefused();
    EXPECT_TRUE(completes());
    EXPECT_TRUE(agent.waitForLog("ended with exit code 0"));
    EXPECT_TRUE(waitFor([&] { return agent.records().empty(); }));
}

TEST_F(AgentFirmware, CompletesWhenSessionSupervisorAndListenerAreKilled) {
    const auto channel = sendFlash(flash());
    ASSERT_TRUE(hasStarted());
    const pid_t session = agent.processes("kelnode-session").at(0);
    ::kill(agent.processes("kelnode-job").at(0), SIGKILL);
    ::kill(session, SIGKILL);
    agent.signal(SIGKILL);
    ASSERT_TRUE(agent.waitForExit());
    agent.start();
    // Nobody supervises it any more, and it holds its lock all the same.
    expectSecondRefused();
    EXPECT_TRUE(completes());
    EXPECT_TRUE(waitFor([&] { return agent.records().empty(); }, std::chrono::seconds(15)));
    EXPECT_EQ("erasing\nwriting\n", LocalAgent::read(agent.runPath() + "firmware.log"));
}

TEST_F(AgentFirmware, DaemonItStartedDoesNotKeepTheLock) {
    const auto client = agent.connect();
    client->setUninterruptible(true);
    CResult result;
    client->execute("sleep 3 & echo first", 20000, &result);
    EXPECT_EQ("first\n", result.getRunSummary());
    client->execute("echo second", 20000, &result);
    EXPECT_EQ("second\n", result.getRunSummary());
}

TEST_F(AgentFirmware, DaemonOfAJobWhoseSupervisorWasKilledDoesNotKeepTheLock) {
    {
        const auto channel = sendFlash("sleep 60 & touch " + started() + "; sleep 60");
        ASSERT_TRUE(hasStarted());
    }
    for (const pid_t supervisor : agent.processes("kelnode-job")) {
        ::kill(supervisor, SIGKILL);
    }
    // While the job's shell lives the job does, whoever watches it.
    expectSecondRefused();
    const auto shells = processtree::descendantsOf(agent.listenerPid());
    for (const processtree::ProcessInfo& process : shells) {
        if (process.name == "sh") {
            ::kill(process.pid, SIGKILL);
        }
    }
    const auto client = agent.connect();
    client->setUninterruptible(true);
    CResult result;
    EXPECT_TRUE(waitFor([&] {
        try {
            client->execute("echo second", 20000, &result);
            return result.getRunSummary() == "second\n";
        } catch (const CException&) {
            return false;
        }
    }));
    EXPECT_TRUE(agent.waitForLog("(sleep)"));
    for (const processtree::ProcessInfo& process :
         processtree::descendantsOf(agent.listenerPid())) {
        if (process.name == "sleep") {
            ::kill(process.pid, SIGKILL);
        }
    }
}
