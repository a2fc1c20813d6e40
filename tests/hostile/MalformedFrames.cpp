// Bytes that no honest peer sends, before and after it has shown its certificate. Every one must be
// answered or cut within a second, and the listener must not notice.

#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <memory>
#include <poll.h>
#include <random>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <openssl/ssl.h>

#include "CException.h"
#include "DialFrom.h"
#include "Figure.h"
#include "FreedBy.h"
#include "LocalAgent.h"
#include "Processes.h"
#include "SocketDial.h"
#include "TlsSocket.h"

namespace {

using Clock = std::chrono::steady_clock;
using protocol::FrameType;

// The generator's own numbers are wider than their 32 bits.
class Random {
public:
    explicit Random(unsigned int seed) : generator(seed) {}
    unsigned int operator()() { return static_cast<unsigned int>(generator()); }

private:
    std::mt19937 generator;
};

constexpr unsigned long kAnswerMs = 1000;

std::string randomBytes(Random& random, std::size_t most) {
    std::string bytes(random() % most + 1, '\0');
    for (char& byte : bytes) {
        byte = static_cast<char>(random());
    }
    return bytes;
}

std::string number(std::uint32_t value) {
    std::string bytes;
    for (const unsigned int shift : {24U, 16U, 8U, 0U}) {
        bytes += static_cast<char>((value >> shift) & 0xffU);
    }
    return bytes;
}

std::string header(std::uint32_t length, unsigned int type, unsigned int flags = 0,
                   unsigned int reserved = 0) {
    return number(length) + static_cast<char>(type) + static_cast<char>(flags) +
           static_cast<char>(reserved >> 8U) + static_cast<char>(reserved & 0xffU);
}

std::string frame(unsigned int type, const std::string& body) {
    return header(static_cast<std::uint32_t>(body.size()), type) + body;
}

std::string execOf(const std::string& line) {
    return number(1000) + number(static_cast<std::uint32_t>(line.size())) + line;
}

// Waits for the end of what the agent has to say; false when it says nothing for a second.
bool isCut(int fd) {
    char bytes[4096];
    const auto limit = TlsChannel::after(kAnswerMs);
    for (;;) {
        if (tlssocket::wait(fd, POLLIN, limit) == 0) {
            return false;
        }
        const ssize_t count = ::recv(fd, bytes, sizeof bytes, MSG_DONTWAIT);
        if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
            return true;
        }
    }
}

// ---- before authentication
// -----------------------------------------------------------------------

struct RawClass {
    const char* name;
    std::function<std::string(Random&)> bytes;
    bool halfCloses;  // the rest would be waited for
};

const std::vector<RawClass>& rawClasses() {
    static const std::vector<RawClass> all{
        {"random bytes", [](Random& random) { return '\x80' + randomBytes(random, 2000); }, true},
        {"plain HTTP", [](Random&) { return std::string("GET / HTTP/1.1\r\nHost: x\r\n\r\n"); },
         false},
        {"frames without TLS", [](Random&) { return frame(0x10, execOf("touch /tmp/never")); },
         true},
        {"TLS record of an unknown type",
         [](Random& random) {
             return std::string("\x63\x03\x03\x00\x10", 5) + randomBytes(random, 64);
         },
         true},
        {"oversized TLS record",
         [](Random& random) {
             return std::string("\x16\x03\x01\xff\xff", 5) + randomBytes(random, 3000);
         },
         true},
        {"truncated greeting",
         [](Random& random) {
             return std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03", 11) +
                    randomBytes(random, 300);
         },
         true},
        {"greeting with random extensions",
         [](Random& random) {
             std::string body = std::string("\x03\x03", 2) + std::string(32, 'r') + '\0' +
                                std::string("\x00\x02\x13\x01\x01\x00", 6);
             const std::string extensions = randomBytes(random, 200);
             body += static_cast<char>(extensions.size() >> 8U);
             body += static_cast<char>(extensions.size() & 0xffU);
             body += extensions;
             const std::string message = std::string("\x01\x00", 2) +
                                         static_cast<char>(body.size() >> 8U) +
                                         static_cast<char>(body.size() & 0xffU) + body;
             return std::string("\x16\x03\x01", 3) + static_cast<char>(message.size() >> 8U) +
                    static_cast<char>(message.size() & 0xffU) + message;
         },
         true},
        {"alerts", [](Random&) { return std::string("\x15\x03\x03\x00\x02\x02\x28", 7); }, true}};
    return all;
}

