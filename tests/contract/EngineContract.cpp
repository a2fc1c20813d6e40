// One command on its targets: prompts, blocks, statuses, time-outs, dump files.
#include <chrono>
#include <filesystem>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CCmdThreadResult.h"
#include "CThreadWrapperOfCommand.h"
#include "Contract.h"
#include "RunTimes.h"
#include "ShellFixture.h"

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

void outcome(CResult& result, int status, int exitCode, const std::string& summary) {
    result.setRunStatus(status);
    result.setExitCode(exitCode);
    result.setRunSummary(summary);
}

std::string statusName(int status) {
    CResult result;
    result.setRunStatus(status);
    return result.getStatusEnumString();
}

class EngineContract : public EngineFixture {
protected:
    Words nodesReached() {
        Words names;
        for (const ScriptedSet::Call& call : set->calls()) {
            names.push_back(call.node);
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

TEST_F(EngineContract, UnknownCommandSaysNothingAndIsSeven) {
    EXPECT_EQ(execute("elsewhere"), 7);
    EXPECT_EQ(output, "");
    EXPECT_FALSE(request->isValidCommand());
    EXPECT_FALSE(request->isExecuted());
}

TEST_F(EngineContract, MasterBlockOfASuccess) {
    EXPECT_EQ(execute("here"), 0);
    EXPECT_EQ(timeless(output), "[local] (Nms)\nhere on master\n");
    EXPECT_TRUE(request->isValidCommand());
    EXPECT_TRUE(request->isExecuted());
    ASSERT_EQ(set->calls().size(), 1u);
    EXPECT_EQ(set->calls()[0].request, "here");
    EXPECT_EQ(set->calls()[0].node, "");
}

TEST_F(EngineContract, FailureBlockNamesStatusAndExitCode) {
    for (const int status : {1, 2, 5}) {
        set->behaviour = [=](const ScriptedSet::Call&, CResult& result) {
            outcome(result, status, 42, "line 1\nline 2\n");
        };
        EXPECT_EQ(execute("here"), status);
        EXPECT_EQ(timeless(output), "[local] (Nms)\nExitCode:" + std::to_string(status) + "/42[" +
                                        statusName(status) + "], summary: line 1\nline 2\n\n");
    }
}

TEST_F(EngineContract, MasterCommandIgnoresTargetsAndIsNeverConfirmed) {
    addNodes(2);
    master->setCommandConfirmType(ONCE);
    EXPECT_EQ(execute("here -n n1,n2", "n"), 0);
    EXPECT_EQ(timeless(output), "[local] (Nms)\nhere on master\n");
    EXPECT_EQ(set->calls().size(), 1u);
}

TEST_F(EngineContract, NodeCommandWithoutTargets) {
    EXPECT_EQ(execute("there"), 1);
    EXPECT_EQ(output, "Please specify node(s) or group(s) for executing command \"there\".\n");
    EXPECT_TRUE(request->isValidCommand());
    EXPECT_TRUE(set->calls().empty());
}

TEST_F(EngineContract, BlocksComeInNameOrderAndTheLastDecides) {
    addNodes(3);
    set->behaviour = [this](const ScriptedSet::Call& call, CResult& result) {
        if (call.node == "n1") {
            waitFor([this] { return set->calls().size() == 3; });
            outcome(result, 2, 3, "bad");
        } else {
            outcome(result, 0, 0, "fine on " + call.node);
        }
    };
    EXPECT_EQ(execute("there -n n3,n1,n2"), 0);
    EXPECT_EQ(timeless(output), "[n1] (Nms)\nExitCode:2/3[" + statusName(2) +
                                    "], summary: bad\n[n2] (Nms)\nfine on n2\n"
                                    "[n3] (Nms)\nfine on n3\n");
    EXPECT_TRUE(request->isExecuted());
}

TEST_F(EngineContract, LastNodesFailureIsTheStatus) {
    addNodes(2);
    set->behaviour = [](const ScriptedSet::Call& call, CResult& result) {
        outcome(result, call.node == "n2" ? 2 : 0, 0, "");
    };
    EXPECT_EQ(execute("there -n n1,n2"), 2);
}

struct TimeOutLevels {
    std::string option;
    unsigned command;
    unsigned set;
    unsigned effective;
};

class TimeOutContract : public EngineFixture,
                        public ::testing::WithParamInterface<TimeOutLevels> {};

TEST_P(TimeOutContract, FirstThatIsNotZeroHolds) {
    master->setTimeOut(GetParam().command);
    set->setTimeOut(GetParam().set);
    execute("here" + GetParam().option);
    ASSERT_EQ(set->calls().size(), 1u);
    EXPECT_EQ(set->calls()[0].timeOut, GetParam().effective);
}

INSTANTIATE_TEST_SUITE_P(Levels, TimeOutContract,
                         ::testing::Values(TimeOutLevels{"", 0, 0, 30000},
                                           TimeOutLevels{" -t 0", 0, 0, 30000},
                                           TimeOutLevels{"", 0, 7000, 7000},
                                           TimeOutLevels{"", 8000, 7000, 8000},
                                           TimeOutLevels{" -t 9000", 8000, 7000, 9000},
                                           TimeOutLevels{" -t 0", 8000, 7000, 8000},
                                           TimeOutLevels{" -t x", 0, 7000, 7000}));

TEST_F(EngineContract, HungMasterReportsItsTimeOut) {
    Gate gate;
    set->behaviour = [&](const ScriptedSet::Call&, CResult& result) {
        gate.wait();
        outcome(result, 0, 0, "too late to be told");
    };
    EXPECT_EQ(execute("here -t 60"), 5);
    EXPECT_EQ(output, "[local] (60ms)\nExitCode:5/0[" + statusName(5) + "], summary: \n");
    EXPECT_TRUE(request->isExecuted());
    gate.open();
    EXPECT_TRUE(waitFor([] { return CShell::runningWorkers() == 0; }));
}

TEST_F(EngineContract, HungNodesAreWaitedForOneAfterTheOther) {
    addNodes(3);
    Gate gate;
    set->behaviour = [&](const ScriptedSet::Call& call, CResult& result) {
        if (call.node != "n2") {
            gate.wait();
        }
        result.setRunSummary("done");
    };
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(execute("there -n n1,n2,n3 -t 500"), 5);
    const auto spent = std::chrono::steady_clock::now() - before;
    EXPECT_GE(spent, std::chrono::milliseconds(1000)) << "two full waits";
    const std::string late = "ExitCode:5/0[" + statusName(5) + "], summary: \n";
    EXPECT_THAT(output, StartsWith("[n1] (500ms)\n" + late + "[n2] ("));
    EXPECT_THAT(output, HasSubstr("ms)\ndone\n[n3] (500ms)\n" + late));
    gate.open();
    EXPECT_TRUE(waitFor([] { return CShell::runningWorkers() == 0; }));
}

TEST_F(EngineContract, WhatASetThrowsBecomesAFailure) {
    set->behaviour = [](const ScriptedSet::Call&, CResult&) { throw CException("no such luck"); };
    EXPECT_EQ(execute("here"), 2);
    EXPECT_THAT(output, HasSubstr("ExitCode:2/"));
    EXPECT_THAT(output, HasSubstr("summary: no such luck\n"));
    set->behaviour = [](const ScriptedSet::Call&, CResult&) { throw std::runtime_error("worse"); };
    EXPECT_EQ(execute("here"), 2);
    EXPECT_THAT(output, HasSubstr("worse"));
}

TEST_F(EngineContract, WorkerGetsTheWordsWithoutThePath) {
    addNodes(1);
    context->toRootLevel();
    EXPECT_EQ(execute("lab/there -n n1"), 0);
    ASSERT_EQ(set->calls().size(), 1u);
    EXPECT_EQ(set->calls()[0].request, "there");
    EXPECT_EQ(request->getCommandRequest(), "lab/there");
    EXPECT_EQ(execute("/lab/there"), 1);
    EXPECT_EQ(output, "Please specify node(s) or group(s) for executing command \"there\".\n");
}

// --- confirmation

class ConfirmContract : public EngineContract {
protected:
    void SetUp() override {
        EngineContract::SetUp();
        addNodes(3);
        slave->setCommandConfirmMessage("Sure?");
    }
    // Newlines that only follow a key do not count here.
    std::string spoken() const {
        std::string text = timeless(output);
        for (const char* question : {"[Yes/No]", "[Yes/No/Cancel]"}) {
            const std::string ending = std::string(question) + "\n";
            for (std::size_t at = 0; (at = text.find(ending, at)) != std::string::npos;) {
                at += std::string(question).size();
                text.erase(at, 1);
            }
        }
        return text;
    }
};

const std::string onceAsked = "Sure for 3 node(s)? [Yes/No]";

std::string block(const std::string& name) {
    return "[" + name + "] (Nms)\nthere on " + name + "\n";
}

TEST_F(ConfirmContract, OnceYes) {
    slave->setCommandConfirmType(ONCE);
    for (const char* yes : {"y", "Y"}) {
        EXPECT_EQ(execute("there -n n1,n2,n3", yes), 0);
        EXPECT_EQ(spoken(), onceAsked + block("n1") + block("n2") + block("n3"));
    }
}

TEST_F(ConfirmContract, OnceNo) {
    slave->setCommandConfirmType(ONCE);
    for (const char* no : {"n", "N", ""}) {
        EXPECT_EQ(execute("there -n n1,n2,n3", no), 1);
        EXPECT_EQ(spoken(), onceAsked + "Command \"there\" is canceled for 3 node(s).\n");
        EXPECT_TRUE(set->calls().empty());
        EXPECT_TRUE(request->isValidCommand());
    }
}

TEST_F(ConfirmContract, OnceAsksUntilItIsAnAnswer) {
    slave->setCommandConfirmType(ONCE);
    EXPECT_EQ(execute("there -n n1,n2,n3", "c\n y"), 0);
    EXPECT_EQ(spoken(), onceAsked + onceAsked + onceAsked + onceAsked + block("n1") + block("n2") +
                            block("n3"));
}

TEST_F(ConfirmContract, OnceWithoutAMessageUsesTheDefault) {
    slave->setCommandConfirmMessage("");
    slave->setCommandConfirmType(ONCE);
    execute("there -n n2", "n");
    EXPECT_EQ(spoken(),
              "Do you really want to execute this command for 1 node(s)? [Yes/No]"
              "Command \"there\" is canceled for 1 node(s).\n");
}

TEST_F(ConfirmContract, OnlyOneQuestionMarkGoes) {
    slave->setCommandConfirmMessage("What??");
    slave->setCommandConfirmType(ONCE);
    execute("there -n n2", "n");
    EXPECT_THAT(output, StartsWith("What? for 1 node(s)? [Yes/No]"));
    slave->setCommandConfirmMessage("Plain.");
    execute("there -n n2", "n");
    EXPECT_THAT(output, StartsWith("Plain. for 1 node(s)? [Yes/No]"));
}

std::string eachAsked(const std::string& name) {
    return "Sure for " + name + "? [Yes/No/Cancel]";
}

struct Answers {
    std::string keys;
    std::string spoken;
    Words reached;
    int status;
};

class EachContract : public ConfirmContract, public ::testing::WithParamInterface<Answers> {};

TEST_P(EachContract, AsksForEveryNode) {
    slave->setCommandConfirmType(EACH);
    EXPECT_EQ(execute("there -n n1,n2,n3", GetParam().keys), GetParam().status);
    EXPECT_EQ(spoken(), GetParam().spoken);
    EXPECT_EQ(nodesReached(), GetParam().reached);
    EXPECT_TRUE(request->isValidCommand());
}

const std::string all3 = eachAsked("n1") + eachAsked("n2") + eachAsked("n3");

std::string declined(const std::string& who) {
    return "Command \"there\" is canceled for " + who + ".\n";
}

INSTANTIATE_TEST_SUITE_P(
    Keys, EachContract,
    ::testing::Values(
        Answers{"yYy", all3 + block("n1") + block("n2") + block("n3"), {"n1", "n2", "n3"}, 0},
        Answers{"yc",
                eachAsked("n1") + eachAsked("n2") + declined("2 node(s)") + block("n1"),
                {"n1"},
                0},
        Answers{"nny",
                eachAsked("n1") + declined("n1") + eachAsked("n2") + declined("n2") +
                    eachAsked("n3") + block("n3"),
                {"n3"},
                0},
        Answers{"NnN",
                eachAsked("n1") + declined("n1") + eachAsked("n2") + declined("n2") +
                    eachAsked("n3") + declined("n3"),
                {},
                7},
        Answers{"C", eachAsked("n1") + declined("3 node(s)"), {}, 7},
        // Declined nodes are not started: they count.
        Answers{"nyc",
                eachAsked("n1") + declined("n1") + eachAsked("n2") + eachAsked("n3") +
                    declined("2 node(s)") + block("n2"),
                {"n2"},
                0},
        Answers{"xy\tyc",
                eachAsked("n1") + eachAsked("n1") + eachAsked("n2") + eachAsked("n2") +
                    eachAsked("n3") + declined("1 node(s)") + block("n1") + block("n2"),
                {"n1", "n2"},
                0},
        Answers{"y",
                eachAsked("n1") + eachAsked("n2") + declined("2 node(s)") + block("n1"),
                {"n1"},
                0}));

TEST_F(ConfirmContract, SetsConfirmationIsInherited) {
    set->setCommandSetConfirmType(ONCE);
    set->setCommandSetConfirmMessage("All of lab?");
    slave->setCommandConfirmType(INHERITANCE);
    execute("there -n n1", "n");
    EXPECT_EQ(spoken(),
              "All of lab for 1 node(s)? [Yes/No]Command \"there\" is canceled for 1 node(s).\n");
}

TEST_F(ConfirmContract, EarlierNodeRunsWhileLaterOnesAreAsked) {
    slave->setCommandConfirmType(EACH);
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const UniqueFd readEnd(ends[0]);
    UniqueFd writeEnd(ends[1]);
    const StandardInput typed(readEnd.get());
    ASSERT_EQ(::write(writeEnd.get(), "y", 1), 1);
    bool ranBeforeTheNextAnswer = false;
    std::thread user([&] {
        ranBeforeTheNextAnswer = waitFor([&] { return set->calls().size() == 1; });
        EXPECT_EQ(::write(writeEnd.get(), "c", 1), 1);
    });
    EXPECT_EQ(execute("there -n n1,n2"), 0);
    user.join();
    EXPECT_TRUE(ranBeforeTheNextAnswer);
}

// --- logs and dump files

class DumpContract : public EngineFixture {
protected:
    void SetUp() override {
        ShellFixture::SetUp();
        std::filesystem::create_directory(home.file("cmdexedump"));
        put("log4cxx.properties",
            "log4j.rootLogger=OFF\n"
            "log4j.logger.kelsh=INFO, K\nlog4j.additivity.kelsh=false\n"
            "log4j.appender.K=org.apache.log4j.FileAppender\n"
            "log4j.appender.K.File=" +
                home.file("kelsh.log") +
                "\nlog4j.appender.K.layout=org.apache.log4j.PatternLayout\n"
                "log4j.appender.K.layout.ConversionPattern=%p %m%n\n"
                "log4j.logger.cmdresult=INFO, CMD_RESULT_FILE\n"
                "log4j.additivity.cmdresult=false\n"
                "log4j.appender.CMD_RESULT_FILE=org.apache.log4j.FileAppender\n"
                "log4j.appender.CMD_RESULT_FILE.File=" +
                home.file("cmdexedump/start.log") +
                "\nlog4j.appender.CMD_RESULT_FILE.layout=org.apache.log4j.PatternLayout\n"
                "log4j.appender.CMD_RESULT_FILE.layout.ConversionPattern=%p %m%n\n");
        useShell(std::make_unique<CShell>());
        // Configures logging and reads the (empty) configuration of the directory.
        CShellExecutionContext scratch;
        std::list<std::string> none;
        printedBy([&] { ASSERT_TRUE(shell->init(none, scratch)); });
    }
};

TEST_F(DumpContract, DumpFileIsNamedByTheCurrentNumber) {
    addNodes(2);
    EXPECT_EQ(execute("there -n n1,n2"), 0);
    EXPECT_EQ(timeless(content("cmdexedump/cmd_0.log")),
              "INFO [n1] (Nms)\nthere on n1\n"
              "INFO [n2] (Nms)\nthere on n2\n");
    put("cmdseq.cfg", "17");
    EXPECT_EQ(shell->getNextCmdSeq(), 17u);
    set->behaviour = [](const ScriptedSet::Call&, CResult& result) {
        outcome(result, 2, 9, "bad");
    };
    execute("here");
    EXPECT_EQ(timeless(content("cmdexedump/cmd_17.log")),
              "INFO [local] (Nms)\nExitCode:2/9[" + statusName(2) + "], summary: bad\n");
}

TEST_F(DumpContract, DeletionsLeaveTheirTraces) {
    addNodes(2);
    execute("there -n n1,n2");
    std::string traces;
    for (const char* name : {"n1", "n2"}) {
        for (const char* what :
             {"[Delete CResult for ", "[Before delete thread for ", "[Delete thread for "}) {
            traces += std::string("INFO ") + what + name + "]\n";
        }
    }
    EXPECT_THAT(content("kelsh.log"), HasSubstr(traces));
}

// --- the runner alone

class RunnerContract : public EngineFixture {
protected:
    CResult callers;
    void SetUp() override {
        EngineFixture::SetUp();
        outcome(callers, 5, 99, "as it was");
        callers.setRunTime(12345);
    }
};

TEST_F(RunnerContract, HandsBackARunThatWasInTime) {
    set->behaviour = [](const ScriptedSet::Call&, CResult& result) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        outcome(result, 2, 4, "told");
    };
    CThreadWrapperOfCommand runner("here", *set, nullptr, &callers, 10000);
    runner();
    EXPECT_EQ(callers.getRunStatus(), 2);
    EXPECT_EQ(callers.getExitCode(), 4);
    EXPECT_EQ(callers.getRunSummary(), "told");
    EXPECT_GE(callers.getRunTime(), 20);
    EXPECT_LT(callers.getRunTime(), 10000);
    ASSERT_EQ(set->calls().size(), 1u);
    EXPECT_EQ(set->calls()[0].timeOut, 10000u);
}

TEST_F(RunnerContract, LeavesTheCallersResultAfterALateRun) {
    set->behaviour = [](const ScriptedSet::Call&, CResult& result) {
        std::this_thread::sleep_for(std::chrono::milliseconds(60));
        outcome(result, 0, 0, "late");
    };
    CThreadWrapperOfCommand runner("here", *set, nullptr, &callers, 40);
    runner();
    EXPECT_EQ(callers.getRunStatus(), 5);
    EXPECT_EQ(callers.getExitCode(), 99);
    EXPECT_EQ(callers.getRunSummary(), "as it was");
    EXPECT_EQ(callers.getRunTime(), 12345);
}

TEST_F(RunnerContract, MayBeCopiedBeforeItRuns) {
    std::unique_ptr<CThreadWrapperOfCommand> original(
        new CThreadWrapperOfCommand("here", *set, nullptr, &callers, 1000));
    CThreadWrapperOfCommand copy(*original);
    original.reset();
    copy();
    EXPECT_EQ(callers.getRunStatus(), 0);
    EXPECT_EQ(callers.getRunSummary(), "here on master");
}

TEST_F(RunnerContract, WorksOnAPrivateCopyOfTheNode) {
    CNode node("n1", "02:00:00:00:00:01", "127.0.0.1", 1);
    class Spy : public CShellCommandSet {
    public:
        Spy() : CShellCommandSet("spy", "") {}
        void execute(std::string, CNode* given, CResult&, unsigned) override { seen = given; }
        CNode* seen = nullptr;
    } spy;
    CThreadWrapperOfCommand runner("x", spy, &node, &callers, 20000);
    runner();
    ASSERT_NE(spy.seen, nullptr);
    EXPECT_NE(spy.seen, &node);
    EXPECT_EQ(callers.getRunStatus(), 0);
}

TEST(CmdThreadResultContract, IsThreePlainPointers) {
    CNode node("n1", "02:00:00:00:00:01", "127.0.0.1", 1);
    CResult result;
    auto* thread = reinterpret_cast<boost::thread*>(&result);
    CCmdThreadResult entry(&node, thread, &result);
    EXPECT_EQ(entry.getNode(), &node);
    EXPECT_EQ(entry.getThread(), thread);
    EXPECT_EQ(entry.getResult(), &result);
    CCmdThreadResult(nullptr, nullptr, nullptr);
}

}  // namespace
