#include "AgentConfig.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <netinet/in.h>
#include <set>
#include <utility>

#include "CUtil.h"
#include "ConfigLineReader.h"

namespace {

constexpr unsigned int kHighestPort = 65535;
constexpr unsigned int kMostSessions = 100000;

bool parseNumber(const std::string& text, unsigned int highest, unsigned int& number) {
    if (text.empty() || text.size() > 6 ||
        text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    number = static_cast<unsigned int>(std::stoul(text));
    return number <= highest;
}

bool isAddress(int family, const std::string& host) {
    unsigned char binary[sizeof(in6_addr)];
    return ::inet_pton(family, host.c_str(), binary) == 1;
}

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};

}  // namespace

std::string parseListenAddress(const std::string& text, ListenAddress& address) {
    const std::string::size_type colon = text.rfind(':');
    if (colon == std::string::npos) {
        return "\"" + text + "\" is not address:port";
    }
    std::string host = text.substr(0, colon);
    int family = AF_INET;
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
        family = AF_INET6;
    }
    if (!isAddress(family, host)) {
        return "\"" + text + "\" does not begin with an IP address";
    }
    unsigned int port = 0;
    if (!parseNumber(text.substr(colon + 1), kHighestPort, port)) {
        return "\"" + text + "\" does not end in a port from 0 to 65535";
    }
    address.host = host;
    address.port = port;
    return "";
}

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
        if (!CUtil::validateMACaddr(value, ":")) {
            return "MAC_ADDRESS: \"" + value + "\" is not six pairs of hexadecimal digits";
        }
        macAddress = value;
        CUtil::toUpper(macAddress);
        return "";
    }
    if (key == "MAX_SESSIONS") {
        unsigned int number = 0;
        if (!parseNumber(value, kMostSessions, number) || number == 0) {
            return "MAX_SESSIONS: \"" + value + "\" is not a number from 1 to 100000";
        }
        maxSessions = number;
        return "";
    }
    return "unknown setting \"" + key + "\"";
}

void readSettings(FILE* stream, const SettingLines& lines,
                  const std::function<std::string(const std::string&, const std::string&)>& apply,
                  std::vector<AgentConfig::Fault>& faults) {
    ConfigLineReader reader(stream);
    std::set<std::string> seen;
    std::string line;
    bool continued = false;
    while (reader.next(line)) {
        // The rest of a line that was too long must not be taken for a setting of its own.
        const bool isRest = continued;
        continued = !reader.hadNewline() && line.size() == ConfigLineReader::kBufferBytes - 1;
        if (isRest) {
            continue;
        }
        std::string key;
        std::string value;
        std::string reason;
        if (continued) {
            reason = "the line is longer than 511 characters";
        } else if (ConfigLineReader::isSkipped(line)) {
            continue;
        } else if (!ConfigLineReader::splitSetting(line, key, value)) {
            reason = "\"" + line + "\" is not " + lines.form;
        } else if (!seen.insert(key).second) {
            reason = key + lines.repeated;
        } else {
            reason = apply(key, value);
        }
        if (!reason.empty()) {
            faults.push_back({reader.lineNumber(), reason});
        }
    }
    if (std::ferror(stream) != 0) {
        faults.push_back({0, std::string("cannot be read: ") + std::strerror(errno)});
    }
}

void AgentConfig::read(FILE* stream, std::vector<Fault>& faults) {
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

AgentConfig AgentConfig::load(const std::string& nodePath, std::vector<Fault>& faults) {
    AgentConfig config(nodePath);
    const std::unique_ptr<FILE, FileCloser> file(std::fopen(config.getFileName().c_str(), "re"));
    if (!file) {
        faults.push_back({0, std::string("cannot be opened: ") + std::strerror(errno)});
        return config;
    }
    config.read(file.get(), faults);
    return config;
}

std::string AgentConfig::describe(const std::string& fileName, const Fault& fault) {
    const std::string place = fault.line > 0 ? ", line " + std::to_string(fault.line) : "";
    return fileName + place + ": " + fault.text;
}
