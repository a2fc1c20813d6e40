#pragma once

#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CNode.h"
#include "CShell.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "CShellCommandSet_Basic.h"
#include "CShellExecutionContext.h"
#include "ConfigErrorCollector.h"
#include "StandardInput.h"
#include "TempDir.h"
#include "WaitFor.h"

// Holds up workers until it is opened.
class Gate {
public:
    ~Gate() { open(); }
    void open() {
        const std::lock_guard<std::mutex> lock(mutex);
        opened = true;
        changed.notify_all();
    }
    void wait() {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return opened; });
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    bool opened = false;
};

// A command set whose commands do what the test says.
class ScriptedSet : public CShellCommandSet {
public:
    struct Call {
        std::string request;
        std::string node;  // empty for the master
        unsigned timeOut;
    };
    using Behaviour = std::function<void(const Call&, CResult&)>;

    explicit ScriptedSet(std::string setName)
        : CShellCommandSet(std::move(setName), "For tests.") {}

    CShellCommand* add(const std::string& commandName, EXECUTE_DESTINATION destination,
                       COMMAND_TYPE type = SCRIPT) {
        auto* command = new CShellCommand(commandName, "A command.", "", type, destination);
        addSupportedCommand(command);
        return command;
    }
    void execute(std::string command, CNode* node, CResult& result, unsigned limit) override {
        const Call call{command, node != nullptr ? node->getName() : "", limit};
        {
            const std::lock_guard<std::mutex> lock(mutex);
            seen.push_back(call);
        }
        if (behaviour) {
            behaviour(call, result);
        } else {
            result.setRunSummary(command + " on " + (node ? node->getName() : "master"));
        }
    }
    std::vector<Call> calls() {
        const std::lock_guard<std::mutex> lock(mutex);
        return seen;
    }
    Behaviour behaviour;

private:
    std::mutex mutex;
    std::vector<Call> seen;
};

// A directory as KELSH_PATH and a shell that finds its files there; nothing on standard input.
class ShellFixture : public ::testing::Test {
protected:
    void SetUp() override {
        ::setenv("KELSH_PATH", home.path().c_str(), 1);
        put("kelsh_version.cfg", "VERSION=1.2\nBUILD=34\n");
        put("node.cfg", "");
        put("ssl_master.cfg", "");
    }
    void TearDown() override {
        EXPECT_TRUE(waitFor([] { return CShell::runningWorkers() == 0; }));
    }

    void put(const std::string& name, const std::string& text) const {
        std::ofstream(home.file(name)) << text;
    }
    std::string content(const std::string& name) const {
        std::ifstream file(home.file(name));
        return std::string(std::istreambuf_iterator<char>(file), {});
    }
    int run(CShell& shell, std::vector<std::string> words) {
        words.insert(words.begin(), "kelsh");
        std::vector<char*> arguments;
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        ::testing::internal::CaptureStdout();
        const int status = shell.run(static_cast<int>(words.size()), arguments.data());
        output = ::testing::internal::GetCapturedStdout();
        return status;
    }
    // One run of a shell of its own.
    int run(std::vector<std::string> words) {
        CShell shell;
        return run(shell, std::move(words));
    }

    TempDir home;
    StandardInput input = StandardInput::file("/dev/null");
    std::string output;
};

// The engine alone: a shell whose tree holds the basic commands and one scripted set, and nodes
// that have no agent. No configuration is read.
class EngineFixture : public ShellFixture {
protected:
    void SetUp() override {
        ShellFixture::SetUp();
        useShell(std::make_unique<CShell>());
    }
    void useShell(std::unique_ptr<CShell> made) {
        shell = std::move(made);
        context = &shell->getExecutionContext();
        context->addCommandSet(new CShellCommandSet_Basic(context));
        set = new ScriptedSet("lab");
        master = set->add("here", MASTER);
        slave = set->add("there", SLAVE);
        context->addCommandSet(set);
        context->toLowerLevel("lab");
    }
    void addNodes(int count) {
        for (int i = 1; i <= count; ++i) {
            const std::string name = "n" + std::to_string(i);
            context->getNodeMap()[name] = new CNode(name, "02:00:00:00:00:01", "127.0.0.1", 1);
        }
    }
    // Runs one line as the shell would; the printed text is in output.
    int execute(const std::string& line) {
        errors.clear();
        request.reset(shell->processCommandOption(line, *context, &errors));
        EXPECT_EQ(0, errors.getSize()) << errors.toString();
        ::testing::internal::CaptureStdout();
        const int status = shell->execute(request.get(), &errors);
        output = ::testing::internal::GetCapturedStdout();
        return status;
    }
    int execute(const std::string& line, const std::string& keys) {
        const StandardInput typed = StandardInput::holding(keys);
        return execute(line);
    }

    std::unique_ptr<CShell> shell;
    CShellExecutionContext* context = nullptr;
    ScriptedSet* set = nullptr;
    CShellCommand* master = nullptr;
    CShellCommand* slave = nullptr;
    ConfigErrorCollector errors;
    std::unique_ptr<CCommandExecutionContext> request;
};
