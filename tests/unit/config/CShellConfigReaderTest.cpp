#include <arpa/inet.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CSSLConfig.h"
#include "CShellCommandSet.h"
#include "CShellConfigReader.h"
#include "CShellExecutionContext.h"
#include "ConfigErrorCollector.h"
#include "ConfigFiles.h"
#include "TempDir.h"
#include "TextStream.h"
#include "UniqueFd.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// A port on the loopback address on which nothing listens: bound, so that nobody else takes it.
class ClosedPort {
public:
    ClosedPort() : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(0, ::bind(socket.get(), generic, length));
        EXPECT_EQ(0, ::getsockname(socket.get(), generic, &length));
        port = ntohs(address.sin_port);
    }
    std::string text() const { return std::to_string(port); }

private:
    UniqueFd socket;
    int port = 0;
};

class CShellConfigReaderTest : public testing::Test {
protected:
    void SetUp() override { forgetSslSettings(); }
    void TearDown() override { forgetSslSettings(); }

    static void forgetSslSettings() {
        CSSLConfig::getInstance()->setPrivateKeyFile("");
        const CSSLConfig discardsTheInstance;
    }

    void readSsl(const std::string& text) {
        const TextStream stream(text);
        CShellConfigReader::readSslConfig(stream.get(), &errors);
    }

    std::list<std::string> messages() const {
        std::list<std::string> texts;
        for (const ConfigError* error : errors.getErrorList()) {
            texts.push_back(error->toString());
        }
        return texts;
    }

    static std::string unreadable(const std::string& file) {
        return "Can not open file \"" + file +
               "\"! Please make sure that it exists and can be read.";
    }
    static std::string unreadableSsl(const std::string& file) {
        return "Can not open file \"" + file +
               "\" for SSL configuration! Please make sure that it exists and can be read.";
    }

    TempDir dir;
    ConfigErrorCollector errors;
    CShellExecutionContext context;
};

}  // namespace

TEST_F(CShellConfigReaderTest, CutsLongSslLines) {
    const std::string name(511 - sizeof "CERTIFICATE_FILE=" + 1, 'x');
    readSsl("CERTIFICATE_FILE=" + name + "rest\n");
    EXPECT_EQ(name, CSSLConfig::getInstance()->getCertificateFile());
    EXPECT_THAT(messages(), ElementsAre("Unknown setting for SSL configuration: rest"));
}

TEST_F(CShellConfigReaderTest, ReportsAMissingSslFile) {
    const std::string file = dir.file("ssl");
    CShellConfigReader::readSslConfig(file.c_str(), &errors);
    EXPECT_THAT(messages(), ElementsAre(unreadableSsl(file)));
    errors.clear();
    CShellConfigReader::readSslConfig(dir.path().c_str(), &errors);
    EXPECT_THAT(messages(), ElementsAre(unreadableSsl(dir.path())));
}

TEST_F(CShellConfigReaderTest, ReadsTheSslFile) {
    writeFile(dir.file("ssl"), "CERTIFICATE_FILE=/c");
    CShellConfigReader::readSslConfig(dir.file("ssl").c_str(), &errors);
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_EQ("/c", CSSLConfig::getInstance()->getCertificateFile());
}

TEST_F(CShellConfigReaderTest, ReportsAMissingNodeFile) {
    const std::string file = dir.file("nodes");
    CShellConfigReader::readNodeConfig(file.c_str(), context, &errors);
    EXPECT_THAT(messages(), ElementsAre(unreadable(file)));
    EXPECT_EQ(1, errors.getSize(CONFIG_ERROR));
}

TEST_F(CShellConfigReaderTest, ReportsADirectoryInPlaceOfTheNodeFile) {
    CShellConfigReader::readNodeConfig(dir.path().c_str(), context, &errors);
    EXPECT_THAT(messages(), ElementsAre(unreadable(dir.path())));
}

TEST_F(CShellConfigReaderTest, ReportsFilesThatBreakOff) {
    // Reading this process's memory from its start fails, after a successful open.
    CShellConfigReader::readNodeConfig("/proc/self/mem", context, &errors);
    CShellConfigReader::readCmdConfig("/proc/self/mem", context, &errors);
    CShellConfigReader::readSslConfig("/proc/self/mem", &errors);
    EXPECT_THAT(messages(), ElementsAre(unreadable("/proc/self/mem"), unreadable("/proc/self/mem"),
                                        unreadableSsl("/proc/self/mem")));
}

