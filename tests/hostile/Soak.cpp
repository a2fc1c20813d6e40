// One shell on a terminal gives command after command to sixteen agents. What grows with the number
// of commands shows up here: descriptors, zombies, memory, on both sides.

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <pty.h>

#include "Figure.h"
#include "LocalCluster.h"
#include "Processes.h"
#include "TlsSocket.h"
#include "UniqueFd.h"
#include "WaitFor.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kNodes = 16;

// The interactive shell and everything it shows.
class Shell {
public:
    explicit Shell(const std::string& line) {
        winsize size{};
        size.ws_row = 50;
        size.ws_col = 250;
        int fd = -1;
        child = ::forkpty(&fd, nullptr, nullptr, &size);
        if (child == 0) {
            ::execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
            ::_exit(127);
        }
        terminal.reset(fd);
    }
    Shell(const Shell&) = delete;
    Shell& operator=(const Shell&) = delete;
    ~Shell() {
        ::kill(child, SIGKILL);
        while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    pid_t pid() const { return child; }

    // Waits until the text has been shown so many times since the last call; answers the question
    // for the cursor's place on the way, as a terminal does.
    bool waitForShown(const std::string& text, int times) {
        const auto limit = Clock::now() + std::chrono::seconds(30);
        std::string::size_type at = 0;
        while (times > 0) {
            const std::string::size_type found = pending.find(text, at);
            if (found != std::string::npos) {
                at = found + text.size();
                --times;
            } else if (!readMore(limit)) {
                return false;
            }
        }
        pending.erase(0, at);
        return true;
    }
    const std::string& unseen() const { return pending; }
    void type(const std::string& keys) const {
        if (::write(terminal.get(), keys.data(), keys.size()) !=
            static_cast<ssize_t>(keys.size())) {
            throw std::runtime_error("the shell's terminal is gone");
        }
    }

private:
    bool readMore(Clock::time_point limit) {
        char bytes[65536];
        if (tlssocket::wait(terminal.get(), POLLIN, limit) == 0) {
            return false;
        }
        const ssize_t count = ::read(terminal.get(), bytes, sizeof bytes);
        if (count <= 0) {
            return count < 0 && errno == EINTR;
        }
        const std::string part(bytes, static_cast<std::size_t>(count));
        if (part.find("\x1b[6n") != std::string::npos) {
            type("\x1b[10;10R");
        }
        pending += part;
        return true;
    }

    pid_t child = -1;
    UniqueFd terminal;
    std::string pending;
};

struct State {
    long shellKiB = 0;
    long agentKiB = 0;
    long shellDescriptors = 0;
    long agentDescriptors = 0;
    long zombies = 0;
};

State stateOf(const Shell& shell, const LocalCluster& cluster) {
    State state;
    state.shellKiB = processes::statusKiB(shell.pid(), "VmRSS");
    state.shellDescriptors = processes::openDescriptors(shell.pid());
    state.zombies = processes::zombies(shell.pid());
    for (int i = 0; i < kNodes; ++i) {
        const pid_t agent = cluster.agent(i);
        state.agentKiB = std::max(state.agentKiB, processes::statusKiB(agent, "VmRSS"));
        state.agentDescriptors =
            std::max(state.agentDescriptors, processes::openDescriptors(agent));
    }
    return state;
}

// The connections of the last command may still be on their way out.
State settledState(const Shell& shell, const LocalCluster& cluster) {
    State state;
    static_cast<void>(waitFor([&] {
        state = stateOf(shell, cluster);
        state.zombies = 0;
        bool isIdle = true;
        for (int i = 0; i < kNodes; ++i) {
            state.zombies += processes::zombies(cluster.agent(i));
            isIdle = isIdle && processes::tree(cluster.agent(i)).size() == 1;
        }
        return state.zombies == 0 && isIdle;
    }));
    state.zombies += processes::zombies(shell.pid());
    return state;
}

long runLines(Shell& shell, long lines) {
    long served = 0;
    for (long i = 0; i < lines; ++i) {
        shell.type("true -g all\r");
        // One head for each node; the line itself is echoed without "[".
        if (!shell.waitForShown("[node_", kNodes) || !shell.waitForShown("]$ ", 1)) {
            std::fprintf(stderr, "soak: line %ld was not answered, shown is:\n%s\n", i,
                         shell.unseen().c_str());
            break;
        }
        served += kNodes;
    }
    return served;
}

}  // namespace

std::vector<Figure> soak(const Scale& scale) {
    const long lines = scale.pick(100000 / kNodes, 30);
    const long warmUp = scale.pick(100, 10);
    const LocalCluster cluster(kNodes);
    Shell shell(cluster.kelshLine(""));
    Figure figure;
    figure.attack = "soak: commands through one shell to 16 agents";
    figure.tries = lines * kNodes;
    if (!shell.waitForShown("]$ ", 1)) {
        throw std::runtime_error("the shell shows no prompt");
    }
    shell.type("cd tools\r");
    if (!shell.waitForShown("]$ ", 1)) {
        throw std::runtime_error("the shell does not go down: " + shell.unseen());
    }
    // Caches fill and allocators find their size.
    runLines(shell, warmUp);
    const State before = settledState(shell, cluster);
    const Clock::time_point start = Clock::now();
    figure.survived = runLines(shell, lines);
    const long elapsedMs = static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
    const State after = settledState(shell, cluster);
    figure.growthKiB = std::max(after.shellKiB - before.shellKiB, after.agentKiB - before.agentKiB);
    figure.remark = std::to_string(figure.survived * 1000 / std::max(1L, elapsedMs)) +
                    " commands/s; descriptors " + std::to_string(before.shellDescriptors) + " to " +
                    std::to_string(after.shellDescriptors) + " in the shell, " +
                    std::to_string(before.agentDescriptors) + " to " +
                    std::to_string(after.agentDescriptors) + " in an agent; " +
                    std::to_string(after.zombies) + " zombies; memory: shell +" +
                    std::to_string(after.shellKiB - before.shellKiB) + " KiB, agent +" +
                    std::to_string(after.agentKiB - before.agentKiB) + " KiB";
    figure.isReached = figure.survived == figure.tries && after.zombies == 0 &&
                       after.shellDescriptors <= before.shellDescriptors &&
                       after.agentDescriptors <= before.agentDescriptors && figure.growthKiB < 4096;
    return {figure};
}
