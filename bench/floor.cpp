// The bare yardstick: what running one line on many nodes costs when nothing but mutual TLS 1.3 and
// a shell per line is done. It shares no code with the product, and takes no shortcut that the
// product could not take: certificates are verified both ways with the address, every connection is
// served by a process of its own, every line by "/bin/sh -c".
//
//   bench_floor server --cluster DIR --nodes N --port P
//   bench_floor client MODE --cluster DIR --nodes N --port P [--repeat K] [--line LINE]
//               [--from FILE --to FILE]
//
// DIR is a local cluster, whose first N addresses and certificates are used. The server is a
// process per address, says "ready", and ends when its standard input does. Modes of the client:
//
//   cold     connect, handshake, run, answer, close; K times
//   resumed  the same with the session of the time before; the first time is cold
//   open     the first time connects, then the connections stay and only run
//   put      the file --from of the client to --to of the node; a "%" there is the node's name
//   get      the file --from of the node to --to of the client, "%" as above
//
// The output of the lines goes to standard output, node after node. For each time one line of JSON
// goes to standard error: wall and processor time in milliseconds (user and system, of this process
// and of its children), the peak of resident memory in KiB, and how many connections were resumed.

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <netinet/in.h>
#include <optional>
#include <spawn.h>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "FloorLink.h"

namespace {

using floorbench::Context;
using floorbench::Descriptor;
using floorbench::Fault;
using floorbench::Link;
using floorbench::require;
using floorbench::Session;

constexpr int kBacklog = 4096;
// So many handshakes at a time: a thousand at once would only take the processor from each other.
constexpr int kHandshakesAtOnce = 64;
// A connection of the server ends after that, whatever hangs.
constexpr unsigned int kConnectionSeconds = 600;
constexpr std::size_t kPieceBytes = std::size_t{64} * 1024;
constexpr char kRun = 'R';
constexpr char kPut = 'P';
constexpr char kGet = 'G';

struct Node {
    std::string name;
    std::string ip;
};

struct Options {
    std::string mode;
    std::string cluster;
    std::string line = "true";
    std::string from;
    std::string to;
    std::size_t nodes = 1;
    int port = 0;
    int repeat = 1;
};

// The first lines of the node file: NAME=MAC,IP:PORT.
std::vector<Node> readNodes(const Options& options) {
    const std::string path = options.cluster + "/kelsh/node.cfg";
    std::ifstream file(path);
    std::vector<Node> nodes;
    std::string line;
    while (nodes.size() < options.nodes && std::getline(file, line) && line != "[group]") {
        const std::size_t equals = line.find('=');
        const std::size_t comma = line.find(',');
        const std::size_t colon = line.rfind(':');
        if (equals != std::string::npos && comma != std::string::npos && colon > comma) {
            nodes.push_back({line.substr(0, equals), line.substr(comma + 1, colon - comma - 1)});
        }
    }
    require(nodes.size() == options.nodes, path + " has too few nodes");
    return nodes;
}

// ---- server -------------------------------------------------------------------------------------

struct SpawnActions {
    posix_spawn_file_actions_t actions{};
    SpawnActions() { posix_spawn_file_actions_init(&actions); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
    ~SpawnActions() { posix_spawn_file_actions_destroy(&actions); }
};

struct SpawnAttributes {
    posix_spawnattr_t attributes{};
    SpawnAttributes() { posix_spawnattr_init(&attributes); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes); }
};

pid_t spawnShell(const std::string& line, int outputFd) {
    SpawnActions files;
    posix_spawn_file_actions_addopen(&files.actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files.actions, outputFd, 1);
    posix_spawn_file_actions_adddup2(&files.actions, outputFd, 2);
    SpawnAttributes how;
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&how.attributes, &defaults);
    posix_spawnattr_setflags(&how.attributes, POSIX_SPAWN_SETSIGDEF);
    std::string shell = "sh";
    std::string option = "-c";
    std::string copy = line;
    const std::array<char*, 4> arguments{&shell[0], &option[0], &copy[0], nullptr};
    pid_t child = -1;
    errno =
        posix_spawn(&child, "/bin/sh", &files.actions, &how.attributes, arguments.data(), environ);
    require(errno == 0, "cannot start a shell");
    return child;
}

