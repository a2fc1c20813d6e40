#pragma once

#include <string>

// Keeps passwords out of logs.
namespace secretmask {

// The command line with the passwords and keys given to ipmitool (-P, --password, -k, -y, "user set
// password N ...", IPMI_PASSWORD= and its like) shown as "***". Other command lines come back as
// they are. A word that has the shell run something, as "$(...)" does, is never hidden: a log that
// commands could hide from would be worth nothing.
std::string mask(const std::string& commandLine);

}  // namespace secretmask
