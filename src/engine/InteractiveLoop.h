#pragma once

#include <optional>
#include <string>

class CCmdHistory;
class CShellExecutionContext;
class CommandEngine;
class CommandSequence;
class ConfigErrorCollector;
class ShellLogging;

// The interactive loop: reads a line, does what it says, and again, until "quit" or the end of
// input. Navigation and history are its own; everything else becomes a request for the engine. Owns
// nothing of what it is made with. Belongs to the thread that owns the terminal.
class InteractiveLoop {
public:
    InteractiveLoop(CShellExecutionContext& shellContext, CommandEngine& commandEngine,
                    CommandSequence& numbers, ShellLogging& shellLog);
    InteractiveLoop(const InteractiveLoop&) = delete;
    InteractiveLoop& operator=(const InteractiveLoop&) = delete;
    virtual ~InteractiveLoop() = default;

    // Returns the exit status.
    int run();

protected:
    static constexpr int kQuitStatus = 7;  // not 0, and stays; docs/compatibility.md

    // Does what the line says. The text may be replaced by what it stands for. Returns the exit
    // status when the line ends the loop.
    virtual std::optional<int> processLine(std::string& text, CCmdHistory& history);
    // The exit status when the input ends.
    virtual int statusAtEndOfInput() const { return kQuitStatus; }

    // Adds a line that was right to the history and the log.
    void keep(const std::string& text, CCmdHistory& history);

    CShellExecutionContext& context;
    CommandEngine& engine;
    CommandSequence& sequence;
    ShellLogging& log;

private:
    bool runLine(const std::string& text, ConfigErrorCollector* errors);
    static bool recall(std::string& text, CCmdHistory& history);
    bool changeLevel(const std::string& text);
};
