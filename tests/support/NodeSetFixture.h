#pragma once

#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CNode.h"
#include "CommandSetFixture.h"
#include "ScriptedClient.h"
#include "TempDir.h"

// A built-in set, a node behind a scripted agent, and a file on the master.
template <class Set>
class NodeSetFixture : public CommandSetFixture<Set> {
protected:
    void SetUp() override {
        ScriptedClient::reset();
        agent.answer("echo $KELNODE_PATH", "/opt/kelnode/\n");
        agent.answer("uname -i", "x86_64\n");
        std::ofstream(file) << "image";
    }

    void TearDown() override {
        EXPECT_EQ(0, agent.liveClients) << "a connection was left behind";
        EXPECT_LE(agent.mostLiveClients, 1) << "one connection at a time serves a command";
    }

    CNode* target() override { return &node; }

    // What the node was asked, without the opening that all commands share.
    std::vector<std::string> requestsAfterOpening() {
        std::vector<std::string> rest;
        for (const std::string& request : agent.requests) {
            if (request != "run: echo $KELNODE_PATH" && request != "run: uname -i") {
                rest.push_back(request);
            }
        }
        return rest;
    }

    TempDir directory;
    // In the text of requests and messages; an ordinary name.
    std::string file = directory.file("image.bin");
    ScriptedClient& agent = ScriptedClient::instance();
    CNode node{"node_0000", "", "127.0.0.1", 4422};
};
