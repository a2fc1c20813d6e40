#pragma once

#include "LocalAgent.h"
#include "UniqueFd.h"

// Begins to connect to the agent from an address of the caller's choice, 127.0.0.1 + source, and
// does not wait for it. None where the system has no room for one more.
UniqueFd dialFrom(const LocalAgent& agent, unsigned int source);
