#pragma once

#include <memory>
#include <string>

#include "EventLog.h"
#include "FrameChannel.h"
#include "NetworkZygote.h"
#include "Sandbox.h"
#include "TlsContext.h"

// The listener's zygotes: the one that serves, and from time to time the one that is to follow it.
// One thread.
class NetworkZygotes {
public:
    // Both stay the caller's.
    NetworkZygotes(const sandbox::Settings& ownSettings, const EventLog& eventLog);

    // Starts one for the context and waits until it can serve, which then all connections get.
    // Throws CException when it does not come to that; what served before goes on then.
    void renew(const std::shared_ptr<TlsContext>& forContext);

    // As NetworkZygote::serve(). Sees to it that there is one, and that it is not used for ever.
    bool serve(int connection, int local, const std::string& peer, FrameChannel::Deadline deadline);

    // For poll(): readable when takeFollower() has something to do; -1: there is none.
    int descriptor() const { return follower ? follower->descriptor() : -1; }
    void takeFollower();
    // Of a process that has ended: whether it was one of them.
    bool noteEnd(pid_t pid);

private:
    const sandbox::Settings& settings;
    const EventLog& log;
    std::shared_ptr<TlsContext> context;
    std::unique_ptr<NetworkZygote> current;
    std::unique_ptr<NetworkZygote> follower;
};
