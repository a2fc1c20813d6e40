#include "Job.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "JobSupervisor.h"
#include "Posix.h"
#include "ProcessTree.h"

namespace {

constexpr int kForceRounds = 100;
constexpr std::size_t kMaxReportBytes = std::size_t{64} * 1024;

void setNonBlocking(int fd) {
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0) {
        Posix::throwErrno("cannot set up the job's output");
    }
}

}  // namespace

Job::Job(const JobSettings& settings, const JobRequest& request)
    : uninterruptible(request.uninterruptible) {
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0) {
        Posix::throwErrno("cannot make the job's control socket");
    }
    control.reset(pair[0]);
    UniqueFd supervisorControl(pair[1]);
    UniqueFd jobOutput;
    std::string outputFile;
    if (uninterruptible) {
        outputFile = settings.runPath() + "new-XXXXXX";
        output.reset(::mkostemp(outputFile.data(), O_CLOEXEC | O_APPEND));
        if (!output) {
            Posix::throwErrno("cannot make the job's output file");
        }
    } else {
        int pipeEnds[2];
        if (::pipe2(pipeEnds, O_CLOEXEC) != 0) {
            Posix::throwErrno("cannot make the job's output pipe");
        }
        output.reset(pipeEnds[0]);
        jobOutput.reset(pipeEnds[1]);
        setNonBlocking(output.get());
    }
    const pid_t pid = ::fork();
    if (pid < 0) {
        const int savedErrno = errno;
        if (!outputFile.empty()) {
            ::unlink(outputFile.c_str());
        }
        errno = savedErrno;
        Posix::throwErrno("cannot start the job");
    }
    if (pid == 0) {
        JobSupervisor(settings, request, std::move(supervisorControl),
                      std::move(uninterruptible ? output : jobOutput), outputFile)
            .run();
    }
    supervisor = pid;
}

bool Job::isSupervisorStopped() const {
    processtree::ProcessInfo info;
    // Only a child of this process counts: once the supervisor has ended, its number may be given
    // to somebody else.
    return processtree::readProcess(supervisor, info) && info.parent == ::getpid() &&
           (info.state == 'T' || info.state == 't');
}

void Job::endByForce() {
    const auto find = [this] { return processtree::descendantsOf(supervisor); };
    // While it stands still it is their reaper: none of them can get away from below it.
    for (int round = 0; round < kForceRounds; ++round) {
        const std::vector<processtree::ProcessInfo> left = find();
        if (std::all_of(left.begin(), left.end(),
                        [](const processtree::ProcessInfo& one) { return one.isZombie(); })) {
            break;
        }
        processtree::killAll(find);
    }
    ::kill(supervisor, SIGKILL);
}

JobReport Job::nextReport() {
    char message[kMaxReportBytes];
    ssize_t count = 0;
    do {
        count = ::recv(control.get(), message, sizeof message, MSG_DONTWAIT);
    } while (count < 0 && errno == EINTR);
    if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        return JobReport();
    }
    if (count > 0) {
        return JobReport::decode(std::string(message, static_cast<std::size_t>(count)));
    }
    JobReport lost;
    lost.kind = JobReport::Kind::kLost;
    return lost;
}

std::size_t Job::readOutput(char* target, std::size_t most) {
    ssize_t count = 0;
    do {
        count = uninterruptible ? ::pread(output.get(), target, most, outputRead)
                                : ::read(output.get(), target, most);
    } while (count < 0 && errno == EINTR);
    if (count <= 0) {
        return 0;
    }
    outputRead += count;
    return static_cast<std::size_t>(count);
}

std::size_t Job::unreadOutput() const {
    if (uninterruptible) {
        struct stat file {};
        const bool known = ::fstat(output.get(), &file) == 0 && file.st_size > outputRead;
        return known ? static_cast<std::size_t>(file.st_size - outputRead) : 0;
    }
    int waiting = 0;
    if (::ioctl(output.get(), FIONREAD, &waiting) != 0 || waiting < 0) {
        return 0;
    }
    return static_cast<std::size_t>(waiting);
}
