#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CNode.h"
#include "CShellConfigReader.h"
#include "CShellExecutionContext.h"
#include "ConfigErrorCollector.h"
#include "ConfigFiles.h"
#include "NodeConfigFile.h"
#include "TempDir.h"
#include "TextStream.h"

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

// Works as an ordinary user for the life of the object, so that permissions count.
class OrdinaryUser {
public:
    OrdinaryUser() : privileged(::geteuid() == 0 && ::seteuid(65534) == 0) {}
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;
    ~OrdinaryUser() {
        if (privileged && ::seteuid(0) != 0) {
            std::abort();
        }
    }

private:
    bool privileged;
};

// Lets no file grow beyond the size given for the life of the object.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : handler(std::signal(SIGXFSZ, SIG_IGN)) {
        EXPECT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &before));
        const struct rlimit limit { bytes, before.rlim_max };
        EXPECT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &limit));
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit() {
        EXPECT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &before));
        EXPECT_NE(SIG_ERR, std::signal(SIGXFSZ, handler));
    }

private:
    struct rlimit before {};
    void (*handler)(int);
};

class NodeConfigWriterTest : public testing::Test {
protected:
    NodeConfigWriterTest() : file(dir.file("node.cfg")) { context.setNodeCfgFileName(file); }

    std::string add(const std::string& before) {
        writeFile(file, before);
        printed = addTo();
        return readFile(file);
    }

    std::string correct(const std::string& before) {
        writeFile(file, before);
        CaptureStdout();
        CShellConfigReader::correctNodeConfig(context, &node);
        printed = GetCapturedStdout();
        return readFile(file);
    }

    std::string addTo() {
        CaptureStdout();
        CShellConfigReader::addNodeIntoConfig(context, &node);
        return GetCapturedStdout();
    }

    std::string added() const { return "Add a new node:10.0.0.9 in " + file + "\n"; }
    bool copyIsGone() const { return !std::filesystem::exists(file + ".tmp"); }

    TempDir dir;
    std::string file;
    CShellExecutionContext context;
    CNode node{"n9", "02:00:00:00:00:09", "10.0.0.9", 4444};
    std::string line = "n9=02:00:00:00:00:09,10.0.0.9:4444\n";
    std::string printed;
};

}  // namespace

TEST_F(NodeConfigWriterTest, AddsTheNodeBeforeTheGroups) {
    EXPECT_EQ("# top\n[node]\nn1=m,10.0.0.1:1\n" + line + "[group]\ng=n1\n",
              add("# top\n[node]\nn1=m,10.0.0.1:1\n[group]\ng=n1\n"));
    EXPECT_EQ(printed, added());
    EXPECT_TRUE(copyIsGone());
}

TEST_F(NodeConfigWriterTest, AddsTheNodeAtTheEndWithoutGroups) {
    EXPECT_EQ("[node]\nn1=m,10.0.0.1:1\n" + line, add("[node]\nn1=m,10.0.0.1:1\n"));
    EXPECT_EQ(printed, added());
}

TEST_F(NodeConfigWriterTest, AddsTheNodeOnceBeforeTheFirstGroupsBehindANodeSection) {
    EXPECT_EQ("[group]\n[node]\n" + line + "[group]\na=\n[node]\n[group]\nb=\n",
              add("[group]\n[node]\n[group]\na=\n[node]\n[group]\nb=\n"));
}

TEST_F(NodeConfigWriterTest, AddsTheNodeAtTheEndWhereTheGroupsStandBefore) {
    EXPECT_EQ("[group]\ng=\n[node]\nn1=m,10.0.0.1:1\n" + line,
              add("[group]\ng=\n[node]\nn1=m,10.0.0.1:1\n"));
}

TEST_F(NodeConfigWriterTest, EndsALastLineWithoutNewline) {
    EXPECT_EQ("[node]\nn1=m,10.0.0.1:1\n" + line, add("[node]\nn1=m,10.0.0.1:1"));
}

TEST_F(NodeConfigWriterTest, WritesAHeaderWhereThereIsNone) {
    EXPECT_EQ("[node]\n" + line, add(""));
    EXPECT_EQ("# nothing\n[group]\ng=\n[node]\n" + line, add("# nothing\n[group]\ng=\n"));
}

