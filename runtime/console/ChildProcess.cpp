#include "ChildProcess.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// glibc 2.36 declares these without C linkage.
extern "C" {
#include <sys/pidfd.h>
}

#include "UniqueFd.h"

extern char** environ;

namespace {

class FileActions {
public:
    FileActions() { posix_spawn_file_actions_init(&actions); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    ~FileActions() { posix_spawn_file_actions_destroy(&actions); }
    posix_spawn_file_actions_t* get() { return &actions; }

private:
    posix_spawn_file_actions_t actions{};
};

class SpawnAttributes {
public:
    SpawnAttributes() {
        posix_spawnattr_init(&attributes);
        sigset_t none;
        sigemptyset(&none);
        sigset_t defaults;
        sigfillset(&defaults);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &defaults);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes); }
    posix_spawnattr_t* get() { return &attributes; }

private:
    posix_spawnattr_t attributes{};
};

// One captured stream: the reading end of a pipe and where its bytes go.
struct Capture {
    UniqueFd readEnd;
    UniqueFd writeEnd;
    std::string* target = nullptr;
    std::size_t most = 0;
    unsigned long long leftOut = 0;

    bool open(std::string* destination, std::size_t mostBytes) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            return false;
        }
        readEnd.reset(ends[0]);
        writeEnd.reset(ends[1]);
        target = destination;
        target->clear();
        most = mostBytes;
        // Only our end is non-blocking: the child must see an ordinary pipe.
        return fcntl(readEnd.get(), F_SETFL, O_NONBLOCK) == 0;
    }

    void keep(const char* bytes, std::size_t count) {
        const std::size_t kept = std::min(count, most - target->size());
        target->append(bytes, kept);
        leftOut += count - kept;
    }

    // Call it once, after the last byte.
    void sayWhatIsLeftOut() {
        if (leftOut > 0) {
            target->append(target->empty() || target->back() == '\n' ? "[" : "\n[");
            target->append(std::to_string(leftOut) + " more bytes of output were left out]\n");
        }
    }

    // Reads what is there. Closes the pipe at its end.
    void drain() {
        char buffer[65536];
        while (readEnd) {
            const ssize_t got = read(readEnd.get(), buffer, sizeof buffer);
            if (got > 0) {
                keep(buffer, static_cast<std::size_t>(got));
            } else if (got < 0 && errno == EINTR) {
                continue;
            } else {
                if (got == 0 || errno != EAGAIN) {
                    readEnd.reset();
                }
                return;
            }
        }
    }
};

std::vector<char*> environmentWithout(const std::string& name) {
    std::vector<char*> variables;
    const std::string prefix = name + "=";
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        if (name.empty() || std::strncmp(*entry, prefix.c_str(), prefix.size()) != 0) {
            variables.push_back(*entry);
        }
    }
    variables.push_back(nullptr);
    return variables;
}

ChildProcess::Outcome notStarted(const std::string& call, int error) {
    ChildProcess::Outcome outcome;
    outcome.value = error;
    outcome.reason = call + ": " + std::strerror(error);
    return outcome;
}

// Reads both pipes until the child has ended. On a kernel that cannot watch children, reads until
// both pipes have ended.
void collect(const UniqueFd& child, Capture& out, Capture& err) {
    for (;;) {
        pollfd watched[3] = {{child.get(), POLLIN, 0},
                             {out.readEnd.get(), POLLIN, 0},
                             {err.readEnd.get(), POLLIN, 0}};  // a negative descriptor is skipped
        if (poll(watched, 3, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        out.drain();
        err.drain();
        if (watched[0].revents != 0 || (!child && !out.readEnd && !err.readEnd)) {
            return;
        }
    }
}

}  // namespace

int ChildProcess::Outcome::exitCode() const {
    switch (state) {
        case State::kExited:
            return value;
        case State::kSignaled:
            return 128 + value;
        case State::kNotStarted:
            break;
    }
    return -1;
}

ChildProcess::Outcome ChildProcess::run(const Request& request) {
    const bool merged = request.output != nullptr && request.output == request.errorOutput;
    FileActions actions;
    Capture out;
    Capture err;
    if (request.input == Input::kNull) {
        posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    if (request.output != nullptr) {
        if (!out.open(request.output, request.mostOutputBytes)) {
            return notStarted("pipe", errno);
        }
        posix_spawn_file_actions_adddup2(actions.get(), out.writeEnd.get(), STDOUT_FILENO);
        if (merged) {
            posix_spawn_file_actions_adddup2(actions.get(), out.writeEnd.get(), STDERR_FILENO);
        }
    }
    if (request.errorOutput != nullptr && !merged) {
        if (!err.open(request.errorOutput, request.mostOutputBytes)) {
            return notStarted("pipe", errno);
        }
        posix_spawn_file_actions_adddup2(actions.get(), err.writeEnd.get(), STDERR_FILENO);
    }

    // A command must not get descriptors that a library has left open across exec.
    posix_spawn_file_actions_addclosefrom_np(actions.get(), STDERR_FILENO + 1);

    SpawnAttributes attributes;
    std::vector<char*> variables = environmentWithout(request.withoutVariable);
    std::string line = request.commandLine;
    char shell[] = "sh";
    char option[] = "-c";
    // "--" lets a line that begins with a dash through.
    char endOfOptions[] = "--";
    char* arguments[] = {shell, option, endOfOptions, line.data(), nullptr};
    pid_t pid = -1;
    const int error =
        posix_spawn(&pid, "/bin/sh", actions.get(), attributes.get(), arguments, variables.data());
    if (error != 0) {
        return notStarted("/bin/sh", error);
    }
    out.writeEnd.reset();
    err.writeEnd.reset();

    const UniqueFd child(pidfd_open(pid, 0));
    if (child || out.readEnd || err.readEnd) {
        collect(child, out, err);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            return notStarted("waitpid", errno);
        }
    }
    // What the child wrote just before it ended is still in the pipes.
    out.drain();
    err.drain();
    out.sayWhatIsLeftOut();
    err.sayWhatIsLeftOut();

    Outcome outcome;
    outcome.state = WIFSIGNALED(status) ? Outcome::State::kSignaled : Outcome::State::kExited;
    outcome.value = WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
    return outcome;
}
