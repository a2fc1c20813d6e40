#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sys/stat.h>

#include <gtest/gtest.h>
#include <log4cxx/level.h>
#include <log4cxx/logger.h>
#include <log4cxx/logmanager.h>

#include "ShellLogging.h"
#include "TempDir.h"

namespace {

// Of this process, so far.
long writeCalls() {
    std::ifstream counts("/proc/self/io");
    std::string name;
    long count = 0;
    while (counts >> name >> count) {
        if (name == "syscw:") {
            return count;
        }
    }
    return -1;
}

class ShellLoggingTest : public ::testing::Test {
protected:
    void SetUp() override {
        // What an earlier test of this process has configured is undone.
        log4cxx::LogManager::resetConfiguration();
        log4cxx::Logger::getRootLogger()->setLevel(log4cxx::Level::getOff());
    }
    void configure(const std::string& more = "") {
        std::ofstream(directory.file("log4cxx.properties"))
            << "log4j.rootLogger=OFF\n"
               "log4j.logger.kelsh=INFO, K\nlog4j.additivity.kelsh=false\n"
               "log4j.appender.K=org.apache.log4j.FileAppender\n"
               "log4j.appender.K.File="
            << directory.file("kelsh.log")
            << "\nlog4j.appender.K.layout=org.apache.log4j.PatternLayout\n"
               "log4j.appender.K.layout.ConversionPattern=%p %m%n\n"
               "log4j.logger.cmdresult=INFO, CMD_RESULT_FILE\n"
               "log4j.additivity.cmdresult=false\n"
               "log4j.appender.CMD_RESULT_FILE=org.apache.log4j.FileAppender\n"
               "log4j.appender.CMD_RESULT_FILE.File="
            << directory.file("start.log")
            << "\nlog4j.appender.CMD_RESULT_FILE.layout=org.apache.log4j.PatternLayout\n"
               "log4j.appender.CMD_RESULT_FILE.layout.ConversionPattern=%m%n\n"
            << more;
        log.configure(directory.file("log4cxx.properties"));
    }
    std::string content(const std::string& name) const {
        std::ifstream file(directory.file(name));
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    TempDir directory;
    ShellLogging log;
};

}  // namespace

TEST_F(ShellLoggingTest, UnconfiguredItWritesNothingAndReadsNoFileOfTheWorkingDirectory) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(directory.path());
    std::ofstream("log4j.properties") << "log4j.rootLogger=DEBUG, F\n"
                                         "log4j.appender.F=org.apache.log4j.FileAppender\n"
                                         "log4j.appender.F.File=trap.log\n"
                                         "log4j.appender.F.layout=org.apache.log4j.SimpleLayout\n";
    ::testing::internal::CaptureStderr();
    log.info("hello");
    log.result("result");
    log.pointResultsAt(directory.file("dump.log"));
    EXPECT_EQ("", ::testing::internal::GetCapturedStderr());
    EXPECT_FALSE(std::filesystem::exists(directory.file("trap.log")));
    EXPECT_FALSE(std::filesystem::exists(directory.file("dump.log")));
    std::filesystem::current_path(before);
}

TEST_F(ShellLoggingTest, EachCommandHasItsOwnDumpFile) {
    configure();
    log.pointResultsAt(directory.file("dump/cmd_1.log"));
    log.result("[n1] (3ms)\nfirst");
    log.pointResultsAt(directory.file("dump/cmd_2.log"));
    log.result("second");
    log.info("line");
    log.warn("odd");
    EXPECT_EQ("[n1] (3ms)\nfirst\n", content("dump/cmd_1.log"));
    EXPECT_EQ("second\n", content("dump/cmd_2.log"));
    EXPECT_EQ("INFO line\nWARN odd\n", content("kelsh.log"));
}

TEST_F(ShellLoggingTest, DumpsHoldTheBytesUnchanged) {
    configure();
    log.pointResultsAt(directory.file("cmd_1.log"));
    const std::string bytes("gr\xc3\xbc\xff\x1b[2J\0z", 12);
    log.result(bytes);
    EXPECT_EQ(bytes + "\n", content("cmd_1.log"));
}

TEST_F(ShellLoggingTest, LongBlockIsWrittenWhole) {
    configure();
    log.pointResultsAt(directory.file("cmd_1.log"));
    std::string block;
    while (block.size() < 3U * 1024 * 1024) {
        block += std::to_string(block.size()) + '\n';
    }
    log.result(block);
    log.result("next");
    EXPECT_TRUE(block + "\nnext\n" == content("cmd_1.log"));
}

