#pragma once

#include <atomic>
#include <cerrno>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include "FileDigest.h"
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
    FakeNodeAgent(const TlsFiles& files, Script conversation, int port = 0)
        : context(TlsContext::server(files)), script(std::move(conversation)) {
        start(port);
    }
    explicit FakeNodeAgent(RawScript rawConversation) : rawScript(std::move(rawConversation)) {
        start(0);
    }
    FakeNodeAgent(const FakeNodeAgent&) = delete;
    FakeNodeAgent& operator=(const FakeNodeAgent&) = delete;
    ~FakeNodeAgent() {
        const eventfd_t one = 1;
        (void)eventfd_write(stopEvent.get(), one);
        acceptor.join();
        {
            const std::lock_guard<std::mutex> lock(mutex);
            for (const UniqueFd& connection : connections) {
                shutdown(connection.get(), SHUT_RDWR);
            }
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    int port() const { return boundPort; }
    int accepted() const { return acceptedCount; }
    // Why connections ended, as the agent's log would have it.
    std::vector<std::string> failures() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return failureTexts;
    }

    // A deadline no test should meet.
    static TlsChannel::Deadline soon() { return TlsChannel::after(20000); }

    static void send(TlsChannel& channel, const std::string& frame) {
        channel.sendFrame(frame, soon());
    }
    static std::string frame(protocol::FrameType type, const std::string& body) {
        protocol::FrameHeader header;
        header.type = type;
        header.length = static_cast<std::uint32_t>(body.size());
        return protocol::encodeHeader(header) + body;
    }
    // The greeting; returns what the shell says of itself.
    static protocol::ShellHello greet(TlsChannel& channel) {
        send(channel, protocol::encode(protocol::AgentHello()));
        protocol::ShellHello hello;
        protocol::decode(channel.receiveFrame(soon()).body, hello);
        return hello;
    }
    static void error(TlsChannel& channel, protocol::ErrorCode code, const std::string& text) {
        protocol::Error body;
        body.code = code;
        body.text = text;
        send(channel, protocol::encode(body));
    }
    static void result(TlsChannel& channel, int exitCode, const std::string& text = std::string(),
                       protocol::Result::Ending ending = protocol::Result::Ending::kExited) {
        protocol::Result body;
        body.ending = ending;
        body.value = exitCode;
        body.text = text;
        send(channel, protocol::encode(body));
    }
    // Says nothing more until the other end leaves.
    static void waitForClose(TlsChannel& channel) {
        protocol::Frame ignored;
        for (;;) {
            channel.receiveFrame(ignored, soon());
        }
    }

private:
    void start(int port) {
        listener.reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        stopEvent.reset(eventfd(0, EFD_CLOEXEC));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        socklen_t length = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        const int on = 1;
        if (!listener || !stopEvent ||
            setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
            bind(listener.get(), generic, length) != 0 || listen(listener.get(), 256) != 0 ||
            getsockname(listener.get(), generic, &length) != 0) {
            throw std::runtime_error("the fake agent cannot listen");
        }
        boundPort = ntohs(address.sin_port);
        acceptor = std::thread([this] { acceptAll(); });
    }

    void acceptAll() {
        for (;;) {
            pollfd watched[2] = {{listener.get(), POLLIN, 0}, {stopEvent.get(), POLLIN, 0}};
            if (poll(watched, 2, -1) < 0 && errno == EINTR) {
                continue;
            }
            if (watched[1].revents != 0) {
                return;
            }
            UniqueFd connection(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (connection) {
                ++acceptedCount;
                // A second descriptor, so that the destructor can cut a connection that its thread
                // is about to close.
                const std::lock_guard<std::mutex> lock(mutex);
                connections.emplace_back(dup(connection.get()));
                const auto handle = std::prev(connections.end());
                threads.emplace_back([this, handle, fd = connection.release()] {
                    converse(UniqueFd(fd));
                    const std::lock_guard<std::mutex> guard(mutex);
                    connections.erase(handle);
                });
            }
        }
    }

    void converse(UniqueFd connection) {
        try {
            if (rawScript) {
                rawScript(connection.get());
                return;
            }
            const std::unique_ptr<TlsChannel> channel =
                TlsChannel::accept(std::move(connection), context, soon());
            script(*channel);
        } catch (const std::exception& failure) {
            const std::lock_guard<std::mutex> lock(mutex);
            failureTexts.emplace_back(failure.what());
        }
    }

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

    FakeNodeAgent::Script script() {
        return [this](TlsChannel& channel) {
            note(FakeNodeAgent::greet(channel));
            for (;;) {
                answer(channel, channel.receiveFrame(FakeNodeAgent::soon()));
            }
        };
    }

    void setFile(const std::string& path, const std::string& content) {
        const std::lock_guard<std::mutex> lock(mutex);
        files[path] = content;
    }
    // Empty where there is none.
    std::string file(const std::string& path) const {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto found = files.find(path);
        return found == files.end() ? std::string() : found->second;
    }
    std::vector<std::string> commands() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return commandLines;
    }
    std::vector<protocol::RunPackaged> packagedRuns() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return packaged;
    }
    // The command number under which each job came.
    std::vector<std::uint32_t> numbers() const {
        const std::lock_guard<std::mutex> lock(mutex);
        return commandNumbers;
    }
    // How often a shell asked who the node is.
    int macQuestions() const { return macQuestionCount; }
    // How often a shell greeted.
    int greetings() const { return greetingCount; }
    // The flags of the last job.
    int lastFlags() const { return flags; }

