// Connections that are used again: by clients of a real TLS server inside the test, and in the pool
// itself.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ConnectionPool.h"
#include "Dialer.h"
#include "NodeCall.h"
#include "SSLClient.h"
#include "TlsFixture.h"

namespace {

using protocol::FrameType;
using std::chrono::milliseconds;

class ConnectionReuse : public TlsFixture {
protected:
    ~ConnectionReuse() override { Dialer::process().pool().clear(); }

    // What a client of its own has to say about one command; "" where all is well.
    static std::string run(SSLClient&& client, const std::string& line) {
        try {
            CResult result;
            client.initAndConnect();
            client.execute(line, 20000, &result);
            return result.getRunStatus() == EXEC_SUCCESS ? "" : result.getRunSummary();
        } catch (const CException& fault) {
            return fault.getErrMsg();
        }
    }
    static std::string ask(SSLClient&& client) {
        client.initAndConnect();
        return client.getKelNodeMacAddress("127.0.0.1");
    }

    FakeNode fake;
};

// Pools of the test's own, over the connections of one server.
class ConnectionPoolTest : public TlsFixture {
protected:
    ConnectionPoolTest() : context(TlsContext::client(filesOf(master))) {}

    AgentConnection connection() {
        AgentConnection made;
        made.channel =
            TlsChannel::connect("127.0.0.1", agent.port(), context, FakeNodeAgent::soon());
        (void)made.channel->receiveFrame(FakeNodeAgent::soon());
        made.channel->sendFrame(protocol::encode(protocol::ShellHello()), FakeNodeAgent::soon());
        made.made = made.heard = ConnectionPool::Clock::now();
        return made;
    }
    std::string peer() const { return "127.0.0.1:" + std::to_string(agent.port()); }
    static ConnectionPool::Limits limits(std::size_t most, milliseconds idle = milliseconds(60000),
                                         milliseconds age = milliseconds(60000)) {
        ConnectionPool::Limits bounds;
        bounds.most = most;
        bounds.idle = idle;
        bounds.age = age;
        return bounds;
    }

    FakeNode fake;
    FakeNodeAgent agent{filesOf(node), fake.script()};
    std::shared_ptr<TlsContext> context;
};

}  // namespace

TEST_F(ConnectionReuse, OneConnectionServesManyClients) {
    FakeNodeAgent agent(filesOf(node), fake.script());
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(fake.macAddress, ask(clientOf(agent)));
        EXPECT_EQ("", run(clientOf(agent), "true"));
    }
    EXPECT_EQ(1, agent.accepted());
    EXPECT_EQ(5U, fake.commands().size());
    EXPECT_EQ(1, fake.greetings());
}

TEST_F(ConnectionReuse, ClientsThatLiveAtTheSameTimeHaveConnectionsOfTheirOwn) {
    FakeNodeAgent agent(filesOf(node), fake.script());
    ask(clientOf(agent));
    SSLClient first = clientOf(agent);
    SSLClient second = clientOf(agent);
    first.initAndConnect();
    second.initAndConnect();
    EXPECT_EQ(fake.macAddress, second.getKelNodeMacAddress(""));
    EXPECT_EQ(fake.macAddress, first.getKelNodeMacAddress(""));
    EXPECT_EQ(2, agent.accepted());
}

TEST_F(ConnectionReuse, EachCommandComesUnderItsOwnNumber) {
    FakeNodeAgent agent(filesOf(node), fake.script());
    for (const unsigned int number : {0U, 7U, 7U, 8U, 0U}) {
        SSLClient client = clientOf(agent);
        client.workFor(std::make_shared<NodeCall>(number));
        EXPECT_EQ("", run(std::move(client), "true"));
    }
    EXPECT_THAT(fake.numbers(), testing::ElementsAre(0U, 7U, 7U, 8U, 0U));
    EXPECT_EQ(1, agent.accepted());
    // Told when it changed, and only then.
    EXPECT_EQ(4, fake.greetings());
}

