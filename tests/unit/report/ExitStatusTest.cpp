#include <gtest/gtest.h>

#include "ExitStatus.h"

namespace {

int statusOf(std::initializer_list<Cause> causes, bool interrupted = false) {
    std::vector<NodeOutcome> outcomes;
    for (const Cause cause : causes) {
        outcomes.emplace_back();
        outcomes.back().cause = cause;
    }
    return exitStatusOf(outcomes, interrupted);
}

TEST(ExitStatus, IsZeroOnlyWhereEveryNodeIsOk) {
    EXPECT_EQ(0, statusOf({}));
    EXPECT_EQ(0, statusOf({Cause::kOk, Cause::kOk}));
    EXPECT_EQ(3, statusOf({Cause::kOk, Cause::kUnreachable, Cause::kOk}));
}

TEST(ExitStatus, GoesByPrecedenceAndNotByOrder) {
    EXPECT_EQ(2, statusOf({Cause::kUnreachable, Cause::kTimedOut, Cause::kRefused, Cause::kFailed,
                           Cause::kOk}));
    EXPECT_EQ(1, statusOf({Cause::kUnreachable, Cause::kTimedOut, Cause::kRefused}));
    EXPECT_EQ(1, statusOf({Cause::kTimedOut, Cause::kWrongMachine}));
    EXPECT_EQ(1, statusOf({Cause::kNotStarted, Cause::kRunning}));
    EXPECT_EQ(5, statusOf({Cause::kUnreachable, Cause::kTimedOut}));
    EXPECT_EQ(5, statusOf({Cause::kRunning, Cause::kUnreachable}));
}

TEST(ExitStatus, OfACancelledCommandIs130WhateverElseOccurred) {
    EXPECT_EQ(130, statusOf({Cause::kFailed, Cause::kCancelled}, true));
    EXPECT_EQ(130, statusOf({Cause::kOk}, true));
}

}  // namespace
