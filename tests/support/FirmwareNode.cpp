#include "FirmwareNode.h"

#include <fstream>
#include <sstream>

FirmwareCluster::FirmwareCluster() : authority(directory.path() + "/pki") {
    std::filesystem::create_directories(exchange());
    CSSLConfig::getInstance()->setCertificateFile(authority.master("shell").certificateFile);
}

std::string FirmwareCluster::write(const std::string& name, const std::string& content) const {
    std::ofstream(file(name), std::ios::binary) << content;
    return file(name);
}

FirmwareNode::FirmwareNode(FirmwareCluster& cluster, const std::string& nodeName,
                           const std::string& onNode)
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
    options.mounts[cluster.exchange()] = onNode.empty() ? directory.path() + "/exchange" : onNode;
    agent = std::make_unique<LocalAgent>(options);
    std::filesystem::create_directory_symlink(directory.path(), agent->nodePath() + "standin");
    furnish();
    node = std::make_unique<CNode>(nodeName, "", agent->ip(),
                                   static_cast<std::uint32_t>(agent->port()));
}

std::string FirmwareNode::hardware(const std::string& name) const {
    return LocalAgent::read(directory.file(name));
}

void FirmwareNode::setHardware(const std::string& name, const std::string& content) const {
    std::ofstream(directory.file(name), std::ios::binary) << content;
}

void FirmwareNode::tell(const std::string& tool, const std::string& order) const {
    setHardware(tool + ".do", order + "\n");
}

bool FirmwareNode::waitUntilHanging(const std::string& tool) const {
    return waitFor(
        [&] { return hardware("hanging").find(tool + ": started") != std::string::npos; });
}

std::vector<std::string> FirmwareNode::takeCalls() const {
    std::istringstream recorded(hardware("calls"));
    std::filesystem::remove(directory.file("calls"));
    std::vector<std::string> calls;
    for (std::string line; std::getline(recorded, line);) {
        calls.push_back(line);
    }
    return calls;
}

std::string FirmwareNode::varTmp(const std::string& name) const {
    return directory.path() + "/vartmp/" + name;
}

std::string FirmwareNode::onNode(const std::string& path) const {
    return directory.path() + "/exchange" + path.substr(exchangeDirectory.size());
}

std::vector<std::string> FirmwareNode::plainTools() const {
    std::vector<std::string> plain;
    for (const std::string& name : LocalAgent::list(agent->toolsPath())) {
        const bool isPackaged = std::filesystem::exists(agent->toolsPath() + name + ".enc");
        if (isPackaged) {
            plain.push_back(name);
        }
    }
    return plain;
}

std::string FirmwareNode::source(const std::string& tool) {
    return std::string(KELSH_SOURCE_DIR) + "/tests/tools/" + tool;
}

void FirmwareNode::placeTools(const std::string& where, const std::vector<std::string>& tools) {
    for (const std::string& tool : tools) {
        std::filesystem::copy_file(source(tool), where + "/" + tool);
    }
}

void FirmwareNode::furnish() const {
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