TEST_F(ConnectionReuse, AConnectionThatAskedNothingIsNotKept) {
    FakeNodeAgent agent(filesOf(node), fake.script());
    clientOf(agent).initAndConnect();
    EXPECT_EQ(0U, Dialer::process().pool().size());
}

TEST_F(ConnectionReuse, NothingIsKeptAfterATimeOutARefusalOrAFault) {
    const auto resultOf = [](protocol::Result::Ending ending) {
        return [ending](TlsChannel& channel) { FakeNodeAgent::result(channel, 0, "", ending); };
    };
    const std::vector<FakeNodeAgent::Script> answers = {
        resultOf(protocol::Result::Ending::kTimedOut),
        resultOf(protocol::Result::Ending::kCancelled),
        [](TlsChannel& channel) { FakeNodeAgent::waitForClose(channel); },
        [](TlsChannel& channel) {
            FakeNodeAgent::error(channel, protocol::kErrorRefused, "not allowed");
        },
        [](TlsChannel& channel) {
            FakeNodeAgent::error(channel, protocol::kErrorProtocol, "what");
        },
        [](TlsChannel& channel) { FakeNodeAgent::send(channel, "garbage!"); },
        [](TlsChannel& channel) {
            FakeNodeAgent::send(channel, FakeNodeAgent::frame(FrameType::kAnswer, ""));
        },
    };
    for (const FakeNodeAgent::Script& answer : answers) {
        FakeNodeAgent agent(filesOf(node), [&](TlsChannel& channel) {
            FakeNodeAgent::greet(channel);
            for (;;) {
                (void)channel.receiveFrame(FakeNodeAgent::soon());
                answer(channel);
            }
        });
        {
            SSLClient client = clientOf(agent);
            client.initAndConnect();
            CResult result;
            try {
                client.execute("x", 50, &result);
            } catch (const CException&) {
                // Some of them throw, some are told in the result.
            }
        }
        EXPECT_EQ(0U, Dialer::process().pool().size());
    }
}

TEST_F(ConnectionReuse, WordsThatNobodyAskedForMakeAConnectionUseless) {
    std::atomic<int> greeted{0};
    FakeNodeAgent agent(filesOf(node), [&](TlsChannel& channel) {
        FakeNodeAgent::greet(channel);
        (void)channel.receiveFrame(FakeNodeAgent::soon());
        FakeNodeAgent::send(channel, protocol::encode(protocol::Answer{"02:00:00:00:00:01"}) +
                                         protocol::encode(protocol::Answer{"too much"}));
        ++greeted;
        FakeNodeAgent::waitForClose(channel);
    });
    EXPECT_EQ("02:00:00:00:00:01", ask(clientOf(agent)));
    ASSERT_TRUE(eventually([&] { return greeted == 1; }));
    EXPECT_EQ("02:00:00:00:00:01", ask(clientOf(agent)));
    EXPECT_EQ(2, agent.accepted());
}

TEST_F(ConnectionReuse, AnAgentThatClosesIsDialledAgain) {
    std::atomic<int> ended{0};
    FakeNodeAgent agent(filesOf(node), [&](TlsChannel& channel) {
        FakeNodeAgent::greet(channel);
        (void)channel.receiveFrame(FakeNodeAgent::soon());
        FakeNodeAgent::result(channel, 0);
        channel.close(TlsChannel::after(0));
        ++ended;
    });
    for (int i = 1; i <= 3; ++i) {
        EXPECT_EQ("", run(clientOf(agent), "true"));
        ASSERT_TRUE(eventually([&] { return ended == i; }));
        EXPECT_EQ(i, agent.accepted());
    }
}

TEST_F(ConnectionReuse, AnAgentThatWasStartedAnewWorksAtOnce) {
    auto agent = std::make_unique<FakeNodeAgent>(filesOf(node), fake.script());
    const int port = agent->port();
    EXPECT_EQ("", run(clientOf(*agent), "one"));
    agent.reset();
    agent = std::make_unique<FakeNodeAgent>(filesOf(node), fake.script(), port);
    EXPECT_EQ("", run(clientOf(*agent), "two"));
    EXPECT_THAT(fake.commands(), testing::ElementsAre("one", "two"));
}

