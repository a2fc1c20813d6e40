#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "CNode.h"
#include "CResult.h"
#include "ClassicResults.h"
#include "ShellLogging.h"
#include "TempDir.h"

namespace {

class ClassicResultsTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::ofstream(directory.file("log4cxx.properties"))
            << "log4j.rootLogger=OFF\n"
               "log4j.logger.cmdresult=INFO, CMD_RESULT_FILE\nlog4j.additivity.cmdresult=false\n"
               "log4j.appender.CMD_RESULT_FILE=org.apache.log4j.FileAppender\n"
               "log4j.appender.CMD_RESULT_FILE.File="
            << directory.file("start.log")
            << "\nlog4j.appender.CMD_RESULT_FILE.layout=org.apache.log4j.PatternLayout\n"
               "log4j.appender.CMD_RESULT_FILE.layout.ConversionPattern=%m%n\n";
        log.configure(directory.file("log4cxx.properties"));
        log.pointResultsAt(directory.file("dump.log"));
        result.setRunSummary("red \x1b[31m\r\nnext\x07");
    }
    std::string dumped() const {
        std::ifstream file(directory.file("dump.log"));
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    TempDir directory;
    ShellLogging log;
    ClassicResults results{log};
    CResult result;
};

}  // namespace

TEST_F(ClassicResultsTest, DumpShowsTheControlCharactersOfANodeAndThePipeGetsThem) {
    ::testing::internal::CaptureStdout();
    results.node(CNode("n1", "", ""), result);
    EXPECT_EQ("[n1] (0ms)\nred \x1b[31m\r\nnext\x07\n", ::testing::internal::GetCapturedStdout());
    EXPECT_EQ("[n1] (0ms)\nred \\x1b[31m\r\nnext\\x07\n", dumped());
}

TEST_F(ClassicResultsTest, TextOfThisMachineStaysAsItIs) {
    result.setRunStatus(EXEC_FAILURE);
    result.setExitCode(3);
    ::testing::internal::CaptureStdout();
    results.local(result);
    const std::string block =
        "[local] (0ms)\nExitCode:2/3[FAILURE], summary: red \x1b[31m\r\nnext\x07\n";
    EXPECT_EQ(block, ::testing::internal::GetCapturedStdout());
    EXPECT_EQ(block, dumped());
}
