#include <poll.h>
#include <sys/socket.h>
#include <thread>

#include <gtest/gtest.h>

#include "CException.h"
#include "CUtil.h"
#include "Dialer.h"
#include "LocalAgent.h"
#include "SocketDial.h"
#include "TestPaths.h"
#include "TlsSocket.h"

namespace {

std::vector<UniqueFd> dialMany(const LocalAgent& agent, int count) {
    std::vector<UniqueFd> connections;
    for (int i = 0; i < count; ++i) {
        connections.push_back(SocketDial::connect(agent.ip(), agent.port(), LocalAgent::soon()));
    }
    return connections;
}

std::string echo(const LocalAgent& agent, const std::string& certificateFile = "") {
    CResult result;
    agent.connect(certificateFile)->execute("echo served", 20000, &result);
    return result.getRunSummary();
}

long processorTicks(pid_t pid) {
    const std::string stat = LocalAgent::read("/proc/" + std::to_string(pid) + "/stat");
    long user = 0;
    long system = 0;
    const int found =
        std::sscanf(stat.c_str() + stat.rfind(')') + 2,
                    "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %ld %ld", &user, &system);
    return found == 2 ? user + system : -1;
}

int runKelnode(const LocalAgent& agent, const std::string& options, std::string& output) {
    return CUtil::exec_cmd(
        "KELNODE_PATH=" + agent.nodePath() + " " + KELSH_BINARY_DIR + "/bin/kelnode " + options,
        &output, &output);
}

class AgentListener : public testing::Test {
protected:
    LocalAgent agent;
};

}  // namespace

TEST_F(AgentListener, SilentConnectionsLockNobodyOut) {
    const std::vector<UniqueFd> silent = dialMany(agent, 100);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ("served\n", echo(agent));
    }
}

TEST_F(AgentListener, ConnectionsThatBeginNoHandshakeCostNoProcess) {
    const std::vector<UniqueFd> silent = dialMany(agent, 20);
    const std::string hello("\x16\x03\x01\x01\x00\x01\x00\x00\xfc", 9);
    const long before = processorTicks(agent.listenerPid());
    for (std::size_t length = 0; length < hello.size(); ++length) {
        for (const UniqueFd& connection : silent) {
            ASSERT_EQ(1, ::send(connection.get(), &hello[length], 1, MSG_NOSIGNAL));
        }
        EXPECT_EQ("served\n", echo(agent));
        Dialer::process().pool().clear();
        EXPECT_TRUE(waitFor([&] { return agent.processes("kelnode-session").empty(); }));
    }
    for (const UniqueFd& connection : silent) {
        EXPECT_NE(tlssocket::wait(connection.get(), POLLIN, TlsChannel::after(15000)), 0);
    }
    EXPECT_TRUE(agent.processes("kelnode-session").empty());
    EXPECT_NE(agent.log().find("began no handshake in time"), std::string::npos) << agent.log();
    // Seconds of waiting, and no turning round and round meanwhile.
    EXPECT_LT(processorTicks(agent.listenerPid()) - before, ::sysconf(_SC_CLK_TCK));
}

TEST_F(AgentListener, TimeForTheHandshakeCountsFromTheBeginning) {
    const UniqueFd slow = SocketDial::connect(agent.ip(), agent.port(), LocalAgent::soon());
    const auto start = TlsChannel::Clock::now();
    // Half a greeting, and late: enough for a session, which gets only the time that is left.
    std::string half = std::string("\x16\x03\x01\x01\x00\x01\x00\x00\xfc\x03\x03", 11);
    half.resize(200, 'r');
    std::this_thread::sleep_until(start + std::chrono::milliseconds(3000));
    ASSERT_EQ(200, ::send(slow.get(), half.data(), half.size(), MSG_NOSIGNAL));
    ASSERT_TRUE(waitFor([&] { return agent.processes("kelnode-session").size() == 1; }));
    EXPECT_TRUE(waitFor([&] { return agent.processes("kelnode-session").empty(); }));
    EXPECT_LT(TlsChannel::Clock::now() - start, std::chrono::milliseconds(7500));
}

