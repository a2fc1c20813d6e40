#pragma once

#include <map>
#include <string>
#include <vector>

#include "CResult.h"

// Node agents that differ by address, chosen when the test program is linked: a program that
// compiles AgentsByAddress.cpp gets this SSLClient in place of the real one. An address without an
// agent cannot be connected to. Clients may work on many threads; the script is changed only while
// none lives.
class AgentsByAddress {
public:
    struct Agent {
        std::string mac;  // what it reports, as it stands
        std::map<std::string, CResult> answers;
        std::map<std::string, std::string> failures;  // request to the text it throws
    };
    struct Request {
        std::string ip;
        int port;
        std::string certificateFile;
        std::string line;
        unsigned timeOut;
    };

    // Makes the agent when there is none.
    static Agent& at(const std::string& ip);
    // Forgets every agent and request.
    static void reset();
    static std::vector<Request> requests();
    static int liveClients();

    static CResult outcome(int exitCode, const std::string& output);
};
