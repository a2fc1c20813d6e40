#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <poll.h>
#include <unistd.h>

#include "CShell.h"
#include "ResultMemory.h"
#include "Terminal.h"

namespace {

constexpr int kExitCannotStart = 2;
constexpr int kExitOutputLost = 2;

// Opens what is missing of descriptors 0 to 2 on /dev/null. Otherwise a log file or a connection
// could get such a number, and the shell would print into it.
void occupyStandardDescriptors() {
    int fd = 0;
    do {
        fd = ::open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0) {
        static_cast<void>(::close(fd));
    }
}

// True when the reader of standard output has closed it, as "head" does; it has read what it
// wanted.
bool readerHasLeft() {
    pollfd watched{STDOUT_FILENO, 0, 0};
    return ::poll(&watched, 1, 0) > 0 && (watched.revents & (POLLERR | POLLHUP)) != 0;
}

// The commands have run, but their results are missing from the file, for example on a full disk.
// The status must say so; one that reports a failure stays.
int reportLostOutput(int status) {
    if (readerHasLeft()) {
        return status;
    }
    std::cerr << "kelsh: standard output could not be written; results are missing from it."
              << std::endl;
    return status != 0 ? status : kExitOutputLost;
}

int runShell(int argc, char** argv) {
    try {
        CShell shell;
        return shell.run(argc, argv);
    } catch (const std::exception& failure) {
        std::cerr << "kelsh: " << failure.what() << std::endl;
        return kExitCannotStart;
    }
}

}  // namespace

int main(int argc, char** argv) {
    resultmemory::keepForTheNextResult();
    occupyStandardDescriptors();
    int status = runShell(argc, argv);
    std::cout.flush();
    const bool written = std::fflush(nullptr) == 0 && std::ferror(stdout) == 0 && std::cout.good();
    if (!written) {
        status = reportLostOutput(status);
    }
    if (CShell::abandonedWorkers() != 0) {
        // A worker that was given up may be inside TLS or logging code. Exit handlers would free
        // what it uses.
        Terminal::standard().release();
        ::_exit(status);
    }
    return status;
}
