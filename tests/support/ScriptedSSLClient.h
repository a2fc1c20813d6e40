#pragma once

#include <map>
#include <string>
#include <vector>

#include "CResult.h"

// A stand-in for SSLClient, chosen when the test program is linked: a program that compiles
// ScriptedSSLClient.cpp gets this client in place of the real one. It answers from a script and
// keeps a record of what was asked. One thread at a time.
namespace scripted {

struct Call {
    std::string ip;
    int port = 0;
    std::string certificateFile;
    std::string commandLine;
    unsigned timeOutMs = 0;
};

struct Node {
    // Not empty: connecting, or executing, throws CException with this text.
    std::string connectFailure;
    std::string executeFailure;
    // What each command line gives; any other gives an empty success.
    std::map<std::string, CResult> answers;

    std::vector<unsigned> connectTimeOutsMs;
    std::vector<Call> calls;
    int liveClients = 0;

    void answer(const std::string& commandLine, int exitCode, const std::string& output);
};

// The node behind every address.
Node& node();
void reset();

}  // namespace scripted
