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
    void open();
    void wait();

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

    explicit ScriptedSet(std::string setName);
    CShellCommand* add(const std::string& commandName, EXECUTE_DESTINATION destination,
                       COMMAND_TYPE type = SCRIPT);
    void execute(std::string command, CNode* node, CResult& result, unsigned limit) override;
    std::vector<Call> calls();
    Behaviour behaviour;

private:
    std::mutex mutex;
    std::vector<Call> seen;
};

// A directory as KELSH_PATH and a shell that finds its files there; nothing on standard input.
class ShellFixture : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    void put(const std::string& name, const std::string& text) const;
    std::string content(const std::string& name) const;
    int run(CShell& shell, std::vector<std::string> words);
    // One run of a shell of its own.
    int run(std::vector<std::string> words);

    TempDir home;
    StandardInput input = StandardInput::file("/dev/null");
    std::string output;
};

// The engine alone: a shell whose tree holds the basic commands and one scripted set, and nodes
// that have no agent. No configuration is read.
class EngineFixture : public ShellFixture {
protected:
    void SetUp() override;
    void useShell(std::unique_ptr<CShell> made);
    void addNodes(int count);
    // Runs one line as the shell would; the printed text is in output.
    int execute(const std::string& line);
    int execute(const std::string& line, const std::string& keys);

    std::unique_ptr<CShell> shell;
    CShellExecutionContext* context = nullptr;
    ScriptedSet* set = nullptr;
    CShellCommand* master = nullptr;
    CShellCommand* slave = nullptr;
    ConfigErrorCollector errors;
    std::unique_ptr<CCommandExecutionContext> request;
};
