#pragma once

#include <functional>
#include <thread>

// Work beside the thread that serves a connection: the digest of one large file while its bytes
// travel. Lives no longer than its owner, so that a process which forks between transfers is
// without threads when it does. All signals are blocked in it: they belong to the other threads.
// Owned and used by one thread.
class SideThread {
public:
    // Files from this size on are worth the start of a thread, in bytes.
    static constexpr unsigned long long kWorthwhileBytes = 32ULL * 1024 * 1024;

    SideThread() = default;
    SideThread(const SideThread&) = delete;
    SideThread& operator=(const SideThread&) = delete;
    // Waits for the end of the work; who owns this sees to it that the end comes.
    ~SideThread() { join(); }

    // Starts the work, which must not throw. False where it is not to be had: each processor has
    // one already, which would only take time from the others, or the system gives none. The caller
    // then does the work itself.
    bool start(std::function<void()> work);
    bool isRunning() const { return thread.joinable(); }
    void join() noexcept;

private:
    std::thread thread;
};
