#pragma once

#include <list>
#include <string>
#include <vector>

class CShellCommand;
class CShellCommandSet;
class CShellExecutionContext;

// Finds what typed words name when sets are typed as words: in front of a command, one after the
// other or as a path. The first word is looked for at the working level (and among the basic
// commands, which can be typed everywhere), then among the sets below that level, then from the
// root. The context is not owned.
class CommandFinder {
public:
    explicit CommandFinder(CShellExecutionContext& shellContext) : context(shellContext) {}

    struct Found {
        // The last set named; null when no word was one.
        const CShellCommandSet* set = nullptr;
        // Null when the words behind the sets are no command.
        const CShellCommand* command = nullptr;
        // The text by which the dispatcher finds the command: its path and name.
        std::string path;
        // The words behind the command, or, without one, behind the sets.
        std::list<std::string> rest;
    };
    Found find(const std::list<std::string>& words) const;

    // The names of commands and sets that are at most two letters from the words, nearest first;
    // of commands of the set, or, where that is null, of the working level and the basic ones.
    std::vector<std::string> nearest(const std::list<std::string>& words,
                                     const CShellCommandSet* set) const;

private:
    const CShellCommandSet* workingSet() const;
    bool findIn(const CShellCommandSet* set, const std::list<std::string>& words,
                Found& found) const;

    CShellExecutionContext& context;
};
