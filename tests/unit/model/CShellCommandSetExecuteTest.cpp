#include <unistd.h>

#include <gtest/gtest.h>

#include "CNode.h"
#include "CSSLConfig.h"
#include "CShellCommandSet.h"
#include "Observed.h"
#include "SSLClient.h"
#include "ScriptedClient.h"
#include "UniqueFd.h"

namespace {

// Standard input replaced by a pipe that holds the text.
class PipedInput {
public:
    explicit PipedInput(const std::string& text) : saved(dup(STDIN_FILENO)) {
        int ends[2] = {-1, -1};
        EXPECT_EQ(0, pipe(ends));
        const UniqueFd readEnd(ends[0]);
        const UniqueFd writeEnd(ends[1]);
        EXPECT_EQ(static_cast<ssize_t>(text.size()),
                  write(writeEnd.get(), text.data(), text.size()));
        EXPECT_EQ(STDIN_FILENO, dup2(readEnd.get(), STDIN_FILENO));
    }
    PipedInput(const PipedInput&) = delete;
    PipedInput& operator=(const PipedInput&) = delete;
    ~PipedInput() {
        if (saved) {
            dup2(saved.get(), STDIN_FILENO);
        } else {
            close(STDIN_FILENO);
        }
    }

private:
    UniqueFd saved;
};

class CShellCommandSetExecute : public testing::Test {
protected:
    CShellCommandSetExecute() : set("tools", ""), node("n1", "00:00", "127.0.0.9", 4711) {
        ScriptedClient::reset();
        add("up", "uptime");
        set.addSupportedCommand(new CShellCommand("both", "", "line 32", "line 64", SCRIPT, SLAVE));
        set.addSupportedCommand(new CShellCommand("only32", "", "line 32", "", SCRIPT, SLAVE));
        set.addSupportedCommand(new CShellCommand("only64", "", "", "line 64", SCRIPT, SLAVE));
    }

    void add(const std::string& name, const std::string& line) {
        set.addSupportedCommand(new CShellCommand(name, "", line, SCRIPT, SLAVE));
    }

    CResult run(const std::string& command, unsigned timeOut = 1000) {
        CResult result;
        set.execute(command, &node, result, timeOut);
        return result;
    }

    CResult runHere(const std::string& command) {
        CResult result;
        set.execute(command, nullptr, result, 1000);
        return result;
    }

    void expectFailure(const std::string& command, const std::string& summary) {
        const CResult result = run(command);
        EXPECT_EQ(EXEC_FAILURE, result.getRunStatus()) << command;
        EXPECT_EQ(summary, result.getRunSummary()) << command;
    }

    std::string lastLine() const {
        return agent.calls.empty() ? "" : agent.calls.back().commandLine;
    }

    ScriptedClient& agent = ScriptedClient::instance();
    CShellCommandSet set;
    CNode node;
};

}  // namespace

TEST_F(CShellCommandSetExecute, RunsTheLineOnTheNode) {
    CSSLConfig::getInstance()->setCertificateFile("/etc/kelsh/master.pem");
    agent.answer("uptime", "up for ever\n", 3);
    const CResult result = run("up", 1234);
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_EQ(3, result.getExitCode());
    EXPECT_EQ("up for ever\n", result.getRunSummary());
    ASSERT_EQ(1U, agent.calls.size());
    const ScriptedClient::Call& call = agent.calls.front();
    EXPECT_EQ("127.0.0.9", call.ip);
    EXPECT_EQ(4711, call.port);
    EXPECT_EQ("/etc/kelsh/master.pem", call.certificateFile);
    EXPECT_EQ(1234U, call.timeOutMs);
}

TEST_F(CShellCommandSetExecute, ConnectsWithinAThirdOfTheTimeOut) {
    for (const unsigned timeOut : {3000U, 9000U, 30000U, 2U, 0U, 4294967295U}) {
        run("up", timeOut);
    }
    EXPECT_EQ((std::vector<unsigned>{1000, 3000, 3000, 1, 3000, 3000}), agent.connectTimeOutsMs);
}

TEST_F(CShellCommandSetExecute, FailedConnectionBecomesTheSummary) {
    agent.connectFailure = "n1: connection refused";
    const CResult result = run("up");
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_EQ("n1: connection refused", result.getRunSummary());
    EXPECT_EQ(0, agent.liveClients);
}

TEST_F(CShellCommandSetExecute, LostConnectionBecomesTheSummary) {
    agent.lineFailures["uptime"] = agent.lineFailures["uname -i"] = "n1: closed by the node";
    EXPECT_EQ("n1: closed by the node", run("up").getRunSummary());
    EXPECT_EQ(EXEC_FAILURE, run("both").getRunStatus());
    EXPECT_EQ(0, agent.liveClients);
}

