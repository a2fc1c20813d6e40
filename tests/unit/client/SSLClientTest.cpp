#include <csignal>
#include <sys/socket.h>
#include <sys/time.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BlackHoles.h"
#include "NodeCall.h"
#include "SSLClient.h"
#include "SilentPeers.h"
#include "TlsFixture.h"

namespace {

using protocol::FrameType;
using Clock = std::chrono::steady_clock;

class SSLClientTest : public TlsFixture {
protected:
    // An agent that greets and then, at each request, does this.
    using Answer = std::function<void(TlsChannel&, const protocol::Frame&)>;
    FakeNodeAgent::Script answering(Answer answer) {
        return [answer](TlsChannel& channel) {
            FakeNodeAgent::greet(channel);
            for (;;) {
                answer(channel, channel.receiveFrame(FakeNodeAgent::soon()));
            }
        };
    }

    static void output(TlsChannel& channel, const std::string& text) {
        FakeNodeAgent::send(channel, FakeNodeAgent::frame(FrameType::kOutput, text));
    }

    // The error of connecting to an agent that is not one.
    std::string connectError(int port, unsigned int timeOutMs = 300) {
        SSLClient client("127.0.0.1", port, master.certificateFile);
        return errorOf([&] { client.initAndConnect(timeOutMs); });
    }
};

// A port of 127.0.0.1 on which nobody listens.
int closedPort() {
    FakeNodeAgent agent([](int) {});
    return agent.port();
}

}  // namespace

TEST_F(SSLClientTest, RunsACommandAndFillsTheResult) {
    FakeNode fake;
    fake.onCommand = [](const std::string& line) {
        return FakeNode::Reply{"ran " + line + "\n", 0};
    };
    FakeNodeAgent agent(filesOf(node), fake.script());
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    CResult result;
    result.setRunStatus(EXEC_FAILURE);
    result.setExitCode(99);
    client.execute("uptime -p", 5000, &result);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ(0, result.getExitCode());
    EXPECT_EQ("ran uptime -p\n", result.getRunSummary());
    EXPECT_EQ(std::vector<std::string>{"uptime -p"}, fake.commands());
}

TEST_F(SSLClientTest, AnyOtherExitCodeIsAFailure) {
    FakeNode fake;
    fake.onCommand = [](const std::string&) { return FakeNode::Reply{"no\n", 3}; };
    FakeNodeAgent agent(filesOf(node), fake.script());
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    CResult result;
    client.execute("false", 0, &result);
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_EQ(3, result.getExitCode());
    EXPECT_EQ("no\n", result.getRunSummary());
}

TEST_F(SSLClientTest, ASignalBecomes128AndItsNumber) {
    FakeNodeAgent agent(filesOf(node), answering([](TlsChannel& channel, const protocol::Frame&) {
                            FakeNodeAgent::result(channel, SIGSEGV, "",
                                                  protocol::Result::Ending::kSignaled);
                        }));
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    CResult result;
    client.execute("crash", 1000, &result);
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_EQ(128 + SIGSEGV, result.getExitCode());
}

TEST_F(SSLClientTest, TheAgentsTimeOutKeepsTheOutputAndTheConnection) {
    std::atomic<unsigned> travelled{0};
    FakeNodeAgent agent(
        filesOf(node), answering([&](TlsChannel& channel, const protocol::Frame& frame) {
            protocol::Exec exec;
            protocol::decode(frame.body, exec);
            travelled = exec.timeOutMs;
            output(channel, "so far\n");
            FakeNodeAgent::result(channel, 0, "", protocol::Result::Ending::kTimedOut);
        }));
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    for (int round = 0; round < 2; ++round) {
        CResult result;
        client.execute("sleep 60", 1234, &result);
        EXPECT_EQ(EXEC_TIMED_OUT, result.getRunStatus());
        EXPECT_EQ("so far\n", result.getRunSummary());
    }
    EXPECT_EQ(1234U, travelled);
    EXPECT_EQ(1, agent.accepted());
}

