#include <fcntl.h>
#include <fstream>

#include <gtest/gtest.h>

#include "CException.h"
#include "LocalAgent.h"
#include "SocketDial.h"
#include "TlsSocket.h"

// Certificates over time: revoked, renewed, rolled over, about to expire.

namespace {

class AgentCertificates : public testing::Test {
protected:
    bool reload() {
        const std::size_t before = agent.log().size();
        agent.signal(SIGHUP);
        return waitFor([&] { return agent.log().find("read anew", before) != std::string::npos; });
    }
    // In force at the agent only: the masters of the test share a directory with the list.
    void revoke(const std::vector<long>& serials) {
        agent.pki().revoke(serials);
        const std::string made =
            std::filesystem::path(agent.pki().caFile()).parent_path() / "crl.pem";
        std::filesystem::copy_file(made, agent.nodePath() + "crl.pem",
                                   std::filesystem::copy_options::overwrite_existing);
        std::filesystem::remove(made);
    }
    void useAsNode(const TestPki::Identity& identity) const {
        constexpr auto kReplace = std::filesystem::copy_options::overwrite_existing;
        std::filesystem::copy_file(identity.certificateFile, agent.nodePath() + "node.crt",
                                   kReplace);
        std::filesystem::copy_file(identity.keyFile, agent.nodePath() + "node.key", kReplace);
    }
    std::unique_ptr<TlsChannel> openAs(const TestPki::Identity& identity) {
        TlsFiles files;
        files.certificateFile = identity.certificateFile;
        auto channel = TlsChannel::connect(agent.ip(), agent.port(), TlsContext::client(files),
                                           LocalAgent::soon());
        channel->receiveFrame(LocalAgent::soon());
        channel->sendFrame(protocol::encode(protocol::ShellHello()), LocalAgent::soon());
        return channel;
    }
    std::unique_ptr<TlsChannel> startAs(const TestPki::Identity& identity,
                                        const std::string& command, std::uint8_t flags = 0) {
        auto channel = openAs(identity);
        protocol::Exec exec;
        exec.commandLine = command;
        channel->sendFrame(protocol::encode(exec, flags), LocalAgent::soon());
        return channel;
    }
    static bool answers(TlsChannel& channel) {
        channel.sendFrame(protocol::encodeMacRequest(), LocalAgent::soon());
        return channel.receiveFrame(LocalAgent::soon()).header.type == protocol::FrameType::kAnswer;
    }
    bool exists(const std::string& name) const {
        return std::filesystem::exists(agent.nodePath() + name);
    }
    std::string touch(const std::string& name) const { return "touch " + agent.nodePath() + name; }
    static void expectCutWithinASecond(TlsChannel& channel) {
        try {
            channel.receiveFrame(TlsChannel::after(1000));
            ADD_FAILURE() << "the agent answered";
        } catch (const ChannelError& lost) {
            EXPECT_NE(lost.kind(), ChannelError::Kind::kTimedOut) << lost.getErrMsg();
        }
    }

    LocalAgent agent;
};

}  // namespace

TEST_F(AgentCertificates, RevocationCutsLiveSessionsAndLeavesOthers) {
    const TestPki::Identity lost = agent.pki().master("lost");
    const auto idle = openAs(lost);
    ASSERT_TRUE(answers(*idle));
    const auto busy = startAs(lost, touch("busy") + "; sleep 60");
    const auto other = openAs(agent.masterIdentity());
    ASSERT_TRUE(answers(*other));
    ASSERT_TRUE(waitFor([&] { return exists("busy"); }));
    revoke({lost.serial});
    agent.signal(SIGHUP);
    expectCutWithinASecond(*idle);
    expectCutWithinASecond(*busy);
    EXPECT_TRUE(answers(*other));
    EXPECT_NE(agent.refusalOf(lost.certificateFile).find("revoked"), std::string::npos);
    EXPECT_TRUE(agent.waitForLog("is cut off: "));
    EXPECT_TRUE(
        waitFor([&] { return agent.processes("kelnode-job").empty(); }, std::chrono::seconds(10)));
    EXPECT_EQ(std::string::npos, agent.log().find("was ended by signal")) << agent.log();
}

TEST_F(AgentCertificates, RevocationCutsTheConnectionOfAFlashButNotTheFlash) {
    const TestPki::Identity lost = agent.pki().master("lost");
    const auto channel = startAs(lost, touch("begun") + "; sleep 1.5; " + touch("flashed"),
                                 protocol::kFlagUninterruptible);
    ASSERT_TRUE(waitFor([&] { return exists("begun"); }));
    revoke({lost.serial});
    agent.signal(SIGHUP);
    expectCutWithinASecond(*channel);
    EXPECT_FALSE(exists("flashed"));
    EXPECT_TRUE(waitFor([&] { return exists("flashed"); }, std::chrono::seconds(10)));
    EXPECT_TRUE(agent.waitForLog("ended with exit code 0"));
    EXPECT_TRUE(waitFor([&] { return agent.records().empty(); }, std::chrono::seconds(10)));
}