TEST_F(ConnectionReuse, AQuestionToASilentlyDeadConnectionIsAskedAgainOverANewOne) {
    std::atomic<int> connections{0};
    FakeNodeAgent agent(filesOf(node), [&](TlsChannel& channel) {
        FakeNodeAgent::greet(channel);
        (void)channel.receiveFrame(FakeNodeAgent::soon());
        FakeNodeAgent::send(channel, protocol::encode(protocol::Answer{"1"}));
        if (++connections == 1) {
            FakeNodeAgent::waitForClose(channel);  // takes every request and never answers
        }
    });
    {
        SSLClient client = clientOf(agent);
        client.initAndConnect();
        EXPECT_TRUE(client.isFileExistedAtSlaveNode("/x"));
    }
    SSLClient client = clientOf(agent);
    client.initAndConnect(200);
    EXPECT_EQ(1, agent.accepted());
    EXPECT_TRUE(client.isFileExistedAtSlaveNode("/x"));
    EXPECT_EQ(2, agent.accepted());
}

TEST_F(ConnectionReuse, AJobIsNeverSentTwice) {
    std::mutex mutex;
    std::vector<std::string> jobs;
    // Answers a question, then takes a job and is gone before a word of it.
    FakeNodeAgent agent(filesOf(node), [&](TlsChannel& channel) {
        FakeNodeAgent::greet(channel);
        (void)channel.receiveFrame(FakeNodeAgent::soon());
        FakeNodeAgent::send(channel, protocol::encode(protocol::Answer{"02:00:00:00:00:01"}));
        protocol::Exec exec;
        protocol::decode(channel.receiveFrame(FakeNodeAgent::soon()).body, exec);
        const std::lock_guard<std::mutex> lock(mutex);
        jobs.push_back(exec.commandLine);
    });
    EXPECT_EQ("02:00:00:00:00:01", ask(clientOf(agent)));
    EXPECT_THAT(run(clientOf(agent), "flash"), testing::HasSubstr("connection lost"));
    const std::lock_guard<std::mutex> lock(mutex);
    EXPECT_THAT(jobs, testing::ElementsAre("flash"));
    EXPECT_EQ(1, agent.accepted());
}

TEST_F(ConnectionReuse, AJobOverAConnectionThatRestedIsSentAfterAnAnswerOnly) {
    std::mutex mutex;
    std::vector<FrameType> requests;
    std::atomic<int> connections{0};
    // The first connection goes silent after its first answer.
    FakeNodeAgent agent(filesOf(node), [&](TlsChannel& channel) {
        const bool dies = ++connections == 1;
        FakeNodeAgent::greet(channel);
        for (bool first = true;; first = false) {
            const protocol::Frame frame = channel.receiveFrame(FakeNodeAgent::soon());
            {
                const std::lock_guard<std::mutex> lock(mutex);
                requests.push_back(frame.header.type);
            }
            if (dies && !first) {
                FakeNodeAgent::waitForClose(channel);
            }
            if (frame.header.type == FrameType::kMac) {
                FakeNodeAgent::send(channel,
                                    protocol::encode(protocol::Answer{"02:00:00:00:00:01"}));
            } else {
                FakeNodeAgent::result(channel, 0);
            }
        }
    });
    EXPECT_EQ("02:00:00:00:00:01", ask(clientOf(agent)));
    std::this_thread::sleep_for(milliseconds(1100));  // no longer fresh
    {
        SSLClient client = clientOf(agent);
        client.initAndConnect(300);
        CResult result;
        client.execute("flash", 20000, &result);
        EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    }
    EXPECT_EQ(2, agent.accepted());
    const std::lock_guard<std::mutex> lock(mutex);
    // Two questions on the old connection, the question and the job on the new one.
    EXPECT_THAT(requests, testing::ElementsAre(FrameType::kMac, FrameType::kMac, FrameType::kMac,
                                               FrameType::kExec));
}