TEST_F(SSLClientTest, ASilentAgentIsGivenUpShortlyAfterTheTimeOut) {
    FakeNodeAgent agent(filesOf(node), answering([](TlsChannel& channel, const protocol::Frame&) {
                            output(channel, "begun\n");
                            FakeNodeAgent::waitForClose(channel);
                        }));
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    CResult result;
    const auto before = Clock::now();
    client.execute("sleep 60", 50, &result);
    EXPECT_LT(Clock::now() - before, std::chrono::seconds(10));
    EXPECT_EQ(EXEC_TIMED_OUT, result.getRunStatus());
    EXPECT_EQ("begun\n", result.getRunSummary());
    EXPECT_GE(result.getRunTime(), 50);
    EXPECT_THAT(errorOf([&] { client.execute("next", 50, &result); }),
                testing::HasSubstr("There is no connection to 127.0.0.1:"));
}

TEST_F(SSLClientTest, AFloodDoesNotOutrunTheTimeOut) {
    FakeNodeAgent agent(filesOf(node), answering([](TlsChannel& channel, const protocol::Frame&) {
                            for (;;) {
                                output(channel, std::string(1000, 'y'));
                            }
                        }));
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    CResult result;
    const auto before = Clock::now();
    client.execute("yes", 100, &result);
    EXPECT_LT(Clock::now() - before, std::chrono::seconds(10));
    EXPECT_EQ(EXEC_TIMED_OUT, result.getRunStatus());
    EXPECT_EQ('y', result.getRunSummary().front());
}

TEST_F(SSLClientTest, OutputBeyondTheLimitIsCountedAndDropped) {
    constexpr std::size_t kPiece = protocol::kMaxBodyBytes;
    constexpr std::size_t kPieces = 100 * 1024 * 1024 / kPiece;
    FakeNodeAgent agent(filesOf(node), answering([](TlsChannel& channel, const protocol::Frame&) {
                            const std::string piece(kPiece, 'z');
                            for (std::size_t i = 0; i < kPieces; ++i) {
                                output(channel, piece);
                            }
                            FakeNodeAgent::result(channel, 0);
                        }));
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    CResult result;
    client.execute("flood", 0, &result);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    const std::string summary = result.getRunSummary();
    const std::string line = "\n[" +
                             std::to_string(kPieces * kPiece - SSLClient::kMaxSummaryBytes) +
                             " more bytes of output were left out]\n";
    ASSERT_EQ(SSLClient::kMaxSummaryBytes + line.size(), summary.size());
    EXPECT_EQ(line, summary.substr(SSLClient::kMaxSummaryBytes));
    EXPECT_EQ('z', summary[SSLClient::kMaxSummaryBytes - 1]);
}

TEST_F(SSLClientTest, AnAgentThatDiesIsAnErrorThatNamesTheNode) {
    FakeNodeAgent agent(filesOf(node), [](TlsChannel& channel) {
        FakeNodeAgent::greet(channel);
        (void)channel.receiveFrame(FakeNodeAgent::soon());
        output(channel, "half a sen");
    });
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    CResult result;
    EXPECT_THAT(
        errorOf([&] { client.execute("long", 0, &result); }),
        MentionsAll(parts({"127.0.0.1:" + std::to_string(agent.port()), "connection lost"})));
    EXPECT_THAT(errorOf([&] { client.execute("next", 0, &result); }),
                testing::HasSubstr("There is no connection"));
}

TEST_F(SSLClientTest, AnAgentThatDiesInsideAFrameIsLostToo) {
    FakeNodeAgent agent(filesOf(node), [](TlsChannel& channel) {
        FakeNodeAgent::greet(channel);
        (void)channel.receiveFrame(FakeNodeAgent::soon());
        FakeNodeAgent::send(
            channel,
            FakeNodeAgent::frame(FrameType::kOutput, std::string(1000, 'x')).substr(0, 500));
    });
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    CResult result;
    EXPECT_THAT(errorOf([&] { client.execute("long", 0, &result); }),
                testing::HasSubstr("connection lost"));
}

TEST_F(SSLClientTest, BadFramesEndTheConnection) {
    for (const std::string& bad :
         {std::string("\x7f\xff\xff\xff\x20\0\0\0", 8), std::string("garbage!"),
          FakeNodeAgent::frame(FrameType::kResult, "short"),
          FakeNodeAgent::frame(FrameType::kFileInfo, std::string(12, '\0')),
          FakeNodeAgent::frame(FrameType::kAgentHello, "")}) {
        FakeNodeAgent agent(filesOf(node),
                            answering([&](TlsChannel& channel, const protocol::Frame&) {
                                FakeNodeAgent::send(channel, bad);
                            }));
        SSLClient client = clientOf(agent);
        client.initAndConnect();
        CResult result;
        EXPECT_THAT(errorOf([&] { client.execute("x", 5000, &result); }),
                    MentionsAll(parts({"127.0.0.1:", "connection lost"})));
        EXPECT_THROW(client.getKelNodeMacAddress("127.0.0.1"), CException);
    }
}

