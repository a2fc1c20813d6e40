#include "NetworkZygote.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "CException.h"
#include "Descriptors.h"
#include "NetworkProcess.h"
#include "Posix.h"
#include "SigningProxy.h"
#include "TlsRehearsal.h"
#include "TlsSocket.h"

namespace {

using Clock = FrameChannel::Clock;

// Where the process finds them.
constexpr int kControl = 3;
constexpr int kParts = 4;
constexpr int kDirectory = 5;
constexpr char kProcessName[] = "kelnode-network";
constexpr char kReady = 'R';
constexpr std::size_t kMostPeerBytes = 256;

// What of the settings crosses over, before the parts of the context. Both are the same program.
struct Start {
    uid_t user;
    gid_t group;
    bool changesUser;
    bool filtersCalls;
};

// An order, behind which the peer's address follows.
struct Order {
    Clock::rep deadline;
};

UniqueFd fileOf(const std::string& content) {
    UniqueFd file(::memfd_create("start", MFD_CLOEXEC));
    if (!file || !Posix::writeAll(file.get(), content) || ::lseek(file.get(), 0, SEEK_SET) != 0) {
        Posix::throwErrno("cannot hand on the certificates");
    }
    return file;
}

// In the process just forked.
[[noreturn]] void execute(int control, int parts, int directory) {
    // Out of each other's way first.
    int lifted[3] = {control, parts, directory};
    for (int& fd : lifted) {
        fd = ::fcntl(fd, F_DUPFD, kDirectory + 1);
    }
    if (::dup2(lifted[0], kControl) < 0 || ::dup2(lifted[1], kParts) < 0 ||
        ::dup2(lifted[2], kDirectory) < 0) {
        ::_exit(EXIT_FAILURE);
    }
    descriptors::closeAllBut({kControl, kParts, kDirectory});
    ::signal(SIGCHLD, SIG_DFL);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    char name[sizeof NetworkZygote::kName];
    std::memcpy(name, NetworkZygote::kName, sizeof name);
    char* const arguments[] = {name, nullptr};
    // Works for a program that has been replaced meanwhile, and is then the old one.
    ::execve("/proc/self/exe", arguments, environ);
    ::_exit(EXIT_FAILURE);
}

std::string contentOf(int file) {
    const off_t size = ::lseek(file, 0, SEEK_END);
    std::string content(size > 0 ? static_cast<std::size_t>(size) : 0, '\0');
    if (size < 0 || Posix::readAllAt(file, content.data(), content.size(), 0) != size) {
        Posix::throwErrno("cannot read the certificates handed on");
    }
    return content;
}

// The next order and its two sockets. False when there are no more.
bool receive(Order& order, std::string& peer, UniqueFd& connection, UniqueFd& local) {
    char text[kMostPeerBytes];
    iovec pieces[2] = {{&order, sizeof order}, {text, sizeof text}};
    alignas(cmsghdr) char ancillary[CMSG_SPACE(2 * sizeof(int))];
    msghdr message{};
    message.msg_iov = pieces;
    message.msg_iovlen = 2;
    message.msg_control = ancillary;
    message.msg_controllen = sizeof ancillary;
    const ssize_t count =
        Posix::retried([&] { return ::recvmsg(kControl, &message, MSG_CMSG_CLOEXEC); });
    const cmsghdr* const header = count > 0 ? CMSG_FIRSTHDR(&message) : nullptr;
    if (count < static_cast<ssize_t>(sizeof order) || header == nullptr ||
        header->cmsg_type != SCM_RIGHTS || header->cmsg_len != CMSG_LEN(2 * sizeof(int))) {
        return false;
    }
    int sockets[2];
    std::memcpy(sockets, CMSG_DATA(header), sizeof sockets);
    connection.reset(sockets[0]);
    local.reset(sockets[1]);
    peer.assign(text, static_cast<std::size_t>(count) - sizeof order);
    return true;
}

[[noreturn]] void becomeNetworkSide(const sandbox::Settings& settings,
                                    const std::shared_ptr<TlsContext>& context, const Order& order,
                                    const std::string& peer, UniqueFd connection, UniqueFd local) {
    ::prctl(PR_SET_NAME, kProcessName);
    // It ends with its session, and in no other way.
    ::signal(SIGTERM, SIG_IGN);
    try {
        tlssocket::prepare(connection.get(), peer);
        networkprocess::endWithSession(local.get());
        if (sandbox::confine(settings, local.release(), connection.release()).empty()) {
            networkprocess::run(UniqueFd(1), UniqueFd(0), peer, context,
                                FrameChannel::Deadline(Clock::duration(order.deadline)));
            ::_exit(EXIT_SUCCESS);
        }
    } catch (const CException&) {
        ::_exit(EXIT_FAILURE);
    }
    ::_exit(EXIT_FAILURE);
}

int serveOrders() {
    ::prctl(PR_SET_NAME, NetworkZygote::kName);
    ::signal(SIGPIPE, SIG_IGN);
    // Network processes are not waited for.
    ::signal(SIGCHLD, SIG_IGN);
    const std::string content = contentOf(kParts);
    Start start{};
    if (content.size() < sizeof start) {
        return EXIT_FAILURE;
    }
    std::memcpy(&start, content.data(), sizeof start);
    sandbox::Settings settings;
    settings.emptyDirectory = std::make_shared<const UniqueFd>(kDirectory);
    settings.user = start.user;
    settings.group = start.group;
    settings.changesUser = start.changesUser;
    settings.filtersCalls = start.filtersCalls;
    const std::shared_ptr<TlsContext> context = TlsContext::serverOf(content.substr(sizeof start));
    signingproxy::install(context->get());
    (void)tlsrehearsal::perform();
    if (!sandbox::leaveRoot(settings, {kControl}).empty() ||
        ::send(kControl, &kReady, 1, MSG_NOSIGNAL) != 1) {
        return EXIT_FAILURE;
    }
    Order order{};
    std::string peer;
    UniqueFd connection;
    UniqueFd local;
    while (receive(order, peer, connection, local)) {
        if (::fork() == 0) {
            becomeNetworkSide(settings, context, order, peer, std::move(connection),
                              std::move(local));
        }
        // Where there was no process to be had, the session sees the end of its socket.
        connection.reset();
        local.reset();
    }
    return EXIT_SUCCESS;
}

}  // namespace

