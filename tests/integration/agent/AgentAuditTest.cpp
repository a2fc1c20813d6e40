#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include "AuditLog.h"
#include "CException.h"
#include "CUtil.h"
#include "LocalAgent.h"
#include "NodeCall.h"
#include "SecretMask.h"
#include "TestPaths.h"

// What the real agent writes into its audit.

namespace {

LocalAgent::Options withAudit() {
    LocalAgent::Options options;
    options.settings["AUDIT_FILE"] = "audit.log";
    return options;
}

class AgentAudit : public testing::Test {
protected:
    std::string file() const { return agent.nodePath() + "audit.log"; }
    std::string text() const { return LocalAgent::read(file()); }

    bool hasLine(const std::vector<std::string>& parts) const {
        std::istringstream lines(text());
        for (std::string line; std::getline(lines, line);) {
            bool has = true;
            for (const std::string& part : parts) {
                has = has && line.find(part) != std::string::npos;
            }
            if (has) {
                return true;
            }
        }
        return false;
    }
    bool waitForLine(const std::vector<std::string>& parts) const {
        return waitFor([&] { return hasLine(parts); }, std::chrono::seconds(20));
    }
    int verify(std::string& output) const {
        return CUtil::exec_cmd(
            std::string(KELSH_BINARY_DIR) + "/bin/kelnode --verify-audit " + file(), &output,
            &output);
    }
    std::string run(const std::string& command, std::uint32_t number = 0) const {
        SSLClient client(agent.ip(), agent.port(), agent.masterCertificate());
        client.workFor(std::make_shared<NodeCall>(number));
        client.initAndConnect(10000);
        CResult result;
        client.execute(command, 20000, &result);
        return result.getRunSummary();
    }
    std::unique_ptr<TlsChannel> start(const std::string& command, std::uint8_t flags = 0) const {
        auto channel = agent.openChannel();
        protocol::Exec exec;
        exec.commandLine = command;
        channel->sendFrame(protocol::encode(exec, flags), LocalAgent::soon());
        return channel;
    }

    LocalAgent agent{withAudit()};
};

}  // namespace

TEST_F(AgentAudit, StartIsOnDiskBeforeTheJobRunsAndTheEndBeforeItsResult) {
    const std::string seen = run("cat " + file(), 77);
    EXPECT_NE(seen.find("\"event\":\"start\""), std::string::npos) << seen;
    EXPECT_NE(seen.find("\"what\":\"cat " + file() + "\""), std::string::npos) << seen;
    EXPECT_EQ(std::string::npos, seen.find("\"event\":\"end\"")) << seen;
    EXPECT_TRUE(hasLine({"\"event\":\"end\"", "\"certificate\":\"master\"",
                         "\"address\":\"127.0.0.1\"", "\"user\":\"", "\"command\":77,",
                         "\"request\":\"EXEC\"", "\"outcome\":\"exit code 0\",\"ms\":"}))
        << text();
    std::string output;
    EXPECT_EQ(0, verify(output)) << output;
    EXPECT_NE(output.find("2 lines"), std::string::npos) << output;
}

TEST_F(AgentAudit, EveryKindOfRequestLeavesItsLines) {
    const auto client = agent.connect();
    client->isFileExistedAtSlaveNode("/etc/passwd");
    client->getKelNodeMacAddress(agent.ip());
    const std::string path = agent.nodePath() + "copy";
    std::ofstream(path) << "content";
    CResult result;
    client->execute("[savefile]" + path, 20000, &result);
    EXPECT_EQ(0, result.getRunStatus()) << result.getRunSummary();
    client->execute("[getfile]" + path, 20000, &result);
    EXPECT_EQ(0, result.getRunStatus()) << result.getRunSummary();
    agent.packScript("tool", "#!/bin/sh\nexit 3\n");
    client->executeEncryptedBinary("", "--now", agent.nodePath(), {"tool.enc"}, {}, 20000, &result);
    EXPECT_THROW(
        client->executeEncryptedBinary("", "", agent.nodePath(), {"none.enc"}, {}, 20000, &result),
        CException);
    for (const char* event : {"start", "end"}) {
        const std::string member = std::string("\"event\":\"") + event + "\"";
        EXPECT_TRUE(hasLine({member, "\"request\":\"EXISTS\"", "/etc/passwd"})) << text();
        EXPECT_TRUE(hasLine({member, "\"request\":\"MAC\""})) << text();
        EXPECT_TRUE(hasLine({member, "\"request\":\"PUT\"", path})) << text();
        EXPECT_TRUE(hasLine({member, "\"request\":\"GET\"", path})) << text();
        EXPECT_TRUE(hasLine({member, "\"request\":\"RUN_PACKAGED\"", "tool.enc --now"})) << text();
    }
    EXPECT_TRUE(hasLine({"RUN_PACKAGED", "\"outcome\":\"exit code 3\""})) << text();
    EXPECT_TRUE(hasLine({"RUN_PACKAGED", "\"outcome\":\"not started: "})) << text();
    std::string output;
    EXPECT_EQ(0, verify(output)) << output;
    EXPECT_NE(output.find("12 lines"), std::string::npos) << output;
}

