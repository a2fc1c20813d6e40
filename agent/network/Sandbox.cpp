#include "Sandbox.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <map>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <grp.h>
#include <pwd.h>

#include "Descriptors.h"

namespace sandbox {
namespace {

constexpr char kUserName[] = "kelnode";

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif
// A sanitizer makes a pipe when it looks whether memory may be read.
constexpr rlim_t kDescriptors = kIsSanitized ? 64 : 2;
// Memory that it may write to, the listener's that it inherits included. It needs two buffers and
// what the library keeps of a connection; sanitizers need terabytes.
constexpr rlim_t kDataBytes = kIsSanitized ? RLIM_INFINITY : rlim_t{48} << 20U;
// The same of a session: files and outputs go through it in pieces.
constexpr rlim_t kSessionDataBytes = kIsSanitized ? RLIM_INFINITY : rlim_t{128} << 20U;

constexpr int kProbes = 5;
constexpr std::chrono::milliseconds kProbePause(200);

#if defined(__x86_64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#else
constexpr std::uint32_t kArchitecture = 0;
#endif
// Numbers from here on are those of another calling convention on the same processor.
constexpr std::uint32_t kForeignNumbers = 0x40000000;

constexpr long kAllowed[] = {
    SYS_read,
    SYS_write,
    SYS_recvmsg,
    SYS_sendmsg,
    SYS_recvfrom,
    SYS_sendto,
    SYS_ppoll,
    SYS_close,
    SYS_shutdown,
    SYS_exit_group,
    SYS_exit,
    SYS_munmap,
    SYS_mremap,
    SYS_brk,
    SYS_madvise,
    SYS_futex,
    SYS_getrandom,
    SYS_clock_gettime,
    SYS_clock_nanosleep,
    SYS_nanosleep,
    SYS_rt_sigaction,
    SYS_rt_sigprocmask,
    SYS_rt_sigreturn,
    SYS_restart_syscall,
    SYS_getpid,
    SYS_gettid,
    SYS_getppid,
    SYS_gettimeofday,
    SYS_getsockopt,
    SYS_getpeername,
    SYS_getsockname,
    SYS_sched_yield,
#ifdef SYS_poll
    SYS_poll,
#endif
#ifdef SYS_time
    SYS_time,
#endif
};

// Nothing in the process asks for these by mistake.
constexpr long kDeadly[] = {
    SYS_execve,
    SYS_execveat,
    SYS_ptrace,
    SYS_process_vm_readv,
    SYS_process_vm_writev,
    SYS_clone,
    SYS_clone3,
    SYS_socket,
    SYS_bpf,
    SYS_mount,
    SYS_unshare,
    SYS_setns,
    SYS_init_module,
    SYS_finit_module,
    SYS_kexec_load,
    SYS_keyctl,
    SYS_add_key,
    SYS_perf_event_open,
    SYS_userfaultfd,
    SYS_io_uring_setup,
#ifdef SYS_fork
    SYS_fork,
#endif
#ifdef SYS_vfork
    SYS_vfork,
#endif
};

using Program = std::vector<sock_filter>;
// What is done with calls, by their numbers.
using Rules = std::map<std::uint32_t, Program>;

void load(Program& program, std::size_t offset) {
    program.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset)));
}

void end(Program& program, std::uint32_t verdict) {
    program.push_back(BPF_STMT(BPF_RET | BPF_K, verdict));
}

Program always(std::uint32_t verdict) {
    Program program;
    end(program, verdict);
    return program;
}

// The low half of an argument; both processors have it first.
std::size_t argument(std::size_t number) {
    return offsetof(seccomp_data, args) + number * sizeof(std::uint64_t);
}

// Memory may not become code.
Program withoutExecution() {
    Program program;
    load(program, argument(2));
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, PROT_EXEC, 1, 0));
    end(program, SECCOMP_RET_ALLOW);
    end(program, SECCOMP_RET_KILL_PROCESS);
    return program;
}

// Only with one of the values as the second argument.
Program onlyWith(const std::vector<std::uint32_t>& values) {
    Program program;
    load(program, argument(1));
    for (const std::uint32_t value : values) {
        program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, 1));
        end(program, SECCOMP_RET_ALLOW);
    }
    end(program, SECCOMP_RET_ERRNO | EPERM);
    return program;
}

