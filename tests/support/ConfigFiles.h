#pragma once

#include <fstream>
#include <iterator>
#include <string>

void writeFile(const std::string& name, const std::string& text);

std::string readFile(const std::string& name);
