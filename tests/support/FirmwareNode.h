#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "CNode.h"
#include "CSSLConfig.h"
#include "LocalAgent.h"
#include "TempDir.h"
#include "TestPaths.h"
#include "TestPki.h"

// What the nodes of one test share: the authority, with its master set in CSSLConfig, and a
// directory that the master and every node have under the same path and each with its own content.
class FirmwareCluster {
public:
    FirmwareCluster();

    std::string exchange() const { return directory.path() + "/exchange"; }
    std::string file(const std::string& name) const { return exchange() + "/" + name; }
    TestPki& pki() { return authority; }

    // Writes a file on the master and returns its path.
    std::string write(const std::string& name, const std::string& content) const;

private:
    TempDir directory;
    TestPki authority;
};

// A real agent on a machine of stand-in tools: packages under tools/, the others first in PATH, the
// hardware as files under machine(), and its own /var/tmp.
class FirmwareNode {
public:
    // onNode: what the node has as the cluster's exchange directory, as for LocalAgent's mounts; a
    // directory of its own when empty.
    FirmwareNode(FirmwareCluster& cluster, const std::string& nodeName,
                 const std::string& onNode = "");

    CNode* target() { return node.get(); }
    LocalAgent& kelnode() { return *agent; }
    const std::string& machine() const { return directory.path(); }

    // A piece of the hardware, by its file.
    std::string hardware(const std::string& name) const;
    void setHardware(const std::string& name, const std::string& content) const;

    // Tells a tool what to do: "fail", "garbage", "hang", "exit N"; "" to work.
    void tell(const std::string& tool, const std::string& order) const;
    void release() const { setHardware("release", ""); }
    bool waitUntilHanging(const std::string& tool) const;

    // The tools called since the last time, with their arguments in brackets.
    std::vector<std::string> takeCalls() const;

    // A file below the node's /var/tmp.
    std::string varTmp(const std::string& name) const;
    // Where the node has a file of the exchange directory.
    std::string onNode(const std::string& path) const;

    // The plain copies of packaged tools that lie in tools/ now.
    std::vector<std::string> plainTools() const;

private:
    static std::string source(const std::string& tool);
    static void placeTools(const std::string& where, const std::vector<std::string>& tools);
    void furnish() const;

    TempDir directory;
    std::string exchangeDirectory;
    std::unique_ptr<LocalAgent> agent;
    std::unique_ptr<CNode> node;
};
