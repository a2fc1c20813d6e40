#include <thread>

#include <gtest/gtest.h>

#include "CException.h"
#include "LocalAgent.h"

namespace {

class AgentTools : public testing::Test {
protected:
    CResult run(const std::string& arguments, const std::list<std::string>& packages = {"tool.enc"},
                const std::list<std::string>& companions = {}, const std::string& before = "",
                unsigned int timeOutMs = 20000, bool uninterruptible = false) {
        CResult result;
        const auto client = agent.connect();
        client->setUninterruptible(uninterruptible);
        client->executeEncryptedBinary(before, arguments, agent.nodePath(), packages, companions,
                                       timeOutMs, &result);
        return result;
    }

    std::string refusal(const std::list<std::string>& packages,
                        const std::list<std::string>& companions = {}) {
        try {
            const CResult result = run("", packages, companions);
            return "ran: " + result.getRunSummary();
        } catch (const CException& refused) {
            return refused.getErrMsg();
        }
    }

    // Whatever this tool does, it leaves this behind.
    std::string traces() const { return agent.nodePath() + "traces"; }
    std::string toolScript(const std::string& body = "") const {
        return "#!/bin/sh\necho run >> " + traces() + "\n" + body + "\n";
    }
    bool onlyPackagesLeft() const {
        for (const std::string& name : LocalAgent::list(agent.toolsPath())) {
            if (name.size() < 4 || name.substr(name.size() - 4) != ".enc") {
                return false;
            }
        }
        return true;
    }

    LocalAgent agent;
};

}  // namespace

TEST_F(AgentTools, ToolRunsInTheNodePathWithItsArgumentsAndIsGoneAfterwards) {
    agent.packScript("tool", toolScript("echo \"$0|$1|$2|$(pwd)|$(stat -c %a $0)\""));
    const CResult result = run("one 'two words' 2>&1");
    EXPECT_EQ(agent.toolsPath() + "tool|one|two words|" +
                  agent.nodePath().substr(0, agent.nodePath().size() - 1) + "|700\n",
              result.getRunSummary());
    EXPECT_EQ(0, result.getExitCode());
    EXPECT_TRUE(onlyPackagesLeft());
    EXPECT_TRUE(agent.records().empty());
}

TEST_F(AgentTools, PreCommandRunsInTheSameShell) {
    agent.packScript("tool", toolScript("echo $COLOUR"));
    EXPECT_EQ("red\n", run("", {"tool.enc"}, {}, "export COLOUR=red;").getRunSummary());
}

TEST_F(AgentTools, RedirectionsOfTheArgumentsWork) {
    agent.packScript("tool", toolScript("echo out; echo err >&2; exit 5"));
    const std::string file = agent.nodePath() + "out.txt";
    const CResult result = run("2>&1 > " + file);
    EXPECT_EQ("err\n", result.getRunSummary());
    EXPECT_EQ(5, result.getExitCode());
    EXPECT_EQ("out\n", LocalAgent::read(file));
}

TEST_F(AgentTools, AllPackagesAreUnpackedAndCompanionsAreThere) {
    agent.packScript("tool", toolScript("cat $(dirname $0)/second $(dirname $0)/romio.ko"));
    agent.packScript("second", "second package\n");
    std::ofstream(agent.toolsPath() + "romio.ko") << "companion\n";
    EXPECT_EQ("second package\ncompanion\n",
              run("", {"tool.enc", "second.enc"}, {"romio.ko"}).getRunSummary());
    EXPECT_EQ((std::vector<std::string>{"romio.ko", "second.enc", "tool.enc"}),
              LocalAgent::list(agent.toolsPath()));
}

