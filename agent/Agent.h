#pragma once

#include <list>
#include <string>

#include "AgentConfig.h"

// The program kelnode without its main().
namespace agent {

constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

// Runs the agent until SIGTERM, or does what the options ask for. Returns the exit status.
int run(int argc, const char* const* argv);

// KELNODE_PATH, or /opt/kelnode/ when that is unset or empty; always with a trailing "/".
std::string nodePath();

// What is wrong with a configuration that reads well: missing or unreadable files, a key that does
// not fit, a certificate that is not valid now or not meant for a server, a node path that cannot
// be used. Each finding is a sentence; an empty list means that the agent can start. Findings that
// do not keep it from starting go to notes.
std::list<std::string> check(const AgentConfig& config, std::list<std::string>& notes);

}  // namespace agent
