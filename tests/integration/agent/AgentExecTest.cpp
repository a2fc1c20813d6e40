#include <gtest/gtest.h>

#include "LocalAgent.h"

namespace {

class AgentExec : public testing::Test {
protected:
    CResult execute(const std::string& line, unsigned int timeOutMs = 20000) {
        CResult result;
        agent.connect()->execute(line, timeOutMs, &result);
        return result;
    }

    LocalAgent agent;
};

}  // namespace

TEST_F(AgentExec, OutputAndExitCodeOfTheShellComeBack) {
    const CResult result = execute("echo out; echo err >&2; echo out2; exit 3");
    EXPECT_EQ("out\nerr\nout2\n", result.getRunSummary());
    EXPECT_EQ(3, result.getExitCode());
    EXPECT_EQ(2, static_cast<int>(result.getRunStatus()));
}

TEST_F(AgentExec, ExitCodeZeroIsSuccess) {
    const CResult result = execute("true");
    EXPECT_EQ("", result.getRunSummary());
    EXPECT_EQ(0, result.getExitCode());
    EXPECT_EQ(0, static_cast<int>(result.getRunStatus()));
}

TEST_F(AgentExec, EndBySignalIs128PlusItsNumber) {
    EXPECT_EQ(139, execute("kill -SEGV $$").getExitCode());
}

TEST_F(AgentExec, UnknownProgramIsTheShells127) {
    EXPECT_EQ(127, execute("no_such_program_here").getExitCode());
}

TEST_F(AgentExec, JobRunsInAPlainEnvironment) {
    EXPECT_EQ("/\n", execute("pwd").getRunSummary());
    EXPECT_EQ("0022\n", execute("umask").getRunSummary());
    EXPECT_EQ(agent.nodePath() + "\n", execute("echo $KELNODE_PATH").getRunSummary());
    EXPECT_EQ("/dev/null\n", execute("readlink /proc/self/fd/0").getRunSummary());
    EXPECT_EQ("4\n", execute("ls /proc/self/fd | wc -l").getRunSummary());
    EXPECT_EQ("SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n",
              execute("grep -E 'Sig(Blk|Ign)' /proc/self/status").getRunSummary());
}

TEST(AgentJobEnvironment, IsTheSameWhateverTheAgentWasStartedWith) {
    LocalAgent::Options options;
    options.environment["PATH"] = "/no/such:/usr/bin:/bin";
    options.environment["SECRET_OF_THE_AGENT"] = "1";
    options.environment["LC_ALL"] = "de_DE.UTF-8";
    options.environment["HOME"] = "/home/somebody";
    LocalAgent agent(options);
    CResult result;
    agent.connect()->execute("env | grep -v ^KELNODE_JOB=job- | LC_ALL=C sort", 20000, &result);
    EXPECT_EQ("HOME=/root\nKELNODE_PATH=" + agent.nodePath() +
                  "\nLANG=C.UTF-8\nLOGNAME=root\nPATH=/no/such:/usr/bin:/bin\nPWD=/\n"
                  "SHELL=/bin/sh\nUSER=root\n",
              result.getRunSummary());
}

TEST_F(AgentExec, SeveralRequestsShareAConnection) {
    const auto client = agent.connect();
    for (int i = 0; i < 5; ++i) {
        CResult result;
        client->execute("echo " + std::to_string(i), 20000, &result);
        EXPECT_EQ(result.getRunSummary(), std::to_string(i) + "\n");
    }
}

TEST_F(AgentExec, TimeOutIsReportedWithTheOutputSoFar) {
    const auto start = std::chrono::steady_clock::now();
    const CResult result = execute("echo begun; sleep 60", 500);
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(5, static_cast<int>(result.getRunStatus()));
    EXPECT_EQ("begun\n", result.getRunSummary());
    EXPECT_LT(elapsed, std::chrono::milliseconds(5000));
}

TEST_F(AgentExec, BackgroundProcessDoesNotHoldUpTheResultAndLivesOn) {
    const std::string mark = agent.nodePath() + "daemon-lives";
    const auto start = std::chrono::steady_clock::now();
    const CResult result = execute("(sleep 1; touch " + mark + ") >/dev/null 2>&1 & echo started");
    EXPECT_EQ("started\n", result.getRunSummary());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(900));
    EXPECT_TRUE(waitFor([&] { return std::filesystem::exists(mark); }));
}

TEST_F(AgentExec, BigOutputArrivesWhole) {
    const CResult result = execute("head -c 20000000 /dev/zero | tr '\\0' x", 60000);
    EXPECT_EQ(20000000U, result.getRunSummary().size());
    EXPECT_EQ(0, result.getExitCode());
}

TEST_F(AgentExec, RequestLeavesOneEscapedLogLine) {
    execute("echo 'two\nlines' \"\x1b[31m\"");
    EXPECT_TRUE(agent.waitForLog("exit code 0"));
    EXPECT_NE(agent.log().find("EXEC \"echo 'two\\nlines' \\\"\\x1b[31m\\\"\": exit code 0"),
              std::string::npos)
        << agent.log();
    EXPECT_NE(agent.log().find("CN=master 127.0.0.1"), std::string::npos) << agent.log();
}
