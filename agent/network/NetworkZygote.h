#pragma once

#include <memory>
#include <string>
#include <sys/types.h>

#include "FrameChannel.h"
#include "Sandbox.h"
#include "TlsContext.h"
#include "UniqueFd.h"

// The process from which the network sides of sessions are forked. It is this program, executed
// anew: so its network processes have another layout of addresses than the agent, and than those of
// the zygote before it. It never has the node's key, gives up its rights before its first
// connection, and reads nothing from the network itself.
//
// This is the listener's end: it owns the process's control socket. The process ends when that is
// closed; network processes that it has made go on.
class NetworkZygote {
public:
    // How many connections one of them serves, so that a layout is not guessed at for ever.
    static constexpr unsigned int kMostConnections = 1000;
    // How the process is called, which makes main() become it.
    static constexpr char kName[] = "kelnode-zygote";

    // Starts one. Throws CException when that cannot be done.
    NetworkZygote(const TlsContext& context, const sandbox::Settings& settings);
    NetworkZygote(const NetworkZygote&) = delete;
    NetworkZygote& operator=(const NetworkZygote&) = delete;

    // For poll(): readable when it has become ready, or has ended.
    int descriptor() const { return control.get(); }
    pid_t pid() const { return process; }
    // Waits until it is ready; throws CException when it does not become so in time.
    void awaitReady(FrameChannel::Deadline deadline);

    // Has it make a process that serves the connection, whose far end is peer, and speaks to its
    // session over the local socket; the handshake must be over until the deadline. False when it
    // does not take the order; errno says why. The caller closes both sockets.
    bool serve(int connection, int local, const std::string& peer, FrameChannel::Deadline deadline);
    bool isUsedUp() const { return served >= kMostConnections; }

    // main() of the process. Returns its exit status.
    static int run() noexcept;

private:
    UniqueFd control;
    pid_t process = 0;
    unsigned int served = 0;
};