TEST_F(AgentAudit, PasswordsAppearNowhere) {
    const std::string line = "ipmitool -I nowhere -U admin -P hunter2 power status";
    run(line);
    // Who knows the line can prove that it ran.
    const std::string hmac = secretmask::show(line, agent.nodePath() + "maskkey").hmac;
    ASSERT_EQ(64U, hmac.size());
    for (const char* const event : {"\"event\":\"start\"", "\"event\":\"end\""}) {
        EXPECT_TRUE(waitForLine({event, "-U admin -P *** power status\",\"what_hmac\":\"" + hmac}))
            << text();
    }
    EXPECT_TRUE(agent.waitForLog("-P *** power status\" (HMAC " + hmac + "): exit code"))
        << agent.log();
    EXPECT_EQ(std::string::npos, text().find("hunter2"));
    EXPECT_EQ(std::string::npos, agent.log().find("hunter2")) << agent.log();
}

TEST_F(AgentAudit, EndOfAJobIsWrittenWhateverBecomesOfItsShell) {
    start("sleep 60").reset();
    EXPECT_TRUE(waitForLine({"\"event\":\"end\"", "sleep 60", "cancelled"})) << text();
    CResult result;
    agent.connect()->execute("sleep 61", 200, &result);
    EXPECT_TRUE(waitForLine({"\"event\":\"end\"", "sleep 61", "timed out"})) << text();
    const std::string started = agent.nodePath() + "started";
    auto flash = start("touch " + started + "; sleep 0.3; exit 9", protocol::kFlagUninterruptible);
    ASSERT_TRUE(waitFor([&] { return std::filesystem::exists(started); }));
    for (const pid_t session : agent.processes("kelnode-session")) {
        ::kill(session, SIGKILL);
    }
    EXPECT_TRUE(waitForLine({"\"event\":\"end\"", "EXEC (uninterruptible)", "exit code 9"}))
        << text();
    std::string output;
    EXPECT_EQ(0, verify(output)) << output;
}

TEST_F(AgentAudit, RefusedRequestsAreRecorded) {
    std::ofstream(agent.nodePath() + "authz.cfg") << "master=observer\n";
    agent.signal(SIGHUP);
    ASSERT_TRUE(agent.waitForLog("read anew"));
    EXPECT_THROW(run("echo secret plan"), CException);
    EXPECT_TRUE(waitForLine({"\"event\":\"refused\"", "\"request\":\"EXEC\"", "(role observer)"}))
        << text();
    EXPECT_EQ(std::string::npos, text().find("secret plan"));
}

// Whoever asks in vain without end, over several connections, fills neither log nor audit.
TEST_F(AgentAudit, RefusalsAreCountedAndToldOfOnce) {
    std::ofstream(agent.nodePath() + "authz.cfg") << "master=observer\n";
    agent.signal(SIGHUP);
    ASSERT_TRUE(agent.waitForLog("read anew"));
    for (int connection = 0; connection < 3; ++connection) {
        const auto channel = agent.openChannel();
        for (int i = 0; i < 100; ++i) {
            channel->sendFrame(protocol::encode(protocol::Exec(), 0), LocalAgent::soon());
            EXPECT_EQ(protocol::FrameType::kError,
                      channel->receiveFrame(LocalAgent::soon()).header.type);
        }
    }
    // The end of the listener does not wait for the end of the minute.
    agent.signal(SIGTERM);
    ASSERT_TRUE(agent.waitForExit());
    const auto count = [](const std::string& text, const std::string& part) {
        int found = 0;
        for (std::size_t at = text.find(part); at != std::string::npos;
             at = text.find(part, at + 1)) {
            ++found;
        }
        return found;
    };
    EXPECT_EQ(2, count(text(), "\"event\":\"refused\"")) << text();
    EXPECT_TRUE(hasLine({"\"event\":\"refused\"", "(role observer) (299 more in "})) << text();
    EXPECT_EQ(2, count(agent.log(), "refused: EXEC is not allowed")) << agent.log();
    EXPECT_TRUE(agent.waitForLog("(role observer) (299 more in ")) << agent.log();
}

