#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

#include <boost/thread/thread.hpp>

#include "CException.h"
#include "CNodeGroup.h"
#include "CShellCommandSet.h"
#include "CThreadWrapperOfCommand.h"
#include "ClassicResults.h"
#include "CommandEngine.h"
#include "CommandSequence.h"
#include "RequestParser.h"
#include "ResultBlocks.h"
#include "ShellFixture.h"
#include "ShellLogging.h"
#include "StandardStreams.h"
#include "StopWatch.h"

namespace {

using CShellExecute = EngineFixture;

void holdFor(long milliseconds) {
    StopWatch watch;
    watch.start();
    while (watch.getTime() < milliseconds) {
        boost::this_thread::yield();
    }
}

}  // namespace

TEST_F(CShellExecute, UnknownCommandGivesSevenAndPrintsNothing) {
    EXPECT_EQ(7, execute("nothing of that name"));
    EXPECT_EQ("", output);
    EXPECT_FALSE(request->isValidCommand());
    EXPECT_FALSE(request->isExecuted());
}

TEST_F(CShellExecute, MasterCommandReportsUnderLocal) {
    EXPECT_EQ(0, execute("here"));
    EXPECT_EQ("[local] (ms)\nhere on master\n", withoutTimes(output));
    EXPECT_TRUE(request->isValidCommand());
    EXPECT_TRUE(request->isExecuted());
}

TEST_F(CShellExecute, FailureShowsStatusExitCodeAndName) {
    set->behaviour = [](const auto&, CResult& result) {
        result.setRunStatus(EXEC_FAILURE);
        result.setExitCode(13);
        result.setRunSummary("no such disk");
    };
    EXPECT_EQ(2, execute("here"));
    EXPECT_EQ("[local] (ms)\nExitCode:2/13[FAILURE], summary: no such disk\n",
              withoutTimes(output));
}

TEST_F(CShellExecute, RequestKeepsItsTextWhileTheWorkerGetsTheBareCommand) {
    context->toRootLevel();
    EXPECT_EQ(0, execute("lab/here"));
    EXPECT_EQ("here", set->calls().at(0).request);
    EXPECT_EQ("lab/here", request->getCommandRequest());
}

TEST_F(CShellExecute, SlaveCommandWithoutNodesIsRefused) {
    EXPECT_EQ(1, execute("there"));
    EXPECT_EQ("Please specify node(s) or group(s) for executing command \"there\".\n", output);
    EXPECT_FALSE(request->isExecuted());
    EXPECT_TRUE(request->isValidCommand());
}

TEST_F(CShellExecute, ReportsNodesInNameOrderAndReturnsTheLastStatus) {
    addNodes(3);
    set->behaviour = [](const auto& call, CResult& result) {
        if (call.node == "n1") {
            holdFor(20);
        }
        result.setRunSummary(call.node);
        result.setRunStatus(call.node == "n3" ? EXEC_SUCCESS : EXEC_FAILURE);
    };
    EXPECT_EQ(0, execute("there -n n3,n1,n2"));
    EXPECT_EQ(
        "[n1] (ms)\nExitCode:2/0[FAILURE], summary: n1\n"
        "[n2] (ms)\nExitCode:2/0[FAILURE], summary: n2\n"
        "[n3] (ms)\nn3\n",
        withoutTimes(output));
    EXPECT_TRUE(request->isExecuted());
}

TEST_F(CShellExecute, TimeOutComesFromRequestThenCommandThenSetThenDefault) {
    EXPECT_EQ(0, execute("here"));
    EXPECT_EQ(0, execute("here -t 0"));
    set->setTimeOut(4000);
    EXPECT_EQ(0, execute("here"));
    master->setTimeOut(3000);
    EXPECT_EQ(0, execute("here -t 0"));
    EXPECT_EQ(0, execute("here -t 2000"));
    std::vector<unsigned> timeOuts;
    for (const ScriptedSet::Call& call : set->calls()) {
        timeOuts.push_back(call.timeOut);
    }
    EXPECT_EQ((std::vector<unsigned>{30000, 30000, 4000, 3000, 2000}), timeOuts);
}

