#pragma once

#include <string>

namespace timestamp {

// The time of now for logs. It is UTC, so that all nodes write the same whatever their time zones:
// 2026-11-21T20:30:00.000Z.
std::string now();

}  // namespace timestamp
