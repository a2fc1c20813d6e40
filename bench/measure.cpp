// Runs one command and says what it cost: a line of JSON with the wall time, the processor time of
// the command and of everything it started (user and system), the peak of the largest process, and
// with --memory the peak of the memory of the whole process tree.
//
//   bench_measure [--memory] [--limit SECONDS] [--output FILE] -- COMMAND [ARGUMENT...]
//
// A program of its own because it is small: a child starts with the peak of the process it was
// forked from, and the driver's interpreter is larger than what is measured.
//
// The memory of a tree is the sum of proportional set sizes (PSS), sampled every 20 ms: pages that
// several processes share count once. Sampling costs processor time, so it is not to be used in the
// runs whose times count. Standard input is /dev/null; standard output and error of the command go
// to FILE. After SECONDS (default 120) the command is killed with all it started, and "timed_out"
// is true; so it is when this program is told to end by SIGTERM. What is left when the command has
// ended is given half a second, then killed.

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <dirent.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kSampleMs = 20;
constexpr int kLeftoverMs = 500;

volatile std::sig_atomic_t toldToEnd = 0;

struct Options {
    bool memory = false;
    double limitSeconds = 120;
    const char* output = "/dev/null";
    char** command = nullptr;
};

double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// The parents of all processes.
std::map<pid_t, pid_t> readParents() {
    std::map<pid_t, pid_t> parents;
    DIR* proc = ::opendir("/proc");
    if (proc == nullptr) {
        return parents;
    }
    while (const dirent* entry = ::readdir(proc)) {
        const pid_t pid = std::atoi(entry->d_name);
        if (pid <= 0) {
            continue;
        }
        std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
        std::string text;
        std::getline(file, text);
        // The name may hold anything, so count from behind it.
        const std::size_t end = text.rfind(") ");
        if (end != std::string::npos) {
            parents[pid] = std::atoi(text.c_str() + end + 4);
        }
    }
    ::closedir(proc);
    return parents;
}

std::vector<pid_t> descendants() {
    const std::map<pid_t, pid_t> parents = readParents();
    std::vector<pid_t> found;
    for (const auto& [pid, parent] : parents) {
        pid_t above = parent;
        for (int depth = 0; above > 1 && above != ::getpid() && depth < 64; ++depth) {
            const auto next = parents.find(above);
            above = next == parents.end() ? 0 : next->second;
        }
        if (above == ::getpid()) {
            found.push_back(pid);
        }
    }
    return found;
}

long pssKib(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/smaps_rollup");
    std::string line;
    while (std::getline(file, line)) {
        if (line.rfind("Pss:", 0) == 0) {
            return std::atol(line.c_str() + 4);
        }
    }
    return 0;
}

long sampleTree() {
    long sum = 0;
    for (const pid_t pid : descendants()) {
        sum += pssKib(pid);
    }
    return sum;
}

[[noreturn]] void become(const Options& options) {
    const int in = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int out = ::open(options.output, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    // It must not outlive a comparison that was broken off.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    // A session of its own: nothing of it can ask a question on the terminal.
    if (in < 0 || out < 0 || ::setsid() < 0 || ::dup2(in, 0) < 0 || ::dup2(out, 1) < 0 ||
        ::dup2(out, 2) < 0) {
        ::_exit(126);
    }
    ::execvp(options.command[0], options.command);
    ::_exit(127);
}

// Reaps the rest; whatever has not ended by itself in time is killed.
void endLeftovers() {
    const Clock::time_point start = Clock::now();
    for (;;) {
        const pid_t reaped = ::waitpid(-1, nullptr, WNOHANG);
        if (reaped < 0 && errno == ECHILD) {
            return;
        }
        if (reaped == 0) {
            if (msSince(start) > kLeftoverMs) {
                for (const pid_t pid : descendants()) {
                    ::kill(pid, SIGKILL);
                }
            }
            ::poll(nullptr, 0, 5);
        }
    }
}

struct Outcome {
    double wallMs = 0;
    long treeKib = 0;
    int status = 0;
    bool timedOut = false;
};

// waitid leaves the process unreaped, so that its number cannot be another's when it is killed.
Outcome await(const Options& options, pid_t child, Clock::time_point start) {
    Outcome outcome;
    const int watched = static_cast<int>(::syscall(SYS_pidfd_open, child, 0));
    pollfd end{watched, POLLIN, 0};
    sigset_t none;
    sigemptyset(&none);
    while (watched >= 0) {
        const double left = options.limitSeconds * 1000 - msSince(start);
        if ((left <= 0 || toldToEnd != 0) && !outcome.timedOut) {
            outcome.timedOut = true;
            for (const pid_t pid : descendants()) {
                ::kill(pid, SIGKILL);
            }
        }
        const long wait = options.memory || outcome.timedOut ? kSampleMs : std::lround(left) + 1;
        const timespec waitTime{wait / 1000, wait % 1000 * 1000000};
        // SIGTERM comes through only here.
        if (::ppoll(&end, 1, &waitTime, &none) > 0) {
            break;
        }
        if (options.memory) {
            outcome.treeKib = std::max(outcome.treeKib, sampleTree());
        }
    }
    outcome.wallMs = msSince(start);
    if (watched >= 0) {
        ::close(watched);
    }
    while (::waitpid(child, &outcome.status, 0) < 0 && errno == EINTR) {
    }
    return outcome;
}

void measure(const Options& options) {
    sigset_t termination;
    sigemptyset(&termination);
    sigaddset(&termination, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &termination, nullptr);
    ::signal(SIGTERM, [](int) { toldToEnd = 1; });
    // So that what outlives its parent is still counted, and ended.
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    const Clock::time_point start = Clock::now();
    const pid_t child = ::fork();
    if (child == 0) {
        become(options);
    }
    if (child < 0) {
        std::perror("bench_measure: fork");
        std::exit(1);
    }
    const Outcome outcome = await(options, child, start);
    endLeftovers();
    rusage usage{};
    ::getrusage(RUSAGE_CHILDREN, &usage);
    double cpuMs = 0;
    for (const timeval& time : {usage.ru_utime, usage.ru_stime}) {
        cpuMs += static_cast<double>(time.tv_sec) * 1000 + static_cast<double>(time.tv_usec) / 1000;
    }
    const int status =
        WIFEXITED(outcome.status) ? WEXITSTATUS(outcome.status) : 128 + WTERMSIG(outcome.status);
    std::printf(
        "{\"wall_ms\": %.3f, \"cpu_ms\": %.3f, \"peak_kib\": %ld, \"tree_kib\": %ld, "
        "\"status\": %d, \"timed_out\": %s}\n",
        outcome.wallMs, cpuMs, usage.ru_maxrss, outcome.treeKib, status,
        outcome.timedOut ? "true" : "false");
}

bool readOptions(int argc, char** argv, Options& options) {
    int i = 1;
    for (; i < argc && std::strcmp(argv[i], "--") != 0; ++i) {
        const std::string name = argv[i];
        if (name == "--memory") {
            options.memory = true;
        } else if (name == "--limit" && i + 1 < argc) {
            options.limitSeconds = std::atof(argv[++i]);
        } else if (name == "--output" && i + 1 < argc) {
            options.output = argv[++i];
        } else {
            return false;
        }
    }
    options.command = argv + i + 1;
    return i + 1 < argc && options.limitSeconds > 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!readOptions(argc, argv, options)) {
        std::fprintf(stderr,
                     "Usage: bench_measure [--memory] [--limit SECONDS] [--output FILE] -- "
                     "COMMAND [ARGUMENT...]\n");
        return 2;
    }
    measure(options);
    return 0;
}
