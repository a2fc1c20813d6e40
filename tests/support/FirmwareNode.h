#pragma once

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
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
    FirmwareCluster() : authority(directory.path() + "/pki") {
        std::filesystem::create_directories(exchange());
        CSSLConfig::getInstance()->setCertificateFile(authority.master("shell").certificateFile);
    }

    std::string exchange() const { return directory.path() + "/exchange"; }
    std::string file(const std::string& name) const { return exchange() + "/" + name; }
    TestPki& pki() { return authority; }

    // Writes a file on the master and returns its path.
    std::string write(const std::string& name, const std::string& content) const {
        std::ofstream(file(name), std::ios::binary) << content;
        return file(name);
    }

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
                 const std::string& onNode = "")
        : exchangeDirectory(cluster.exchange()) {
        for (const char* name : {"bin", "vartmp", "exchange"}) {
            std::filesystem::create_directories(directory.path() + "/" + name);
        }
        placeTools(directory.path() + "/bin",
                   {"dmidecode", "uname", "insmod", "reboot", "ipmitool", "service", "top"});
        LocalAgent::Options options;
        options.sharedAuthority = &cluster.pki();
        options.environment["PATH"] = directory.path() + "/bin:/usr/sbin:/usr/bin:/sbin:/bin";
        options.mounts["/var/tmp"] = directory.path() + "/vartmp";
        options.mounts[cluster.exchange()] =
            onNode.empty() ? directory.path() + "/exchange" : onNode;
        agent = std::make_unique<LocalAgent>(options);
        std::filesystem::create_directory_symlink(directory.path(), agent->nodePath() + "standin");
        furnish();
        node = std::make_unique<CNode>(nodeName, "", agent->ip(),
                                       static_cast<std::uint32_t>(agent->port()));
    }

    CNode* target() { return node.get(); }
    LocalAgent& kelnode() { return *agent; }
    const std::string& machine() const { return directory.path(); }

    // A piece of the hardware, by its file.
    std::string hardware(const std::string& name) const {
        return LocalAgent::read(directory.file(name));
    }
    void setHardware(const std::string& name, const std::string& content) const {
        std::ofstream(directory.file(name), std::ios::binary) << content;
    }

    // Tells a tool what to do: "fail", "garbage", "hang", "exit N"; "" to work.
    void tell(const std::string& tool, const std::string& order) const {
        setHardware(tool + ".do", order + "\n");
    }
    void release() const { setHardware("release", ""); }
    bool waitUntilHanging(const std::string& tool) const {
        return waitFor(
            [&] { return hardware("hanging").find(tool + ": started") != std::string::npos; });
    }

    // The tools called since the last time, with their arguments in brackets.
    std::vector<std::string> takeCalls() const {
        std::istringstream recorded(hardware("calls"));
        std::filesystem::remove(directory.file("calls"));
        std::vector<std::string> calls;
        for (std::string line; std::getline(recorded, line);) {
            calls.push_back(line);
        }
        return calls;
    }

    // A file below the node's /var/tmp.
    std::string varTmp(const std::string& name) const {
        return directory.path() + "/vartmp/" + name;
    }
    // Where the node has a file of the exchange directory.
    std::string onNode(const std::string& path) const {
        return directory.path() + "/exchange" + path.substr(exchangeDirectory.size());
    }

    // The plain copies of packaged tools that lie in tools/ now.
    std::vector<std::string> plainTools() const {
        std::vector<std::string> plain;
        for (const std::string& name : LocalAgent::list(agent->toolsPath())) {
            const bool isPackaged = std::filesystem::exists(agent->toolsPath() + name + ".enc");
            if (isPackaged) {
                plain.push_back(name);
            }
        }
        return plain;
    }

private:
    static std::string source(const std::string& tool) {
        return std::string(KELSH_SOURCE_DIR) + "/tests/tools/" + tool;
    }

    static void placeTools(const std::string& where, const std::vector<std::string>& tools) {
        for (const std::string& tool : tools) {
            std::filesystem::copy_file(source(tool), where + "/" + tool);
        }
    }

    void furnish() const {
        placeTools(directory.path(), {"standin.sh"});
        for (const char* tool :
             {"romutil", "romflash", "SCELNX_64", "romtool.x86_64", "chipprobe.x86_64",
              "romlayout.x86_64", "romwrite.sh", "flashrom.x86_64", "bmcconf-linux.x86_64",
              "bmcflash64", "lUpdate", "lUpdate.sh", "load_ipmi_driver", "bmc_driver_off"}) {
            agent->packScript(tool, LocalAgent::read(source(tool)));
        }
        for (const char* companion : {"romio.ko", "kcs.cfg", "libipmi.so.1", "libipmi.so.1.0"}) {
            std::ofstream(agent->toolsPath() + companion) << "companion";
        }
        // The one tool that some nodes have in the clear.
        const std::string clear = agent->toolsPath() + "FWHelper/IPMI_TOOL/ATEN";
        std::filesystem::create_directories(clear);
        placeTools(clear, {"lUpdate"});
        setHardware("bios_id", "R3ABC012\n");
        setHardware("bios_date", "05/27/2013\n");
        setHardware("platform", "x86_64\n");
        setHardware("chip", "factory R2BIOS R3BIOS image");
        setHardware("cmos", std::string("CMOS\0\377content", 13));
        setHardware("setup", "Setup Question = Quiet Boot\n");
        setHardware("nvram", "nvram");
        setHardware("nvram.list", "list");
        setHardware("nvram.hii", "hii");
        setHardware("guid", " 37 30 30 31 5a 51 00 00 08 09 0a 0b 0c 0d 0e 0f\n");
        setHardware("device_id", " 00 03 09 08 02 9f 91 12 00 02 0f 00 0a 0b 0c\n");
        setHardware("revision", "1.23\n");
        setHardware("led_state", " 01\n");
        setHardware("driver", "running\n");
        setHardware("power", "on\n");
    }

    TempDir directory;
    std::string exchangeDirectory;
    std::unique_ptr<LocalAgent> agent;
    std::unique_ptr<CNode> node;
};
