#include <arpa/inet.h>
#include <csignal>
#include <fstream>
#include <iterator>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CUtil.h"
#include "TempDir.h"
#include "TestPaths.h"
#include "UniqueFd.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

std::string readFile(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

class LocalCluster : public testing::Test {
protected:
    void TearDown() override {
        if (CUtil::isFileExisted(dir + "/cluster")) {
            EXPECT_EQ(0, cluster("stop")) << output;
        }
    }

    int cluster(const std::string& arguments) {
        output.clear();
        return CUtil::exec_cmd(KELSH_SOURCE_DIR "/scripts/local-cluster --dir " + dir + " " +
                                   arguments + " </dev/null",
                               &output, &output);
    }

    // Starts nodes on addresses that nobody else on this machine uses; tests of other build
    // directories may run at the same time.
    void start(int nodes, const std::string& options = "") {
        int status = 1;
        for (int i = 0; i < 20 && status != 0; ++i) {
            subnet = 20 + (static_cast<int>(::getpid()) + i * 11) % 200;
            status = cluster("start --nodes " + std::to_string(nodes) + " --subnet 127." +
                             std::to_string(subnet) + " --build " KELSH_BINARY_DIR + options);
            if (status != 0 && output.find("is taken by another program") == std::string::npos) {
                break;
            }
        }
        ASSERT_EQ(0, status) << output;
    }

    pid_t pidOf(const std::string& node) {
        std::ifstream file(dir + "/nodes/" + node + "/pid");
        pid_t pid = 0;
        file >> pid;
        return pid;
    }

    // The process is gone, or only its entry waits for whoever adopted it.
    static bool isGone(pid_t pid) {
        const std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
        return stat.empty() || stat.find(") Z ") != std::string::npos;
    }

    static bool waitUntilGone(pid_t pid) {
        for (int i = 0; i < 500 && !isGone(pid); ++i) {
            CUtil::sleep(20);
        }
        return isGone(pid);
    }

    std::string ip(int node) const {
        return "127." + std::to_string(subnet) + ".0." + std::to_string(node + 1);
    }

    TempDir directory;
    std::string dir = directory.file("cluster");
    std::string output;
    int subnet = 0;
};

TEST_F(LocalCluster, StartsAgentsWithAllThatTheyAndTheShellNeed) {
    start(3);
    EXPECT_THAT(output, StartsWith("3 agents listen on " + ip(0) + " to " + ip(2)));
    for (const char* node : {"node_0000", "node_0001", "node_0002"}) {
        EXPECT_FALSE(isGone(pidOf(node))) << node;
    }
    EXPECT_EQ(0, cluster("status"));
    EXPECT_THAT(output, StartsWith("3 of 3 agents run"));

    char mac[32];
    std::snprintf(mac, sizeof(mac), "02:00:7F:%02X:00:02", static_cast<unsigned>(subnet));
    EXPECT_THAT(readFile(dir + "/kelsh/node.cfg"),
                HasSubstr("node_0001=" + std::string(mac) + "," + ip(1) + ":4422\n"));
    EXPECT_THAT(readFile(dir + "/nodes/node_0001/kelnode.cfg"),
                HasSubstr("MAC_ADDRESS=" + std::string(mac) + "\n"));
    EXPECT_THAT(readFile(dir + "/kelsh/node.cfg"),
                EndsWith("rack_00=node_0000,node_0001,node_0002\nall=rack_00\n"));
    for (const char* file :
         {"kelsh/cmd.cfg", "kelsh/ssl_master.cfg", "kelsh/log4cxx.properties",
          "kelsh/kelsh_version.cfg", "kelsh/cmdexedump", "nodes/node_0000/tools/sysreport.enc"}) {
        EXPECT_TRUE(CUtil::isFileExisted(dir + "/" + file)) << file;
    }
    struct stat info {};
    ASSERT_EQ(0, ::stat((dir + "/kelsh/ssl/master.key").c_str(), &info));
    EXPECT_EQ(0600u, info.st_mode & 0777);
}

TEST_F(LocalCluster, StopsExactlyWhatItStarted) {
    start(3);
    // A number that was ours once and belongs to somebody else now.
    const pid_t stranger = ::getpid();
    const pid_t orphan = pidOf("node_0002");
    ASSERT_EQ(0, ::kill(orphan, SIGKILL));
    ASSERT_TRUE(waitUntilGone(orphan));
    const std::string pidFile = dir + "/nodes/node_0002/pid";
    std::string record = readFile(pidFile);
    record.replace(0, record.find(' '), std::to_string(stranger));
    std::ofstream(pidFile) << record;
    const pid_t first = pidOf("node_0000");
    EXPECT_EQ(0, cluster("stop")) << output;
    EXPECT_TRUE(isGone(first));
    EXPECT_EQ(1, cluster("status"));
    EXPECT_THAT(output, StartsWith("0 of 3 agents run"));
}

TEST_F(LocalCluster, StopsAnAgentThatSomebodySuspended) {
    start(1);
    const pid_t agent = pidOf("node_0000");
    ASSERT_EQ(0, ::kill(agent, SIGSTOP));
    EXPECT_EQ(0, cluster("stop")) << output;
    EXPECT_TRUE(isGone(agent));
}

TEST_F(LocalCluster, StartsAgainWhatIsDownAndLeavesTheRest) {
    start(2);
    const pid_t first = pidOf("node_0000");
    const pid_t killed = pidOf("node_0001");
    ASSERT_EQ(0, ::kill(killed, SIGKILL));
    ASSERT_TRUE(waitUntilGone(killed));
    EXPECT_EQ(1, cluster("status"));
    EXPECT_THAT(output, StartsWith("1 of 2 agents run"));
    const std::string key = readFile(dir + "/nodes/node_0001/node.key");
    EXPECT_EQ(0, cluster("start --build " KELSH_BINARY_DIR)) << output;
    EXPECT_EQ(first, pidOf("node_0000"));
    EXPECT_FALSE(isGone(pidOf("node_0001")));
    EXPECT_EQ(key, readFile(dir + "/nodes/node_0001/node.key"));
    EXPECT_EQ(1, cluster("start --build " KELSH_BINARY_DIR));
    EXPECT_THAT(output, HasSubstr("runs already"));
}

TEST_F(LocalCluster, SaysWhoseAddressIsTaken) {
    const UniqueFd listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    ASSERT_EQ(1, ::inet_pton(AF_INET, "127.240.0.2", &address.sin_addr));
    ASSERT_EQ(0, ::bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)));
    ASSERT_EQ(0, ::listen(listener.get(), 1));
    socklen_t length = sizeof(address);
    ASSERT_EQ(0, ::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &length));
    EXPECT_EQ(1, cluster("start --nodes 3 --subnet 127.240 --build " KELSH_BINARY_DIR " --port " +
                         std::to_string(ntohs(address.sin_port))));
    EXPECT_THAT(output, HasSubstr("of 127.240.0.2 is taken by another program"));
    EXPECT_FALSE(CUtil::isFileExisted(dir));
}