TEST_F(SSLClientTest, ARefusedJobThrowsWhatTheAgentSaysAndKeepsTheConnection) {
    FakeNodeAgent agent(filesOf(node), answering([](TlsChannel& channel, const protocol::Frame&) {
                            FakeNodeAgent::error(channel, protocol::kErrorRefused,
                                                 "a flash is running: romutil");
                        }));
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    CResult result;
    for (int round = 0; round < 2; ++round) {
        EXPECT_THAT(errorOf([&] { client.execute("x", 1000, &result); }),
                    MentionsAll(parts({"127.0.0.1:", "a flash is running: romutil"})));
        EXPECT_THAT(errorOf([&] {
                        client.executeEncryptedBinary("", "", "/opt/", {"a.enc"}, {}, 1000,
                                                      &result);
                    }),
                    testing::HasSubstr("a flash is running"));
    }
    EXPECT_EQ(1, agent.accepted());
}

TEST_F(SSLClientTest, AProtocolErrorOfTheAgentEndsTheConnection) {
    FakeNodeAgent agent(filesOf(node), answering([](TlsChannel& channel, const protocol::Frame&) {
                            FakeNodeAgent::error(channel, protocol::kErrorProtocol, "nonsense");
                        }));
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    CResult result;
    EXPECT_THAT(errorOf([&] { client.execute("x", 1000, &result); }),
                testing::HasSubstr("nonsense"));
    EXPECT_THAT(errorOf([&] { client.execute("x", 1000, &result); }),
                testing::HasSubstr("There is no connection"));
}

TEST_F(SSLClientTest, APackagedRunTravelsWhole) {
    FakeNode fake;
    fake.onPackaged = [](const protocol::RunPackaged&) { return FakeNode::Reply{"flashed\n", 0}; };
    FakeNodeAgent agent(filesOf(node), fake.script());
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    client.setUninterruptible(true);
    CResult result;
    client.executeEncryptedBinary("insmod /opt/kelnode/tools/romio.ko;", "-w /tmp/bios 2>&1",
                                  "/opt/kelnode/", {"romutil.enc", "x.enc"}, {"romio.ko"}, 900000,
                                  &result);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ("flashed\n", result.getRunSummary());
    ASSERT_EQ(1U, fake.packagedRuns().size());
    const protocol::RunPackaged run = fake.packagedRuns().front();
    EXPECT_EQ(900000U, run.timeOutMs);
    EXPECT_EQ("insmod /opt/kelnode/tools/romio.ko;", run.preCommand);
    EXPECT_EQ("-w /tmp/bios 2>&1", run.arguments);
    EXPECT_EQ("/opt/kelnode/", run.nodePath);
    EXPECT_EQ((std::list<std::string>{"romutil.enc", "x.enc"}), run.packagedFiles);
    EXPECT_EQ(std::list<std::string>{"romio.ko"}, run.companionFiles);
    EXPECT_EQ(protocol::kFlagUninterruptible, fake.lastFlags());
}

TEST_F(SSLClientTest, JobsAreInterruptibleUnlessSaidOtherwise) {
    FakeNode fake;
    FakeNodeAgent agent(filesOf(node), fake.script());
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    CResult result;
    client.execute("x", 1000, &result);
    EXPECT_EQ(0, fake.lastFlags());
    client.setUninterruptible(true);
    client.execute("x", 1000, &result);
    EXPECT_EQ(protocol::kFlagUninterruptible, fake.lastFlags());
    client.setUninterruptible(false);
    client.execute("x", 1000, &result);
    EXPECT_EQ(0, fake.lastFlags());
}

