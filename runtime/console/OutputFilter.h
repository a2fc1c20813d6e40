#pragma once

#include <string>

// Makes text that came from a node safe to show on a terminal: what could move the cursor, change
// the terminal's state or make it answer is shown as \xNN, byte by byte. That is every control
// character but newline, tab and a carriage return right before a newline, the C1 controls, and
// all that is not valid UTF-8. Other text, whatever its script, stays as it is.
std::string escapeForTerminal(const std::string& text);
