#include "SideThread.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <pthread.h>
#include <system_error>
#include <utility>

namespace {

std::atomic<unsigned int> running{0};

// Takes one of the places. There is one for each processor.
bool takePlace() {
    static const unsigned int places = std::max(1U, std::thread::hardware_concurrency());
    if (running.fetch_add(1) < places) {
        return true;
    }
    running.fetch_sub(1);
    return false;
}

class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }

private:
    sigset_t before{};
};

}  // namespace

bool SideThread::start(std::function<void()> work) {
    if (!takePlace()) {
        return false;
    }
    // A new thread inherits the signal mask of the thread that starts it.
    const BlockedSignals blocked;
    try {
        thread = std::thread(std::move(work));
        return true;
    } catch (const std::system_error&) {
        running.fetch_sub(1);
        return false;
    }
}

void SideThread::join() noexcept {
    if (thread.joinable()) {
        thread.join();
        running.fetch_sub(1);
    }
}
