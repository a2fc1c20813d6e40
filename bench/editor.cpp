// What the line editor costs: bytes written and processor time per key, and the time from a key to
// its character on a terminal. Prints one line per case.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <sys/wait.h>
#include <vector>

#include <pty.h>

#include "AutoHistoryCommandLineRetriever.h"
#include "CCmdHistory.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "CShellExecutionContext.h"
#include "CShellExecutionContextAutoCompleteAdapter.h"
#include "EditorKeys.h"
#include "StandardStreams.h"

namespace {

constexpr int kCommands = 10000;

double processorSeconds() {
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

class Shell {
public:
    Shell() {
        context.setHostName("master");
        auto* basic = new CShellCommandSet("BASIC", "");
        for (int i = 0; i < kCommands; ++i) {
            basic->addSupportedCommand(
                new CShellCommand("command_" + std::to_string(i), "", "true", SCRIPT, MASTER));
        }
        context.addCommandSet(basic);
    }

    AutoHistoryCommandLineRetriever& lineEditor() { return editor; }

    // The keys measured come between the two others, which are taken off the account.
    void measure(const char* name, const std::string& before, const std::string& measured) {
        const Cost whole = run(before + measured);
        const Cost start = run(before);
        const double keyCount = static_cast<double>(measured.size());
        std::fprintf(stderr, "%-46s %9.0f keys %10.1f bytes/key %10.2f us/key\n", name, keyCount,
                     (whole.bytes - start.bytes) / keyCount,
                     (whole.seconds - start.seconds) * 1e6 / keyCount);
    }

private:
    struct Cost {
        double bytes;
        double seconds;
    };

    Cost run(const std::string& keyBytes) {
        const TypedInput input(keyBytes + "\n");
        CapturedOutput output;
        const double begin = processorSeconds();
        editor.getCommandLine();
        const double end = processorSeconds();
        return {static_cast<double>(output.text().size()), end - begin};
    }

    CapturedOutput dropped;  // what the context has to say about a missing version file
    CShellExecutionContext context;
    CCmdHistory history;
    CShellExecutionContextAutoCompleteAdapter adapter{&context};
    AutoHistoryCommandLineRetriever editor{&context, &history, &adapter};
};

// From writing one key to the terminal to reading its character back, on a pty.
void measureLatency() {
    int user = -1;
    winsize size = {};
    size.ws_row = 50;
    size.ws_col = 60000;  // no wraps: each key is one character
    const pid_t child = forkpty(&user, nullptr, nullptr, &size);
    if (child == 0) {
        AbstractCommandLineRetriever editor;
        std::cout << "$ ";
        editor.getCommandLine();
        _exit(0);
    }
    const UniqueFd terminal(user);
    char seen[64];
    if (child < 0 || read(user, seen, sizeof seen) <= 0) {
        std::fprintf(stderr, "no terminal\n");
        return;
    }
    std::vector<double> times;
    for (int i = 0; i < 5000; ++i) {
        const auto begin = std::chrono::steady_clock::now();
        if (write(user, "x", 1) != 1 || read(user, seen, sizeof seen) <= 0) {
            break;
        }
        times.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin)
                .count());
    }
    if (write(user, "\r", 1) == 1) {
        waitpid(child, nullptr, 0);
    }
    std::sort(times.begin(), times.end());
    std::fprintf(stderr, "%-46s %9zu keys   median %.1f us, 99%% below %.1f us\n",
                 "key to screen on a pty", times.size(), times[times.size() / 2],
                 times[times.size() * 99 / 100]);
}

}  // namespace

int main() {
    measureLatency();
    Shell shell;
    const std::string line(4000, 'x');
    shell.measure("typing at the end of a line", "", std::string(4000, 'x'));
    shell.measure("typing at the end of 100,000 characters", std::string(100000, 'x'),
                  std::string(4000, 'y'));
    shell.measure("inserting at the start of 4,000 characters", line + keys::typed("<home>"),
                  std::string(200, 'y'));
    shell.measure("backspace in the middle of 4,000 characters",
                  line + keys::times(2000, keys::left), std::string(200, '\x7f'));
    shell.measure("pasting 64 KB", "", std::string(65536, 'p'));
    shell.measure("pasting 64 KB before one character", "x" + keys::typed("<left>"),
                  std::string(65536, 'p'));
    shell.measure("Tab over 10,000 commands, one fits", "command_777", "\t");
    shell.measure("Tab over 10,000 commands, all fit", "com", "\t");
    return EXIT_SUCCESS;
}