TEST_F(LocalCluster, ShowsWhyAnAgentDoesNotStartAndStopsTheOthers) {
    start(2);
    EXPECT_EQ(0, cluster("stop"));
    std::ofstream(dir + "/nodes/node_0001/node.crt") << "no certificate\n";
    EXPECT_EQ(1, cluster("start --build " KELSH_BINARY_DIR));
    EXPECT_THAT(output, HasSubstr("agent node_0001 did not start: "));
    EXPECT_THAT(output, HasSubstr("node.crt"));
    EXPECT_EQ(1, cluster("status"));
    EXPECT_THAT(output, StartsWith("0 of 2 agents run"));
}

TEST_F(LocalCluster, WritesTheInterfaceThatItIsGivenAndNoneOtherwise) {
    const auto run = [&] {
        return CUtil::exec_cmd("KELSH_PATH=" + dir +
                                   "/kelsh " KELSH_BINARY_DIR
                                   "/bin/kelsh run -n node_0000 -- true </dev/null",
                               &output, &output);
    };
    start(1);
    EXPECT_FALSE(CUtil::isFileExisted(dir + "/kelsh/kelsh.cfg"));
    EXPECT_EQ(2, run()) << output;
    EXPECT_EQ(0, cluster("stop"));
    dir += "-modern";
    start(1, " --interface modern");
    EXPECT_EQ("INTERFACE=modern\n", readFile(dir + "/kelsh/kelsh.cfg"));
    EXPECT_EQ(0, run()) << output;
}

TEST_F(LocalCluster, TouchesNoDirectoryOfSomebodyElse) {
    ASSERT_EQ(0, ::mkdir(dir.c_str(), 0700));
    std::ofstream(dir + "/precious") << "x";
    EXPECT_EQ(1, cluster("start --nodes 1 --subnet 127.241 --build " KELSH_BINARY_DIR));
    EXPECT_THAT(output, HasSubstr("is no local cluster"));
    EXPECT_EQ("x", readFile(dir + "/precious"));
    EXPECT_EQ(1, cluster("stop"));
    EXPECT_THAT(output, HasSubstr("holds no local cluster"));
}

TEST_F(LocalCluster, ExplainsWrongUsageWithStatusTwo) {
    for (const char* arguments :
         {"", "start", "start --nodes 0", "start --nodes x", "start stop", "start --nodes",
          "start --nodes 1 --subnet 10.0", "start --nodes 1 --port 0", "restart", "--colour",
          "start --nodes 1 --interface new"}) {
        EXPECT_EQ(2, cluster(std::string(arguments) + " --build " KELSH_BINARY_DIR)) << arguments;
        EXPECT_THAT(output, HasSubstr("Usage: local-cluster")) << arguments;
    }
}

}  // namespace