TEST_F(SSLClientTest, ALostUninterruptibleJobIsSaidToGoOn) {
    FakeNodeAgent agent(filesOf(node), [](TlsChannel& channel) {
        FakeNodeAgent::greet(channel);
        (void)channel.receiveFrame(FakeNodeAgent::soon());
    });
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    client.setUninterruptible(true);
    CResult result;
    EXPECT_THAT(errorOf([&] { client.execute("flash", 0, &result); }),
                MentionsAll(parts({"connection lost", "goes on at the node"})));
}

TEST_F(SSLClientTest, AsksForFilesAndTheMacAddress) {
    FakeNode fake;
    fake.setFile("/etc/motd", "x");
    FakeNodeAgent agent(filesOf(node), fake.script());
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    EXPECT_TRUE(client.isFileExistedAtSlaveNode("/etc/motd"));
    EXPECT_FALSE(client.isFileExistedAtSlaveNode("/etc/none"));
    EXPECT_EQ("02:00:00:00:00:01", client.getKelNodeMacAddress("127.0.0.1"));
}

TEST_F(SSLClientTest, AnAgentThatCanNotTellItsMacAddressGivesAnEmptyText) {
    FakeNodeAgent agent(filesOf(node), answering([](TlsChannel& channel, const protocol::Frame&) {
                            FakeNodeAgent::error(channel, protocol::kErrorFile, "no interface");
                        }));
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    EXPECT_EQ("", client.getKelNodeMacAddress("127.0.0.1"));
    EXPECT_THROW(client.isFileExistedAtSlaveNode("/x"), CException);
}

TEST_F(SSLClientTest, ARequestTooLongForAFrameLeavesTheConnectionAlone) {
    FakeNode fake;
    FakeNodeAgent agent(filesOf(node), fake.script());
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    CResult result;
    EXPECT_THAT(errorOf([&] { client.execute(std::string(300000, 'x'), 1000, &result); }),
                testing::HasSubstr("too long"));
    EXPECT_THAT(errorOf([&] { client.execute(std::string("a\0b", 3), 1000, &result); }),
                testing::HasSubstr("NUL"));
    client.execute("x", 1000, &result);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
}

TEST_F(SSLClientTest, NothingWorksBeforeAConnectionIsMade) {
    SSLClient client("127.0.0.1", 4422, master.certificateFile);
    CResult result;
    EXPECT_THROW(client.execute("x", 1000, &result), CException);
    EXPECT_THROW(client.execute("[savefile]/etc/hostname", 1000, &result), CException);
    EXPECT_THROW(client.isFileExistedAtSlaveNode("/x"), CException);
    EXPECT_THROW(client.getKelNodeMacAddress("127.0.0.1"), CException);
    EXPECT_THROW(client.executeEncryptedBinary("", "", "/", {"a.enc"}, {}, 1, &result), CException);
}

TEST_F(SSLClientTest, AResultIsRequired) {
    FakeNode fake;
    FakeNodeAgent agent(filesOf(node), fake.script());
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    EXPECT_THROW(client.execute("x", 1000, nullptr), CException);
    EXPECT_TRUE(fake.commands().empty());
}

TEST_F(SSLClientTest, ConnectingAgainAfterALossWorks) {
    std::atomic<int> round{0};
    FakeNode fake;
    const FakeNodeAgent::Script good = fake.script();
    FakeNodeAgent agent(filesOf(node), [&](TlsChannel& channel) {
        if (++round == 1) {
            FakeNodeAgent::greet(channel);
            return;
        }
        good(channel);
    });
    SSLClient client = clientOf(agent);
    client.initAndConnect();
    CResult result;
    EXPECT_THROW(client.execute("x", 1000, &result), CException);
    client.initAndConnect();
    client.execute("x", 1000, &result);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
}

TEST_F(SSLClientTest, TellsTheNodeWhoIsAsking) {
    std::mutex mutex;
    protocol::ShellHello heard;
    FakeNodeAgent agent(filesOf(node), [&](TlsChannel& channel) {
        const protocol::ShellHello hello = FakeNodeAgent::greet(channel);
        const std::lock_guard<std::mutex> lock(mutex);
        heard = hello;
    });
    SSLClient client = clientOf(agent);
    client.workFor(std::make_shared<NodeCall>(42));
    client.initAndConnect();
    EXPECT_TRUE(eventually([&] {
        const std::lock_guard<std::mutex> lock(mutex);
        return heard.sequence == 42;
    }));
    const std::lock_guard<std::mutex> lock(mutex);
    EXPECT_EQ(1, heard.version);
    EXPECT_FALSE(heard.user.empty());
    EXPECT_FALSE(heard.build.empty());
}