TEST_F(AgentListener, WhoDoesNotSpeakTlsIsCutAtOnce) {
    const UniqueFd stranger = SocketDial::connect(agent.ip(), agent.port(), LocalAgent::soon());
    const std::string request = "GET / HTTP/1.1\r\n\r\n";
    ASSERT_EQ(static_cast<ssize_t>(request.size()),
              ::write(stranger.get(), request.data(), request.size()));
    EXPECT_NE(tlssocket::wait(stranger.get(), POLLIN, TlsChannel::after(3000)), 0);
    EXPECT_TRUE(agent.waitForLog("does not speak TLS"));
}

TEST_F(AgentListener, SilentConnectionsAreCutAfterAWhile) {
    const std::vector<UniqueFd> silent = dialMany(agent, 3);
    for (const UniqueFd& connection : silent) {
        const short seen = tlssocket::wait(connection.get(), POLLIN, TlsChannel::after(15000));
        EXPECT_NE(seen, 0);
    }
    EXPECT_TRUE(waitFor([&] { return agent.processes("kelnode-session").empty(); }));
}

TEST(AgentListenerBounds, SilentConnectionsGiveWayWhenAllSessionsAreTaken) {
    LocalAgent::Options options;
    options.settings["MAX_SESSIONS"] = "8";
    LocalAgent agent(options);
    const std::vector<UniqueFd> silent = dialMany(agent, 40);
    EXPECT_TRUE(waitFor([&] {
        try {
            return echo(agent) == "served\n";
        } catch (const CException&) {
            return false;
        }
    }));
}

TEST(AgentListenerBounds, ShellBeyondTheMostSessionsIsToldSo) {
    LocalAgent::Options options;
    options.settings["MAX_SESSIONS"] = "2";
    LocalAgent agent(options);
    const auto first = agent.connect();
    const auto second = agent.connect();
    EXPECT_NE(agent.refusalOf("").find("MAX_SESSIONS"), std::string::npos);
}

TEST(AgentListenerBounds, OneCertificateDoesNotTakeAllSessions) {
    LocalAgent::Options options;
    options.settings["SESSIONS_PER_CERTIFICATE"] = "2";
    LocalAgent agent(options);
    const auto first = agent.connect();
    const auto second = agent.connect();
    const auto third = agent.openChannel();
    protocol::Error error;
    const protocol::Frame frame = third->receiveFrame(LocalAgent::soon());
    ASSERT_EQ(protocol::FrameType::kError, frame.header.type);
    protocol::decode(frame.body, error);
    EXPECT_EQ(protocol::kErrorRefused, error.code);
    EXPECT_NE(std::string::npos, error.text.find("SESSIONS_PER_CERTIFICATE=2")) << error.text;
    EXPECT_THROW(third->receiveFrame(LocalAgent::soon()), ChannelError);
    EXPECT_EQ("served\n", echo(agent, agent.pki().master("other").certificateFile));
}

TEST(AgentListenerBounds, OneSourceDoesNotTakeAllSessions) {
    LocalAgent::Options options;
    options.settings["SESSIONS_PER_SOURCE"] = "2";
    LocalAgent agent(options);
    const auto first = agent.connect();
    const auto second = agent.connect();
    EXPECT_NE(std::string::npos, agent.refusalOf("").find("SESSIONS_PER_SOURCE=2"));
}

TEST_F(AgentListener, FailedHandshakesAreFewLinesAndNoneIsLost) {
    TempDir directory;
    TestPki other(directory.path(), "Other CA");
    const std::string stranger = other.master().certificateFile;
    for (int i = 0; i < 5; ++i) {
        EXPECT_NE("", agent.refusalOf(stranger));
    }
    ASSERT_TRUE(waitFor([&] { return agent.processes("kelnode-session").empty(); }));
    agent.signal(SIGTERM);
    ASSERT_TRUE(agent.waitForExit());
    const std::string log = agent.log();
    std::size_t lines = 0;
    for (std::size_t at = log.find("refused the certificate"); at != std::string::npos;
         at = log.find("refused the certificate", at + 1)) {
        ++lines;
    }
    EXPECT_EQ(2U, lines) << log;
    EXPECT_NE(std::string::npos, log.find("(4 more in ")) << log;
}

TEST(AgentListenerBounds, ShortageOfDescriptorsIsWaitedOut) {
    LocalAgent::Options options;
    options.openFilesLimit = 24;
    LocalAgent agent(options);
    const std::vector<UniqueFd> many = dialMany(agent, 60);
    ASSERT_TRUE(agent.waitForLog("Too many open files"));
    // Served as soon as the silent ones have used their time up.
    EXPECT_TRUE(waitFor(
        [&] {
            try {
                return echo(agent) == "served\n";
            } catch (const CException&) {
                return false;
            }
        },
        std::chrono::seconds(30)));
    // Several seconds of shortage, and no turning round and round meanwhile.
    EXPECT_LT(processorTicks(agent.listenerPid()), ::sysconf(_SC_CLK_TCK));
}

