// An agent whose files others could change does not start; whose keys they could read, says so.

#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "CUtil.h"
#include "LocalAgent.h"

namespace {

class AgentFiles : public testing::Test {
protected:
    static void setMode(const std::string& path, mode_t mode) {
        ASSERT_EQ(0, ::chmod(path.c_str(), mode)) << path;
    }
    void stop() {
        agent.signal(SIGTERM);
        ASSERT_TRUE(agent.waitForExit());
    }
    // What the agent says when it refuses to start; empty when it does start.
    std::string refusal() {
        try {
            agent.start();
        } catch (const std::runtime_error& refused) {
            agent.waitForExit();
            return refused.what();
        }
        return "";
    }
    int check(std::string& output) const {
        return CUtil::exec_cmd(
            "KELNODE_PATH=" + agent.nodePath() + " " + KELSH_BINARY_DIR + "/bin/kelnode --check",
            &output, &output);
    }
    void allow() {
        agent.configuration().settings["ALLOW_LOOSE_FILES"] = "yes";
        agent.writeConfiguration();
    }
    std::string node(const std::string& name) const { return agent.nodePath() + name; }

    LocalAgent agent;
};

}  // namespace

TEST_F(AgentFiles, AgentRefusesToStartOnAnyFileThatOthersCanWrite) {
    stop();
    std::ofstream(node("authz.cfg")) << "CN=firmware\n";
    std::ofstream(node("crl.pem")) << "none";
    std::ofstream(node("tools/driver.ko")) << "x";
    for (const char* const name : {"kelnode.cfg", "authz.cfg", "ca.crt", "node.crt", "node.key",
                                   "toolkey", "crl.pem", "maskkey", "tools/driver.ko"}) {
        struct stat before {};
        ASSERT_EQ(0, ::stat(node(name).c_str(), &before)) << name;
        setMode(node(name), 0666);
        const std::string said = refusal();
        EXPECT_NE(std::string::npos, said.find(node(name) +
                                               " can be written by others (mode 0666"
                                               "): chmod go-w " +
                                               node(name)))
            << said;
        EXPECT_NE(std::string::npos, said.find("so it does not start")) << said;
        std::string output;
        EXPECT_EQ(1, check(output)) << name;
        EXPECT_NE(std::string::npos, output.find("chmod go-w " + node(name))) << output;
        setMode(node(name), before.st_mode & 07777U);
    }
    std::filesystem::remove(node("crl.pem"));
    std::filesystem::remove(node("authz.cfg"));
    EXPECT_EQ("", refusal());
}

TEST_F(AgentFiles, AgentRefusesToStartInDirectoriesThatOthersCanWrite) {
    stop();
    const std::string above = std::filesystem::path(agent.nodePath()).parent_path().parent_path();
    for (const std::string& directory : {agent.nodePath(), node("tools"), node("run"), above}) {
        const auto before = std::filesystem::status(directory).permissions();
        setMode(directory, 0777);
        EXPECT_NE("", refusal()) << directory;
        std::filesystem::permissions(directory, before);
    }
    // As /tmp is: nobody can replace what belongs to others there. But new files could be planted.
    setMode(above, 01777);
    EXPECT_EQ("", refusal());
    stop();
    setMode(agent.nodePath(), 01777);
    EXPECT_NE("", refusal());
}

TEST_F(AgentFiles, AgentRefusesFilesOfSomebodyElse) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    stop();
    ASSERT_EQ(0, ::chown(node("kelnode.cfg").c_str(), 65534, 0));
    const std::string said = refusal();
    EXPECT_NE(std::string::npos, said.find("chown root " + node("kelnode.cfg"))) << said;
}

TEST_F(AgentFiles, LooseFilesCanBeExcusedAndAreNamedAllTheSame) {
    stop();
    setMode(node("ca.crt"), 0666);
    allow();
    EXPECT_EQ("", refusal());
    EXPECT_NE(std::string::npos, agent.log().find("chmod go-w " + node("ca.crt"))) << agent.log();
    EXPECT_NE(std::string::npos, agent.log().find("are used all the same")) << agent.log();
    std::string output;
    EXPECT_EQ(0, check(output)) << output;
    EXPECT_NE(std::string::npos, output.find("note: " + node("ca.crt"))) << output;
}

// Whoever can write the configuration could write the excuse too.
TEST_F(AgentFiles, ConfigurationThatOthersCanWriteDoesNotExcuseItself) {
    stop();
    allow();
    setMode(node("kelnode.cfg"), 0666);
    EXPECT_NE("", refusal());
    agent.configuration().environment["KELNODE_ALLOW_LOOSE_FILES"] = "yes";
    EXPECT_EQ("", refusal());
    EXPECT_NE(std::string::npos, agent.log().find("are used all the same")) << agent.log();
}

TEST_F(AgentFiles, ReloadRefusesWhatOthersCanWrite) {
    setMode(node("ca.crt"), 0666);
    agent.signal(SIGHUP);
    ASSERT_TRUE(agent.waitForLog("the old configuration stays in force")) << agent.log();
    EXPECT_NE(std::string::npos, agent.log().find("reload: " + node("ca.crt"))) << agent.log();
    EXPECT_NE(std::string::npos, agent.log().find("chmod go-w " + node("ca.crt"))) << agent.log();
    setMode(node("ca.crt"), 0644);
    agent.signal(SIGHUP);
    EXPECT_TRUE(agent.waitForLog("read anew")) << agent.log();
}

TEST_F(AgentFiles, CheckShowsATableOfWhatIsOpen) {
    std::string output;
    EXPECT_EQ(0, check(output)) << output;
    const std::string crl = "  crl.pem of the authority as " + node("crl.pem") + "\n";
    EXPECT_NE(std::string::npos, output.find("revoked certificates are accepted")) << output;
    EXPECT_NE(std::string::npos, output.find(crl)) << output;
    EXPECT_NE(std::string::npos, output.find("  AUDIT_FILE=<file> in kelnode.cfg\n")) << output;
    EXPECT_NE(std::string::npos, output.find("every master may do everything")) << output;
    EXPECT_EQ(std::string::npos, output.find("LISTEN=")) << output;
    agent.configuration().settings["LISTEN"] = "0.0.0.0:4422";
    agent.configuration().settings["AUDIT_FILE"] = "audit.log";
    agent.writeConfiguration();
    std::ofstream(node("authz.cfg")) << "master=firmware\n";
    setMode(node("ca.crt"), 0666);
    EXPECT_EQ(1, check(output)) << output;
    EXPECT_NE(std::string::npos, output.find("  LISTEN=<address>:4422 in kelnode.cfg")) << output;
    EXPECT_NE(std::string::npos, output.find("  chmod go-w " + node("ca.crt") + "\n")) << output;
    EXPECT_EQ(std::string::npos, output.find("AUDIT_FILE=")) << output;
    EXPECT_EQ(std::string::npos, output.find("every master may")) << output;
}

TEST_F(AgentFiles, KeyThatOthersCanOnlyReadIsAWarningAndFailsTheCheck) {
    stop();
    setMode(node("node.key"), 0644);
    EXPECT_EQ("", refusal());
    const std::string wanted = "the key " + node("node.key") +
                               " can be read by others (mode 0644): chmod go= " + node("node.key");
    EXPECT_NE(std::string::npos, agent.log().find("warning " + wanted)) << agent.log();
    std::string output;
    EXPECT_EQ(1, check(output));
    EXPECT_NE(std::string::npos, output.find(wanted)) << output;
    setMode(node("node.key"), 0600);
    EXPECT_EQ(0, check(output)) << output;
}