TEST_F(AgentTools, WhatIsMissingIsNamedAndNothingRuns) {
    EXPECT_NE(refusal({"tool.enc"}).find("tool.enc is not on this node"), std::string::npos);
    agent.packScript("tool", toolScript());
    EXPECT_NE(refusal({"tool.enc"}, {"romio.ko"}).find("romio.ko"), std::string::npos);
    EXPECT_NE(refusal({"tool.enc", "other.enc"}).find("other.enc"), std::string::npos);
    EXPECT_NE(refusal({}).find("no packaged tool"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(traces()));
    EXPECT_TRUE(onlyPackagesLeft());
}

TEST_F(AgentTools, PathsInsteadOfNamesAreRefused) {
    agent.packScript("tool", toolScript());
    for (const char* name : {"../tools/tool.enc", "/bin/sh.enc", "tool", "", ".enc", "a b.enc"}) {
        EXPECT_EQ(std::string::npos, refusal({name}).find("ran: ")) << name;
    }
    for (const char* name : {"../kelnode.cfg", "/etc/passwd", "..", ".", "", "tool"}) {
        EXPECT_EQ(std::string::npos, refusal({"tool.enc"}, {name}).find("ran: ")) << name;
    }
    EXPECT_FALSE(std::filesystem::exists(traces()));
}

TEST_F(AgentTools, ForeignNodePathIsRefused) {
    agent.packScript("tool", toolScript());
    CResult result;
    EXPECT_THROW(
        agent.connect()->executeEncryptedBinary("", "", "/tmp/", {"tool.enc"}, {}, 20000, &result),
        CException);
    EXPECT_FALSE(std::filesystem::exists(traces()));
}

TEST_F(AgentTools, TamperedPackagesRunNothing) {
    agent.packScript("tool", toolScript("head -c 200000 /dev/zero"));
    const std::string path = agent.toolsPath() + "tool.enc";
    const std::string good = LocalAgent::read(path);
    for (std::size_t at = 0; at < good.size(); at += 7) {
        std::string bad = good;
        bad[at] = static_cast<char>(bad[at] ^ 0x10);
        std::ofstream(path, std::ios::binary) << bad;
        EXPECT_EQ(std::string::npos, refusal({"tool.enc"}).find("ran: ")) << "byte " << at;
    }
    std::ofstream(path, std::ios::binary) << good.substr(0, good.size() - 1);
    EXPECT_EQ(std::string::npos, refusal({"tool.enc"}).find("ran: "));
    std::filesystem::rename(path, agent.toolsPath() + "renamed.enc");
    std::ofstream(agent.toolsPath() + "renamed.enc", std::ios::binary) << good;
    EXPECT_EQ(std::string::npos, refusal({"renamed.enc"}).find("ran: "));
    EXPECT_FALSE(std::filesystem::exists(traces()));
    EXPECT_TRUE(onlyPackagesLeft());
}

TEST_F(AgentTools, PackagesCutOrSwappedAtAChunkBorderRunNothing) {
    // Four chunks; the first alone would be a whole script.
    agent.packScript("tool",
                     toolScript("exit 0\n#") + std::string(3 * toolpackage::kChunkBytes, 'x'));
    const std::string path = agent.toolsPath() + "tool.enc";
    const std::string good = LocalAgent::read(path);
    const std::size_t sealed = toolpackage::kChunkBytes + toolpackage::kTagBytes;
    const std::size_t header = toolpackage::kFixedHeaderBytes + std::string("tool").size();
    ASSERT_GT(good.size(), header + 3 * sealed);
    EXPECT_EQ(0, run("").getExitCode());
    std::filesystem::remove(traces());
    const auto refuse = [&](const std::string& bad, const std::string& what) {
        std::ofstream(path, std::ios::binary) << bad;
        EXPECT_EQ(std::string::npos, refusal({"tool.enc"}).find("ran: ")) << what;
    };
    for (std::size_t chunks = 0; chunks < 4; ++chunks) {
        refuse(good.substr(0, header + chunks * sealed), "cut after " + std::to_string(chunks));
    }
    std::string swapped = good;
    swapped.replace(header, sealed, good, header + sealed, sealed);
    swapped.replace(header + sealed, sealed, good, header, sealed);
    refuse(swapped, "swapped");
    EXPECT_FALSE(std::filesystem::exists(traces()));
    EXPECT_TRUE(onlyPackagesLeft());
}

TEST_F(AgentTools, WrongKeyRunsNothing) {
    agent.packScript("tool", toolScript());
    std::filesystem::remove(agent.nodePath() + "toolkey");
    EXPECT_EQ(std::string::npos, refusal({"tool.enc"}).find("ran: "));
    toolpackage::ToolKey::createFile(agent.nodePath() + "toolkey");
    EXPECT_EQ(std::string::npos, refusal({"tool.enc"}).find("ran: "));
    EXPECT_FALSE(std::filesystem::exists(traces()));
}

TEST_F(AgentTools, RunsOfOneToolWaitForOneAnother) {
    agent.packScript("tool",
                     toolScript("mkdir " + agent.nodePath() + "alone || exit 9; sleep 0.2; rmdir " +
                                agent.nodePath() + "alone"));
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this] { EXPECT_EQ(0, run("").getExitCode()); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ("run\nrun\nrun\nrun\n", LocalAgent::read(traces()));
    EXPECT_TRUE(onlyPackagesLeft());
}

TEST_F(AgentTools, WaitForAToolInUseEndsWithTheTimeOut) {
    agent.packScript("tool", toolScript("sleep 3"));
    std::thread first([this] { EXPECT_EQ(0, run("").getExitCode()); });
    ASSERT_TRUE(waitFor([this] { return std::filesystem::exists(traces()); }));
    std::string text;
    try {
        run("", {"tool.enc"}, {}, "", 300);
    } catch (const CException& refused) {
        text = refused.getErrMsg();
    }
    EXPECT_NE(text.find("in use"), std::string::npos) << text;
    first.join();
    EXPECT_EQ("run\n", LocalAgent::read(traces()));
}

TEST_F(AgentTools, PlainCopyGoesWhenTheRunTimesOut) {
    agent.packScript("tool", toolScript("sleep 60"));
    EXPECT_EQ(5, static_cast<int>(run("", {"tool.enc"}, {}, "", 500).getRunStatus()));
    EXPECT_TRUE(waitFor([this] { return onlyPackagesLeft(); }));
}

TEST_F(AgentTools, PlainCopyGoesWhoeverIsKilled) {
    agent.packScript("tool", toolScript("sleep 60"));
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        std::filesystem::remove(traces());
        std::thread runner([this] {
            try {
                run("");
            } catch (const CException& lost) {
                EXPECT_FALSE(lost.getErrMsg().empty());
            }
        });
        EXPECT_TRUE(waitFor([this] { return std::filesystem::exists(traces()); }));
        const std::vector<pid_t> sessions = agent.processes("kelnode-session");
        const std::vector<pid_t> supervisors = agent.processes("kelnode-job");
        if (round != 1) {
            ::kill(supervisors.at(0), SIGKILL);
        }
        if (round != 0) {
            ::kill(sessions.at(0), SIGKILL);
        }
        runner.join();
        EXPECT_TRUE(waitFor([this] { return onlyPackagesLeft(); }));
        EXPECT_TRUE(waitFor([this] { return agent.records().empty(); }));
    }
}

