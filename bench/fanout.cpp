// What one command on many nodes costs the master, beside what its network alone would cost: as
// many mutual TLS handshakes with the same agents, by nothing but the TLS library.
//
//   bench_fanout KELSH CLUSTER NODES...
//
// KELSH is the program, CLUSTER a running local cluster with at least as many nodes as the largest
// number. Each figure is the median of kRuns runs; times are milliseconds, CPU is user and system
// of the client alone. Run it through bench/fanout.

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <iostream>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include "CException.h"
#include "FreedBy.h"
#include "Protocol.h"
#include "UniqueFd.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRuns = 3;
constexpr int kSocketSeconds = 60;

struct Cost {
    double wallMs = 0;
    double cpuMs = 0;
    double peakMiB = 0;
};

struct Node {
    std::string name;
    std::string line;  // as it stands in node.cfg
    std::string ip;
    int port = 0;
};

using Context = FreedBy<SSL_CTX, SSL_CTX_free>;
using Connection = FreedBy<SSL, SSL_free>;

void require(bool ok, const std::string& what) {
    if (!ok) {
        throw CException(what);
    }
}

double cpuMsOf(const rusage& usage) {
    const auto ms = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1000 + static_cast<double>(time.tv_usec) / 1000;
    };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void waitFor(pid_t child, int& status, rusage& usage) {
    while (::wait4(child, &status, 0, &usage) < 0) {
        require(errno == EINTR, "wait4 failed");
    }
}

// ---- bare handshakes ----

class Handshaker {
public:
    Handshaker(const std::string& cluster, const std::vector<Node>& targets)
        : nodes(targets), context(SSL_CTX_new(TLS_client_method())) {
        const std::string ssl = cluster + "/kelsh/ssl/";
        require(context && SSL_CTX_set_min_proto_version(context.get(), TLS1_3_VERSION) == 1 &&
                    SSL_CTX_use_certificate_chain_file(context.get(),
                                                       (ssl + "master.crt").c_str()) == 1 &&
                    SSL_CTX_use_PrivateKey_file(context.get(), (ssl + "master.key").c_str(),
                                                SSL_FILETYPE_PEM) == 1 &&
                    SSL_CTX_load_verify_locations(context.get(), (cluster + "/pki/ca.crt").c_str(),
                                                  nullptr) == 1,
                "cannot use the certificates in " + ssl);
        SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    }

    // One handshake with each node, a thread per node as the shell has it.
    void run() const {
        std::atomic<std::size_t> failed{0};
        std::vector<std::thread> threads;
        threads.reserve(nodes.size());
        for (const Node& node : nodes) {
            threads.emplace_back([&] {
                try {
                    shakeHands(node);
                } catch (const CException& fault) {
                    if (failed++ == 0) {
                        std::cerr << node.name << ": " << fault.getErrMsg() << std::endl;
                    }
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        require(failed == 0, std::to_string(failed) + " handshakes failed");
    }

private:
    static UniqueFd connectTo(const Node& node) {
        UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(node.port));
        require(fd && ::inet_pton(AF_INET, node.ip.c_str(), &address.sin_addr) == 1,
                "no socket for " + node.ip);
        const int on = 1;
        const timeval limit{kSocketSeconds, 0};
        require(::setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on)) == 0 &&
                    ::setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit)) == 0,
                "setsockopt failed");
        require(::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0,
                std::string("cannot connect: ") + std::strerror(errno));
        return fd;
    }

    void shakeHands(const Node& node) const {
        const UniqueFd fd = connectTo(node);
        const Connection ssl(SSL_new(context.get()));
        const std::string alpn =
            static_cast<char>(std::strlen(protocol::kAlpn)) + std::string(protocol::kAlpn);
        require(
            ssl && SSL_set_fd(ssl.get(), fd.get()) == 1 &&
                X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl.get()), node.ip.c_str()) == 1 &&
                SSL_set_alpn_protos(ssl.get(), reinterpret_cast<const unsigned char*>(alpn.data()),
                                    static_cast<unsigned>(alpn.size())) == 0,
            "cannot prepare a connection");
        require(SSL_connect(ssl.get()) == 1, "the handshake failed");
        // The agent's first words: until they are here, it has not accepted us.
        std::array<char, 4096> hello{};
        require(SSL_read(ssl.get(), hello.data(), static_cast<int>(hello.size())) > 0,
                "the agent did not greet");
        // A good-bye, or the agent would have a broken connection to log.
        SSL_shutdown(ssl.get());
    }

    const std::vector<Node>& nodes;
    Context context;
};