bool isSame(const Program& a, const Program& b) {
    return a.size() == 1 && b.size() == 1 && a[0].code == b[0].code && a[0].k == b[0].k;
}

// A rule for every number there is: each holds up to the next.
Rules rulesOfAll() {
    Rules named;
    for (const long call : kAllowed) {
        named[static_cast<std::uint32_t>(call)] = always(SECCOMP_RET_ALLOW);
    }
    for (const long call : kDeadly) {
        named[static_cast<std::uint32_t>(call)] = always(SECCOMP_RET_KILL_PROCESS);
    }
    named[SYS_mmap] = withoutExecution();
    named[SYS_mprotect] = withoutExecution();
    named[SYS_ioctl] = onlyWith({FIONREAD});
    named[SYS_fcntl] = onlyWith({F_GETFL, F_SETFL, F_GETFD, F_SETFD});
    const Program others = always(SECCOMP_RET_ERRNO | EPERM);
    Rules all{{0, others}};
    for (const auto& rule : named) {
        all[rule.first] = rule.second;
        if (named.count(rule.first + 1) == 0) {
            all[rule.first + 1] = others;
        }
    }
    all[kForeignNumbers] = always(SECCOMP_RET_KILL_PROCESS);
    for (auto rule = std::next(all.begin()); rule != all.end();) {
        rule = isSame(rule->second, std::prev(rule)->second) ? all.erase(rule) : std::next(rule);
    }
    return all;
}

// Halves what is left until one rule is: the kernel goes through the program for every number
// there is when it takes it, and then for every call.
Program decide(Rules::const_iterator first, Rules::const_iterator last) {
    const auto count = std::distance(first, last);
    if (count == 1) {
        return first->second;
    }
    const auto middle = std::next(first, count / 2);
    const Program below = decide(first, middle);
    const Program above = decide(middle, last);
    assert(below.size() <= UINT8_MAX);
    Program program{BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, middle->first,
                             static_cast<std::uint8_t>(below.size()), 0)};
    program.insert(program.end(), below.begin(), below.end());
    program.insert(program.end(), above.begin(), above.end());
    return program;
}

Program makeFilter() {
    Program program;
    load(program, offsetof(seccomp_data, arch));
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kArchitecture, 1, 0));
    end(program, SECCOMP_RET_KILL_PROCESS);
    load(program, offsetof(seccomp_data, nr));
    const Rules rules = rulesOfAll();
    const Program decision = decide(rules.begin(), rules.end());
    program.insert(program.end(), decision.begin(), decision.end());
    return program;
}

// Made once, by the process that all others are forked from.
Program& theFilter() {
    static Program filter = makeFilter();
    return filter;
}

bool filterCalls() {
    const sock_fprog filter{static_cast<unsigned short>(theFilter().size()), theFilter().data()};
    return kArchitecture != 0 && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

// Only ever less than before.
bool limit(int resource, rlim_t most) {
    const auto what = static_cast<__rlimit_resource_t>(resource);
    rlimit value{};
    if (::getrlimit(what, &value) != 0) {
        return false;
    }
    value.rlim_max = std::min(value.rlim_max, most);
    value.rlim_cur = value.rlim_max;
    return ::setrlimit(what, &value) == 0;
}

bool changeRoot(const Settings& settings) {
    return ::fchdir(settings.emptyDirectory->get()) == 0 && ::chroot(".") == 0 && ::chdir("/") == 0;
}

bool changeUser(const Settings& settings) {
    return ::setgroups(0, nullptr) == 0 &&
           ::setresgid(settings.group, settings.group, settings.group) == 0 &&
           ::setresuid(settings.user, settings.user, settings.user) == 0 && ::setuid(0) != 0;
}

// True when the process that does it says so by its exit status.
template <typename Action>
bool succeedsElsewhere(Action action) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::_exit(action() ? 0 : 1);
    }
    int status = 0;
    pid_t ended = -1;
    do {
        ended = ::waitpid(pid, &status, 0);
    } while (ended < 0 && errno == EINTR);
    return pid > 0 && ended == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

uid_t reservedId() {
    uid_t id = kFirstReserved;
    while (id < kLastReserved && (::getpwuid(id) != nullptr || ::getgrgid(id) != nullptr)) {
        ++id;
    }
    return id;
}