// The output in pieces, each behind its length; a piece of none ends it; then the exit code.
void runLine(Link& link, const std::string& line) {
    std::array<int, 2> ends{};
    require(::pipe2(ends.data(), O_CLOEXEC) == 0, "no pipe");
    const Descriptor in(ends[0]);
    pid_t child = -1;
    {
        const Descriptor out(ends[1]);
        child = spawnShell(line, out.get());
    }
    std::vector<char> piece(kPieceBytes);
    ssize_t got = 0;
    while ((got = ::read(in.get(), piece.data(), piece.size())) != 0) {
        require(got > 0 || errno == EINTR, "cannot read the output");
        if (got > 0) {
            link.sendNumber(static_cast<std::uint64_t>(got));
            link.send(piece.data(), static_cast<std::size_t>(got));
        }
    }
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        require(errno == EINTR, "waitpid failed");
    }
    // The end and the exit code in one record.
    std::array<unsigned char, 16> last{};
    last[15] = static_cast<unsigned char>(WIFEXITED(status) ? WEXITSTATUS(status)
                                                            : 128 + WTERMSIG(status));
    link.send(last.data(), last.size());
}

void serveConnection(SSL_CTX* context, Descriptor socket) {
    Link link = Link::accept(context, std::move(socket));
    char kind = 0;
    while (link.receive(&kind, 1)) {
        const std::string text = link.receiveText();
        if (kind == kRun) {
            runLine(link, text);
        } else if (kind == kPut) {
            link.receiveFile(text);
            link.sendNumber(0);
        } else {
            require(kind == kGet, "unknown request");
            link.sendFile(text);
        }
    }
}

// Never returns: the whole life of one address.
[[noreturn]] void serveAddress(const Options& options, const Node& node, int readyFd) {
    try {
        require(::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0, "prctl failed");
        const std::string files = options.cluster + "/nodes/" + node.name + "/";
        const Context context =
            floorbench::makeContext(true, files + "node.crt", files + "node.key", files + "ca.crt");
        const Descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const int on = 1;
        const sockaddr_in address = floorbench::addressOf(node.ip, options.port);
        require(listener.get() >= 0 &&
                    ::setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) == 0 &&
                    ::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address),
                           sizeof(address)) == 0 &&
                    ::listen(listener.get(), kBacklog) == 0,
                "cannot listen on " + node.ip);
        require(::write(readyFd, "r", 1) == 1, "cannot report");
        ::signal(SIGCHLD, SIG_IGN);
        for (;;) {
            Descriptor socket(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
            require(socket.get() >= 0 || errno == EINTR || errno == ECONNABORTED, "accept failed");
            if (socket.get() < 0) {
                continue;
            }
            const pid_t child = ::fork();
            require(child >= 0, "fork failed");
            if (child == 0) {
                ::prctl(PR_SET_PDEATHSIG, SIGKILL);
                ::signal(SIGCHLD, SIG_DFL);
                ::alarm(kConnectionSeconds);
                serveConnection(context.get(), std::move(socket));
                ::_exit(0);
            }
        }
    } catch (const std::exception& fault) {
        std::cerr << "bench_floor: " << node.name << ": " << fault.what() << std::endl;
    }
    ::_exit(1);
}

