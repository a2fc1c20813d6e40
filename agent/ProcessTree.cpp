#include "ProcessTree.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

#include <dirent.h>

// glibc 2.36 declares these without C linkage.
extern "C" {
#include <sys/pidfd.h>
}

#include "UniqueFd.h"

namespace processtree {

namespace {

using Clock = std::chrono::steady_clock;

// Of /proc/<pid>/stat, between the parent and the number of threads, and between that and the start
// time.
constexpr int kFieldsBeforeThreads = 15;
constexpr int kFieldsBeforeStartTime = 1;

struct DirectoryCloser {
    void operator()(DIR* directory) const { ::closedir(directory); }
};

// The whole of a small file under /proc; false when it cannot be read (any more).
bool readAll(const std::string& path, std::string& content) {
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!file) {
        return false;
    }
    content.clear();
    char buffer[4096];
    for (;;) {
        const ssize_t count = ::read(file.get(), buffer, sizeof buffer);
        if (count > 0) {
            content.append(buffer, static_cast<std::size_t>(count));
        } else if (count == 0) {
            return true;
        } else if (errno != EINTR) {
            return false;
        }
    }
}

std::string procPath(pid_t pid, const char* file) {
    return "/proc/" + std::to_string(pid) + "/" + file;
}

// The first thread has no memory any more once it has ended; then another one is asked.
bool readEnvironment(const ProcessInfo& process, std::string& content) {
    if (readAll(procPath(process.pid, "environ"), content) && !content.empty()) {
        return true;
    }
    const std::string tasks = procPath(process.pid, "task");
    const std::unique_ptr<DIR, DirectoryCloser> directory(::opendir(tasks.c_str()));
    while (const dirent* entry = directory ? ::readdir(directory.get()) : nullptr) {
        if (entry->d_name[0] != '.' && readAll(tasks + "/" + entry->d_name + "/environ", content) &&
            !content.empty()) {
            return true;
        }
    }
    return false;
}

bool isSame(const ProcessInfo& a, const ProcessInfo& b) {
    return a.pid == b.pid && a.startTime == b.startTime;
}

using Key = std::pair<pid_t, unsigned long long>;

Key keyOf(const ProcessInfo& process) {
    return {process.pid, process.startTime};
}

// A short wait that ends early when a child ends; SIGCHLD may be blocked or not.
void waitForChange(std::chrono::milliseconds time) {
    sigset_t child;
    ::sigemptyset(&child);
    ::sigaddset(&child, SIGCHLD);
    const timespec limit{time.count() / 1000, (time.count() % 1000) * 1000000};
    sigset_t old;
    ::sigprocmask(SIG_BLOCK, &child, &old);
    ::sigtimedwait(&child, nullptr, &limit);
    ::sigprocmask(SIG_SETMASK, &old, nullptr);
}

// Reaps the children that have ended, but not the group leader: while it is a zombie, the number of
// its group cannot become anybody else's.
void reapEnded(const std::vector<ProcessInfo>& processes, pid_t groupLeader) {
    const pid_t self = ::getpid();
    for (const ProcessInfo& process : processes) {
        if (process.isZombie() && process.parent == self && process.pid != groupLeader) {
            ::waitpid(process.pid, nullptr, WNOHANG);
        }
    }
}

bool anyAlive(const std::vector<ProcessInfo>& processes) {
    return std::any_of(processes.begin(), processes.end(),
                       [](const ProcessInfo& process) { return !process.isZombie(); });
}

// Reaps what is left; true when there is no child any more.
bool reapLast() {
    for (;;) {
        const pid_t pid = ::waitpid(-1, nullptr, WNOHANG);
        if (pid == 0) {
            return false;
        }
        if (pid < 0 && errno != EINTR) {
            return true;
        }
    }
}

void askToEnd(const std::vector<ProcessInfo>& processes, std::set<Key>& asked) {
    for (const ProcessInfo& process : processes) {
        if (!process.isZombie() && asked.insert(keyOf(process)).second) {
            signalProcess(process, SIGTERM);
            signalProcess(process, SIGCONT);
        }
    }
}

}  // namespace