TEST_F(SSLClientTest, AVersionMismatchNamesBothSides) {
    FakeNodeAgent agent(filesOf(node), [](TlsChannel& channel) {
        protocol::AgentHello hello;
        hello.lowestVersion = 7;
        hello.highestVersion = 9;
        hello.build = "9.9";
        FakeNodeAgent::send(channel, protocol::encode(hello));
        FakeNodeAgent::waitForClose(channel);
    });
    EXPECT_THAT(connectError(agent.port(), 3000),
                MentionsAll(parts({"127.0.0.1:", "version 1 to 1", "(9.9) speaks 7 to 9"})));
}

TEST_F(SSLClientTest, AnAgentThatIsTooBusyToGreetSaysSo) {
    FakeNodeAgent agent(filesOf(node), [](TlsChannel& channel) {
        FakeNodeAgent::error(channel, protocol::kErrorRefused, "too many sessions");
        FakeNodeAgent::waitForClose(channel);
    });
    EXPECT_THAT(connectError(agent.port(), 3000), testing::HasSubstr("too many sessions"));
}

TEST_F(SSLClientTest, AClosedPortIsReportedAtOnce) {
    const auto before = Clock::now();
    EXPECT_THAT(connectError(closedPort(), 3000),
                MentionsAll(parts({"Can not connect to 127.0.0.1:", "Connection refused"})));
    EXPECT_LT(Clock::now() - before, std::chrono::milliseconds(2500));
}

TEST_F(SSLClientTest, ABlackHoleTimesOut) {
    const BlackHoles holes(1);
    const BlackHoles::Address hole = holes.addresses().front();
    SSLClient client(hole.ip, hole.port, master.certificateFile);
    EXPECT_THAT(errorOf([&] { client.initAndConnect(200); }),
                MentionsAll(parts({"Can not connect to " + hole.ip, "timed out"})));
}

TEST_F(SSLClientTest, AnAgentThatAcceptsAndSaysNothingTimesOut) {
    FakeNodeAgent agent([](int fd) {
        char byte = 0;
        while (read(fd, &byte, 1) > 0) {
        }
    });
    const auto before = Clock::now();
    EXPECT_THAT(connectError(agent.port()),
                MentionsAll(parts({"127.0.0.1:", "did not answer in time", "TLS handshake"})));
    EXPECT_GE(Clock::now() - before, std::chrono::milliseconds(290));
}

TEST_F(SSLClientTest, WhoWasSilentJustNowIsAskedAgainButNotForLong) {
    FakeNodeAgent agent([](int fd) {
        char byte = 0;
        while (read(fd, &byte, 1) > 0) {
        }
    });
    const auto silence = std::chrono::milliseconds(SilentPeers::kSilenceMs);
    auto before = Clock::now();
    EXPECT_THAT(connectError(agent.port(), SilentPeers::kSilenceMs),
                testing::HasSubstr("did not answer in time"));
    EXPECT_GE(Clock::now() - before, silence - std::chrono::milliseconds(10));
    before = Clock::now();
    EXPECT_THAT(connectError(agent.port(), 60000), testing::HasSubstr("did not answer in time"));
    EXPECT_LT(Clock::now() - before, std::chrono::seconds(30));
    EXPECT_GE(Clock::now() - before, std::chrono::milliseconds(SilentPeers::kSecondLimitMs - 10));
}

TEST_F(SSLClientTest, SoIsABlackHole) {
    const BlackHoles holes(1);
    const BlackHoles::Address hole = holes.addresses().front();
    SSLClient client(hole.ip, hole.port, master.certificateFile);
    EXPECT_THAT(errorOf([&] { client.initAndConnect(SilentPeers::kSilenceMs); }),
                testing::HasSubstr("timed out"));
    const auto before = Clock::now();
    EXPECT_THAT(errorOf([&] { client.initAndConnect(60000); }), testing::HasSubstr("timed out"));
    EXPECT_LT(Clock::now() - before, std::chrono::seconds(30));
}