TEST_F(AgentTools, LeftoversOfACrashAreSweptAtStart) {
    agent.packScript("tool", toolScript("sleep 60"));
    std::thread runner([this] {
        try {
            run("");
        } catch (const CException& lost) {
            EXPECT_FALSE(lost.getErrMsg().empty());
        }
    });
    EXPECT_TRUE(waitFor([this] { return std::filesystem::exists(traces()); }));
    const std::vector<pid_t> sessions = agent.processes("kelnode-session");
    const std::vector<pid_t> supervisors = agent.processes("kelnode-job");
    agent.signal(SIGKILL);
    ::kill(supervisors.at(0), SIGKILL);
    ::kill(sessions.at(0), SIGKILL);
    runner.join();
    ASSERT_TRUE(agent.waitForExit());
    agent.start();
    EXPECT_TRUE(waitFor([this] { return onlyPackagesLeft() && agent.records().empty(); }));
}

TEST_F(AgentTools, UninterruptibleToolKeepsItsCopyUntilItEndsWhoeverIsKilled) {
    agent.packScript(
        "tool", toolScript("sleep 1; $0.does-not-exist 2>/dev/null; test -x $0 && echo whole >> " +
                           traces()));
    std::thread runner([this] {
        try {
            run("", {"tool.enc"}, {}, "", 20000, true);
        } catch (const CException& lost) {
            EXPECT_FALSE(lost.getErrMsg().empty());
        }
    });
    EXPECT_TRUE(waitFor([this] { return std::filesystem::exists(traces()); }));
    const std::vector<pid_t> sessions = agent.processes("kelnode-session");
    ::kill(agent.processes("kelnode-job").at(0), SIGKILL);
    ::kill(sessions.at(0), SIGKILL);
    runner.join();
    EXPECT_TRUE(waitFor([this] { return LocalAgent::read(traces()) == "run\nwhole\n"; }));
    EXPECT_TRUE(waitFor([this] { return onlyPackagesLeft() && agent.records().empty(); },
                        std::chrono::seconds(15)));
}

