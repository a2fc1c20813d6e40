#pragma once

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CResult.h"
#include "CShellCommandSet.h"
#include "FirmwareNode.h"

// A set against one real agent on a machine of stand-in tools.
template <class Set>
class FirmwareFixture : public ::testing::Test {
protected:
    // The stand-in must be what the node finds: the machine that runs the tests has the real one.
    void SetUp() override {
        CResult found;
        node.kelnode().connect(masterCertificate())->execute("command -v reboot", 10000, &found);
        ASSERT_EQ(found.getRunSummary(), node.machine() + "/bin/reboot\n");
    }

    void TearDown() override {
        EXPECT_TRUE(waitFor([this] { return node.plainTools().empty(); }))
            << "a plain tool was left behind";
    }

    static std::string masterCertificate() {
        return CSSLConfig::getInstance()->getCertificateFile();
    }

    CResult execute(const std::string& line, unsigned int timeOutMs = 30000) {
        CResult result;
        testing::internal::CaptureStdout();
        set.execute(line, node.target(), result, timeOutMs);
        printed = testing::internal::GetCapturedStdout();
        return result;
    }

    void expectFailure(const CResult& result, const std::string& summary) {
        EXPECT_EQ(result.getRunStatus(), EXEC_FAILURE);
        EXPECT_EQ(result.getRunSummary(), summary);
    }

    void expectSuccess(const CResult& result, const std::string& summary) {
        EXPECT_EQ(result.getRunStatus(), EXEC_SUCCESS);
        EXPECT_EQ(result.getRunSummary(), summary);
    }

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
    Set set;
    std::string printed;
};
