#pragma once

#include <string>

// Messages of running commands on the master's console.
namespace console {

// Writes the text and a newline to standard output at once, in one piece, so that lines of workers
// do not mix. On a terminal the text is filtered as results are, by escapeForTerminal. Safe from
// any thread.
void printLine(const std::string& text);

}  // namespace console
