#pragma once

#include <string>
#include <vector>

#include "KelshEnum.h"

class CNodeSession;
class CResult;
class CShellCommand;
class CShellCommandSet;

// The built-in sets as tables. One row holds a command's name, its options and the function that
// runs it, so that a set can be compared with its description line by line.

struct OptionRow {
    const char* shortName;
    const char* longName;
    COMMAND_OPTION_COMPULSORY_TYPE compulsory;
    COMMAND_OPTION_VALUE_TYPE value;
    const char* description;
};

// A compulsory option with a value, and an optional one without.
OptionRow valueOption(const char* shortName, const char* longName, const char* description);
OptionRow flagOption(const char* shortName, const char* longName, const char* description);

// The line as it was typed, with the command that it names.
class TypedLine {
public:
    TypedLine(CShellCommand& named, std::string typed);

    // The value of an option, by its short name, as typed; "" when it is not given.
    std::string value(const std::string& option) const;
    // The same for a path: one enclosing pair of double quotes is not part of it.
    std::string path(const std::string& option) const;
    // Searches the whole line, values included.
    bool holds(const std::string& text) const;

private:
    CShellCommand& command;
    std::string line;
};

// Runs one command on one node. Throws CException when it must stop.
using NodeCommand = void (*)(CNodeSession& session, const TypedLine& typed, CResult& result);

struct CommandRow {
    const char* name;
    const char* description;
    COMMAND_TYPE type;
    EXECUTE_DESTINATION destination;
    std::vector<OptionRow> options;
    unsigned int timeOutMs = 0;     // 0: that of the set
    const char* confirmation = "";  // asked once for the whole execution; empty: not asked
    const char* example = "";       // empty: none
    NodeCommand run = nullptr;      // null: not one for executeOnNode
};

using CommandTable = std::vector<CommandRow>;

// Adds the table's commands to the set, in its order; the set owns them.
void addCommands(CShellCommandSet& set, const CommandTable& table);

// The command of the set that the line names; null when there is none.
CShellCommand* findCommand(CShellCommandSet& set, const std::string& commandLine);