// In another process: the sources of user names are libraries that this one, and all sessions with
// it, would keep for ever.
void lookUpUser(Settings& settings) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return;
    }
    const UniqueFd from(ends[0]);
    UniqueFd to(ends[1]);
    std::uint32_t ids[2] = {settings.user, settings.group};
    const bool found = succeedsElsewhere([&] {
        if (const passwd* const user = ::getpwnam(kUserName)) {
            ids[0] = user->pw_uid;
            ids[1] = user->pw_gid;
        } else {
            ids[0] = ids[1] = reservedId();
        }
        return ::write(to.get(), ids, sizeof ids) == static_cast<ssize_t>(sizeof ids);
    });
    to.reset();
    if (found && ::read(from.get(), ids, sizeof ids) == static_cast<ssize_t>(sizeof ids)) {
        settings.user = ids[0];
        settings.group = ids[1];
    }
}

std::string failed(const char* what) {
    return std::string(what) + ": " + std::strerror(errno);
}

// Descriptors 0 and 1, and nothing else.
bool keepTwo(int first, int second) {
    const int lifted[2] = {::fcntl(first, F_DUPFD_CLOEXEC, 3), ::fcntl(second, F_DUPFD_CLOEXEC, 3)};
    if (lifted[0] < 0 || lifted[1] < 0 || ::dup2(lifted[0], 0) != 0 || ::dup2(lifted[1], 1) != 1) {
        return false;
    }
    ::close(STDERR_FILENO);
    descriptors::closeAllBut({});
    return true;
}

}  // namespace

bool Settings::isComplete() const {
    return changesUser && (filtersCalls || kIsSanitized);
}

Settings probe(const std::string& emptyDirectory, std::list<std::string>& missing) {
    Settings settings;
    settings.emptyDirectory = std::make_shared<const UniqueFd>(
        ::open(emptyDirectory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    lookUpUser(settings);
    settings.changesUser = ::geteuid() == 0 && succeedsElsewhere([&] {
                               return changeRoot(settings) && changeUser(settings);
                           });
    if (!settings.changesUser) {
        missing.emplace_back(
            "the network side of a session keeps this user and root directory: changing them is"
            " not allowed here");
    }
    theFilter();
    settings.filtersCalls = !kIsSanitized && succeedsElsewhere([] {
        return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && filterCalls();
    });
    if (!settings.filtersCalls) {
        missing.emplace_back(
            "the network side of a session is not confined to the system calls it needs: the"
            " kernel or this build has no filter for them");
    }
    return settings;
}

Settings probePatiently(const std::string& emptyDirectory, std::list<std::string>& missing) {
    for (int i = 1;; ++i) {
        Settings settings = probe(emptyDirectory, missing);
        if (settings.isComplete() || ::geteuid() != 0 || i == kProbes) {
            return settings;
        }
        missing.clear();
        std::this_thread::sleep_for(kProbePause);
    }
}

std::string leaveRoot(const Settings& settings, const std::vector<int>& kept) {
    if (settings.changesUser && !changeRoot(settings)) {
        return failed("cannot change the root directory");
    }
    descriptors::closeAllBut(kept);
    if (settings.changesUser && !changeUser(settings)) {
        return failed("cannot become the unprivileged user");
    }
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || ::prctl(PR_SET_DUMPABLE, 0) != 0 ||
        !limit(RLIMIT_CORE, 0) || !limit(RLIMIT_FSIZE, 0) || !limit(RLIMIT_DATA, kDataBytes)) {
        return failed("cannot give up rights");
    }
    theFilter();
    return "";
}

std::string confine(const Settings& settings, int first, int second) {
    if (!keepTwo(first, second)) {
        return failed("cannot keep the sockets apart");
    }
    if (!limit(RLIMIT_NOFILE, kDescriptors) || (settings.changesUser && !limit(RLIMIT_NPROC, 0))) {
        return failed("cannot give up rights");
    }
    if (settings.filtersCalls && !filterCalls()) {
        return failed("cannot confine the system calls");
    }
    return "";
}

void boundMemoryOfSession() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_DATA, &limit) == 0 && limit.rlim_cur > kSessionDataBytes) {
        limit.rlim_cur = kSessionDataBytes;
        // One that cannot be set so serves without it.
        static_cast<void>(::setrlimit(RLIMIT_DATA, &limit));
    }
}

}  // namespace sandbox
