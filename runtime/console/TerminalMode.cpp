#include "TerminalMode.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

#include "UniqueFd.h"

namespace {

constexpr int kInput = STDIN_FILENO;

// Every signal whose default action ends the process, but for SIGKILL.
constexpr std::array kFatalSignals = {SIGHUP,  SIGINT,  SIGQUIT,   SIGILL,  SIGTRAP, SIGABRT,
                                      SIGBUS,  SIGFPE,  SIGUSR1,   SIGSEGV, SIGUSR2, SIGPIPE,
                                      SIGALRM, SIGTERM, SIGSTKFLT, SIGXCPU, SIGXFSZ, SIGVTALRM,
                                      SIGPROF, SIGIO,   SIGPWR,    SIGSYS};

struct Taken {
    int signal = 0;
    bool ours = false;
    struct sigaction previous = {};
};

// Written only while the handlers are not installed, so that they may read without a lock.
termios modeFound;
termios keyMode;
std::array<Taken, kFatalSignals.size() + 2> dispositions;
std::atomic<bool> active{false};
std::atomic<int> continued{-1};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

void setMode(const termios& mode) {
    // Never TCSAFLUSH: it would throw away keys that were typed ahead.
    while (tcsetattr(kInput, TCSANOW, &mode) != 0 && errno == EINTR) {
    }
}

// A background process that sets the mode is stopped by SIGTTOU, and the mode is not its own then.
bool inForeground() {
    const pid_t group = tcgetpgrp(kInput);
    return group < 0 || group == getpgrp();
}

void onFatal(int signal) {
    const int savedErrno = errno;
    if (active.load() && inForeground()) {
        setMode(modeFound);
    }
    // The default action is back (SA_RESETHAND); it takes place when this handler returns.
    raise(signal);
    errno = savedErrno;
}

void takeKeyMode() {
    if (active.load() && inForeground()) {
        setMode(keyMode);
    }
}

void onStop(int signal) {
    const int savedErrno = errno;
    if (active.load() && inForeground()) {
        setMode(modeFound);
    }
    struct sigaction byDefault = {};
    struct sigaction ours = {};
    byDefault.sa_handler = SIG_DFL;
    sigemptyset(&byDefault.sa_mask);
    sigaction(signal, &byDefault, &ours);
    raise(signal);
    sigset_t one;
    sigset_t before;
    sigemptyset(&one);
    sigaddset(&one, signal);
    pthread_sigmask(SIG_UNBLOCK, &one, &before);
    // The process stops here, and continues here.
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    sigaction(signal, &ours, nullptr);
    // A process group without a parent to continue it does not stop, and gets no SIGCONT.
    takeKeyMode();
    errno = savedErrno;
}

void onContinue(int /*signal*/) {
    const int savedErrno = errno;
    takeKeyMode();
    const std::uint64_t one = 1;
    // The counter is full: the reader has been told already.
    [[maybe_unused]] const ssize_t written = write(continued.load(), &one, sizeof one);
    errno = savedErrno;
}

void takeSignal(Taken& taken, int signal, void (*handler)(int), int flags) {
    taken.signal = signal;
    taken.ours = sigaction(signal, nullptr, &taken.previous) == 0 &&
                 (taken.previous.sa_flags & SA_SIGINFO) == 0 &&
                 taken.previous.sa_handler == SIG_DFL;
    if (taken.ours) {
        struct sigaction action = {};
        action.sa_handler = handler;
        action.sa_flags = flags;
        sigemptyset(&action.sa_mask);
        taken.ours = sigaction(signal, &action, nullptr) == 0;
    }
}

void takeSignals() {
    std::size_t next = 0;
    for (const int signal : kFatalSignals) {
        takeSignal(dispositions[next++], signal, &onFatal, static_cast<int>(SA_RESETHAND));
    }
    // Restarting calls keep output that the terminal holds up from failing half-way.
    takeSignal(dispositions[next++], SIGTSTP, &onStop, SA_RESTART);
    takeSignal(dispositions[next], SIGCONT, &onContinue, SA_RESTART);
}

void giveSignalsBack() {
    for (Taken& taken : dispositions) {
        if (taken.ours) {
            sigaction(taken.signal, &taken.previous, nullptr);
            taken.ours = false;
        }
    }
}

}  // namespace

namespace TerminalMode {

bool enter() {
    if (active.load()) {
        return true;
    }
    if (tcgetattr(kInput, &modeFound) != 0) {
        return false;
    }
    keyMode = modeFound;
    // Signals stay with the terminal (Ctrl+C must reach a running command's process group) and so
    // does the translation of the Enter key into a line feed.
    keyMode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    keyMode.c_cc[VMIN] = 1;
    keyMode.c_cc[VTIME] = 0;
    continuedDescriptor();
    active.store(true);
    takeSignals();
    setMode(keyMode);
    return true;
}

void leave() {
    if (!active.load()) {
        return;
    }
    if (inForeground()) {
        setMode(modeFound);
    }
    giveSignalsBack();
    active.store(false);
}

int continuedDescriptor() {
    static UniqueFd descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    continued.store(descriptor.get());
    return descriptor.get();
}

}  // namespace TerminalMode