TEST_F(CShellCommandSetExecute, ClientIsGoneAfterwards) {
    run("up");
    EXPECT_EQ(0, agent.liveClients);
}

TEST_F(CShellCommandSetExecute, WithoutANodeRunsHere) {
    add("mixed", "echo out; echo err >&2; exit 4");
    const CResult result = runHere("mixed");
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_EQ(4, result.getExitCode());
    EXPECT_EQ("out\nerr\n", result.getRunSummary());
    EXPECT_TRUE(agent.connectTimeOutsMs.empty());
}

TEST_F(CShellCommandSetExecute, WithoutANodeSucceedsWithExitCodeZero) {
    add("fine", "echo fine");
    const CResult result = runHere("fine");
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ(0, result.getExitCode());
    EXPECT_EQ("fine\n", result.getRunSummary());
}

TEST_F(CShellCommandSetExecute, WithoutANodeReportsASignal) {
    add("killed", "kill -9 $$");
    const CResult result = runHere("killed");
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_EQ(128 + 9, result.getExitCode());
}

TEST_F(CShellCommandSetExecute, WithoutANodeChecksTheCommandFirst) {
    EXPECT_EQ("Command is empty.", runHere("").getRunSummary());
    EXPECT_EQ("Command \"ghost\" is not supported.", runHere("ghost").getRunSummary());
}

TEST_F(CShellCommandSetExecute, WithoutANodeReadsTheShellsInput) {
    add("ask", "read answer; echo got $answer");
    const PipedInput input("yes\n");
    EXPECT_EQ("got yes\n", runHere("ask").getRunSummary());
}

TEST_F(CShellCommandSetExecute, WithoutANodePicksTheLineOfThisMachine) {
    set.addSupportedCommand(new CShellCommand("here", "", "echo 32", "echo 64", SCRIPT, MASTER));
    const std::string expected = sizeof(void*) == 8 ? "64\n" : "32\n";
    EXPECT_EQ(expected, runHere("here").getRunSummary());
    EXPECT_EQ(0U, agent.calls.size());
}

TEST_F(CShellCommandSetExecute, TakesNothingButAStoredName) {
    expectFailure("", "Command is empty.");
    for (const std::string line : {"none", "up -x", " up", "tools/up"}) {
        expectFailure(line, "Command \"" + line + "\" is not supported.");
    }
    EXPECT_TRUE(agent.connectTimeOutsMs.empty());
}

TEST_F(CShellCommandSetExecute, ChoosesTheLineByTheHardwarePlatform) {
    agent.answer("uname -i", " i386\n");
    run("both", 777);
    EXPECT_EQ("line 32", lastLine());
    EXPECT_EQ(777U, agent.calls.back().timeOutMs);
    run("only32");
    EXPECT_EQ("line 32", lastLine());
    expectFailure("only64", "Command for i386 hardware platform is not defined!");
    agent.answer("uname -i", "x86_64\n");
    run("both");
    EXPECT_EQ("line 64", lastLine());
    expectFailure("only32", "Command for x86_64 hardware platform is not defined!");
    for (const char* other : {"", "unknown\n", "i686", "I386", "X86_64", "x86_64 i386"}) {
        agent.answer("uname -i", other);
        expectFailure("both", "Unknown hardware-platform of slave node.");
        expectFailure("only64", "Unknown hardware-platform of slave node.");
    }
}

TEST_F(CShellCommandSetExecute, NumbersThePlatforms) {
    EXPECT_EQ(2, set.checkHardwarePlatformOnSlaveNode(nullptr));
    SSLClient client("127.0.0.9", 4711, "");
    const auto check = [&](const char* answer) {
        agent.answer("uname -i", answer);
        return set.checkHardwarePlatformOnSlaveNode(&client);
    };
    EXPECT_EQ(0, check("i386\n"));
    EXPECT_EQ(1, check("\tx86_64 \n"));
    EXPECT_EQ(2, check("aarch64\n"));
    EXPECT_EQ(2, check(""));
    agent.answer("uname -i", "uname: not found\n", 1);
    EXPECT_EQ(2, set.checkHardwarePlatformOnSlaveNode(&client));
}

TEST_F(CShellCommandSetExecute, IsCalledThroughTheBaseClass) {
    class Own : public CShellCommandSet {
    public:
        Own() : CShellCommandSet("own", "") {}
        void execute(std::string command, CNode*, CResult& result, unsigned milliseconds) override {
            result.setRunSummary(command + std::to_string(milliseconds));
        }
    };
    const std::unique_ptr<CShellCommandSet> own = std::make_unique<Own>();
    CResult result;
    own->execute("x", &node, result, 5);
    EXPECT_EQ("x5", result.getRunSummary());
}