TEST_F(CShellExecute, HungNodeReportsTimedOutWithTheTimeOutAsRunTime) {
    Gate gate;
    addNodes(2);
    set->behaviour = [&](const auto& call, CResult& result) {
        if (call.node == "n2") {
            gate.wait();
        }
        result.setRunSummary("done");
    };
    EXPECT_EQ(5, execute("there -n n1,n2 -t 60"));
    EXPECT_EQ("[n2] (60ms)\nExitCode:5/0[TIMED_OUT], summary: \n",
              output.substr(output.find("[n2]")));
    EXPECT_NE(std::string::npos, output.find("done"));
    EXPECT_EQ(1U, CShell::runningWorkers());
    EXPECT_LE(1U, CShell::abandonedWorkers());
    gate.open();
    EXPECT_TRUE(waitFor([] { return CShell::runningWorkers() == 0; }));
}

TEST_F(CShellExecute, NodeThatGaveUpByItselfShowsItsOwnTime) {
    addNodes(2);
    set->behaviour = [](const ScriptedSet::Call& call, CResult& result) {
        if (call.node == "n1") {
            result.setRunStatus(EXEC_TIMED_OUT);
            result.setRunSummary("it hangs");
            return;
        }
        holdFor(1000);
    };
    EXPECT_EQ(EXEC_SUCCESS, execute("there -n n1,n2 -t 20000"));
    int shown = -1;
    ASSERT_EQ(1, std::sscanf(output.c_str(), "[n1] (%dms)", &shown)) << output;
    // Not the time for which the command waited for the other node.
    EXPECT_LT(shown, 1000);
    EXPECT_NE(std::string::npos, output.find("ExitCode:5/0[")) << output;
}

TEST_F(CShellExecute, HungMasterCommandIsLeftRunning) {
    Gate gate;
    set->behaviour = [&](const auto&, CResult&) { gate.wait(); };
    EXPECT_EQ(5, execute("here -t 40"));
    EXPECT_EQ("[local] (40ms)\nExitCode:5/0[TIMED_OUT], summary: \n", output);
    EXPECT_TRUE(request->isExecuted());
    gate.open();
    EXPECT_TRUE(waitFor([] { return CShell::runningWorkers() == 0; }));
}

TEST_F(CShellExecute, WaitsForEachNodeFromItsOwnStart) {
    Gate gate;
    addNodes(3);
    set->behaviour = [&](const auto&, CResult&) { gate.wait(); };
    StopWatch watch;
    watch.start();
    EXPECT_EQ(5, execute("there -n n1,n2,n3 -t 100"));
    EXPECT_GE(watch.getTime(), 300);
    gate.open();
    EXPECT_TRUE(waitFor([] { return CShell::runningWorkers() == 0; }));
}

TEST_F(CShellExecute, LateFinisherThatIsJoinedStillReadsAsTimedOut) {
    Gate gate;
    addNodes(2);
    // The wait for n1 gives n2 the time to end after its own time-out, before anybody waits for it.
    set->behaviour = [&](const auto& call, CResult& result) {
        if (call.node == "n1") {
            gate.wait();
        }
        holdFor(120);
        result.setRunSummary("too late");
    };
    EXPECT_EQ(5, execute("there -n n1,n2 -t 100"));
    EXPECT_EQ(
        "[n1] (100ms)\nExitCode:5/0[TIMED_OUT], summary: \n"
        "[n2] (100ms)\nExitCode:5/0[TIMED_OUT], summary: \n",
        output);
    gate.open();
    EXPECT_TRUE(waitFor([] { return CShell::runningWorkers() == 0; }));
}