TEST_F(ConnectionReuse, AnotherCertificateOrKeyHasConnectionsOfItsOwn) {
    FakeNodeAgent agent(filesOf(node), fake.script());
    EXPECT_EQ("", run(clientOf(agent), "true"));
    const TestPki::Identity other = pki.master("other");
    EXPECT_EQ("", run(SSLClient("127.0.0.1", agent.port(), other.certificateFile), "true"));
    EXPECT_EQ(2, agent.accepted());
    // The file is replaced by a renewed certificate of the same name.
    pki.master("master");
    EXPECT_EQ("", run(clientOf(agent), "true"));
    EXPECT_EQ(3, agent.accepted());
    Dialer::process().setPrivateKeyFile(master.keyFile);
    EXPECT_EQ("", run(clientOf(agent), "true"));
    Dialer::process().setPrivateKeyFile("");
    EXPECT_EQ(4, agent.accepted());
}

TEST_F(ConnectionReuse, ARevocationListEndsTheUseOfWhatWasMadeWithoutIt) {
    FakeNodeAgent agent(filesOf(node), fake.script());
    EXPECT_EQ("", run(clientOf(agent), "true"));
    pki.revoke({node.serial});
    EXPECT_THAT(run(clientOf(agent), "true"), testing::HasSubstr("has been revoked"));
}

TEST_F(ConnectionReuse, AnExpiredCertificateEndsIt) {
    TestPki::Request request;
    request.commonName = "short";
    request.purpose = TestPki::Purpose::kNode;
    request.addresses = {"127.0.0.1"};
    request.notAfterSeconds = 3;
    FakeNodeAgent agent(filesOf(pki.issue("short", request)), fake.script());
    EXPECT_EQ("", run(clientOf(agent), "true"));
    std::string refusal;
    EXPECT_TRUE(eventually([&] {
        refusal = run(clientOf(agent), "true");
        return !refusal.empty();
    }));
    EXPECT_THAT(refusal, testing::HasSubstr("expired on"));
}

TEST_F(ConnectionReuse, ManyThreadsShareThePoolOfManyAgents) {
    constexpr int kAgents = 4;
    constexpr int kThreads = 16;
    fake.onCommand = [](const std::string& line) { return FakeNode::Reply{line, 0}; };
    std::vector<std::unique_ptr<FakeNodeAgent>> agents;
    for (int i = 0; i < kAgents; ++i) {
        agents.push_back(std::make_unique<FakeNodeAgent>(filesOf(node), fake.script()));
    }
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 20; ++round) {
                SSLClient client = clientOf(*agents[static_cast<std::size_t>(i + round) % kAgents]);
                const std::string line = std::to_string(i) + "." + std::to_string(round);
                CResult result;
                client.initAndConnect(60000);
                client.execute(line, 60000, &result);
                good += result.getRunSummary() == line ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(kThreads * 20, good);
    EXPECT_LE(Dialer::process().pool().size(), static_cast<std::size_t>(kAgents));
}

TEST_F(ConnectionPoolTest, GivesBackWhatItWasGiven) {
    ConnectionPool pool(limits(10));
    AgentConnection given = connection();
    given.version = 1;
    given.toldSequence = 17;
    const TlsChannel* channel = given.channel.get();
    pool.give(context.get(), std::move(given));
    EXPECT_EQ(1U, pool.size());
    const AgentConnection taken = pool.take(context.get(), peer());
    EXPECT_EQ(channel, taken.channel.get());
    EXPECT_EQ(1, taken.version);
    EXPECT_EQ(17U, taken.toldSequence);
    EXPECT_EQ(0U, pool.size());
    EXPECT_EQ(nullptr, pool.take(context.get(), peer()).channel);
}