bool readProcess(pid_t pid, ProcessInfo& info) {
    std::string content;
    if (!readAll(procPath(pid, "stat"), content)) {
        return false;
    }
    // The name in brackets may hold anything, brackets and blanks included.
    const std::string::size_type end = content.rfind(')');
    if (end == std::string::npos || end + 2 >= content.size()) {
        return false;
    }
    std::istringstream fields(content.substr(end + 2));
    ProcessInfo found;
    found.pid = pid;
    fields >> found.state >> found.parent;
    std::string skipped;
    for (int i = 0; i < kFieldsBeforeThreads; ++i) {
        fields >> skipped;
    }
    fields >> found.threads;
    for (int i = 0; i < kFieldsBeforeStartTime; ++i) {
        fields >> skipped;
    }
    if (!(fields >> found.startTime)) {
        return false;
    }
    info = found;
    return true;
}

std::vector<ProcessInfo> listProcesses() {
    std::vector<ProcessInfo> processes;
    const std::unique_ptr<DIR, DirectoryCloser> directory(::opendir("/proc"));
    if (!directory) {
        return processes;
    }
    while (const dirent* entry = ::readdir(directory.get())) {
        char* end = nullptr;
        const long pid = std::strtol(entry->d_name, &end, 10);
        ProcessInfo info;
        if (pid > 0 && *end == '\0' && readProcess(static_cast<pid_t>(pid), info)) {
            processes.push_back(info);
        }
    }
    return processes;
}

std::vector<ProcessInfo> descendantsOf(pid_t root) {
    std::multimap<pid_t, ProcessInfo> byParent;
    for (const ProcessInfo& process : listProcesses()) {
        byParent.emplace(process.parent, process);
    }
    std::vector<ProcessInfo> found;
    std::vector<pid_t> open{root};
    while (!open.empty()) {
        const pid_t parent = open.back();
        open.pop_back();
        const auto children = byParent.equal_range(parent);
        for (auto child = children.first; child != children.second; ++child) {
            found.push_back(child->second);
            open.push_back(child->second.pid);
        }
        byParent.erase(parent);
    }
    return found;
}

std::vector<ProcessInfo> carrying(const std::string& entry) {
    const std::string wanted = '\0' + entry + '\0';
    std::vector<ProcessInfo> found;
    std::string content;
    for (const ProcessInfo& process : listProcesses()) {
        if (!process.isZombie() && readEnvironment(process, content) &&
            ('\0' + content).find(wanted) != std::string::npos) {
            found.push_back(process);
        }
    }
    return found;
}

void signalProcess(const ProcessInfo& process, int signal) {
    const UniqueFd handle(::pidfd_open(process.pid, 0));
    ProcessInfo now;
    if (handle && readProcess(process.pid, now) && isSame(process, now)) {
        ::pidfd_send_signal(handle.get(), signal, nullptr, 0);
    }
}

void killAll(const std::function<std::vector<ProcessInfo>()>& find, int maxRounds) {
    std::map<Key, ProcessInfo> stopped;
    for (int round = 0; round < maxRounds; ++round) {
        bool foundNew = false;
        for (const ProcessInfo& process : find()) {
            if (!process.isZombie() && stopped.emplace(keyOf(process), process).second) {
                signalProcess(process, SIGSTOP);
                foundNew = true;
            }
        }
        if (!foundNew) {
            break;
        }
    }
    for (const auto& process : stopped) {
        signalProcess(process.second, SIGKILL);
    }
}

bool endOwnDescendants(pid_t groupLeader, std::chrono::milliseconds grace,
                       std::chrono::milliseconds limit) {
    const auto find = [] { return descendantsOf(::getpid()); };
    const Clock::time_point start = Clock::now();
    std::set<Key> asked;
    std::chrono::milliseconds pause(1);
    while (Clock::now() < start + limit) {
        std::vector<ProcessInfo> left = find();
        reapEnded(left, groupLeader);
        if (!anyAlive(left)) {
            // Whoever lives too shortly to be seen, always making the next one, is still in the
            // group; once its leader is reaped, nothing can reach it in one stroke any more.
            if (groupLeader > 0) {
                ::kill(-groupLeader, SIGKILL);
            }
            // The look at /proc is not one moment: only "no child at all" is the last word.
            if (reapLast()) {
                return true;
            }
            groupLeader = 0;
            continue;
        }
        if (Clock::now() < start + grace) {
            askToEnd(left, asked);
            pause = std::min(pause * 2, std::chrono::milliseconds(50));
        } else {
            if (groupLeader > 0) {
                ::kill(-groupLeader, SIGKILL);
            }
            killAll(find);
            pause = std::min(pause * 2, std::chrono::milliseconds(200));
        }
        waitForChange(pause);
    }
    return reapLast();
}

}  // namespace processtree