TEST_F(CShellExecute, ShellMayGoWhileAWorkerHangs) {
    Gate gate;
    std::atomic<bool> usedItsSet{false};
    addNodes(1);
    ScriptedSet* lab = set;
    set->behaviour = [&, lab](const auto& call, CResult& result) {
        gate.wait();
        usedItsSet = lab->getCommandSetName() == "lab" && call.node == "n1";
        result.setRunSummary(std::string(1000, 'x'));
    };
    EXPECT_EQ(5, execute("there -n n1 -t 20"));
    shell.reset();
    gate.open();
    EXPECT_TRUE(waitFor([] { return CShell::runningWorkers() == 0; }));
    EXPECT_TRUE(usedItsSet);
}

TEST_F(CShellExecute, WorkerKeepsItsOwnCopyOfTheNode) {
    Gate gate;
    addNodes(1);
    std::string ip;
    set->behaviour = [&](const auto&, CResult&) { gate.wait(); };
    EXPECT_EQ(5, execute("there -n n1 -t 20"));
    delete context->getNodeMap()["n1"];
    context->getNodeMap().clear();
    gate.open();
    EXPECT_TRUE(waitFor([] { return CShell::runningWorkers() == 0; }));
    EXPECT_EQ("n1", set->calls().at(0).node);
}

TEST_F(CShellExecute, WhatAWorkerThrowsBecomesAFailure) {
    addNodes(2);
    set->behaviour = [](const auto& call, CResult&) {
        if (call.node == "n1") {
            throw CException("the agent said no");
        }
        throw std::runtime_error("out of luck");
    };
    EXPECT_EQ(2, execute("there -n n1,n2"));
    EXPECT_EQ(
        "[n1] (ms)\nExitCode:2/0[FAILURE], summary: the agent said no\n"
        "[n2] (ms)\nExitCode:2/0[FAILURE], summary: out of luck\n",
        withoutTimes(output));
}

TEST_F(CShellExecute, InterruptedWorkerReadsAsTimedOut) {
    addNodes(1);
    set->behaviour = [](const auto&, CResult&) { throw boost::thread_interrupted(); };
    EXPECT_EQ(5, execute("there -n n1 -t 500"));
}

TEST_F(CShellExecute, ThousandNodesRunAtOnce) {
    constexpr int kNodes = 1000;
    auto* group = new CNodeGroup("all");
    context->getNodeGroupList().push_back(group);
    for (int i = 0; i < kNodes; ++i) {
        const std::string name = "node_" + std::to_string(1000 + i);
        auto* node = new CNode(name, "02:00:00:00:00:01", "127.0.0.1", 1);
        context->getNodeMap()[name] = node;
        group->addNode(node);
    }
    // None goes on before all are there.
    std::atomic<int> arrived{0};
    Gate gate;
    set->behaviour = [&](const auto&, CResult& result) {
        if (++arrived == kNodes) {
            gate.open();
        }
        gate.wait();
        result.setRunSummary("here");
    };
    EXPECT_EQ(0, execute("there -g all -t 60000"));
    const std::vector<std::string> names = blockNames(output);
    ASSERT_EQ(static_cast<std::size_t>(kNodes), names.size());
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_EQ(0U, CShell::runningWorkers());
}

TEST_F(CShellExecute, MasterCommandIsNeverConfirmed) {
    master->setCommandConfirmType(ONCE);
    EXPECT_EQ(0, execute("here", ""));
    EXPECT_EQ("[local] (ms)\nhere on master\n", withoutTimes(output));
}

TEST_F(CShellExecute, ConfirmOnceAsksAgainUntilItGetsAnAnswer) {
    addNodes(2);
    slave->setCommandConfirmType(ONCE);
    slave->setCommandConfirmMessage("Really reset?");
    EXPECT_EQ(0, execute("there -n n1,n2", "x\nY"));
    const std::string prompt = "Really reset for 2 node(s)? [Yes/No]\n";
    EXPECT_EQ(prompt + prompt + prompt + "[n1] (ms)\nthere on n1\n[n2] (ms)\nthere on n2\n",
              withoutTimes(output));
}

