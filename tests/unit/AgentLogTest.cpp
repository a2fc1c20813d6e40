#include <fstream>
#include <regex>
#include <sstream>

#include <gtest/gtest.h>

#include "AgentLog.h"
#include "TempDir.h"

namespace {

std::string read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream content;
    content << file.rdbuf();
    return content.str();
}

}  // namespace

TEST(AgentLog, EscapesWhatCouldForgeALine) {
    EXPECT_EQ(AgentLog::escape("plain text, 100%"), "plain text, 100%");
    EXPECT_EQ(AgentLog::escape("a\nb\rc\td"), "a\\nb\\rc\\td");
    EXPECT_EQ(AgentLog::escape("say \"hi\" \\"), "say \\\"hi\\\" \\\\");
    EXPECT_EQ(AgentLog::escape(std::string("\x1b[31m\0\x7f\xc3\xbc", 9)),
              "\\x1b[31m\\x00\\x7f\\xc3\\xbc");
}

TEST(AgentLog, LongTextIsCutAndCounted) {
    EXPECT_EQ(AgentLog::escape(std::string(10, 'x'), 4), "xxxx...(6 more bytes)");
    EXPECT_EQ(AgentLog::escape(std::string(4, 'x'), 4), "xxxx");
}

TEST(AgentLog, EntryIsOneStampedLine) {
    TempDir directory;
    AgentLog log;
    ASSERT_EQ(log.open(directory.file("log")), "");
    log.info("first");
    log.warning("second\nforged");
    log.error("third");
    const std::string stamp = R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z kelnode\[\d+\]: )";
    EXPECT_TRUE(
        std::regex_match(read(directory.file("log")),
                         std::regex(stamp + "first\n" + stamp + R"(warning second\\x0aforged)" +
                                    "\n" + stamp + "error third\n")))
        << read(directory.file("log"));
}

TEST(AgentLog, FileThatCannotBeOpenedLeavesTheOldOne) {
    TempDir directory;
    AgentLog log;
    ASSERT_EQ(log.open(directory.file("log")), "");
    EXPECT_NE(log.open(directory.file("no/such/log")).find("No such file"), std::string::npos);
    log.info("still here");
    EXPECT_NE(read(directory.file("log")).find("still here"), std::string::npos);
}
