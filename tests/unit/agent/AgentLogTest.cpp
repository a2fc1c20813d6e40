#include <fstream>
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

// Each run of digits becomes one 9.
std::string withoutNumbers(const std::string& text) {
    std::string masked;
    for (const char c : text) {
        const bool isDigit = c >= '0' && c <= '9';
        if (!isDigit) {
            masked += c;
        } else if (masked.empty() || masked.back() != '9') {
            masked += '9';
        }
    }
    return masked;
}

}  // namespace

TEST(AgentLog, EntryIsOneStampedLine) {
    TempDir directory;
    AgentLog log;
    ASSERT_EQ("", log.open(directory.file("log")));
    log.info("first");
    log.warning("second\nforged");
    log.error("third");
    const std::string lines = withoutNumbers(read(directory.file("log")));
    const std::string stamp = "9-9-9T9:9:9.9Z kelnode[9]: ";
    EXPECT_EQ(stamp + "first\n" + stamp + "warning second\\x9aforged\n" + stamp + "error third\n",
              lines);
}

TEST(AgentLog, FileThatCannotBeOpenedLeavesTheOldOne) {
    TempDir directory;
    AgentLog log;
    ASSERT_EQ("", log.open(directory.file("log")));
    EXPECT_NE(log.open(directory.file("no/such/log")).find("No such file"), std::string::npos);
    log.info("still here");
    EXPECT_NE(read(directory.file("log")).find("still here"), std::string::npos);
}
