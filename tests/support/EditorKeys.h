#pragma once

#include <string>

// Keys and terminal sequences written down so that a test reads like what a user types.
namespace keys {

std::string times(std::size_t n, const std::string& text);

// What the editor writes to move the cursor.
inline const std::string up = "\x1b[A";
inline const std::string down = "\x1b[B";
inline const std::string right = "\x1b[C";
inline const std::string left = "\x1b[D";
inline const std::string bell = "\a";
inline const std::string blankBack = " \x1b[D";  // one cell blanked

// Turns "cd no<tab><cr>" into bytes: names between angle brackets stand for keys, anything else for
// itself. "<lt>" is "<"; "<^C>" is a control character.
std::string typed(const std::string& symbols);

}  // namespace keys
