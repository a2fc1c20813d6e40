// Connections to the real agent that are used again.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "CException.h"
#include "Dialer.h"
#include "LocalAgent.h"
#include "NodeCall.h"
#include "SilentPeers.h"
#include "WaitFor.h"

namespace {

LocalAgent::Options withAudit() {
    LocalAgent::Options options;
    options.settings["AUDIT_FILE"] = "audit.log";
    return options;
}

class AgentReuse : public testing::Test {
protected:
    ~AgentReuse() override { Dialer::process().pool().clear(); }

    // A client that is connected, for the command of that number.
    std::unique_ptr<SSLClient> client(std::uint32_t number) const {
        auto made =
            std::make_unique<SSLClient>(agent.ip(), agent.port(), agent.masterCertificate());
        made->workFor(std::make_shared<NodeCall>(number));
        made->initAndConnect(10000);
        return made;
    }
    // The output of a command, or what the client says of its failure.
    std::string run(const std::string& command, std::uint32_t number = 0) const {
        try {
            CResult result;
            client(number)->execute(command, 20000, &result);
            return result.getRunSummary();
        } catch (const CException& fault) {
            return fault.getErrMsg();
        }
    }
    // A session's network side follows it, and with that the connection ends. Who is left without a
    // parent may stay as a zombie, without a connection.
    static bool haveEnded(const std::vector<pid_t>& networkSides) {
        EXPECT_EQ(1U, networkSides.size());
        return waitFor([&] {
            return std::none_of(networkSides.begin(), networkSides.end(), [](pid_t each) {
                const std::string status =
                    LocalAgent::read("/proc/" + std::to_string(each) + "/status");
                return !status.empty() && status.find("State:\tZ") == std::string::npos;
            });
        });
    }
    std::vector<std::string> auditLinesWith(const std::string& part) const {
        std::istringstream lines(LocalAgent::read(agent.nodePath() + "audit.log"));
        std::vector<std::string> found;
        for (std::string line; std::getline(lines, line);) {
            if (line.find(part) != std::string::npos) {
                found.push_back(line);
            }
        }
        return found;
    }

    LocalAgent agent{withAudit()};
};

}  // namespace

TEST_F(AgentReuse, OneSessionServesManyCommandsUnderTheirOwnNumbers) {
    for (const unsigned int number : {11U, 12U, 12U, 13U}) {
        EXPECT_EQ("", client(number)->getKelNodeMacAddress(agent.ip()));
        EXPECT_EQ("as " + std::to_string(number) + "\n",
                  run("echo as " + std::to_string(number), number));
    }
    EXPECT_EQ(1U, agent.processes("kelnode-session").size());
    for (const unsigned int number : {11U, 12U, 13U}) {
        const std::string text = std::to_string(number);
        const std::size_t times = number == 12 ? 2 : 1;
        const std::vector<std::string> jobs = auditLinesWith("echo as " + text);
        EXPECT_GE(jobs.size(), times);
        for (const std::string& line : jobs) {
            EXPECT_NE(line.find("\"command\":" + text + ","), std::string::npos) << line;
        }
        // The question, asked once on the connection, and the jobs, each with its start and its
        // end; an end may come after the answer.
        const std::size_t lines = 2 * times + (number == 11 ? 2 : 0);
        const auto recorded = [&] { return auditLinesWith("\"command\":" + text + ",").size(); };
        EXPECT_TRUE(waitFor([&] { return recorded() >= lines; })) << recorded();
        EXPECT_EQ(lines, recorded());
        const std::string logged = " #" + text + "): EXEC \"echo as " + text;
        EXPECT_TRUE(waitFor([&] { return agent.log().find(logged) != std::string::npos; }))
            << agent.log();
    }
    EXPECT_EQ(0U, auditLinesWith("\"command\":0,").size());
}

TEST_F(AgentReuse, TheNextCommandWorksWhenTheSessionWasKilled) {
    EXPECT_EQ("one\n", run("echo one"));
    const std::vector<pid_t> before = agent.processes("kelnode-session");
    ASSERT_EQ(1U, before.size());
    const std::vector<pid_t> networkSides = agent.processes("kelnode-network");
    ASSERT_EQ(0, ::kill(before.front(), SIGKILL));
    ASSERT_TRUE(haveEnded(networkSides));
    EXPECT_EQ("two\n", run("echo two"));
}

TEST_F(AgentReuse, TheNextCommandWorksWhenTheAgentWasStartedAnew) {
    EXPECT_EQ("one\n", run("echo one"));
    const std::vector<pid_t> networkSides = agent.processes("kelnode-network");
    agent.signal(SIGTERM);
    ASSERT_TRUE(agent.waitForExit());
    ASSERT_TRUE(haveEnded(networkSides));
    EXPECT_NE(run("echo nobody").find("Can not connect"), std::string::npos);
    agent.start();
    EXPECT_EQ("two\n", run("echo two"));
}

TEST_F(AgentReuse, TheNextCommandWorksWhenTheAgentWasKilledAndStartedAnew) {
    EXPECT_EQ("one\n", run("echo one"));
    // The session outlives its listener: it serves on.
    agent.signal(SIGKILL);
    ASSERT_TRUE(agent.waitForExit());
    agent.start();
    EXPECT_EQ("two\n", run("echo two"));
    EXPECT_EQ("three\n", run("echo three"));
}

