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
#include <sys/resource.h>
#include <sys/stat.h>
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

// Of /proc/<pid>/stat, between the session and the number of threads, and between that and the
// start time.
constexpr int kFieldsBeforeThreads = 13;
constexpr int kFieldsBeforeStartTime = 1;

// So many looks that find nothing alive, one after the other, are taken for an end.
constexpr int kLooksAtNothing = 3;

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

// Reads the number behind the blanks, also a negative one, and moves on; 0 at the end of the text.
unsigned long long nextNumber(const char*& at) {
    char* end = nullptr;
    const unsigned long long number = std::strtoull(at, &end, 10);
    at = end;
    return number;
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

// The highest priority, while it lives. Where that is not allowed, things are as they were.
class Urgency {
public:
    Urgency() : before(::getpriority(PRIO_PROCESS, 0)) {
        ::setpriority(PRIO_PROCESS, 0, kHighest);
        setOfSession(kHighest);
    }
    Urgency(const Urgency&) = delete;
    Urgency& operator=(const Urgency&) = delete;
    ~Urgency() {
        ::setpriority(PRIO_PROCESS, 0, before);
        setOfSession(0);
    }

private:
    static constexpr int kHighest = -20;

    // The kernel may weigh sessions against each other before it looks at a process's priority.
    static void setOfSession(int priority) {
        const UniqueFd file(::open("/proc/self/autogroup", O_WRONLY | O_CLOEXEC));
        const std::string text = std::to_string(priority);
        if (file && ::write(file.get(), text.data(), text.size()) < 0) {
            return;  // not allowed, and it is only a matter of speed
        }
    }

    int before;
};

void askToEnd(const std::vector<ProcessInfo>& processes, std::set<Key>& asked) {
    for (const ProcessInfo& process : processes) {
        if (!process.isZombie() && asked.insert(keyOf(process)).second) {
            signalProcess(process, SIGTERM);
            signalProcess(process, SIGCONT);
        }
    }
}

// Kills all of them, and in one stroke the groups they are in: a process that only makes its
// successor and ends is gone before its own signal arrives, the group is not. Numbers are given
// round the whole range, so that a group's cannot be another's between the look and the signal.
// True when one of them had not been killed before.
bool killFound(const std::vector<ProcessInfo>& found, std::set<Key>& killed) {
    const pid_t ownSession = ::getsid(0);
    // Without a session of its own the caller cannot know who else is in its session's groups.
    const bool sharesSession = ownSession != ::getpid();
    std::set<pid_t> groups;
    bool isNew = false;
    for (const ProcessInfo& process : found) {
        if (process.isZombie()) {
            continue;
        }
        isNew = killed.insert(keyOf(process)).second || isNew;
        const bool isApart = !sharesSession || process.session != ownSession;
        if (isApart && process.group > 1 && process.group != ::getpgrp()) {
            groups.insert(process.group);
        }
    }
    for (const pid_t group : groups) {
        ::kill(-group, SIGKILL);
    }
    for (const ProcessInfo& process : found) {
        if (!process.isZombie()) {
            signalProcess(process, SIGKILL);
        }
    }
    return isNew;
}

// Asks everything below the caller to end, newcomers too, until the end of the grace or until
// nothing is to be seen.
void askUntil(Clock::time_point end, pid_t groupLeader) {
    std::set<Key> asked;
    std::chrono::milliseconds pause(1);
    int looksAtNothing = 0;
    while (Clock::now() < end) {
        const std::vector<ProcessInfo> left = descendantsOf(::getpid());
        reapEnded(left, groupLeader);
        looksAtNothing = anyAlive(left) ? 0 : looksAtNothing + 1;
        // One look may miss a process that has just taken over from its parent.
        if (looksAtNothing == kLooksAtNothing) {
            return;
        }
        askToEnd(left, asked);
        pause = std::min(pause * 2, std::chrono::milliseconds(50));
        const auto rest = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
        waitForChange(std::clamp(rest, std::chrono::milliseconds(0), pause));
    }
}

// Kills until the caller has no child any more; false at the limit.
bool killUntil(Clock::time_point limit, pid_t groupLeader) {
    const Urgency urgency;
    std::set<Key> killed;
    std::chrono::milliseconds pause(1);
    for (;;) {
        // Whoever lives too shortly to be seen, always making the next one, is still in the group;
        // once its leader is reaped, nothing can reach it in one stroke any more.
        if (groupLeader > 0) {
            ::kill(-groupLeader, SIGKILL);
        }
        const std::vector<ProcessInfo> left = descendantsOf(::getpid());
        const bool isNew = killFound(left, killed);
        reapEnded(left, groupLeader);
        if (!anyAlive(left)) {
            groupLeader = 0;
        }
        // The look at /proc is not one moment: only "no child at all" is the last word.
        if (groupLeader == 0 && reapLast()) {
            return true;
        }
        if (Clock::now() >= limit) {
            return false;
        }
        // What has been killed needs time to die; what is new must not get any.
        if (!isNew) {
            waitForChange(pause);
            pause = std::min(pause * 2, std::chrono::milliseconds(20));
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
    ProcessInfo found;
    found.pid = pid;
    const std::string::size_type begin = content.find('(');
    found.name = begin < end ? content.substr(begin + 1, end - begin - 1) : "";
    found.state = content[end + 2];
    // By hand: this is done for every process of the machine while a fork storm is on.
    const char* at = content.c_str() + end + 3;
    found.parent = static_cast<pid_t>(nextNumber(at));
    found.group = static_cast<pid_t>(nextNumber(at));
    found.session = static_cast<pid_t>(nextNumber(at));
    for (int i = 0; i < kFieldsBeforeThreads; ++i) {
        nextNumber(at);
    }
    found.threads = static_cast<long>(nextNumber(at));
    for (int i = 0; i < kFieldsBeforeStartTime; ++i) {
        nextNumber(at);
    }
    found.startTime = nextNumber(at);
    if (found.startTime == 0) {
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

std::vector<ProcessInfo> havingOpen(const std::string& path) {
    struct stat wanted {};
    std::vector<ProcessInfo> found;
    if (::stat(path.c_str(), &wanted) != 0) {
        return found;
    }
    for (const ProcessInfo& process : listProcesses()) {
        const std::string open = procPath(process.pid, "fd");
        const std::unique_ptr<DIR, DirectoryCloser> directory(::opendir(open.c_str()));
        while (const dirent* entry = directory ? ::readdir(directory.get()) : nullptr) {
            struct stat file {};
            if (::fstatat(::dirfd(directory.get()), entry->d_name, &file, 0) == 0 &&
                file.st_dev == wanted.st_dev && file.st_ino == wanted.st_ino) {
                found.push_back(process);
                break;
            }
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
    const Clock::time_point start = Clock::now();
    askUntil(start + std::min(grace, limit), groupLeader);
    return killUntil(start + limit, groupLeader);
}

}  // namespace processtree
