#include <gtest/gtest.h>

#include "CResult.h"

TEST(CResult, StartsEmptyAndSuccessful) {
    const CResult result;
    EXPECT_EQ(0, result.getRunStatus());
    EXPECT_EQ(0, result.getExitCode());
    EXPECT_EQ(0L, result.getRunTime());
    EXPECT_EQ("", result.getRunSummary());
    EXPECT_EQ("", result.getExitOutput());
    EXPECT_EQ("SUCCESS", result.getStatusEnumString());
}

TEST(CResult, KeepsWhatIsSet) {
    CResult result;
    result.setRunStatus(EXEC_FAILURE);
    result.setExitCode(139);
    result.setRunTime(123456789012L);
    result.setRunSummary("summary\n");
    result.setExitOutput(std::string("raw\0bytes", 9));
    EXPECT_EQ(EXEC_FAILURE, result.getRunStatus());
    EXPECT_EQ(139, result.getExitCode());
    EXPECT_EQ(123456789012L, result.getRunTime());
    EXPECT_EQ("summary\n", result.getRunSummary());
    EXPECT_EQ(std::string("raw\0bytes", 9), result.getExitOutput());
}

TEST(CResult, TakesAStatusAsANumber) {
    CResult result;
    result.setRunStatus(5);
    EXPECT_EQ(EXEC_TIMED_OUT, result.getRunStatus());
}

TEST(CResult, NumbersAreThoseOfTheExitStatus) {
    EXPECT_EQ(0, EXEC_SUCCESS);
    EXPECT_EQ(1, EXEC_REJECTED);
    EXPECT_EQ(2, EXEC_FAILURE);
    EXPECT_EQ(5, EXEC_TIMED_OUT);
}

TEST(CResult, NamesEveryStatusDifferently) {
    CResult result;
    std::string names;
    for (const int status : {0, 1, 2, 5}) {
        result.setRunStatus(status);
        const std::string name = "[" + result.getStatusEnumString() + "]";
        EXPECT_EQ(std::string::npos, names.find(name));
        names += name;
    }
    EXPECT_EQ("[SUCCESS][REJECTED][FAILURE][TIMED_OUT]", names);
    result.setRunStatus(99);
    EXPECT_EQ("UNKNOWN", result.getStatusEnumString());
}

TEST(CResult, AssignmentCopiesAllFields) {
    CResult first;
    first.setRunStatus(1);
    first.setExitCode(2);
    first.setRunTime(3);
    first.setRunSummary("four");
    first.setExitOutput("five");
    CResult second;
    second = first;
    first.setRunSummary("changed");
    EXPECT_EQ(EXEC_REJECTED, second.getRunStatus());
    EXPECT_EQ(2, second.getExitCode());
    EXPECT_EQ(3L, second.getRunTime());
    EXPECT_EQ("four", second.getRunSummary());
    EXPECT_EQ("five", second.getExitOutput());
}

TEST(CResult, SummaryIsThereWithoutACopy) {
    CResult result;
    EXPECT_EQ("", result.summary());
    result.setRunSummary("text");
    const std::string& seen = result.summary();
    EXPECT_EQ("text", seen);
    EXPECT_EQ(&seen, &result.summary());
    EXPECT_EQ(seen, result.getRunSummary());
}
