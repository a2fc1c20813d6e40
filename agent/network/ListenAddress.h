#pragma once

#include <string>

// Where the agent listens.
struct ListenAddress {
    std::string host;  // an IPv4 or IPv6 literal, without brackets
    unsigned int port = 0;
};

// Reads "address:port" or "[v6]:port". Returns the reason for a refusal, or an empty text.
std::string parseListenAddress(const std::string& text, ListenAddress& address);