TEST_F(CShellExecute, ConfirmOnceDeclinedStartsNothing) {
    addNodes(2);
    slave->setCommandConfirmType(ONCE);
    for (const char* keys : {"n", "N", ""}) {
        EXPECT_EQ(1, execute("there -n n1,n2", keys));
        EXPECT_EQ(
            "Do you really want to execute this command for 2 node(s)? [Yes/No]\n"
            "Command \"there\" is canceled for 2 node(s).\n",
            output);
        EXPECT_FALSE(request->isExecuted());
        EXPECT_TRUE(request->isValidCommand());
    }
    EXPECT_TRUE(set->calls().empty());
}

TEST_F(CShellExecute, ConfirmEachYesThenCancelRunsTheFirstNodeOnly) {
    addNodes(3);
    slave->setCommandConfirmType(EACH);
    slave->setCommandConfirmMessage("Reset?");
    EXPECT_EQ(0, execute("there -n n1,n2,n3", "yc"));
    EXPECT_EQ(
        "Reset for n1? [Yes/No/Cancel]\n"
        "Reset for n2? [Yes/No/Cancel]\n"
        "Command \"there\" is canceled for 2 node(s).\n"
        "[n1] (ms)\nthere on n1\n",
        withoutTimes(output));
    EXPECT_EQ(1U, set->calls().size());
}

TEST_F(CShellExecute, ConfirmEachSkipsDeclinedNodesAndAsksAgainAfterOtherKeys) {
    addNodes(3);
    slave->setCommandConfirmType(EACH);
    EXPECT_EQ(0, execute("there -n n1,n2,n3", "n?yY"));
    const std::string question = "Do you really want to execute this command for ";
    EXPECT_EQ(question + "n1? [Yes/No/Cancel]\nCommand \"there\" is canceled for n1.\n" + question +
                  "n2? [Yes/No/Cancel]\n" + question + "n2? [Yes/No/Cancel]\n" + question +
                  "n3? [Yes/No/Cancel]\n" + "[n2] (ms)\nthere on n2\n[n3] (ms)\nthere on n3\n",
              withoutTimes(output));
}

TEST_F(CShellExecute, EveryNodeDeclinedGivesSeven) {
    addNodes(2);
    slave->setCommandConfirmType(EACH);
    EXPECT_EQ(7, execute("there -n n1,n2", "nN"));
    EXPECT_TRUE(request->isExecuted());
    EXPECT_TRUE(set->calls().empty());
}

TEST_F(CShellExecute, EndOfInputAtAPromptForEachNodeCancels) {
    addNodes(3);
    slave->setCommandConfirmType(EACH);
    EXPECT_EQ(0, execute("there -n n1,n2,n3", "y"));
    EXPECT_NE(std::string::npos,
              output.find("Command \"there\" is canceled for 2 node(s).\n[n1] ("));
}

TEST_F(CShellExecute, EarlierNodesRunWhileLaterPromptsAreAsked) {
    addNodes(2);
    slave->setCommandConfirmType(EACH);
    int ends[2];
    ASSERT_EQ(0, ::pipe2(ends, O_CLOEXEC));
    const UniqueFd readEnd(ends[0]);
    const UniqueFd writeEnd(ends[1]);
    const StandardInput typed(readEnd.get());
    // The answer for the second node is only typed by the first one's worker.
    set->behaviour = [&](const auto& call, CResult& result) {
        if (call.node == "n1") {
            EXPECT_EQ(1, ::write(writeEnd.get(), "y", 1));
        }
        result.setRunSummary("ok");
    };
    ASSERT_EQ(1, ::write(writeEnd.get(), "y", 1));
    EXPECT_EQ(0, execute("there -n n1,n2"));
    EXPECT_EQ(2U, set->calls().size());
}

