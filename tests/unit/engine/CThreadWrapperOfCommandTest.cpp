#include <memory>
#include <stdexcept>
#include <sys/socket.h>

#include <boost/thread/exceptions.hpp>
#include <gtest/gtest.h>

#include "CException.h"
#include "CNode.h"
#include "CResult.h"
#include "CSSLConfig.h"
#include "CThreadWrapperOfCommand.h"
#include "CommandOutcome.h"
#include "NodeCall.h"
#include "ShellFixture.h"
#include "StopWatch.h"
#include "TlsFixture.h"

namespace {

class CThreadWrapperOfCommandTest : public ::testing::Test {
protected:
    CThreadWrapperOfCommandTest() { result.setRunStatus(EXEC_TIMED_OUT); }

    void takes(long milliseconds) {
        set.behaviour = [milliseconds](const auto&, CResult& outcome) {
            StopWatch watch;
            watch.start();
            while (watch.getTime() < milliseconds) {
            }
            outcome.setRunSummary("done");
            outcome.setExitCode(4);
        };
    }
    void run(CNode* node, unsigned int timeOut) {
        CThreadWrapperOfCommand("look", set, node, &result, timeOut)();
    }

    ScriptedSet set{"lab"};
    CResult result;
};

}  // namespace

TEST_F(CThreadWrapperOfCommandTest, HandsTheOutcomeBackWithItsRunTime) {
    takes(30);
    run(nullptr, 20000);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ("done", result.getRunSummary());
    EXPECT_EQ(4, result.getExitCode());
    EXPECT_GE(result.getRunTime(), 30);
}

TEST_F(CThreadWrapperOfCommandTest, MasterCommandGetsNoNodeAndNoConnection) {
    run(nullptr, 1000);
    ASSERT_EQ(1U, set.calls().size());
    EXPECT_EQ("look", set.calls()[0].request);
    EXPECT_EQ("", set.calls()[0].node);
    EXPECT_EQ(1000U, set.calls()[0].timeOut);
}

TEST_F(CThreadWrapperOfCommandTest, LateFinishLeavesTheCallersResultAlone) {
    takes(120);
    run(nullptr, 100);
    EXPECT_EQ(EXEC_TIMED_OUT, result.getRunStatus());
    EXPECT_EQ("", result.getRunSummary());
    EXPECT_EQ(0, result.getRunTime());
}

TEST_F(CThreadWrapperOfCommandTest, TimeOutZeroMeansNoLimit) {
    takes(5);
    run(nullptr, 0);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ("done", result.getRunSummary());
}

TEST_F(CThreadWrapperOfCommandTest, NodeThatCannotBeReachedStillGetsItsCommand) {
    CNode node("n1", "02:00:00:00:00:01", "127.0.0.1", 1);
    run(&node, 20000);
    ASSERT_EQ(1U, set.calls().size());
    EXPECT_EQ("n1", set.calls()[0].node);
    EXPECT_EQ("look on n1", result.getRunSummary());
}

TEST_F(CThreadWrapperOfCommandTest, CommandWorksOnACopyOfTheNode) {
    CNode node("n1", "02:00:00:00:00:01", "127.0.0.1", 1);
    class Spoiler : public ScriptedSet {
    public:
        using ScriptedSet::ScriptedSet;
        void execute(std::string, CNode* target, CResult&, unsigned) override {
            target->setIp("127.9.9.9");
        }
    };
    Spoiler spoiler("lab");
    CThreadWrapperOfCommand("look", spoiler, &node, &result, 20000)();
    EXPECT_EQ("127.0.0.1", node.getIp());
}

TEST_F(CThreadWrapperOfCommandTest, ExceptionsBecomeAFailure) {
    set.behaviour = [](const auto&, CResult&) { throw CException("refused"); };
    run(nullptr, 1000);
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_EQ("refused", result.getRunSummary());
    set.behaviour = [](const auto&, CResult&) { throw std::runtime_error("broken"); };
    run(nullptr, 1000);
    EXPECT_EQ("broken", result.getRunSummary());
    set.behaviour = [](const auto&, CResult&) { throw 7; };
    run(nullptr, 1000);
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_EQ("The command failed for an unknown reason.", result.getRunSummary());
}

TEST_F(CThreadWrapperOfCommandTest, InterruptionEndsQuietly) {
    set.behaviour = [](const auto&, CResult&) { throw boost::thread_interrupted(); };
    EXPECT_NO_THROW(run(nullptr, 1000));
    EXPECT_EQ(EXEC_TIMED_OUT, result.getRunStatus());
}