TEST_F(ConnectionPoolTest, KnowsNodesAndContextsApart) {
    ConnectionPool pool(limits(10));
    pool.give(context.get(), connection());
    EXPECT_EQ(nullptr, pool.take(context.get(), "127.0.0.1:1").channel);
    const auto other = TlsContext::client(filesOf(pki.master("other")));
    EXPECT_EQ(nullptr, pool.take(other.get(), peer()).channel);
    EXPECT_NE(nullptr, pool.take(context.get(), peer()).channel);
}

TEST_F(ConnectionPoolTest, KeepsOneForEachNodeAndNoMoreThanItsBound) {
    ConnectionPool pool(limits(2));
    pool.give(context.get(), connection());
    pool.give(context.get(), connection());
    EXPECT_EQ(1U, pool.size());
    const auto second = TlsContext::client(filesOf(pki.master("second")));
    const auto third = TlsContext::client(filesOf(pki.master("third")));
    pool.give(second.get(), connection());
    EXPECT_EQ(2U, pool.size());
    pool.give(third.get(), connection());
    EXPECT_EQ(2U, pool.size());
    EXPECT_EQ(nullptr, pool.take(third.get(), peer()).channel);
    // One that is there already is replaced all the same.
    pool.give(context.get(), connection());
    EXPECT_EQ(2U, pool.size());
    EXPECT_NE(nullptr, pool.take(context.get(), peer()).channel);
    ConnectionPool none(limits(0));
    none.give(context.get(), connection());
    EXPECT_EQ(0U, none.size());
}

TEST_F(ConnectionPoolTest, RefusesAConnectionInTheMiddleOfAFrame) {
    ConnectionPool pool(limits(10));
    AgentConnection queued = connection();
    queued.channel->queueFrame(protocol::encodeMacRequest());
    pool.give(context.get(), std::move(queued));
    pool.give(context.get(), AgentConnection());
    EXPECT_EQ(0U, pool.size());
}

TEST_F(ConnectionPoolTest, IdleConnectionsAreClosedThoughNobodyAsks) {
    std::atomic<int> closed{0};
    FakeNodeAgent watched(filesOf(node), [&](TlsChannel& channel) {
        FakeNodeAgent::greet(channel);
        try {
            FakeNodeAgent::waitForClose(channel);
        } catch (const ChannelError& end) {
            closed += end.kind() == ChannelError::Kind::kClosed ? 1 : 0;
        }
    });
    ConnectionPool pool(limits(10, milliseconds(50)));
    // A second round, when the thread has nothing to wait for.
    for (int round = 1; round <= 2; ++round) {
        AgentConnection made;
        made.channel =
            TlsChannel::connect("127.0.0.1", watched.port(), context, FakeNodeAgent::soon());
        (void)made.channel->receiveFrame(FakeNodeAgent::soon());
        made.channel->sendFrame(protocol::encode(protocol::ShellHello()), FakeNodeAgent::soon());
        made.made = made.heard = ConnectionPool::Clock::now();
        pool.give(context.get(), std::move(made));
        EXPECT_TRUE(eventually([&] { return closed == round; }));
        EXPECT_EQ(0U, pool.size());
    }
}

TEST_F(ConnectionPoolTest, WhatRestedTooLongOrIsTooOldIsNotHandedOut) {
    ConnectionPool pool(limits(10));
    AgentConnection rested = connection();
    rested.heard -= milliseconds(60001);
    pool.give(context.get(), std::move(rested));
    EXPECT_EQ(nullptr, pool.take(context.get(), peer()).channel);
    AgentConnection old = connection();
    old.made -= milliseconds(60001);
    pool.give(context.get(), std::move(old));
    EXPECT_EQ(nullptr, pool.take(context.get(), peer()).channel);
}

TEST_F(ConnectionPoolTest, ClearedItHoldsNothing) {
    ConnectionPool pool(limits(10));
    pool.give(context.get(), connection());
    pool.clear();
    EXPECT_EQ(0U, pool.size());
    EXPECT_EQ(nullptr, pool.take(context.get(), peer()).channel);
}
