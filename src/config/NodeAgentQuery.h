#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "CNode.h"

// What the agent of a node says about itself.
struct NodeAgentAnswer {
    bool connected = false;
    std::string mac;       // as the agent reports it, trimmed; empty when it cannot tell
    bool pending = false;  // the network has not answered so far: ask again when it has
};

// Asks one node. Called on several threads at once; an exception counts as not connected. Where the
// answer is pending, the node is asked again when the network has answered, or when its time is
// over.
using NodeAgentQuery = std::function<NodeAgentAnswer(const CNode&)>;

// At most this many agents are asked at the same time.
constexpr std::size_t kMaxAgentQueries = 64;

// Milliseconds for one node, connection and answer together.
constexpr unsigned int kAgentQueryTimeOutMs = 3000;

// After this many milliseconds a node that does not answer makes room for others, while it is still
// being dialled. So hundreds of silent nodes cost the time of one.
constexpr unsigned int kAgentSilenceMs = 25;

// The real thing: a connection with the certificate of CSSLConfig. Waits kAgentSilenceMs for the
// network; then the answer is pending. Throws CException when there is no connection or no answer
// within the limit.
NodeAgentAnswer askNodeAgent(const CNode& node);

// So long without an answer of any node, and those that are asked count as not connected: each
// query has limits of its own, so something is wrong that they do not cover.
constexpr std::chrono::milliseconds kLongestSilence{4L * kAgentQueryTimeOutMs};

// Asks all nodes and returns the answers in the order of the nodes. Returns when every query has,
// or has been given up. The threads it needs end with it, but for those given up, which go on by
// themselves. Where threads cannot be had, fewer or none are used.
//   mostAtOnce  so many queries run at the same time at most; 1 asks on the calling thread alone,
//               which is cheaper where a query does not wait for anything
std::vector<NodeAgentAnswer> askNodeAgents(const std::vector<const CNode*>& nodes,
                                           const NodeAgentQuery& query,
                                           std::size_t mostAtOnce = kMaxAgentQueries,
                                           std::chrono::milliseconds patience = kLongestSilence);

// Threads that were given up since the process started. Unless 0, it must end by _exit.
unsigned int abandonedAgentQueries();
