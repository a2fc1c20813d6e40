// A job that does not want to be ended. Usage: escapee WAY TOKEN; the token only stands in the
// command line, so that a test can find what is left. Every way leaves a process that would live
// for ten minutes.

#include <csignal>
#include <functional>
#include <map>
#include <pthread.h>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

[[noreturn]] void linger() {
    for (int i = 0; i < 600; ++i) {
        ::sleep(1);
    }
    ::_exit(0);
}

void fork1(const std::function<void()>& child) {
    if (::fork() == 0) {
        child();
        ::_exit(0);
    }
}

[[noreturn]] void stayForeground() {
    linger();
}

void newSession() {
    fork1([] {
        ::setsid();
        linger();
    });
}

void doubleFork() {
    fork1([] {
        ::setsid();
        fork1([] { linger(); });
    });
}

void likeDaemon() {
    fork1([] {
        if (::daemon(0, 0) == 0) {
            linger();
        }
    });
}

void ignoring(int signal) {
    ::signal(signal, SIG_IGN);
    fork1([] { linger(); });
}

void stopped() {
    fork1([] {
        ::raise(SIGSTOP);
        linger();
    });
}

// Forks as fast as it can, in a process group of its own.
void storm(int forks) {
    fork1([forks] {
        ::setpgid(0, 0);
        ::signal(SIGTERM, SIG_IGN);
        ::signal(SIGCHLD, SIG_IGN);
        for (int i = 0; i < forks; ++i) {
            fork1([] {
                fork1([] { linger(); });
                linger();
            });
            ::usleep(500);
        }
        linger();
    });
}

// Each process lives only long enough to make the next one.
void hopping() {
    fork1([] {
        ::signal(SIGTERM, SIG_IGN);
        for (;;) {
            if (::fork() > 0) {
                ::_exit(0);
            }
            ::usleep(1000);
        }
    });
}

// A child whose first thread has ended: the process lives on in the others.
void manyThreads() {
    fork1([] {
        ::signal(SIGTERM, SIG_IGN);
        for (int i = 0; i < 8; ++i) {
            std::thread([] { linger(); }).detach();
        }
        ::pthread_exit(nullptr);
    });
}

// Keeps the job's output open, so that its end is never seen there.
void heldPipe() {
    fork1([] {
        ::setsid();
        ::signal(SIGTERM, SIG_IGN);
        const int held = ::dup(STDOUT_FILENO);
        ::close(STDOUT_FILENO);
        ::close(STDERR_FILENO);
        if (held >= 0) {
            linger();
        }
    });
}

void byVfork(char** argv) {
    char way[] = "foreground";
    char* const arguments[] = {argv[0], way, argv[2], nullptr};
    const pid_t pid = ::vfork();
    if (pid == 0) {
        ::execv("/proc/self/exe", arguments);
        ::_exit(127);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    const std::map<std::string, std::function<void()>> ways{
        {"foreground", stayForeground},
        {"setsid", newSession},
        {"double-fork", doubleFork},
        {"daemon", likeDaemon},
        {"nohup", [] { ignoring(SIGHUP); }},
        {"ignore-term", [] { ignoring(SIGTERM); }},
        {"stopped", stopped},
        {"storm", [] { storm(100); }},
        {"great-storm", [] { storm(400); }},
        {"hopping", hopping},
        {"threads", manyThreads},
        {"held-pipe", heldPipe},
        {"vfork", [argv] { byVfork(argv); }}};
    const auto way = ways.find(argv[1]);
    if (way == ways.end()) {
        return 2;
    }
    way->second();
    // The job itself goes on, so that its time-out or cancel finds a tree.
    linger();
}
