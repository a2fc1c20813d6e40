#include "ResultBlock.h"

#include <csignal>
#include <iostream>
#include <sstream>
#include <unistd.h>

#include "CResult.h"
#include "OutputFilter.h"

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

ResultBlock::ResultBlock(const std::string& name, const CResult& result, bool fromNode)
    : text(result.summary()), safeText(fromNode ? escapeForTerminal(text) : text) {
    std::ostringstream line;
    line << "[" << name << "] (" << result.getRunTime() << "ms)\n";
    if (result.getRunStatus() != EXEC_SUCCESS) {
        line << "ExitCode:" << result.getRunStatus() << "/" << result.getExitCode() << "["
             << result.getStatusEnumString() << "], summary: ";
    }
    head = line.str();
}

void ResultBlock::print() const {
    const InterruptHeld untilPrinted;
    std::cout << head << (::isatty(STDOUT_FILENO) == 1 ? safeText : text) << std::endl;
}

void printWhole(const std::string& text) {
    const InterruptHeld untilPrinted;
    std::cout << text << std::flush;
}