private:
    bool holds(const std::string& path) const {
        const std::lock_guard<std::mutex> lock(mutex);
        return files.count(path) != 0;
    }

    void answer(TlsChannel& channel, const protocol::Frame& frame) {
        using protocol::FrameType;
        switch (frame.header.type) {
            case FrameType::kShellHello: {
                protocol::ShellHello hello;
                protocol::decode(frame.body, hello);
                return note(hello);
            }
            case FrameType::kExec:
                return runCommand(channel, frame);
            case FrameType::kRunPackaged:
                return runPackaged(channel, frame);
            case FrameType::kPut:
                return take(channel, frame);
            case FrameType::kGet:
                return give(channel, frame);
            case FrameType::kExists: {
                protocol::Exists question;
                protocol::decode(frame.body, question);
                return say(channel, holds(question.path) ? "1" : "0");
            }
            case FrameType::kMac:
                ++macQuestionCount;
                return say(channel, macAddress);
            default:
                throw std::runtime_error("not a request");
        }
    }

    void note(const protocol::ShellHello& hello) {
        ++greetingCount;
        sequence = hello.sequence;
    }

    static void say(TlsChannel& channel, const std::string& text) {
        protocol::Answer body;
        body.text = text;
        FakeNodeAgent::send(channel, protocol::encode(body));
    }

    static void reply(TlsChannel& channel, const Reply& reply) {
        if (!reply.output.empty()) {
            FakeNodeAgent::send(channel,
                                FakeNodeAgent::frame(protocol::FrameType::kOutput, reply.output));
        }
        FakeNodeAgent::result(channel, reply.exitCode);
    }

    void runCommand(TlsChannel& channel, const protocol::Frame& frame) {
        protocol::Exec exec;
        protocol::decode(frame.body, exec);
        flags = frame.header.flags;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            commandLines.push_back(exec.commandLine);
            commandNumbers.push_back(sequence);
        }
        reply(channel, onCommand(exec.commandLine));
    }

    void runPackaged(TlsChannel& channel, const protocol::Frame& frame) {
        protocol::RunPackaged run;
        protocol::decode(frame.body, run);
        flags = frame.header.flags;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            packaged.push_back(run);
        }
        reply(channel, onPackaged(run));
    }

    void take(TlsChannel& channel, const protocol::Frame& frame) {
        protocol::Put put;
        protocol::decode(frame.body, put);
        std::string content;
        FileDigest digest;
        for (;;) {
            const protocol::Frame piece = channel.receiveFrame(FakeNodeAgent::soon());
            if (piece.header.type == protocol::FrameType::kEnd) {
                protocol::End end;
                protocol::decode(piece.body, end);
                if (content.size() != put.size || digest.finish() != end.digest) {
                    return FakeNodeAgent::error(channel, protocol::kErrorDigest, "damaged");
                }
                setFile(put.path, content);
                return FakeNodeAgent::result(channel, 0, "stored " + put.path);
            }
            content += piece.body;
            digest.update(piece.body.data(), piece.body.size());
        }
    }

    void give(TlsChannel& channel, const protocol::Frame& frame) {
        protocol::Get get;
        protocol::decode(frame.body, get);
        if (!holds(get.path)) {
            return FakeNodeAgent::error(channel, protocol::kErrorFile,
                                        "\"" + get.path + "\" does not exist.");
        }
        const std::string content = file(get.path);
        protocol::FileInfo info;
        info.size = content.size();
        info.mode = 0640;
        FakeNodeAgent::send(channel, protocol::encode(info));
        FileDigest digest;
        for (std::size_t at = 0; at < content.size(); at += protocol::kDataChunkBytes) {
            const std::string piece = content.substr(at, protocol::kDataChunkBytes);
            digest.update(piece.data(), piece.size());
            FakeNodeAgent::send(channel, FakeNodeAgent::frame(protocol::FrameType::kData, piece));
        }
        protocol::End end;
        end.digest = digest.finish();
        FakeNodeAgent::send(channel, protocol::encode(end));
    }

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