TEST_F(CShellConfigReaderTest, KeepsANodeWhoseAgentDoesNotListen) {
    const ClosedPort closed;
    writeFile(dir.file("nodes"),
              "[node]\nn1=02:00:00:00:00:01,127.0.0.1:" + closed.text() + "\n[group]\ng=n1\n");
    CShellConfigReader::readNodeConfig(dir.file("nodes").c_str(), context, &errors);
    EXPECT_THAT(messages(),
                ElementsAre("Line:2, Can not connect to n1. (127.0.0.1:" + closed.text() + ")"));
    EXPECT_EQ(1, errors.getSize(CONFIG_WARNING));
    EXPECT_EQ(1U, context.getNodeMap().count("n1"));
    EXPECT_EQ(1U, context.getNodeGroupList().size());
}

TEST_F(CShellConfigReaderTest, DoesNotMissTheCommandFile) {
    CShellConfigReader::readCmdConfig(dir.file("cmd").c_str(), context, &errors);
    CShellConfigReader::readCmdConfig(dir.path().c_str(), context, &errors);
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(CShellConfigReaderTest, ReadsAllFilesAndReportsTheSslFileLast) {
    writeFile(dir.file("nodes"), "bad node\n[group]\nempty=\n");
    writeFile(dir.file("cmds"),
              "[cmdset]\nname=a/\ndescription=d\n[cmdset]\nname=b\ndescription=d\n");
    writeFile(dir.file("ssl"), "CERTIFICATE_FILE=/c\nbad\n");
    context.setNodeCfgFileName(dir.file("nodes"));
    context.setCmdCfgFileName(dir.file("cmds"));
    context.setSslCfgFileName(dir.file("ssl"));
    CShellConfigReader::readConfig(context, &errors);
    EXPECT_THAT(messages(),
                ElementsAre("Line:1, Invalid line position: bad node",
                            "Line:2, Invalid command set name definition for [CmdSet]: a/",
                            "Unknown setting for SSL configuration: bad"));
    EXPECT_EQ("/c", CSSLConfig::getInstance()->getCertificateFile());
    EXPECT_EQ(1U, context.getNodeGroupList().size());
    ASSERT_EQ(1U, context.getRootCommandSetList().size());
}

TEST_F(CShellConfigReaderTest, MissesTheNodeAndTheSslFileButNotTheCommandFile) {
    context.setNodeCfgFileName(dir.file("nodes"));
    context.setCmdCfgFileName(dir.file("cmds"));
    context.setSslCfgFileName(dir.file("ssl"));
    CShellConfigReader::readConfig(context, &errors);
    EXPECT_THAT(messages(),
                ElementsAre(unreadable(dir.file("nodes")), unreadableSsl(dir.file("ssl"))));
    EXPECT_EQ(2, errors.getSize(CONFIG_ERROR));
}

TEST_F(CShellConfigReaderTest, ResolvesTheParentsOfASet) {
    auto* a = new CShellCommandSet("a", "d");
    auto* b = new CShellCommandSet("b", "d");
    a->addChildCommand(b);
    context.addCommandSet(a);
    std::string name = "a/b/c";
    EXPECT_EQ(b, CShellConfigReader::checkParentCommandSet(3, &name, context, &errors));
    EXPECT_EQ("c", name);
    name = "top";
    EXPECT_EQ(nullptr, CShellConfigReader::checkParentCommandSet(3, &name, context, &errors));
    EXPECT_EQ("top", name);
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(CShellConfigReaderTest, ReportsTheFirstParentThatIsMissing) {
    auto* a = new CShellCommandSet("a", "d");
    context.addCommandSet(a);
    for (const char* path : {"x/c", "a/x/c", "/c", "a//c", "A/c"}) {
        std::string name = path;
        EXPECT_EQ(nullptr, CShellConfigReader::checkParentCommandSet(7, &name, context, &errors));
    }
    EXPECT_THAT(messages(), ElementsAre("Line:7, Command set \"x\" does not exist!",
                                        "Line:7, Command set \"x\" does not exist!",
                                        "Line:7, Command set \"\" does not exist!",
                                        "Line:7, Command set \"\" does not exist!",
                                        "Line:7, Command set \"A\" does not exist!"));
}
