#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "FakeNodeAgent.h"
#include "Protocol.h"

// An agent that behaves: what a node knows and does, to be given to FakeNodeAgent as its script:
//   FakeNode node; node.onCommand = ...; FakeNodeAgent agent(files, node.script());
// The node must outlive the agent. Fields set before the agent starts; the records are read through
// the methods.
class FakeNode {
public:
    struct Reply {
        std::string output;
        int exitCode = 0;
    };

    std::string macAddress = "02:00:00:00:00:01";
    std::function<Reply(const std::string&)> onCommand = [](const std::string&) { return Reply(); };
    std::function<Reply(const protocol::RunPackaged&)> onPackaged =
        [](const protocol::RunPackaged&) { return Reply(); };

    FakeNodeAgent::Script script();
    void setFile(const std::string& path, const std::string& content);
    // Empty where there is none.
    std::string file(const std::string& path) const;
    std::vector<std::string> commands() const;
    std::vector<protocol::RunPackaged> packagedRuns() const;
    // The command number under which each job came.
    std::vector<std::uint32_t> numbers() const;
    // How often a shell asked who the node is.
    int macQuestions() const { return macQuestionCount; }
    // How often a shell greeted.
    int greetings() const { return greetingCount; }
    // The flags of the last job.
    int lastFlags() const { return flags; }

private:
    bool holds(const std::string& path) const;
    void answer(TlsChannel& channel, const protocol::Frame& frame);
    void note(const protocol::ShellHello& hello);
    static void say(TlsChannel& channel, const std::string& text);
    static void reply(TlsChannel& channel, const Reply& reply);
    void runCommand(TlsChannel& channel, const protocol::Frame& frame);
    void runPackaged(TlsChannel& channel, const protocol::Frame& frame);
    void take(TlsChannel& channel, const protocol::Frame& frame);
    void give(TlsChannel& channel, const protocol::Frame& frame);

    mutable std::mutex mutex;
    std::map<std::string, std::string> files;  // guarded by mutex
    std::vector<std::string> commandLines;
    std::vector<std::uint32_t> commandNumbers;
    std::vector<protocol::RunPackaged> packaged;
    std::atomic<int> flags{0};
    // Of the shell that greeted last.
    std::atomic<std::uint32_t> sequence{0};
    std::atomic<int> greetingCount{0};
    std::atomic<int> macQuestionCount{0};
};