TEST_F(ShellLoggingTest, LongBlockTakesOneCallToWrite) {
    configure();
    log.pointResultsAt(directory.file("cmd_1.log"));
    const std::string block(1024 * 1024, 'x');
    const long before = writeCalls();
    log.result(block);
    EXPECT_GE(5, writeCalls() - before);
    EXPECT_EQ(block.size() + 1, content("cmd_1.log").size());
}

TEST_F(ShellLoggingTest, AnotherEncodingIsKept) {
    configure("log4j.appender.CMD_RESULT_FILE.Encoding=US-ASCII\n");
    log.pointResultsAt(directory.file("cmd_1.log"));
    log.result("gr\xc3\xbcn");
    EXPECT_EQ("gr?n\n", content("cmd_1.log"));
}

TEST_F(ShellLoggingTest, FullDiskIsToldOnceAndHarmsNothing) {
    configure();
    ::testing::internal::CaptureStderr();
    log.pointResultsAt("/dev/full");
    EXPECT_NO_THROW(log.result("lost"));
    EXPECT_NO_THROW(log.result(std::string(100000, 'x')));
    log.pointResultsAt(directory.file("cmd_2.log"));
    log.result("kept");
    log.pointResultsAt("/dev/full");
    EXPECT_NO_THROW(log.result("lost"));
    const std::string told = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ("kept\n", content("cmd_2.log"));
    const std::regex line(
        "kelsh: the log \"cmdresult\" is incomplete: [^\n]*No space left[^\n]*\n");
    EXPECT_EQ(2, std::distance(std::sregex_iterator(told.begin(), told.end(), line), {})) << told;
}

TEST_F(ShellLoggingTest, FullDiskUnderTheShellsLogHarmsNothing) {
    configure("log4j.appender.K.File=/dev/full\n");
    log.pointResultsAt(directory.file("cmd_1.log"));
    ::testing::internal::CaptureStderr();
    EXPECT_NO_THROW(log.info("line"));
    EXPECT_NO_THROW(log.warn("line"));
    log.result("kept");
    const std::string told = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ("kept\n", content("cmd_1.log"));
    EXPECT_EQ(0U, told.find("kelsh: the log \"kelsh\" is incomplete: ")) << told;
    EXPECT_EQ(1, std::count(told.begin(), told.end(), '\n')) << told;
}

TEST_F(ShellLoggingTest, FilesAreForTheirOwnerOnly) {
    const mode_t before = ::umask(022);
    configure();
    log.pointResultsAt(directory.file("cmd_1.log"));
    log.result("secret");
    for (const char* name : {"cmd_1.log", "kelsh.log"}) {
        struct stat status {};
        ASSERT_EQ(0, ::stat(directory.file(name).c_str(), &status)) << name;
        EXPECT_EQ(0600U, status.st_mode & 0777U) << name;
    }
    EXPECT_EQ(022U, ::umask(before));
}

TEST_F(ShellLoggingTest, DumpThatCannotBeWrittenHarmsNothing) {
    configure();
    std::ofstream(directory.file("blocked")) << "x";
    ::testing::internal::CaptureStderr();
    log.pointResultsAt(directory.file("blocked/cmd_1.log"));
    log.result("lost");
    log.pointResultsAt(directory.file("cmd_2.log"));
    log.result("kept");
    ::testing::internal::GetCapturedStderr();
    EXPECT_EQ("kept\n", content("cmd_2.log"));
}

TEST_F(ShellLoggingTest, AppenderOfAnotherKindIsLeftAlone) {
    configure("log4j.appender.CMD_RESULT_FILE=org.apache.log4j.ConsoleAppender\n");
    log.pointResultsAt(directory.file("cmd_1.log"));
    EXPECT_FALSE(std::filesystem::exists(directory.file("cmd_1.log")));
}

TEST_F(ShellLoggingTest, MissingPropertiesLeaveItSilent) {
    ::testing::internal::CaptureStderr();
    log.configure(directory.file("missing.properties"));
    log.info("hello");
    ::testing::internal::GetCapturedStderr();
    EXPECT_FALSE(std::filesystem::exists(directory.file("kelsh.log")));
}