TEST_F(CShellExecute, InterruptWhileAResultIsPrintedLosesNothing) {
    const std::string text(1000000, 'x');
    set->behaviour = [&](const auto&, CResult& result) { result.setRunSummary(text); };
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = &signalHandler;
    ASSERT_EQ(0, ::sigaction(SIGINT, &action, &before));
    int ends[2];
    ASSERT_EQ(0, ::pipe2(ends, O_CLOEXEC));
    const UniqueFd readEnd(ends[0]);
    UniqueFd writeEnd(ends[1]);
    const int capacity = ::fcntl(ends[0], F_GETPIPE_SZ);
    std::string printed;
    const pthread_t printer = ::pthread_self();
    std::thread reader([&] {
        EXPECT_TRUE(waitFor([&] {
            int waiting = 0;
            return ::ioctl(readEnd.get(), FIONREAD, &waiting) == 0 && waiting == capacity;
        }));
        // The pipe is full: the printing thread is held up in the middle of the text.
        ::pthread_kill(printer, SIGINT);
        char bytes[65536];
        for (;;) {
            const ssize_t count = ::read(readEnd.get(), bytes, sizeof bytes);
            if (count <= 0) {
                return;
            }
            printed.append(bytes, static_cast<std::size_t>(count));
        }
    });
    request.reset(shell->processCommandOption("here", *context, &errors));
    {
        const RedirectedFd toPipe(STDOUT_FILENO, writeEnd.get());
        writeEnd.reset();
        EXPECT_EQ(0, shell->execute(request.get(), &errors));
    }
    reader.join();
    ::sigaction(SIGINT, &before, nullptr);
    EXPECT_EQ("[local] (ms)\n" + text + "\nDo not use Ctrl+C to terminate this program.\n",
              withoutTimes(printed));
}

namespace {

// An engine that gets no thread the first few times, or another fault.
class StarvedEngine {
public:
    StarvedEngine(CShellExecutionContext& context, const std::string& home, int failures,
                  std::function<void()> fault)
        : numbers(home + "/cmdseq.cfg"),
          engine(context, numbers, log, home + "/cmdexedump/",
                 [left = failures, fault](const CThreadWrapperOfCommand& body) mutable {
                     if (left-- > 0) {
                         fault();
                     }
                     return std::make_unique<boost::thread>(body);
                 }) {}

    int execute(CCommandExecutionContext& request, ConfigErrorCollector* errors) {
        ClassicResults results(log);
        return engine.execute(request, results, errors);
    }

private:
    ShellLogging log;
    CommandSequence numbers;
    CommandEngine engine;
};

class CommandEngineFaults : public EngineFixture {
protected:
    int executeStarved(const std::string& line, int failures, std::function<void()> fault) {
        StarvedEngine starved(*context, home.path(), failures, std::move(fault));
        const auto parsed = RequestParser(*context).parse(line, &errors);
        ::testing::internal::CaptureStdout();
        const int status = starved.execute(*parsed, &errors);
        output = ::testing::internal::GetCapturedStdout();
        return status;
    }
};

}  // namespace

TEST_F(CommandEngineFaults, ThreadThatCannotBeMadeIsTriedAgain) {
    addNodes(1);
    EXPECT_EQ(0, executeStarved("there -n n1", 2, [] { throw boost::thread_resource_error(); }));
    const std::string wait = "Error in getting resource for a thread in CShell. Wait.\n";
    EXPECT_EQ(wait + wait + "[n1] (ms)\nthere on n1\n", withoutTimes(output));
    EXPECT_EQ(0U, CShell::runningWorkers());
}

TEST_F(CommandEngineFaults, FaultOfTheEngineItselfIsReported) {
    EXPECT_EQ(2, executeStarved("here", 1, [] { throw std::runtime_error("no luck"); }));
    EXPECT_EQ("std::exception in serve_a_request:no luck\n", output);
    EXPECT_EQ(2, executeStarved("here", 1, [] { throw boost::thread_interrupted(); }));
    EXPECT_EQ("Thread interrupted in CShell::execute()....\n", output);
    EXPECT_EQ(0U, CShell::runningWorkers());
}