Cost costOf(const std::function<void()>& work) {
    rusage before{};
    ::getrusage(RUSAGE_SELF, &before);
    const Clock::time_point start = Clock::now();
    work();
    Cost cost;
    cost.wallMs = msSince(start);
    rusage after{};
    ::getrusage(RUSAGE_SELF, &after);
    cost.cpuMs = cpuMsOf(after) - cpuMsOf(before);
    cost.peakMiB = static_cast<double>(after.ru_maxrss) / 1024;
    return cost;
}

// In a process of its own, so that its memory is that of the handshakes alone.
Cost measureHandshakes(const std::string& cluster, const std::vector<Node>& nodes) {
    std::array<int, 2> ends{};
    require(::pipe2(ends.data(), O_CLOEXEC) == 0, "no pipe");
    const UniqueFd in(ends[0]);
    UniqueFd out(ends[1]);
    std::cout.flush();
    const pid_t child = ::fork();
    require(child >= 0, "cannot fork");
    if (child == 0) {
        int status = 1;
        try {
            const Handshaker handshaker(cluster, nodes);
            const Cost result = costOf([&] { handshaker.run(); });
            status = ::write(out.get(), &result, sizeof(result)) == sizeof(result) ? 0 : 1;
        } catch (const CException& fault) {
            std::cerr << fault.getErrMsg() << std::endl;
        }
        ::_exit(status);
    }
    out.reset();
    Cost result;
    const ssize_t got = ::read(in.get(), &result, sizeof(result));
    int status = 0;
    rusage usage{};
    waitFor(child, status, usage);
    require(status == 0 && got == sizeof(result), "the handshakes could not be measured");
    return result;
}

// ---- the shell ----

// A node file of these nodes alone: at its start the shell asks every node of its file.
void writeNodeFile(const std::string& path, const std::vector<Node>& nodes) {
    std::ofstream file(path, std::ios::trunc);
    file << "[node]\n";
    for (const Node& node : nodes) {
        file << node.line << '\n';
    }
    file << "[group]\n";
    std::vector<std::string> groups;
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        if (i % 16 == 0) {
            groups.push_back("r" + std::to_string(groups.size()));
            file << (i == 0 ? "" : "\n") << groups.back() << '=';
        }
        file << (i % 16 == 0 ? "" : ",") << nodes[i].name;
    }
    file << "\nall=";
    for (const std::string& group : groups) {
        file << group << ',';
    }
    file << '\n';
    require(static_cast<bool>(file.flush()), "cannot write " + path);
}

// Nodes whose result block tells of a failure or a time-out. The shell's own status is that of the
// last node only.
std::size_t failedNodes(int outputFd) {
    std::string text;
    std::array<char, 65536> piece{};
    ssize_t got = 0;
    while ((got = ::pread(outputFd, piece.data(), piece.size(), static_cast<off_t>(text.size()))) >
           0) {
        text.append(piece.data(), static_cast<std::size_t>(got));
    }
    std::size_t failed = 0;
    for (std::size_t at = text.find("ExitCode:"); at != std::string::npos;
         at = text.find("ExitCode:", at + 1)) {
        ++failed;
    }
    return failed;
}

Cost measureShell(const std::string& kelsh, const std::string& cluster, const std::string& nodeFile,
                  std::size_t& failed) {
    const std::string home = cluster + "/kelsh";
    const UniqueFd output(::memfd_create("output", MFD_CLOEXEC));
    require(static_cast<bool>(output), "no memory file");
    std::cout.flush();
    const Clock::time_point start = Clock::now();
    const pid_t child = ::fork();
    require(child >= 0, "cannot fork");
    if (child == 0) {
        const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
        if (null < 0 || ::dup2(null, 0) < 0 || ::dup2(output.get(), 1) < 0 ||
            ::setenv("KELSH_PATH", home.c_str(), 1) != 0 || ::chdir(home.c_str()) != 0) {
            ::_exit(126);
        }
        ::execl(kelsh.c_str(), "kelsh", "-cfg", nodeFile.c_str(), "tools", "true", "-g", "all",
                nullptr);
        ::_exit(127);
    }
    int status = 0;
    rusage usage{};
    waitFor(child, status, usage);
    Cost cost;
    cost.wallMs = msSince(start);
    cost.cpuMs = cpuMsOf(usage);
    cost.peakMiB = static_cast<double>(usage.ru_maxrss) / 1024;
    // 2 and 5 are what a node's failure or time-out makes of it; those are counted.
    require(
        WIFEXITED(status) &&
            (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == 2 || WEXITSTATUS(status) == 5),
        kelsh + " failed, status " + std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1));
    const std::size_t failedNow = failedNodes(output.get());
    require(WEXITSTATUS(status) == 0 || failedNow != 0, kelsh + " did not get to the nodes");
    failed += failedNow;
    return cost;
}

