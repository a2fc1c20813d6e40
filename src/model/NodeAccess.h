#pragma once

#include <memory>

class CNode;
class SSLClient;

// How whoever runs a command gets at the agent of its node. Safe from any thread.
namespace nodeaccess {

// How long connecting may take within a time-out, both in milliseconds; 0 means no time-out. A
// third of it at most: a dead node must be reported with its reason and not as timed out.
unsigned int connectLimit(unsigned int timeOutMs);

// A client that is connected to the node's agent within that limit, with the certificate of the SSL
// configuration, and that works for the call of which the node is the target. Throws CException.
std::unique_ptr<SSLClient> connect(const CNode& node, unsigned int timeOutMs);

}  // namespace nodeaccess
