#pragma once

#include <string>

// What the node knows about its own network interfaces.
namespace networkinterface {

// The hardware address, in upper case with ":", of the interface that holds this local address (a
// literal as printed by inet_ntop; "::ffff:a.b.c.d" counts as a.b.c.d). Empty when no interface
// holds it, or the one that does has no hardware address, as the loopback interface.
std::string macOfLocalAddress(const std::string& address);

// Six bytes as "00:11:22:AA:BB:CC"; empty when all of them are 0.
std::string formatMac(const unsigned char* bytes);

}  // namespace networkinterface
