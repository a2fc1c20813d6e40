#pragma once

#include <string>

#include "CResult.h"

class AgentLink;

// Copies files between the master and a node, under the same path on both. Whoever gets the file
// has the old one or the whole new one. Safe from any thread, each link used by one at a time.
//
// What goes wrong with the file becomes the result, status EXEC_FAILURE, and so does a time-out
// (milliseconds, 0 means no limit), EXEC_TIMED_OUT; each has a text that says it. What goes wrong
// with the connection throws CException, and the link is then without one.
namespace fileexchange {

void save(AgentLink& link, const std::string& path, unsigned int timeOutMs, CResult& result);
void get(AgentLink& link, const std::string& path, unsigned int timeOutMs, CResult& result);

}  // namespace fileexchange
