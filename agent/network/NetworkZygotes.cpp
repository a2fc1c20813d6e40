#include "NetworkZygotes.h"

#include <cerrno>
#include <utility>

#include "CException.h"
#include "Text.h"

namespace {

constexpr unsigned long kStartMs = 10000;

}  // namespace

NetworkZygotes::NetworkZygotes(const sandbox::Settings& ownSettings, const EventLog& eventLog)
    : settings(ownSettings), log(eventLog) {}

void NetworkZygotes::renew(const std::shared_ptr<TlsContext>& forContext) {
    auto fresh = std::make_unique<NetworkZygote>(*forContext, settings);
    fresh->awaitReady(FrameChannel::after(kStartMs));
    context = forContext;
    current = std::move(fresh);
    // It would show the old certificate.
    follower.reset();
}

bool NetworkZygotes::serve(int connection, int local, const std::string& peer,
                           FrameChannel::Deadline deadline) {
    try {
        if (!current) {
            renew(context);
        } else if (current->isUsedUp() && !follower) {
            // It takes over when it is ready; until then this one goes on.
            follower = std::make_unique<NetworkZygote>(*context, settings);
        }
    } catch (const CException& fault) {
        log.error(Text::printable(fault.getErrMsg()));
    }
    if (!current) {
        errno = ECHILD;
        return false;
    }
    return current->serve(connection, local, peer, deadline);
}

void NetworkZygotes::takeFollower() {
    std::unique_ptr<NetworkZygote> ready = std::move(follower);
    try {
        ready->awaitReady(FrameChannel::Clock::now());
        current = std::move(ready);
    } catch (const CException& fault) {
        log.error(Text::printable(fault.getErrMsg()));
    }
}

bool NetworkZygotes::noteEnd(pid_t pid) {
    if (!current || current->pid() != pid) {
        return false;
    }
    log.error("what makes the network sides of sessions has ended; it is started anew");
    current.reset();
    return true;
}
