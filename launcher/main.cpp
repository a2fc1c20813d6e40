#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

#include "CShell.h"
#include "Terminal.h"

namespace {

constexpr int kExitCannotStart = 2;

// Started without one of the three, the shell would give its number to a log file or a connection,
// and print into it.
void occupyStandardDescriptors() {
    int fd = 0;
    do {
        fd = ::open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0) {
        static_cast<void>(::close(fd));
    }
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
    occupyStandardDescriptors();
    const int status = runShell(argc, argv);
    std::cout.flush();
    static_cast<void>(std::fflush(nullptr));
    if (CShell::abandonedWorkers() != 0) {
        // A worker that was given up may be inside TLS or logging code, which the exit handlers
        // would take apart under it.
        Terminal::standard().release();
        ::_exit(status);
    }
    return status;
}
