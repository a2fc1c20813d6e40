#pragma once

#include <string>

// Makes text from a node safe to show on a terminal. Bytes that could move the cursor, change the
// terminal's state or make it answer become \xNN. These are all control characters but newline, tab
// and a carriage return before a newline, the C1 controls, and everything that is not valid UTF-8.
// Other text of any script stays as it is.
std::string escapeForTerminal(const std::string& text);