TEST_F(AgentListener, ManyShellsAreServedAtOnce) {
    std::vector<std::thread> threads;
    std::vector<std::string> answers(32);
    for (std::string& answer : answers) {
        threads.emplace_back([this, &answer] { answer = echo(agent); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::string& answer : answers) {
        EXPECT_EQ("served\n", answer);
    }
}

TEST_F(AgentListener, MastersOfAnotherCaAreRefusedWithTheReason) {
    TempDir directory;
    TestPki other(directory.path(), "Other CA");
    EXPECT_NE(agent.refusalOf(other.master().certificateFile), "");
    EXPECT_EQ("served\n", echo(agent));
}

TEST_F(AgentListener, UnfitMastersAreRefused) {
    TestPki::Request expired;
    expired.notAfterSeconds = -60;
    EXPECT_NE(agent.refusalOf(agent.pki().issue("expired", expired).certificateFile), "");
    TestPki::Request early;
    early.notBeforeSeconds = 3600;
    EXPECT_NE(agent.refusalOf(agent.pki().issue("early", early).certificateFile), "");
    EXPECT_NE(agent.refusalOf(agent.pki().node("thief").certificateFile), "");
    EXPECT_EQ("served\n", echo(agent));
}

TEST_F(AgentListener, HangUpTakesANewCertificate) {
    TestPki::Request request;
    request.commonName = "renewed";
    request.purpose = TestPki::Purpose::kNode;
    request.addresses = {agent.ip()};
    const TestPki::Identity renewed = agent.pki().issue("renewed", request);
    for (const char* name : {"node.crt", "node.key"}) {
        std::filesystem::copy_file(
            name == std::string("node.crt") ? renewed.certificateFile : renewed.keyFile,
            agent.nodePath() + name, std::filesystem::copy_options::overwrite_existing);
    }
    agent.signal(SIGHUP);
    ASSERT_TRUE(agent.waitForLog("read anew"));
    EXPECT_EQ("renewed", agent.openChannel()->peerCommonName());
}

TEST_F(AgentListener, HangUpWithABrokenCertificateKeepsTheOld) {
    std::ofstream(agent.nodePath() + "node.crt") << "no certificate\n";
    agent.signal(SIGHUP);
    ASSERT_TRUE(agent.waitForLog("the old configuration stays in force"));
    EXPECT_EQ("served\n", echo(agent));
}

TEST_F(AgentListener, HangUpWithABrokenConfigurationKeepsTheOld) {
    std::ofstream(agent.nodePath() + "kelnode.cfg") << "LISTEN=nowhere\nPORT=1\n";
    agent.signal(SIGHUP);
    ASSERT_TRUE(agent.waitForLog("the old configuration stays in force"));
    EXPECT_NE(agent.log().find("line 1"), std::string::npos) << agent.log();
    EXPECT_NE(agent.log().find("line 2"), std::string::npos) << agent.log();
    EXPECT_EQ("served\n", echo(agent));
}

TEST_F(AgentListener, HangUpTakesARevocationAlsoFromKeptConnections) {
    const TestPki::Identity lost = agent.pki().master("lost");
    EXPECT_EQ("served\n", echo(agent, lost.certificateFile));
    agent.pki().revoke({lost.serial});
    std::filesystem::copy_file(
        std::filesystem::path(agent.pki().caFile()).parent_path() / "crl.pem",
        agent.nodePath() + "crl.pem");
    std::filesystem::remove(std::filesystem::path(agent.pki().caFile()).parent_path() / "crl.pem");
    agent.signal(SIGHUP);
    ASSERT_TRUE(agent.waitForLog("read anew"));
    EXPECT_TRUE(waitFor([&] { return !agent.refusalOf(lost.certificateFile).empty(); },
                        std::chrono::milliseconds(1000)));
    EXPECT_EQ("served\n", echo(agent));
}

TEST_F(AgentListener, RevocationListThatDisappearsSwitchesNothingOff) {
    const TestPki::Identity lost = agent.pki().master("lost");
    agent.pki().revoke({lost.serial});
    const std::filesystem::path list =
        std::filesystem::path(agent.pki().caFile()).parent_path() / "crl.pem";
    std::filesystem::copy_file(list, agent.nodePath() + "crl.pem");
    std::filesystem::remove(list);
    agent.signal(SIGHUP);
    ASSERT_TRUE(agent.waitForLog("read anew"));
    std::filesystem::remove(agent.nodePath() + "crl.pem");
    agent.signal(SIGHUP);
    ASSERT_TRUE(agent.waitForLog("the old configuration stays in force"));
    EXPECT_NE(std::string::npos, agent.log().find("there is no " + agent.nodePath() + "crl.pem"));
    EXPECT_NE("", agent.refusalOf(lost.certificateFile));
    EXPECT_EQ("served\n", echo(agent));
}

TEST_F(AgentListener, HangUpReopensTheLog) {
    std::filesystem::rename(agent.nodePath() + "kelnode.log", agent.nodePath() + "kelnode.log.1");
    agent.signal(SIGHUP);
    EXPECT_TRUE(agent.waitForLog("read anew"));
}

TEST_F(AgentListener, DeathOfASessionIsLogged) {
    const auto client = agent.connect();
    ::kill(agent.processes("kelnode-session").at(0), SIGUSR1);
    EXPECT_TRUE(agent.waitForLog("was ended by signal 10"));
    EXPECT_EQ("served\n", echo(agent));
}

TEST_F(AgentListener, SecondListenerOnThePortSaysSo) {
    std::string output;
    agent.writeConfiguration();
    EXPECT_EQ(1, runKelnode(agent, "", output));
    EXPECT_NE(output.find("cannot listen on"), std::string::npos) << output;
}

TEST_F(AgentListener, CheckAcceptsAGoodConfiguration) {
    std::string output;
    EXPECT_EQ(0, runKelnode(agent, "--check", output)) << output;
    EXPECT_NE(output.find("is valid"), std::string::npos) << output;
}

TEST_F(AgentListener, CheckNamesEveryFault) {
    std::string output;
    std::ofstream(agent.nodePath() + "kelnode.cfg") << "# comment\nMAX_SESSIONS=many\nCOLOUR=red\n"
                                                    << "CERTIFICATE_FILE=missing.crt\n";
    EXPECT_EQ(1, runKelnode(agent, "--check", output));
    EXPECT_NE(output.find("line 2: MAX_SESSIONS"), std::string::npos) << output;
    EXPECT_NE(output.find("line 3: unknown setting"), std::string::npos) << output;
    EXPECT_NE(output.find("missing.crt"), std::string::npos) << output;
}

TEST_F(AgentListener, CheckFindsWhatIsWrongWithTheCertificate) {
    std::string output;
    TestPki::Request expired;
    expired.purpose = TestPki::Purpose::kNode;
    expired.notAfterSeconds = -60;
    const TestPki::Identity old = agent.pki().issue("old", expired);
    const auto over = std::filesystem::copy_options::overwrite_existing;
    std::filesystem::copy_file(old.certificateFile, agent.nodePath() + "node.crt", over);
    std::filesystem::copy_file(old.keyFile, agent.nodePath() + "node.key", over);
    EXPECT_EQ(1, runKelnode(agent, "--check", output));
    EXPECT_NE(output.find("expired"), std::string::npos) << output;
    std::filesystem::copy_file(agent.masterCertificate(), agent.nodePath() + "node.crt", over);
    EXPECT_EQ(1, runKelnode(agent, "--check", output)) << "a key that does not fit";
    std::filesystem::copy_file(agent.masterIdentity().keyFile, agent.nodePath() + "node.key", over);
    EXPECT_EQ(1, runKelnode(agent, "--check", output));
    EXPECT_NE(output.find("server"), std::string::npos) << output;
}

TEST_F(AgentListener, OptionsAreExplained) {
    std::string output;
    EXPECT_EQ(0, runKelnode(agent, "--help", output));
    EXPECT_NE(output.find("Usage: kelnode"), std::string::npos);
    EXPECT_EQ(0, runKelnode(agent, "--version", output));
    EXPECT_EQ(0U, output.rfind("kelnode ", 0)) << output;
    EXPECT_EQ(2, runKelnode(agent, "--frobnicate", output));
    EXPECT_NE(output.find("unknown option \"--frobnicate\""), std::string::npos);
    EXPECT_EQ(2, runKelnode(agent, "--ready-fd x", output));
}