TEST_F(AgentTools, WhatARunLeavesIsReadBackBeforeAnotherRunComesBetween) {
    agent.packScript("tool", toolScript("echo \"$1\" > \"$(dirname \"$0\")/../answer\""));
    const std::string answer = "cat " + agent.nodePath() + "answer";
    const auto first = agent.connect();
    CResult result;
    first->executeEncryptedBinary("", "first", agent.nodePath(), {"tool.enc"}, {}, 20000, &result);
    ASSERT_EQ(0, result.getExitCode());
    // The turn is the first one's until it has read what it wants: the others are told whose it is.
    const std::string told = [&] {
        try {
            return run("second", {"tool.enc"}, {}, "", 500).getRunSummary();
        } catch (const CException& refused) {
            return refused.getErrMsg();
        }
    }();
    EXPECT_NE(std::string::npos, told.find("the node is in use by ")) << told;
    EXPECT_NE(std::string::npos, told.find("RUN_PACKAGED")) << told;
    first->execute(answer, 20000, &result);
    EXPECT_EQ("first\n", result.getRunSummary());
    // Other jobs do not wait, and once the first one has ended nobody does.
    agent.connect()->execute(answer, 500, &result);
    EXPECT_EQ("first\n", result.getRunSummary());
    first->initAndConnect();
    EXPECT_EQ(0, run("second", {"tool.enc"}, {}, "", 5000).getExitCode());
}

TEST_F(AgentTools, TurnOfAConversationThatRestsIsOver) {
    agent.packScript("tool", toolScript());
    const auto first = agent.connect();
    CResult result;
    first->executeEncryptedBinary("", "", agent.nodePath(), {"tool.enc"}, {}, 20000, &result);
    EXPECT_EQ(0, run("", {"tool.enc"}, {}, "", 20000).getExitCode());
}

TEST_F(AgentTools, TurnOfASessionThatWasKilledIsOver) {
    agent.packScript("tool", toolScript());
    const auto first = agent.connect();
    CResult result;
    first->executeEncryptedBinary("", "", agent.nodePath(), {"tool.enc"}, {}, 20000, &result);
    for (const pid_t session : agent.processes("kelnode-session")) {
        ::kill(session, SIGKILL);
    }
    EXPECT_EQ(0, run("", {"tool.enc"}, {}, "", 3000).getExitCode());
}

TEST_F(AgentTools, TurnEndsWithTheClientThatHadIt) {
    agent.packScript("tool", toolScript());
    const auto second = agent.connect();
    // Left to the pool: its session goes on.
    run("");
    CResult result;
    second->executeEncryptedBinary("", "", agent.nodePath(), {"tool.enc"}, {}, 1500, &result);
    EXPECT_EQ(0, result.getExitCode());
}
