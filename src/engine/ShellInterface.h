#pragma once

#include <list>
#include <optional>
#include <string>

class CShellExecutionContext;
class CommandEngine;
class CommandSequence;
class ShellLogging;

// What an interface works with; nothing of it is owned.
struct ShellParts {
    CShellExecutionContext& context;
    CommandEngine& engine;
    CommandSequence& sequence;
    ShellLogging& log;
};

// The difference between the classic and the modern interface: which words count, how a line or
// words become a request, how results are shown, what the exit status is. Made once, at start;
// nothing else of the shell asks which of the two it is. Belongs to the thread that runs the shell.
class ShellInterface {
public:
    ShellInterface() = default;
    ShellInterface(const ShellInterface&) = delete;
    ShellInterface& operator=(const ShellInterface&) = delete;
    virtual ~ShellInterface() = default;

    // The words of the command line, and those of standard input where they count.
    virtual std::list<std::string> words(int argc, char** argv) const = 0;
    // For words that are answered before any configuration is read: the exit status.
    virtual std::optional<int> answer(const std::list<std::string>& words) const = 0;
    // Runs the command that the words make up, in a shell that has read its configuration. Returns
    // the exit status.
    virtual int runCommand(std::list<std::string>& words) = 0;
    // Reads and runs lines until the user leaves. Returns the exit status.
    virtual int runLoop() = 0;

protected:
    // The words of the command line alone, without the program's name.
    static std::list<std::string> argumentsOf(int argc, char** argv);
};