bool sendRaw(const UniqueFd& fd, const RawClass& kind, Random& random) {
    const std::string bytes = kind.bytes(random);
    // The agent may have cut the connection before everything is sent.
    static_cast<void>(::send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL));
    if (kind.halfCloses) {
        ::shutdown(fd.get(), SHUT_WR);
    }
    return isCut(fd.get());
}

// A TLS client without a certificate; with version and protocol name as wanted.
bool shakeHandsAnonymously(const UniqueFd& fd, int version, const std::string& alpn) {
    const FreedBy<SSL_CTX, SSL_CTX_free> context(SSL_CTX_new(TLS_client_method()));
    SSL_CTX_set_max_proto_version(context.get(), version);
    const FreedBy<SSL, SSL_free> ssl(SSL_new(context.get()));
    const std::string wire = static_cast<char>(alpn.size()) + alpn;
    SSL_set_alpn_protos(ssl.get(), reinterpret_cast<const unsigned char*>(wire.data()),
                        static_cast<unsigned int>(wire.size()));
    SSL_set_fd(ssl.get(), fd.get());
    const auto limit = TlsChannel::after(kAnswerMs);
    // A TLS 1.3 client believes itself connected before it is judged: read until the end.
    bool connected = false;
    for (;;) {
        char byte = 0;
        const int done = connected ? SSL_read(ssl.get(), &byte, 1) : SSL_connect(ssl.get());
        if (done > 0) {
            if (connected) {
                return false;  // it talked to somebody without a certificate
            }
            connected = true;
            continue;
        }
        const int error = SSL_get_error(ssl.get(), done);
        if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE) {
            return true;
        }
        if (tlssocket::wait(fd.get(), error == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT, limit) ==
            0) {
            return false;
        }
    }
}

// ---- after authentication
// ------------------------------------------------------------------------

struct FrameClass {
    const char* name;
    std::function<std::string(Random&)> bytes;
    bool greeted;
};

const std::vector<FrameClass>& frameClasses() {
    static const std::vector<FrameClass> all{
        {"unknown type", [](Random& random) { return header(0, 0x40 + random() % 0xc0); }, true},
        {"oversized length",
         [](Random& random) {
             return header(protocol::kMaxBodyBytes + 1 + random() % 0x70000000U, 0x10);
         },
         true},
        {"unknown flags", [](Random& random) { return header(0, 0x15, 1 + random() % 255); }, true},
        {"reserved bits", [](Random& random) { return header(0, 0x15, 0, 1 + random() % 65535); },
         true},
        {"replies in place of requests",
         [](Random& random) { return frame(0x20 + random() % 6, randomBytes(random, 64)); }, true},
        {"second greeting of another version",
         [](Random& random) {
             protocol::ShellHello hello;
             hello.version = static_cast<std::uint16_t>(2 + random() % 60000);
             return protocol::encode(hello);
         },
         true},
        {"request before the greeting",
         [](Random& random) { return frame(0x10 + random() % 6, execOf("true")); }, false},
        {"greeting of another version",
         [](Random& random) {
             protocol::ShellHello hello;
             hello.version = static_cast<std::uint16_t>(2 + random() % 60000);
             return protocol::encode(hello);
         },
         false},
        {"body too short",
         [](Random& random) { return frame(0x10 + random() % 5, randomBytes(random, 3)); }, true},
        {"bytes left over",
         [](Random& random) { return frame(0x10, execOf("true") + randomBytes(random, 64)); },
         true},
        {"string longer than its frame",
         [](Random& random) { return frame(0x14, number(100 + random() % 0x7fffffffU) + "short"); },
         true},
        {"list without end",
         [](Random&) {
             return frame(0x11,
                          number(1000) + number(0) + number(0) + number(0) + number(0xffffffffU));
         },
         true},
        {"NUL in a command",
         [](Random&) { return frame(0x10, execOf(std::string("true\0false", 10))); }, true},
        {"words during an upload",
         [](Random&) {
             protocol::Put put;
             put.path = "/nowhere/at/all";
             put.size = 10;
             return protocol::encode(put) + protocol::encodeMacRequest();
         },
         true},
        {"random frames",
         [](Random& random) {
             std::string bytes = randomBytes(random, 200);
             bytes.insert(0, header(static_cast<std::uint32_t>(random() % 0x10000), random() % 256,
                                    random() % 2, random() % 3));
             return bytes + header(0, 0xff);
         },
         true}};
    return all;
}

