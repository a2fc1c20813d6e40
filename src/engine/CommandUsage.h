#pragma once

#include <string>

class CShellCommand;

// How a command is called, for people. Each text ends in a newline.
namespace commandusage {

// One line: "save file -f|--file VALUE [-q]". What is not in brackets must be given.
std::string synopsis(const CShellCommand& command);

// The synopsis, what the command does, its options and its examples.
std::string help(const CShellCommand& command);

}  // namespace commandusage
