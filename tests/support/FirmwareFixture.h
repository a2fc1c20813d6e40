#pragma once

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CResult.h"
#include "CommandSetFixture.h"
#include "FirmwareNode.h"

// A set against one real agent on a machine of stand-in tools.
template <class Set>
class FirmwareFixture : public CommandSetFixture<Set> {
protected:
    // The stand-in must be what the node finds: the machine that runs the tests has the real one.
    void SetUp() override {
        CResult found;
        node.kelnode().connect(masterCertificate())->execute("command -v reboot", 10000, &found);
        ASSERT_EQ(node.machine() + "/bin/reboot\n", found.getRunSummary());
    }

    void TearDown() override {
        EXPECT_TRUE(waitFor([this] { return node.plainTools().empty(); }))
            << "a plain tool was left behind";
    }

    static std::string masterCertificate() {
        return CSSLConfig::getInstance()->getCertificateFile();
    }

    CNode* target() override { return node.target(); }

    // The tools that were called for the last command, uname and the like left out.
    std::vector<std::string> calls() {
        std::vector<std::string> kept;
        for (const std::string& call : node.takeCalls()) {
            if (call != "uname [-i]") {
                kept.push_back(call);
            }
        }
        return kept;
    }

    // An image of some size with every byte value in it and the mark of its board.
    static std::string image(const std::string& mark) {
        std::mt19937 generator(42);
        std::string content = mark;
        for (int byte = 0; byte < 300000; ++byte) {
            content += static_cast<char>(generator() & 0xff);
        }
        return content;
    }

    std::string module() { return node.kelnode().toolsPath() + "romio.ko"; }

    FirmwareCluster cluster;
    FirmwareNode node{cluster, "node_0000"};
};