void serve(const Options& options) {
    const std::vector<Node> nodes = readNodes(options);
    std::array<int, 2> ends{};
    require(::pipe2(ends.data(), O_CLOEXEC) == 0, "no pipe");
    const Descriptor in(ends[0]);
    std::optional<Descriptor> out(std::in_place, ends[1]);
    for (const Node& node : nodes) {
        const pid_t child = ::fork();
        require(child >= 0, "fork failed");
        if (child == 0) {
            serveAddress(options, node, out->get());
        }
    }
    out.reset();
    for (std::size_t ready = 0; ready < nodes.size(); ++ready) {
        char one = 0;
        require(::read(in.get(), &one, 1) == 1, "a server did not come up");
    }
    std::cout << "ready" << std::endl;
    // The children end with this process.
    char rest = 0;
    while (::read(0, &rest, 1) > 0) {
    }
}

// ---- client -------------------------------------------------------------------------------------

class Gate {
public:
    explicit Gate(int width) : places(width) {}
    void enter() {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return places > 0; });
        --places;
    }
    void leave() {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            ++places;
        }
        changed.notify_one();
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    int places;
};

class Turn {
public:
    explicit Turn(Gate& entered) : gate(entered) { gate.enter(); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn() { gate.leave(); }

private:
    Gate& gate;
};

std::string named(std::string path, const std::string& name) {
    const std::size_t mark = path.find('%');
    return mark == std::string::npos ? path : path.replace(mark, 1, name);
}

class Client {
public:
    explicit Client(const Options& given)
        : options(given),
          nodes(readNodes(given)),
          context(floorbench::makeContext(false, given.cluster + "/kelsh/ssl/master.crt",
                                          given.cluster + "/kelsh/ssl/master.key",
                                          given.cluster + "/pki/ca.crt")),
          sessions(nodes.size()),
          links(nodes.size()),
          outputs(nodes.size()) {}

    // Once on every node, a thread for each; throws when any of them failed.
    void run() {
        resumed = 0;
        std::atomic<std::size_t> failed{0};
        std::vector<std::thread> threads;
        threads.reserve(nodes.size());
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            threads.emplace_back([this, i, &failed] {
                try {
                    work(i);
                } catch (const std::exception& fault) {
                    if (failed++ == 0) {
                        std::cerr << nodes[i].name << ": " << fault.what() << std::endl;
                    }
                }
            });
        }
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            threads[i].join();
            std::cout.write(outputs[i].data(), static_cast<std::streamsize>(outputs[i].size()));
            std::string().swap(outputs[i]);
        }
        std::cout.flush();
        require(failed == 0, std::to_string(failed) + " nodes failed");
    }

    std::size_t resumedCount() const { return resumed; }

private:
    void work(std::size_t i) {
        if (!links[i]) {
            const Turn turn(gate);
            links[i].emplace(Link::connect(context.get(), nodes[i].ip, options.port,
                                           options.mode == "resumed" ? &sessions[i] : nullptr));
            resumed += links[i]->isResumed() ? 1 : 0;
        }
        ask(*links[i], i);
        if (options.mode != "open") {
            links[i].reset();
        }
    }

    void ask(Link& link, std::size_t i) {
        const std::string& name = nodes[i].name;
        if (options.mode == "put") {
            request(link, kPut, named(options.to, name));
            link.sendFile(options.from);
            require(link.receiveNumber() == 0, "the file was not taken");
        } else if (options.mode == "get") {
            request(link, kGet, named(options.from, name));
            link.receiveFile(named(options.to, name));
        } else {
            request(link, kRun, options.line);
            takeOutput(link, outputs[i]);
        }
    }

    // In one record.
    static void request(Link& link, char kind, const std::string& text) {
        std::string bytes(1, kind);
        for (int shift = 56; shift >= 0; shift -= 8) {
            bytes += static_cast<char>(text.size() >> shift & 0xff);
        }
        bytes += text;
        link.send(bytes.data(), bytes.size());
    }

    static void takeOutput(Link& link, std::string& output) {
        while (const std::uint64_t size = link.receiveNumber()) {
            require(size <= kPieceBytes, "a piece is too long");
            const std::size_t before = output.size();
            output.resize(before + size);
            require(link.receive(&output[before], size), "the output ends too early");
        }
        const std::uint64_t exitCode = link.receiveNumber();
        if (exitCode != 0) {
            output += "exit code " + std::to_string(exitCode) + "\n";
        }
    }

    const Options& options;
    const std::vector<Node> nodes;
    const Context context;
    Gate gate{kHandshakesAtOnce};
    std::vector<Session> sessions;
    std::vector<std::optional<Link>> links;
    std::vector<std::string> outputs;
    std::atomic<std::size_t> resumed{0};
};

