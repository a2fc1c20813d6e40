#include <string>

#include <gtest/gtest.h>

#include "CResult.h"
#include "CShellCommandSet_Node.h"
#include "CommandChecklist.h"
#include "ToolDirectory.h"

namespace {

constexpr char kMac[] = "00:11:22:33:44:55";
constexpr char kOneName[] = "The slave node name.";
constexpr char kOneMac[] = "The slave node MAC address.";
constexpr char kOneIp[] = "The slave node IP address.";
constexpr char kOneImage[] = "The image file for the slave node.";

ExpectedCommand row(const std::string& name, const std::string& description,
                    const std::vector<ExpectedOption>& options, unsigned int timeOutMs) {
    return {name, description, BUILTIN_OPT, MASTER, options, timeOutMs, NO, "", {}};
}

TEST(CShellCommandSet_Node, HoldsItsCommands) {
    CShellCommandSet_Node set;
    EXPECT_EQ("node", set.getCommandSetName());
    EXPECT_EQ("Commands for node management.", set.getDescription());
    expectCommands(
        set,
        {row("add nodes", "add new slave nodes configuration on Perceus.",
             {{"c", "counts", true, true, "The slave node number."},
              {"h", "hostname", true, true, "The slave node names."},
              {"m", "mac", true, true, "The slave node MAC addresses."},
              {"i", "ip", false, true, "The slave node IP addresses."},
              {"I", "image", true, true, "The image file for the slave nodes."}},
             90000),
         row("add nodes from file", "add new slave nodes configuration from list file on Perceus.",
             {{"f", "listfile", true, true, "The list file of slave nodes."}}, 90000),
         row("add node and deploy",
             "add a new slave node configuration on Perceus and wait till slave deploy.",
             {{"t1", "timeout1", true, true, "The timeout of DHCP"},
              {"t2", "timeout2", true, true, "The timeout of deploy"},
              {"h", "hostname", true, true, kOneName},
              {"m", "mac", true, true, kOneMac},
              {"i", "ip", false, true, kOneIp},
              {"I", "image", true, true, kOneImage}},
             600000),
         row("add node", "add a new slave node configuration on Perceus.",
             {{"h", "hostname", true, true, kOneName},
              {"m", "mac", true, true, kOneMac},
              {"i", "ip", false, true, kOneIp},
              {"I", "image", true, true, kOneImage}},
             30000),
         row("del node", "delete a slave node configuration on Perceus.",
             {{"h", "hostname", true, true, "The list file of slave nodes."}}, 30000),
         row("list node status", "get slave node status",
             {{"h", "hostname", false, true, kOneName},
              {"a", "all", false, false, "show status of all nodes"}},
             30000)});
}

// The scripts stand in a directory of the test's own; each records its arguments.
class NodeSet : public testing::Test {
protected:
    NodeSet() {
        for (const char* name :
             {"add_perceus_slave_node.sh", "add_perceus_slave_node_and_deploy.sh",
              "add_perceus_slave_nodes.sh", "delete_perceus_slave_node.sh",
              "list_perceus_slave_node_status.sh"}) {
            scripts.add(name, "echo said; echo complained >&2; exit 3");
        }
    }

    // What was printed on the console meanwhile stands in printed.
    CResult run(const std::string& line) {
        CResult result;
        testing::internal::CaptureStdout();
        set.execute(line, nullptr, result, 30000);
        printed = testing::internal::GetCapturedStdout();
        return result;
    }

    void expectRefused(const std::string& line, const std::string& message) {
        const std::string before = scripts.calls();
        const CResult result = run(line);
        EXPECT_EQ(EXEC_FAILURE, result.getRunStatus()) << line;
        EXPECT_EQ(message + "\n", printed) << line;
        EXPECT_EQ(before, scripts.calls()) << "a script ran for " << line;
    }