// ---- the table ----

// Of each figure by itself.
Cost median(std::vector<Cost> costs) {
    Cost middle;
    for (double Cost::*field : {&Cost::wallMs, &Cost::cpuMs, &Cost::peakMiB}) {
        std::sort(costs.begin(), costs.end(),
                  [field](const Cost& a, const Cost& b) { return a.*field < b.*field; });
        middle.*field = costs[costs.size() / 2].*field;
    }
    return middle;
}

std::vector<Node> readNodes(const std::string& path) {
    std::ifstream file(path);
    std::vector<Node> nodes;
    std::string line;
    while (std::getline(file, line) && line != "[group]") {
        const std::size_t equals = line.find('=');
        const std::size_t comma = line.find(',');
        const std::size_t colon = comma == std::string::npos ? comma : line.find(':', comma);
        if (equals == std::string::npos || colon == std::string::npos) {
            continue;
        }
        nodes.push_back({line.substr(0, equals), line, line.substr(comma + 1, colon - comma - 1),
                         std::stoi(line.substr(colon + 1))});
    }
    return nodes;
}

void measure(const std::string& kelsh, const std::string& cluster, std::vector<Node> nodes,
             std::size_t count) {
    require(nodes.size() >= count,
            "the cluster has " + std::to_string(nodes.size()) + " nodes only");
    nodes.resize(count);
    const std::string nodeFile = "bench_" + std::to_string(count) + ".cfg";
    writeNodeFile(cluster + "/kelsh/" + nodeFile, nodes);
    std::vector<Cost> shell;
    std::vector<Cost> handshakes;
    std::size_t failed = 0;
    for (int run = 0; run < kRuns; ++run) {
        // Taken in turn, so that whatever else the machine does meets all of them.
        handshakes.push_back(measureHandshakes(cluster, nodes));
        shell.push_back(measureShell(kelsh, cluster, nodeFile, failed));
    }
    const Cost whole = median(shell);
    const Cost bare = median(handshakes);
    std::printf("%5zu | %8.0f %8.0f %6.1f | %7.0f %7.0f %6.1f | %5.2f %5.2f\n", count, whole.wallMs,
                whole.cpuMs, whole.peakMiB, bare.wallMs, bare.cpuMs, bare.peakMiB,
                whole.wallMs / bare.wallMs, whole.cpuMs / bare.cpuMs);
    if (failed != 0) {
        std::printf("        (%zu of %zu results of the shell were failures)\n", failed,
                    count * kRuns);
    }
    std::fflush(stdout);
}

void raiseFileLimit() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        require(::setrlimit(RLIMIT_NOFILE, &limit) == 0, "cannot raise the file limit");
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::cerr << "Usage: bench_fanout KELSH CLUSTER NODES...\n";
        return 2;
    }
    ::signal(SIGPIPE, SIG_IGN);
    try {
        raiseFileLimit();
        const std::string cluster = argv[2];
        const std::vector<Node> nodes = readNodes(cluster + "/kelsh/node.cfg");
        std::printf("      | one kelsh command        | as many handshakes      | kelsh/bare\n");
        std::printf("nodes |  wall ms   cpu ms    MiB | wall ms  cpu ms    MiB |  wall   cpu\n");
        for (int i = 3; i < argc; ++i) {
            measure(argv[1], cluster, nodes, std::stoul(argv[i]));
        }
    } catch (const std::exception& fault) {
        std::cerr << "bench_fanout: " << fault.what() << std::endl;
        return 1;
    }
    return 0;
}
