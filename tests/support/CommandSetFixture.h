#pragma once

#include <string>

#include <gtest/gtest.h>

#include "CNode.h"
#include "CResult.h"

// A built-in set, run as the shell runs it: a typed line for one node. The fixture that derives
// from it says which node.
template <class Set>
class CommandSetFixture : public ::testing::Test {
protected:
    // The node that the lines are for; stays the fixture's.
    virtual CNode* target() = 0;

    // Runs the line and keeps what was printed on the console.
    CResult execute(const std::string& line, unsigned int timeOutMs = 30000) {
        CResult result;
        testing::internal::CaptureStdout();
        set.execute(line, target(), result, timeOutMs);
        printed = testing::internal::GetCapturedStdout();
        return result;
    }

    static void expectFailure(const CResult& result, const std::string& summary) {
        expectOutcome(result, EXEC_FAILURE, summary);
    }

    static void expectSuccess(const CResult& result, const std::string& summary) {
        expectOutcome(result, EXEC_SUCCESS, summary);
    }

    Set set;
    std::string printed;

private:
    static void expectOutcome(const CResult& result, EXEC_STATUS_ENUM status,
                              const std::string& summary) {
        EXPECT_EQ(status, result.getRunStatus());
        EXPECT_EQ(summary, result.getRunSummary());
    }
};
