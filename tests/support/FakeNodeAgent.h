#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "Protocol.h"
#include "TlsChannel.h"
#include "TlsContext.h"
#include "UniqueFd.h"

// A node agent inside the test: a real TLS server on 127.0.0.1 whose conversation is a script.
// Every connection runs the script on a thread of its own; an exception in it ends the connection.
// The destructor cuts all connections and waits for their threads.
class FakeNodeAgent {
public:
    using Script = std::function<void(TlsChannel&)>;
    using RawScript = std::function<void(int)>;  // instead of TLS, on the accepted socket

    // port: 0 for any that is free.
    FakeNodeAgent(const TlsFiles& files, Script conversation, int port = 0);
    explicit FakeNodeAgent(RawScript rawConversation);
    FakeNodeAgent(const FakeNodeAgent&) = delete;
    FakeNodeAgent& operator=(const FakeNodeAgent&) = delete;
    ~FakeNodeAgent();

    int port() const { return boundPort; }
    int accepted() const { return acceptedCount; }
    // Why connections ended, as the agent's log would have it.
    std::vector<std::string> failures() const;

    // A deadline no test should meet.
    static TlsChannel::Deadline soon() { return TlsChannel::after(20000); }

    static void send(TlsChannel& channel, const std::string& frame);
    static std::string frame(protocol::FrameType type, const std::string& body);
    // The greeting; returns what the shell says of itself.
    static protocol::ShellHello greet(TlsChannel& channel);
    static void error(TlsChannel& channel, protocol::ErrorCode code, const std::string& text);
    static void result(TlsChannel& channel, int exitCode, const std::string& text = std::string(),
                       protocol::Result::Ending ending = protocol::Result::Ending::kExited);
    // Says nothing more until the other end leaves.
    static void waitForClose(TlsChannel& channel);

private:
    void start(int port);
    void acceptAll();
    void converse(UniqueFd connection);

    std::shared_ptr<TlsContext> context;
    Script script;
    RawScript rawScript;
    UniqueFd listener;
    UniqueFd stopEvent;
    int boundPort = 0;
    std::atomic<int> acceptedCount{0};
    std::thread acceptor;

    mutable std::mutex mutex;
    std::list<UniqueFd> connections;  // all guarded by mutex
    std::list<std::thread> threads;
    std::vector<std::string> failureTexts;
};
