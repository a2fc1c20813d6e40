// The sets that run tools on this machine: controllers over the network, provisioning.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include <gtest/gtest.h>

#include "CNode.h"
#include "CResult.h"
#include "CShellCommandSet_IPMI.h"
#include "CShellCommandSet_Node.h"
#include "Contract.h"
#include "ScopedEnvironment.h"
#include "TempDir.h"

namespace {

// Programs that write down how they were called: the name, then each argument in brackets.
class MasterToolContract : public ::testing::Test {
protected:
    void tool(const std::string& name, const std::string& rest) {
        std::ofstream(directory.file(name))
            << "#!/bin/sh\n{ printf '%s' '" << name
            << "'; for a; do printf '[%s]' \"$a\"; done; echo; } >> " << directory.file("calls")
            << "\n"
            << rest << "\n";
        std::filesystem::permissions(directory.file(name), std::filesystem::perms::owner_all);
    }
    std::string calls() {
        std::string text;
        {
            std::ifstream file(directory.file("calls"));
            text.assign(std::istreambuf_iterator<char>(file), {});
        }
        std::filesystem::remove(directory.file("calls"));
        return text;
    }
    CResult run(CShellCommandSet& set, const std::string& line) {
        CResult result;
        printed = printedBy([&] { set.execute(line, &node, result, 30000); });
        return result;
    }

    TempDir directory;
    ScopedEnvironment path{"PATH",
                           (directory.path() + ":" + std::string(std::getenv("PATH"))).c_str()};
    CNode node{"node_0000", "", "127.9.8.7", 4422};
    std::string printed;
};

struct LanRequest {
    std::string line;
    std::string arguments;
};

TEST_F(MasterToolContract, EachLanCommandIsOneLine) {
    tool("ipmitool", "printf ' 00 01\\n'; exit 3");
    CShellCommandSet_IPMI set;
    const std::string credentials = " -U u -P p";
    const std::map<std::string, std::string> requests = {
        {"cold reset", "[0x06][0x02]"},        {"set uid led on", "[0x30][0x0d]"},
        {"set uid led off", "[0x30][0x0e]"},   {"acpi status", "[0x06][0x07]"},
        {"power on", "[0x00][0x02][0x01]"},    {"power off", "[0x00][0x02][0x00]"},
        {"power cycle", "[0x00][0x02][0x02]"}, {"power reset", "[0x00][0x02][0x03]"},
        {"power soft", "[0x00][0x02][0x05]"},
    };
    for (const auto& [name, bytes] : requests) {
        const CResult result = run(set, name + credentials);
        EXPECT_EQ(calls(),
                  "ipmitool[-I][lanplus][-H][127.9.8.7][raw]" + bytes + "[-U][u][-P][p]\n");
        EXPECT_EQ(result.getRunSummary(), " 00 01\n");
        EXPECT_EQ(result.getRunStatus(), 0);
        EXPECT_EQ(result.getExitCode(), 3);
    }
}

TEST_F(MasterToolContract, RawCommandTakesTheUsersBytes) {
    tool("ipmitool", "");
    CShellCommandSet_IPMI set;
    const std::string head = "ipmitool[-I][lanplus][-H][127.9.8.7]";
    const std::vector<LanRequest> rows = {
        {"raw command -rc 0x06 0x01 -U u -P p", "[raw][0x06][0x01][-U][u][-P][p]"},
        {"raw command --raw-command 0x06 0x01 -U u -P p", "[raw][0x06][0x01][-U][u][-P][p]"},
        {"raw command -rc \"0x06 0x01\" -U u -P p", "[raw][0x06][0x01][-U][u][-P][p]"},
        {"raw command -U u -P p -rc \"0x06 0x01\"", "[-U][u][-P][p][raw][0x06][0x01]"}};
    for (const LanRequest& row : rows) {
        run(set, row.line);
        EXPECT_EQ(calls(), head + row.arguments + "\n") << row.line;
    }
}

TEST_F(MasterToolContract, DeviceTypeIsReadFromTheStartOfTheAnswer) {
    CShellCommandSet_IPMI set;
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"printf '  20 00 0e 40 02 7f 78 08 11\\n\\n'", "Chassis module A"},
        {"echo ' 30 30 30 31 5A 51 00 00 08 09 0A 0B 0C 0D 0E 0F'", "Unknown IPMI device"},
        {"echo '37 30 30 31 5a 51'", "Module type 3"},
        {"echo 'x 37 30 30 31 5a 51'", "Unknown IPMI device"},
        {"echo no >&2; exit 1", "No IPMI device"},
        {"printf ' \\n'", "No IPMI device"}};
    for (const auto& [answer, label] : rows) {
        tool("ipmitool", answer);
        const CResult result = run(set, "check device type -U u -P p");
        EXPECT_EQ(result.getRunSummary(), label);
        EXPECT_EQ(result.getRunStatus(), 0);
        EXPECT_EQ(calls(), "ipmitool[-I][lanplus][-H][127.9.8.7][raw][0x06][0x37][-U][u][-P][p]\n");
    }
}

