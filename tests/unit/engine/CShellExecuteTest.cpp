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

TEST_F(CShellExecute, SlaveCommandWithoutNodesIsRefused) {
    EXPECT_EQ(1, execute("there"));
    EXPECT_EQ("Please specify node(s) or group(s) for executing command \"there\".\n", output);
    EXPECT_FALSE(request->isExecuted());
    EXPECT_TRUE(request->isValidCommand());
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
    EXPECT_EQ(5, execute("there -n n1,n2 -t 500"));
    EXPECT_EQ("[n2] (500ms)\nExitCode:5/0[TIMED_OUT], summary: \n",
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

namespace {

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

TEST_F(CShellExecute, FailureBlockNamesStatusAndExitCode) {
    for (const int status : {1, 2, 5}) {
        set->behaviour = [=](const ScriptedSet::Call&, CResult& result) {
            outcome(result, status, 42, "line 1\nline 2\n");
        };
        EXPECT_EQ(status, execute("here"));
        EXPECT_EQ("[local] (ms)\nExitCode:" + std::to_string(status) + "/42[" + statusName(status) +
                      "], summary: line 1\nline 2\n\n",
                  withoutTimes(output));
    }
}

TEST_F(CShellExecute, MasterCommandIgnoresTargetsAndIsNeverConfirmed) {
    addNodes(2);
    master->setCommandConfirmType(ONCE);
    EXPECT_EQ(0, execute("here -n n1,n2", "n"));
    EXPECT_EQ("[local] (ms)\nhere on master\n", withoutTimes(output));
    EXPECT_EQ(1u, set->calls().size());
}

TEST_F(CShellExecute, BlocksComeInNameOrderAndTheLastDecides) {
    addNodes(3);
    set->behaviour = [this](const ScriptedSet::Call& call, CResult& result) {
        if (call.node == "n1") {
            waitFor([this] { return set->calls().size() == 3; });
            outcome(result, 2, 3, "bad");
        } else {
            outcome(result, 0, 0, "fine on " + call.node);
        }
    };
    EXPECT_EQ(0, execute("there -n n3,n1,n2"));
    EXPECT_EQ("[n1] (ms)\nExitCode:2/3[" + statusName(2) +
                  "], summary: bad\n[n2] (ms)\nfine on n2\n"
                  "[n3] (ms)\nfine on n3\n",
              withoutTimes(output));
    EXPECT_TRUE(request->isExecuted());
}

TEST_F(CShellExecute, LastNodesFailureIsTheStatus) {
    addNodes(2);
    set->behaviour = [](const ScriptedSet::Call& call, CResult& result) {
        outcome(result, call.node == "n2" ? 2 : 0, 0, "");
    };
    EXPECT_EQ(2, execute("there -n n1,n2"));
}

struct TimeOutLevels {
    std::string option;
    unsigned command;
    unsigned set;
    unsigned effective;
};

class EffectiveTimeOut : public EngineFixture,
                         public ::testing::WithParamInterface<TimeOutLevels> {};

TEST_P(EffectiveTimeOut, FirstThatIsNotZeroHolds) {
    master->setTimeOut(GetParam().command);
    set->setTimeOut(GetParam().set);
    execute("here" + GetParam().option);
    ASSERT_EQ(1u, set->calls().size());
    EXPECT_EQ(set->calls()[0].timeOut, GetParam().effective);
}

INSTANTIATE_TEST_SUITE_P(Levels, EffectiveTimeOut,
                         ::testing::Values(TimeOutLevels{"", 0, 0, 30000},
                                           TimeOutLevels{" -t 0", 0, 0, 30000},
                                           TimeOutLevels{"", 0, 7000, 7000},
                                           TimeOutLevels{"", 8000, 7000, 8000},
                                           TimeOutLevels{" -t 9000", 8000, 7000, 9000},
                                           TimeOutLevels{" -t 0", 8000, 7000, 8000},
                                           TimeOutLevels{" -t x", 0, 7000, 7000}));

TEST_F(CShellExecute, WorkerGetsTheWordsWithoutThePath) {
    addNodes(1);
    context->toRootLevel();
    EXPECT_EQ(0, execute("lab/there -n n1"));
    ASSERT_EQ(1u, set->calls().size());
    EXPECT_EQ("there", set->calls()[0].request);
    EXPECT_EQ("lab/there", request->getCommandRequest());
    EXPECT_EQ(1, execute("/lab/there"));
    EXPECT_EQ("Please specify node(s) or group(s) for executing command \"there\".\n", output);
}

}  // namespace
