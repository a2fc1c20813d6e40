#include <fstream>

#include <gtest/gtest.h>

#include "AgentConfig.h"
#include "TempDir.h"

namespace {

class AgentConfigFile : public testing::Test {
protected:
    AgentConfig load(const std::string& content) {
        std::ofstream(directory.file("kelnode.cfg"), std::ios::binary) << content;
        faults.clear();
        return AgentConfig::load(directory.path(), faults);
    }
    std::string onlyFault() const {
        return faults.size() == 1 ? std::to_string(faults.front().line) + ": " + faults.front().text
                                  : std::to_string(faults.size()) + " faults";
    }

    TempDir directory;
    std::vector<ConfigFault> faults;
};

}  // namespace

TEST_F(AgentConfigFile, EmptyFileGivesTheDefaults) {
    const AgentConfig config = load("");
    EXPECT_TRUE(faults.empty());
    EXPECT_EQ(directory.path() + "/", config.getNodePath());
    EXPECT_EQ("0.0.0.0", config.listen.host);
    EXPECT_EQ(4422U, config.listen.port);
    EXPECT_EQ(config.certificateFile, directory.file("node.crt"));
    EXPECT_EQ(config.privateKeyFile, directory.file("node.key"));
    EXPECT_EQ(config.caFile, directory.file("ca.crt"));
    EXPECT_EQ(1024U, config.maxSessions);
    EXPECT_EQ(256U, config.sessionsPerCertificate);
    EXPECT_EQ(512U, config.sessionsPerSource);
    EXPECT_EQ("", config.macAddress);
    EXPECT_EQ("", config.logFile);
    EXPECT_EQ("", config.auditFile);
    EXPECT_FALSE(config.allowsLooseFiles);
    EXPECT_FALSE(config.allowsUnconfined);
}

TEST_F(AgentConfigFile, SettingsAreTaken) {
    const AgentConfig config = load(
        "# a comment\n\nLISTEN=127.0.0.1:0\nCERTIFICATE_FILE=/etc/c.pem\nPRIVATE_KEY_FILE=k.pem\n"
        "CA_FILE=sub/ca.pem\nMAC_ADDRESS=aa:bb:cc:00:11:22\nTOOLS_KEY_FILE=key\n"
        "MAX_SESSIONS=7\nSESSIONS_PER_CERTIFICATE=5\nSESSIONS_PER_SOURCE=6\nLOG_FILE=a=b."
        "log\nAUDIT_FILE=/var/audit.log\nALLOW_LOOSE_FILES=yes\nALLOW_UNCONFINED=yes\n");
    EXPECT_TRUE(faults.empty()) << onlyFault();
    EXPECT_EQ("127.0.0.1", config.listen.host);
    EXPECT_EQ(0U, config.listen.port);
    EXPECT_EQ("/etc/c.pem", config.certificateFile);
    EXPECT_EQ(config.privateKeyFile, directory.file("k.pem"));
    EXPECT_EQ(config.caFile, directory.file("sub/ca.pem"));
    EXPECT_EQ("AA:BB:CC:00:11:22", config.macAddress);
    EXPECT_EQ(config.toolsKeyFile, directory.file("key"));
    EXPECT_EQ(7U, config.maxSessions);
    EXPECT_EQ(5U, config.sessionsPerCertificate);
    EXPECT_EQ(6U, config.sessionsPerSource);
    EXPECT_EQ(config.logFile, directory.file("a=b.log"));
    EXPECT_EQ("/var/audit.log", config.auditFile);
    EXPECT_TRUE(config.allowsLooseFiles);
    EXPECT_TRUE(config.allowsUnconfined);
}

TEST_F(AgentConfigFile, CertificateWithoutKeySettingHoldsTheKey) {
    EXPECT_EQ("", load("CERTIFICATE_FILE=both.pem\n").privateKeyFile);
}

TEST_F(AgentConfigFile, EveryFaultHasItsLine) {
    load(
        "LISTEN=nowhere\n# fine\nCOLOUR=red\nno equals sign\nMAX_SESSIONS=0\nCA_FILE=\n"
        "MAC_ADDRESS=aa-bb\nMAX_SESSIONS=5\nLOG_FILE=a\nLOG_FILE=b\r\nALLOW_LOOSE_FILES=YES\n");
    std::vector<int> lines;
    for (const ConfigFault& fault : faults) {
        EXPECT_FALSE(fault.text.empty());
        lines.push_back(fault.line);
    }
    EXPECT_EQ((std::vector<int>{1, 3, 4, 5, 6, 7, 8, 10, 11}), lines);
}

TEST_F(AgentConfigFile, MissingFileIsAFaultOfNoLine) {
    AgentConfig::load(directory.path() + "/missing", faults);
    ASSERT_EQ(1U, faults.size());
    EXPECT_EQ(0, faults.front().line);
    EXPECT_EQ("kelnode.cfg: cannot be opened: No such file or directory",
              faults.front().describe("kelnode.cfg"));
}

TEST_F(AgentConfigFile, LineOf511CharactersIsTheLongest) {
    const std::string name(511 - std::string("LOG_FILE=").size() - 1, 'x');
    EXPECT_EQ(load("LOG_FILE=" + name + "\nMAX_SESSIONS=3\n").logFile, directory.file(name));
    EXPECT_TRUE(faults.empty());
    const AgentConfig config = load("LOG_FILE=" + name + "xyCA_FILE=z\nMAX_SESSIONS=3\n");
    EXPECT_EQ(1U, faults.size());
    EXPECT_EQ("", config.logFile);
    EXPECT_EQ(3U, config.maxSessions);
}

TEST_F(AgentConfigFile, BinaryContentIsOnlyFaults) {
    load(std::string("\x7f\x45LF\0\0\1\2=\xff\n\0\n=\n", 16));
    EXPECT_FALSE(faults.empty());
}

TEST(AgentConfigListen, AddressesAndPorts) {
    ListenAddress address;
    EXPECT_EQ("", parseListenAddress("10.1.2.3:65535", address));
    EXPECT_EQ("10.1.2.3", address.host);
    EXPECT_EQ(65535U, address.port);
    EXPECT_EQ("", parseListenAddress("[::1]:4422", address));
    EXPECT_EQ("::1", address.host);
    for (const char* bad :
         {"", ":", "1.2.3.4", "1.2.3.4:", "1.2.3.4:65536", "1.2.3.4:-1", "1.2.3.4:1x", "::1:4422",
          "host:1", "[]:1", "[1.2.3.4]:1", "1.2.3.4:99999999999999999999"}) {
        EXPECT_NE(parseListenAddress(bad, address), "") << bad;
    }
}
