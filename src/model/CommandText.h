#pragma once

#include <string>

// The typed line taken apart where no command needs to be known for it.
namespace commandtext {

// What stands between a command and its options.
constexpr char kOptionStart[] = " -";

// Without the leading path, trimmed: "reset -f /tmp/x" for "a/b/reset -f /tmp/x". A slash behind
// the first "-" belongs to an option value and stays.
std::string withoutPath(const std::string& line);

}  // namespace commandtext
