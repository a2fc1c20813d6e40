#include "ClassicResults.h"

#include <csignal>
#include <iostream>
#include <sstream>
#include <unistd.h>

#include "CResult.h"
#include "OutputFilter.h"
#include "ShellLogging.h"

namespace {

// Keeps Ctrl+C away from this thread for a moment. Its handler does not restart system calls, and
// the standard streams take an interrupted write for an error, after which they drop everything.
class InterruptHeld {
public:
    InterruptHeld() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        held = ::pthread_sigmask(SIG_BLOCK, &signals, &previous) == 0;
    }
    InterruptHeld(const InterruptHeld&) = delete;
    InterruptHeld& operator=(const InterruptHeld&) = delete;
    ~InterruptHeld() {
        if (held) {
            static_cast<void>(::pthread_sigmask(SIG_SETMASK, &previous, nullptr));
        }
    }

private:
    sigset_t previous{};
    bool held = false;
};

}  // namespace

void ClassicResults::show(const std::string& name, const CResult& result, bool fromNode) {
    std::ostringstream head;
    head << "[" << name << "] (" << result.getRunTime() << "ms)\n";
    if (result.getRunStatus() != EXEC_SUCCESS) {
        head << "ExitCode:" << result.getRunStatus() << "/" << result.getExitCode() << "["
             << result.getStatusEnumString() << "], summary: ";
    }
    // What a node says must not move the cursor of whoever looks at it, here or in the dump file.
    const std::string shown = fromNode ? escapeForTerminal(result.summary()) : result.summary();
    const InterruptHeld untilPrinted;
    std::cout << head.str() << (::isatty(STDOUT_FILENO) == 1 ? shown : result.summary())
              << std::endl;
    log.result(head.str() + shown);
}
