#include "ModernInterface.h"

#include <iostream>
#include <unistd.h>

#include "CShellExecutionContext.h"
#include "ModernCommands.h"
#include "ModernLoop.h"
#include "ModernResults.h"
#include "PipedLine.h"
#include "RequestParser.h"

namespace {

// Where the exit status is the last node's, so are those of faults.
constexpr int kUnknownByLast = 2;

constexpr char kHelpText[] =
    "Usage: kelsh [-cfg FILE] [SET...] COMMAND [OPTION...]\n"
    "       kelsh [-cfg FILE] run [OPTION...] -- LINE\n"
    "       kelsh [-cfg FILE]\n"
    "       kelsh --validate FILE\n"
    "       kelsh --version | --help | -h\n"
    "\n"
    "Runs a command on nodes of the cluster; without words, reads commands at a prompt.\n"
    "  -n, --node NODES      the nodes, with commas between them\n"
    "  -g, --group GROUPS    the nodes of these groups\n"
    "  -t, --timeout TIME    1500 or 1500ms, 5s, 2m, 1h\n"
    "      --fold, --no-fold nodes with the same answer as one block, or each on its own\n"
    "\"kelsh help\" shows all commands.\n";

}  // namespace

std::list<std::string> ModernInterface::words(int argc, char** argv) const {
    std::list<std::string> all = argumentsOf(argc, argv);
    return all.empty() ? readPipedWords(STDIN_FILENO) : all;
}

std::optional<int> ModernInterface::answer(const std::list<std::string>& words) const {
    if (words.size() != 1) {
        return std::nullopt;
    }
    if (words.front() == "--version") {
        std::cout << "kelsh, " << shell.context.getVersionBuildString() << std::endl;
        return 0;
    }
    if (words.front() == "-h" || words.front() == "--help") {
        std::cout << kHelpText << std::flush;
        return 0;
    }
    return std::nullopt;
}

int ModernInterface::runCommand(std::list<std::string>& words) {
    const std::optional<int> status =
        ModernCommands(shell, config).run(words, RequestParser::joinWords(words));
    if (status) {
        return *status;
    }
    return config.exitStatus == KelshConfig::ExitStatus::kLast ? kUnknownByLast
                                                               : ModernResults::kNothingRunStatus;
}

int ModernInterface::runLoop() {
    return ModernLoop(shell, config).run();
}
