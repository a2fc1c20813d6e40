#pragma once

#include <list>
#include <optional>
#include <string>

#include "KelshConfig.h"
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

    // To the level that the words behind "cd" lead to; false, with the level unchanged and a
    // message, when they lead nowhere.
    bool changeLevel(const std::list<std::string>& path);

private:
    bool showHelp(const std::list<std::string>& words) const;
    bool folds(std::optional<bool> asked) const;

    ShellParts shell;
    KelshConfig config;
    std::list<std::string> levelBefore;
};