NetworkZygote::NetworkZygote(const TlsContext& context, const sandbox::Settings& settings) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        Posix::throwErrno("cannot make a pair of sockets");
    }
    control.reset(ends[0]);
    const UniqueFd theirs(ends[1]);
    const Start start{settings.user, settings.group, settings.changesUser, settings.filtersCalls};
    std::string content(reinterpret_cast<const char*>(&start), sizeof start);
    content += context.publicParts();
    const UniqueFd parts = fileOf(content);
    process = ::fork();
    if (process < 0) {
        Posix::throwErrno("cannot start what makes the network sides of sessions");
    }
    if (process == 0) {
        execute(theirs.get(), parts.get(), settings.emptyDirectory->get());
    }
}

void NetworkZygote::awaitReady(FrameChannel::Deadline deadline) {
    char said = 0;
    if (tlssocket::wait(control.get(), POLLIN, deadline) == 0 ||
        Posix::retried([&] { return ::recv(control.get(), &said, 1, MSG_DONTWAIT); }) != 1 ||
        said != kReady) {
        throw CException("what makes the network sides of sessions does not start");
    }
}

bool NetworkZygote::serve(int connection, int local, const std::string& peer,
                          FrameChannel::Deadline deadline) {
    Order order{deadline.time_since_epoch().count()};
    std::string text = peer.substr(0, kMostPeerBytes);
    iovec pieces[2] = {{&order, sizeof order}, {text.data(), text.size()}};
    alignas(cmsghdr) char ancillary[CMSG_SPACE(2 * sizeof(int))] = {};
    msghdr message{};
    message.msg_iov = pieces;
    message.msg_iovlen = 2;
    message.msg_control = ancillary;
    message.msg_controllen = sizeof ancillary;
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(2 * sizeof(int));
    const int sockets[2] = {connection, local};
    std::memcpy(CMSG_DATA(header), sockets, sizeof sockets);
    ++served;
    return Posix::retried(
               [&] { return ::sendmsg(control.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL); }) > 0;
}

int NetworkZygote::run() noexcept {
    try {
        return serveOrders();
    } catch (const std::exception&) {
        // The listener sees its end, and says so.
        return EXIT_FAILURE;
    }
}
