#pragma once

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

    void run();

private:
    struct Line;

    void processLine(Line& line, CCmdHistory& history);
    bool runLine(const std::string& text, ConfigErrorCollector* errors);
    static bool recall(std::string& text, CCmdHistory& history);
    bool changeLevel(const std::string& text);

    CShellExecutionContext& context;
    CommandEngine& engine;
    CommandSequence& sequence;
    ShellLogging& log;
};
