#include "Sandbox.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
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

void load(Program& program, std::size_t offset) {
    program.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset)));
}

void end(Program& program, std::uint32_t verdict) {
    program.push_back(BPF_STMT(BPF_RET | BPF_K, verdict));
}

void endIfEqual(Program& program, std::uint32_t value, std::uint32_t verdict) {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, 1));
    end(program, verdict);
}

// The low half of an argument; both processors have it first.
std::size_t argument(std::size_t number) {
    return offsetof(seccomp_data, args) + number * sizeof(std::uint64_t);
}

// Memory may not become code.
void allowWithoutExecution(Program& program, long call) {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(call), 0, 4));
    load(program, argument(2));
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, PROT_EXEC, 1, 0));
    end(program, SECCOMP_RET_ALLOW);
    end(program, SECCOMP_RET_KILL_PROCESS);
}

// Only with one of the values as the second argument.
void allowWith(Program& program, long call, const std::vector<std::uint32_t>& values) {
    const auto skip = static_cast<std::uint8_t>(2 * values.size() + 2);
    program.push_back(
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(call), 0, skip));
    load(program, argument(1));
    for (const std::uint32_t value : values) {
        endIfEqual(program, value, SECCOMP_RET_ALLOW);
    }
    end(program, SECCOMP_RET_ERRNO | EPERM);
}

Program makeFilter() {
    Program program;
    load(program, offsetof(seccomp_data, arch));
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kArchitecture, 1, 0));
    end(program, SECCOMP_RET_KILL_PROCESS);
    load(program, offsetof(seccomp_data, nr));
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, kForeignNumbers, 0, 1));
    end(program, SECCOMP_RET_KILL_PROCESS);
    for (const long call : kAllowed) {
        endIfEqual(program, static_cast<std::uint32_t>(call), SECCOMP_RET_ALLOW);
    }
    for (const long call : kDeadly) {
        endIfEqual(program, static_cast<std::uint32_t>(call), SECCOMP_RET_KILL_PROCESS);
    }
    allowWithoutExecution(program, SYS_mmap);
    allowWithoutExecution(program, SYS_mprotect);
    allowWith(program, SYS_ioctl, {FIONREAD});
    allowWith(program, SYS_fcntl, {F_GETFL, F_SETFL, F_GETFD, F_SETFD});
    end(program, SECCOMP_RET_ERRNO | EPERM);
    return program;
}

bool filterCalls() {
    Program program = makeFilter();
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
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

Settings probe(const std::string& emptyDirectory, std::list<std::string>& missing) {
    Settings settings;
    settings.emptyDirectory = std::make_shared<const UniqueFd>(
        ::open(emptyDirectory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (const passwd* const found = ::getpwnam(kUserName)) {
        settings.user = found->pw_uid;
        settings.group = found->pw_gid;
    }
    settings.changesUser = ::geteuid() == 0 && succeedsElsewhere([&] {
                               return changeRoot(settings) && changeUser(settings);
                           });
    if (!settings.changesUser) {
        missing.emplace_back(
            "the network side of a session keeps this user and root directory: changing them is"
            " not allowed here");
    }
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

std::string enter(const Settings& settings, pid_t parent, int first, int second) {
    if (settings.changesUser && !changeRoot(settings)) {
        return failed("cannot change the root directory");
    }
    if (!keepTwo(first, second)) {
        return failed("cannot keep the sockets apart");
    }
    if (settings.changesUser && !changeUser(settings)) {
        return failed("cannot become the unprivileged user");
    }
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || ::prctl(PR_SET_DUMPABLE, 0) != 0 ||
        !limit(RLIMIT_CORE, 0) || !limit(RLIMIT_FSIZE, 0) || !limit(RLIMIT_NOFILE, kDescriptors) ||
        (settings.changesUser && !limit(RLIMIT_NPROC, 0))) {
        return failed("cannot give up rights");
    }
    // After the change of user, which forgets it.
    if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0) {
        return failed("cannot be tied to the session");
    }
    if (::getppid() != parent) {
        return "the session has ended";
    }
    if (settings.filtersCalls && !filterCalls()) {
        return failed("cannot confine the system calls");
    }
    return "";
}

}  // namespace sandbox
