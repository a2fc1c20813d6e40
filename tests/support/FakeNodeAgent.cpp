#include "FakeNodeAgent.h"

#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

FakeNodeAgent::FakeNodeAgent(const TlsFiles& files, Script conversation, int port)
    : context(TlsContext::server(files)), script(std::move(conversation)) {
    start(port);
}

FakeNodeAgent::FakeNodeAgent(RawScript rawConversation) : rawScript(std::move(rawConversation)) {
    start(0);
}

FakeNodeAgent::~FakeNodeAgent() {
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

std::vector<std::string> FakeNodeAgent::failures() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return failureTexts;
}

void FakeNodeAgent::send(TlsChannel& channel, const std::string& frame) {
    channel.sendFrame(frame, soon());
}

std::string FakeNodeAgent::frame(protocol::FrameType type, const std::string& body) {
    protocol::FrameHeader header;
    header.type = type;
    header.length = static_cast<std::uint32_t>(body.size());
    return protocol::encodeHeader(header) + body;
}

protocol::ShellHello FakeNodeAgent::greet(TlsChannel& channel) {
    send(channel, protocol::encode(protocol::AgentHello()));
    protocol::ShellHello hello;
    protocol::decode(channel.receiveFrame(soon()).body, hello);
    return hello;
}

void FakeNodeAgent::error(TlsChannel& channel, protocol::ErrorCode code, const std::string& text) {
    protocol::Error body;
    body.code = code;
    body.text = text;
    send(channel, protocol::encode(body));
}

void FakeNodeAgent::result(TlsChannel& channel, int exitCode, const std::string& text,
                           protocol::Result::Ending ending) {
    protocol::Result body;
    body.ending = ending;
    body.value = exitCode;
    body.text = text;
    send(channel, protocol::encode(body));
}

void FakeNodeAgent::waitForClose(TlsChannel& channel) {
    protocol::Frame ignored;
    for (;;) {
        channel.receiveFrame(ignored, soon());
    }
}

void FakeNodeAgent::start(int port) {
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

void FakeNodeAgent::acceptAll() {
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

void FakeNodeAgent::converse(UniqueFd connection) {
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
