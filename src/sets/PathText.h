#pragma once

#include <string>

// File names in command lines.
namespace pathtext {

// Removes one enclosing pair of double quotes.
std::string unquote(const std::string& value);
// The value of a path option such that unquote gives the path back: quoted when it holds white
// space or is itself enclosed in quotes.
std::string optionValue(const std::string& path);
// One word of a shell line: unchanged when it holds nothing but A-Za-z0-9_./:=,+@%-, else quoted.
std::string shellWord(const std::string& text);
// The part before the last "/"; "/" for a file of the root directory.
std::string directoryOf(const std::string& path);
// The part after the last "/".
std::string baseNameOf(const std::string& path);

}  // namespace pathtext
