#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "BlackHoles.h"
#include "CException.h"
#include "CommandProgress.h"
#include "Dialer.h"
#include "TlsFixture.h"

namespace {

using Phase = NodeCall::Phase;

// An agent that accepts a job and then says nothing.
FakeNodeAgent::Script hangingJob() {
    return [](TlsChannel& channel) {
        FakeNodeAgent::greet(channel);
        FakeNodeAgent::waitForClose(channel);
    };
}

class CommandProgressTest : public TlsFixture {
protected:
    // The client of a target, as a worker makes it.
    std::string run(const FakeNodeAgent& agent, const std::shared_ptr<NodeCall>& call) {
        CResult result;
        try {
            SSLClient client(dialer, "127.0.0.1", agent.port(), master.certificateFile);
            client.workFor(call);
            client.initAndConnect();
            client.execute("sleep 60", 60000, &result);
        } catch (const CException& fault) {
            return fault.getErrMsg();
        }
        return result.getRunSummary();
    }

    Dialer dialer;
    NodeCall::Clock::time_point end;
};

}  // namespace

TEST_F(CommandProgressTest, TellsWhoIsAwaitedAndInWhichPhase) {
    CommandProgress progress(7);
    const auto first = progress.add("n1");
    const auto second = progress.add("n2");
    EXPECT_EQ(7U, first->commandNumber());
    ASSERT_EQ(2U, progress.awaited().size());
    EXPECT_EQ("n1", progress.awaited()[0].target);
    EXPECT_EQ(Phase::kBegun, progress.awaited()[0].phase);
    first->enter(Phase::kEnded);
    second->enter(Phase::kRunning);
    const auto since = second->state().since;
    second->enter(Phase::kRunning);
    ASSERT_EQ(1U, progress.awaited().size());
    EXPECT_EQ("n2", progress.awaited()[0].target);
    EXPECT_EQ(Phase::kRunning, progress.awaited()[0].phase);
    EXPECT_EQ(since, progress.awaited()[0].since);
}

TEST_F(CommandProgressTest, OneCallGivesUpAllThatIsAwaited) {
    const FakeNodeAgent agent(filesOf(node), hangingJob());
    CommandProgress progress(1);
    std::vector<std::shared_ptr<NodeCall>> calls;
    std::vector<std::string> endings(3);
    std::vector<std::thread> workers;
    for (std::string& ending : endings) {
        calls.push_back(progress.add("n"));
        workers.emplace_back([this, &agent, &ending, call = calls.back()] {
            ending = run(agent, call);
            call->enter(Phase::kEnded);
        });
    }
    EXPECT_TRUE(eventually([&] {
        const auto awaited = progress.awaited();
        return std::all_of(awaited.begin(), awaited.end(),
                           [](const auto& each) { return each.phase == Phase::kRunning; });
    }));
    const auto begun = NodeCall::Clock::now();
    progress.cancel();
    for (std::thread& worker : workers) {
        worker.join();
    }
    EXPECT_LT(NodeCall::Clock::now() - begun, std::chrono::seconds(20));
    EXPECT_TRUE(progress.awaited().empty());
    for (const std::string& ending : endings) {
        EXPECT_THAT(ending, testing::HasSubstr("any more"));
    }
    // What comes after is given up at once, and nothing of it was kept.
    EXPECT_THAT(run(agent, progress.add("late")), testing::HasSubstr("any more"));
    EXPECT_EQ(0U, dialer.pool().size());
}

TEST_F(CommandProgressTest, ACallEndsByItsOwnClock) {
    const FakeNodeAgent agent(filesOf(node), hangingJob());
    const auto call = std::make_shared<NodeCall>(1);
    const auto begun = NodeCall::Clock::now();
    call->endAfter(300);
    // The job's own time-out is a minute.
    EXPECT_EQ("", run(agent, call));
    EXPECT_GE(NodeCall::Clock::now() - begun, std::chrono::milliseconds(300));
    EXPECT_LT(NodeCall::Clock::now() - begun, std::chrono::seconds(20));
    EXPECT_TRUE(call->isOver());
}

TEST_F(CommandProgressTest, NothingBeginsWhenTheCallIsOver) {
    FakeNode fake;
    const FakeNodeAgent agent(filesOf(node), fake.script());
    const auto call = std::make_shared<NodeCall>(1);
    SSLClient client(dialer, "127.0.0.1", agent.port(), master.certificateFile);
    client.workFor(call);
    client.initAndConnect();
    call->endAfter(1);
    EXPECT_TRUE(eventually([&] { return call->isOver(); }));
    client.setUninterruptible(true);
    CResult result;
    client.execute("flash", 60000, &result);
    EXPECT_EQ(EXEC_TIMED_OUT, result.getRunStatus());
    EXPECT_TRUE(fake.commands().empty());
}

TEST_F(CommandProgressTest, WhatMustNotBeCutShortOutlivesTheCall) {
    FakeNode fake;
    std::shared_ptr<NodeCall> call = std::make_shared<NodeCall>(1);
    fake.onCommand = [&](const std::string&) {
        EXPECT_TRUE(eventually([&] { return NodeCall::Clock::now() >= end; }));
        return FakeNode::Reply{"flashed", 0};
    };
    const FakeNodeAgent agent(filesOf(node), fake.script());
    SSLClient client(dialer, "127.0.0.1", agent.port(), master.certificateFile);
    client.workFor(call);
    client.initAndConnect();
    end = NodeCall::Clock::now() + std::chrono::milliseconds(600);
    call->endAfter(500);
    client.setUninterruptible(true);
    CResult result;
    client.execute("flash", 60000, &result);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ("flashed", result.getRunSummary());
}

TEST_F(CommandProgressTest, NobodyWaitsTheSameTimeTwiceForASilentNode) {
    const BlackHoles holes(1);
    const BlackHoles::Address hole = holes.addresses().front();
    SSLClient client(dialer, hole.ip, hole.port, master.certificateFile);
    client.workFor(std::make_shared<NodeCall>(1));
    const auto connect = [&] {
        const auto begun = NodeCall::Clock::now();
        EXPECT_THROW(client.initAndConnect(1000), CException);
        return NodeCall::Clock::now() - begun;
    };
    EXPECT_GE(connect(), std::chrono::milliseconds(1000));
    EXPECT_LT(connect(), std::chrono::milliseconds(900));
    // The next command gives it its full time again.
    client.workFor(std::make_shared<NodeCall>(2));
    EXPECT_GE(connect(), std::chrono::milliseconds(1000));
}
