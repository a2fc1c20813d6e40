#pragma once

#include <list>
#include <string>

class ConfigErrorCollector;
class ShellLogging;

// What reading the configuration found worth telling, although it stops nothing: all of it goes to
// the log, and the user of an interactive shell is told in short. Belongs to one thread.
class StartUpWarnings {
public:
    // Keeps the warnings of the collector and writes them to the log.
    void take(const ConfigErrorCollector& errors, ShellLogging& log);

    // Writes to the log what the reader of the command file accepts in silence: that it is there
    // but cannot be read, lines that are too long, carriage returns.
    static void logSilentFaults(const std::string& commandFile, ShellLogging& log);

    // On standard error, where that is a terminal: the nodes that could not be reached in one line,
    // everything else as it is.
    void show() const;

private:
    std::list<std::string> texts;
    std::list<std::string> unreachableNodes;
};
