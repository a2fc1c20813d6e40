#pragma once

#include <string>

// Parts of a typed line that can be found without knowing its command.
namespace commandtext {

// Separates a command from its options.
constexpr char kOptionStart[] = " -";

// The line without its leading path, trimmed: "reset -f /tmp/x" for "a/b/reset -f /tmp/x". A slash
// behind the first "-" belongs to an option value and stays.
std::string withoutPath(const std::string& line);

}  // namespace commandtext