TEST_F(CThreadWrapperOfCommandTest, ClosedPlaceTakesNoOutcome) {
    const auto place = std::make_shared<CommandOutcome>();
    EXPECT_FALSE(place->close(nullptr));
    const unsigned int before = CThreadWrapperOfCommand::running();
    CThreadWrapperOfCommand::announce();
    EXPECT_EQ(before + 1, CThreadWrapperOfCommand::running());
    const auto call = std::make_shared<NodeCall>(0);
    CThreadWrapperOfCommand("look", set, nullptr, place, call, 1000)();
    EXPECT_EQ(before, CThreadWrapperOfCommand::running());
    EXPECT_FALSE(place->close(&result));
    EXPECT_EQ(EXEC_TIMED_OUT, result.getRunStatus());
}

namespace {

// A set of cmd.cfg's kind, whose command goes to the node's agent.
class CThreadWrapperOfCommandOnNode : public TlsFixture {
protected:
    CThreadWrapperOfCommandOnNode() {
        set.addSupportedCommand(new CShellCommand("look", "Looks.", "ls /", SCRIPT, SLAVE));
        CSSLConfig::getInstance()->setCertificateFile(master.certificateFile);
        result.setRunStatus(EXEC_TIMED_OUT);
    }
    ~CThreadWrapperOfCommandOnNode() override { CSSLConfig::getInstance()->setCertificateFile(""); }
    void run(const std::string& mac, const FakeNodeAgent& agent, unsigned int timeOut = 20000) {
        CNode target("n1", mac, "127.0.0.1", static_cast<unsigned int>(agent.port()));
        CThreadWrapperOfCommand("look", set, &target, &result, timeOut)();
    }

    CShellCommandSet set{"lab", "For tests."};
    CResult result;
};

}  // namespace

TEST_F(CThreadWrapperOfCommandOnNode, RunsTheCommandOnTheNodeThatIsTheConfiguredOne) {
    FakeNode machine;
    machine.onCommand = [](const std::string&) { return FakeNode::Reply{"boot etc", 0}; };
    const FakeNodeAgent agent(filesOf(node), machine.script());
    run("02:00:00:00:00:01", agent);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ("boot etc", result.getRunSummary());
    EXPECT_EQ(std::vector<std::string>{"ls /"}, machine.commands());
}

TEST_F(CThreadWrapperOfCommandOnNode, AnotherMachineIsRejectedAndNeverGetsTheCommand) {
    FakeNode machine;
    machine.macAddress = "02:00:00:00:00:AB";
    const FakeNodeAgent agent(filesOf(node), machine.script());
    for (const char* configured : {"02:00:00:00:00:01", "02:00:00:00:00:ab"}) {
        run(configured, agent);
        EXPECT_EQ(EXEC_REJECTED, result.getRunStatus());
        EXPECT_EQ(
            std::string("Node n1: IP(127.0.0.1) and MAC(") + configured + ") are not matched!",
            result.getRunSummary());
    }
    EXPECT_TRUE(machine.commands().empty());
}

TEST_F(CThreadWrapperOfCommandOnNode, AgentThatCannotTellItsMacIsTrusted) {
    FakeNode machine;
    machine.macAddress = "";
    const FakeNodeAgent agent(filesOf(node), machine.script());
    run("02:00:00:00:00:01", agent);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ(1U, machine.commands().size());
}

TEST_F(CThreadWrapperOfCommandOnNode, NodeThatTakesTheConnectionAndHangsIsTimedOutWithTheReason) {
    const FakeNodeAgent agent([](int connection) {
        char byte = 0;
        while (::recv(connection, &byte, 1, 0) > 0) {
        }
    });
    run("02:00:00:00:00:01", agent, 900);
    EXPECT_EQ(EXEC_TIMED_OUT, result.getRunStatus());
    EXPECT_NE(std::string::npos, result.getRunSummary().find("did not answer in time"))
        << result.getRunSummary();
    EXPECT_LT(result.getRunTime(), 900);
}

TEST_F(CThreadWrapperOfCommandOnNode, NodeThatRefusesTheConnectionIsAFailure) {
    int port = 0;
    {
        const FakeNodeAgent gone([](int) {});
        port = gone.port();
    }
    CNode target("n1", "02:00:00:00:00:01", "127.0.0.1", static_cast<unsigned int>(port));
    CThreadWrapperOfCommand("look", set, &target, &result, 20000)();
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_NE(std::string::npos, result.getRunSummary().find("Connection refused"))
        << result.getRunSummary();
}

TEST(CommandOutcome, GivesWhatWasPublishedOnce) {
    CommandOutcome place;
    CResult outcome;
    outcome.setRunSummary("fine");
    EXPECT_TRUE(place.publish(std::move(outcome)));
    CResult taken;
    EXPECT_TRUE(place.close(&taken));
    EXPECT_EQ("fine", taken.getRunSummary());
    EXPECT_FALSE(place.close(&taken));
    EXPECT_FALSE(place.publish(CResult()));
}
