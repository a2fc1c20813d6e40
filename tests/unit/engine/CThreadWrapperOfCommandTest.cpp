#include <atomic>
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
#include "Dialer.h"
#include "NodeAccess.h"
#include "NodeCall.h"
#include "SSLClient.h"
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

TEST_F(CThreadWrapperOfCommandTest, MayBeCopiedBeforeItRuns) {
    auto original = std::make_unique<CThreadWrapperOfCommand>("look", set, nullptr, &result, 1000);
    CThreadWrapperOfCommand copy(*original);
    original.reset();
    copy();
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ("look on master", result.getRunSummary());
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
    ~CThreadWrapperOfCommandOnNode() override {
        CSSLConfig::getInstance()->setCertificateFile("");
        Dialer::process().pool().clear();
    }
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

TEST_F(CThreadWrapperOfCommandOnNode, WhatIsNoAddressMatchesNoNode) {
    FakeNode machine;
    machine.macAddress = "02:00:00:00:00:01\n\x1b[2J";
    const FakeNodeAgent agent(filesOf(node), machine.script());
    run(machine.macAddress, agent);
    EXPECT_EQ(EXEC_REJECTED, result.getRunStatus());
    EXPECT_TRUE(machine.commands().empty());
}

// The identity check got no connection, which counts as a match; the command gets one.
TEST_F(CThreadWrapperOfCommandOnNode, AnotherMachineBehindASecondConnectionNeverGetsTheCommand) {
    FakeNode machine;
    machine.macAddress = "02:00:00:00:00:AB";
    std::atomic<int> connections{0};
    const FakeNodeAgent agent(filesOf(node), [&, talk = machine.script()](TlsChannel& channel) {
        if (connections++ == 0) {
            throw std::runtime_error("cut");
        }
        talk(channel);
    });
    run("02:00:00:00:00:01", agent);
    EXPECT_EQ(2, connections);
    EXPECT_EQ(EXEC_REJECTED, result.getRunStatus());
    EXPECT_EQ("Node n1: IP(127.0.0.1) and MAC(02:00:00:00:00:01) are not matched!",
              result.getRunSummary());
    EXPECT_TRUE(machine.commands().empty());
}

TEST_F(CThreadWrapperOfCommandOnNode, TheConfiguredMachineBehindASecondConnectionGetsTheCommand) {
    FakeNode machine;
    std::atomic<int> connections{0};
    const FakeNodeAgent agent(filesOf(node), [&, talk = machine.script()](TlsChannel& channel) {
        if (connections++ == 0) {
            throw std::runtime_error("cut");
        }
        talk(channel);
    });
    run("02:00:00:00:00:01", agent);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus()) << result.getRunSummary();
    EXPECT_EQ(1U, machine.commands().size());
    EXPECT_EQ(1, machine.macQuestions());
}

TEST_F(CThreadWrapperOfCommandOnNode, WhatTheAgentSaidOfItselfHoldsForItsConnection) {
    FakeNode machine;
    const FakeNodeAgent agent(filesOf(node), machine.script());
    for (int i = 0; i < 3; ++i) {
        run("02:00:00:00:00:01", agent);
        EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    }
    EXPECT_EQ(1, agent.accepted());
    EXPECT_EQ(1, machine.macQuestions());
}

TEST_F(CThreadWrapperOfCommandOnNode, ANodeThatOverrunsIsLeftAtTheTimeOut) {
    const FakeNodeAgent agent(filesOf(node), [](TlsChannel& channel) {
        FakeNodeAgent::greet(channel);
        (void)channel.receiveFrame(FakeNodeAgent::soon());
        protocol::Answer mac;
        mac.text = "02:00:00:00:00:01";
        FakeNodeAgent::send(channel, protocol::encode(mac));
        FakeNodeAgent::waitForClose(channel);
    });
    StopWatch watch;
    watch.start();
    run("02:00:00:00:00:01", agent, 500);
    // A second for the agent's last word would come on top.
    EXPECT_LT(watch.getTime(), 1400);
    EXPECT_GE(watch.getTime(), 500);
    EXPECT_EQ(EXEC_TIMED_OUT, result.getRunStatus());
    EXPECT_EQ("", result.getRunSummary());
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

namespace {

// A set whose text for a failure is its own.
class RewordingSet : public CShellCommandSet {
public:
    explicit RewordingSet(bool dials) : CShellCommandSet("own", "For tests."), needsNode(dials) {}
    void execute(std::string, CNode* target, CResult& outcome, unsigned limit) override {
        try {
            if (needsNode) {
                nodeaccess::connect(*target, limit);
            }
        } catch (const CException&) {
            // What it says is of no interest.
        }
        outcome.setRunStatus(EXEC_FAILURE);
        outcome.setRunSummary("in other words");
    }

private:
    bool needsNode;
};

}  // namespace

TEST_F(CThreadWrapperOfCommandOnNode, WhatBecameOfTheConnectionDecidesAndNotTheText) {
    const FakeNodeAgent agent([](int connection) {
        char byte = 0;
        while (::recv(connection, &byte, 1, 0) > 0) {
        }
    });
    CNode target("n1", "02:00:00:00:00:01", "127.0.0.1", static_cast<unsigned int>(agent.port()));
    for (const bool dials : {true, false}) {
        RewordingSet own(dials);
        CThreadWrapperOfCommand("look", own, &target, &result, 900)();
        EXPECT_EQ(dials ? EXEC_TIMED_OUT : EXEC_FAILURE, result.getRunStatus());
        EXPECT_EQ("in other words", result.getRunSummary());
    }
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