double cpuMs() {
    double sum = 0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage{};
        require(::getrusage(who, &usage) == 0, "getrusage failed");
        for (const timeval& time : {usage.ru_utime, usage.ru_stime}) {
            sum +=
                static_cast<double>(time.tv_sec) * 1000 + static_cast<double>(time.tv_usec) / 1000;
        }
    }
    return sum;
}

long peakKib() {
    rusage usage{};
    require(::getrusage(RUSAGE_SELF, &usage) == 0, "getrusage failed");
    return usage.ru_maxrss;
}

void beClient(const Options& options) {
    using Clock = std::chrono::steady_clock;
    Client client(options);
    for (int i = 0; i < options.repeat; ++i) {
        const double cpuBefore = cpuMs();
        const Clock::time_point start = Clock::now();
        client.run();
        const double wall = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        std::fprintf(stderr,
                     "{\"wall_ms\": %.3f, \"cpu_ms\": %.3f, \"peak_kib\": %ld, \"resumed\": %zu}\n",
                     wall, cpuMs() - cpuBefore, peakKib(), client.resumedCount());
    }
}

// ---- command line -------------------------------------------------------------------------------

bool readOptions(int argc, char** argv, Options& options) {
    int next = 2;
    if (std::strcmp(argv[1], "client") == 0 && argc > 2) {
        options.mode = argv[next++];
    }
    std::map<std::string, std::string> values;
    for (; next + 1 < argc; next += 2) {
        values[argv[next]] = argv[next + 1];
    }
    const auto take = [&values](const char* name, const std::string& otherwise) {
        const auto found = values.find(name);
        if (found == values.end()) {
            return otherwise;
        }
        const std::string value = found->second;
        values.erase(found);
        return value;
    };
    options.cluster = take("--cluster", "");
    options.line = take("--line", "true");
    options.from = take("--from", "");
    options.to = take("--to", "");
    options.nodes = std::stoul(take("--nodes", "1"));
    options.port = std::stoi(take("--port", "0"));
    options.repeat = std::stoi(take("--repeat", "1"));
    const bool known = options.mode.empty() || options.mode == "cold" ||
                       options.mode == "resumed" || options.mode == "open" ||
                       ((options.mode == "put" || options.mode == "get") && !options.from.empty() &&
                        !options.to.empty());
    return next == argc && values.empty() && known && !options.cluster.empty() &&
           options.nodes > 0 && options.port > 0;
}

void raiseFileLimit() {
    rlimit limit{};
    require(::getrlimit(RLIMIT_NOFILE, &limit) == 0, "getrlimit failed");
    limit.rlim_cur = limit.rlim_max;
    require(::setrlimit(RLIMIT_NOFILE, &limit) == 0, "setrlimit failed");
}

}  // namespace

int main(int argc, char** argv) {
    try {
        Options options;
        const std::string role = argc > 1 ? argv[1] : "";
        if ((role != "server" && role != "client") || !readOptions(argc, argv, options) ||
            (role == "client") == options.mode.empty()) {
            std::cerr << "Usage: bench_floor server|client MODE --cluster DIR --nodes N --port P"
                         " [--repeat K] [--line LINE] [--from FILE --to FILE]\n";
            return 2;
        }
        ::signal(SIGPIPE, SIG_IGN);
        raiseFileLimit();
        role == "server" ? serve(options) : beClient(options);
    } catch (const std::exception& fault) {
        std::cerr << "bench_floor: " << fault.what() << std::endl;
        return 1;
    }
    return 0;
}
