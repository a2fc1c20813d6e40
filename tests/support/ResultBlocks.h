#pragma once

#include <string>
#include <vector>

// Reading the result blocks that kelsh prints. By hand: g++ 12 takes std::regex for a use of
// uninitialised memory when it compiles with the sanitizers.

// Length of "(12ms)" at that place; 0 when something else stands there.
std::size_t runTimeLength(const std::string& text, std::size_t at);

// Every run time "(12ms)" as "(ms)".
std::string withoutTimes(const std::string& text);

// The names in the heads "[name] (12ms)", in the order printed.
std::vector<std::string> blockNames(const std::string& output);