TEST_F(MasterToolContract, WhatTheToolComplainsAboutIsShown) {
    tool("ipmitool", "echo 'Error: no session' >&2; exit 1");
    CShellCommandSet_IPMI set;
    const CResult result = run(set, "power on -U u -P p");
    EXPECT_EQ(result.getRunSummary(), "Error: no session\n");
    EXPECT_EQ(result.getRunStatus(), 0);
    calls();
    EXPECT_EQ(run(set, "power up -U u -P p").getRunSummary(), "");
    EXPECT_EQ(calls(), "");
}

// --- provisioning

class ProvisioningContract : public MasterToolContract {
protected:
    ProvisioningContract() {
        for (const char* name :
             {"add_perceus_slave_node.sh", "add_perceus_slave_node_and_deploy.sh",
              "add_perceus_slave_nodes.sh", "delete_perceus_slave_node.sh",
              "list_perceus_slave_node_status.sh"}) {
            tool(name, "echo done; exit 4");
        }
    }
    // The console shows where the scripts lie; "$S" here.
    std::string shown() const {
        std::string text = printed;
        for (std::size_t at = 0;
             (at = text.find(directory.path() + "/", at)) != std::string::npos;) {
            text.replace(at, directory.path().size() + 1, "$S/");
        }
        return text;
    }
    CShellCommandSet_Node set{directory.path() + "/"};
};

struct Provisioned {
    std::string line;
    std::string call;
    std::string printed;
};

TEST_F(ProvisioningContract, ScriptsGetTheValues) {
    const std::string mac = "00:11:22:33:44:55";
    const std::vector<Provisioned> rows = {
        {"add node -h node01 -m " + mac + " -i 10.0.0.1 -I img",
         "add_perceus_slave_node.sh[node01][" + mac + "][10.0.0.1][img]\n", ""},
        {"add node -I img -i 10.0.0.1 -m " + mac + " -h node01",
         "add_perceus_slave_node.sh[node01][" + mac + "][10.0.0.1][img]\n", ""},
        {"add node -h node01 -m " + mac + " -I img",
         "add_perceus_slave_node.sh[node01][" + mac + "][img]\n", ""},
        {"add node and deploy -t1 60 -t2 600 -h node01 -m " + mac + " -i 10.0.0.1 -I img",
         "add_perceus_slave_node_and_deploy.sh[node01][" + mac + "][10.0.0.1][img][60][600]\n",
         "$S/add_perceus_slave_node_and_deploy.sh node01 " + mac + " 10.0.0.1 img 60 600\n"},
        {"add nodes -c 2 -h node[01-02] -m " + mac + ",00:11:22:33:44:56 -I img",
         "add_perceus_slave_nodes.sh[-c][2][-h][node[01-02]][-m][" + mac +
             ",00:11:22:33:44:56][-I][img]\n",
         ""},
        {"add nodes from file -f /tmp/list", "add_perceus_slave_nodes.sh[-f][/tmp/list]\n", ""},
        {"del node -h node01", "delete_perceus_slave_node.sh[node01]\n",
         "$S/delete_perceus_slave_node.sh node01\n"},
        {"list node status -h node01", "list_perceus_slave_node_status.sh[node01]\n", ""},
        {"list node status -a", "list_perceus_slave_node_status.sh[-a]\n", ""},
        {"list node status", "list_perceus_slave_node_status.sh[-a]\n", ""}};
    for (const Provisioned& row : rows) {
        SCOPED_TRACE(row.line);
        const CResult result = run(set, row.line);
        EXPECT_EQ(calls(), row.call);
        EXPECT_EQ(shown(), row.printed);
        EXPECT_EQ(result.getRunStatus(), 0);
        EXPECT_EQ(result.getExitCode(), 4);
        EXPECT_EQ(result.getExitOutput(), "done\n");
    }
}

TEST_F(ProvisioningContract, AbsentAddressLeavesTwoBlanks) {
    run(set, "add node and deploy -t1 60 -t2 600 -h node01 -m 00:11:22:33:44:55 -I img");
    EXPECT_EQ(shown(),
              "$S/add_perceus_slave_node_and_deploy.sh node01 00:11:22:33:44:55  img 60 600\n");
}

TEST_F(ProvisioningContract, UnfitValuesRunNothing) {
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"add node -h no_de -m 00:11:22:33:44:55 -I img", "Invalid hostname format!! no_de\n"},
        {"add node --hostname node01 -m 00:11:22:33:44:55 -I img", "Invalid hostname format!! \n"},
        {"add node -h node01 -m 00-11-22-33-44-55 -I img",
         "Invalid MAC format!! 00-11-22-33-44-55\n"},
        {"add node -h node01 -m 00:11:22:33:44:55 -i 10.0.0.256 -I img",
         "Invalid IP format!! 10.0.0.256\n"},
        {"add nodes -c 2 -h node[02-01] -m 00:11:22:33:44:55 -I img",
         "Invalid hostname format!! node[02-01]\n"}};
    for (const auto& [line, message] : rows) {
        SCOPED_TRACE(line);
        const CResult result = run(set, line);
        EXPECT_EQ(printed, message);
        EXPECT_EQ(result.getRunStatus(), 2);
        EXPECT_EQ(calls(), "");
    }
}

}  // namespace
