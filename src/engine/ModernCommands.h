#pragma once

#include <list>
#include <optional>
#include <string>

#include "KelshConfig.h"
#include "ModernParser.h"
#include "ModernResults.h"
#include "ShellInterface.h"

// What a line does in the modern interface, at the prompt and on the command line alike: it is a
// word of the shell itself, or it becomes a request for the engine. Faults go to standard error.
// Belongs to the thread that runs the shell.
class ModernCommands {
public:
    ModernCommands(const ShellParts& shellParts, const KelshConfig& settings)
        : shell(shellParts), config(settings) {}

    // The exit status of the words as a command; nothing when they are wrong, which was said.
    //   line  as it was typed, for the log
    std::optional<int> run(const std::list<std::string>& words, const std::string& line);

    // The same for a line of the prompt. What stands behind "--" in a line with "run" reaches the
    // nodes byte for byte.
    std::optional<int> runLine(const std::string& line);

    // To the level that the words behind "cd" lead to; false, with the level unchanged and a
    // message, when they lead nowhere.
    bool changeLevel(const std::list<std::string>& path);

private:
    // words: those in front of "--"; adHocLine: what stands behind it; nothing where it is missing.
    std::optional<int> runAdHoc(const std::list<std::string>& words,
                                const std::optional<std::string>& adHocLine,
                                const std::string& line);
    bool isRun(const std::list<std::string>& words) const;
    // Takes the number of a command and logs the line with it.
    unsigned int takeNumber(const std::string& line);
    ModernResults::Settings settingsFor(const ModernParser::Request& request) const;
    bool showHelp(const std::list<std::string>& words) const;
    bool folds(std::optional<bool> asked) const;

    ShellParts shell;
    KelshConfig config;
    std::list<std::string> levelBefore;
};
