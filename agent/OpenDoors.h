#pragma once

#include <string>
#include <vector>

#include "AgentConfig.h"

// What a configuration that is valid leaves open, for an administrator who wants it closed.
namespace opendoors {

struct Door {
    std::string what;    // "listens on all addresses"
    std::string closed;  // the line or the command that closes it
};

std::vector<Door> find(const AgentConfig& config);

// As a table of two columns under headings; empty when nothing is open.
std::string table(const std::vector<Door>& doors);

}  // namespace opendoors