TEST_F(AgentAudit, UserCannotImitateALogLine) {
    const auto channel = agent.openChannel(false);
    protocol::ShellHello hello;
    hello.user = "root): EXEC \"uptime\": exit code 0, 3 ms";
    channel->sendFrame(protocol::encode(hello), LocalAgent::soon());
    channel->sendFrame(protocol::encodeMacRequest(), LocalAgent::soon());
    channel->receiveFrame(LocalAgent::soon());
    ASSERT_TRUE(agent.waitForLog("MAC: ")) << agent.log();
    EXPECT_EQ(std::string::npos, agent.log().find("EXEC ")) << agent.log();
    EXPECT_NE(std::string::npos, agent.log().find("(root\\x29\\x3a\\x20EXEC")) << agent.log();
}

TEST_F(AgentAudit, WhoIsSentAwayIsRecorded) {
    std::ofstream(agent.nodePath() + "authz.cfg") << "somebody=operator\n";
    agent.signal(SIGHUP);
    ASSERT_TRUE(agent.waitForLog("read anew"));
    EXPECT_THROW(run("echo secret plan"), CException);
    EXPECT_TRUE(waitForLine({"\"event\":\"refused\"", "\"request\":\"HELLO\"", "(role none)"}))
        << text();
    EXPECT_EQ(std::string::npos, text().find("secret plan"));
}

TEST_F(AgentAudit, NothingIsDoneThatCannotBeRecorded) {
    std::filesystem::remove(file());
    std::filesystem::create_directory(file());
    const std::string mark = agent.nodePath() + "ran";
    const auto client = agent.connect();
    CResult result;
    EXPECT_THROW(client->execute("touch " + mark, 20000, &result), CException);
    EXPECT_FALSE(std::filesystem::exists(mark));
    EXPECT_TRUE(agent.waitForLog("the audit of this node cannot be written"));
    std::filesystem::remove(file());
    client->execute("touch " + mark, 20000, &result);
    EXPECT_TRUE(std::filesystem::exists(mark));
}

TEST_F(AgentAudit, SessionsWriteAtTheSameTime) {
    constexpr int kSessions = 8;
    constexpr int kJobs = 5;
    std::vector<std::thread> threads;
    for (int i = 0; i < kSessions; ++i) {
        threads.emplace_back([this] {
            const auto client = agent.connect();
            for (int job = 0; job < kJobs; ++job) {
                CResult result;
                client->execute("true", 20000, &result);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const AuditLog::Finding found = AuditLog::verifyFile(file());
    EXPECT_EQ("", found.text) << found.line;
    EXPECT_EQ(found.lines, kSessions * kJobs * 2);
}

TEST_F(AgentAudit, VerifyNamesTheFirstBadLine) {
    run("echo one");
    run("echo two");
    std::string changed = text();
    changed.replace(changed.find("echo two"), 8, "echo TWO");
    std::ofstream(file()) << changed;
    std::string output;
    EXPECT_EQ(1, verify(output)) << output;
    EXPECT_NE(output.find("audit.log, line 3: the line was changed"), std::string::npos) << output;
    EXPECT_NE(
        CUtil::exec_cmd(std::string(KELSH_BINARY_DIR) + "/bin/kelnode --verify-audit /no/such",
                        &output, &output),
        0);
    EXPECT_NE(CUtil::exec_cmd(std::string(KELSH_BINARY_DIR) + "/bin/kelnode --verify-audit",
                              &output, &output),
              0);
}

TEST(AgentWithoutAudit, WritesNone) {
    LocalAgent agent;
    CResult result;
    agent.connect()->execute("true", 20000, &result);
    EXPECT_FALSE(std::filesystem::exists(agent.nodePath() + "audit.log"));
}
