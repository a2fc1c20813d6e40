#include "ModernCommands.h"

#include <iostream>
#include <unistd.h>

#include "CException.h"
#include "CShellCommandSet.h"
#include "CShellExecutionContext.h"
#include "CommandEngine.h"
#include "CommandFinder.h"
#include "CommandSequence.h"
#include "CommandUsage.h"
#include "ConfigErrorCollector.h"
#include "ModernParser.h"
#include "ModernResults.h"
#include "ShellLogging.h"
#include "Text.h"

namespace {

using Words = std::list<std::string>;

constexpr char kHelp[] = "help";

// One step after the other, as in a file system.
void walk(CShellExecutionContext& context, const Words& path) {
    for (const std::string& word : path) {
        if (Text::startsWith(word, "/")) {
            context.toRootLevel();
        }
        for (const std::string& name : Text::split(word, '/')) {
            if (name == "..") {
                context.toUpperLevel();
            } else if (!name.empty() && name != ".") {
                context.toLowerLevel(name);
            }
        }
    }
}

void goTo(CShellExecutionContext& context, const Words& level) {
    context.toRootLevel();
    for (const std::string& name : level) {
        context.toLowerLevel(name);
    }
}

}  // namespace

std::optional<int> ModernCommands::run(const Words& words, const std::string& line) {
    if (words.size() > 1 && words.front() == kHelp) {
        return showHelp(Words(std::next(words.begin()), words.end())) ? std::optional<int>(0)
                                                                      : std::nullopt;
    }
    ConfigErrorCollector errors;
    std::optional<ModernParser::Request> request =
        ModernParser(shell.context).parse(words, &errors);
    if (!request) {
        for (const ConfigError* error : errors.getErrorList()) {
            const std::string text = error->getErrorMessage();
            std::cerr << text << (!text.empty() && text.back() == '\n' ? "" : "\n") << std::flush;
        }
        return std::nullopt;
    }
    const unsigned int number = shell.sequence.next();
    shell.log.info("(" + std::to_string(number) + ")[" + line + "]");
    ModernResults results(shell.log, number,
                          {folds(request->fold), config.digest, config.exitStatus});
    const int status = shell.engine.execute(request->command, results, &errors);
    if (!request->command.isValidCommand()) {
        std::cerr << "Unknown command: " << Text::printable(line) << "\n" << errors.toString();
        return std::nullopt;
    }
    return status;
}

bool ModernCommands::folds(std::optional<bool> asked) const {
    if (asked) {
        return *asked;
    }
    return config.fold == KelshConfig::Choice::kAlways ||
           (config.fold == KelshConfig::Choice::kAuto && ::isatty(STDOUT_FILENO) == 1);
}

bool ModernCommands::showHelp(const Words& words) const {
    const CommandFinder finder(shell.context);
    const CommandFinder::Found found = finder.find(words);
    if (found.command != nullptr && found.rest.empty()) {
        std::cout << commandusage::help(*found.command) << std::flush;
        return true;
    }
    if (found.command == nullptr && found.set != nullptr && found.rest.empty()) {
        std::cout << found.set->getUsage() << std::flush;
        return true;
    }
    std::cerr << "help: there is no command or set of that name";
    const char* separator = "\nSimilar: ";
    for (const std::string& name : finder.nearest(words, nullptr)) {
        std::cerr << separator << name;
        separator = ", ";
    }
    std::cerr << std::endl;
    return false;
}

bool ModernCommands::changeLevel(const Words& path) {
    const Words from = shell.context.getCWL();
    try {
        if (path.empty()) {
            shell.context.toRootLevel();
        } else if (path.size() == 1 && path.front() == "-") {
            goTo(shell.context, levelBefore);
        } else {
            walk(shell.context, path);
        }
    } catch (const CException& failure) {
        goTo(shell.context, from);
        std::cerr << failure.getErrMsg() << std::endl;
        return false;
    }
    levelBefore = from;
    return true;
}
