#pragma once

#include <string>

// Keeps passwords out of logs, and commands in them.
namespace secretmask {

// The command line with the passwords and keys that are given to ipmitool (-P, --password, -k, -y,
// "user set password N ...", "lan set N password ...", IPMI_PASSWORD= and its like) shown as "***".
//
// A log that commands could hide from would be worth nothing. So this is done in a plain single
// command only: ipmitool itself, in front of it nothing but its own variables, behind it words
// whose end nobody can mistake. A line with an operator, a newline, a comment, a substitution, a
// pattern, a backslash, a quote in the middle of a word or an option that ipmitool does not have
// comes back as it is.
std::string mask(const std::string& commandLine);

// A command line as it stands in log and audit.
struct Shown {
    std::string text;
    // Where something is masked: the HMAC-SHA256 of the whole line, in hexadecimal digits, so that
    // it can be proved later what ran. Under a key, or short passwords could be guessed from it.
    std::string hmac;

    // What is written behind the text in a log: nothing, or " (HMAC <digits>)".
    std::string suffix() const;
};

// keyFile: made by makeKey(). Where it cannot be used nothing is masked.
Shown show(const std::string& commandLine, const std::string& keyFile);

// Makes the key, of mode 0600, unless there is one. Throws CException when it cannot be made, or is
// not fit to be used.
void makeKey(const std::string& keyFile);

}  // namespace secretmask