TEST_F(AgentCertificates, SessionThatBeganBeforeTheReloadIsJudgedByTheNewList) {
    const TestPki::Identity lost = agent.pki().master("lost");
    // Accepted by the agent before the list comes, authenticated afterwards.
    const auto connected = SocketDial::connect(agent.ip(), agent.port(), LocalAgent::soon());
    const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(
        SSL_CTX_new(TLS_client_method()), &SSL_CTX_free);
    ASSERT_EQ(1, SSL_CTX_use_certificate_file(context.get(), lost.certificateFile.c_str(),
                                              SSL_FILETYPE_PEM));
    ASSERT_EQ(1,
              SSL_CTX_use_PrivateKey_file(context.get(), lost.keyFile.c_str(), SSL_FILETYPE_PEM));
    const unsigned char alpn[] = "\x07kelsh/1";
    ASSERT_EQ(0, SSL_CTX_set_alpn_protos(context.get(), alpn, sizeof alpn - 1));
    const std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(context.get()), &SSL_free);
    ASSERT_EQ(1, SSL_set_fd(ssl.get(), connected.get()));
    // The greeting alone: a session begins with it.
    ASSERT_EQ(-1, SSL_connect(ssl.get()));
    ASSERT_EQ(SSL_ERROR_WANT_READ, SSL_get_error(ssl.get(), -1));
    ASSERT_TRUE(waitFor([&] { return !agent.processes("kelnode-session").empty(); }));
    revoke({lost.serial});
    ASSERT_TRUE(reload());
    const int flags = ::fcntl(connected.get(), F_GETFL);
    ASSERT_EQ(0, ::fcntl(connected.get(), F_SETFL, flags & ~O_NONBLOCK));
    ASSERT_EQ(1, SSL_connect(ssl.get()));
    ASSERT_TRUE(agent.waitForLog("is cut off: "));
    char byte = 0;
    while (SSL_read(ssl.get(), &byte, 1) > 0) {
    }
    EXPECT_NE(agent.refusalOf(lost.certificateFile), "");
}

TEST_F(AgentCertificates, ReloadWithoutNewsCutsNobody) {
    const auto idle = openAs(agent.masterIdentity());
    ASSERT_TRUE(answers(*idle));
    ASSERT_TRUE(reload());
    revoke({999999});
    ASSERT_TRUE(reload());
    EXPECT_TRUE(answers(*idle));
}

TEST_F(AgentCertificates, BundleOfTwoAuthoritiesRollsTheCaOver) {
    TempDir directory;
    TestPki next(directory.path(), "Next CA");
    const TestPki::Identity newMaster = next.master("master");
    const auto live = openAs(agent.masterIdentity());
    ASSERT_TRUE(answers(*live));
    EXPECT_NE(agent.refusalOf(newMaster.certificateFile), "");

    // Both authorities are trusted: old and new masters work, and sessions go on.
    std::ofstream(agent.nodePath() + "ca.crt") << agent.pki().caText() << next.caText();
    ASSERT_TRUE(reload());
    EXPECT_TRUE(answers(*live));
    EXPECT_EQ("", agent.refusalOf(agent.masterCertificate()));
    std::ofstream(newMaster.certificateFile, std::ios::app) << agent.pki().caText();
    EXPECT_EQ("", agent.refusalOf(newMaster.certificateFile));

    // The node's own certificate changes over too.
    const TestPki::Identity newNode = next.node("node", agent.ip());
    useAsNode(newNode);
    ASSERT_TRUE(reload());
    EXPECT_TRUE(answers(*live));
    EXPECT_EQ("", agent.refusalOf(newMaster.certificateFile));
    EXPECT_NE(agent.refusalOf(agent.masterCertificate()), "");

    // The old authority goes: its masters are cut off and refused.
    std::ofstream(agent.nodePath() + "ca.crt") << next.caText();
    agent.signal(SIGHUP);
    expectCutWithinASecond(*live);
    EXPECT_EQ("", agent.refusalOf(newMaster.certificateFile));
}

TEST_F(AgentCertificates, MasterWithoutAPurposeIsRefused) {
    TestPki::Request request;
    request.commonName = "anything";
    request.purpose = TestPki::Purpose::kAny;
    EXPECT_NE(agent.refusalOf(agent.pki().issue("anything", request).certificateFile), "");
    EXPECT_TRUE(agent.waitForLog("is not meant for a master (wrong purpose)"));
    EXPECT_EQ("", agent.refusalOf(agent.masterCertificate()));
}

TEST_F(AgentCertificates, EndOfACertificateIsAnnounced) {
    ASSERT_TRUE(reload());
    EXPECT_EQ(std::string::npos, agent.log().find("expires in")) << agent.log();
    TestPki::Request request;
    request.commonName = "ending";
    request.purpose = TestPki::Purpose::kNode;
    request.addresses = {agent.ip()};
    request.notAfterSeconds = 28L * 24 * 3600 + 3600;
    const TestPki::Identity ending = agent.pki().issue("ending", request);
    useAsNode(ending);
    ASSERT_TRUE(reload());
    EXPECT_TRUE(agent.waitForLog("The certificate CN=ending in \\\"" + agent.nodePath() +
                                 "node.crt\\\" expires in 28 days, on "))
        << agent.log();
    // At start too.
    const std::size_t before = agent.log().size();
    agent.signal(SIGTERM);
    ASSERT_TRUE(agent.waitForExit());
    agent.start();
    EXPECT_TRUE(waitFor([&] {
        return agent.log().find("The certificate CN=ending in ", before) != std::string::npos;
    }));
}

TEST_F(AgentCertificates, SessionDoesNotOutliveTheCertificateOfItsMaster) {
    TestPki::Request request;
    request.commonName = "short";
    request.notAfterSeconds = 2;
    const auto channel = openAs(agent.pki().issue("short", request));
    ASSERT_TRUE(answers(*channel));
    EXPECT_TRUE(waitFor([&] { return !answers(*channel); }));
    EXPECT_TRUE(agent.waitForLog("has expired since this connection was made"));
    EXPECT_THROW(channel->receiveFrame(LocalAgent::soon()), ChannelError);
}

TEST_F(AgentCertificates, SessionThatWasAskedNothingLeavesALine) {
    openAs(agent.pki().master("idler")).reset();
    EXPECT_TRUE(agent.waitForLog("CN=idler 127.0.0.1: asked for nothing"));
}
