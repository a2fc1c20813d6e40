// What the dump file and the log hold after a command.
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Observed.h"
#include "ResultBlocks.h"
#include "ShellFixture.h"

namespace {

using ::testing::HasSubstr;

void outcome(CResult& result, int status, int exitCode, const std::string& summary) {
    result.setRunStatus(status);
    result.setExitCode(exitCode);
    result.setRunSummary(summary);
}

std::string statusName(int status) {
    CResult result;
    result.setRunStatus(status);
    return result.getStatusEnumString();
}

class DumpFiles : public EngineFixture {
protected:
    void SetUp() override {
        ShellFixture::SetUp();
        std::filesystem::create_directory(home.file("cmdexedump"));
        put("log4cxx.properties",
            "log4j.rootLogger=OFF\n"
            "log4j.logger.kelsh=INFO, K\nlog4j.additivity.kelsh=false\n"
            "log4j.appender.K=org.apache.log4j.FileAppender\n"
            "log4j.appender.K.File=" +
                home.file("kelsh.log") +
                "\nlog4j.appender.K.layout=org.apache.log4j.PatternLayout\n"
                "log4j.appender.K.layout.ConversionPattern=%p %m%n\n"
                "log4j.logger.cmdresult=INFO, CMD_RESULT_FILE\n"
                "log4j.additivity.cmdresult=false\n"
                "log4j.appender.CMD_RESULT_FILE=org.apache.log4j.FileAppender\n"
                "log4j.appender.CMD_RESULT_FILE.File=" +
                home.file("cmdexedump/start.log") +
                "\nlog4j.appender.CMD_RESULT_FILE.layout=org.apache.log4j.PatternLayout\n"
                "log4j.appender.CMD_RESULT_FILE.layout.ConversionPattern=%p %m%n\n");
        useShell(std::make_unique<CShell>());
        // Configures logging and reads the (empty) configuration of the directory.
        CShellExecutionContext scratch;
        std::list<std::string> none;
        printedBy([&] { ASSERT_TRUE(shell->init(none, scratch)); });
    }
};

TEST_F(DumpFiles, DumpFileIsNamedByTheCurrentNumber) {
    addNodes(2);
    EXPECT_EQ(0, execute("there -n n1,n2"));
    EXPECT_EQ(
        "INFO [n1] (ms)\nthere on n1\n"
        "INFO [n2] (ms)\nthere on n2\n",
        withoutTimes(content("cmdexedump/cmd_0.log")));
    put("cmdseq.cfg", "17");
    EXPECT_EQ(17u, shell->getNextCmdSeq());
    set->behaviour = [](const ScriptedSet::Call&, CResult& result) {
        outcome(result, 2, 9, "bad");
    };
    execute("here");
    EXPECT_EQ("INFO [local] (ms)\nExitCode:2/9[" + statusName(2) + "], summary: bad\n",
              withoutTimes(content("cmdexedump/cmd_17.log")));
}

TEST_F(DumpFiles, DeletionsLeaveTheirTraces) {
    addNodes(2);
    execute("there -n n1,n2");
    std::string traces;
    for (const char* name : {"n1", "n2"}) {
        for (const char* what :
             {"[Delete CResult for ", "[Before delete thread for ", "[Delete thread for "}) {
            traces += std::string("INFO ") + what + name + "]\n";
        }
    }
    EXPECT_THAT(content("kelsh.log"), HasSubstr(traces));
}

}  // namespace
