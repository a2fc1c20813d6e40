#include "ModernCommands.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <unistd.h>

#include "AdHocSet.h"
#include "CException.h"
#include "CShellCommand.h"
#include "CShellCommandSet.h"
#include "CShellExecutionContext.h"
#include "CommandEngine.h"
#include "CommandFinder.h"
#include "CommandSequence.h"
#include "CommandUsage.h"
#include "ConfigErrorCollector.h"
#include "ShellLogging.h"
#include "Text.h"

namespace {

using Words = std::list<std::string>;

constexpr char kHelp[] = "help";
constexpr char kEndOfOptions[] = "--";
constexpr char kRunSynopsis[] = "run -n NODES|-g GROUPS [-t TIME] -- LINE\n";

// Never destroyed: a worker that was given up may still be in it.
AdHocSet& adHocSet() {
    static auto* const set = new AdHocSet;
    return *set;
}

void report(const ConfigErrorCollector& errors) {
    for (const ConfigError* error : errors.getErrorList()) {
        const std::string text = error->getErrorMessage();
        std::cerr << text << (!text.empty() && text.back() == '\n' ? "" : "\n") << std::flush;
    }
}

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
    const auto end = std::find(words.begin(), words.end(), kEndOfOptions);
    const Words front(words.begin(), end);
    if (isRun(front)) {
        std::optional<std::string> adHocLine;
        for (auto word = end; word != words.end(); ++word) {
            adHocLine = word == end ? "" : *adHocLine + (adHocLine->empty() ? "" : " ") + *word;
        }
        return runAdHoc(front, adHocLine, line);
    }
    if (words.size() > 1 && words.front() == kHelp) {
        return showHelp(Words(std::next(words.begin()), words.end())) ? std::optional<int>(0)
                                                                      : std::nullopt;
    }
    ConfigErrorCollector errors;
    std::optional<ModernParser::Request> request =
        ModernParser(shell.context).parse(words, &errors);
    if (!request) {
        report(errors);
        return std::nullopt;
    }
    ModernResults results(shell.log, takeNumber(line), settingsFor(*request));
    const int status = shell.engine.execute(request->command, results, &errors);
    if (!request->command.isValidCommand()) {
        std::cerr << "Unknown command: " << Text::printable(line) << "\n" << errors.toString();
        return std::nullopt;
    }
    return status;
}

std::optional<int> ModernCommands::runLine(const std::string& line) {
    const std::string::size_type end = ModernParser::endOfOptions(line);
    const Words front = ModernParser::split(line.substr(0, end));
    if (!isRun(front)) {
        return run(ModernParser::split(line), line);
    }
    if (end == std::string::npos) {
        return runAdHoc(front, std::nullopt, line);
    }
    // The blank behind "--" only ends that word.
    const std::string::size_type begin = end + sizeof kEndOfOptions;
    return runAdHoc(front, begin < line.size() ? line.substr(begin) : "", line);
}

std::optional<int> ModernCommands::runAdHoc(const Words& words,
                                            const std::optional<std::string>& adHocLine,
                                            const std::string& line) {
    if (!adHocLine || Text::trimmed(*adHocLine).empty()) {
        std::cerr << (adHocLine ? "run: there is no line behind --\n"
                                : "run: -- is missing in front of the line\n")
                  << kRunSynopsis << std::flush;
        return std::nullopt;
    }
    ConfigErrorCollector errors;
    std::optional<ModernParser::Request> request =
        ModernParser(shell.context).parseRun(words, &errors);
    if (!request) {
        report(errors);
        return std::nullopt;
    }
    ModernResults results(shell.log, takeNumber(line), settingsFor(*request));
    return shell.engine.execute(adHocSet().command(), *adHocLine, request->command, results);
}

bool ModernCommands::isRun(const Words& words) const {
    if (!config.adHoc) {
        return false;
    }
    const Words named = ModernParser::withoutOptions(words);
    const std::string first = named.empty() ? "" : named.front();
    if (first != AdHocSet::kCommandName) {
        return first == std::string("/") + AdHocSet::kCommandName;
    }
    // What the site has of that name comes first.
    const CommandFinder::Found found = CommandFinder(shell.context).find({first});
    return found.command == nullptr && found.set == nullptr;
}

unsigned int ModernCommands::takeNumber(const std::string& line) {
    const unsigned int number = shell.sequence.next();
    shell.log.info("(" + std::to_string(number) + ")[" + line + "]");
    return number;
}

ModernResults::Settings ModernCommands::settingsFor(const ModernParser::Request& request) const {
    return {folds(request.fold), config.digest, config.exitStatus};
}

bool ModernCommands::folds(std::optional<bool> asked) const {
    if (asked) {
        return *asked;
    }
    return config.fold == KelshConfig::Choice::kAlways ||
           (config.fold == KelshConfig::Choice::kAuto && ::isatty(STDOUT_FILENO) == 1);
}

bool ModernCommands::showHelp(const Words& words) const {
    if (words.size() == 1 && isRun(words)) {
        std::cout << kRunSynopsis << adHocSet().command().getDescription() << std::endl;
        return true;
    }
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
