#pragma once

#include <functional>
#include <thread>

// A thread that works beside the one that serves a connection: it calculates the digest of a large
// file while the bytes travel. It ends with its owner, so a process that forks between transfers
// has no other threads then. All signals are blocked in it; the other threads get them. Owned and
// used by one thread.
class SideThread {
public:
    // From this size on, in bytes, a file is worth a thread.
    static constexpr unsigned long long kWorthwhileBytes = 32ULL * 1024 * 1024;

    SideThread() = default;
    SideThread(const SideThread&) = delete;
    SideThread& operator=(const SideThread&) = delete;
    // Waits until the work has ended. The owner must see to it that it does.
    ~SideThread() { join(); }

    // Starts the work, which must not throw. Returns false when no thread is started: every
    // processor has such a thread already, or the system refuses one. The caller then does the work
    // itself.
    bool start(std::function<void()> work);
    bool isRunning() const { return thread.joinable(); }
    void join() noexcept;

private:
    std::thread thread;
};
