// Strangers who begin handshakes as fast as they can, and holders of a certificate who take every
// session there is, while a master at another address goes on with its work.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <thread>
#include <vector>

#include <openssl/ssl.h>
#include <sched.h>

#include "CException.h"
#include "DialFrom.h"
#include "Figure.h"
#include "FreedBy.h"
#include "LocalAgent.h"
#include "Processes.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// As long as a shell waits for a node.
constexpr unsigned long kConnectMs = 3000;

// The greeting of a client that could be one of ours.
std::string makeGreeting() {
    const FreedBy<SSL_CTX, SSL_CTX_free> context(SSL_CTX_new(TLS_client_method()));
    SSL_CTX_set_min_proto_version(context.get(), TLS1_3_VERSION);
    SSL_CTX_set1_groups_list(context.get(), "P-256");
    const FreedBy<SSL, SSL_free> ssl(SSL_new(context.get()));
    BIO* const from = BIO_new(BIO_s_mem());
    BIO* const to = BIO_new(BIO_s_mem());
    SSL_set_bio(ssl.get(), from, to);
    static_cast<void>(SSL_connect(ssl.get()));
    char* bytes = nullptr;
    const long count = BIO_get_mem_data(to, &bytes);
    return std::string(bytes, static_cast<std::size_t>(count));
}

// All that one core can begin, from four addresses: each connection greets, waits for the answer,
// goes, and is dialled again at once. Half of them wait for a second, the others hardly at all.
class Beginners {
public:
    explicit Beginners(const LocalAgent& attacked) : agent(attacked), greeting(makeGreeting()) {
        thread = std::thread([this] { begin(); });
    }
    Beginners(const Beginners&) = delete;
    Beginners& operator=(const Beginners&) = delete;
    ~Beginners() { stop(); }

    void stop() {
        stopped = true;
        if (thread.joinable()) {
            thread.join();
        }
    }
    long greeted() const { return greetings; }
    long answered() const { return answers; }

private:
    static constexpr unsigned int kSources = 4;
    static constexpr std::size_t kAtOnce = 400;
    static constexpr milliseconds kPatience{1000};
    static constexpr milliseconds kImpatience{10};
    struct Peer {
        UniqueFd fd;
        bool hasGreeted = false;
        Clock::time_point since;
    };

    void begin() {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(0, &one);
        static_cast<void>(::pthread_setaffinity_np(::pthread_self(), sizeof one, &one));
        const UniqueFd watcher(::epoll_create1(EPOLL_CLOEXEC));
        std::vector<Peer> peers(kAtOnce);
        std::size_t next = 0;
        while (!stopped) {
            for (std::size_t i = 0; i < peers.size(); ++i) {
                if (!peers[i].fd) {
                    dial(watcher.get(), peers[i], i);
                }
            }
            // Who gets no answer is worth no place.
            for (int i = 0; i < 64; ++i, next = (next + 1) % peers.size()) {
                const milliseconds patience = next % 8 < kSources ? kPatience : kImpatience;
                if (Clock::now() - peers[next].since > patience) {
                    peers[next].fd.reset();
                }
            }
            epoll_event events[64];
            const int count = ::epoll_wait(watcher.get(), events, 64, 0);
            for (int i = 0; i < count; ++i) {
                act(peers[events[i].data.u64], events[i].events);
            }
        }
    }

    void dial(int watcher, Peer& peer, std::size_t place) {
        // From the second address on: the first is the master's.
        peer.fd = dialFrom(agent, 1 + static_cast<unsigned int>(place % kSources));
        peer.hasGreeted = false;
        peer.since = Clock::now();
        epoll_event event{};
        event.events = EPOLLIN | EPOLLOUT | EPOLLET;
        event.data.u64 = place;
        static_cast<void>(::epoll_ctl(watcher, EPOLL_CTL_ADD, peer.fd.get(), &event));
    }

