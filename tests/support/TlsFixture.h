#pragma once

#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CException.h"
#include "FakeNode.h"
#include "SSLClient.h"
#include "TempDir.h"
#include "TestPki.h"

// A certificate authority, a master and a node with good certificates, in a directory of the test's
// own.
class TlsFixture : public testing::Test {
protected:
    static TlsFiles filesOf(const TestPki::Identity& identity);
    SSLClient clientOf(const FakeNodeAgent& agent);

    // The text of the CException the action throws; fails the test when it throws none.
    template <typename Action>
    static std::string errorOf(Action action) {
        try {
            action();
        } catch (const CException& error) {
            return error.getErrMsg();
        }
        ADD_FAILURE() << "nothing was thrown";
        return std::string();
    }

    static std::string readFile(const std::string& path);
    static void writeFile(const std::string& path, const std::string& content);

    // Waits until the condition holds, at most 20 s.
    template <typename Condition>
    static bool eventually(Condition condition) {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > limit) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }

    TempDir directory;
    TestPki pki{directory.file("pki")};
    TestPki::Identity master = pki.master();
    TestPki::Identity node = pki.node();
};

// Whether the text holds all the parts.
MATCHER_P(MentionsAll, parts, "") {
    for (const std::string& part : parts) {
        if (arg.find(part) == std::string::npos) {
            *result_listener << "without \"" << part << "\"";
            return false;
        }
    }
    return true;
}

std::vector<std::string> parts(std::vector<std::string> texts);
