#pragma once

#include <string>

// Messages of running commands on the master's console.
namespace console {

// Writes the text and a newline on standard output at once, in one piece: lines of workers that
// print at the same time do not mix. On a terminal it is filtered as results are, by
// escapeForTerminal. Safe from any thread.
void printLine(const std::string& text);

}  // namespace console