    void act(Peer& peer, std::uint32_t what) {
        if ((what & EPOLLOUT) != 0 && !peer.hasGreeted) {
            peer.hasGreeted = true;
            ++greetings;
            static_cast<void>(::send(peer.fd.get(), greeting.data(), greeting.size(),
                                     MSG_NOSIGNAL | MSG_DONTWAIT));
        }
        if ((what & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) {
            char byte = 0;
            answers += ::recv(peer.fd.get(), &byte, 1, MSG_DONTWAIT) == 1 ? 1 : 0;
            peer.fd.reset();
        }
    }

    const LocalAgent& agent;
    const std::string greeting;
    std::atomic<bool> stopped{false};
    std::atomic<long> greetings{0};
    std::atomic<long> answers{0};
    std::thread thread;
};

// One command over a connection of its own.
bool isServed(const LocalAgent& agent, const std::string& certificateFile,
              unsigned long connectMs = kConnectMs) {
    try {
        TlsFiles files;
        files.certificateFile = certificateFile;
        const auto channel = TlsChannel::connect(
            agent.ip(), agent.port(), TlsContext::client(files), TlsChannel::after(connectMs));
        channel->receiveFrame(TlsChannel::after(connectMs));
        protocol::Exec exec;
        exec.commandLine = "echo served";
        channel->sendFrame(protocol::encode(protocol::ShellHello()) + protocol::encode(exec, 0),
                           LocalAgent::soon());
        const protocol::Frame output = channel->receiveFrame(LocalAgent::soon());
        const bool served =
            output.header.type == protocol::FrameType::kOutput && output.body == "served\n" &&
            channel->receiveFrame(LocalAgent::soon()).header.type == protocol::FrameType::kResult;
        channel->close(TlsChannel::after(connectMs));
        return served;
    } catch (const CException&) {
        return false;
    }
}

// So many commands, one every tenth of a second; how long each took, those that failed left out.
std::vector<long> command(const LocalAgent& agent, long count, unsigned long connectMs) {
    std::vector<long> latencies;
    const Clock::time_point start = Clock::now();
    for (long i = 0; i < count; ++i) {
        std::this_thread::sleep_until(start + milliseconds(i * 100));
        const Clock::time_point asked = Clock::now();
        if (isServed(agent, agent.masterCertificate(), connectMs)) {
            latencies.push_back(static_cast<long>(
                std::chrono::duration_cast<milliseconds>(Clock::now() - asked).count()));
        }
    }
    std::sort(latencies.begin(), latencies.end());
    return latencies;
}

std::string percentiles(const std::vector<long>& sorted) {
    if (sorted.empty()) {
        return "nothing was served";
    }
    return "p50 " + std::to_string(sorted[sorted.size() / 2]) + " ms, p99 " +
           std::to_string(sorted[sorted.size() * 99 / 100]) + " ms";
}

std::unique_ptr<TlsChannel> hold(const LocalAgent& agent, const std::string& certificateFile) {
    try {
        TlsFiles files;
        files.certificateFile = certificateFile;
        auto channel = TlsChannel::connect(agent.ip(), agent.port(), TlsContext::client(files),
                                           TlsChannel::after(kConnectMs));
        channel->receiveFrame(TlsChannel::after(kConnectMs));
        channel->sendFrame(protocol::encode(protocol::ShellHello()), TlsChannel::after(kConnectMs));
        return channel;
    } catch (const CException&) {
        return nullptr;
    }
}

// Takes sessions until so many have been asked for, and keeps them.
Figure holdSessions(const std::string& name, const std::string& rules, long tries,
                    std::size_t most) {
    LocalAgent agent;
    const TestPki::Identity holder = agent.pki().master("holder");
    std::ofstream(agent.nodePath() + "authz.cfg") << rules;
    agent.signal(SIGHUP);
    static_cast<void>(agent.waitForLog("read anew"));
    Figure figure;
    figure.attack = name;
    figure.tries = tries;
    std::vector<std::unique_ptr<TlsChannel>> held;
    for (long i = 0; i < tries; ++i) {
        held.push_back(hold(agent, holder.certificateFile));
        figure.survived += i % 50 != 0 || isServed(agent, agent.masterCertificate()) ? 1 : 0;
    }
    std::size_t kept = 0;
    const bool few = waitFor([&] {
        kept = agent.processes("kelnode-session").size();
        return kept <= most;
    });
    const bool served = isServed(agent, agent.masterCertificate());
    figure.remark = std::to_string(kept) + " sessions kept";
    figure.isReached = few && served && figure.survived == tries;
    return figure;
}

}  // namespace

std::vector<Figure> attackWithBegunHandshakes(const Scale& scale) {
    const long commands = scale.pick(600, 50);
    LocalAgent agent;
    const auto connectMs = static_cast<unsigned long>(scale.lenient(kConnectMs));
    const std::vector<long> idle = command(agent, commands / 4, connectMs);
    Figure figure;
    figure.attack = "handshakes begun from four addresses, all that one core can";
    figure.tries = commands;
    const Clock::time_point start = Clock::now();
    Beginners beginners(agent);
    static_cast<void>(waitFor([&] { return beginners.greeted() > 1000; }));
    const std::vector<long> attacked = command(agent, commands, connectMs);
    beginners.stop();
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const Clock::time_point over = Clock::now();
    const bool gone = waitFor([&] { return agent.processes("kelnode-session").empty(); });
    figure.recoverMs =
        static_cast<long>(std::chrono::duration_cast<milliseconds>(Clock::now() - over).count());
    figure.survived = static_cast<long>(attacked.size());
    figure.remark =
        "idle " + percentiles(idle) + "; attacked " + percentiles(attacked) + "; " +
        std::to_string(std::lround(static_cast<double>(beginners.greeted()) / seconds)) +
        " greetings/s, " + std::to_string(beginners.answered()) + " of " +
        std::to_string(beginners.greeted()) + " answered; log " +
        std::to_string(agent.log().size() / 1024) + " KiB";
    figure.isReached =
        gone && figure.survived * 100 >= commands * 99 && agent.log().size() < 64 * 1024;
    return {figure};
}

std::vector<Figure> attackWithHeldSessions(const Scale& scale) {
    const long tries = scale.pick(1100, 300);
    return {holdSessions("sessions held by a certificate without a role", "master=operator\n",
                         tries / 4, 8),
            holdSessions("sessions held by one certificate", "master=operator\nholder=observer\n",
                         tries, 256)};
}