TEST_F(SSLClientTest, AnAgentThatDoesNotGreetTimesOut) {
    FakeNodeAgent agent(filesOf(node),
                        [](TlsChannel& channel) { FakeNodeAgent::waitForClose(channel); });
    EXPECT_THAT(connectError(agent.port()), testing::HasSubstr("did not answer in time"));
}

TEST_F(SSLClientTest, APeerThatTricklesBytesDoesNotOutrunTheDeadline) {
    FakeNodeAgent agent(filesOf(node), [](TlsChannel& channel) {
        const std::string hello =
            FakeNodeAgent::frame(FrameType::kAgentHello, std::string(100000, 'x'));
        for (const char c : hello) {
            FakeNodeAgent::send(channel, std::string(1, c));
        }
    });
    const auto before = Clock::now();
    EXPECT_THAT(connectError(agent.port(), 100), testing::HasSubstr("in time"));
    EXPECT_LT(Clock::now() - before, std::chrono::seconds(10));
}

TEST_F(SSLClientTest, GarbageInPlaceOfTlsIsRecognised) {
    FakeNodeAgent agent([](int fd) {
        const std::string text = "220 mail.example.com ESMTP ready and waiting\r\n";
        (void)send(fd, text.data(), text.size(), MSG_NOSIGNAL);
        char byte = 0;
        while (read(fd, &byte, 1) > 0) {
        }
    });
    EXPECT_THAT(connectError(agent.port(), 3000), testing::HasSubstr("does not speak TLS"));
}

TEST_F(SSLClientTest, AnAgentThatClosesAtOnceIsLost) {
    FakeNodeAgent agent([](int) {});
    EXPECT_THAT(connectError(agent.port(), 3000),
                MentionsAll(parts({"127.0.0.1:", "connection lost"})));
}

TEST_F(SSLClientTest, AGreetingThatIsNoneIsRefused) {
    FakeNodeAgent agent(filesOf(node), [](TlsChannel& channel) {
        FakeNodeAgent::result(channel, 0);
        FakeNodeAgent::waitForClose(channel);
    });
    EXPECT_THAT(connectError(agent.port(), 3000),
                testing::HasSubstr("does not speak as a kelnode agent"));
}

TEST_F(SSLClientTest, AnImpossibleAddressIsRefused) {
    EXPECT_THROW(SSLClient("", 4422, master.certificateFile).initAndConnect(), CException);
    EXPECT_THROW(SSLClient("127.0.0.1", 0, master.certificateFile).initAndConnect(), CException);
    EXPECT_THROW(SSLClient("127.0.0.1", -1, master.certificateFile).initAndConnect(), CException);
    EXPECT_THROW(SSLClient("127.0.0.1", 65536, master.certificateFile).initAndConnect(),
                 CException);
}

TEST_F(SSLClientTest, InterruptionsBySignalsGoUnnoticed) {
    struct sigaction handler {};
    struct sigaction old {};
    handler.sa_handler = [](int) {};
    ASSERT_EQ(0, sigaction(SIGALRM, &handler, &old));
    FakeNode fake;
    fake.onCommand = [](const std::string&) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return FakeNode::Reply{"done", 0};
    };
    FakeNodeAgent agent(filesOf(node), fake.script());
    const itimerval storm{{0, 1000}, {0, 1000}};
    const itimerval calm{};
    ASSERT_EQ(0, setitimer(ITIMER_REAL, &storm, nullptr));
    SSLClient client = clientOf(agent);
    CResult result;
    EXPECT_NO_THROW(client.initAndConnect());
    EXPECT_NO_THROW(client.execute("x", 5000, &result));
    ASSERT_EQ(0, setitimer(ITIMER_REAL, &calm, nullptr));
    ASSERT_EQ(0, sigaction(SIGALRM, &old, nullptr));
    EXPECT_EQ("done", result.getRunSummary());
}

TEST_F(SSLClientTest, FiftyThreadsTalkAtOnce) {
    FakeNode fake;
    fake.onCommand = [](const std::string& line) { return FakeNode::Reply{line, 0}; };
    FakeNodeAgent agent(filesOf(node), fake.script());
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int i = 0; i < 50; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < 3; ++round) {
                SSLClient client = clientOf(agent);
                client.initAndConnect(60000);
                CResult result;
                const std::string line = std::to_string(i) + "." + std::to_string(round);
                client.execute(line, 60000, &result);
                good += result.getRunSummary() == line ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(150, good);
}
