#pragma once

#include <string>

namespace timestamp {

// Now as it stands in logs, in UTC, so that it means the same on all nodes whatever their time
// zones: 2026-11-21T20:30:00.000Z.
std::string now();

}  // namespace timestamp