    ToolDirectory scripts;
    CShellCommandSet_Node set{scripts.path() + "/"};
    std::string printed;
};

TEST_F(NodeSet, AddsANode) {
    run("add node -h node01 -m " + std::string(kMac) + " -i 192.168.1.9 -I img");
    EXPECT_EQ("add_perceus_slave_node.sh [node01] [00:11:22:33:44:55] [192.168.1.9] [img]\n",
              scripts.calls());
    EXPECT_EQ("", printed);
}

TEST_F(NodeSet, TakesTheOptionsInAnyOrder) {
    run("add node -I img -i 192.168.1.9 -m " + std::string(kMac) + " -h node01");
    EXPECT_EQ("add_perceus_slave_node.sh [node01] [00:11:22:33:44:55] [192.168.1.9] [img]\n",
              scripts.calls());
}

TEST_F(NodeSet, LeavesTwoBlanksWhereTheAddressIsMissing) {
    const std::string tail = "-h node01 -m " + std::string(kMac) + " -I img";
    run("add node and deploy -t1 10 -t2 20 " + tail);
    EXPECT_EQ(printed, scripts.path() +
                           "/add_perceus_slave_node_and_deploy.sh node01 00:11:22:33:44:55  img 10 "
                           "20\n");
    EXPECT_EQ("add_perceus_slave_node_and_deploy.sh [node01] [00:11:22:33:44:55] [img] [10] [20]\n",
              scripts.calls());
}

TEST_F(NodeSet, AddsANodeAndWaitsForIt) {
    run("add node and deploy -t1 60 -t2 600 -h node01 -m " + std::string(kMac) +
        " -i 10.0.0.1 -I img");
    EXPECT_EQ(
        "add_perceus_slave_node_and_deploy.sh [node01] [00:11:22:33:44:55] [10.0.0.1] [img] "
        "[60] [600]\n",
        scripts.calls());
    EXPECT_EQ(printed, scripts.path() +
                           "/add_perceus_slave_node_and_deploy.sh node01 00:11:22:33:44:55 "
                           "10.0.0.1 img 60 600\n");
}

TEST_F(NodeSet, RecordsTheScriptsOutcomeWithRunStatusZero) {
    const CResult result = run("add node -h node01 -m " + std::string(kMac) + " -I img");
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ(3, result.getExitCode());
    EXPECT_EQ("said\ncomplained\n", result.getExitOutput());
    EXPECT_EQ("said\ncomplained\n", result.getRunSummary());
}

TEST_F(NodeSet, AddsManyNodes) {
    const std::string options =
        "-c 2 -h node[01-02] -m 00:11:22:33:44:55,00:11:22:33:44:56 -i 10.0.0.1,10.0.0.2 -I img";
    run("add nodes " + options);
    EXPECT_EQ(
        "add_perceus_slave_nodes.sh [-c] [2] [-h] [node[01-02]] [-m] "
        "[00:11:22:33:44:55,00:11:22:33:44:56] [-i] [10.0.0.1,10.0.0.2] [-I] [img]\n",
        scripts.calls());
}

TEST_F(NodeSet, AddsNodesFromAFile) {
    run("add nodes from file -f /srv/nodes.list");
    EXPECT_EQ("add_perceus_slave_nodes.sh [-f] [/srv/nodes.list]\n", scripts.calls());
}

TEST_F(NodeSet, DeletesANodeAndShowsTheLine) {
    run("del node -h node01");
    EXPECT_EQ("delete_perceus_slave_node.sh [node01]\n", scripts.calls());
    EXPECT_EQ(scripts.path() + "/delete_perceus_slave_node.sh node01\n", printed);
}

TEST_F(NodeSet, ListsTheStatusOfOneOrAllNodes) {
    run("list node status");
    run("list node status -a");
    run("list node status -h node01");
    EXPECT_EQ(
        "list_perceus_slave_node_status.sh [-a]\nlist_perceus_slave_node_status.sh [-a]\n"
        "list_perceus_slave_node_status.sh [node01]\n",
        scripts.calls());
}

TEST_F(NodeSet, DoesNotFindValuesOfLongNames) {
    expectRefused("add node --hostname node01 -m " + std::string(kMac) + " -I img",
                  "Invalid hostname format!! ");
}

TEST_F(NodeSet, RefusesBadHostNames) {
    const std::string tail = " -m " + std::string(kMac) + " -I img";
    for (const std::string& host :
         {std::string(".node"), std::string("node."), std::string(64, 'a'),
          std::string("n\xc3\xb6"), std::string("no_de"), std::string("a..b")}) {
        expectRefused("add node -h " + host + tail, "Invalid hostname format!! " + host);
    }
    run("add node -h NODE01" + tail);
    EXPECT_NE(scripts.calls().find("[NODE01]"), std::string::npos);
}

TEST_F(NodeSet, RefusesBadMacs) {
    for (const char* mac : {"00-11-22-33-44-55", "00:11:22:33:44", "00:11:22:33:44:55:66",
                            "00:11:22:33:44:5", "00:11:22:33:44:5g"}) {
        expectRefused("add node -h n -m " + std::string(mac) + " -I img",
                      "Invalid MAC format!! " + std::string(mac));
    }
}

TEST_F(NodeSet, RefusesBadAddresses) {
    for (const char* ip : {"256.0.0.1", "01.2.3.4", "1.2.3", "1.2.3.4.5", "fe80::1"}) {
        expectRefused("add node -h n -m " + std::string(kMac) + " -i " + ip + " -I img",
                      "Invalid IP format!! " + std::string(ip));
    }
}

TEST_F(NodeSet, RefusesBadRangesListsAndCounts) {
    const auto line = [](const std::string& count, const std::string& hosts,
                         const std::string& macs, const std::string& ips) {
        return "add nodes -c " + count + " -h " + hosts + " -m " + macs + " -i " + ips + " -I img";
    };
    expectRefused(line("2", "node[02-01]", kMac, "10.0.0.1"),
                  "Invalid hostname format!! node[02-01]");
    expectRefused(line("2", "node[01-", kMac, "10.0.0.1"), "Invalid hostname format!! node[01-");
    expectRefused(line("2", "n[[1]]", kMac, "10.0.0.1"), "Invalid hostname format!! n[[1]]");
    expectRefused(line("2", "n[1-2]", std::string(kMac) + ",", "10.0.0.1"),
                  "Invalid MAC format!! ");
    expectRefused(line("2", "n[1-2]", kMac, "10.0.0.1,10.0.0.256"),
                  "Invalid IP format!! 10.0.0.256");
    expectRefused(line("0", "n[1-2]", kMac, "10.0.0.1"), "Invalid argument!! 0");
    expectRefused(line("two", "n[1-2]", kMac, "10.0.0.1"), "Invalid argument!! two");
}

TEST_F(NodeSet, LetsNoShellCharacterThrough) {
    for (const char* bad : {"a;b", "a|b", "a&b", "$(id)", "`id`", "a>b", "a<b", "a*", "a?", "a'b",
                            "a\\b", "~a", "#a", "a!", "{a}", "[a]"}) {
        const std::string refused = "Invalid argument!! " + std::string(bad);
        expectRefused("add node -h n -m " + std::string(kMac) + " -I " + bad, refused);
        expectRefused("add nodes from file -f " + std::string(bad), refused);
        expectRefused("del node -h " + std::string(bad), refused);
        expectRefused("list node status -h " + std::string(bad), refused);
        expectRefused(
            "add node and deploy -t1 " + std::string(bad) + " -t2 1 -h n -m " + kMac + " -I img",
            refused);
    }
}

TEST_F(NodeSet, ShowsThatAScriptIsMissing) {
    CShellCommandSet_Node elsewhere("/nonexistent/");
    CResult result;
    elsewhere.execute("list node status", nullptr, result, 30000);
    EXPECT_EQ(EXEC_SUCCESS, result.getRunStatus());
    EXPECT_EQ(127, result.getExitCode());
    EXPECT_NE(result.getRunSummary().find("not found"), std::string::npos);
}

TEST_F(NodeSet, TakesMegabytesOfOutput) {
    scripts.add("list_perceus_slave_node_status.sh", "head -c 3000000 /dev/zero | tr '\\0' x");
    EXPECT_EQ(3000000U, run("list node status").getExitOutput().size());
}

TEST_F(NodeSet, LeavesTheResultOfAnUnknownNameUntouched) {
    CResult result;
    result.setRunSummary("as before");
    set.execute("remove node -h n", nullptr, result, 1000);
    EXPECT_EQ("as before", result.getRunSummary());
}

}  // namespace
