#pragma once

#include <string>

// Hardware addresses of network interfaces as text.
namespace macaddress {

// Six pairs of hexadecimal digits with the separator between them, and nothing else.
bool isValid(const std::string& text, const std::string& separator);

}  // namespace macaddress