TEST_F(AgentReuse, AHungSessionCostsAQuestionOneNewConnection) {
    EXPECT_EQ("one\n", run("echo one"));
    const std::vector<pid_t> hung = agent.processes("kelnode-session");
    ASSERT_EQ(1U, hung.size());
    ASSERT_EQ(0, ::kill(hung.front(), SIGSTOP));
    {
        SSLClient client(agent.ip(), agent.port(), agent.masterCertificate());
        client.initAndConnect(2000);
        EXPECT_TRUE(client.isFileExistedAtSlaveNode("/etc"));
    }
    EXPECT_EQ("two\n", run("echo two"));
    ASSERT_EQ(0, ::kill(hung.front(), SIGKILL));
}

TEST_F(AgentReuse, ASilentAgentServesTheNextAttemptWhenItIsBack) {
    agent.signal(SIGSTOP);
    {
        SSLClient client(agent.ip(), agent.port(), agent.masterCertificate());
        EXPECT_THROW(client.initAndConnect(SilentPeers::kSilenceMs), CException);
    }
    EXPECT_EQ(1U, Dialer::process().silentPeers().size());
    agent.signal(SIGCONT);
    EXPECT_TRUE(waitFor([&] { return run("echo one") == "one\n"; }));
    EXPECT_EQ(0U, Dialer::process().silentPeers().size());
}

TEST_F(AgentReuse, ARevokedMasterIsRefusedWhateverRests) {
    const TestPki::Identity lost = agent.pki().master("lost");
    CResult result;
    agent.connect(lost.certificateFile)->execute("true", 20000, &result);
    EXPECT_EQ("other\n", run("echo other"));
    EXPECT_EQ(2U, Dialer::process().pool().size());
    agent.pki().revoke({lost.serial});
    // In force at the agent alone: the shell's files are as they were.
    const std::string made = std::filesystem::path(agent.pki().caFile()).parent_path() / "crl.pem";
    std::filesystem::rename(made, agent.nodePath() + "crl.pem");
    agent.signal(SIGHUP);
    ASSERT_TRUE(agent.waitForLog("is cut off: "));
    // Until its network process has ended too, the kept connection looks well.
    ASSERT_TRUE(waitFor([&] {
        return agent.processes("kelnode-session").size() == 1 &&
               agent.processes("kelnode-network").size() == 1;
    }));
    try {
        agent.connect(lost.certificateFile);
        ADD_FAILURE() << "connected";
    } catch (const CException& refused) {
        EXPECT_NE(refused.getErrMsg().find("revoked"), std::string::npos) << refused.getErrMsg();
    }
    EXPECT_EQ("other\n", run("echo other"));
}

TEST_F(AgentReuse, WhoWasRefusedFindsTheNewRightsAtOnce) {
    std::ofstream(agent.nodePath() + "authz.cfg") << "master=observer\n";
    agent.signal(SIGHUP);
    ASSERT_TRUE(agent.waitForLog("read anew"));
    EXPECT_NE(run("echo no").find("not allowed"), std::string::npos);
    const std::size_t before = agent.log().size();
    std::ofstream(agent.nodePath() + "authz.cfg") << "master=operator\n";
    agent.signal(SIGHUP);
    ASSERT_TRUE(
        waitFor([&] { return agent.log().find("read anew", before) != std::string::npos; }));
    EXPECT_EQ("yes\n", run("echo yes"));
}

TEST_F(AgentReuse, FilesGoOverOneConnectionToo) {
    const std::string path = agent.nodePath() + "file";
    std::ofstream(path) << "content";
    for (int i = 0; i < 3; ++i) {
        CResult result;
        agent.connect()->execute("[savefile]" + path, 20000, &result);
        EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus()) << result.getRunSummary();
        agent.connect()->execute("[getfile]" + path, 20000, &result);
        EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus()) << result.getRunSummary();
        agent.connect()->execute("[getfile]" + path + ".missing", 20000, &result);
        EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    }
    EXPECT_EQ(1U, agent.processes("kelnode-session").size());
}

TEST_F(AgentReuse, AGreetingInBetweenNeedsNoAnswerAndNoRights) {
    std::ofstream(agent.nodePath() + "authz.cfg") << "master=observer\n";
    agent.signal(SIGHUP);
    ASSERT_TRUE(agent.waitForLog("read anew"));
    const auto channel = agent.openChannel();
    protocol::ShellHello hello;
    hello.user = "second";
    hello.sequence = 99;
    channel->sendFrame(
        protocol::encode(hello) + protocol::encode(hello) + protocol::encode(protocol::Exec(), 0),
        LocalAgent::soon());
    // Refused, since an observer runs nothing; but the greetings were in their place.
    const protocol::Frame frame = channel->receiveFrame(LocalAgent::soon());
    ASSERT_EQ(protocol::FrameType::kError, frame.header.type);
    protocol::Error error;
    protocol::decode(frame.body, error);
    EXPECT_EQ(protocol::kErrorRefused, error.code) << error.text;
    // The listener writes refusals, and may do so after the answer.
    EXPECT_TRUE(waitFor([&] { return !auditLinesWith("\"command\":99,").empty(); }));
    EXPECT_EQ(1U, auditLinesWith("\"command\":99,").size());
    EXPECT_EQ(1U, auditLinesWith("\"user\":\"second\"").size());
}
