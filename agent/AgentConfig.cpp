#include "AgentConfig.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <utility>

#include "MacAddress.h"
#include "Posix.h"
#include "Text.h"

namespace {

constexpr unsigned int kMostSessions = 100000;

bool parseNumber(const std::string& text, unsigned int highest, unsigned int& number) {
    if (text.empty() || text.size() > 6 ||
        text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    number = static_cast<unsigned int>(std::stoul(text));
    return number <= highest;
}

std::string parseSwitch(const std::string& key, const std::string& value, bool& isOn) {
    if (value != "yes" && value != "no") {
        return key + ": \"" + value + "\" is neither yes nor no";
    }
    isOn = value == "yes";
    return "";
}

}  // namespace

AgentConfig::AgentConfig(std::string path) : nodePath(std::move(path)) {
    if (nodePath.empty() || nodePath.back() != '/') {
        nodePath += '/';
    }
    listen = {"0.0.0.0", kDefaultPort};
    certificateFile = nodePath + "node.crt";
    privateKeyFile = nodePath + "node.key";
    caFile = nodePath + "ca.crt";
    toolsKeyFile = nodePath + "toolkey";
}

std::string AgentConfig::absolute(const std::string& name) const {
    return name.empty() || name.front() == '/' ? name : nodePath + name;
}

std::string AgentConfig::apply(const std::string& key, const std::string& value) {
    static const std::map<std::string, std::string AgentConfig::*> fileSettings{
        {"CERTIFICATE_FILE", &AgentConfig::certificateFile},
        {"PRIVATE_KEY_FILE", &AgentConfig::privateKeyFile},
        {"CA_FILE", &AgentConfig::caFile},
        {"TOOLS_KEY_FILE", &AgentConfig::toolsKeyFile},
        {"LOG_FILE", &AgentConfig::logFile},
        {"AUDIT_FILE", &AgentConfig::auditFile}};
    static const std::map<std::string, unsigned int AgentConfig::*> countSettings{
        {"MAX_SESSIONS", &AgentConfig::maxSessions},
        {"SESSIONS_PER_CERTIFICATE", &AgentConfig::sessionsPerCertificate},
        {"SESSIONS_PER_SOURCE", &AgentConfig::sessionsPerSource}};
    if (value.empty()) {
        return key + " has no value";
    }
    const auto file = fileSettings.find(key);
    if (file != fileSettings.end()) {
        this->*file->second = absolute(value);
        return "";
    }
    if (key == "LISTEN") {
        const std::string reason = parseListenAddress(value, listen);
        return reason.empty() ? "" : "LISTEN: " + reason;
    }
    if (key == "MAC_ADDRESS") {
        if (!macaddress::isValid(value, ":")) {
            return "MAC_ADDRESS: \"" + value + "\" is not six pairs of hexadecimal digits";
        }
        macAddress = value;
        Text::toUpper(macAddress);
        return "";
    }
    const auto count = countSettings.find(key);
    if (count != countSettings.end()) {
        unsigned int number = 0;
        if (!parseNumber(value, kMostSessions, number) || number == 0) {
            return key + ": \"" + value + "\" is not a number from 1 to 100000";
        }
        this->*count->second = number;
        return "";
    }
    if (key == "ALLOW_LOOSE_FILES") {
        return parseSwitch(key, value, allowsLooseFiles);
    }
    if (key == "ALLOW_UNCONFINED") {
        return parseSwitch(key, value, allowsUnconfined);
    }
    return "unknown setting \"" + key + "\"";
}

void AgentConfig::read(FILE* stream, std::vector<ConfigFault>& faults) {
    bool certificateNamed = false;
    bool keyNamed = false;
    readSettings(
        stream, {"KEY=VALUE", " is set a second time"},
        [&](const std::string& key, const std::string& value) {
            certificateNamed = certificateNamed || key == "CERTIFICATE_FILE";
            keyNamed = keyNamed || key == "PRIVATE_KEY_FILE";
            return apply(key, value);
        },
        faults);
    if (certificateNamed && !keyNamed) {
        privateKeyFile.clear();
    }
}

AgentConfig AgentConfig::load(const std::string& nodePath, std::vector<ConfigFault>& faults) {
    AgentConfig config(nodePath);
    const Posix::File file = Posix::openFile(config.getFileName(), "re");
    if (!file) {
        faults.push_back({0, std::string("cannot be opened: ") + std::strerror(errno)});
        return config;
    }
    config.read(file.get(), faults);
    return config;
}