// Sends, stops writing in order, and reads to the end: an answer, or the end of the connection.
bool sendFrames(const LocalAgent& agent, const FrameClass& kind, Random& random) {
    const std::unique_ptr<TlsChannel> channel = agent.openChannel(kind.greeted);
    const auto limit = TlsChannel::after(kAnswerMs);
    try {
        channel->sendFrame(kind.bytes(random), limit);
        // What was promised and not sent would be waited for.
        ::shutdown(channel->descriptor(), SHUT_WR);
        channel->receiveFrame(limit);
        return true;
    } catch (const ChannelError& end) {
        return end.kind() != ChannelError::Kind::kTimedOut;
    }
}

// Spreads the tries over a few threads; how many ended as they should.
long inThreads(long tries, const std::function<bool(long, Random&)>& attempt) {
    constexpr unsigned int kThreads = 4;
    std::atomic<long> next{0};
    std::atomic<long> good{0};
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            Random random(4711 + i);
            for (long at = next++; at < tries; at = next++) {
                try {
                    good += attempt(at, random) ? 1 : 0;
                } catch (const CException& failure) {
                    std::fprintf(stderr, "frames: %s\n", failure.getErrMsg().c_str());
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return good;
}

Figure measure(const LocalAgent& agent, const std::string& name, long tries,
               const std::function<bool(long, Random&)>& attempt) {
    Figure figure;
    figure.attack = name;
    figure.tries = tries;
    const pid_t listener = agent.listenerPid();
    const long before = processes::statusKiB(listener, "VmRSS");
    figure.survived = inThreads(tries, attempt);
    const Clock::time_point over = Clock::now();
    CResult result;
    agent.connect()->execute("echo served", 10000, &result);
    figure.recoverMs = static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - over).count());
    figure.growthKiB = processes::statusKiB(listener, "VmRSS") - before;
    const bool same = ::kill(listener, 0) == 0 && agent.listenerPid() == listener;
    const bool crashed = agent.log().find("was ended by signal") != std::string::npos;
    figure.remark = std::string(same ? "same listener" : "another listener") +
                    (crashed ? ", a session crashed" : ", no session crashed");
    figure.isReached = figure.survived == tries && same && !crashed &&
                       result.getRunSummary() == "served\n" && figure.growthKiB < 1024;
    return figure;
}

}  // namespace

std::vector<Figure> attackWithMalformedFrames(const Scale& scale) {
    const long tries = scale.pick(5000, 400);
    LocalAgent agent;
    agent.connect();
    const std::vector<RawClass>& raw = rawClasses();
    const std::vector<FrameClass>& framed = frameClasses();
    const Figure before = measure(
        agent,
        "malformed bytes before authentication, " + std::to_string(raw.size() + 3) + " classes",
        tries, [&](long at, Random& random) {
            const auto kind = static_cast<std::size_t>(at) % (raw.size() + 3);
            // From many addresses: one whose handshakes all fail would have to wait for its turn.
            const UniqueFd fd = dialFrom(agent, 1 + static_cast<unsigned int>(at % 61));
            bool good = false;
            if (tlssocket::wait(fd.get(), POLLOUT, LocalAgent::soon()) == 0) {
                good = false;
            } else if (kind < raw.size()) {
                good = sendRaw(fd, raw[kind], random);
            } else if (kind == raw.size()) {
                good = shakeHandsAnonymously(fd, TLS1_3_VERSION, "kelsh/1");
            } else if (kind == raw.size() + 1) {
                good = shakeHandsAnonymously(fd, TLS1_2_VERSION, "kelsh/1");
            } else {
                good = shakeHandsAnonymously(fd, TLS1_3_VERSION, "http/1.1");
            }
            if (!good) {
                std::fprintf(stderr, "frames: raw class %zu was not cut in time\n", kind);
            }
            return good;
        });
    const Figure after = measure(
        agent,
        "malformed frames after authentication, " + std::to_string(framed.size()) + " classes",
        tries, [&](long at, Random& random) {
            const FrameClass& kind = framed[static_cast<std::size_t>(at) % framed.size()];
            const bool good = sendFrames(agent, kind, random);
            if (!good) {
                std::fprintf(stderr, "frames: \"%s\" was not answered in time\n", kind.name);
            }
            return good;
        });
    return {before, after};
}