TEST_F(NodeConfigWriterTest, DoesNotSeeAHeaderOnALastLineWithoutNewline) {
    EXPECT_EQ("[node]\n[node]\n" + line, add("[node]"));
    EXPECT_EQ("[node]\n[group]\n" + line, add("[node]\n[group]"));
}

TEST_F(NodeConfigWriterTest, WritesWhatTheReaderReads) {
    const TextStream stream(add("[group]\n# none\n"));
    ConfigErrorCollector errors;
    NodeConfigFile(context, &errors, [](const CNode&) {
        return NodeAgentAnswer{true, ""};
    }).read(stream.get());
    EXPECT_EQ("", errors.toString());
    ASSERT_EQ(1U, context.getNodeMap().count("n9"));
    const CNode* read = context.getNodeMap()["n9"];
    EXPECT_EQ(node.getMac(), read->getMac());
    EXPECT_EQ(node.getIp(), read->getIp());
    EXPECT_EQ(node.getPort(), read->getPort());
}

TEST_F(NodeConfigWriterTest, LeavesAFileAloneThatHoldsTheAddressAndTheMac) {
    const std::string text = "# 10.0.0.9\n[node]\nn9=02:00:00:00:00:09,10.0.0.9:1\n[group]\r\nx";
    writeFile(file, text);
    struct stat before {};
    ASSERT_EQ(0, ::stat(file.c_str(), &before));
    EXPECT_EQ("", addTo());
    struct stat after {};
    ASSERT_EQ(0, ::stat(file.c_str(), &after));
    EXPECT_EQ(text, readFile(file));
    EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(NodeConfigWriterTest, CorrectsTheMacOfAnAddressThatIsThere) {
    EXPECT_EQ("[node]\nn9=02:00:00:00:00:09,10.0.0.9:1\n",
              add("[node]\nn9=02:00:00:FF:FF:FF,10.0.0.9:1\n"));
    EXPECT_EQ("", printed);
    EXPECT_TRUE(copyIsGone());
}

TEST_F(NodeConfigWriterTest, AddsNoSecondLineForAnAddressOfAnotherNode) {
    const std::string text = "[node]\nother=02:00:00:FF:FF:FF,10.0.0.9:1\n";
    EXPECT_EQ(text, add(text));
    EXPECT_EQ("", printed);
}

TEST_F(NodeConfigWriterTest, OverlooksAddressesInComments) {
    EXPECT_EQ("# 10.0.0.9\n[node]\n" + line, add("# 10.0.0.9\n[node]\n"));
}

TEST_F(NodeConfigWriterTest, CorrectsOnlyLinesWithNameAndAddress) {
    EXPECT_EQ(
        "[node]\nn1=02:00:00:FF:FF:FF,10.0.0.1:1\nn9=02:00:00:00:00:09,10.0.0.9:7\n"
        "n9=02:00:00:FF:FF:FF,10.0.0.8:1\n[group]\ng=n9\n",
        correct("[node]\nn1=02:00:00:FF:FF:FF,10.0.0.1:1\nn9=02:00:00:FF:FF:FF,10.0.0.9:7\n"
                "n9=02:00:00:FF:FF:FF,10.0.0.8:1\n[group]\ng=n9\n"));
    EXPECT_EQ("", printed);
}

TEST_F(NodeConfigWriterTest, CorrectsALastLineWithoutNewline) {
    EXPECT_EQ("n9=02:00:00:00:00:09,10.0.0.9:7", correct("n9=02:00:00:FF:FF:FF,10.0.0.9:7"));
}

TEST_F(NodeConfigWriterTest, NeverOverwritesTheEndOfALine) {
    EXPECT_EQ("10.0.0.9 n9=02:00:00:00:00:09\nn1=x\n", correct("10.0.0.9 n9=1\nn1=x\n"));
    EXPECT_EQ("10.0.0.9 n9\n", correct("10.0.0.9 n9\n"));
}

TEST_F(NodeConfigWriterTest, KeepsEveryByteOfTheOtherLines) {
    std::string noise = "\r\n\n# \xff\n";
    noise += std::string("a\0b", 3);
    noise += "\n" + std::string(1500, 'x') + "\n";
    EXPECT_EQ("[node]\n" + noise + line + "[group]\n" + noise,
              add("[node]\n" + noise + "[group]\n" + noise));
    EXPECT_EQ(noise, correct(noise));
}

TEST_F(NodeConfigWriterTest, KeepsTheMode) {
    writeFile(file, "[node]\n");
    ASSERT_EQ(0, ::chmod(file.c_str(), 0640));
    EXPECT_EQ(added(), addTo());
    struct stat status {};
    ASSERT_EQ(0, ::stat(file.c_str(), &status));
    EXPECT_EQ(0640U, status.st_mode & 07777U);
}

TEST_F(NodeConfigWriterTest, ReportsAMissingFile) {
    EXPECT_EQ("Fail to open: " + file + "\n", addTo());
    CaptureStdout();
    CShellConfigReader::correctNodeConfig(context, &node);
    EXPECT_EQ("Fail to open: " + file + "\n", GetCapturedStdout());
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_TRUE(copyIsGone());
}

TEST_F(NodeConfigWriterTest, ReportsAnUnreadableFile) {
    writeFile(file, "[node]\n");
    ASSERT_EQ(0, ::chmod(file.c_str(), 0));
    ASSERT_EQ(0, ::chmod(dir.path().c_str(), 0777));
    const OrdinaryUser user;
    EXPECT_EQ("Fail to open: " + file + "\n", addTo());
}

TEST_F(NodeConfigWriterTest, LeavesTheFileInAReadOnlyDirectory) {
    writeFile(file, "[node]\n");
    ASSERT_EQ(0, ::chmod(dir.path().c_str(), 0555));
    {
        const OrdinaryUser user;
        EXPECT_EQ("Fail to open: " + file + ".tmp\n", addTo());
    }
    ASSERT_EQ(0, ::chmod(dir.path().c_str(), 0755));
    EXPECT_EQ("[node]\n", readFile(file));
}

TEST_F(NodeConfigWriterTest, LeavesTheFileWhereTheCopyCanNotBeMade) {
    ASSERT_TRUE(std::filesystem::create_directory(file + ".tmp"));
    EXPECT_EQ("[node]\n", add("[node]\n"));
    EXPECT_EQ("Fail to open: " + file + ".tmp\n", printed);
    EXPECT_EQ("n9=1,10.0.0.9\n", correct("n9=1,10.0.0.9\n"));
    EXPECT_EQ("Fail to open: " + file + ".tmp\n", printed);
}

TEST_F(NodeConfigWriterTest, ReplacesALeftoverCopyWithoutFollowingIt) {
    const std::string victim = dir.file("victim");
    writeFile(victim, "precious");
    std::filesystem::create_symlink(victim, file + ".tmp");
    EXPECT_EQ("[node]\n" + line, add("[node]\n"));
    EXPECT_EQ("precious", readFile(victim));
}

TEST_F(NodeConfigWriterTest, LeavesTheFileWhenTheDiskIsFull) {
    const std::string text = "[node]\n# " + std::string(20000, 'x') + "\n";
    writeFile(file, text);
    {
        const FileSizeLimit limit(8192);
        printed = addTo();
    }
    EXPECT_EQ("Fail to write: " + file + ".tmp\n", printed);
    EXPECT_EQ(text, readFile(file));
    EXPECT_TRUE(copyIsGone());
}

TEST_F(NodeConfigWriterTest, LooksForNameAndAddressAnywhereInALine) {
    // The text n9 is in n99 and 10.0.0.9 in 10.0.0.99, so that line's MAC is what gets corrected.
    EXPECT_EQ("[node]\nn99=02:00:00:00:00:09,10.0.0.99:1\n[group]\n",
              add("[node]\nn99=02:00:00:FF:FF:FF,10.0.0.99:1\n[group]\n"));
    for (const char* other :
         {"[node]\nx=02:00:00:00:00:99,10.0.0.99:1\n", "[node]\nx=02:00:00:00:00:09,10.0.0.9:1"}) {
        EXPECT_EQ(other, add(other));
        EXPECT_EQ("", printed);
    }
}

TEST_F(NodeConfigWriterTest, CorrectsNoCommentLine) {
    EXPECT_EQ("# n9 stands at 10.0.0.9\nn9=02:00:00:00:00:09,10.0.0.9:1 #x\n",
              correct("# n9 stands at 10.0.0.9\nn9=02:00:00:FF:FF:FF,10.0.0.9:1 #x\n"));
}
